#include "unifieddiff.h"

#include "posixio_p.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

const char DiffProgram[] = "diff";
const char DevNull[] = "/dev/null";
const char DefaultSearchPath[] = "/bin:/usr/bin"; // what execvp() uses without PATH
const char Locale[] = "LC_ALL=C";                 // stable messages from diff
const mode_t SymlinkMode = S_IFLNK;               // git records no permission bits for a link
const int DiffSame = 0;
const int DiffDiffer = 1;
const int ExecFailed = 127;
const size_t MaxDiffMessage = 4096; // of diff's standard error, kept for the error text

// Holds SIGPIPE back from the calling thread while the diff is written, so that a reader that
// went away makes write() fail with EPIPE instead of ending the caller. A SIGPIPE caused
// meanwhile is taken off again; one that was pending before stays.
class PipeSignalBlock
{
public:
    PipeSignalBlock()
    {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &m_pipe, &m_callerMask);
        sigset_t pending;
        m_wasPending = ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }
    PipeSignalBlock(const PipeSignalBlock &) = delete;
    PipeSignalBlock &operator=(const PipeSignalBlock &) = delete;
    ~PipeSignalBlock()
    {
        sigset_t pending;
        if (!m_wasPending && ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) {
            const struct timespec now = {0, 0};
            while (::sigtimedwait(&m_pipe, nullptr, &now) < 0 && errno == EINTR) {
            }
        }
        ::pthread_sigmask(SIG_SETMASK, &m_callerMask, nullptr);
    }
    // The caller's own mask, which diff gets.
    const sigset_t &callerMask() const { return m_callerMask; }

private:
    sigset_t m_pipe;
    sigset_t m_callerMask;
    bool m_wasPending = false;
};

// The first executable regular file called name in PATH, as execvp() would find it.
std::string findProgram(const char *name, std::string *searched)
{
    const char *path = std::getenv("PATH");
    *searched = path ? path : DefaultSearchPath;
    size_t start = 0;
    for (;;) {
        const size_t colon = searched->find(':', start);
        std::string dir = searched->substr(start, colon - start);
        if (dir.empty())
            dir = ".";
        std::string candidate = dir + '/' + name;
        struct stat st;
        if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
            ::access(candidate.c_str(), X_OK) == 0)
            return candidate;
        if (colon == std::string::npos)
            return {};
        start = colon + 1;
    }
}

// The caller's environment with LC_ALL=C.
std::vector<std::string> diffEnvironment()
{
    std::vector<std::string> env;
    for (char **e = environ; e && *e; ++e) {
        if (std::strncmp(*e, "LC_ALL=", 7) != 0)
            env.emplace_back(*e);
    }
    env.emplace_back(Locale);
    return env;
}

// git's six octal digits: the file type and the permission bits.
std::string gitMode(const struct stat &st)
{
    const mode_t mode = S_ISLNK(st.st_mode) ? SymlinkMode : st.st_mode & (S_IFMT | 07777);
    char text[16];
    std::snprintf(text, sizeof text, "%06o", static_cast<unsigned>(mode));
    return text;
}

std::string typeName(const struct stat &st)
{
    auto device = [&st](const char *kind) {
        return std::string(kind) + ' ' + std::to_string(major(st.st_rdev)) + ':' +
               std::to_string(minor(st.st_rdev));
    };
    switch (st.st_mode & S_IFMT) {
    case S_IFREG:
        return "regular file";
    case S_IFDIR:
        return "directory";
    case S_IFLNK:
        return "symbolic link";
    case S_IFIFO:
        return "fifo";
    case S_IFSOCK:
        return "socket";
    case S_IFCHR:
        return device("character device");
    case S_IFBLK:
        return device("block device");
    }
    return "unknown file type";
}

std::string owner(const struct stat &st)
{
    return std::to_string(st.st_uid) + ':' + std::to_string(st.st_gid);
}

// A file other than a regular file, a directory or a symbolic link.
bool isOtherKind(const struct stat &st)
{
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode) && !S_ISLNK(st.st_mode);
}

// One version of a changed file: its status and, for a symbolic link, its target.
struct Version
{
    std::string path;
    struct stat st;
    std::string target;
};

