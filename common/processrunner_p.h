#ifndef ZQLMODULES_PROCESSRUNNER_P_H
#define ZQLMODULES_PROCESSRUNNER_P_H

#include <QByteArray>
#include <QIODevice>
#include <QProcess>
#include <QString>
#include <QStringList>

// What one run of a tool gave: the failure message (empty on success) and what the tool said.
struct ProcessOutcome
{
    QString failure;
    QByteArray standardOutput;
    QByteArray standardError;
    int exitCode = -1;

    bool succeeded() const { return failure.isEmpty(); }
};

// The one place that starts a tool, waits for it and words its failures. The modules' ways of
// running tools differ only in the open mode and the two limits.
ProcessOutcome runTool(const QString &program, const QStringList &arguments,
                       QIODevice::OpenMode mode, int startTimeoutMs, int finishTimeoutMs);

#endif // ZQLMODULES_PROCESSRUNNER_P_H
