#ifndef ZQLMODULES_MACKERNEL_H
#define ZQLMODULES_MACKERNEL_H

#include "zqlmodules_export.h"

#include <QObject>
#include <QString>

#include <memory>

class QMutex;

namespace Mac {

class MacKernelPrivate;

/**
 * The process-wide model of the kernel's mandatory access control: whether it is on now and
 * whether it will be on after the next boot, learnt from and switched through
 * "lumo-mac-control".
 *
 * Created on first use by instance() and destroyed at program exit. The tool runs on the
 * calling thread and blocks it. Every slot first passes through one process-wide mutex (taken
 * and released at once); beyond that the object is meant for one thread.
 */
class ZQLMODULES_EXPORT MacKernel : public QObject
{
    Q_OBJECT

public:
    /** What the kernel runs now and what the next boot brings. */
    enum Status {
        Loading = 0,        ///< not yet read
        Enabled = 1,        ///< on now, on after reboot
        Disabled = 2,       ///< off now, off after reboot
        WillBeEnabled = 3,  ///< off now, on after reboot
        WillBeDisabled = 4, ///< on now, off after reboot
    };
    Q_ENUM(Status)

    /** The one instance; the first call creates it and reads the state once. */
    static MacKernel *instance();

    ~MacKernel() override;
    MacKernel(const MacKernel &) = delete;
    MacKernel &operator=(const MacKernel &) = delete;

    /** The stored status (Loading until a read gave one). */
    Status status() const;

    /** The translated description of the stored status (empty while Loading). */
    QString statusDescription() const;

    /** Whether the next boot brings MAC: true for Enabled and WillBeEnabled. */
    bool enabled() const;

    /** The mutex every slot passes through; whoever holds it keeps the three slots waiting. */
    static QMutex *slotMutex();

Q_SIGNALS:
    void error(QString description);
    void warning(QString description);
    void statusChanged(Mac::MacKernel::Status status);
    void statusDescriptionChanged(QString description);
    void enabledChanged(bool enabled);

public Q_SLOTS:
    /** Re-reads the state from "status" and "is-enabled" of the tool. */
    void update();

    /** Plans MAC on after reboot (a warning and nothing else when already planned). */
    void enable();

    /** Plans MAC off after reboot (a warning and nothing else when already planned). */
    void disable();

private:
    MacKernel();

    QString runControlTool(const QStringList &arguments);

    std::unique_ptr<MacKernelPrivate> d;
};

} // namespace Mac

#endif // ZQLMODULES_MACKERNEL_H
