#include "accountlockoutreaderregexphandler.h"

#include "pamoptionshandler_p.h"

namespace AccountLockout {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> &result)
    : RegExpHandler(PamOptions::Tally.readingPattern)
    , m_result(result)
{
    PamOptions::storeDefaults(PamOptions::Tally, m_result);
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    return PamOptions::readLine(PamOptions::Tally, regExp(), m_result, &m_found);
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace AccountLockout
