#include "switchfixture.h"

#include "systemfixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace ZqlTest {
namespace {
const QString MonitorDir = QStringLiteral("/var/lib/zql-sim/security-monitor");
const QString SwitchDir = QStringLiteral("/var/lib/zql-sim/switches");
const QString LockDir = QStringLiteral("/var/lib/zql-sim/switches/lock");
const QString CallLog = QStringLiteral("/var/lib/zql-sim/switches/calls.log");
const QString MonitorRunLog = QStringLiteral("/var/lib/zql-sim/security-monitor/runs.log");
const QString StateSuffix = QStringLiteral(".state");

QStringList linesOf(const QString &path)
{
    const QByteArray log = readBytes(path);
    if (log.isEmpty())
        return {};
    return QString::fromUtf8(log).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QStringList filesIn(const QString &dir)
{
    QStringList paths;
    const QStringList names = QDir(dir).entryList(QDir::Files | QDir::Hidden);
    for (const QString &name : names)
        paths << dir + QLatin1Char('/') + name;
    return paths;
}
} // namespace

const QString SwitchFixture::MonitorPath = QStringLiteral("/usr/sbin/lumo-security-monitor");
const QString SwitchFixture::ScriptDir = QStringLiteral("/usr/sbin/");

bool SwitchFixture::snapshot(QString *error)
{
    const QStringList paths = filesIn(MonitorDir) + filesIn(SwitchDir) + QStringList{MonitorPath};
    for (const QString &path : paths) {
        const QByteArray bytes = readBytes(path);
        if (bytes.isNull()) {
            *error = QStringLiteral("cannot read %1").arg(path);
            return false;
        }
        m_files.insert(path, bytes);
    }
    if (!m_files.contains(MonitorDir + QStringLiteral("/switches.json"))) {
        *error = QStringLiteral("the simulated system has no switch list");
        return false;
    }
    return true;
}

bool SwitchFixture::reset(QString *error)
{
    while (!m_mounts.isEmpty()) {
        if (!unmount(m_mounts.takeLast(), error))
            return false;
    }
    for (const QString &path : filesIn(MonitorDir) + filesIn(SwitchDir) + m_added) {
        if (!m_files.contains(path) && !QFile::remove(path)) {
            *error = QStringLiteral("cannot remove %1").arg(path);
            return false;
        }
    }
    m_added.clear();
    // Writing the program back must not follow a link a test put in its place.
    if (QFileInfo(MonitorPath).isSymLink() && !QFile::remove(MonitorPath)) {
        *error = QStringLiteral("cannot remove the link %1").arg(MonitorPath);
        return false;
    }
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        if (!writeBytes(it.key(), it.value())) {
            *error = QStringLiteral("cannot write %1").arg(it.key());
            return false;
        }
    }
    if (!QFile::setPermissions(MonitorPath, QFile::permissions(MonitorPath) | QFile::ExeOwner |
                                                QFile::ExeGroup | QFile::ExeOther)) {
        *error = QStringLiteral("cannot make %1 executable").arg(MonitorPath);
        return false;
    }
    // The scripts log their calls only into a log that exists.
    if (!writeBytes(CallLog, {})) {
        *error = QStringLiteral("cannot write %1").arg(CallLog);
        return false;
    }
    return true;
}

bool SwitchFixture::setMonitorData(const QByteArray &json)
{
    return writeBytes(MonitorDir + QStringLiteral("/switches.json"), json);
}

bool SwitchFixture::setMonitorBehaviour(const QByteArray &behaviour)
{
    return writeBytes(MonitorDir + QStringLiteral("/behaviour"), behaviour + '\n');
}

bool SwitchFixture::removeMonitor()
{
    return QFile::remove(MonitorPath);
}

bool SwitchFixture::linkMonitorTo(const QString &target)
{
    return QFile::remove(MonitorPath) && QFile::link(target, MonitorPath);
}

bool SwitchFixture::countMonitorRuns()
{
    return writeBytes(MonitorRunLog, "");
}

QStringList SwitchFixture::monitorRuns() const
{
    return linesOf(MonitorRunLog);
}

bool SwitchFixture::setState(const QString &script, bool enabled)
{
    return writeBytes(SwitchDir + QLatin1Char('/') + script + StateSuffix,
                      enabled ? "enabled\n" : "disabled\n");
}

QByteArray SwitchFixture::state(const QString &script) const
{
    return readBytes(SwitchDir + QLatin1Char('/') + script + StateSuffix);
}

bool SwitchFixture::setWarning(const QString &script, const QByteArray &text)
{
    return writeBytes(SwitchDir + QLatin1Char('/') + script + QStringLiteral(".warning"), text);
}

bool SwitchFixture::setFault(const QString &script, const QByteArray &fault)
{
    return writeBytes(SwitchDir + QLatin1Char('/') + script + QStringLiteral(".fault"),
                      fault + '\n');
}

bool SwitchFixture::lockUnavailable(QString *error)
{
    if (!bindReadOnly(LockDir, error))
        return false;
    m_mounts << LockDir;
    return true;
}

bool SwitchFixture::addProgram(const QString &name, const QByteArray &content, bool executable)
{
    const QString path = ScriptDir + name;
    m_added << path;
    if (!writeBytes(path, content))
        return false;
    QFile::Permissions permissions =
        QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    if (executable)
        permissions |= QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    return QFile::setPermissions(path, permissions);
}

QStringList SwitchFixture::calls() const
{
    return linesOf(CallLog);
}

QHash<QString, QByteArray> SwitchFixture::states() const
{
    QHash<QString, QByteArray> states;
    const QStringList names = QDir(SwitchDir).entryList({QLatin1Char('*') + StateSuffix});
    for (const QString &name : names)
        states.insert(name.chopped(StateSuffix.size()),
                      readBytes(SwitchDir + QLatin1Char('/') + name));
    return states;
}

} // namespace ZqlTest
