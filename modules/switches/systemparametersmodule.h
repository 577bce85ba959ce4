#ifndef ZQLMODULES_SYSTEMPARAMETERSMODULE_H
#define ZQLMODULES_SYSTEMPARAMETERSMODULE_H

#include "moduleinterface.h"
#include "securityswitchesmanager.h"
#include "zqlmodules_export.h"

/**
 * The "system-parameters" module: the security switches outside the console group, one boolean
 * setting per switch, keyed by its script name.
 *
 * Owns nothing beyond its SecuritySwitchesManager base, which lists the switches once when
 * the module is built. It reads and changes switches only through their scripts and touches
 * no file itself; the other group of switches is never touched.
 */
class ZQLMODULES_EXPORT SystemParametersModule : public ModuleInterface,
                                                 public SecuritySwitchesManager
{
public:
    /** Lists the switches through the security monitor, with the waits of @p limits. */
    explicit SystemParametersModule(const SecuritySwitchLimits &limits = SecuritySwitchLimits());
    ~SystemParametersModule() override;

    /**
     * Reads every switch of the group; the first failure stops the walk.
     * @return status and {script name: whether the switch is on}, empty on failure.
     */
    SettingsReply getSettings() override;

    /**
     * Turns every switch of the group on or off as @p settings says; a switch missing from
     * @p settings is turned off, keys that name no switch of the group are ignored. The first
     * failure stops the walk; switches already changed stay changed.
     * @return `true` when a switch could not be changed.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "system-parameters". */
    QString getName() override;

    /** @return `true`: the module is offered in every security mode. */
    bool isAvailable() override;

    /** @return an empty list: the keys are whatever switches the machine has. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;
};

#endif // ZQLMODULES_SYSTEMPARAMETERSMODULE_H
