#ifndef ZQLTEST_TOOLRUN_H
#define ZQLTEST_TOOLRUN_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// Runs a system tool from a test with a time limit of the test's choosing and keeps everything
// it did: how it ended, its exit code and both output streams.
namespace ZqlTest {

/** How one run of a tool ended. */
struct ToolRun
{
    enum class Ending {
        Exited,     ///< exited by itself: exitCode holds its code
        Crashed,    ///< ended by a signal (a crash, or killed by someone else)
        TimedOut,   ///< still running at the limit, then killed
        NotStarted, ///< could not be started (errorText says why)
    };
    Ending ending = Ending::NotStarted;
    int exitCode = -1;
    QByteArray standardOutput;
    QByteArray standardError;
    QString errorText;

    /** True when the tool exited with code 0. */
    bool succeeded() const { return ending == Ending::Exited && exitCode == 0; }
    /** One line for a failed check: the command's ending, code and standard error. */
    QString describe() const;
};

/**
 * Runs @p program with @p arguments, writes @p input to its standard input and closes it, and
 * waits at most @p timeoutMs for it to end; a tool still running then is killed.
 * A bare program name is looked up in PATH. @p environment ("NAME=value" each) is added to the
 * test's own environment.
 */
ToolRun runTool(const QString &program, const QStringList &arguments, int timeoutMs = 30000,
                const QByteArray &input = QByteArray(),
                const QStringList &environment = QStringList());

} // namespace ZqlTest

#endif // ZQLTEST_TOOLRUN_H
