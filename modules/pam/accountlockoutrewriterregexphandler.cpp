#include "accountlockoutrewriterregexphandler.h"

#include "accountlockout_p.h"
#include "switchednumber_p.h"

#include <QJsonArray>
#include <QRegExp>
#include <QStringList>

namespace {
// Capture 1: the line up to and including the module name; capture 2: its options.
const QString RewritingPattern = QStringLiteral("(\\s*.*pam_tally\\.so)((?:\\s+\\S+)*)");
const QString OptionPattern = QStringLiteral("([^=]+)=?(\\d+)?");
const QRegExp Blanks(QStringLiteral("\\s+"));
const QString FlagFormat = QStringLiteral(" %1");
const QString NumberFormat = QStringLiteral(" %1=%2");
} // namespace

namespace AccountLockout {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(RewritingPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    if (!line)
        return false;
    QString text = regExp().cap(1);

    QRegExp option(OptionPattern);
    const QStringList options = regExp().cap(2).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &old : options) {
        const bool managed = option.indexIn(old) != -1 && (FlagKeys.contains(option.cap(1)) ||
                                                           NumberKeys.contains(option.cap(1)));
        if (!managed)
            text += QLatin1Char(' ') + old;
    }

    for (const QString &flag : FlagKeys) {
        if (m_settings.value(flag, false).toBool())
            text += FlagFormat.arg(flag);
    }
    for (const QString &number : NumberKeys) {
        // A number is written when its switch is the JSON boolean true; the array need not
        // hold exactly two elements here.
        const QJsonArray value = SwitchedNumber::setting(m_settings, number);
        if (!value.isEmpty() && value.at(0).isBool() && value.at(0).toBool())
            text += NumberFormat.arg(number).arg(SwitchedNumber::number(value));
    }

    *line = text.toLocal8Bit();
    m_found = true;
    return true;
}

bool RewriterRegExpHandler::found() const
{
    return m_found;
}

} // namespace AccountLockout
