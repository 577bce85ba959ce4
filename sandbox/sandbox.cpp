#include "sandbox.h"

#include "changewalk.h"
#include "posixio_p.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <exception>

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

const char ErrorPrefix[] = "zql-sandbox: ";
const char MountSource[] = "zql-sandbox";

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

// Everything the forked processes need, prepared before fork() so that they allocate nothing.
struct Plan
{
    pid_t caller = 0;
    int reportFd = -1;  // write end: records to the caller
    int releaseFd = -1; // read end: EOF when the caller has looked at the upper layer

    std::string base; // the tmpfs holding everything below
    std::string baseOptions;
    std::vector<std::string> dirs;                  // created on the tmpfs, in this order
    std::vector<std::string> layerDirs;             // copies of the layers on the tmpfs
    std::vector<std::vector<std::string>> copyArgs; // one cp command per layer
    std::string upper;
    std::string work;
    std::string merged;
    std::string host; // read-only bind of the real root file system, for comparisons
    std::string overlayOptions;
    std::vector<std::string> systemDirs;    // /proc, /sys, /dev
    std::vector<std::string> systemTargets; // the same under merged
    std::string mergedTmp;
    std::string mergedShm;
    std::string tmpOptions;
    std::vector<std::string> shareSources; // host directories shown copy-on-write inside
    std::vector<std::string> shareTargets; // the same under merged
    std::vector<std::string> shareOptions; // each share's own overlay
    std::vector<std::string> shareDirs;    // created under merged first, parents before children

    uid_t rootUid = 0;
    gid_t rootGid = 0;
    mode_t rootMode = 0755;
    dev_t hostRootDev = 0;

    std::string cwd;
    std::vector<std::string> args;
    std::vector<std::string> env;
    std::string execFailure; // message prefix when the command cannot be started
};

void writeString(int fd, const char *s)
{
    writeAll(fd, s, std::strlen(s));
}

void sendRecord(const Plan &plan, RecordType type, Step step, int index, int error, int status)
{
    Record record{type, step, index, error, status};
    writeAll(plan.reportFd, &record, sizeof record);
}

[[noreturn]] void fail(const Plan &plan, Step step, int index = 0, int error = 0, int status = 0)
{
    sendRecord(plan, RecordFailed, step, index, error, status);
    ::_exit(Sandbox::ExitSetupFailed);
}

void sleepMilliseconds(long ms)
{
    struct timespec ts = {0, ms * 1000000L};
    ::nanosleep(&ts, nullptr);
}

bool isOverlayRoot(const char *path, dev_t expectedDev)
{
    struct stat st;
    struct statfs fs;
    if (::stat(path, &st) != 0 || ::statfs(path, &fs) != 0)
        return false;
    return st.st_dev == expectedDev &&
           fs.f_type == static_cast<decltype(fs.f_type)>(OVERLAYFS_SUPER_MAGIC);
}

// The command's processes outlive it when they are put in the background. Kill them (they were
// re-parented to us, the subreaper), so that nothing writes to the upper layer while it is
// examined and the namespace goes away with us.
void killLeftovers()
{
    for (int round = 0; round < 10000; ++round) {
        int fd = ::open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            char buffer[512];
            long pid = 0;
            ssize_t n;
            while ((n = ::read(fd, buffer, sizeof buffer)) > 0) {
                for (ssize_t i = 0; i < n; ++i) {
                    if (buffer[i] >= '0' && buffer[i] <= '9') {
                        pid = pid * 10 + (buffer[i] - '0');
                    } else {
                        if (pid > 0)
                            ::kill(static_cast<pid_t>(pid), SIGKILL);
                        pid = 0;
                    }
                }
            }
            if (pid > 0)
                ::kill(static_cast<pid_t>(pid), SIGKILL);
            ::close(fd);
        }
        for (;;) {
            pid_t r = ::waitpid(-1, nullptr, WNOHANG);
            if (r > 0 || (r < 0 && errno == EINTR))
                continue;
            if (r < 0 && errno == ECHILD)
                return;
            break;
        }
        if (fd < 0)
            return; // cannot list them; do not wait for processes we cannot end
        sleepMilliseconds(1);
    }
}

