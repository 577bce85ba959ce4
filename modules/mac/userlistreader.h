#ifndef ZQLMODULES_USERLISTREADER_H
#define ZQLMODULES_USERLISTREADER_H

#include "zqlmodules_export.h"

#include <QByteArray>
#include <QList>
#include <QString>

/**
 * The local users of "/etc/passwd" with ids above 999 (but not 65534), each with a copy of the
 * MAC label the MAC database holds for the user.
 *
 * Reads only; never writes "/etc/passwd" or the database.
 */
class ZQLMODULES_EXPORT UserListReader
{
public:
    /** One user and the two 16-byte parts of the user's MAC label (zeros without a record). */
    struct User
    {
        QString name;
        QByteArray labelParts[2];
    };

    UserListReader();
    virtual ~UserListReader();
    UserListReader(const UserListReader &) = default;
    UserListReader &operator=(const UserListReader &) = default;

    /** Fills the list afresh. @return false when "/etc/passwd" or the MAC database cannot be
     * opened. */
    bool readUserList();

    /** The users of the last read. */
    QList<User> users() const;

private:
    QList<User> m_users;
};

#endif // ZQLMODULES_USERLISTREADER_H
