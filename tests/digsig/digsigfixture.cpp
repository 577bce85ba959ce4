#include "digsigfixture.h"

#include "systemfixture.h"
#include "toolrun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ZqlTest {

const QString OptionsPath = QStringLiteral("/etc/digsig/digsig_initramfs.conf");
const QString XattrControlPath = QStringLiteral("/etc/digsig/xattr_control");
const QString DigSigDir = QStringLiteral("/etc/digsig");
const QString InitramfsStateDir = QStringLiteral("/var/lib/zql-sim/update-initramfs");
const QString InitramfsImage = QStringLiteral("/boot/initrd.img-6.1.0-sim-amd64");

namespace {
const QString MountTable = QStringLiteral("/etc/mtab");
const QString KernelMountTable = QStringLiteral("/proc/self/mounts");
const QString Boot = QStringLiteral("/boot");

QString statePath(const char *name)
{
    return InitramfsStateDir + QLatin1Char('/') + QLatin1String(name);
}
} // namespace

bool DigSigFixture::snapshot(QString *error)
{
    m_options = readBytes(OptionsPath);
    m_xattrControl = readBytes(XattrControlPath);
    if (m_options.isNull() || m_xattrControl.isNull()) {
        *error = QStringLiteral("the simulated system has no signature files");
        return false;
    }
    return true;
}

bool DigSigFixture::reset(QString *error)
{
    bool ok = m_mounts.unmountAll(error);
    for (const char *name : {"behaviour", "stderr", "calls.log", "hang.pid"})
        QFile::remove(statePath(name));
    QFile::remove(InitramfsImage);
    QFileInfo table(MountTable);
    if (!table.isSymLink()) {
        QFile::remove(MountTable);
        ok = QFile::link(KernelMountTable, MountTable) && ok;
    }
    QDir().mkpath(DigSigDir);
    ok = writeBytes(OptionsPath, m_options) && writeBytes(XattrControlPath, m_xattrControl) && ok;
    if (!ok && error->isEmpty())
        *error = QStringLiteral("cannot put the signature files back");
    return ok;
}

bool DigSigFixture::mountBoot(bool readOnly, QString *error)
{
    if (!m_mounts.tmpfs(Boot, QStringLiteral("size=256k"), error))
        return false;
    if (!readOnly)
        return true;
    const ToolRun remount = runTool(QStringLiteral("mount"),
                                    {QStringLiteral("-o"), QStringLiteral("remount,ro"), Boot});
    if (!remount.succeeded())
        *error = remount.describe();
    return remount.succeeded();
}

bool DigSigFixture::mountDigSigDir(const QString &options, QString *error)
{
    const QByteArray options0 = readBytes(OptionsPath);
    const QByteArray xattr = readBytes(XattrControlPath);
    if (!m_mounts.tmpfs(DigSigDir, options, error))
        return false;
    if (!writeBytes(OptionsPath, options0) || !writeBytes(XattrControlPath, xattr)) {
        *error = QStringLiteral("cannot write the files into the tmpfs");
        return false;
    }
    return true;
}

bool DigSigFixture::bindReadOnly(const QString &path, QString *error)
{
    return m_mounts.readOnly(path, error);
}

bool DigSigFixture::setToolBehaviour(const QByteArray &behaviour)
{
    return writeBytes(statePath("behaviour"), behaviour + '\n');
}

bool DigSigFixture::setToolStandardError(const QByteArray &text)
{
    return writeBytes(statePath("stderr"), text);
}

bool DigSigFixture::startCallLog()
{
    return writeBytes(statePath("calls.log"), {});
}

QStringList DigSigFixture::calls()
{
    const QString text = QString::fromUtf8(readBytes(statePath("calls.log")));
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool DigSigFixture::writeMountTable(const QByteArray &content)
{
    QFile::remove(MountTable);
    return writeBytes(MountTable, content);
}

bool DigSigFixture::bootMountedReadOnly()
{
    const QList<QByteArray> lines = readBytes(QStringLiteral("/proc/self/mounts")).split('\n');
    bool readOnly = false;
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() > 3 && fields.at(1) == "/boot")
            readOnly = fields.at(3).split(',').contains("ro"); // the last mount counts
    }
    return readOnly;
}

} // namespace ZqlTest
