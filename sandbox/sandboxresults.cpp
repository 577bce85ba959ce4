#include "sandboxresults_p.h"

#include "changewalk.h"
#include "posixio_p.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <sys/wait.h>

namespace ZqlSandbox {

namespace {

std::string errorText(int error)
{
    return error ? std::string(std::strerror(error)) : std::string();
}

// Runs a program from the calling process and waits for it; argv is prepared before fork().
bool runProgram(const std::vector<std::string> &args, int *status)
{
    std::vector<char *> argv = pointers(args);
    pid_t pid = startProgram(argv.data());
    return pid >= 0 && waitFor(pid, status) == pid;
}

// Copies the upper layer, whiteouts included, to the keep directory; returns what failed.
std::string keepUpperLayer(const Plan &plan, const std::string &inside)
{
    const std::string &keep = plan.keep;
    int status = 0;
    if (plan.createKeep && ::mkdir(keep.c_str(), 0700) != 0)
        return "create keep directory " + keep + ": " + std::strerror(errno);
    if (!runProgram({"cp", "-a", "--", inside + "/upper/.", keep + '/'}, &status))
        return "copy the upper layer to " + keep + ": " + std::strerror(errno);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "copy the upper layer to " + keep + ": " + describeWaitStatus("cp", status);
    return {};
}

} // namespace

UpperLayerResult examineUpperLayer(const Plan &plan, pid_t sandboxPid, std::vector<Change> *changes,
                                   const ChangedFilesCallback *callback)
{
    UpperLayerResult result;
    // The namespace is still there: reach its files through the sandbox process's root.
    const std::string inside = "/proc/" + std::to_string(sandboxPid) + "/root" + plan.base;
    if (changes) {
        std::vector<std::string> lowers;
        for (size_t i = plan.layers.size(); i-- > 0;)
            lowers.push_back(inside + "/l" + std::to_string(i));
        lowers.push_back(inside + "/host");
        ChangeWalk walk(inside + "/upper", lowers);
        std::vector<ChangedFile> files;
        if (walk.run(files)) {
            for (const ChangedFile &file : files)
                changes->push_back(file.change);
            if (callback) {
                try {
                    (*callback)(files);
                } catch (...) {
                    result.callbackFailure = std::current_exception();
                }
            }
        } else {
            result.error = "examine the upper layer: cannot read " + walk.failedPath();
        }
    }
    if (!plan.keep.empty() && result.error.empty() && !result.callbackFailure)
        result.error = keepUpperLayer(plan, inside);
    return result;
}

std::string describeWaitStatus(const std::string &what, int status)
{
    if (WIFEXITED(status))
        return what + " exited with status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status))
        return what + " was killed by signal " + std::to_string(WTERMSIG(status));
    return what + " ended abnormally";
}

std::string describeFailure(const Plan &plan, const Record &r)
{
    auto at = [](const std::vector<std::string> &v, int i) {
        return i >= 0 && static_cast<size_t>(i) < v.size() ? v[static_cast<size_t>(i)]
                                                           : std::string("?");
    };
    std::string step;
    std::string reason = errorText(r.error);
    switch (static_cast<Step>(r.step)) {
    case StepParentDeath:
        step = "set the parent-death signal";
        break;
    case StepUnshare:
        step = "unshare the mount namespace";
        break;
    case StepMakePrivate:
        step = "make the mounts private";
        break;
    case StepMountBase:
        step = "mount tmpfs on " + plan.base;
        break;
    case StepMakeDir:
        step = "create directory " + at(plan.dirs, r.index);
        break;
    case StepForkCopy:
        step = "fork cp for layer " + at(plan.layers, r.index);
        break;
    case StepCopyLayer:
        step = "copy layer " + at(plan.layers, r.index) + " to " + at(plan.layerDirs, r.index);
        if (!r.error)
            reason = describeWaitStatus("cp", r.status);
        break;
    case StepRootOwner:
        step = "set the owner and mode of " + plan.upper;
        break;
    case StepMountOverlay:
        step = "mount overlay on " + plan.merged;
        break;
    case StepCheckOverlay:
        step = "check the overlay on " + plan.merged;
        if (!r.error)
            reason = "it is not a new overlay";
        break;
    case StepBindHost:
        step = "bind / on " + plan.host;
        break;
    case StepReadOnlyHost:
        step = "make " + plan.host + " read-only";
        break;
    case StepBindSystem:
        step = "bind " + at(plan.systemDirs, r.index) + " on " + at(plan.systemTargets, r.index);
        break;
    case StepMountTmp:
        step = "mount tmpfs on " + plan.mergedTmp;
        break;
    case StepMountShm:
        step = "mount tmpfs on " + plan.mergedShm;
        break;
    case StepMakeShareDir:
        step = "create directory " + at(plan.shareDirs, r.index);
        break;
    case StepMountShare:
        step = "mount an overlay of " + at(plan.shareSources, r.index) + " on " +
               at(plan.shareTargets, r.index);
        break;
    case StepSubreaper:
        step = "become the subreaper of the command";
        break;
    case StepUnsharePid:
        step = "unshare the PID namespace";
        break;
    case StepForkInit:
        step = "fork the first process of the PID namespace";
        break;
    case StepMountProc:
        step = "mount proc on " + plan.mergedProc;
        break;
    case StepForkCommand:
        step = "fork the command";
        break;
    case StepChroot:
        step = "chroot into " + plan.merged;
        break;
    case StepChdir:
        step = "change to a directory inside the sandbox";
        break;
    case StepCheckRoot:
        step = "check the root of the command";
        if (!r.error)
            reason = "it is not the sandbox's overlay";
        break;
    case StepExec:
        step = "run the command";
        break;
    case StepWaitCommand:
        step = "wait for the command";
        break;
    }
    if (reason.empty())
        reason = "failed";
    return ErrorPrefix + step + ": " + reason;
}

int commandExitStatus(int waitStatus)
{
    if (WIFEXITED(waitStatus))
        return WEXITSTATUS(waitStatus);
    if (WIFSIGNALED(waitStatus))
        return 128 + WTERMSIG(waitStatus);
    return Sandbox::ExitSetupFailed;
}

} // namespace ZqlSandbox
