#include "passwordhistoryreaderregexphandler.h"

#include "pamoptionshandler_p.h"

namespace PasswordHistory {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(PamOptions::History.readingPattern)
    , m_result(result)
{
    PamOptions::storeDefaults(PamOptions::History, *m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return PamOptions::readLine(PamOptions::History, regExp(), *m_result, &m_found);
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordHistory
