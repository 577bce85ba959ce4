#include "securityswitchesmanager.h"

#include "securityswitch.h"

#include "diagnosticstreams_p.h"
#include "processrunner_p.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QMultiMap>
#include <QObject>

#include <exception>
#include <stdexcept>

namespace {
const QString MonitorProgram = QStringLiteral("/usr/sbin/lumo-security-monitor");
const QStringList MonitorArguments{QStringLiteral("switches")};
const QString ScriptDirectory = QStringLiteral("/usr/sbin/");
const QStringList IsEnabledArguments{QStringLiteral("is-enabled")};
const QString EnableArgument = QStringLiteral("enable");
const QString DisableArgument = QStringLiteral("disable");

// Exit codes of a switch script.
constexpr int ScriptEnabled = 0;
constexpr int ScriptDisabled = 1;
constexpr int ScriptNoLockFile = 66;

// Switches by group type; a record goes in front of those already stored under its type, so
// a group reads back in the reverse of the monitor's order.
using GroupStore = QMultiMap<int, SecuritySwitch>;

[[noreturn]] void fail(const QString &message)
{
    throw std::runtime_error(message.toUtf8().toStdString());
}

QByteArray runMonitor(int timeoutMs)
{
    // The monitor has one limit for starting and finishing together, and its own messages.
    ProcessRunOptions options;
    options.mode = QIODevice::ReadWrite;
    options.startTimeoutMs = std::nullopt;
    options.finishTimeoutMs = timeoutMs;
    const ProcessOutcome outcome = runTool(MonitorProgram, MonitorArguments, options);
    switch (outcome.ending) {
    case ProcessOutcome::Ending::NotStarted:
    case ProcessOutcome::Ending::NotFinished:
        fail(
            QObject::tr("lumo-security-monitor finished with error:\n%1").arg(outcome.errorString));
    case ProcessOutcome::Ending::Crashed:
        fail(QObject::tr("Process crashed"));
    case ProcessOutcome::Ending::Exited:
        break;
    }
    if (outcome.exitCode != 0)
        fail(QObject::tr("lumo-security-monitor finished with unexpected code: %1")
                 .arg(outcome.exitCode));
    return outcome.standardOutput;
}

GroupStore loadSwitches(int timeoutMs)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(runMonitor(timeoutMs), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        fail(QObject::tr("Json parse error:\n%1").arg(parseError.errorString()));
    if (!document.isArray())
        fail(QObject::tr("Expected json array"));

    GroupStore store;
    const QJsonArray records = document.array();
    for (const QJsonValue &value : records) {
        if (!value.isObject())
            fail(QObject::tr("Expected json object"));
        const SecuritySwitch record = SecuritySwitch::fromJson(value.toObject());
        store.insert(record.groupType(), record);
    }
    return store;
}

QStringList scriptsOf(const GroupStore &store, int groupType)
{
    QStringList scripts;
    const QList<SecuritySwitch> group = store.values(groupType);
    for (const SecuritySwitch &record : group)
        scripts << record.script();
    return scripts;
}
} // namespace

SecuritySwitchesManager::SecuritySwitchesManager(const SecuritySwitchLimits &limits)
    : m_limits(limits)
{
    // The store lives only for the constructor: the records are not kept, only the names.
    try {
        const GroupStore store = loadSwitches(m_limits.monitorMs);
        parameterScripts = scriptsOf(store, SecuritySwitch::ParameterGroup);
        consoleScripts = scriptsOf(store, SecuritySwitch::ConsoleGroup);
    } catch (const std::exception &e) {
        writeDiagnostic(
            errorStream,
            QObject::tr("Failed to load security options .\n%1").arg(QString::fromUtf8(e.what())));
    }
}

SecuritySwitchesManager::~SecuritySwitchesManager() = default;

QStringList SecuritySwitchesManager::switchScripts(bool parameters) const
{
    return parameters ? parameterScripts : consoleScripts;
}

SecuritySwitchesManager::SwitchState SecuritySwitchesManager::getSwitchState(const QString &script)
{
    const SwitchState failed{1, false};
    const QString path = ScriptDirectory + script;
    if (!QFileInfo::exists(path)) {
        writeDiagnostic(errorStream,
                        QObject::tr("skipping program ") + path + QObject::tr(" (not installed)"));
        return failed;
    }

    ProcessRunOptions options;
    options.mode = QIODevice::ReadWrite;
    options.startTimeoutMs = m_limits.startMs;
    options.finishTimeoutMs = m_limits.readMs;
    const ProcessOutcome outcome = runTool(path, IsEnabledArguments, options);
    if (!outcome.exited()) {
        writeDiagnostic(errorStream, processFailureMessage(path, IsEnabledArguments, outcome));
        return failed;
    }
    switch (outcome.exitCode) {
    case ScriptEnabled:
    case ScriptDisabled: {
        // The script's remarks on a successful read are passed on as they are.
        const QString remarks = QString::fromUtf8(outcome.standardError);
        if (!remarks.isEmpty())
            writeDiagnostic(outputStream, remarks);
        return {0, outcome.exitCode == ScriptEnabled};
    }
    case ScriptNoLockFile:
        writeDiagnostic(errorStream,
                        QObject::tr("Some switches unavailable: No permission to create \n"
                                    "a lock-file that provides scripts synchronization"));
        return failed;
    default:
        writeDiagnostic(errorStream, QObject::tr("%1 finished with unexpected code: %2")
                                         .arg(path, QString::number(outcome.exitCode)));
        return failed;
    }
}

int SecuritySwitchesManager::setSwitchState(const QString &script, bool enable)
{
    const QString path = ScriptDirectory + script;
    if (!QFileInfo::exists(path)) {
        // Unlike the read, these two texts carry no blanks of their own.
        writeDiagnostic(errorStream,
                        QObject::tr("skipping program") + path + QObject::tr("(not installed)"));
        return 1;
    }

    const QStringList arguments{enable ? EnableArgument : DisableArgument};
    ProcessRunOptions options;
    options.startTimeoutMs = m_limits.startMs;
    options.finishTimeoutMs = m_limits.changeMs;
    const ProcessOutcome outcome = runTool(path, arguments, options);
    if (!outcome.exitedWithZero()) {
        writeDiagnostic(errorStream, processFailureMessage(path, arguments, outcome));
        return 1;
    }
    // A script's remark on success is looked up in the catalogue, in case it has a translation.
    const QString remark = QString::fromLocal8Bit(outcome.standardError).trimmed();
    if (!remark.isEmpty()) {
        const QByteArray source = remark.toUtf8();
        writeDiagnostic(outputStream, QCoreApplication::translate("QObject", source.constData()));
    }
    return 0;
}

SettingsReply SecuritySwitchesManager::groupSettings(bool parameters)
{
    QHash<QString, QVariant> settings;
    const QStringList scripts = switchScripts(parameters);
    for (const QString &script : scripts) {
        const SwitchState state = getSwitchState(script);
        if (state.status != 0)
            return {ModuleInterface::StatusFailure, {}};
        settings.insert(script, state.enabled);
    }
    return {ModuleInterface::StatusSuccess, settings};
}

bool SecuritySwitchesManager::applyGroupSettings(bool parameters,
                                                 const QHash<QString, QVariant> &settings)
{
    const QStringList scripts = switchScripts(parameters);
    for (const QString &script : scripts) {
        if (setSwitchState(script, settings.value(script).toBool()) != 0)
            return true;
    }
    return false;
}