// A fresh process image would have default handlers: give this process and the command the
// same, and an empty signal mask, whatever the caller uses. Ignored signals stay ignored,
// as across exec.
void resetSignals()
{
    for (int sig = 1; sig < NSIG; ++sig) {
        if (sig == SIGKILL || sig == SIGSTOP)
            continue;
        struct sigaction action;
        if (::sigaction(sig, nullptr, &action) != 0)
            continue;
        bool handled = action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
        if (handled || sig == SIGCHLD) { // SIGCHLD ignored would break waitpid()
            std::memset(&action, 0, sizeof action);
            action.sa_handler = SIG_DFL;
            sigemptyset(&action.sa_mask);
            ::sigaction(sig, &action, nullptr);
        }
    }
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Terminal signals reach the command too; the sandbox process outlives them, as a shell
// does, to report how the command ended. The command gets them as the caller had them.
// SIGTERM (from Sandbox::terminate()) makes the sandbox process kill the command, so that it
// still ends whatever the command left running and reports as usual.
struct SandboxSignals
{
    struct sigaction interrupt;
    struct sigaction quit;
    struct sigaction terminate;
};

volatile std::sig_atomic_t commandPid = 0; // in the sandbox process only
volatile std::sig_atomic_t stopRequested = 0;

void onStop(int)
{
    stopRequested = 1;
    if (commandPid > 0)
        ::kill(static_cast<pid_t>(commandPid), SIGKILL);
}

void takeSignals(SandboxSignals &saved)
{
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    sigemptyset(&action.sa_mask);
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &action, &saved.interrupt);
    ::sigaction(SIGQUIT, &action, &saved.quit);
    action.sa_handler = onStop;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, &saved.terminate);
}

[[noreturn]] void commandMain(const Plan &plan, pid_t sandboxProcess, dev_t mergedDev,
                              char *const *argv, char **envp, const SandboxSignals &signals)
{
    ::sigaction(SIGINT, &signals.interrupt, nullptr);
    ::sigaction(SIGQUIT, &signals.quit, nullptr);
    ::sigaction(SIGTERM, &signals.terminate, nullptr);
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        fail(plan, StepParentDeath, 0, errno);
    if (::getppid() != sandboxProcess)
        ::_exit(Sandbox::ExitSetupFailed);
    if (::chroot(plan.merged.c_str()) != 0)
        fail(plan, StepChroot, 0, errno);
    if (::chdir(plan.cwd.c_str()) != 0 && ::chdir("/") != 0)
        fail(plan, StepChdir, 0, errno);
    // Fail closed: the command must see our overlay as "/", nothing else.
    if (!isOverlayRoot("/", mergedDev))
        fail(plan, StepCheckRoot);

    environ = envp;
    ::execvp(argv[0], argv);
    int error = errno;
    sendRecord(plan, RecordNotStarted, StepExec, 0, error, 0);
    writeString(STDERR_FILENO, plan.execFailure.c_str());
    writeString(STDERR_FILENO, ::strerrordesc_np(error));
    writeString(STDERR_FILENO, "\n");
    ::_exit(127);
}

void mountOrFail(const Plan &plan, Step step, int index, const char *source, const char *target,
                 const char *type, unsigned long flags, const char *options)
{
    if (::mount(source, target, type, flags, options) != 0)
        fail(plan, step, index, errno);
}

