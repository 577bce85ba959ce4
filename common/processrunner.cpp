#include "processrunner.h"

#include "messages_p.h"
#include "processrunner_p.h"

#include <QObject>
#include <QProcess>
#include <QThread>

namespace {
// How long a killed child that overran its limit may take to go away.
constexpr int KillGraceMs = 5000;

// Does not leave an overrunning child behind the call that started it.
void killAndReap(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.kill();
    process.waitForFinished(KillGraceMs);
}
} // namespace

ProcessOutcome runTool(const QString &program, const QStringList &arguments,
                       const ProcessRunOptions &options)
{
    ProcessOutcome outcome;
    QProcess process;
    if (options.forwardOutput)
        process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(program, arguments, options.mode);

    if (options.startTimeoutMs && !process.waitForStarted(*options.startTimeoutMs)) {
        outcome.ending = ProcessOutcome::Ending::NotStarted;
        outcome.errorString = process.errorString();
        killAndReap(process);
        return outcome;
    }

    if (!process.waitForFinished(options.finishTimeoutMs)) {
        // Without a separate start wait, this wait also ends on a start that failed or that
        // had not happened yet.
        const bool started =
            process.error() != QProcess::FailedToStart && process.state() != QProcess::Starting;
        outcome.ending =
            started ? ProcessOutcome::Ending::NotFinished : ProcessOutcome::Ending::NotStarted;
        outcome.errorString = process.errorString();
        killAndReap(process);
        return outcome;
    }

    outcome.errorString = process.errorString();
    if (!options.forwardOutput) {
        outcome.standardError = process.readAllStandardError();
        outcome.standardOutput = process.readAllStandardOutput();
    }
    if (process.exitStatus() != QProcess::NormalExit) {
        outcome.ending = ProcessOutcome::Ending::Crashed;
        return outcome;
    }
    outcome.ending = ProcessOutcome::Ending::Exited;
    outcome.exitCode = process.exitCode();
    return outcome;
}

QString processFailureMessage(const QString &program, const QStringList &arguments,
                              const ProcessOutcome &outcome)
{
    const QString joined = arguments.join(QLatin1Char(' '));
    switch (outcome.ending) {
    case ProcessOutcome::Ending::NotStarted:
        return QObject::tr("Process: \"%1 %2\". Error: %3.\n\"Not started\"")
            .arg(program, joined, outcome.errorString);
    case ProcessOutcome::Ending::NotFinished:
    case ProcessOutcome::Ending::Crashed: // a crash deliberately reads as not finished
        return QObject::tr("Process: \"%1 %2\". Error: %3.\n\"Not finished\"")
            .arg(program, joined, outcome.errorString);
    case ProcessOutcome::Ending::Exited:
        break;
    }
    if (outcome.exitCode == 0)
        return {};
    return QObject::tr("Process: \"%1 %2\". Exit code: %3.\n\"%4\"")
        .arg(program, joined, QString::number(outcome.exitCode),
             QString::fromLocal8Bit(outcome.standardError))
        .trimmed();
}

bool runProcess(const QString &program, const QStringList &arguments, QString &errors,
                int startTimeoutMs, int finishTimeoutMs)
{
    ProcessRunOptions options;
    options.startTimeoutMs = startTimeoutMs;
    options.finishTimeoutMs = finishTimeoutMs;
    const ProcessOutcome outcome = runTool(program, arguments, options);
    if (outcome.exitedWithZero())
        return true;
    appendMessage(errors, processFailureMessage(program, arguments, outcome));
    return false;
}

QString runProcess(const QString &program, const QStringList &arguments, int startTimeoutMs,
                   int finishTimeoutMs)
{
    ProcessRunOptions options;
    options.startTimeoutMs = startTimeoutMs;
    options.finishTimeoutMs = finishTimeoutMs;
    const ProcessOutcome outcome = runTool(program, arguments, options);
    if (!outcome.exitedWithZero())
        return processFailureMessage(program, arguments, outcome);
    return QString::fromLocal8Bit(outcome.standardError);
}

BackgroundTool::BackgroundTool(QObject *context, FinishedHandler onFinished,
                               FailureHandler onFailure)
    : m_process(std::make_unique<QProcess>())
{
    qRegisterMetaType<QProcess::ExitStatus>();
    qRegisterMetaType<QProcess::ProcessError>();
    m_process->setStandardOutputFile(QProcess::nullDevice());
    m_process->setStandardErrorFile(QProcess::nullDevice());
    QObject::connect(
        m_process.get(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished), context,
        [handler = std::move(onFinished)](int exitCode, QProcess::ExitStatus status) {
            handler(exitCode, status != QProcess::NormalExit);
        },
        Qt::QueuedConnection);
    QObject::connect(
        m_process.get(), &QProcess::errorOccurred, context,
        [handler = std::move(onFailure)](QProcess::ProcessError error) {
            switch (error) {
            case QProcess::FailedToStart:
                handler(Failure::FailedToStart);
                return;
            case QProcess::Crashed:
                handler(Failure::Crashed);
                return;
            case QProcess::Timedout:
                handler(Failure::TimedOut);
                return;
            case QProcess::ReadError:
                handler(Failure::ReadError);
                return;
            case QProcess::WriteError:
                handler(Failure::WriteError);
                return;
            case QProcess::UnknownError:
                break;
            }
            handler(Failure::Unknown);
        },
        Qt::QueuedConnection);
}

BackgroundTool::~BackgroundTool()
{
    if (m_process->state() == QProcess::NotRunning)
        return;
    // The handlers must not run for a tool that is going away.
    QObject::disconnect(m_process.get(), nullptr, nullptr, nullptr);
    // Until the exec the child still runs the host's signal handlers: a terminate request then
    // would reach the host's code in the child, not the tool.
    if (m_process->state() == QProcess::Starting)
        m_process->waitForStarted(DefaultStopGraceMs);
    m_process->terminate();
    if (!m_process->waitForFinished(DefaultStopGraceMs))
        killAndReap(*m_process);
}

bool BackgroundTool::isRunning() const
{
    return m_process->state() != QProcess::NotRunning;
}

bool BackgroundTool::onOwnThread() const
{
    return m_process->thread() == QThread::currentThread();
}

void BackgroundTool::start(const QString &program, const QStringList &arguments)
{
    if (isRunning())
        return;
    m_process->start(program, arguments, QIODevice::ReadOnly);
}
