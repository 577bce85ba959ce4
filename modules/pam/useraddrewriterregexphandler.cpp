#include "useraddrewriterregexphandler.h"

#include "settinglineshandler_p.h"

namespace UserAdd {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(SettingLines::linePattern(SettingLines::UserAddDefaults))
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    return SettingLines::rewriteSwitchedLine(SettingLines::UserAddDefaults, regExp(), m_settings,
                                             &m_seen, line);
}

bool RewriterRegExpHandler::appendMissing(QByteArray *tail)
{
    return SettingLines::appendSwitched(SettingLines::UserAddDefaults, m_settings, m_seen, tail);
}

} // namespace UserAdd
