#include "passwordvalidityperiodrewriterregexphandler.h"

#include "settinglineshandler_p.h"

namespace PasswordValidityPeriod {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(SettingLines::linePattern(SettingLines::LoginDefs))
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    return SettingLines::rewriteSwitchedLine(SettingLines::LoginDefs, regExp(), m_settings, &m_seen,
                                             line);
}

bool RewriterRegExpHandler::appendMissing(QByteArray *tail)
{
    return SettingLines::appendSwitched(SettingLines::LoginDefs, m_settings, m_seen, tail);
}

} // namespace PasswordValidityPeriod
