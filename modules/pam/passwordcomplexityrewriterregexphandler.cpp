#include "passwordcomplexityrewriterregexphandler.h"

#include "pamoptionshandler_p.h"

namespace PasswordComplexity {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(PamOptions::Complexity.rewritingPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    if (!line)
        return false;
    *line = PamOptions::rewrittenLine(PamOptions::Complexity, regExp(), m_settings);
    m_found = true;
    return true;
}

bool RewriterRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordComplexity
