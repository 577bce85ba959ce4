#include "passwordcomplexityrewriterregexphandler.h"

#include "pamoptionshandler_p.h"

namespace PasswordComplexity {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(PamOptions::Complexity.rewritingPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    return PamOptions::rewriteLine(PamOptions::Complexity, regExp(), m_settings, line, &m_found);
}

bool RewriterRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordComplexity
