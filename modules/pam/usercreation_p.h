#ifndef ZQLMODULES_USERCREATION_P_H
#define ZQLMODULES_USERCREATION_P_H

#include <QString>

// Settings of the user-creation module: each is the key of /etc/adduser.conf of the same name.
namespace UserCreation {

const QString HomeKey = QStringLiteral("DHOME");
const QString SkeletonKey = QStringLiteral("SKEL");
const QString ShellKey = QStringLiteral("DSHELL");
const QString UserGroupsKey = QStringLiteral("USERGROUPS");
const QString UsersGroupKey = QStringLiteral("USERS_GID");

const QString Yes = QStringLiteral("yes");
const QString No = QStringLiteral("no");

} // namespace UserCreation

#endif // ZQLMODULES_USERCREATION_P_H
