#include "posixio_p.h"

#include <cerrno>

#include <sys/wait.h>
#include <unistd.h>

namespace ZqlSandbox {

bool writeAll(int fd, const void *data, size_t size)
{
    const char *p = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd, p, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool readFull(int fd, void *buffer, size_t size, size_t &got)
{
    char *p = static_cast<char *>(buffer);
    got = 0;
    while (got < size) {
        const ssize_t n = ::read(fd, p + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
        got += static_cast<size_t>(n);
    }
    return true;
}

pid_t waitFor(pid_t pid, int *status)
{
    pid_t r;
    do {
        r = ::waitpid(pid, status, 0);
    } while (r < 0 && errno == EINTR);
    return r;
}

pid_t startProgram(char *const *argv)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execvp(argv[0], argv);
        ::_exit(127);
    }
    return pid;
}

std::vector<char *> pointers(const std::vector<std::string> &strings)
{
    std::vector<char *> result;
    result.reserve(strings.size() + 1);
    for (const std::string &s : strings)
        result.push_back(const_cast<char *>(s.c_str()));
    result.push_back(nullptr);
    return result;
}

void Fd::reset(int fd)
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = fd;
}

} // namespace ZqlSandbox
