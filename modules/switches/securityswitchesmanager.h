#ifndef ZQLMODULES_SECURITYSWITCHESMANAGER_H
#define ZQLMODULES_SECURITYSWITCHESMANAGER_H

#include "moduleinterface.h"
#include "securityswitchlimits.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>

/**
 * The security switches of this machine: their script names per group, and reading and
 * setting one switch through its script.
 *
 * Owns the two lists of script names, taken once from the security monitor when it is built,
 * and the limits. It never caches a switch's state: every read and change runs the switch's
 * script under "/usr/sbin/". It writes no file itself and takes no lock (the scripts serialise
 * among themselves). Diagnostics go straight to standard error and standard output, with no
 * line end of their own.
 */
class ZQLMODULES_EXPORT SecuritySwitchesManager
{
public:
    /** What reading one switch gave. */
    struct SwitchState
    {
        /** 0: the state was read; 1: failure. */
        int status;
        /** Whether the switch is on; meaningful only with status 0. */
        bool enabled;
    };

    /**
     * Lists the switches through the security monitor, waiting at most @p limits.monitorMs.
     * A failed listing is reported on standard error and leaves both groups empty.
     */
    explicit SecuritySwitchesManager(const SecuritySwitchLimits &limits = SecuritySwitchLimits());
    ~SecuritySwitchesManager();

    /**
     * @return the script names of the non-console switches when @p parameters is true, else
     *         those of the console switches, in the reverse of the monitor's order.
     */
    QStringList switchScripts(bool parameters) const;

    /** Runs the script @p script with "is-enabled". @return the state, or status 1. */
    SwitchState getSwitchState(const QString &script);

    /** Runs the script @p script with "enable" or "disable". @return 0 on success, 1 on failure. */
    int setSwitchState(const QString &script, bool enable);

protected:
    /**
     * Reads every switch of a group in its order; stops at the first failure.
     * @return status 0 and script name to state, or status 1 and an empty hash.
     */
    SettingsReply groupSettings(bool parameters);
    /**
     * Sets every switch of a group from @p settings in its order (a missing key turns the
     * switch off); stops at the first failure, leaving earlier switches changed.
     * @return `true` when a switch could not be set.
     */
    bool applyGroupSettings(bool parameters, const QHash<QString, QVariant> &settings);

private:
    QStringList parameterScripts;
    QStringList consoleScripts;
    SecuritySwitchLimits m_limits;
};

#endif // ZQLMODULES_SECURITYSWITCHESMANAGER_H
