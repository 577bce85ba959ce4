#include "messages.h"

#include "diagnosticrelay.h"

#include <QByteArray>

#include <cstdio>
#include <unistd.h>

namespace ZqlPolicy {

void Messages::writeLine(int fd, const QString &line)
{
    DiagnosticRelay::write(fd, line.toUtf8() + '\n');
}

void Messages::report(const QString &text)
{
    std::fflush(stdout);
    writeLine(STDERR_FILENO, QStringLiteral("zql-policy: ") + text);
}

} // namespace ZqlPolicy
