#include "dryrunpreview.h"

#include <QList>

#include <algorithm>

namespace ZqlPolicy {

namespace {

const QStringList BackupSuffixes = {QStringLiteral(".bak"), QStringLiteral(".pam-old")};
const QString StateDirectory = QStringLiteral("/var/");

const QByteArray ConfigurationHeading = "Configuration files the policy changes:\n";
const QByteArray StateHeading = "Backups and tool state:\n";
const QByteArray StateHeadingWithoutDiff = "Backups and tool state (their diff: --full):\n";

// git's colours (color.diff defaults).
const QByteArray Reset = "\033[m";
const QByteArray Bold = "\033[1m";
const QByteArray Cyan = "\033[36m";
const QByteArray Red = "\033[31m";
const QByteArray Green = "\033[32m";

// The shortest graph git draws before it gives up the names' room.
const int MinimumGraphWidth = 6;

QByteArray coloured(const QByteArray &colour, const QByteArray &text, bool colourOn)
{
    return colourOn && !text.isEmpty() ? colour + text + Reset : text;
}

QByteArray plural(int count, const char *one, const char *many)
{
    return QByteArray::number(count) + ' ' + (count == 1 ? one : many);
}

// git's summary line: " 2 files changed, 3 insertions(+), 1 deletion(-)".
QByteArray totals(const QVector<const FileDiff *> &files)
{
    int added = 0;
    int removed = 0;
    for (const FileDiff *file : files) {
        added += file->added;
        removed += file->removed;
    }
    QByteArray line = ' ' + plural(files.size(), "file changed", "files changed");
    if (added > 0 || removed == 0)
        line += ", " + plural(added, "insertion(+)", "insertions(+)");
    if (removed > 0 || added == 0)
        line += ", " + plural(removed, "deletion(-)", "deletions(-)");
    return line + '\n';
}

// git's scaling: any change gets at least one sign.
int scaled(int count, int width, int largest)
{
    return count == 0 ? 0 : 1 + (count * (width - 1) / largest);
}

struct StatLayout
{
    int nameWidth = 0;
    int countWidth = 0;
    int graphWidth = 0;
    int largest = 0;
};

QByteArray countText(const FileDiff &file)
{
    return file.binary ? QByteArray("Bin") : QByteArray::number(file.added + file.removed);
}

QByteArray statLine(const FileDiff &file, const StatLayout &layout, bool colour)
{
    const QByteArray name = file.path.toUtf8();
    QByteArray line = ' ' + name + QByteArray(layout.nameWidth - name.size(), ' ') + " | ";
    const QByteArray count = countText(file);
    line += QByteArray(layout.countWidth - count.size(), ' ') + count;
    const int changed = file.added + file.removed;
    if (!file.binary && changed > 0) {
        int plus = file.added;
        int minus = file.removed;
        if (layout.largest > layout.graphWidth) {
            const int total = scaled(changed, layout.graphWidth, layout.largest);
            plus = scaled(file.added, layout.graphWidth, layout.largest);
            minus = std::max(0, total - plus);
        }
        line += ' ' + coloured(Green, QByteArray(plus, '+'), colour) +
                coloured(Red, QByteArray(minus, '-'), colour);
    }
    return line + '\n';
}

} // namespace

bool DryRunPreview::isBackupOrState(const QString &path)
{
    if (path.startsWith(StateDirectory))
        return true;
    return std::any_of(BackupSuffixes.begin(), BackupSuffixes.end(),
                       [&path](const QString &suffix) { return path.endsWith(suffix); });
}

FileDiff DryRunPreview::fromBlock(const QString &path, const QByteArray &block)
{
    FileDiff file;
    file.path = path;
    file.state = isBackupOrState(path);
    file.block = block;
    bool inHunks = false;
    const QList<QByteArray> lines = block.split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("@@ ")) {
            inHunks = true;
        } else if (!inHunks) {
            file.binary =
                file.binary || (line.startsWith("Binary files ") && line.endsWith(" differ"));
        } else if (line.startsWith('+')) {
            ++file.added;
        } else if (line.startsWith('-')) {
            ++file.removed;
        }
    }
    return file;
}

QByteArray DryRunPreview::colourBlock(const QByteArray &block)
{
    QByteArray result;
    bool inHunks = false;
    const QList<QByteArray> lines = block.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray &line = lines.at(i);
        if (i == lines.size() - 1 && line.isEmpty())
            break; // after the last line feed
        if (line.startsWith("diff --git "))
            inHunks = false;
        if (line.startsWith("@@ ")) {
            inHunks = true;
            const int end = line.indexOf(" @@", 3);
            const int split = end < 0 ? line.size() : end + 3;
            result += coloured(Cyan, line.left(split), true) + line.mid(split);
        } else if (!inHunks) {
            result += coloured(Bold, line, true);
        } else if (line.startsWith('+')) {
            result += coloured(Green, line, true);
        } else if (line.startsWith('-')) {
            result += coloured(Red, line, true);
        } else {
            result += line;
        }
        result += '\n';
    }
    return result;
}

QByteArray DryRunPreview::render(const QVector<FileDiff> &files, Detail detail, bool colour,
                                 int width)
{
    if (files.isEmpty())
        return QByteArray();
    QVector<const FileDiff *> configuration;
    QVector<const FileDiff *> state;
    StatLayout layout;
    for (const FileDiff &file : files) {
        (file.state ? state : configuration).append(&file);
        layout.nameWidth = std::max(layout.nameWidth, int(file.path.toUtf8().size()));
        layout.countWidth = std::max(layout.countWidth, int(countText(file).size()));
    }
    // " name | count graph" within the width, as git lays it out.
    layout.graphWidth =
        std::max(MinimumGraphWidth, width - (1 + layout.nameWidth + 3 + layout.countWidth + 1));

    QByteArray text;
    const auto group = [&](const QByteArray &heading, const QVector<const FileDiff *> &members) {
        if (members.isEmpty())
            return;
        // Each group is scaled on its own: a long new backup does not flatten the changes.
        layout.largest = 0;
        for (const FileDiff *file : members) {
            if (!file->binary)
                layout.largest = std::max(layout.largest, file->added + file->removed);
        }
        text += heading;
        for (const FileDiff *file : members)
            text += statLine(*file, layout, colour);
        text += totals(members);
    };
    group(ConfigurationHeading, configuration);
    group(detail == Detail::Configuration ? StateHeadingWithoutDiff : StateHeading, state);
    if (detail == Detail::Summary)
        return text;

    QByteArray diff;
    for (const FileDiff &file : files) {
        if (file.state && detail != Detail::Full)
            continue;
        diff += colour ? colourBlock(file.block) : file.block;
    }
    if (!diff.isEmpty())
        text += '\n' + diff;
    return text;
}

} // namespace ZqlPolicy
