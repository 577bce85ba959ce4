#ifndef ZQLMODULES_MICTOOLS_P_H
#define ZQLMODULES_MICTOOLS_P_H

#include "processrunner_p.h"

#include <QString>
#include <QStringList>

// How the integrity models run their control tools: blocking, opened read-write, with no
// separate start wait and a finish limit (-1: none, the models' default).
namespace Mic {

ProcessOutcome runControlTool(const QString &program, const QStringList &arguments, int timeoutMs);

// "%1 %2 returned %3:\n%4\n%5": program, arguments joined by a blank, exit code (-1 when the
// tool did not exit), standard output and standard error (UTF-8).
QString toolReturnedMessage(const QString &program, const QStringList &arguments,
                            const ProcessOutcome &outcome);

} // namespace Mic

#endif // ZQLMODULES_MICTOOLS_P_H
