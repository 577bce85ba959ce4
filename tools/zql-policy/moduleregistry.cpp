#include "moduleregistry.h"

#include "libraryschemas.h"

#include <zql-modules/modules.h>

namespace ZqlPolicy {

ModuleRegistry ModuleRegistry::libraryModules()
{
    // The apply order: the defaults for new accounts and the password rules first, then
    // lockout and who may log in, then the security switches, and the kiosk session last.
    // Each module is independent of the others; the order only makes a partly applied policy
    // the least surprising one.
    ModuleRegistry registry;
    registry.add(
        QStringLiteral("user-creation-policy"),
        [] { return std::make_unique<UserCreationPolicyModule>(); },
        LibrarySchemas::userCreationPolicy());
    registry.add(
        QStringLiteral("password-policy"), [] { return std::make_unique<PasswordPolicyModule>(); },
        LibrarySchemas::passwordPolicy());
    registry.add(
        QStringLiteral("account-lockout"), [] { return std::make_unique<AccountLockoutModule>(); },
        LibrarySchemas::accountLockout());
    registry.add(
        QStringLiteral("login-local"), [] { return std::make_unique<LoginLocalModule>(); },
        LibrarySchemas::loginLocal());
    registry.add(
        QStringLiteral("audit"), [] { return std::make_unique<AuditModule>(); },
        LibrarySchemas::audit());
    registry.add(
        QStringLiteral("maic"), [] { return std::make_unique<MaicModule>(); },
        LibrarySchemas::maic());
    registry.add(
        QStringLiteral("mac"), [] { return std::make_unique<MacModule>(); }, LibrarySchemas::mac());
    registry.add(
        QStringLiteral("mic"), [] { return std::make_unique<MicModule>(); }, LibrarySchemas::mic());
    registry.add(
        QStringLiteral("digsig"), [] { return std::make_unique<DigSigModule>(); },
        LibrarySchemas::digsig());
    registry.add(
        QStringLiteral("console-policy"), [] { return std::make_unique<ConsolePolicyModule>(); },
        LibrarySchemas::securitySwitches());
    registry.add(
        QStringLiteral("system-parameters"),
        [] { return std::make_unique<SystemParametersModule>(); },
        LibrarySchemas::securitySwitches());
    registry.add(
        QStringLiteral("kiosk-global"), [] { return std::make_unique<KioskGlobalModule>(); },
        LibrarySchemas::kioskGlobal());
    return registry;
}

ModuleRegistry::ModuleRegistry() = default;
ModuleRegistry::~ModuleRegistry() = default;
ModuleRegistry::ModuleRegistry(ModuleRegistry &&) noexcept = default;
ModuleRegistry &ModuleRegistry::operator=(ModuleRegistry &&) noexcept = default;

void ModuleRegistry::add(const QString &name, Factory factory, const SettingsSchema &schema)
{
    m_names.append(name);
    m_schemas.push_back(schema);
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

const SettingsSchema &ModuleRegistry::schema(const QString &name) const
{
    static const SettingsSchema any = SettingsSchema::any();
    const int index = m_names.indexOf(name);
    return index < 0 ? any : m_schemas[static_cast<size_t>(index)];
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
                {QStringLiteral("USERGROUPS"), true},
                {QStringLiteral("USERS_GID"), 100}};
    }
    return {};
}

QHash<QString, QVariant> ModuleRegistry::policyForm(const QString &name,
                                                    QHash<QString, QVariant> settings)
{
    // digsig writes every line of "Templates" with a line feed of its own, so the text it reads
    // back ends in one line feed more than the text it was given. Without that line feed the
    // text is the one that writes the file as it is: an export applied back changes no byte,
    // and a policy applied once follows the machine.
    if (name == QLatin1String("digsig")) {
        const QString key = QStringLiteral("Templates");
        const QString text = settings.value(key).toString();
        if (settings.contains(key) && text.endsWith(QLatin1Char('\n')))
            settings.insert(key, text.left(text.size() - 1));
    }
    return settings;
}

QHash<QString, QString> ModuleRegistry::unorderedLists(const QString &name)
{
    if (name == QLatin1String("kiosk-global"))
        return {{QStringLiteral("autostartApps"), QStringLiteral("desktopFileName")}};
    return {};
}

} // namespace ZqlPolicy
