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
    return groupSettings(ParameterGroup);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool SystemParametersModule::setSettings(QHash<QString, QVariant> settings)
{
    return applyGroupSettings(ParameterGroup, settings);
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
