#include "useraddrewriterregexphandler.h"

#include "passwordpolicy_p.h"
#include "switchedlines_p.h"

namespace {
const int AllSeen = 3;
// The expiry date is appended without a line end: it is the last thing in the file.
const QVector<SwitchedLines::Line> Lines = {
    {QStringLiteral("INACTIVE"), UserAdd::InactiveIntervalKey, 1, QStringLiteral("INACTIVE=%1"),
     QStringLiteral("INACTIVE=%1\n"), false},
    {QStringLiteral("EXPIRE"), UserAdd::ExpireDateKey, 2, QStringLiteral("EXPIRE=%1"),
     QStringLiteral("EXPIRE=%1"), true}};
} // namespace

namespace UserAdd {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(UserAddPattern)
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

} // namespace UserAdd
