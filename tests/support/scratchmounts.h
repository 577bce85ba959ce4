#ifndef ZQLTEST_SCRATCHMOUNTS_H
#define ZQLTEST_SCRATCHMOUNTS_H

#include <QString>
#include <QStringList>

namespace ZqlTest {

/**
 * The mounts one test made to shape a failure (a full tmpfs, a read-only bind), unmounted in
 * the reverse order by unmountAll(). Inside the sandbox only, as the helpers of systemfixture.h.
 */
class ScratchMounts
{
public:
    /** Mounts a tmpfs with @p options on the existing directory @p dir. */
    bool tmpfs(const QString &dir, const QString &options, QString *error);
    /** Binds @p path onto itself read-only. */
    bool readOnly(const QString &path, QString *error);
    /** Unmounts everything mounted through this object, the last first. */
    bool unmountAll(QString *error);

private:
    QStringList m_mounts;
};

/** Fills the file system of @p dir with a file "filler" until no further data block fits. */
void fillFileSystem(const QString &dir);

} // namespace ZqlTest

#endif // ZQLTEST_SCRATCHMOUNTS_H
