#include "settinglineshandler_p.h"

#include "passwordpolicy_p.h"
#include "switchednumber_p.h"
#include "usercreation_p.h"

#include <QDate>
#include <QJsonArray>
#include <QStringList>

namespace {
// Capture 1: one of the keys, in table order; capture 2 is in the file's value pattern.
const QString LinePattern = QStringLiteral("\\s*(%1)%2");
const QDate DayZero(1970, 1, 1);
const QString DateFormat = QStringLiteral("yyyy-MM-dd");

bool isSwitched(SettingLines::Kind kind)
{
    return kind == SettingLines::Kind::Days || kind == SettingLines::Kind::Date;
}

// The setting that the value of a line gives, or an invalid variant when it gives none.
QVariant settingOf(SettingLines::Kind kind, const QString &value)
{
    switch (kind) {
    case SettingLines::Kind::Days:
        return SwitchedNumber::make(true, value.toLongLong());
    case SettingLines::Kind::Date: {
        // An empty or unreadable date means that accounts do not expire.
        const QDate date = QDate::fromString(value, DateFormat);
        if (value.isEmpty() || !date.isValid())
            return {};
        return SwitchedNumber::make(true, DayZero.daysTo(date));
    }
    case SettingLines::Kind::Text:
        return value;
    case SettingLines::Kind::YesNo:
        return value == UserCreation::Yes; // "Yes" is not yes
    case SettingLines::Kind::Integer: {
        bool isNumber = false;
        const int number = value.toInt(&isNumber);
        return isNumber ? QVariant(number) : QVariant();
    }
    case SettingLines::Kind::Unmanaged:
        break;
    }
    return {};
}

// The switched setting of @p key as the file writes it, or a null text when it is absent,
// switched off or malformed.
QString switchedValue(const SettingLines::Key &key, const QHash<QString, QVariant> &settings)
{
    const auto it = settings.constFind(key.settingsKey);
    if (it == settings.constEnd())
        return {};
    const QJsonArray value = SwitchedNumber::toArray(it.value());
    if (!SwitchedNumber::isOn(value))
        return {};
    const qint64 number = SwitchedNumber::number(value);
    return key.kind == SettingLines::Kind::Date ? DayZero.addDays(number).toString(DateFormat)
                                                : QString::number(number);
}
} // namespace