// The process that owns the mount namespace. Uses only system calls and prepared data.
[[noreturn]] void sandboxMain(const Plan &plan, char *const *argv, char **envp,
                              const std::vector<std::vector<char *>> &copyArgv)
{
    // SIGTERM must end the set-up even if the caller ignores it; the command gets the
    // caller's disposition back (a handler becomes the default, as across exec).
    struct sigaction callerTerminate;
    ::sigaction(SIGTERM, nullptr, &callerTerminate);
    resetSignals();
    struct sigaction defaultAction;
    std::memset(&defaultAction, 0, sizeof defaultAction);
    defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&defaultAction.sa_mask);
    ::sigaction(SIGTERM, &defaultAction, nullptr);
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        fail(plan, StepParentDeath, 0, errno);
    if (::getppid() != plan.caller)
        ::_exit(Sandbox::ExitSetupFailed);

    if (::unshare(CLONE_NEWNS) != 0)
        fail(plan, StepUnshare, 0, errno);
    // Nothing mounted from here on may propagate back to the real namespace.
    mountOrFail(plan, StepMakePrivate, 0, nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    mountOrFail(plan, StepMountBase, 0, MountSource, plan.base.c_str(), "tmpfs", 0,
                plan.baseOptions.c_str());
    for (size_t i = 0; i < plan.dirs.size(); ++i) {
        if (::mkdir(plan.dirs[i].c_str(), 0755) != 0)
            fail(plan, StepMakeDir, static_cast<int>(i), errno);
    }

    // overlayfs refuses lower layers that lie inside another layer (every directory lies
    // inside "/"), so the layers are copied onto the tmpfs first.
    for (size_t i = 0; i < copyArgv.size(); ++i) {
        pid_t cp = startProgram(copyArgv[i].data());
        if (cp < 0)
            fail(plan, StepForkCopy, static_cast<int>(i), errno);
        int status = 0;
        if (waitFor(cp, &status) < 0)
            fail(plan, StepCopyLayer, static_cast<int>(i), errno);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            fail(plan, StepCopyLayer, static_cast<int>(i), 0, status);
    }

    // The upper directory gives the merged root its owner and mode.
    if (::chown(plan.upper.c_str(), plan.rootUid, plan.rootGid) != 0 ||
        ::chmod(plan.upper.c_str(), plan.rootMode) != 0)
        fail(plan, StepRootOwner, 0, errno);

    mountOrFail(plan, StepMountOverlay, 0, MountSource, plan.merged.c_str(), "overlay", 0,
                plan.overlayOptions.c_str());
    struct stat mergedStat;
    struct statfs mergedFs;
    if (::stat(plan.merged.c_str(), &mergedStat) != 0 ||
        ::statfs(plan.merged.c_str(), &mergedFs) != 0)
        fail(plan, StepCheckOverlay, 0, errno);
    if (mergedFs.f_type != static_cast<decltype(mergedFs.f_type)>(OVERLAYFS_SUPER_MAGIC) ||
        mergedStat.st_dev == plan.hostRootDev)
        fail(plan, StepCheckOverlay);

    mountOrFail(plan, StepBindHost, 0, "/", plan.host.c_str(), nullptr, MS_BIND, nullptr);
    mountOrFail(plan, StepReadOnlyHost, 0, nullptr, plan.host.c_str(), nullptr,
                MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr);

    for (size_t i = 0; i < plan.systemDirs.size(); ++i) {
        mountOrFail(plan, StepBindSystem, static_cast<int>(i), plan.systemDirs[i].c_str(),
                    plan.systemTargets[i].c_str(), nullptr, MS_BIND | MS_REC, nullptr);
    }
    mountOrFail(plan, StepMountTmp, 0, MountSource, plan.mergedTmp.c_str(), "tmpfs", 0,
                plan.tmpOptions.c_str());
    // /dev came from the host by bind: give the sandbox its own shared memory too.
    struct stat shm;
    if (::lstat(plan.mergedShm.c_str(), &shm) == 0 && S_ISDIR(shm.st_mode)) {
        mountOrFail(plan, StepMountShm, 0, MountSource, plan.mergedShm.c_str(), "tmpfs",
                    MS_NOSUID | MS_NODEV, plan.tmpOptions.c_str());
    }

    // Shared host directories come last, so that they also show through the fresh /tmp. Each
    // is an overlay of its own with its upper layer on the tmpfs: copy-on-write like the root.
    for (size_t i = 0; i < plan.shareDirs.size(); ++i) {
        if (::mkdir(plan.shareDirs[i].c_str(), 0755) != 0 && errno != EEXIST)
            fail(plan, StepMakeShareDir, static_cast<int>(i), errno);
    }
    for (size_t i = 0; i < plan.shareSources.size(); ++i) {
        mountOrFail(plan, StepMountShare, static_cast<int>(i), MountSource,
                    plan.shareTargets[i].c_str(), "overlay", 0, plan.shareOptions[i].c_str());
    }

    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        fail(plan, StepSubreaper, 0, errno);
    SandboxSignals signals;
    takeSignals(signals);
    if (callerTerminate.sa_handler == SIG_IGN)
        signals.terminate = callerTerminate;
    pid_t self = ::getpid();
    pid_t command = ::fork();
    if (command < 0)
        fail(plan, StepForkCommand, 0, errno);
    if (command == 0)
        commandMain(plan, self, mergedStat.st_dev, argv, envp, signals);
    commandPid = command;
    if (stopRequested)
        ::kill(command, SIGKILL);

    // Wait without reaping first: the handler must never kill a pid that was reused.
    siginfo_t info;
    int waited;
    do {
        waited = ::waitid(P_PID, static_cast<id_t>(command), &info, WEXITED | WNOWAIT);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0)
        fail(plan, StepWaitCommand, 0, errno);
    commandPid = 0;
    int status = 0;
    if (waitFor(command, &status) < 0)
        fail(plan, StepWaitCommand, 0, errno);
    killLeftovers();
    sendRecord(plan, RecordDone, StepWaitCommand, 0, 0, status);

    // Keep the namespace, and with it the upper layer, until the caller has looked at it.
    for (;;) {
        char byte;
        ssize_t n = ::read(plan.releaseFd, &byte, 1);
        if (n > 0 || (n < 0 && errno == EINTR))
            continue;
        break;
    }
    ::_exit(0);
}

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

