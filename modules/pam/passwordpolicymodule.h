#ifndef ZQLMODULES_PASSWORDPOLICYMODULE_H
#define ZQLMODULES_PASSWORDPOLICYMODULE_H

#include "moduleinterface.h"
#include "pamtoollimits.h"
#include "zqlmodules_export.h"

#include <QHash>
#include <QString>
#include <QVariant>

/**
 * Password rules ("password-policy"): complexity, history and validity period, each a
 * sub-hash of the settings ("complexity", "history", "validity-period").
 *
 * Complexity is read from the stack /etc/pam.d/common-password and written into the profiles
 * /usr/share/pam-configs/cracklib and pwquality, which "pam-auth-update" applies; history is
 * the profile /usr/share/pam-configs/pwhistory, which this module owns whole; the validity
 * period is kept in /etc/login.defs and /etc/default/useradd. Other PAM profiles and stacks
 * are never touched, except that a wrong minlen in the regenerated stack is repaired.
 */
class ZQLMODULES_EXPORT PasswordPolicyModule : public ModuleInterface
{
public:
    /** @param limits how long to wait for "pam-auth-update". */
    explicit PasswordPolicyModule(const PamToolLimits &limits = PamToolLimits());
    ~PasswordPolicyModule() override;

    /**
     * Reads complexity and validity period, and history when its profile exists.
     * @return status 0 and the settings, or status 1 and an empty hash.
     */
    SettingsReply getSettings() override;
    /**
     * Writes complexity, then the validity period, then history; stops at the first failure.
     * "complexity" and "validity-period" are required; a missing "history" removes the
     * password-history profile. @return `true` when something failed.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;
    /** "password-policy". */
    QString getName() override;
    /** Always `true`. */
    bool isAvailable() override;
    /**
     * @return the keys of @p parameters that the module does not accept; "history" is accepted
     *         only while the password-history profile exists.
     */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /** Reads the complexity options from the stack into "complexity". @return 0, or 1. */
    int readComplexity();
    /** Reads the history options from the stack into "history". @return 0, or 1. */
    int readHistory();
    /** Reads the ageing and expiry defaults into "validity-period". @return 0, or 1. */
    int readValidityPeriod();
    /**
     * Rewrites the complexity profiles, regenerates the stack and repairs its minlen.
     * @return 0 on success, 1 on failure.
     */
    int setComplexity(QHash<QString, QVariant> settings);
    /**
     * Replaces the password-history profile; an empty hash only removes it.
     * @return 1 when the old profile could not be removed or the new one not be written.
     */
    int setHistory(QHash<QString, QVariant> settings);
    /** Rewrites /etc/login.defs and /etc/default/useradd, keeping ".bak" copies. @return 0, or 1.
     */
    int setValidityPeriod(QHash<QString, QVariant> settings);

private:
    bool switchHistoryProfile(bool enable);
    int repairMinimumLength(const QHash<QString, QVariant> &settings);

    QHash<QString, QVariant> m_settings;
    PamToolLimits m_limits;
};

#endif // ZQLMODULES_PASSWORDPOLICYMODULE_H
