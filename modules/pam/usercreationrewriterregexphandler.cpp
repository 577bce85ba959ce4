#include "usercreationrewriterregexphandler.h"

#include "settinglineshandler_p.h"
#include "usercreation_p.h"

// This rewriter shares the table of /etc/adduser.conf with the reader but not the rewriter of the
// switched settings, because its lines follow other rules: a setting is a plain value with no
// "off", so a line is always rewritten (a setting missing from the hash writes an empty value)
// instead of emptied; a key that no line carried is appended only when the host gives it and it
// differs from adduser's own default, not when it is switched on; and the extra-group lines match
// without carrying a setting and stay whole.

namespace {
using SettingLines::AddUserConf;
using SettingLines::Key;
using SettingLines::Kind;

// The value as adduser.conf writes it, without quotes.
QString valueText(Kind kind, const QVariant &value)
{
    switch (kind) {
    case Kind::YesNo:
        return value.toBool() ? UserCreation::Yes : UserCreation::No;
    case Kind::Integer:
        return QString::number(value.toInt());
    case Kind::Days:
    case Kind::Date:
    case Kind::Text:
    case Kind::Unmanaged:
        break;
    }
    return value.toString();
}

// Whether @p value would be written as the tool's own default is.
bool isToolDefault(const Key &key, const QVariant &value)
{
    return valueText(key.kind, value) == valueText(key.kind, key.toolDefault);
}
} // namespace

namespace UserCreation {

RewriterRegExpHandler::RewriterRegExpHandler(const QHash<QString, QVariant> &settings)
    : RegExpHandler(SettingLines::linePattern(AddUserConf))
    , m_settings(settings)
{}

bool RewriterRegExpHandler::handleLine(QByteArray *line)
{
    const int index = SettingLines::indexOf(AddUserConf, regExp());
    if (index == -1)
        return false;
    m_seen |= SettingLines::seenBit(index);
    const Key &key = AddUserConf.keys.at(index);
    if (key.kind == Kind::Unmanaged)
        return false;
    if (line)
        *line = key.lineFormat.arg(valueText(key.kind, m_settings.value(key.settingsKey)))
                    .toLocal8Bit();
    return true;
}

bool RewriterRegExpHandler::appendMissing(QByteArray *tail)
{
    if (m_seen == SettingLines::allSeen(AddUserConf))
        return false;
    for (int index = 0; index < AddUserConf.keys.size(); ++index) {
        const Key &key = AddUserConf.keys.at(index);
        if ((m_seen & SettingLines::seenBit(index)) || key.kind == Kind::Unmanaged)
            continue;
        const auto it = m_settings.constFind(key.settingsKey);
        if (it == m_settings.constEnd() || isToolDefault(key, it.value()))
            continue;
        *tail += key.appendFormat.arg(valueText(key.kind, it.value())).toLocal8Bit();
    }
    return true;
}

} // namespace UserCreation