namespace SettingLines {

// The three files differ only in these tables.
const File LoginDefs = {
    // Blanks between key and number; the number may be negative.
    QStringLiteral("\\s*(-?\\d+)"),
    {
        {QStringLiteral("PASS_MAX_DAYS"), PasswordValidityPeriod::MaxIntervalKey, Kind::Days,
         QStringLiteral("PASS_MAX_DAYS %1"), QStringLiteral("PASS_MAX_DAYS %1\n"), QVariant()},
        {QStringLiteral("PASS_MIN_DAYS"), PasswordValidityPeriod::MinIntervalKey, Kind::Days,
         QStringLiteral("PASS_MIN_DAYS %1"), QStringLiteral("PASS_MIN_DAYS %1\n"), QVariant()},
        {QStringLiteral("PASS_WARN_AGE"), PasswordValidityPeriod::WarningIntervalKey, Kind::Days,
         QStringLiteral("PASS_WARN_AGE %1"), QStringLiteral("PASS_WARN_AGE %1\n"), QVariant()},
    },
};

const File UserAddDefaults = {
    // "KEY=value"; the value may be empty ("EXPIRE=" sets no expiry).
    QStringLiteral("\\s*=\\s*(\\S*)"),
    {
        {QStringLiteral("INACTIVE"), UserAdd::InactiveIntervalKey, Kind::Days,
         QStringLiteral("INACTIVE=%1"), QStringLiteral("INACTIVE=%1\n"), QVariant()},
        // Appended without a line end: it is the last thing in the file, and stays so.
        {QStringLiteral("EXPIRE"), UserAdd::ExpireDateKey, Kind::Date, QStringLiteral("EXPIRE=%1"),
         QStringLiteral("EXPIRE=%1"), QVariant()},
    },
};

const File AddUserConf = {
    // "KEY=value", the value without its optional double quotes.
    QStringLiteral("\\s*=\\s*\"?([^\"]*)\"?"),
    {
        {UserCreation::HomeKey, UserCreation::HomeKey, Kind::Text, QStringLiteral("DHOME=%1"),
         QStringLiteral("DHOME=%1\n"), QStringLiteral("/home")},
        {UserCreation::SkeletonKey, UserCreation::SkeletonKey, Kind::Text,
         QStringLiteral("SKEL=%1"), QStringLiteral("SKEL=%1\n"), QStringLiteral("/etc/skel")},
        {UserCreation::ShellKey, UserCreation::ShellKey, Kind::Text, QStringLiteral("DSHELL=%1"),
         QStringLiteral("DSHELL=%1\n"), QStringLiteral("/bin/bash")},
        {UserCreation::UserGroupsKey, UserCreation::UserGroupsKey, Kind::YesNo,
         QStringLiteral("USERGROUPS=%1"), QStringLiteral("USERGROUPS=%1\n"), true},
        {UserCreation::UsersGroupKey, UserCreation::UsersGroupKey, Kind::Integer,
         QStringLiteral("USERS_GID=%1"), QStringLiteral("USERS_GID=%1\n"), 100},
        // The extra-group lines carry no setting, but a file that has every key of the table
        // needs nothing appended.
        {QStringLiteral("ADD_EXTRA_GROUPS"), QString(), Kind::Unmanaged, QString(), QString(),
         QVariant()},
        {QStringLiteral("EXTRA_GROUPS"), QString(), Kind::Unmanaged, QString(), QString(),
         QVariant()},
    },
};

QString linePattern(const File &file)
{
    QStringList fileKeys;
    for (const Key &key : file.keys)
        fileKeys.append(key.fileKey);
    return LinePattern.arg(fileKeys.join(QLatin1Char('|')), file.valuePattern);
}

int indexOf(const File &file, const QRegExp &line)
{
    const QString fileKey = line.cap(1);
    for (int index = 0; index < file.keys.size(); ++index) {
        if (file.keys.at(index).fileKey == fileKey)
            return index;
    }
    return -1;
}

void storeDefaults(const File &file, QHash<QString, QVariant> &result)
{
    for (const Key &key : file.keys) {
        if (isSwitched(key.kind))
            result.insert(key.settingsKey, SwitchedNumber::off());
    }
}

bool readLine(const File &file, const QRegExp &line, QHash<QString, QVariant> &result)
{
    const int index = indexOf(file, line);
    if (index == -1)
        return true;
    const Key &key = file.keys.at(index);
    const QVariant setting = settingOf(key.kind, line.cap(2));
    if (setting.isValid())
        result.insert(key.settingsKey, setting);
    return true;
}

bool rewriteSwitchedLine(const File &file, const QRegExp &line,
                         const QHash<QString, QVariant> &settings, int *seen, QByteArray *content)
{
    QString text;
    const int index = indexOf(file, line);
    if (index != -1) {
        *seen |= seenBit(index);
        const Key &key = file.keys.at(index);
        const QString value = switchedValue(key, settings);
        if (!value.isNull())
            text = key.lineFormat.arg(value);
    }
    if (content)
        *content = text.toLocal8Bit();
    return true;
}

bool appendSwitched(const File &file, const QHash<QString, QVariant> &settings, int seen,
                    QByteArray *tail)
{
    if (seen == allSeen(file))
        return false;
    QByteArray lines;
    for (int index = 0; index < file.keys.size(); ++index) {
        if (seen & seenBit(index))
            continue;
        const Key &key = file.keys.at(index);
        const QString value = switchedValue(key, settings);
        if (!value.isNull())
            lines += key.appendFormat.arg(value).toLocal8Bit();
    }
    *tail = lines;
    return true;
}

} // namespace SettingLines
