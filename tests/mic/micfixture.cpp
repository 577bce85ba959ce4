#include "micfixture.h"

#include "systemfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/xattr.h>

namespace MicTest {

const QString GrubFile = QStringLiteral("/etc/default/grub");
const QString FsIlevConf = QStringLiteral("/etc/tessel/fs-ilev.conf");
const QString MaxIlevFile = QStringLiteral("/etc/zql-platform/mic/max-ilev");
const QString IlevsFile = QStringLiteral("/etc/zql-platform/mic/ilevs");
const QString ToolStateDir = QStringLiteral("/var/lib/zql-sim/mic");
const QString SecurityModeFile = QStringLiteral("/etc/zql-platform/security-mode");

namespace {
const QStringList RememberedFiles{GrubFile, FsIlevConf, MaxIlevFile, IlevsFile, SecurityModeFile};
const QStringList SimulatedTools{
    QStringLiteral("/usr/sbin/set-fs-ilev"), QStringLiteral("/usr/sbin/unset-fs-ilev"),
    QStringLiteral("/usr/sbin/kdxl-file"), QStringLiteral("/usr/sbin/lumo-mic-control"),
    QStringLiteral("/usr/sbin/update-grub")};
const QFile::Permissions ToolPermissions = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                           QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                           QFile::ExeOther;
const QString CallLog = ToolStateDir + QStringLiteral("/calls.log");
const QString FsState = ToolStateDir + QStringLiteral("/fs-state");

bool emptyDirectory(const QString &path)
{
    QDir dir(path);
    const QStringList entries =
        dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        const QString full = dir.filePath(entry);
        const bool removed = QFileInfo(full).isDir() && !QFileInfo(full).isSymLink()
                                 ? QDir(full).removeRecursively()
                                 : QFile::remove(full);
        if (!removed)
            return false;
    }
    return true;
}
} // namespace

bool MicFixture::snapshot(QString *error)
{
    m_paths.clear();
    m_contents.clear();
    for (const QString &path : RememberedFiles + SimulatedTools) {
        // A file the simulated system does not have stays away (a null text).
        const QByteArray bytes = ZqlTest::readBytes(path);
        if (bytes.isNull() && QFile::exists(path)) {
            *error = QStringLiteral("cannot read ") + path;
            return false;
        }
        m_paths << path;
        m_contents << bytes;
    }
    return true;
}

bool MicFixture::reset(QString *error)
{
    while (!m_mounts.isEmpty()) {
        if (!ZqlTest::unmount(m_mounts.takeLast(), error))
            return false;
    }
    // No boot file but the GRUB defaults: the other kinds are put in place by the tests.
    QFile::remove(QStringLiteral("/boot.scr"));
    QFile::remove(QStringLiteral("/etc/default/grub_backup"));
    if (!emptyDirectory(QStringLiteral("/boot")) || !emptyDirectory(ToolStateDir)) {
        *error = QStringLiteral("cannot empty /boot or ") + ToolStateDir;
        return false;
    }
    for (int i = 0; i < m_paths.size(); ++i) {
        if (m_contents.at(i).isNull()) {
            if (QFile::exists(m_paths.at(i)) && !QFile::remove(m_paths.at(i))) {
                *error = QStringLiteral("cannot remove ") + m_paths.at(i);
                return false;
            }
            continue;
        }
        // Unchanged files stay as they are: a simulated tool may be running right now.
        if (ZqlTest::readBytes(m_paths.at(i)) == m_contents.at(i) &&
            (!SimulatedTools.contains(m_paths.at(i)) ||
             (QFile::permissions(m_paths.at(i)) & ToolPermissions) == ToolPermissions))
            continue;
        if (!writeFile(m_paths.at(i), m_contents.at(i))) {
            *error = QStringLiteral("cannot write back ") + m_paths.at(i);
            return false;
        }
        if (SimulatedTools.contains(m_paths.at(i)) &&
            !QFile::setPermissions(m_paths.at(i), ToolPermissions)) {
            *error = QStringLiteral("cannot make executable ") + m_paths.at(i);
            return false;
        }
    }
    if (!writeFile(CallLog, QByteArray()) || !setFsState("disabled")) {
        *error = QStringLiteral("cannot reset the tools' state");
        return false;
    }
    return true;
}

QByteArray MicFixture::original(const QString &path) const
{
    const int index = m_paths.indexOf(path);
    return index < 0 ? QByteArray() : m_contents.at(index);
}

bool MicFixture::mountTmpfs(const QString &dir, const QString &options, QString *error)
{
    if (!ZqlTest::mountTmpfs(dir, options, error))
        return false;
    m_mounts << dir;
    return true;
}

bool MicFixture::bindReadOnly(const QString &path, QString *error)
{
    if (!ZqlTest::bindReadOnly(path, error))
        return false;
    m_mounts << path;
    return true;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    if (!QDir().mkpath(QFileInfo(path).path()))
        return false;
    return ZqlTest::writeBytes(path, bytes);
}

bool setFault(const QString &tool, const QByteArray &line)
{
    return writeFile(ToolStateDir + QLatin1Char('/') + tool + QStringLiteral(".fault"),
                     line + '\n');
}

bool setToolStderr(const QString &tool, const QByteArray &text)
{
    return writeFile(ToolStateDir + QLatin1Char('/') + tool + QStringLiteral(".stderr"), text);
}

bool setFsState(const QByteArray &state)
{
    return writeFile(FsState, state + '\n');
}

bool setRunningLevel(int level)
{
    return writeFile(MaxIlevFile, QByteArray::number(level) + '\n');
}

QStringList toolCalls()
{
    const QString text = QString::fromUtf8(ZqlTest::readBytes(CallLog));
    QStringList lines = text.split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();
    return lines;
}

bool setPathLevel(const QString &path, int level)
{
    const QByteArray name = QByteArrayLiteral("trusted.tessel.ilev");
    const QByteArray file = path.toUtf8();
    if (level == 0)
        return ::removexattr(file.constData(), name.constData()) == 0 || errno == ENODATA;
    const QByteArray value = QByteArray::number(level);
    return ::setxattr(file.constData(), name.constData(), value.constData(),
                      static_cast<size_t>(value.size()), 0) == 0;
}

} // namespace MicTest
