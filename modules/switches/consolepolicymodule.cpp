#include "consolepolicymodule.h"

namespace {
const QString ModuleName = QStringLiteral("console-policy");
// Which group of SecuritySwitchesManager::switchScripts() this module covers.
constexpr bool ParameterGroup = false;
} // namespace

ConsolePolicyModule::ConsolePolicyModule(const SecuritySwitchLimits &limits)
    : SecuritySwitchesManager(limits)
{}

ConsolePolicyModule::~ConsolePolicyModule() = default;

SettingsReply ConsolePolicyModule::getSettings()
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
bool ConsolePolicyModule::setSettings(QHash<QString, QVariant> settings)
{
    const QStringList scripts = switchScripts(ParameterGroup);
    for (const QString &script : scripts) {
        if (setSwitchState(script, settings.value(script).toBool()) != 0)
            return true;
    }
    return false;
}

QString ConsolePolicyModule::getName()
{
    return ModuleName;
}

bool ConsolePolicyModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList ConsolePolicyModule::isParametersCorrect(QSet<QString> parameters)
{
    Q_UNUSED(parameters)
    return {};
}
