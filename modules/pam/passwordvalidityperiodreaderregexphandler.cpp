#include "passwordvalidityperiodreaderregexphandler.h"

#include "settinglineshandler_p.h"

namespace PasswordValidityPeriod {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(SettingLines::linePattern(SettingLines::LoginDefs))
    , m_result(result)
{
    SettingLines::storeDefaults(SettingLines::LoginDefs, *m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return SettingLines::readLine(SettingLines::LoginDefs, regExp(), *m_result);
}

} // namespace PasswordValidityPeriod
