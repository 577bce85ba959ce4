#ifndef ZQLTEST_SWITCHFIXTURE_H
#define ZQLTEST_SWITCHFIXTURE_H

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

namespace ZqlTest {

/**
 * The simulated security monitor and switch scripts (sim/layer): their data and control files
 * under /var/lib/zql-sim, put back as the simulated system holds them by reset().
 */
class SwitchFixture
{
public:
    static const QString MonitorPath;
    static const QString ScriptDir;

    /** Remembers the simulated system's files. */
    bool snapshot(QString *error);
    /** Unmounts, removes what tests added and writes the remembered files back. */
    bool reset(QString *error);

    /** Replaces the monitor's list of switch records. */
    bool setMonitorData(const QByteArray &json);
    /** Makes the monitor misbehave: "hang", "crash", "exit CODE" or "invalid-json". */
    bool setMonitorBehaviour(const QByteArray &behaviour);
    /** Removes the monitor program. */
    bool removeMonitor();
    /** Puts a symbolic link to @p target in place of the monitor program. */
    bool linkMonitorTo(const QString &target);
    /** Makes the monitor log its runs from now on (until the next reset). */
    bool countMonitorRuns();
    /** The arguments of each monitor run since countMonitorRuns(), one line per run. */
    QStringList monitorRuns() const;

    /** Sets a switch on or off, as its script keeps it. */
    bool setState(const QString &script, bool enabled);
    /** The state file of a switch: "enabled\n", "disabled\n" or null when missing. */
    QByteArray state(const QString &script) const;
    /** Makes a script write @p text on standard error on every call. */
    bool setWarning(const QString &script, const QByteArray &text);
    /** Makes a script fail: "OPERATION hang", "OPERATION crash" or "OPERATION exit CODE". */
    bool setFault(const QString &script, const QByteArray &fault);
    /** Makes the scripts' lock file impossible to open (its directory read-only). */
    bool lockUnavailable(QString *error);
    /** Adds a file under /usr/sbin with @p content, executable or not. */
    bool addProgram(const QString &name, const QByteArray &content, bool executable);
    /** "SCRIPT OPERATION" per script run since the last reset, in order. */
    QStringList calls() const;
    /** The state files of every switch, by script name. */
    QHash<QString, QByteArray> states() const;

private:
    QHash<QString, QByteArray> m_files;
    QStringList m_added;
    QStringList m_mounts;
};

} // namespace ZqlTest

#endif // ZQLTEST_SWITCHFIXTURE_H
