#include "passwordvalidityperiodrewriterregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchedlines_p.h"

namespace {
const int AllSeen = 7;
const QVector<SwitchedLines::Line> Lines = {
    {QStringLiteral("PASS_MAX_DAYS"), PasswordValidityPeriod::MaxIntervalKey, 1,
     QStringLiteral("PASS_MAX_DAYS %1"), QStringLiteral("PASS_MAX_DAYS %1\n"), false},
    {QStringLiteral("PASS_MIN_DAYS"), PasswordValidityPeriod::MinIntervalKey, 2,
     QStringLiteral("PASS_MIN_DAYS %1"), QStringLiteral("PASS_MIN_DAYS %1\n"), false},
    {QStringLiteral("PASS_WARN_AGE"), PasswordValidityPeriod::WarningIntervalKey, 4,
     QStringLiteral("PASS_WARN_AGE %1"), QStringLiteral("PASS_WARN_AGE %1\n"), false}};
} // namespace

namespace PasswordValidityPeriod {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(LoginDefsPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    const QString text = SwitchedLines::replacement(Lines, regExp().cap(1), m_settings, &m_seen);
    if (line)
        *line = text.toLocal8Bit();
    return true;
}

bool RewriterRegExpHandler::appendMissing(QByteArray *tail)
{
    if (m_seen == AllSeen)
        return false;
    *tail = SwitchedLines::missing(Lines, m_settings, m_seen);
    return true;
}

} // namespace PasswordValidityPeriod
