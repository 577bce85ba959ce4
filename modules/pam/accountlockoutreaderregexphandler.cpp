#include "accountlockoutreaderregexphandler.h"

#include "accountlockout_p.h"
#include "switchednumber_p.h"

#include <QRegExp>
#include <QStringList>

namespace {
// Capture 1: the options after the module name.
const QString ReadingPattern = QStringLiteral("(?:.*pam_tally\\.so)((?:\\s+\\S+)*)");
const QString OptionPattern =
    QStringLiteral("(per_user|magic_root|no_reset|deny|lock_time|unlock_time)=?(\\d+)?");
const QRegExp Blanks(QStringLiteral("\\s+"));
} // namespace

namespace AccountLockout {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> &result)
    : RegExpHandler(ReadingPattern)
    , m_result(result)
{
    for (const QString &flag : FlagKeys)
        m_result.insert(flag, false);
    for (const QString &number : NumberKeys)
        m_result.insert(number, SwitchedNumber::off());
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    QRegExp option(OptionPattern);
    const QStringList options = regExp().cap(1).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &text : options) {
        if (option.indexIn(text) == -1)
            continue;
        const QString name = option.cap(1);
        if (FlagKeys.contains(name))
            m_result.insert(name, true);
        else
            m_result.insert(name, SwitchedNumber::make(true, option.cap(2).toLongLong()));
    }
    m_found = true;
    return true;
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace AccountLockout
