#include "processrunner.h"

#include "messages_p.h"
#include "processrunner_p.h"

#include <QObject>
#include <QProcess>

namespace {
// How long a killed child that overran its limit may take to go away.
constexpr int KillGraceMs = 5000;
} // namespace

ProcessOutcome runTool(const QString &program, const QStringList &arguments,
                       QIODevice::OpenMode mode, int startTimeoutMs, int finishTimeoutMs)
{
    ProcessOutcome outcome;
    QProcess process;
    process.start(program, arguments, mode);

    if (!process.waitForStarted(startTimeoutMs)) {
        outcome.failure =
            QObject::tr("Process: \"%1 %2\". Error: %3.\n\"Not started\"")
                .arg(program, arguments.join(QLatin1Char(' ')), process.errorString());
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(KillGraceMs);
        }
        return outcome;
    }

    const bool finished = process.waitForFinished(finishTimeoutMs);
    if (!finished || process.exitStatus() != QProcess::NormalExit) {
        outcome.failure =
            QObject::tr("Process: \"%1 %2\". Error: %3.\n\"Not finished\"")
                .arg(program, arguments.join(QLatin1Char(' ')), process.errorString());
        // Do not leave an overrunning child behind the call that started it.
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(KillGraceMs);
        }
        return outcome;
    }

    outcome.exitCode = process.exitCode();
    outcome.standardError = process.readAllStandardError();
    outcome.standardOutput = process.readAllStandardOutput();
    if (outcome.exitCode != 0) {
        outcome.failure =
            QObject::tr("Process: \"%1 %2\". Exit code: %3.\n\"%4\"")
                .arg(program, arguments.join(QLatin1Char(' ')), QString::number(outcome.exitCode),
                     QString::fromLocal8Bit(outcome.standardError))
                .trimmed();
    }
    return outcome;
}

bool runProcess(const QString &program, const QStringList &arguments, QString &errors,
                int startTimeoutMs, int finishTimeoutMs)
{
    const ProcessOutcome outcome =
        runTool(program, arguments, QIODevice::ReadOnly, startTimeoutMs, finishTimeoutMs);
    if (outcome.succeeded())
        return true;
    appendMessage(errors, outcome.failure);
    return false;
}

QString runProcess(const QString &program, const QStringList &arguments, int startTimeoutMs,
                   int finishTimeoutMs)
{
    const ProcessOutcome outcome =
        runTool(program, arguments, QIODevice::ReadOnly, startTimeoutMs, finishTimeoutMs);
    if (!outcome.succeeded())
        return outcome.failure;
    return QString::fromLocal8Bit(outcome.standardError);
}
