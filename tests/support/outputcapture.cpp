#include "outputcapture.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZqlTest {
namespace {
int anonymousFile()
{
    char name[] = "/tmp/zql-capture.XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd >= 0)
        ::unlink(name);
    return fd;
}

bool isSameFile(int a, int b)
{
    struct stat first = {};
    struct stat second = {};
    return ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 && first.st_ino == second.st_ino &&
           first.st_dev == second.st_dev;
}

QByteArray readAll(int fd)
{
    QByteArray bytes;
    if (fd < 0 || ::lseek(fd, 0, SEEK_SET) < 0)
        return bytes;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0)
            break;
        bytes.append(buffer, static_cast<int>(n));
    }
    return bytes;
}
} // namespace

OutputCapture::OutputCapture(Channels channels)
{
    std::fflush(stdout);
    std::fflush(stderr);
    m_outputFile = anonymousFile();
    m_errorFile = channels == MergedChannels ? ::dup(m_outputFile) : anonymousFile();
    if (m_outputFile < 0 || m_errorFile < 0)
        std::abort(); // a capture that silently captures nothing would let tests pass wrongly
    m_savedOutput = ::dup(STDOUT_FILENO);
    m_savedError = ::dup(STDERR_FILENO);
    ::dup2(m_outputFile, STDOUT_FILENO);
    ::dup2(m_errorFile, STDERR_FILENO);
}

OutputCapture::~OutputCapture()
{
    finish();
}

void OutputCapture::finish()
{
    if (m_savedOutput < 0)
        return;
    std::fflush(stdout);
    std::fflush(stderr);
    ::dup2(m_savedOutput, STDOUT_FILENO);
    ::dup2(m_savedError, STDERR_FILENO);
    ::close(m_savedOutput);
    ::close(m_savedError);
    m_savedOutput = m_savedError = -1;
    const bool merged = m_errorFile >= 0 && isSameFile(m_outputFile, m_errorFile);
    m_output = readAll(m_outputFile);
    if (!merged)
        m_error = readAll(m_errorFile);
    ::close(m_outputFile);
    ::close(m_errorFile);
}

} // namespace ZqlTest
