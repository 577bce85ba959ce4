#include "diagnosticrelay.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZqlPolicy {

namespace {

std::atomic<DiagnosticRelay *> currentRelay{nullptr};

const int ReadChunk = 65536;

void writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nowhere left to write it
        data += written;
        size -= static_cast<size_t>(written);
    }
}

// Whether two descriptors lead to the same file (both streams on one terminal, say).
bool sameFile(int first, int second)
{
    struct stat a = {};
    struct stat b = {};
    return ::fstat(first, &a) == 0 && ::fstat(second, &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino && a.st_rdev == b.st_rdev;
}

// A pipe whose write end replaces each of targets; returns the read end, or -1.
int pipeOnto(std::initializer_list<int> targets)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    bool ok = ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
    for (const int target : targets)
        ok = ok && ::dup2(ends[1], target) == target;
    ::close(ends[1]);
    if (!ok) {
        ::close(ends[0]);
        return -1;
    }
    return ends[0];
}

} // namespace

DiagnosticRelay::DiagnosticRelay(Notes notes)
{
    std::fflush(nullptr);
    m_savedOutput = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    m_savedError = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (m_savedOutput < 0 || m_savedError < 0 || ::pipe2(m_wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        stop();
        return;
    }
    const int notesTo = notes == Notes::ToStandardError ? m_savedError : m_savedOutput;
    // Both streams to one file: one pipe, so that they stay in the order they were written.
    if (sameFile(notesTo, m_savedError)) {
        m_channels[0] = {pipeOnto({STDOUT_FILENO, STDERR_FILENO}), m_savedError, false};
        m_channelCount = 1;
    } else {
        m_channels[0] = {pipeOnto({STDOUT_FILENO}), notesTo, false};
        m_channels[1] = {pipeOnto({STDERR_FILENO}), m_savedError, false};
        m_channelCount = 2;
    }
    for (int i = 0; i < m_channelCount; ++i) {
        if (m_channels[i].readEnd < 0) {
            stop();
            return;
        }
    }
    DiagnosticRelay *expected = nullptr;
    if (!currentRelay.compare_exchange_strong(expected, this)) {
        stop();
        return;
    }
    m_ok = true;
    m_thread = std::thread(&DiagnosticRelay::relay, this);
}

DiagnosticRelay::~DiagnosticRelay()
{
    stop();
}

void DiagnosticRelay::stop()
{
    std::fflush(nullptr);
    if (m_thread.joinable()) {
        writeAll(m_wake[1], "x", 1);
        m_thread.join();
    }
    // The real streams back first; then what is still in the pipes follows, line ended.
    if (m_savedOutput >= 0)
        ::dup2(m_savedOutput, STDOUT_FILENO);
    if (m_savedError >= 0)
        ::dup2(m_savedError, STDERR_FILENO);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        passOn();
    }
    DiagnosticRelay *self = this;
    currentRelay.compare_exchange_strong(self, nullptr);
    for (int i = 0; i < m_channelCount; ++i) {
        if (m_channels[i].readEnd >= 0)
            ::close(m_channels[i].readEnd);
        m_channels[i].readEnd = -1;
    }
    for (int *fd : {&m_wake[0], &m_wake[1], &m_savedOutput, &m_savedError}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
    m_ok = false;
}

void DiagnosticRelay::relay()
{
    for (;;) {
        pollfd watched[3] = {};
        watched[0] = {m_wake[0], POLLIN, 0};
        for (int i = 0; i < m_channelCount; ++i)
            watched[i + 1] = {m_channels[i].readEnd, POLLIN, 0};
        if (::poll(watched, static_cast<nfds_t>(m_channelCount) + 1, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (watched[0].revents != 0)
            return; // stop() drains what is left
        std::lock_guard<std::mutex> lock(m_mutex);
        for (int i = 0; i < m_channelCount; ++i) {
            if (watched[i + 1].revents != 0 && !drain(m_channels[i]))
                return; // every writer is gone
        }
    }
}

bool DiagnosticRelay::drain(Channel &channel)
{
    char buffer[ReadChunk];
    for (;;) {
        const ssize_t got = ::read(channel.readEnd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno == EAGAIN;
        if (got == 0)
            return false;
        writeAll(channel.destination, buffer, static_cast<size_t>(got));
        channel.lineOpen = buffer[got - 1] != '\n';
    }
}

void DiagnosticRelay::endOpenLines()
{
    for (int i = 0; i < m_channelCount; ++i) {
        if (m_channels[i].lineOpen)
            writeAll(m_channels[i].destination, "\n", 1);
        m_channels[i].lineOpen = false;
    }
}

void DiagnosticRelay::passOn()
{
    for (int i = 0; i < m_channelCount; ++i)
        drain(m_channels[i]);
    endOpenLines();
}

void DiagnosticRelay::endLines()
{
    std::fflush(nullptr);
    DiagnosticRelay *relay = currentRelay.load();
    if (!relay)
        return;
    std::lock_guard<std::mutex> lock(relay->m_mutex);
    relay->passOn();
}

void DiagnosticRelay::write(int fd, const QByteArray &bytes)
{
    DiagnosticRelay *relay = currentRelay.load();
    if (!relay) {
        writeAll(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
        return;
    }
    std::lock_guard<std::mutex> lock(relay->m_mutex);
    relay->passOn();
    writeAll(realFd(fd), bytes.constData(), static_cast<size_t>(bytes.size()));
}

int DiagnosticRelay::realFd(int fd)
{
    DiagnosticRelay *relay = currentRelay.load();
    if (!relay)
        return fd;
    if (fd == STDOUT_FILENO)
        return relay->m_savedOutput;
    if (fd == STDERR_FILENO)
        return relay->m_savedError;
    return fd;
}

} // namespace ZqlPolicy
