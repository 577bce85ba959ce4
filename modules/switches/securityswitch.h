#ifndef ZQLMODULES_SECURITYSWITCH_H
#define ZQLMODULES_SECURITYSWITCH_H

#include "zqlmodules_export.h"

#include <QJsonObject>
#include <QString>

/**
 * One security switch as the security monitor lists it.
 *
 * A plain record built from one JSON object of the monitor's list; it owns only its fields and
 * never runs the switch's script nor touches any file.
 */
class ZQLMODULES_EXPORT SecuritySwitch
{
public:
    /** Group type of the switches whose group is exactly "console". */
    static constexpr int ConsoleGroup = 0;
    /** Group type of every other switch. */
    static constexpr int ParameterGroup = 1;

    /** Builds a record; the flags start false. */
    SecuritySwitch(int id, const QString &longname, const QString &tooltip, const QString &script,
                   const QString &extra, const QString &slave, int groupType);

    /**
     * Reads one record of the monitor's list.
     * @throws std::runtime_error with the translated reason (UTF-8) when a required key is
     *         missing or a value has the wrong JSON type.
     */
    static SecuritySwitch fromJson(const QJsonObject &object);

    /** The switch's number. */
    int id() const;
    /** Its long name. */
    QString longname() const;
    /** Its tooltip; the long name when the monitor gave none. */
    QString tooltip() const;
    /** The file name of its script under "/usr/sbin/". */
    QString script() const;
    /** Its extra text, empty when absent. */
    QString extra() const;
    /** Its slave number as printf's "%g" writes it, empty when absent. */
    QString slave() const;
    /** Whether it has a slave number. */
    bool hasSlave() const;
    /** ConsoleGroup or ParameterGroup. */
    int groupType() const;
    /** Whether it is shown grayed. */
    bool gray() const;
    /** Whether turning it on needs a reboot. */
    bool enableNeedReboot() const;
    /** Whether turning it off needs a reboot. */
    bool disableNeedReboot() const;

    /** Sets the group type. */
    void setGroupType(int groupType);
    /** Sets the gray flag. */
    void setGray(bool gray);
    /** Sets both need-reboot flags at once. */
    void setNeedReboot(bool needReboot);

private:
    int m_id;
    QString m_longname;
    QString m_tooltip;
    QString m_script;
    QString m_extra;
    QString m_slave;
    int m_groupType;
    bool m_gray = false;
    bool m_enableNeedReboot = false;
    bool m_disableNeedReboot = false;
};

#endif // ZQLMODULES_SECURITYSWITCH_H
