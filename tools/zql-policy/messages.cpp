#include "messages.h"

#include <QByteArray>

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace ZqlPolicy {

void Messages::writeLine(int fd, const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    const char *data = bytes.constData();
    size_t left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // nowhere left to say it
        data += written;
        left -= static_cast<size_t>(written);
    }
}

void Messages::report(const QString &text)
{
    std::fflush(stdout);
    writeLine(STDERR_FILENO, QStringLiteral("zql-policy: ") + text);
}

} // namespace ZqlPolicy
