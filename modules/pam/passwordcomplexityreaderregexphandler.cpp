#include "passwordcomplexityreaderregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

#include <QRegExp>
#include <QStringList>

namespace {
// Capture 1: the module name; capture 2: its options.
const QString ReadingPattern =
    QStringLiteral("(?:.*(pam_cracklib|pam_pwquality)\\.so)((?:\\s+\\S+)*)");
// Searched, not anchored: "xminlen=5" counts as minlen.
const QString OptionPattern = QStringLiteral("(reject_username|gecoscheck|enforce_for_root|"
                                             "minlen|lcredit|ucredit|dcredit|ocredit)=?(-?\\d+)?");
const QRegExp Blanks(QStringLiteral("\\s+"));
} // namespace

namespace PasswordComplexity {

ReaderRegExpHandler::ReaderRegExpHandler(QHash<QString, QVariant> *result)
    : RegExpHandler(ReadingPattern)
    , m_result(result)
{
    for (const QString &flag : FlagKeys)
        m_result->insert(flag, false);
    for (const QString &number : NumberKeys)
        m_result->insert(number, SwitchedNumber::off());
}

bool ReaderRegExpHandler::handleLine(QByteArray *line)
{
    Q_UNUSED(line)
    QRegExp option(OptionPattern);
    const QStringList options = regExp().cap(2).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &text : options) {
        if (option.indexIn(text) == -1)
            continue;
        const QString name = option.cap(1);
        const qint64 number = option.cap(2).toLongLong();
        if (FlagKeys.contains(name))
            m_result->insert(name, true);
        else if (name == MinLengthKey)
            m_result->insert(name, SwitchedNumber::make(true, number));
        else // a credit of 0 asks for nothing, so it reads as switched off
            m_result->insert(name, SwitchedNumber::make(number != 0, number));
    }
    m_found = true;
    return true;
}

bool ReaderRegExpHandler::found() const
{
    return m_found;
}

} // namespace PasswordComplexity
