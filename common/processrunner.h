#ifndef ZQLMODULES_PROCESSRUNNER_H
#define ZQLMODULES_PROCESSRUNNER_H

#include "zqlmodules_export.h"

#include <QString>
#include <QStringList>

/** Default limit, in milliseconds, for a tool to start and, separately, to finish. */
constexpr int DefaultProcessTimeoutMs = 30000;

/**
 * Runs @p program with @p arguments (never through a shell) and waits for it.
 *
 * Standard input is not used and standard output is not read. On failure exactly one message
 * is appended to @p errors ("\n" in front of it when @p errors is not empty): the tool did not
 * start, did not finish in time or crashed, or exited with a code other than 0 (then the
 * message quotes its standard error). A time-out of -1 means no limit. A child that overruns
 * its finish limit is killed.
 *
 * @return `true` when the tool exited with code 0 (its standard error is then ignored).
 */
ZQLMODULES_EXPORT bool runProcess(const QString &program, const QStringList &arguments,
                                  QString &errors, int startTimeoutMs = DefaultProcessTimeoutMs,
                                  int finishTimeoutMs = DefaultProcessTimeoutMs);

/**
 * Runs @p program like the form above, but returns the message itself.
 *
 * @return an empty text on a clean success; the failure message when the tool failed; the
 *         tool's standard error when it exited with 0 but wrote to standard error. Callers
 *         treat any non-empty result as a failure.
 */
ZQLMODULES_EXPORT QString runProcess(const QString &program, const QStringList &arguments,
                                     int startTimeoutMs = DefaultProcessTimeoutMs,
                                     int finishTimeoutMs = DefaultProcessTimeoutMs);

#endif // ZQLMODULES_PROCESSRUNNER_H
