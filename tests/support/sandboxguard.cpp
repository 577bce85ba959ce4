#include "sandboxguard.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QList>

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace ZqlTest {
namespace {
const char HostNamespaceVariable[] = "ZQL_SANDBOX_HOST_MNTNS";
const char MountInfoPath[] = "/proc/self/mountinfo";
const char OwnNamespacePath[] = "/proc/self/ns/mnt";
constexpr int RefusalExitCode = 3;

// The file-system type of the last mount on "/" in /proc/self/mountinfo (the one in force).
QByteArray rootFileSystemType(QString *why)
{
    QFile mountInfo(QString::fromLatin1(MountInfoPath));
    if (!mountInfo.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("cannot read %1: %2")
                   .arg(QString::fromLatin1(MountInfoPath), mountInfo.errorString());
        return {};
    }
    QByteArray type;
    const QList<QByteArray> lines = mountInfo.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split(' ');
        const int separator = fields.indexOf("-");
        if (fields.size() > 4 && fields.at(4) == "/" && separator > 0 &&
            separator + 1 < fields.size())
            type = fields.at(separator + 1);
    }
    return type;
}
} // namespace

QString sandboxViolation()
{
    const QByteArray recorded = qgetenv(HostNamespaceVariable);
    bool numeric = false;
    const qulonglong hostNamespace = recorded.toULongLong(&numeric);
    if (!numeric)
        return QStringLiteral("%1 is not set: not started by zql-sandbox")
            .arg(QString::fromLatin1(HostNamespaceVariable));

    struct stat own = {};
    if (::stat(OwnNamespacePath, &own) != 0)
        return QStringLiteral("cannot stat %1").arg(QString::fromLatin1(OwnNamespacePath));
    if (static_cast<qulonglong>(own.st_ino) == hostNamespace)
        return QStringLiteral("still in the machine's own mount namespace");

    QString why;
    const QByteArray type = rootFileSystemType(&why);
    if (!why.isEmpty())
        return why;
    if (type != "overlay")
        return QStringLiteral("the root file system is %1, not the sandbox's overlay")
            .arg(QString::fromLatin1(type.isEmpty() ? QByteArray("unknown") : type));
    return {};
}

bool insideSandbox(QString *error)
{
    const QString why = sandboxViolation();
    if (why.isEmpty())
        return true;
    *error = QStringLiteral("not in the sandbox: %1").arg(why);
    return false;
}

void requireSandbox()
{
    const QString why = sandboxViolation();
    if (why.isEmpty())
        return;
    std::fprintf(stderr, "refusing to run outside the system sandbox: %s\n", qPrintable(why));
    std::fflush(stderr);
    std::exit(RefusalExitCode);
}

} // namespace ZqlTest
