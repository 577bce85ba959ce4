#include "useraddreaderregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchedlines_p.h"
#include "switchednumber_p.h"

namespace {
const QString InactiveKey = QStringLiteral("INACTIVE");
} // namespace

namespace UserAdd {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(UserAddPattern)
    , m_result(result)
{
    m_result->insert(InactiveIntervalKey, SwitchedNumber::off());
    m_result->insert(ExpireDateKey, SwitchedNumber::off());
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    const QString value = regExp().cap(2);
    if (regExp().cap(1) == InactiveKey) {
        m_result->insert(InactiveIntervalKey, SwitchedNumber::make(true, value.toLongLong()));
        return true;
    }
    // An empty or unreadable date means that accounts do not expire.
    const QDate date = QDate::fromString(value, SwitchedLines::DateFormat);
    if (!value.isEmpty() && date.isValid())
        m_result->insert(ExpireDateKey,
                         SwitchedNumber::make(true, SwitchedLines::DayZero.daysTo(date)));
    return true;
}

} // namespace UserAdd
