#include "processrunner.h"

#include "messages_p.h"
#include "processrunner_p.h"

#include <QObject>
#include <QProcess>

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
