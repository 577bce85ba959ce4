#ifndef ZQLMODULES_PROCESSRUNNER_P_H
#define ZQLMODULES_PROCESSRUNNER_P_H

#include "processrunner.h"

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <optional>

// How one tool is run. The defaults are runProcess's: read-only, 30 s to start, 30 s to finish.
struct ProcessRunOptions
{
    QIODevice::OpenMode mode = QIODevice::ReadOnly;
    // Limit for the start in milliseconds, -1 for none. Without a value there is no separate
    // start wait: the finish wait covers the start as well.
    std::optional<int> startTimeoutMs = DefaultProcessTimeoutMs;
    // Limit for the finish in milliseconds, -1 for none.
    int finishTimeoutMs = DefaultProcessTimeoutMs;
    // The tool writes straight to the host's standard output and error; nothing is captured.
    bool forwardOutput = false;
};

// What one run of a tool gave. Callers word their own messages from it, or take the shared
// wording from processFailureMessage().
struct ProcessOutcome
{
    enum class Ending {
        NotStarted,  // could not be started, or did not start within the limit
        NotFinished, // started, but did not finish within the limit
        Crashed,     // ended by a signal
        Exited,      // exited with exitCode
    };

    Ending ending = Ending::NotStarted;
    // Meaningful only when the tool exited.
    int exitCode = -1;
    // Read once the tool has ended (crashed or exited); empty when the output was forwarded.
    QByteArray standardOutput;
    QByteArray standardError;
    // The process's own description of its last error ("Process operation timed out", ...).
    QString errorString;

    bool exited() const { return ending == Ending::Exited; }
    bool exitedWithZero() const { return exited() && exitCode == 0; }
};

// The one place that starts a child process and waits for it. A child that overruns a limit is
// killed and reaped before this returns.
ProcessOutcome runTool(const QString &program, const QStringList &arguments,
                       const ProcessRunOptions &options = ProcessRunOptions());

// The shared message for a failed run: "Not started", "Not finished" (a crash too), or the exit
// code with the tool's standard error. Empty when the tool exited with 0.
QString processFailureMessage(const QString &program, const QStringList &arguments,
                              const ProcessOutcome &outcome);

#endif // ZQLMODULES_PROCESSRUNNER_P_H
