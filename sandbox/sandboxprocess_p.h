// The caller's end of the sandbox process.
#pragma once

#include "posixio_p.h"
#include "sandboxchild_p.h"
#include "sandboxplan_p.h"

#include <string>
#include <sys/types.h>

namespace ZqlSandbox {

// What the forked processes reported until the command ended or the sandbox process went away.
struct SandboxReport
{
    bool setupFailed = false;  // a step failed: the command did not run
    Record failure{};          // the first failure
    bool commandEnded = false; // the sandbox process reported the command's end
    int commandStatus = 0;     // its wait status
    bool execFailed = false;   // the command could not be executed: no changed files to look at

    bool commandRan() const { return commandEnded && !setupFailed; }
};

// Starts the process that owns the sandbox's mount namespace, reads what it and the command's
// process report, and releases and reaps it once the caller has looked at the upper layer.
// Owns the caller's ends of the two pipes between them.
class SandboxProcess
{
public:
    SandboxProcess() = default;
    // Releases and reaps a sandbox process that reap() did not (a look at the upper layer that
    // threw), so that none is left behind as a zombie.
    ~SandboxProcess();
    SandboxProcess(const SandboxProcess &) = delete;
    SandboxProcess &operator=(const SandboxProcess &) = delete;

    // Creates the pipes (their child ends go into plan) and forks the sandbox process, which
    // runs sandboxMain(plan). Returns what failed, without ErrorPrefix, or an empty text.
    std::string start(Plan &plan);
    pid_t pid() const;

    // Blocks until the command ended or the sandbox process went away.
    SandboxReport readReport();

    // Lets the sandbox process end; its namespace, mounts and tmpfs go with it.
    void release();

    // Waits for the sandbox process to end: 0 with its wait status in *status, or errno.
    int reap(int *status);

private:
    pid_t m_pid = -1; // -1 once reaped
    Fd m_reports;     // read end
    Fd m_release;     // write end: closing it releases the sandbox process
};

} // namespace ZqlSandbox
