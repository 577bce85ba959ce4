#ifndef ZQLMODULES_MICKERNEL_H
#define ZQLMODULES_MICKERNEL_H

#include "miclevel.h"
#include "zqlmodules_export.h"

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

namespace Mic {

struct MicKernelPrivate;

/**
 * The process-wide model of mandatory integrity control in the kernel: whether it is on now
 * (the running kernel's maximum integrity level is not 0), which maximum level the next boot
 * uses (the kernel parameter "tessel.max_ilev" in the boot loader's configuration) and the
 * levels that can be chosen.
 *
 * It switches integrity control through "lumo-mic-control" and reports through signals. The
 * two boot-file writers are kept for hosts; nothing of the library calls them.
 */
class ZQLMODULES_EXPORT MicKernel : public QObject
{
    Q_OBJECT

public:
    /** Where the subsystem stands now and after the next boot. */
    enum Status { Loading, Enabled, Disabled, WillBeEnabled, WillBeDisabled };
    Q_ENUM(Status)

    /** Level used by enable() without argument. */
    static constexpr quint8 DefaultLevel = 63;
    /** Level that the boot configuration gives when it names none. */
    static constexpr int UnconfiguredLevel = 63;

    /** The one instance of the process, created on first use and destroyed at exit. */
    static MicKernel *instance();

    /**
     * A model of its own (hosts and tests that want a fresh one; the modules use instance()).
     * Builds the level list, reads the running kernel's level and runs update().
     */
    explicit MicKernel(QObject *parent = nullptr);
    ~MicKernel() override;

    Status status() const;
    QString statusDescription() const;
    /** Whether the next boot has integrity control: status Enabled or WillBeEnabled. */
    bool isEnabled() const;
    /** The running kernel's maximum level, read when the model was made. */
    MicLevel currentLevel() const;
    /** The level configured for the next boot. */
    MicLevel futureLevel() const;
    /** Level 63 with its text. */
    MicLevel defaultLevel() const;
    /** The levels the system knows, with their texts. */
    QList<MicLevel> levels() const;
    /** @return @p level with its text from the list, or with its decimal number as text. */
    MicLevel levelFor(quint8 level) const;

    /** How long a run of the control tool may take, in milliseconds; -1 (default): no limit. */
    int toolTimeoutMs() const;
    void setToolTimeoutMs(int timeoutMs);

    /**
     * The maximum level configured for the next boot, read from the boot loader's files: the
     * pylon script, else the last "cmdline.txt" under "/boot", else the GRUB defaults; when
     * that file is missing, "/boot.scr" or "/boot/boot.scr".
     * @return the level, 63 when no file names one.
     */
    static int configuredLevel();

    /**
     * Writes @p level into "/etc/default/grub" and runs update-grub, keeping a backup that is
     * put back (and update-grub run again) when a step fails.
     * @return the failure texts, empty on success.
     */
    static QString setGrubMaxLevel(quint8 level);

    /**
     * Writes @p level into the default image's "cmdline=" of "/boot/boot.conf", keeping a
     * backup that is put back when a step fails.
     * @return the failure texts, empty on success.
     */
    static QString setBootConfMaxLevel(quint8 level);

Q_SIGNALS:
    void error(QString description);
    void warning(QString description);
    void statusChanged(Mic::MicKernel::Status status);
    void statusDescriptionChanged(QString description);
    void enabledChanged(bool enabled);
    /** Never emitted by the library: the running kernel's level is read once. */
    void currentLevelChanged(MicLevel level);
    void futureLevelChanged(MicLevel level);

public Q_SLOTS:
    /** Re-reads the configured level and recomputes the status. */
    void update();
    /** Switches integrity control on at @p level for the next boot. */
    void enable(MicLevel level);
    /** enable() at the default level, 63. */
    void enable();
    /** Switches integrity control off for the next boot. */
    void disable();

private:
    QString runControl(const QStringList &arguments);
    void refreshFutureLevel();
    void recomputeStatus();

    std::unique_ptr<MicKernelPrivate> d;
};

} // namespace Mic

#endif // ZQLMODULES_MICKERNEL_H
