#include "sandboxplan_p.h"

#include "posixio_p.h"
#include "sandbox.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

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

const char TemporaryDir[] = "/tmp";
const char BasePrefix[] = "zsb.";
// Taken while a base directory is created and locked, and while stale ones are looked for, so
// that a base is never taken for stale between its creation and its lock.
const char BaseCreationLock[] = "/tmp/zsb.lock";

bool isBaseName(const char *name)
{
    return std::strncmp(name, BasePrefix, sizeof BasePrefix - 1) == 0 &&
           std::strlen(name) == sizeof BasePrefix - 1 + 6;
}

// A sandbox whose caller was killed leaves its base directory in /tmp (empty there: its mounts
// were in the namespace that went with it). Every live sandbox holds a lock on its base; a
// base of ours that nobody holds is removed.
void removeStaleBases()
{
    DIR *dir = ::opendir(TemporaryDir);
    if (!dir)
        return;
    const int dirFd = ::dirfd(dir);
    while (const struct dirent *entry = ::readdir(dir)) {
        if (!isBaseName(entry->d_name))
            continue;
        struct stat st;
        if (::fstatat(dirFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid())
            continue;
        Fd base(::openat(dirFd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (base.get() < 0 || ::flock(base.get(), LOCK_EX | LOCK_NB) != 0)
            continue;                                   // in use
        ::unlinkat(dirFd, entry->d_name, AT_REMOVEDIR); // only ever empty
    }
    ::closedir(dir);
}

} // namespace

Plan::~Plan()
{
    if (!base.empty())
        ::rmdir(base.c_str());
}

std::string Plan::makeBase()
{
    Fd creation(::open(BaseCreationLock, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (creation.get() < 0 || ::flock(creation.get(), LOCK_EX) != 0)
        return std::string("lock ") + BaseCreationLock + ": " + std::strerror(errno);
    removeStaleBases();
    char baseTemplate[] = "/tmp/zsb.XXXXXX";
    if (!::mkdtemp(baseTemplate))
        return std::string("create a directory in /tmp: ") + std::strerror(errno);
    base = baseTemplate;
    baseLock.reset(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (baseLock.get() < 0 || ::flock(baseLock.get(), LOCK_EX) != 0)
        return "lock " + base + ": " + std::strerror(errno);
    return {};
}

std::string Plan::prepare(const Sandbox &sandbox, const std::vector<std::string> &command)
{
    if (command.empty() || command[0].empty())
        return "no command given";
    if (::geteuid() != 0)
        return "must be run as root (mount namespaces and overlays need it)";
    if (!validSize(sandbox.tmpfsSize()))
        return "invalid tmpfs size '" + sandbox.tmpfsSize() +
               "' (a number with an optional k, m, g or % suffix)";
    // tmpfs reads a size of 0 as no limit at all, which a size given to bound it must not mean.
    if (sandbox.tmpfsSize().find_first_not_of("0kKmMgGtTpPeE%") == std::string::npos)
        return "invalid tmpfs size '" + sandbox.tmpfsSize() +
               "' (tmpfs takes 0 as no limit; give a size above 0)";

    caller = ::getpid();
    cwd = currentDir();

    std::vector<std::string> shares;
    std::string problem = resolveDirectories(sandbox.layers(), "layer", layers);
    if (problem.empty())
        problem = resolveDirectories(sandbox.shares(), "shared directory", shares);
    if (problem.empty())
        problem = checkKeepDir(sandbox.keepDir());
    if (!problem.empty())
        return problem;

    // The namespace the caller runs in, recorded before leaving it: /proc/1/ns/mnt cannot be
    // read, so this is how a command can tell it is not on the real machine.
    struct stat ns;
    if (::stat("/proc/self/ns/mnt", &ns) != 0)
        return std::string("read /proc/self/ns/mnt: ") + std::strerror(errno);
    struct stat root;
    if (::stat("/", &root) != 0)
        return std::string("stat /: ") + std::strerror(errno);
    rootUid = root.st_uid;
    rootGid = root.st_gid;
    rootMode = root.st_mode & 07777;
    hostRootDev = root.st_dev;

    problem = makeBase();
    if (!problem.empty())
        return problem;

    layOut(shares, sandbox.tmpfsSize());
    prepareCommand(command, ns.st_ino);
    return {};
}

// The keep directory must be absent, with an existing parent, or an empty directory.
std::string Plan::checkKeepDir(const std::string &dir)
{
    if (dir.empty())
        return {};
    keep = absolutePath(dir, cwd);
    struct stat st;
    if (::stat(keep.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode))
            return "keep directory " + dir + ": " + std::strerror(ENOTDIR);
        if (!isEmptyDir(keep))
            return "keep directory " + dir + ": " + std::strerror(ENOTEMPTY);
    } else if (errno == ENOENT) {
        struct stat parent;
        if (::stat(parentDir(keep).c_str(), &parent) != 0 || !S_ISDIR(parent.st_mode))
            return "keep directory " + dir + ": its parent directory does not exist";
        createKeep = true;
    } else {
        return "keep directory " + dir + ": " + std::strerror(errno);
    }
    return {};
}

// The directories, mounts and copies under base.
void Plan::layOut(const std::vector<std::string> &shares, const std::string &tmpfsSize)
{
    baseOptions = "mode=0700,size=" + tmpfsSize;
    tmpOptions = "mode=1777,size=" + tmpfsSize;
    std::string lowerDirs;
    for (size_t i = 0; i < layers.size(); ++i) {
        std::string dir = base + "/l" + std::to_string(i);
        layerDirs.push_back(dir);
        dirs.push_back(dir);
        copyArgs.push_back({"cp", "-a", "--", layers[i] + "/.", dir + '/'});
        lowerDirs = dir + ':' + lowerDirs; // later layers lie above
    }
    lowerDirs += '/';
    upper = base + "/upper";
    work = base + "/work";
    merged = base + "/merged";
    host = base + "/host";
    dirs.insert(dirs.end(), {upper, work, merged, host});
    overlayOptions = "lowerdir=" + lowerDirs + ",upperdir=" + upper + ",workdir=" + work;
    for (const char *dir : {"/proc", "/sys", "/dev"}) {
        systemDirs.emplace_back(dir);
        systemTargets.push_back(merged + dir);
    }
    mergedProc = merged + "/proc";
    mergedTmp = merged + "/tmp";
    mergedShm = merged + "/dev/shm";
    for (size_t i = 0; i < shares.size(); ++i) {
        const std::string &share = shares[i];
        const std::string shareUpper = base + "/s" + std::to_string(i) + "u";
        const std::string shareWork = base + "/s" + std::to_string(i) + "w";
        dirs.insert(dirs.end(), {shareUpper, shareWork});
        shareSources.push_back(share);
        shareTargets.push_back(merged + share);
        shareOptions.push_back("lowerdir=" + share + ",upperdir=" + shareUpper +
                               ",workdir=" + shareWork);
        for (size_t slash = share.find('/', 1); slash != std::string::npos;
             slash = share.find('/', slash + 1))
            shareDirs.push_back(merged + share.substr(0, slash));
        shareDirs.push_back(merged + share);
    }
    for (const std::vector<std::string> &args : copyArgs)
        copyArgv.push_back(pointers(args));
}

// The command with the caller's environment, which tells it that it runs in the sandbox.
void Plan::prepareCommand(const std::vector<std::string> &command, ino_t hostMountNamespace)
{
    args = command;
    for (char **e = environ; e && *e; ++e) {
        if (std::strncmp(*e, "ZQL_SANDBOX=", 12) != 0 &&
            std::strncmp(*e, "ZQL_SANDBOX_HOST_MNTNS=", 23) != 0)
            env.emplace_back(*e);
    }
    env.emplace_back("ZQL_SANDBOX=1");
    env.push_back("ZQL_SANDBOX_HOST_MNTNS=" + std::to_string(hostMountNamespace));
    execFailure = std::string(ErrorPrefix) + "cannot run '" + command[0] + "': ";
    argv = pointers(args);
    envp = pointers(env);
}

} // namespace ZqlSandbox
