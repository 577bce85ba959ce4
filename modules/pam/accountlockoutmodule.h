#ifndef ZQLMODULES_ACCOUNTLOCKOUTMODULE_H
#define ZQLMODULES_ACCOUNTLOCKOUTMODULE_H

#include "moduleinterface.h"
#include "pamtoollimits.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

/**
 * Account lockout after failed logins ("account-lockout"): the options of pam_tally.so.
 *
 * Reads the options from the live stack /etc/pam.d/common-auth and writes them into the
 * profile /usr/share/pam-configs/tally, which "pam-auth-update" then applies to the stack. It
 * never edits the stack itself in setSettings().
 *
 * Settings: "per_user", "magic_root", "no_reset" (bool) and "deny", "lock_time",
 * "unlock_time" (switched numbers: the JSON array [enabled, number]).
 */
class ZQLMODULES_EXPORT AccountLockoutModule : public ModuleInterface
{
public:
    /** @param limits how long to wait for "pam-auth-update". */
    explicit AccountLockoutModule(const PamToolLimits &limits = PamToolLimits());
    ~AccountLockoutModule() override;

    /** Reads the lockout options from the stack; status 1 when it has no pam_tally.so line. */
    SettingsReply getSettings() override;
    /**
     * Takes the tally profile out of the stack, rewrites it and puts it back; stops at the
     * first failure. @return `true` when a step failed.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;
    /** "account-lockout". */
    QString getName() override;
    /** Always `true`. */
    bool isAvailable() override;
    /** @return the keys of @p parameters that are not lockout settings. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /**
     * Rewrites the pam_tally.so lines of the tally profile with @p settings.
     * @return the error text, empty on success.
     */
    QString rewritePamTallyFile(QHash<QString, QVariant> settings);
    /**
     * Runs "pam-auth-update --package --enable|--remove tally --force".
     * @return the error text (also a warning the tool printed), empty on success.
     */
    QString pamAuthUpdate(bool enable);
    /**
     * Puts the "deny" setting straight into the pam_tally.so lines of /etc/pam.d/common-auth:
     * every deny=N is replaced, or " deny=N" appended where there is none. Does nothing when
     * "deny" is switched off; a file that cannot be read or written is reported.
     */
    void commonAuthUpdate(QHash<QString, QVariant> settings);

private:
    QHash<QString, QVariant> m_settings;
    PamToolLimits m_limits;
};

#endif // ZQLMODULES_ACCOUNTLOCKOUTMODULE_H
