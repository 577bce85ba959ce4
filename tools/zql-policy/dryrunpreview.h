#ifndef ZQLPOLICY_DRYRUNPREVIEW_H
#define ZQLPOLICY_DRYRUNPREVIEW_H

#include <QByteArray>
#include <QString>
#include <QVector>

namespace ZqlPolicy {

/** One file a dry run changed: its block of the unified diff and its line counts. */
struct FileDiff
{
    QString path;        ///< absolute, as the apply saw it
    bool state = false;  ///< a backup or tool state, not a configuration file
    bool binary = false; ///< diff said "Binary files ... differ"
    int added = 0;
    int removed = 0;
    QByteArray block; ///< from "diff --git" to the end of its hunks
};

/**
 * What apply --dry-run prints on standard output: a summary like git diff --stat, grouped into
 * the configuration files the policy changes and the backups and tool state the tools leave
 * (".bak", ".pam-old", anything under /var), then the unified diff of the configuration files
 * (and with Detail::Full of the rest too). Colour, when asked for, is git's. Without colour
 * the diff blocks are the sandbox's bytes, so patch -p1 and git apply take them.
 */
class DryRunPreview
{
public:
    enum class Detail {
        Summary,       ///< --stat: the summary only
        Configuration, ///< the summary and the configuration files' diff
        Full           ///< --full: the summary and every file's diff
    };

    /** Whether @p path is a backup or tool state rather than configuration. */
    static bool isBackupOrState(const QString &path);

    /** @p block, the diff of the file @p path, with its counts. */
    static FileDiff fromBlock(const QString &path, const QByteArray &block);

    /** The preview of @p files (in the change list's order); empty when nothing changed. */
    static QByteArray render(const QVector<FileDiff> &files, Detail detail, bool colour,
                             int width = 80);

    /** @p block with git's colours: bold headers, cyan hunk lines, red and green changes. */
    static QByteArray colourBlock(const QByteArray &block);
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_DRYRUNPREVIEW_H
