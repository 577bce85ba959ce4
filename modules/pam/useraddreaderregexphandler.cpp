#include "useraddreaderregexphandler.h"

#include "settinglineshandler_p.h"

namespace UserAdd {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(SettingLines::linePattern(SettingLines::UserAddDefaults))
    , m_result(result)
{
    SettingLines::storeDefaults(SettingLines::UserAddDefaults, *m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return SettingLines::readLine(SettingLines::UserAddDefaults, regExp(), *m_result);
}

} // namespace UserAdd
