#include "systemfixture.h"

#include "sandboxguard.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace ZqlTest {
namespace {
bool failed(const char *step, const QString &path, QString *error)
{
    *error =
        QStringLiteral("%1 %2: %3")
            .arg(QString::fromLatin1(step), path, QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}
} // namespace

bool mountTmpfs(const QString &dir, const QString &options, QString *error)
{
    if (!insideSandbox(error))
        return false;
    const QByteArray target = QFile::encodeName(dir);
    const QByteArray data = options.toLatin1();
    if (::mount("zql-test", target.constData(), "tmpfs", 0, data.constData()) != 0)
        return failed("mount tmpfs on", dir, error);
    return true;
}

bool bindReadOnly(const QString &path, QString *error)
{
    if (!insideSandbox(error))
        return false;
    const QByteArray target = QFile::encodeName(path);
    if (::mount(target.constData(), target.constData(), nullptr, MS_BIND, nullptr) != 0)
        return failed("bind", path, error);
    if (::mount(nullptr, target.constData(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) !=
        0)
        return failed("remount read-only", path, error);
    return true;
}

bool bindOver(const QString &source, const QString &target, QString *error)
{
    if (!insideSandbox(error))
        return false;
    const QByteArray from = QFile::encodeName(source);
    const QByteArray to = QFile::encodeName(target);
    if (::mount(from.constData(), to.constData(), nullptr, MS_BIND, nullptr) != 0)
        return failed("bind over", target, error);
    return true;
}

bool unmount(const QString &path, QString *error)
{
    if (!insideSandbox(error))
        return false;
    if (::umount2(QFile::encodeName(path).constData(), MNT_DETACH) != 0)
        return failed("unmount", path, error);
    return true;
}

StalledMount::StalledMount(const QString &dir, int stallLimitMs)
    : m_dir(dir)
    , m_stallLimitMs(stallLimitMs)
{}

StalledMount::~StalledMount()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_ended.notify_all();
    if (m_safetyNet.joinable())
        m_safetyNet.join();
    endConnection();
    if (m_mounted)
        ::umount2(QFile::encodeName(m_dir).constData(), MNT_DETACH);
}

// Closing the server's end aborts the connection: every blocked request fails.
void StalledMount::endConnection()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_connection >= 0)
        ::close(m_connection);
    m_connection = -1;
}

bool StalledMount::mount(QString *error)
{
    if (!insideSandbox(error))
        return false;
    m_connection = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (m_connection < 0)
        return failed("open /dev/fuse for", m_dir, error);
    // Nobody reads the connection, so not even the first request (INIT) is answered.
    const QByteArray options =
        "fd=" + QByteArray::number(m_connection) + ",rootmode=40000,user_id=0,group_id=0";
    if (::mount("zql-stalled", QFile::encodeName(m_dir).constData(), "fuse", MS_NOSUID | MS_NODEV,
                options.constData()) != 0)
        return failed("mount a stalled file system on", m_dir, error);
    m_mounted = true;
    m_safetyNet = std::thread([this] {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_ended.wait_for(lock, std::chrono::milliseconds(m_stallLimitMs),
                             [this] { return m_ending; }))
            return;
        lock.unlock();
        endConnection();
    });
    return true;
}

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray bytes = file.readAll();
    if (bytes.isNull())
        bytes = QByteArray("");
    return bytes;
}

bool writeBytes(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return file.write(bytes) == bytes.size() && file.flush();
}

} // namespace ZqlTest
