#ifndef ZQLMODULES_MICMODULE_H
#define ZQLMODULES_MICMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

#include <QObject>

namespace Mic {
class MicFs;
class MicKernel;
} // namespace Mic

/**
 * The "mic" module: mandatory integrity control as the settings "MicEnabled" (the kernel
 * switch for the next boot), "MaxLevel" (the running kernel's maximum integrity level) and
 * "ProtectFS" (the filesystem's integrity protection).
 *
 * Owns no state: it reads and switches the process-wide models Mic::MicKernel and Mic::MicFs
 * (or the two it was given). It is the one module that vetoes an import: never while the
 * filesystem is protected, and never one that lowers the maximum level.
 */
class ZQLMODULES_EXPORT MicModule : private QObject, public ModuleInterface
{
public:
    /** How long getSettings() waits at most for the filesystem status, in milliseconds. */
    static constexpr int DefaultProtectFsWaitMs = 30000;

    /** A module over the process-wide models. */
    explicit MicModule(int protectFsWaitMs = DefaultProtectFsWaitMs);
    /** A module over models of the caller's own, which outlive it. */
    MicModule(Mic::MicKernel *kernel, Mic::MicFs *fs, int protectFsWaitMs = DefaultProtectFsWaitMs);
    ~MicModule() override;

    /**
     * Reads the three settings. "ProtectFS" is measured afresh: the call waits for the
     * filesystem model's status query, and no longer than the wait limit.
     * @return status 0 and {"MicEnabled", "MaxLevel", "ProtectFS"}.
     */
    SettingsReply getSettings() override;

    /**
     * Applies "ProtectFS", "MaxLevel" (only raised) and "MicEnabled", in this order.
     * @return `true` when a model reported an error or a lower "MaxLevel" was refused.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "mic". */
    QString getName() override;

    /** @return `true` in security mode 1 or 2. */
    bool isAvailable() override;

    /** @return the keys of @p parameters other than the three settings. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /**
     * @return `false` while the filesystem is protected, or when @p settings lowers
     *         "MaxLevel" below the running kernel's level; `true` otherwise.
     */
    bool checkRestrictions(const QHash<QString, QVariant> &settings) override;

    /** The wait limit given at construction. */
    int protectFsWaitMs() const;

private:
    bool waitForProtectFs();

    Mic::MicKernel *m_kernel;
    Mic::MicFs *m_fs;
    int m_protectFsWaitMs;
};

#endif // ZQLMODULES_MICMODULE_H
