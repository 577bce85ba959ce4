#include "passwordvalidityperiodreaderregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

namespace {
const QHash<QString, QString> SettingsKeys = {
    {QStringLiteral("PASS_MAX_DAYS"), PasswordValidityPeriod::MaxIntervalKey},
    {QStringLiteral("PASS_MIN_DAYS"), PasswordValidityPeriod::MinIntervalKey},
    {QStringLiteral("PASS_WARN_AGE"), PasswordValidityPeriod::WarningIntervalKey}};
} // namespace

namespace PasswordValidityPeriod {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(LoginDefsPattern)
    , m_result(result)
{
    for (const QString &key : SettingsKeys)
        m_result->insert(key, SwitchedNumber::off());
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    m_result->insert(SettingsKeys.value(regExp().cap(1)),
                     SwitchedNumber::make(true, regExp().cap(2).toLongLong()));
    return true;
}

} // namespace PasswordValidityPeriod
