#include "sandbox.h"

#include "changewalk.h"
#include "posixio_p.h"
#include "sandboxchild_p.h"
#include "sandboxplan_p.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <dirent.h>
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
