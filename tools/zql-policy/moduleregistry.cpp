#include "moduleregistry.h"

#include <zql-modules/modules.h>

namespace ZqlPolicy {

ModuleRegistry ModuleRegistry::libraryModules()
{
    // The apply order: the defaults for new accounts and the password rules first, then
    // lockout and who may log in, then the security switches. Each module is independent of
    // the others; the order only makes a partly applied policy the least surprising one.
    ModuleRegistry registry;
    registry.add(QStringLiteral("user-creation-policy"),
                 [] { return std::make_unique<UserCreationPolicyModule>(); });
    registry.add(QStringLiteral("password-policy"),
                 [] { return std::make_unique<PasswordPolicyModule>(); });
    registry.add(QStringLiteral("account-lockout"),
                 [] { return std::make_unique<AccountLockoutModule>(); });
    registry.add(QStringLiteral("login-local"),
                 [] { return std::make_unique<LoginLocalModule>(); });
    registry.add(QStringLiteral("mic"), [] { return std::make_unique<MicModule>(); });
    registry.add(QStringLiteral("console-policy"),
                 [] { return std::make_unique<ConsolePolicyModule>(); });
    registry.add(QStringLiteral("system-parameters"),
                 [] { return std::make_unique<SystemParametersModule>(); });
    return registry;
}

ModuleRegistry::ModuleRegistry() = default;
ModuleRegistry::~ModuleRegistry() = default;
ModuleRegistry::ModuleRegistry(ModuleRegistry &&) noexcept = default;
ModuleRegistry &ModuleRegistry::operator=(ModuleRegistry &&) noexcept = default;

void ModuleRegistry::add(const QString &name, Factory factory)
{
    m_names.append(name);
    m_factories.push_back(std::move(factory));
    m_modules.emplace_back();
}

std::vector<ModuleInterface *> ModuleRegistry::modules() const
{
    std::vector<ModuleInterface *> modules;
    for (const QString &name : m_names)
        modules.push_back(module(name));
    return modules;
}

ModuleInterface *ModuleRegistry::module(const QString &name) const
{
    const int index = m_names.indexOf(name);
    if (index < 0)
        return nullptr;
    std::unique_ptr<ModuleInterface> &made = m_modules[static_cast<size_t>(index)];
    if (!made)
        made = m_factories[static_cast<size_t>(index)]();
    return made.get();
}

bool ModuleRegistry::contains(const QString &name) const
{
    return m_names.contains(name);
}

QStringList ModuleRegistry::names() const
{
    return m_names;
}

QHash<QString, QVariant> ModuleRegistry::defaultsWhenAbsent(const QString &name)
{
    // adduser's own defaults: the module leaves a key out of /etc/adduser.conf when the policy
    // gives it this value, and reads nothing back for it.
    if (name == QLatin1String("user-creation-policy")) {
        return {{QStringLiteral("DHOME"), QStringLiteral("/home")},
                {QStringLiteral("SKEL"), QStringLiteral("/etc/skel")},
                {QStringLiteral("DSHELL"), QStringLiteral("/bin/bash")},
                {QStringLiteral("USERGROUPS"), QStringLiteral("yes")},
                {QStringLiteral("USERS_GID"), 100}};
    }
    return {};
}

} // namespace ZqlPolicy