class DiffWriter
{
public:
    DiffWriter(int fd, std::string diff, const sigset_t &childMask)
        : m_fd(fd)
        , m_diff(std::move(diff))
        , m_env(diffEnvironment())
        , m_childMask(childMask)
    {}

    bool write(const ChangedFile &file);
    const std::string &error() const { return m_error; }

private:
    bool read(const std::string &path, const char *which, Version &version);
    bool writeText(const std::string &text);
    bool runDiff(const std::string &oldLabel, const std::string &newLabel,
                 const std::string &oldFile, const std::string &newFile);

    int m_fd;
    std::string m_diff;
    std::vector<std::string> m_env;
    sigset_t m_childMask;
    std::string m_path; // the entry being written, for messages
    std::string m_error;
};

bool DiffWriter::read(const std::string &path, const char *which, Version &version)
{
    if (path.empty()) {
        m_error = m_path + ": no path to its " + which + " version";
        return false;
    }
    version.path = path;
    if (::lstat(path.c_str(), &version.st) != 0) {
        m_error = "read " + path + ": " + std::strerror(errno);
        return false;
    }
    if (S_ISLNK(version.st.st_mode)) {
        std::vector<char> buffer(static_cast<size_t>(version.st.st_size) + 1);
        const ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
        if (n < 0) {
            m_error = "read the link " + path + ": " + std::strerror(errno);
            return false;
        }
        version.target.assign(buffer.data(), static_cast<size_t>(n));
    }
    return true;
}

bool DiffWriter::writeText(const std::string &text)
{
    if (writeAll(m_fd, text.data(), text.size()))
        return true;
    m_error = "write the diff of " + m_path + ": " + std::strerror(errno);
    return false;
}

