#include "passwordhistoryreaderregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

#include <QRegExp>
#include <QStringList>

namespace {
// Capture 1: the options after the module name.
const QString ReadingPattern = QStringLiteral("(?:.*pam_pwhistory\\.so)((?:\\s+\\S+)*)");
// Digits only: remember=-3 is not a count.
const QString OptionPattern = QStringLiteral("(enforce_for_root|remember)=?(\\d+)?");
const QRegExp Blanks(QStringLiteral("\\s+"));
} // namespace

namespace PasswordHistory {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(ReadingPattern)
    , m_result(result)
{
    m_result->insert(EnforceForRootKey, false);
    m_result->insert(RememberKey, SwitchedNumber::off());
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    QRegExp option(OptionPattern);
    const QStringList options = regExp().cap(1).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &text : options) {
        if (option.indexIn(text) == -1)
            continue;
        if (option.cap(1) == EnforceForRootKey) {
            m_result->insert(EnforceForRootKey, true);
        } else {
            const qint64 count = option.cap(2).toLongLong();
            m_result->insert(RememberKey, SwitchedNumber::make(count != 0, count));
        }
    }
    m_found = true;
    return true;
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordHistory
