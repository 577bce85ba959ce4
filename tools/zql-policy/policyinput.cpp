#include "policyinput.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZqlPolicy {

namespace {
bool closedAtStart[3] = {false, false, false};

QString systemReason(int errnum)
{
    return QString::fromLocal8Bit(std::strerror(errnum));
}

QString tooLarge()
{
    return QStringLiteral("larger than %1 MiB")
        .arg(PolicyInput::MaximumSize / (qint64(1024) * 1024));
}
} // namespace

int PolicyInput::openRegularFile(const QString &fileName, QString *failure)
{
    // Opened without blocking: a FIFO would otherwise wait for a writer before fstat could
    // tell what it is.
    const int fd = ::open(QFile::encodeName(fileName).constData(),
                          O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        *failure = systemReason(errno);
        return -1;
    }
    struct stat info = {};
    if (::fstat(fd, &info) != 0) {
        *failure = systemReason(errno);
        ::close(fd);
        return -1;
    }
    if (!S_ISREG(info.st_mode)) {
        *failure = S_ISDIR(info.st_mode) ? systemReason(EISDIR)
                                         : QStringLiteral("not a regular file (give a file, or "
                                                          "- for standard input)");
        ::close(fd);
        return -1;
    }
    if (info.st_size > MaximumSize) {
        *failure = tooLarge();
        ::close(fd);
        return -1;
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        *failure = systemReason(errno);
        ::close(fd);
        return -1;
    }
    return fd;
}

bool PolicyInput::readAll(int fd, QByteArray *text, QString *failure)
{
    text->clear();
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            *failure = systemReason(errno);
            return false;
        }
        if (got == 0)
            return true;
        if (text->size() + got > MaximumSize) {
            *failure = tooLarge();
            return false;
        }
        text->append(buffer, static_cast<int>(got));
    }
}

bool PolicyInput::read(const QString &fileName, QByteArray *text, QString *failure)
{
    if (fileName.isEmpty()) {
        if (StandardStreams::wasClosed(STDIN_FILENO)) {
            *failure = QStringLiteral("standard input is closed");
            return false;
        }
        return readAll(STDIN_FILENO, text, failure);
    }
    const int fd = openRegularFile(fileName, failure);
    if (fd < 0)
        return false;
    const bool read = readAll(fd, text, failure);
    ::close(fd);
    return read;
}

void StandardStreams::hold()
{
    for (int fd = 0; fd < 3; ++fd) {
        if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF)
            continue;
        closedAtStart[fd] = true;
        // open() takes the lowest free descriptor, which is this one.
        const int held = ::open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
        if (held >= 0 && held != fd)
            ::close(held);
    }
}

bool StandardStreams::wasClosed(int fd)
{
    return fd >= 0 && fd < 3 && closedAtStart[fd];
}

} // namespace ZqlPolicy