// Runs diff -u with its standard output on m_fd. Status 0 (same) and 1 (differ) are success.
bool DiffWriter::runDiff(const std::string &oldLabel, const std::string &newLabel,
                         const std::string &oldFile, const std::string &newFile)
{
    const std::vector<std::string> args{m_diff,    "-u",     "--label", oldLabel,
                                        "--label", newLabel, oldFile,   newFile};
    std::vector<char *> argv = pointers(args);
    std::vector<char *> envp = pointers(m_env);
    int messages[2];
    if (::pipe2(messages, O_CLOEXEC) != 0) {
        m_error = std::string("create a pipe: ") + std::strerror(errno);
        return false;
    }
    // The child only makes system calls: the caller may have other threads.
    const pid_t pid = ::fork();
    if (pid < 0) {
        m_error = "fork " + m_diff + ": " + std::strerror(errno);
        ::close(messages[0]);
        ::close(messages[1]);
        return false;
    }
    if (pid == 0) {
        // dup2() leaves close-on-exec set when the descriptor already is standard output.
        const bool outputReady = m_fd == STDOUT_FILENO ? ::fcntl(m_fd, F_SETFD, 0) == 0
                                                       : ::dup2(m_fd, STDOUT_FILENO) >= 0;
        if (outputReady && ::dup2(messages[1], STDERR_FILENO) >= 0) {
            ::sigprocmask(SIG_SETMASK, &m_childMask, nullptr);
            ::execve(argv[0], argv.data(), envp.data());
        }
        const char *reason = ::strerrordesc_np(errno);
        writeAll(messages[1], reason, std::strlen(reason));
        ::_exit(ExecFailed);
    }
    ::close(messages[1]);
    std::string message;
    char buffer[512];
    for (;;) {
        const ssize_t n = ::read(messages[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        if (message.size() < MaxDiffMessage)
            message.append(buffer, static_cast<size_t>(n));
    }
    ::close(messages[0]);
    while (!message.empty() && message.back() == '\n')
        message.pop_back();

    int status = 0;
    if (waitFor(pid, &status) != pid) {
        m_error = "wait for " + m_diff + ": " + std::strerror(errno);
        return false;
    }
    if (WIFEXITED(status) && (WEXITSTATUS(status) == DiffSame || WEXITSTATUS(status) == DiffDiffer))
        return true;
    if (WIFEXITED(status) && WEXITSTATUS(status) == ExecFailed) {
        m_error = "cannot run " + m_diff + ": " + message;
    } else if (WIFEXITED(status)) {
        m_error = m_diff + " failed on " + m_path + " with status " +
                  std::to_string(WEXITSTATUS(status)) + (message.empty() ? "" : ": ") + message;
    } else if (WIFSIGNALED(status)) {
        m_error =
            m_diff + " was killed by signal " + std::to_string(WTERMSIG(status)) + " on " + m_path;
    } else {
        m_error = m_diff + " ended abnormally on " + m_path;
    }
    return false;
}

bool DiffWriter::write(const ChangedFile &file)
{
    const std::string &path = file.change.path;
    m_path = path;
    const std::string p = !path.empty() && path[0] == '/' ? path.substr(1) : path;
    const std::string a = "a/" + p;
    const std::string b = "b/" + p;
    std::string head = "diff --git " + a + ' ' + b + '\n';

    Version before, after;
    const bool hasBefore = file.change.kind != 'A';
    const bool hasAfter = file.change.kind != 'D';
    if ((hasBefore && !read(file.before, "old", before)) ||
        (hasAfter && !read(file.after, "new", after)))
        return false;

    if (!hasBefore) {
        if (S_ISDIR(after.st.st_mode)) {
            head += "new directory mode " + gitMode(after.st) + '\n';
        } else {
            head += "new file mode " + gitMode(after.st) + '\n';
            if (isOtherKind(after.st))
                head += "new type " + typeName(after.st) + '\n';
        }
    } else if (!hasAfter) {
        if (S_ISDIR(before.st.st_mode)) {
            head += "deleted directory mode " + gitMode(before.st) + '\n';
        } else {
            head += "deleted file mode " + gitMode(before.st) + '\n';
            if (isOtherKind(before.st))
                head += "old type " + typeName(before.st) + '\n';
        }
    } else {
        if (typeName(before.st) != typeName(after.st))
            head += "old type " + typeName(before.st) + "\nnew type " + typeName(after.st) + '\n';
        if (gitMode(before.st) != gitMode(after.st))
            head += "old mode " + gitMode(before.st) + "\nnew mode " + gitMode(after.st) + '\n';
        if (owner(before.st) != owner(after.st))
            head += "old owner " + owner(before.st) + "\nnew owner " + owner(after.st) + '\n';
    }

    const bool oldLink = hasBefore && S_ISLNK(before.st.st_mode);
    const bool newLink = hasAfter && S_ISLNK(after.st.st_mode);
    const bool sameTarget = oldLink && newLink && before.target == after.target;
    if (oldLink && !sameTarget)
        head += "old symlink " + before.target + '\n';
    if (newLink && !sameTarget)
        head += "new symlink " + after.target + '\n';
    if (!writeText(head))
        return false;

    // Content: of the new version when it is a regular file (against the old one if that was
    // one too), or of a deleted regular file.
    const bool oldRegular = hasBefore && S_ISREG(before.st.st_mode);
    const bool newRegular = hasAfter && S_ISREG(after.st.st_mode);
    if (newRegular && oldRegular)
        return runDiff(a, b, before.path, after.path);
    if (newRegular)
        return runDiff(DevNull, b, DevNull, after.path);
    if (oldRegular && !hasAfter)
        return runDiff(a, DevNull, before.path, DevNull);
    return true;
}

} // namespace

bool writeUnifiedDiff(const std::vector<ChangedFile> &files, int fd, std::string *error)
{
    if (files.empty())
        return true;
    // Looked up first, so that nothing is written when diff is missing.
    std::string searched;
    std::string diff = findProgram(DiffProgram, &searched);
    if (diff.empty()) {
        if (error)
            *error =
                std::string("cannot run ") + DiffProgram + ": not found in PATH (" + searched + ')';
        return false;
    }
    PipeSignalBlock pipeSignal;
    DiffWriter writer(fd, std::move(diff), pipeSignal.callerMask());
    for (const ChangedFile &file : files) {
        if (!writer.write(file)) {
            if (error)
                *error = writer.error();
            return false;
        }
    }
    return true;
}

} // namespace ZqlSandbox
