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
    return groupSettings(ParameterGroup);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool ConsolePolicyModule::setSettings(QHash<QString, QVariant> settings)
{
    return applyGroupSettings(ParameterGroup, settings);
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
