#ifndef ZQLPOLICY_SANDBOXEDRUN_H
#define ZQLPOLICY_SANDBOXEDRUN_H

#include "dryrunpreview.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

namespace ZqlPolicy {

/**
 * Runs this program once more, inside the system sandbox: a private mount namespace over a
 * copy-on-write overlay of the whole root file system, with the given layers on top (the
 * simulated system, for one). Nothing the run writes reaches this machine's root.
 *
 * The run sees this program and the library wherever they lie (a build tree under /tmp is
 * shared into the sandbox). Files of the caller are handed over as open descriptors, so the
 * run needs no path of the caller's: the policy becomes its standard input, and what it
 * writes to standard output can be kept for the caller.
 */
class SandboxedRun
{
public:
    /** Exit status when the sandbox could not be set up or examined; nothing ran then. */
    static constexpr int ExitSandboxFailed = 125;

    explicit SandboxedRun(const QStringList &layers);

    /** The run's standard input: @p fd (this process keeps it open). Default: ours. */
    void setInput(int fd);

    /** Keep the run's standard output for output() instead of passing it on. */
    void setCaptureOutput(bool capture);

    /**
     * A dry run: afterwards, keep the unified diff of every file the run changed
     * (fileDiffs()); the run's own standard output goes to our standard error.
     */
    void setDiff(bool diff);

    /**
     * Runs this program with @p arguments in the sandbox and returns its exit status, or
     * ExitSandboxFailed with a message on standard error. SIGTERM, SIGHUP and SIGINT end the
     * run and everything it started; the status is then 128 plus the signal's number, a
     * message says so, and nothing of what the run did is kept (no output, no diff).
     */
    int run(const QStringList &arguments);

    /** What the run wrote to standard output, with setCaptureOutput(). */
    QByteArray output() const;

    /** The files the run changed, "M /etc/login.defs" and so on, by path (with setDiff()). */
    QStringList changes() const;

    /** Each changed file's block of the unified diff, in the order of changes(). */
    QVector<FileDiff> fileDiffs() const;

private:
    QStringList m_layers;
    int m_input = -1;
    bool m_captureOutput = false;
    bool m_diff = false;
    QByteArray m_output;
    QStringList m_changes;
    QVector<FileDiff> m_fileDiffs;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_SANDBOXEDRUN_H
