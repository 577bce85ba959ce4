#ifndef ZQLMODULES_PROCESSRUNNER_P_H
#define ZQLMODULES_PROCESSRUNNER_P_H

#include "processrunner.h"

#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class QObject;
class QProcess;

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

// A tool that runs while the caller's event loop goes on: its output goes to the null device and
// its end is reported through queued calls on the thread of the context object given at
// construction, so the handlers never run inside start(). One run at a time.
class BackgroundTool
{
public:
    // Why a run went wrong, as the process reports it.
    enum class Failure { FailedToStart, Crashed, TimedOut, ReadError, WriteError, Unknown };
    // The run ended; exitCode is meaningful when crashed is false.
    using FinishedHandler = std::function<void(int exitCode, bool crashed)>;
    using FailureHandler = std::function<void(Failure failure)>;

    // How long a running tool may take to end after it was asked to terminate.
    static constexpr int DefaultStopGraceMs = 3000;

    BackgroundTool(QObject *context, FinishedHandler onFinished, FailureHandler onFailure);
    // A tool still running is asked to terminate and given the stop grace; then it is killed.
    ~BackgroundTool();
    BackgroundTool(const BackgroundTool &) = delete;
    BackgroundTool &operator=(const BackgroundTool &) = delete;

    bool isRunning() const;
    // Whether the calling thread is the one the tool was created on.
    bool onOwnThread() const;
    // Starts program with arguments; nothing happens while a run is going on.
    void start(const QString &program, const QStringList &arguments);

private:
    std::unique_ptr<QProcess> m_process;
};

#endif // ZQLMODULES_PROCESSRUNNER_P_H