std::string describeFailure(const Plan &plan, const std::vector<std::string> &layers,
                            const Record &r)
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
        step = "fork cp for layer " + at(layers, r.index);
        break;
    case StepCopyLayer:
        step = "copy layer " + at(layers, r.index) + " to " + at(plan.layerDirs, r.index);
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

// Resolves each of dirs to the real path of an existing directory other than "/"; returns
// what is wrong with the first one that is not, or an empty text.
std::string resolveDirectories(const std::vector<std::string> &dirs, const char *what,
                               std::vector<std::string> &resolved)
{
    for (const std::string &dir : dirs) {
        char *real = ::realpath(dir.c_str(), nullptr);
        if (!real)
            return std::string(what) + ' ' + dir + ": " + std::strerror(errno);
        resolved.emplace_back(real);
        std::free(real);
        struct stat st;
        if (::stat(resolved.back().c_str(), &st) != 0)
            return std::string(what) + ' ' + dir + ": " + std::strerror(errno);
        if (!S_ISDIR(st.st_mode))
            return std::string(what) + ' ' + dir + ": " + std::strerror(ENOTDIR);
        if (resolved.back() == "/")
            return std::string(what) + ' ' + dir + ": is the real root itself";
    }
    return {};
}

bool validSize(const std::string &size)
{
    size_t digits = 0;
    while (digits < size.size() && size[digits] >= '0' && size[digits] <= '9')
        ++digits;
    if (digits == 0)
        return false;
    if (digits == size.size())
        return true;
    return digits + 1 == size.size() && size[digits] != '\0' &&
           std::strchr("kKmMgGtTpPeE%", size[digits]) != nullptr;
}

