#include "accountlockoutrewriterregexphandler.h"

#include "pamoptionshandler_p.h"

namespace AccountLockout {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(PamOptions::Tally.rewritingPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    if (!line)
        return false;
    *line = PamOptions::rewrittenLine(PamOptions::Tally, regExp(), m_settings);
    m_found = true;
    return true;
}

bool RewriterRegExpHandler::found() const
{
    return m_found;
}

} // namespace AccountLockout
