#ifndef ZQLTEST_PAMTESTSUPPORT_H
#define ZQLTEST_PAMTESTSUPPORT_H

#include "outputcapture.h"
#include "systemfixture.h"

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariant>

// Small helpers shared by the authentication-policy suites.
namespace ZqlTest {

// What an operation wrote on the two streams.
struct Streams
{
    QByteArray output;
    QByteArray error;
};

// Runs @p operation and returns what it wrote on standard output and standard error.
template<typename Operation> Streams captured(Operation operation)
{
    OutputCapture capture;
    operation();
    capture.finish();
    return {capture.standardOutput(), capture.standardError()};
}

// A switched number as the modules read and write it: [enabled, value].
inline QVariant pair(bool enabled, qint64 value)
{
    return QVariant(QJsonArray{enabled, value});
}

// A settings hash as compact JSON with sorted keys, so that a failed comparison shows both
// sides readably and a boolean never equals a number.
inline QByteArray json(const QHash<QString, QVariant> &settings)
{
    return QJsonDocument(QJsonObject::fromVariantHash(settings)).toJson(QJsonDocument::Compact);
}

// The bytes of a set of files, to put them back after a test changed them; a file that was
// missing is removed again.
class FileSnapshot
{
public:
    explicit FileSnapshot(const QStringList &paths = {})
    {
        for (const QString &path : paths)
            m_files.insert(path, readBytes(path));
    }

    bool restore() const
    {
        bool restored = true;
        for (auto it = m_files.constBegin(); it != m_files.constEnd(); ++it) {
            if (it.value().isNull())
                restored = (!QFile::exists(it.key()) || QFile::remove(it.key())) && restored;
            else
                restored = writeBytes(it.key(), it.value()) && restored;
        }
        return restored;
    }

private:
    QHash<QString, QByteArray> m_files;
};

// Every file that "pam-auth-update" reads or writes: the profiles, the stacks it generates,
// its own record of them and the debconf database that keeps the chosen profiles.
inline QStringList pamConfigurationFiles()
{
    QStringList files;
    for (const char *profile : {"cracklib", "pwquality", "pwhistory", "tally", "unix"})
        files << QStringLiteral("/usr/share/pam-configs/") + QLatin1String(profile);
    for (const char *stack : {"auth", "account", "password", "session", "session-noninteractive"}) {
        files << QStringLiteral("/etc/pam.d/common-") + QLatin1String(stack);
        files << QStringLiteral("/var/lib/pam/") + QLatin1String(stack);
    }
    files << QStringLiteral("/var/lib/pam/seen") << QStringLiteral("/var/cache/debconf/config.dat")
          << QStringLiteral("/var/cache/debconf/config.dat-old");
    return files;
}

} // namespace ZqlTest

#endif // ZQLTEST_PAMTESTSUPPORT_H
