// What Sandbox::run() makes of a run once the forked processes have reported: a look at the
// upper layer while the namespace still exists, and the texts of its failures.
#pragma once

#include "sandbox.h"
#include "sandboxchild_p.h"
#include "sandboxplan_p.h"

#include <exception>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ZqlSandbox {

// What went wrong in examineUpperLayer().
struct UpperLayerResult
{
    std::string error;                  // the upper layer could not be examined or kept
    std::exception_ptr callbackFailure; // what the caller's callback threw, for run() to rethrow
};

// The callback the caller gave the Sandbox for the changed files. run() passes a pointer to the
// one it holds, so the two types cannot drift apart without a compile error.
using ChangedFilesCallback = std::function<void(const std::vector<ChangedFile> &files)>;

// Examines the upper layer of the sandbox process sandboxPid, whose namespace still exists,
// through /proc/<sandboxPid>/root. Fills changes (unless it is null) before it calls callback
// (unless it is null) with the changed files, which may read them through Sandbox::changes();
// then copies the upper layer to plan.keep, if set, unless something failed before.
UpperLayerResult examineUpperLayer(const Plan &plan, pid_t sandboxPid, std::vector<Change> *changes,
                                   const ChangedFilesCallback *callback);

// The text of a failure that a forked process reported, with ErrorPrefix.
std::string describeFailure(const Plan &plan, const Record &record);

// "WHAT exited with status N", "WHAT was killed by signal N" or "WHAT ended abnormally".
std::string describeWaitStatus(const std::string &what, int status);

// What run() returns for the command's wait status: its exit status or 128 + the signal.
int commandExitStatus(int waitStatus);

} // namespace ZqlSandbox
