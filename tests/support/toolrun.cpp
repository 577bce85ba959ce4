#include "toolrun.h"

#include <QProcess>

namespace ZqlTest {
namespace {
constexpr int StartLimitMs = 5000;
constexpr int KillLimitMs = 5000;

QString endingName(ToolRun::Ending ending)
{
    switch (ending) {
    case ToolRun::Ending::Exited:
        return QStringLiteral("exited");
    case ToolRun::Ending::Crashed:
        return QStringLiteral("crashed");
    case ToolRun::Ending::TimedOut:
        return QStringLiteral("timed out");
    case ToolRun::Ending::NotStarted:
        break;
    }
    return QStringLiteral("not started");
}
} // namespace

QString ToolRun::describe() const
{
    QString text = endingName(ending);
    if (ending == Ending::Exited)
        text += QStringLiteral(" with %1").arg(exitCode);
    if (!errorText.isEmpty())
        text += QStringLiteral(" (%1)").arg(errorText);
    if (!standardError.isEmpty())
        text +=
            QStringLiteral(", standard error: \"%1\"").arg(QString::fromLocal8Bit(standardError));
    return text;
}

ToolRun runTool(const QString &program, const QStringList &arguments, int timeoutMs,
                const QByteArray &input, const QStringList &environment)
{
    ToolRun run;
    QProcess process;
    if (!environment.isEmpty()) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &setting : environment)
            env.insert(setting.section(QLatin1Char('='), 0, 0),
                       setting.section(QLatin1Char('='), 1));
        process.setProcessEnvironment(env);
    }
    process.start(program, arguments);
    if (!process.waitForStarted(StartLimitMs)) {
        run.errorText = QStringLiteral("%1: %2").arg(program, process.errorString());
        return run;
    }
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    if (process.waitForFinished(timeoutMs)) {
        run.ending = process.exitStatus() == QProcess::NormalExit ? ToolRun::Ending::Exited
                                                                  : ToolRun::Ending::Crashed;
        run.exitCode = process.exitCode();
    } else {
        run.ending = ToolRun::Ending::TimedOut;
        run.errorText = QStringLiteral("%1 still ran after %2 ms").arg(program).arg(timeoutMs);
        process.kill();
        process.waitForFinished(KillLimitMs);
    }
    run.standardOutput = process.readAllStandardOutput();
    run.standardError = process.readAllStandardError();
    return run;
}

} // namespace ZqlTest