bool isEmptyDir(const std::string &path)
{
    DIR *dir = ::opendir(path.c_str());
    if (!dir)
        return false;
    bool empty = true;
    while (struct dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    ::closedir(dir);
    return empty;
}

std::string currentDir()
{
    std::vector<char> buffer(4096);
    for (;;) {
        if (::getcwd(buffer.data(), buffer.size()))
            return std::string(buffer.data());
        if (errno != ERANGE)
            return "/";
        buffer.resize(buffer.size() * 2);
    }
}

std::string absolutePath(const std::string &path, const std::string &cwd)
{
    if (!path.empty() && path[0] == '/')
        return path;
    return (cwd == "/" ? std::string() : cwd) + '/' + path;
}

std::string parentDir(const std::string &path)
{
    std::string p = path;
    while (p.size() > 1 && p.back() == '/')
        p.pop_back();
    size_t slash = p.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? std::string("/") : p.substr(0, slash);
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
        ::kill(pid, SIGTERM); // see onStop()
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

    if (command.empty() || command[0].empty())
        return failed("no command given");
    if (::geteuid() != 0)
        return failed("must be run as root (mount namespaces and overlays need it)");
    if (!validSize(m_tmpfsSize))
        return failed("invalid tmpfs size '" + m_tmpfsSize +
                      "' (a number with an optional k, m, g or % suffix)");

    Plan plan;
    plan.caller = ::getpid();
    plan.cwd = currentDir();

    std::vector<std::string> layers;
    std::vector<std::string> shares;
    std::string problem = resolveDirectories(m_layers, "layer", layers);
    if (problem.empty())
        problem = resolveDirectories(m_shares, "shared directory", shares);
    if (!problem.empty())
        return failed(problem);

    std::string keep;
    bool createKeep = false;
    if (!m_keepDir.empty()) {
        keep = absolutePath(m_keepDir, plan.cwd);
        struct stat st;
        if (::stat(keep.c_str(), &st) == 0) {
            if (!S_ISDIR(st.st_mode))
                return failed("keep directory " + m_keepDir + ": " + std::strerror(ENOTDIR));
            if (!isEmptyDir(keep))
                return failed("keep directory " + m_keepDir + ": " + std::strerror(ENOTEMPTY));
        } else if (errno == ENOENT) {
            struct stat parent;
            if (::stat(parentDir(keep).c_str(), &parent) != 0 || !S_ISDIR(parent.st_mode))
                return failed("keep directory " + m_keepDir +
                              ": its parent directory does not exist");
            createKeep = true;
        } else {
            return failed("keep directory " + m_keepDir + ": " + std::strerror(errno));
        }
    }

    // The namespace the caller runs in, recorded before leaving it: /proc/1/ns/mnt cannot be
    // read, so this is how a command can tell it is not on the real machine.
    struct stat ns;
    if (::stat("/proc/self/ns/mnt", &ns) != 0)
        return failed(std::string("read /proc/self/ns/mnt: ") + std::strerror(errno));
    struct stat root;
    if (::stat("/", &root) != 0)
        return failed(std::string("stat /: ") + std::strerror(errno));
    plan.rootUid = root.st_uid;
    plan.rootGid = root.st_gid;
    plan.rootMode = root.st_mode & 07777;
    plan.hostRootDev = root.st_dev;

    char baseTemplate[] = "/tmp/zsb.XXXXXX";
    if (!::mkdtemp(baseTemplate))
        return failed(std::string("create a directory in /tmp: ") + std::strerror(errno));
    plan.base = baseTemplate;
    struct BaseDir
    {
        std::string path;
        ~BaseDir() { ::rmdir(path.c_str()); } // empty: the tmpfs was only in the namespace
    } baseDir{plan.base};

    plan.baseOptions = "mode=0700,size=" + m_tmpfsSize;
    plan.tmpOptions = "mode=1777,size=" + m_tmpfsSize;
    std::string lowerDirs;
    for (size_t i = 0; i < layers.size(); ++i) {
        std::string dir = plan.base + "/l" + std::to_string(i);
        plan.layerDirs.push_back(dir);
        plan.dirs.push_back(dir);
        plan.copyArgs.push_back({"cp", "-a", "--", layers[i] + "/.", dir + '/'});
        lowerDirs = dir + ':' + lowerDirs; // later layers lie above
    }
    lowerDirs += '/';
    plan.upper = plan.base + "/upper";
    plan.work = plan.base + "/work";
    plan.merged = plan.base + "/merged";
    plan.host = plan.base + "/host";
    plan.dirs.insert(plan.dirs.end(), {plan.upper, plan.work, plan.merged, plan.host});
    plan.overlayOptions =
        "lowerdir=" + lowerDirs + ",upperdir=" + plan.upper + ",workdir=" + plan.work;
    for (const char *dir : {"/proc", "/sys", "/dev"}) {
        plan.systemDirs.emplace_back(dir);
        plan.systemTargets.push_back(plan.merged + dir);
    }
    plan.mergedTmp = plan.merged + "/tmp";
    plan.mergedShm = plan.merged + "/dev/shm";
    for (size_t i = 0; i < shares.size(); ++i) {
        const std::string &share = shares[i];
        const std::string upper = plan.base + "/s" + std::to_string(i) + "u";
        const std::string work = plan.base + "/s" + std::to_string(i) + "w";
        plan.dirs.insert(plan.dirs.end(), {upper, work});
        plan.shareSources.push_back(share);
        plan.shareTargets.push_back(plan.merged + share);
        plan.shareOptions.push_back("lowerdir=" + share + ",upperdir=" + upper +
                                    ",workdir=" + work);
        for (size_t slash = share.find('/', 1); slash != std::string::npos;
             slash = share.find('/', slash + 1))
            plan.shareDirs.push_back(plan.merged + share.substr(0, slash));
        plan.shareDirs.push_back(plan.merged + share);
    }

    plan.args = command;
    for (char **e = environ; e && *e; ++e) {
        if (std::strncmp(*e, "ZQL_SANDBOX=", 12) != 0 &&
            std::strncmp(*e, "ZQL_SANDBOX_HOST_MNTNS=", 23) != 0)
            plan.env.emplace_back(*e);
    }
    plan.env.emplace_back("ZQL_SANDBOX=1");
    plan.env.push_back("ZQL_SANDBOX_HOST_MNTNS=" + std::to_string(ns.st_ino));
    plan.execFailure = std::string(ErrorPrefix) + "cannot run '" + command[0] + "': ";

    std::vector<char *> argv = pointers(plan.args);
    std::vector<char *> envp = pointers(plan.env);
    std::vector<std::vector<char *>> copyArgv;
    for (const std::vector<std::string> &args : plan.copyArgs)
        copyArgv.push_back(pointers(args));

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
        sandboxMain(plan, argv.data(), envp.data(), copyArgv);
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
            for (size_t i = layers.size(); i-- > 0;)
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
        if (!keep.empty() && postError.empty() && !inspectorFailure) {
            int status = 0;
            if (createKeep && ::mkdir(keep.c_str(), 0700) != 0) {
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
        std::rethrow_exception(inspectorFailure); // baseDir is removed on the way out

    if (setupFailed) {
        m_error = describeFailure(plan, layers, failure);
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
