// Small POSIX helpers shared by the sandbox, its change walk and the diff renderer.
//
// writeAll(), readFull(), waitFor(), startProgram() and Fd::reset() make only system calls
// and allocate nothing: they are also used in forked processes of a possibly multi-threaded
// caller, where another thread may have held the allocator's lock at fork time. pointers()
// allocates and must be called before fork().
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ZqlSandbox {

// Writes all of data to fd, again after EINTR. False on a failed or empty write (errno set).
bool writeAll(int fd, const void *data, size_t size);

// Reads up to size bytes, fewer only at end of file; got says how many. False on an error
// (errno set), again after EINTR.
bool readFull(int fd, void *buffer, size_t size, size_t &got);

// waitpid(pid, status, 0), again after EINTR.
pid_t waitFor(pid_t pid, int *status);

// Forks a child that runs argv (argv[0] looked up in PATH) and exits 127 if it cannot.
// Returns the child's pid, or -1 with errno set when fork() failed.
pid_t startProgram(char *const *argv);

// The C strings of strings, null-terminated, as execve() takes them. Build it before fork():
// the child must not allocate. The strings must outlive the result.
std::vector<char *> pointers(const std::vector<std::string> &strings);

// Closes a file descriptor when it goes out of scope.
class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd)
        : m_fd(fd)
    {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }

    int get() const { return m_fd; }
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

} // namespace ZqlSandbox
