#ifndef ZQLMODULES_ACCOUNTLOCKOUT_P_H
#define ZQLMODULES_ACCOUNTLOCKOUT_P_H

#include <QString>
#include <QStringList>

// The options of pam_tally.so that the account-lockout module manages, shared by the module
// and its two line handlers. The order of each list is the order in which options are written.
namespace AccountLockout {

const QString PerUserKey = QStringLiteral("per_user");
const QString MagicRootKey = QStringLiteral("magic_root");
const QString NoResetKey = QStringLiteral("no_reset");
const QString DenyKey = QStringLiteral("deny");
const QString LockTimeKey = QStringLiteral("lock_time");
const QString UnlockTimeKey = QStringLiteral("unlock_time");

const QStringList FlagKeys = {PerUserKey, MagicRootKey, NoResetKey};
const QStringList NumberKeys = {DenyKey, LockTimeKey, UnlockTimeKey};

} // namespace AccountLockout

#endif // ZQLMODULES_ACCOUNTLOCKOUT_P_H
