#ifndef ZQLTEST_DESKTOPENTRYFIXTURE_H
#define ZQLTEST_DESKTOPENTRYFIXTURE_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// What the desktop-entry suites need besides the class under test: the Debian fixtures, a
// parse of an entry file by GLib directly (to compare files before and after a write), and
// Debian's desktop-file-validate.
namespace ZqlTest {

/** The folder of the desktop entries taken from Debian packages (see its README.md). */
QString debianEntriesDir();

/** @return the path of the Debian fixture @p name. */
QString debianEntry(const QString &name);

/**
 * An entry file as GLib's GKeyFile reads it: every group, every key with its raw (escaped)
 * value, and every comment (blank lines left out). Empty when the file cannot be parsed.
 */
struct ParsedEntry
{
    bool parsed = false;
    QStringList groups;
    QMap<QString, QMap<QString, QString>> values; // group -> key -> raw value
    QMap<QString, QString> comments;              // "group" or "group/key" -> comment
    QString error;

    /** The keys of @p group. */
    QStringList keys(const QString &group) const { return values.value(group).keys(); }
};

ParsedEntry parseEntry(const QString &path);

/**
 * desktop-file-validate's verdict on @p path: its exit code and both streams. The kiosk
 * session's desktop name "vela-kiosk" in OnlyShowIn or NotShowIn is validated as
 * "X-vela-kiosk": the validator refuses every unregistered desktop name without "X-", and the
 * kiosk's name is fixed.
 */
struct Validation
{
    bool ran = false;
    int exitCode = -1;
    QByteArray output;

    /** Passes without a single remark. */
    bool clean() const { return ran && exitCode == 0 && output.trimmed().isEmpty(); }
    /** Passes: no errors (warnings allowed). */
    bool passes() const { return ran && exitCode == 0; }
};

Validation validateEntry(const QString &path);

/** Copies @p source to @p target (replacing it); false when that fails. */
bool copyFile(const QString &source, const QString &target);

} // namespace ZqlTest

#endif // ZQLTEST_DESKTOPENTRYFIXTURE_H
