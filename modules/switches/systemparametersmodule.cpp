#include "systemparametersmodule.h"

namespace {
const QString ModuleName = QStringLiteral("system-parameters");
// Which group of SecuritySwitchesManager::switchScripts() this module covers.
constexpr bool ParameterGroup = true;
} // namespace

SystemParametersModule::SystemParametersModule(const SecuritySwitchLimits &limits)
    : SecuritySwitchesManager(limits)
{}

SystemParametersModule::~SystemParametersModule() = default;

SettingsReply SystemParametersModule::getSettings()
{
    QHash<QString, QVariant> settings;
    const QStringList scripts = switchScripts(ParameterGroup);
    for (const QString &script : scripts) {
        const SwitchState state = getSwitchState(script);
        if (state.status != 0)
            return {StatusFailure, {}};
        settings.insert(script, state.enabled);
    }
    return {StatusSuccess, settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool SystemParametersModule::setSettings(QHash<QString, QVariant> settings)
{
    const QStringList scripts = switchScripts(ParameterGroup);
    for (const QString &script : scripts) {
        if (setSwitchState(script, settings.value(script).toBool()) != 0)
            return true;
    }
    return false;
}

QString SystemParametersModule::getName()
{
    return ModuleName;
}

bool SystemParametersModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList SystemParametersModule::isParametersCorrect(QSet<QString> parameters)
{
    Q_UNUSED(parameters)
    return {};
}
