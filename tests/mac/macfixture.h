#ifndef ZQLTEST_MACFIXTURE_H
#define ZQLTEST_MACFIXTURE_H

#include <QByteArray>
#include <QString>
#include <QStringList>

// The simulated MAC control tool and service manager (sim/layer): their state files, faults
// and call logs, for the MAC suites. Every helper works inside the sandbox only.
namespace ZqlTest {

const QString MacControlDir = QStringLiteral("/var/lib/zql-sim/mac-control");
const QString SystemctlDir = QStringLiteral("/var/lib/zql-sim/systemctl");
const QString ModeFile = QStringLiteral("/etc/zql-platform/security-mode");

/** Sets what the control tool reports: MAC running now, and planned for the next boot. */
bool setMacControlState(bool activeNow, bool plannedOn);

/** Sets a fault line ("OPERATION ACTION [CODE]") of the control tool; empty removes it. */
bool setMacControlFault(const QByteArray &line);

/** Sets the text the control tool writes to standard error on every call; empty removes it. */
bool setMacControlWarning(const QByteArray &text);

/** Starts an empty call log of the control tool. */
bool startMacControlLog();

/** The control tool's calls since startMacControlLog(), one argument line each. */
QStringList macControlCalls();

/** Sets whether the simulated unit @p unit runs. */
bool setUnitActive(const QString &unit, bool active);

/** Starts an empty call log of the simulated systemctl. */
bool clearSystemctlLog();

/** The simulated systemctl's calls, one argument line each. */
QStringList systemctlCalls();

/** Writes the security mode file. */
bool setSecurityMode(int mode);

} // namespace ZqlTest

#endif // ZQLTEST_MACFIXTURE_H
