#include "usercreationrewriterregexphandler.h"

#include "usercreation_p.h"

#include <QVector>

namespace {
enum class Kind { Text, Flag, Number };

struct Setting
{
    QString key;
    int seenBit;
    Kind kind;
    QVariant toolDefault; // what the user-adding tool assumes when the file has no line
};

const QVector<Setting> Settings = {
    {UserCreation::HomeKey, 1, Kind::Text, QStringLiteral("/home")},
    {UserCreation::SkeletonKey, 2, Kind::Text, QStringLiteral("/etc/skel")},
    {UserCreation::ShellKey, 4, Kind::Text, QStringLiteral("/bin/bash")},
    {UserCreation::UserGroupsKey, 8, Kind::Flag, true},
    {UserCreation::UsersGroupKey, 16, Kind::Number, 100}};
const QHash<QString, int> ExtraGroupBits = {{QStringLiteral("ADD_EXTRA_GROUPS"), 32},
                                            {QStringLiteral("EXTRA_GROUPS"), 64}};
const int AllSeen = 127;
const QString LineFormat = QStringLiteral("%1=%2");

QString valueText(Kind kind, const QVariant &value)
{
    switch (kind) {
    case Kind::Flag:
        return value.toBool() ? UserCreation::Yes : UserCreation::No;
    case Kind::Number:
        return QString::number(value.toInt());
    case Kind::Text:
        break;
    }
    return value.toString();
}

bool isToolDefault(const Setting &setting, const QVariant &value)
{
    switch (setting.kind) {
    case Kind::Flag:
        return value.toBool() == setting.toolDefault.toBool();
    case Kind::Number:
        return value.toInt() == setting.toolDefault.toInt();
    case Kind::Text:
        break;
    }
    return value.toString() == setting.toolDefault.toString();
}
} // namespace

namespace UserCreation {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(AddUserConfPattern)
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    const QString key = regExp().cap(1);
    for (const Setting &setting : Settings) {
        if (setting.key != key)
            continue;
        m_seen |= setting.seenBit;
        // A setting missing from the hash is written as an empty value.
        if (line)
            *line =
                LineFormat.arg(key, valueText(setting.kind, m_settings.value(key))).toLocal8Bit();
        return true;
    }
    // The extra-group lines carry no setting and stay as they are.
    m_seen |= ExtraGroupBits.value(key);
    return false;
}

bool RewriterRegExpHandler::appendMissing(QByteArray *tail)
{
    if (m_seen == AllSeen)
        return false;
    for (const Setting &setting : Settings) {
        if (m_seen & setting.seenBit)
            continue;
        // Only what the host asked for, and only where it differs from the tool's default.
        const auto it = m_settings.constFind(setting.key);
        if (it == m_settings.constEnd() || isToolDefault(setting, it.value()))
            continue;
        *tail +=
            (LineFormat.arg(setting.key, valueText(setting.kind, it.value())) + QLatin1Char('\n'))
                .toLocal8Bit();
    }
    return true;
}

} // namespace UserCreation
