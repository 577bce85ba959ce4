#include "tesselfixture.h"

#include "systemfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ZqlTest {

const QString TesselConfPath = QStringLiteral("/etc/tessel/tessel.conf");
const QString TesselConfDir = QStringLiteral("/etc/tessel");

bool TesselFixture::snapshot(QString *error)
{
    m_original = readBytes(TesselConfPath);
    if (m_original.isNull()) {
        *error = QStringLiteral("the simulated system has no %1").arg(TesselConfPath);
        return false;
    }
    return true;
}

bool TesselFixture::reset(QString *error)
{
    while (!m_mounts.isEmpty()) {
        if (!unmount(m_mounts.takeLast(), error))
            return false;
    }
    const QFileInfo info(TesselConfPath);
    if (info.isDir() && !QDir(TesselConfPath).removeRecursively()) {
        *error = QStringLiteral("cannot remove the directory %1").arg(TesselConfPath);
        return false;
    }
    if (!writeBytes(TesselConfPath, m_original)) {
        *error = QStringLiteral("cannot write %1").arg(TesselConfPath);
        return false;
    }
    return true;
}

bool TesselFixture::shape(TesselFailure failure, const QByteArray &content, QString *error)
{
    if (!writeBytes(TesselConfPath, content)) {
        *error = QStringLiteral("cannot write %1").arg(TesselConfPath);
        return false;
    }
    switch (failure) {
    case MissingFile:
        return QFile::remove(TesselConfPath);
    case DirectoryAsFile:
        return QFile::remove(TesselConfPath) && QDir().mkdir(TesselConfPath);
    case ReadOnlyFile:
        if (!bindReadOnly(TesselConfPath, error))
            return false;
        m_mounts << TesselConfPath;
        return true;
    case ReadOnlyDirectory:
        if (!bindReadOnly(TesselConfDir, error))
            return false;
        m_mounts << TesselConfDir;
        return true;
    case FullDisk: {
        if (!mountTmpfs(TesselConfDir, QStringLiteral("size=8k"), error))
            return false;
        m_mounts << TesselConfDir;
        if (!writeBytes(TesselConfPath, content)) {
            *error = QStringLiteral("cannot write %1 on the small file system").arg(TesselConfPath);
            return false;
        }
        // Fill what is left, so that not one more byte can be written.
        QFile filler(TesselConfDir + QStringLiteral("/filler"));
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
            *error = filler.errorString();
            return false;
        }
        const QByteArray chunk(512, 'x');
        while (filler.write(chunk) == chunk.size()) {
        }
        while (filler.write("x", 1) == 1) {
        }
        return true;
    }
    }
    return false;
}

} // namespace ZqlTest
