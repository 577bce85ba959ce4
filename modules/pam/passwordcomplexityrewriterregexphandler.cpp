#include "passwordcomplexityrewriterregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

#include <QJsonArray>
#include <QRegExp>
#include <QStringList>

namespace {
// Capture 1: the line up to and including ".so"; capture 2: the module name; capture 3: its
// options.
const QString RewritingPattern =
    QStringLiteral("(.*(pam_cracklib|pam_pwquality)\\.so)((?:\\s+\\S+)*)");
const QString OptionPattern = QStringLiteral("([^=]+)=?(\\d+)?");
const QRegExp Blanks(QStringLiteral("\\s+"));
const QString FlagFormat = QStringLiteral(" %1");
const QString NumberFormat = QStringLiteral(" %1=%2");
} // namespace

namespace PasswordComplexity {

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
    const QStringList options = regExp().cap(3).split(Blanks, Qt::SkipEmptyParts);
    for (const QString &old : options) {
        const bool managed = option.indexIn(old) != -1 && (FlagKeys.contains(option.cap(1)) ||
                                                           NumberKeys.contains(option.cap(1)));
        if (!managed)
            text += QLatin1Char(' ') + old;
    }

    for (const QString &flag : FlagKeys) {
        const auto it = m_settings.constFind(flag);
        if (it != m_settings.constEnd() && it.value().toBool())
            text += FlagFormat.arg(flag);
    }
    for (const QString &number : NumberKeys) {
        const auto it = m_settings.constFind(number);
        if (it == m_settings.constEnd())
            continue;
        const QJsonArray value = SwitchedNumber::toArray(it.value());
        if (SwitchedNumber::isOn(value))
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

} // namespace PasswordComplexity
