#include "mackernel.h"

#include "processrunner_p.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

namespace {
const QString ControlTool = QStringLiteral("lumo-mac-control");
const QString StatusArgument = QStringLiteral("status");
const QString IsEnabledArgument = QStringLiteral("is-enabled");
const QString EnableArgument = QStringLiteral("enable");
const QString DisableArgument = QStringLiteral("disable");

// The control tool may take as long as it needs: no start wait, no finish limit.
ProcessRunOptions unboundedRun()
{
    ProcessRunOptions options;
    options.mode = QIODevice::ReadWrite;
    options.startTimeoutMs.reset();
    options.finishTimeoutMs = -1;
    return options;
}
} // namespace

namespace Mac {

class MacKernelPrivate
{
public:
    explicit MacKernelPrivate(MacKernel *owner)
        : q(owner)
    {}

    MacKernel *q;
    MacKernel::Status status = MacKernel::Loading;
    QString statusDescription;
    bool enabled = false;
};

MacKernel *MacKernel::instance()
{
    static MacKernel kernel;
    return &kernel;
}

QMutex *MacKernel::slotMutex()
{
    static QMutex mutex;
    return &mutex;
}

MacKernel::MacKernel()
    : d(std::make_unique<MacKernelPrivate>(this))
{
    // Queued connections and signal spies carry the status by value.
    qRegisterMetaType<Mac::MacKernel::Status>();
    update();
}

MacKernel::~MacKernel() = default;

MacKernel::Status MacKernel::status() const
{
    return d->status;
}

QString MacKernel::statusDescription() const
{
    return d->statusDescription;
}

bool MacKernel::enabled() const
{
    return d->enabled;
}

void MacKernel::update()
{
    {
        const QMutexLocker barrier(slotMutex());
    }
    const QString status = runControlTool({StatusArgument});
    const QString planned = runControlTool({IsEnabledArgument});
    // Substring searches: ENABLE is also found in ENABLED.
    const bool inactive = status.contains(QObject::tr("INACTIVE"));
    const bool willBeOn = planned.contains(QObject::tr("ENABLE"));

    Status next = Disabled;
    if (!inactive && willBeOn)
        next = Enabled;
    else if (inactive && !willBeOn)
        next = Disabled;
    else if (inactive && willBeOn)
        next = WillBeEnabled;
    else
        next = WillBeDisabled;
    if (next == d->status)
        return;

    d->status = next;
    Q_EMIT statusChanged(next);
    switch (next) {
    case Enabled:
        d->statusDescription = tr("Subsystem is <b>enabled</b>");
        break;
    case Disabled:
        d->statusDescription = tr("Subsystem is <b>disabled</b>");
        break;
    case WillBeEnabled:
        d->statusDescription =
            tr("Subsystem is disabled, but it will be <b>enabled after reboot</b>");
        break;
    case WillBeDisabled:
        d->statusDescription =
            tr("Subsystem is enabled, but it will be <b>disabled after reboot</b>");
        break;
    case Loading:
        d->statusDescription = tr("Loading...");
        break;
    }
    Q_EMIT statusDescriptionChanged(d->statusDescription);
    // Emitted on every status change, even when the flag keeps its value.
    d->enabled = next == Enabled || next == WillBeEnabled;
    Q_EMIT enabledChanged(d->enabled);
}

void MacKernel::enable()
{
    {
        const QMutexLocker barrier(slotMutex());
    }
    if (d->status == WillBeEnabled) {
        Q_EMIT warning(tr("MAC enabling already planned after reboot."));
        return;
    }
    runControlTool({EnableArgument});
}

void MacKernel::disable()
{
    {
        const QMutexLocker barrier(slotMutex());
    }
    if (d->status == WillBeDisabled) {
        Q_EMIT warning(tr("MAC disabling already planned after reboot."));
        return;
    }
    runControlTool({DisableArgument});
}

QString MacKernel::runControlTool(const QStringList &arguments)
{
    const ProcessOutcome outcome = runTool(ControlTool, arguments, unboundedRun());
    if (!outcome.exited()) {
        // A tool that could not start, crashed or did not finish; its output still counts.
        Q_EMIT error(QObject::tr("%1 %2 returned %3:\n%4\n%5")
                         .arg(ControlTool, arguments.join(QLatin1Char(' ')),
                              QString::number(outcome.exitCode),
                              QString::fromUtf8(outcome.standardOutput),
                              QString::fromUtf8(outcome.standardError)));
    } else if (!outcome.standardError.isEmpty()) {
        Q_EMIT warning(QString::fromUtf8(outcome.standardError));
    }
    return QString::fromUtf8(outcome.standardOutput);
}

} // namespace Mac
