// The processes Sandbox::run() forks: the sandbox process, which owns the mount namespace, and
// the command's process. See sandboxchild.cpp for what they may do.
#pragma once

#include "sandboxplan_p.h"

#include <cstdint>

namespace ZqlSandbox {

// The steps a forked process can fail at. It reports only the step, an index and errno; the
// caller turns that into text, because a process forked from a possibly multi-threaded
// caller must not allocate (another thread may have held the allocator's lock at fork time).
enum Step : std::int32_t {
    StepParentDeath,
    StepUnshare,
    StepMakePrivate,
    StepMountBase,
    StepMakeDir, // index: which of Plan::dirs
    StepForkCopy,
    StepCopyLayer, // index: layer; status: cp's wait status
    StepRootOwner,
    StepMountOverlay,
    StepCheckOverlay,
    StepBindHost,
    StepReadOnlyHost,
    StepBindSystem, // index: which of Plan::systemDirs
    StepMountTmp,
    StepMountShm,
    StepMakeShareDir, // index: which of Plan::shareDirs
    StepMountShare,   // index: which of Plan::shareSources
    StepSubreaper,
    StepUnsharePid,
    StepForkInit,
    StepMountProc,
    StepForkCommand,
    StepChroot,
    StepChdir,
    StepCheckRoot,
    StepExec,
    StepWaitCommand,
};

// RecordNotStarted: the command could not be executed (it then exits 127); not a set-up failure.
enum RecordType : std::int32_t { RecordFailed = 1, RecordDone = 2, RecordNotStarted = 3 };

// Sent over a pipe; small enough for write() to be atomic.
struct Record
{
    std::int32_t type;
    std::int32_t step;
    std::int32_t index;
    std::int32_t error;  // errno, 0 if the step failed without one
    std::int32_t status; // a wait status
};

// The sandbox process: sets up the namespace and the overlay, runs the command in a process of
// its own, reports on plan.reportFd and keeps the namespace until plan.releaseFd reads EOF.
[[noreturn]] void sandboxMain(const Plan &plan);

} // namespace ZqlSandbox
