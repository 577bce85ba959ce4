#include "securityswitch.h"

#include <QJsonValue>
#include <QObject>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {
const QString IdKey = QStringLiteral("id");
const QString NameKey = QStringLiteral("name");
const QString LongnameKey = QStringLiteral("longname");
const QString ScriptKey = QStringLiteral("script");
const QString ExtraKey = QStringLiteral("extra");
const QString TooltipKey = QStringLiteral("tooltip");
const QString SlaveKey = QStringLiteral("slave");
const QString GroupKey = QStringLiteral("group");
const QString GrayKey = QStringLiteral("gray");
const QString EnableNeedRebootKey = QStringLiteral("enableNeedReboot");
const QString DisableNeedRebootKey = QStringLiteral("disableNeedReboot");
const QString ConsoleGroupName = QStringLiteral("console");

[[noreturn]] void fail(const QString &message)
{
    throw std::runtime_error(message.toUtf8().toStdString());
}

QJsonValue requiredValue(const QJsonObject &object, const QString &key)
{
    if (!object.contains(key))
        fail(QObject::tr("Json object should contain key '%1'").arg(key));
    return object.value(key);
}

double toDouble(const QJsonValue &value)
{
    if (!value.isDouble())
        fail(QObject::tr("Expected double"));
    return value.toDouble();
}

QString toText(const QJsonValue &value)
{
    if (!value.isString())
        fail(QObject::tr("Expected string"));
    return value.toString();
}

// Flags are numbers, rounded half away from zero; JSON true and false are not accepted.
bool toFlag(const QJsonValue &value)
{
    if (!value.isDouble())
        fail(QObject::tr("Expected bool (0/1)"));
    return std::round(value.toDouble()) != 0.0;
}

// Truncated toward zero; numbers beyond the int range are held at its ends.
int toId(double number)
{
    const double truncated = std::trunc(number);
    if (truncated <= static_cast<double>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    if (truncated >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    return static_cast<int>(truncated);
}
} // namespace

SecuritySwitch::SecuritySwitch(int id, const QString &longname, const QString &tooltip,
                               const QString &script, const QString &extra, const QString &slave,
                               int groupType)
    : m_id(id)
    , m_longname(longname)
    , m_tooltip(tooltip)
    , m_script(script)
    , m_extra(extra)
    , m_slave(slave)
    , m_groupType(groupType)
{}

SecuritySwitch SecuritySwitch::fromJson(const QJsonObject &object)
{
    // Keys are read in a fixed order, so the first problem found is the one reported.
    const int id = toId(toDouble(requiredValue(object, IdKey)));
    toText(requiredValue(object, NameKey)); // required, but not kept
    const QString longname = toText(requiredValue(object, LongnameKey));
    const QString script = toText(requiredValue(object, ScriptKey));

    QString extra;
    if (object.contains(ExtraKey))
        extra = toText(object.value(ExtraKey));
    QString tooltip;
    if (object.contains(TooltipKey))
        tooltip = toText(object.value(TooltipKey));
    QString slave;
    if (object.contains(SlaveKey))
        slave = QString::asprintf("%g", toDouble(object.value(SlaveKey)));
    int groupType = ParameterGroup;
    if (object.contains(GroupKey) && toText(object.value(GroupKey)) == ConsoleGroupName)
        groupType = ConsoleGroup;
    bool gray = false;
    if (object.contains(GrayKey))
        gray = toFlag(object.value(GrayKey));
    bool enableNeedReboot = false;
    if (object.contains(EnableNeedRebootKey))
        enableNeedReboot = toFlag(object.value(EnableNeedRebootKey));
    bool disableNeedReboot = false;
    if (object.contains(DisableNeedRebootKey))
        disableNeedReboot = toFlag(object.value(DisableNeedRebootKey));

    SecuritySwitch record(id, longname, tooltip.isEmpty() ? longname : tooltip, script, extra,
                          slave, groupType);
    if (gray)
        record.setGray(true);
    if (enableNeedReboot || disableNeedReboot)
        record.setNeedReboot(true);
    return record;
}

int SecuritySwitch::id() const
{
    return m_id;
}

QString SecuritySwitch::longname() const
{
    return m_longname;
}

QString SecuritySwitch::tooltip() const
{
    return m_tooltip;
}

QString SecuritySwitch::script() const
{
    return m_script;
}

QString SecuritySwitch::extra() const
{
    return m_extra;
}

QString SecuritySwitch::slave() const
{
    return m_slave;
}

bool SecuritySwitch::hasSlave() const
{
    return !m_slave.isEmpty();
}

int SecuritySwitch::groupType() const
{
    return m_groupType;
}

bool SecuritySwitch::gray() const
{
    return m_gray;
}

bool SecuritySwitch::enableNeedReboot() const
{
    return m_enableNeedReboot;
}

bool SecuritySwitch::disableNeedReboot() const
{
    return m_disableNeedReboot;
}

void SecuritySwitch::setGroupType(int groupType)
{
    m_groupType = groupType;
}

void SecuritySwitch::setGray(bool gray)
{
    m_gray = gray;
}

void SecuritySwitch::setNeedReboot(bool needReboot)
{
    m_enableNeedReboot = needReboot;
    m_disableNeedReboot = needReboot;
}
