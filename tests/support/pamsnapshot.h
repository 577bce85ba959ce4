#ifndef ZQLTEST_PAMSNAPSHOT_H
#define ZQLTEST_PAMSNAPSHOT_H

#include <QByteArray>
#include <QFileDevice>
#include <QMap>
#include <QString>
#include <QStringList>

namespace ZqlTest {

/**
 * The state a PAM test changes, kept in memory so that each test function can start from the
 * same system inside one sandbox: every file under /etc/pam.d, /usr/share/pam-configs and
 * /var/lib/pam, debconf's cache, /etc/security/opasswd and the account files. restore() writes
 * the kept bytes back, recreates removed files and removes files that were not there. It does
 * not touch pam-auth-update itself: see restorePamAuthUpdate().
 */
class PamSnapshot
{
public:
    /** Reads the state now; false with a reason when outside the sandbox. */
    bool take(QString *error);
    /** Puts the state taken back; false with the first path that failed. */
    bool restore(QString *error) const;

private:
    struct Kept
    {
        QByteArray bytes;
        QFileDevice::Permissions permissions;
    };
    QMap<QString, Kept> m_files;
    QStringList m_directories;
};

} // namespace ZqlTest

#endif // ZQLTEST_PAMSNAPSHOT_H
