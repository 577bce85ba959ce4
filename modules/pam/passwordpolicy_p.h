#ifndef ZQLMODULES_PASSWORDPOLICY_P_H
#define ZQLMODULES_PASSWORDPOLICY_P_H

#include <QString>
#include <QStringList>

// Setting names of the password-policy module, shared by the module and its line handlers. The
// order of each list is the order in which options are written.
namespace PasswordComplexity {

const QString RejectUsernameKey = QStringLiteral("reject_username");
const QString GecosCheckKey = QStringLiteral("gecoscheck");
const QString EnforceForRootKey = QStringLiteral("enforce_for_root");
const QString MinLengthKey = QStringLiteral("minlen");

const QStringList FlagKeys = {GecosCheckKey, EnforceForRootKey, RejectUsernameKey};
const QStringList CreditKeys = {QStringLiteral("lcredit"), QStringLiteral("ucredit"),
                                QStringLiteral("dcredit"), QStringLiteral("ocredit")};
const QStringList NumberKeys = QStringList{MinLengthKey} + CreditKeys;

} // namespace PasswordComplexity

namespace PasswordHistory {

const QString EnforceForRootKey = QStringLiteral("enforce_for_root");
const QString RememberKey = QStringLiteral("remember");

} // namespace PasswordHistory

namespace PasswordValidityPeriod {

const QString MaxIntervalKey = QStringLiteral("maxInterval");
const QString MinIntervalKey = QStringLiteral("minInterval");
const QString WarningIntervalKey = QStringLiteral("warningInterval");

} // namespace PasswordValidityPeriod

namespace UserAdd {

const QString InactiveIntervalKey = QStringLiteral("inactiveInterval");
const QString ExpireDateKey = QStringLiteral("expireDate");

} // namespace UserAdd

#endif // ZQLMODULES_PASSWORDPOLICY_P_H
