#ifndef ZQLMODULES_USERCREATIONPOLICYMODULE_H
#define ZQLMODULES_USERCREATIONPOLICYMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

/**
 * Defaults for new users ("user-creation-policy"), kept in /etc/adduser.conf: "DHOME",
 * "SKEL", "DSHELL" (strings), "USERGROUPS" (bool) and "USERS_GID" (int).
 *
 * It touches no other file; values are not checked against the system (paths need not exist).
 */
class ZQLMODULES_EXPORT UserCreationPolicyModule : public ModuleInterface
{
public:
    UserCreationPolicyModule();
    ~UserCreationPolicyModule() override;

    /** @return status 0 and the keys the file carries, or status 1 and an empty hash. */
    SettingsReply getSettings() override;
    /** Rewrites /etc/adduser.conf, keeping a ".bak" copy. @return `true` on failure. */
    bool setSettings(QHash<QString, QVariant> settings) override;
    /** "user-creation-policy". */
    QString getName() override;
    /** Always `true`. */
    bool isAvailable() override;
    /** @return the keys of @p parameters other than the five settings. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /** Reads /etc/adduser.conf into the module's record. @return 0, or 1 on failure. */
    int readCreationParams();
    /** Rewrites /etc/adduser.conf with @p settings. @return 0, or 1 on failure. */
    int setCreationParams(QHash<QString, QVariant> settings);

private:
    QHash<QString, QVariant> m_settings;
};

#endif // ZQLMODULES_USERCREATIONPOLICYMODULE_H
