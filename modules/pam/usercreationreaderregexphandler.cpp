#include "usercreationreaderregexphandler.h"

#include "settinglineshandler_p.h"

namespace UserCreation {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(SettingLines::linePattern(SettingLines::AddUserConf))
    , m_result(result)
{
    SettingLines::storeDefaults(SettingLines::AddUserConf, *m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return SettingLines::readLine(SettingLines::AddUserConf, regExp(), *m_result);
}

} // namespace UserCreation
