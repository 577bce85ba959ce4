#include "mictools_p.h"

#include <QObject>

namespace Mic {

ProcessOutcome runControlTool(const QString &program, const QStringList &arguments, int timeoutMs)
{
    ProcessRunOptions options;
    options.mode = QIODevice::ReadWrite;
    options.startTimeoutMs = std::nullopt;
    options.finishTimeoutMs = timeoutMs;
    return runTool(program, arguments, options);
}

QString toolReturnedMessage(const QString &program, const QStringList &arguments,
                            const ProcessOutcome &outcome)
{
    return QObject::tr("%1 %2 returned %3:\n%4\n%5")
        .arg(program, arguments.join(QLatin1Char(' ')), QString::number(outcome.exitCode),
             QString::fromUtf8(outcome.standardOutput), QString::fromUtf8(outcome.standardError));
}

} // namespace Mic
