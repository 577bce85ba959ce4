#include "accountlockoutrewriterregexphandler.h"

#include "pamoptionshandler_p.h"

namespace AccountLockout {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(PamOptions::Tally.rewritingPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    return PamOptions::rewriteLine(PamOptions::Tally, regExp(), m_settings, line, &m_found);
}

bool RewriterRegExpHandler::found() const
{
    return m_found;
}

} // namespace AccountLockout
