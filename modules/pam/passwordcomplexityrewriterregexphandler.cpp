#include "passwordcomplexityrewriterregexphandler.h"

#include "pamoptions_p.h"
#include "passwordpolicy_p.h"
#include "switchednumber_p.h"

#include <QJsonArray>

namespace {
// Capture 1: the line up to and including ".so"; capture 2: the module name; capture 3: its
// options.
const QString RewritingPattern =
    QStringLiteral("(.*(pam_cracklib|pam_pwquality)\\.so)((?:\\s+\\S+)*)");
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

    text += PamOptions::foreignOptions(regExp().cap(3), FlagKeys + NumberKeys);
    text += PamOptions::flagOptions(FlagKeys, m_settings);
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
