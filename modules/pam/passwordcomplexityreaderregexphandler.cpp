#include "passwordcomplexityreaderregexphandler.h"

#include "pamoptionshandler_p.h"

namespace PasswordComplexity {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(PamOptions::Complexity.readingPattern)
    , m_result(result)
{
    PamOptions::storeDefaults(PamOptions::Complexity, *m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return PamOptions::readLine(PamOptions::Complexity, regExp(), *m_result, &m_found);
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordComplexity
