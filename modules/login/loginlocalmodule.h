#ifndef ZQLMODULES_LOGINLOCALMODULE_H
#define ZQLMODULES_LOGINLOCALMODULE_H

#include "moduleinterface.h"
#include "tesselconffile.h"
#include "zqlmodules_export.h"

/**
 * The "login-local" module: who may log in locally, as the one setting "login_state".
 *
 * Owns no data: every call goes through a fresh TesselConfFile, which touches only the
 * `login_local` line of "/etc/tessel/tessel.conf" and never creates that file.
 */
class ZQLMODULES_EXPORT LoginLocalModule : public ModuleInterface
{
public:
    LoginLocalModule();
    ~LoginLocalModule() override;

    /** Reads the login state. @return status and {"login_state": "all"|"admin"|"no"|"unknown"}. */
    SettingsReply getSettings() override;

    /**
     * Writes "login_state" of @p settings; a missing or unknown word is written as "all".
     * @return `true` when the file could not be written.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "login-local". */
    QString getName() override;

    /** @return `true`: the module is offered in every security mode. */
    bool isAvailable() override;

    /** @return the keys of @p parameters other than "login_state". */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /** Reads the file. @return the state, or the errors. */
    TesselConfFile::OperationResult getLoginState();

    /** Writes the state named by @p value (see StrToState()). @return the errors, if any. */
    TesselConfFile::OperationResult setLoginState(const QString &value);

    /** @return "all", "admin" or "no" for the three known states, "unknown" otherwise. */
    static QString StateToStr(TesselConfFile::State state);

    /** @return the state named exactly (case-sensitive) by @p value, Unknown otherwise. */
    static TesselConfFile::State StrToState(const QString &value);
};

#endif // ZQLMODULES_LOGINLOCALMODULE_H
