#ifndef ZQLMODULES_MACMODULE_H
#define ZQLMODULES_MACMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

/**
 * The "mac" module: the kernel's MAC switch ("Mac-kernel", through Mac::MacKernel) and the MAC
 * switch of each MAC-aware service ("Apache", "Cups", through Mac::ServiceRegistry).
 *
 * Keeps nothing of its own: every call reads and writes through the kernel model's single
 * instance and the registry's services.
 */
class ZQLMODULES_EXPORT MacModule : public ModuleInterface
{
public:
    MacModule();
    ~MacModule() override;

    /**
     * Reads the three switches. A service whose file cannot be read is left out (its message goes
     * to standard error). @return status 0 and {"Mac-kernel", "Apache", "Cups": bool}.
     */
    SettingsReply getSettings() override;

    /**
     * Sets the services named in @p settings, then the kernel switch ("Mac-kernel", false when
     * missing). @return `true` when the kernel's control tool failed.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "mac". */
    QString getName() override;

    /** @return `true` exactly in security mode 2. */
    bool isAvailable() override;

    /** @return the keys of @p parameters other than "Mac-kernel" and the readable services. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;
};

#endif // ZQLMODULES_MACMODULE_H
