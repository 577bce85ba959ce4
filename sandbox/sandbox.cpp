#include "sandbox.h"

#include "changewalk.h"
#include "posixio_p.h"
#include "sandboxchild_p.h"
#include "sandboxplan_p.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

bool readRecord(int fd, Record &record)
{
    size_t got = 0;
    return readFull(fd, &record, sizeof record, got) && got == sizeof record;
}

std::string errorText(int error)
{
    return error ? std::string(std::strerror(error)) : std::string();
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

// Runs a program from the calling process and waits for it; argv is prepared before fork().
bool runProgram(const std::vector<std::string> &args, int *status)
{
    std::vector<char *> argv = pointers(args);
    pid_t pid = startProgram(argv.data());
    return pid >= 0 && waitFor(pid, status) == pid;
}

} // namespace

Sandbox::Sandbox() = default;
Sandbox::~Sandbox() = default;

void Sandbox::addLayer(const std::string &dir)
{
    m_layers.push_back(dir);
}

const std::vector<std::string> &Sandbox::layers() const
{
    return m_layers;
}

void Sandbox::addShare(const std::string &dir)
{
    m_shares.push_back(dir);
}

const std::vector<std::string> &Sandbox::shares() const
{
    return m_shares;
}

void Sandbox::setKeepDir(const std::string &dir)
{
    m_keepDir = dir;
}

const std::string &Sandbox::keepDir() const
{
    return m_keepDir;
}

void Sandbox::setTmpfsSize(const std::string &size)
{
    m_tmpfsSize = size;
}

const std::string &Sandbox::tmpfsSize() const
{
    return m_tmpfsSize;
}

void Sandbox::setRecordChanges(bool on)
{
    m_recordChanges = on;
}

bool Sandbox::recordChanges() const
{
    return m_recordChanges;
}

void Sandbox::setInspector(Inspector inspector)
{
    m_inspector = std::move(inspector);
}

const std::string &Sandbox::errorString() const
{
    return m_error;
}

bool Sandbox::commandRan() const
{
    return m_commandRan;
}

const std::vector<Change> &Sandbox::changes() const
{
    return m_changes;
}

void Sandbox::terminate()
{
    const pid_t pid = m_sandboxPid.load();
    if (pid > 0)
        ::kill(pid, SIGTERM); // see onStop() in sandboxchild.cpp
}

int Sandbox::run(const std::vector<std::string> &command)
{
    m_error.clear();
    m_changes.clear();
    m_commandRan = false;
    auto failed = [this](const std::string &message) {
        m_error = ErrorPrefix + message;
        return ExitSetupFailed;
    };

    Plan plan;
    const std::string problem = plan.prepare(*this, command);
    if (!problem.empty())
        return failed(problem);

    int report[2];
    int release[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return failed(std::string("create a pipe: ") + std::strerror(errno));
    Fd reportRead(report[0]);
    Fd reportWrite(report[1]);
    if (::pipe2(release, O_CLOEXEC) != 0)
        return failed(std::string("create a pipe: ") + std::strerror(errno));
    Fd releaseRead(release[0]);
    Fd releaseWrite(release[1]);
    plan.reportFd = report[1];
    plan.releaseFd = release[0];

    pid_t child = ::fork();
    if (child < 0)
        return failed(std::string("fork: ") + std::strerror(errno));
    if (child == 0) {
        ::close(report[0]);
        ::close(release[1]);
        sandboxMain(plan);
    }
    m_sandboxPid.store(child);
    reportWrite.reset();
    releaseRead.reset();

    // A failure record may come from the command's process before the sandbox process reports
    // that the command ended; the first failure wins.
    Record record;
    bool setupFailed = false;
    bool done = false;
    bool notStarted = false; // exec failed: nothing to inspect
    Record failure{};
    int commandStatus = 0;
    while (!done && readRecord(reportRead.get(), record)) {
        if (record.type == RecordFailed && !setupFailed) {
            setupFailed = true;
            failure = record;
        } else if (record.type == RecordNotStarted) {
            notStarted = true;
        } else if (record.type == RecordDone) {
            done = true;
            commandStatus = record.status;
        }
    }

    std::string postError;
    std::exception_ptr inspectorFailure; // thrown again once the sandbox is gone
    if (done && !setupFailed) {
        m_commandRan = true;
        // The namespace is still there: reach its files through the sandbox process's root.
        const std::string inside = "/proc/" + std::to_string(child) + "/root" + plan.base;
        if (m_recordChanges) {
            std::vector<std::string> lowers;
            for (size_t i = plan.layers.size(); i-- > 0;)
                lowers.push_back(inside + "/l" + std::to_string(i));
            lowers.push_back(inside + "/host");
            ChangeWalk walk(inside + "/upper", lowers);
            std::vector<ChangedFile> files;
            if (walk.run(files)) {
                for (const ChangedFile &file : files)
                    m_changes.push_back(file.change);
                if (m_inspector && !notStarted) {
                    try {
                        m_inspector(files);
                    } catch (...) {
                        inspectorFailure = std::current_exception();
                    }
                }
            } else {
                postError = "examine the upper layer: cannot read " + walk.failedPath();
            }
        }
        if (!plan.keep.empty() && postError.empty() && !inspectorFailure) {
            const std::string &keep = plan.keep;
            int status = 0;
            if (plan.createKeep && ::mkdir(keep.c_str(), 0700) != 0) {
                postError = "create keep directory " + keep + ": " + std::strerror(errno);
            } else if (!runProgram({"cp", "-a", "--", inside + "/upper/.", keep + '/'}, &status)) {
                postError = "copy the upper layer to " + keep + ": " + std::strerror(errno);
            } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
                postError =
                    "copy the upper layer to " + keep + ": " + describeWaitStatus("cp", status);
            }
        }
    }

    releaseWrite.reset();
    m_sandboxPid.store(0); // it is ending now; its pid stays reserved until reaped below
    int childStatus = 0;
    bool reaped = waitFor(child, &childStatus) == child;
    if (inspectorFailure)
        std::rethrow_exception(inspectorFailure); // plan removes its directory on the way out

    if (setupFailed) {
        m_error = describeFailure(plan, failure);
        return ExitSetupFailed;
    }
    if (!done) {
        if (!reaped)
            return failed(std::string("wait for the sandbox process: ") + std::strerror(errno));
        return failed(describeWaitStatus("the sandbox process", childStatus) +
                      " before the command ended");
    }
    int result;
    if (WIFEXITED(commandStatus))
        result = WEXITSTATUS(commandStatus);
    else if (WIFSIGNALED(commandStatus))
        result = 128 + WTERMSIG(commandStatus);
    else
        result = ExitSetupFailed;
    if (!postError.empty()) {
        m_changes.clear();
        return failed(postError + " (the command ran and exited with status " +
                      std::to_string(result) + ")");
    }
    return result;
}

} // namespace ZqlSandbox
