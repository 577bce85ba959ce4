#ifndef ZQLTEST_SYSTEMFIXTURE_H
#define ZQLTEST_SYSTEMFIXTURE_H

#include <QByteArray>
#include <QString>

#include <condition_variable>
#include <mutex>
#include <thread>

// Helpers that shape the sandbox's root for a test: mounts that make a disk full or a file
// read-only, and plain byte access to files. Every mount helper checks the sandbox first and
// refuses (returns false with a reason) outside it.
namespace ZqlTest {

/** Mounts a tmpfs with @p options (for example "size=12k") on the existing directory @p dir. */
bool mountTmpfs(const QString &dir, const QString &options, QString *error);

/** Binds @p path (file or directory) onto itself read-only: writes then fail with EROFS. */
bool bindReadOnly(const QString &path, QString *error);

/** Binds @p source over the existing @p target: @p target can then not be removed (EBUSY). */
bool bindOver(const QString &source, const QString &target, QString *error);

/** Unmounts @p path (lazily, so that a test can always clean up). */
bool unmount(const QString &path, QString *error);

/**
 * A file system on an existing directory whose server never answers: a lookup below the
 * directory (the exec of a program there, for instance) blocks until the object goes; a blocked
 * process can still be killed. Destroying the object ends the connection, so blocked lookups
 * fail, and unmounts the directory. As a safety net the connection also ends by itself after
 * @p stallLimitMs, so that a test which blocks on it by mistake fails instead of hanging.
 */
class StalledMount
{
public:
    explicit StalledMount(const QString &dir, int stallLimitMs = 10000);
    ~StalledMount();
    StalledMount(const StalledMount &) = delete;
    StalledMount &operator=(const StalledMount &) = delete;

    /** Mounts it (inside the sandbox only). */
    bool mount(QString *error);

private:
    void endConnection();

    QString m_dir;
    int m_stallLimitMs;
    int m_connection = -1;
    bool m_mounted = false;
    bool m_ending = false;
    std::mutex m_mutex;
    std::condition_variable m_ended;
    std::thread m_safetyNet;
};

/** The bytes of @p path, or a null array when it cannot be read. */
QByteArray readBytes(const QString &path);

/** Writes @p bytes to @p path (created or truncated); false when that fails. */
bool writeBytes(const QString &path, const QByteArray &bytes);

} // namespace ZqlTest

#endif // ZQLTEST_SYSTEMFIXTURE_H
