#include "desktopentryfixture.h"

#include "systemfixture.h"
#include "toolrun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <glib.h>

namespace ZqlTest {

namespace {
// A comment without its blank lines: GLib keeps blank lines as comments of the key after
// them, and a key it adds at the end of a group comes after the group's trailing blank line.
QString commentText(gchar *comment)
{
    QStringList lines = QString::fromUtf8(comment).split(QLatin1Char('\n'));
    lines.removeAll(QString());
    g_free(comment);
    return lines.join(QLatin1Char('\n'));
}

void insertComment(QMap<QString, QString> &comments, const QString &where, gchar *comment)
{
    const QString text = commentText(comment);
    if (!text.isEmpty())
        comments.insert(where, text);
}

// desktop-file-validate knows only the registered desktops and wants any other name to
// start with "X-"; the kiosk session's name is fixed as "vela-kiosk".
const QByteArray KioskDesktopInList = "vela-kiosk;";
const QByteArray ExtensionDesktopInList = "X-vela-kiosk;";
} // namespace

QString debianEntriesDir()
{
    return QStringLiteral(ZQL_DEBIAN_DESKTOP_ENTRIES);
}

QString debianEntry(const QString &name)
{
    return debianEntriesDir() + QLatin1Char('/') + name;
}

ParsedEntry parseEntry(const QString &path)
{
    ParsedEntry entry;
    GKeyFile *keyFile = g_key_file_new();
    GError *error = nullptr;
    const QByteArray fileName = QFile::encodeName(path);
    if (!g_key_file_load_from_file(
            keyFile, fileName.constData(),
            GKeyFileFlags(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS), &error)) {
        entry.error = QString::fromUtf8(error->message);
        g_clear_error(&error);
        g_key_file_unref(keyFile);
        return entry;
    }
    entry.parsed = true;
    insertComment(entry.comments, QString(),
                  g_key_file_get_comment(keyFile, nullptr, nullptr, nullptr));
    gchar **groups = g_key_file_get_groups(keyFile, nullptr);
    for (gchar **group = groups; group && *group; ++group) {
        const QString groupName = QString::fromUtf8(*group);
        entry.groups << groupName;
        QMap<QString, QString> &values = entry.values[groupName];
        insertComment(entry.comments, groupName,
                      g_key_file_get_comment(keyFile, *group, nullptr, nullptr));
        gchar **keys = g_key_file_get_keys(keyFile, *group, nullptr, nullptr);
        for (gchar **key = keys; key && *key; ++key) {
            gchar *value = g_key_file_get_value(keyFile, *group, *key, nullptr);
            values.insert(QString::fromUtf8(*key), QString::fromUtf8(value));
            g_free(value);
            insertComment(entry.comments, groupName + QLatin1Char('/') + QString::fromUtf8(*key),
                          g_key_file_get_comment(keyFile, *group, *key, nullptr));
        }
        g_strfreev(keys);
    }
    g_strfreev(groups);
    g_key_file_unref(keyFile);
    return entry;
}

Validation validateEntry(const QString &path)
{
    // The copy keeps the file's name: the validator checks that it ends in ".desktop".
    const QString copyDir = QStringLiteral("/tmp/desktop-file-validate");
    QDir().mkpath(copyDir);
    const QString copy = copyDir + QLatin1Char('/') + QFileInfo(path).fileName();
    QByteArray bytes = readBytes(path);
    QList<QByteArray> lines = bytes.split('\n');
    for (QByteArray &line : lines) {
        if (line.startsWith("OnlyShowIn=") || line.startsWith("NotShowIn="))
            line.replace(KioskDesktopInList, ExtensionDesktopInList);
    }
    if (bytes.isNull() || !writeBytes(copy, lines.join('\n')))
        return Validation();
    const ToolRun run = runTool(QStringLiteral("desktop-file-validate"), {copy});
    Validation validation;
    validation.ran = run.ending == ToolRun::Ending::Exited;
    validation.exitCode = run.exitCode;
    validation.output = run.standardOutput + run.standardError;
    return validation;
}

bool copyFile(const QString &source, const QString &target)
{
    const QByteArray bytes = readBytes(source);
    return !bytes.isNull() && writeBytes(target, bytes);
}

} // namespace ZqlTest
