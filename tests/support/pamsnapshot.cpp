#include "pamsnapshot.h"

#include "sandboxguard.h"
#include "systemfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ZqlTest {
namespace {
// Whole directories: profiles, stacks and pam-auth-update's saved stacks.
const QStringList Directories{QStringLiteral("/etc/pam.d"),
                              QStringLiteral("/usr/share/pam-configs"),
                              QStringLiteral("/var/lib/pam")};
// Single files: debconf's answers, pam_pwhistory's history and what useradd writes.
const QStringList Files{QStringLiteral("/var/cache/debconf/config.dat"),
                        QStringLiteral("/etc/security/opasswd"),
                        QStringLiteral("/etc/passwd"),
                        QStringLiteral("/etc/shadow"),
                        QStringLiteral("/etc/group"),
                        QStringLiteral("/etc/gshadow"),
                        QStringLiteral("/etc/subuid"),
                        QStringLiteral("/etc/subgid")};

QStringList filesIn(const QString &directory)
{
    QStringList paths;
    const QFileInfoList entries = QDir(directory).entryInfoList(QDir::Files | QDir::Hidden);
    for (const QFileInfo &entry : entries)
        paths << entry.absoluteFilePath();
    return paths;
}
} // namespace

bool PamSnapshot::take(QString *error)
{
    if (!insideSandbox(error))
        return false;
    m_files.clear();
    m_directories = Directories;
    QStringList paths = Files;
    for (const QString &directory : Directories)
        paths << filesIn(directory);
    for (const QString &path : qAsConst(paths)) {
        if (!QFileInfo::exists(path))
            continue;
        const QByteArray bytes = readBytes(path);
        if (bytes.isNull()) {
            *error = QStringLiteral("cannot read %1").arg(path);
            return false;
        }
        m_files.insert(path, {bytes, QFile::permissions(path)});
    }
    return true;
}

bool PamSnapshot::restore(QString *error) const
{
    if (!insideSandbox(error))
        return false;
    QStringList present = Files;
    for (const QString &directory : m_directories)
        present << filesIn(directory);
    for (const QString &path : qAsConst(present)) {
        if (QFileInfo::exists(path) && !m_files.contains(path) && !QFile::remove(path)) {
            *error = QStringLiteral("cannot remove %1").arg(path);
            return false;
        }
    }
    for (auto kept = m_files.cbegin(); kept != m_files.cend(); ++kept) {
        const bool existed = QFileInfo::exists(kept.key());
        if (existed && readBytes(kept.key()) == kept->bytes)
            continue;
        if (!writeBytes(kept.key(), kept->bytes) ||
            (!existed && !QFile::setPermissions(kept.key(), kept->permissions))) {
            *error = QStringLiteral("cannot restore %1").arg(kept.key());
            return false;
        }
    }
    return true;
}

} // namespace ZqlTest
