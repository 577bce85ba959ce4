// Runs in the processes that Sandbox::run() forks, from fork() until exec() or _exit().
//
// The caller may have other threads, and one of them may have held the allocator's lock (or
// another lock) at fork time. So nothing here may allocate or take a lock: only system calls,
// async-signal-safe functions, the helpers of posixio_p.h that say so, and glibc's execvp(),
// which allocates nothing. Everything comes prepared in the Plan; failures go to the caller as
// a Record (a step, an index and errno), which it turns into text.
#include "sandboxchild_p.h"

#include "posixio_p.h"
#include "sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
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

const char MountSource[] = "zql-sandbox";

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

void setDefaultAction(int sig)
{
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(sig, &action, nullptr);
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
        if (handled || sig == SIGCHLD) // SIGCHLD ignored would break waitpid()
            setDefaultAction(sig);
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
                              const SandboxSignals &signals)
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

    environ = const_cast<char **>(plan.envp.data()); // execvp() only reads it
    ::execvp(plan.argv[0], plan.argv.data());
    int error = errno;
    sendRecord(plan, RecordNotStarted, StepExec, 0, error, 0);
    writeString(STDERR_FILENO, plan.execFailure.c_str());
    writeString(STDERR_FILENO, ::strerrordesc_np(error));
    writeString(STDERR_FILENO, "\n");
    ::_exit(127);
}

// The first process of the command's PID namespace: mounts the namespace's own /proc, runs the
// command, reaps whatever is orphaned meanwhile, and passes the command's wait status to the
// sandbox process on @p statusFd. Terminal signals do not end it (the kernel keeps default
// signals from the first process of a namespace), so it outlives the command to report.
[[noreturn]] void initMain(const Plan &plan, int parentAliveFd, dev_t mergedDev,
                           const SandboxSignals &signals, int statusFd)
{
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        fail(plan, StepParentDeath, 0, errno);
    // Its parent lies outside the namespace, so getppid() says nothing: the sandbox process
    // holds the other end of parentAliveFd, and a hang-up there means it died before the
    // parent-death signal was set.
    struct pollfd parent = {parentAliveFd, POLLIN, 0};
    if (::poll(&parent, 1, 0) != 0)
        ::_exit(Sandbox::ExitSetupFailed);
    if (::mount("proc", plan.mergedProc.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC,
                nullptr) != 0)
        fail(plan, StepMountProc, 0, errno);
    pid_t self = ::getpid();
    pid_t command = ::fork();
    if (command < 0)
        fail(plan, StepForkCommand, 0, errno);
    if (command == 0)
        commandMain(plan, self, mergedDev, signals);
    int status = 0;
    for (;;) {
        int reaped = 0;
        const pid_t pid = ::waitpid(-1, &reaped, 0);
        if (pid == command) {
            status = reaped;
            break;
        }
        if (pid < 0 && errno != EINTR)
            fail(plan, StepWaitCommand, 0, errno);
    }
    writeAll(statusFd, &status, sizeof status);
    ::_exit(0); // the kernel now ends what the command left running
}

void mountOrFail(const Plan &plan, Step step, int index, const char *source, const char *target,
                 const char *type, unsigned long flags, const char *options)
{
    if (::mount(source, target, type, flags, options) != 0)
        fail(plan, step, index, errno);
}

} // namespace

// The process that owns the mount namespace. Uses only system calls and prepared data.
[[noreturn]] void sandboxMain(const Plan &plan)
{
    // SIGTERM must end the set-up even if the caller ignores it; the command gets the
    // caller's disposition back (a handler becomes the default, as across exec).
    struct sigaction callerTerminate;
    ::sigaction(SIGTERM, nullptr, &callerTerminate);
    resetSignals();
    setDefaultAction(SIGTERM);
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
    for (size_t i = 0; i < plan.copyArgv.size(); ++i) {
        pid_t cp = startProgram(plan.copyArgv[i].data());
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

    // The command runs in a PID namespace of its own, below a first process (its init): when
    // that process ends, the kernel kills whatever is left in the namespace, so nothing the
    // command started outlives the sandbox, even when the sandbox itself is killed.
    int statusPipe[2];
    int alivePipe[2];
    if (::pipe2(statusPipe, O_CLOEXEC) != 0 || ::pipe2(alivePipe, O_CLOEXEC) != 0)
        fail(plan, StepForkInit, 0, errno);
    if (::unshare(CLONE_NEWPID) != 0)
        fail(plan, StepUnsharePid, 0, errno);
    pid_t init = ::fork();
    if (init < 0)
        fail(plan, StepForkInit, 0, errno);
    if (init == 0) {
        ::close(statusPipe[0]);
        ::close(alivePipe[1]);
        initMain(plan, alivePipe[0], mergedStat.st_dev, signals, statusPipe[1]);
    }
    ::close(statusPipe[1]);
    ::close(alivePipe[0]); // the write end stays open as long as this process lives
    commandPid = init;
    if (stopRequested)
        ::kill(init, SIGKILL);

    // Wait without reaping first: the handler must never kill a pid that was reused.
    siginfo_t info;
    int waited;
    do {
        waited = ::waitid(P_PID, static_cast<id_t>(init), &info, WEXITED | WNOWAIT);
    } while (waited < 0 && errno == EINTR);
    if (waited < 0)
        fail(plan, StepWaitCommand, 0, errno);
    commandPid = 0;
    int initStatus = 0;
    if (waitFor(init, &initStatus) < 0)
        fail(plan, StepWaitCommand, 0, errno);
    // The command's own status, as its init passed it on; an init that was killed (by a stop,
    // say) took the command with it, and its status stands for the command's.
    int status = initStatus;
    size_t got = 0;
    int passed = 0;
    if (readFull(statusPipe[0], &passed, sizeof passed, got) && got == sizeof passed)
        status = passed;
    ::close(statusPipe[0]);
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

} // namespace ZqlSandbox
