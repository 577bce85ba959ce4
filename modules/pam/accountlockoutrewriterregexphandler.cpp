#include "accountlockoutrewriterregexphandler.h"

#include "accountlockout_p.h"
#include "pamoptions_p.h"
#include "switchednumber_p.h"

#include <QJsonArray>

namespace {
// Capture 1: the line up to and including the module name; capture 2: its options.
const QString RewritingPattern = QStringLiteral("(\\s*.*pam_tally\\.so)((?:\\s+\\S+)*)");
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

    text += PamOptions::foreignOptions(regExp().cap(2), FlagKeys + NumberKeys);
    text += PamOptions::flagOptions(FlagKeys, m_settings);
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
