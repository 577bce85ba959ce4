#ifndef ZQLPOLICY_MODULEREGISTRY_H
#define ZQLPOLICY_MODULEREGISTRY_H

#include "settingsschema.h"

#include <zql-modules/moduleinterface.h>

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <vector>

namespace ZqlPolicy {

/**
 * Every module the library exports, in the order a policy is applied in. The registry owns the
 * modules; callers borrow them.
 *
 * Each module is constructed when it is first asked for, not with the registry: a switches
 * module runs the security monitor when it is constructed, and neither a command that runs
 * itself in the sandbox nor an apply limited to other modules should run it. The names are
 * known without that.
 */
class ModuleRegistry
{
public:
    /** Constructs every exported module of the library. */
    static ModuleRegistry libraryModules();

    /** An empty registry; add() fills it (tests use their own modules). */
    ModuleRegistry();
    ~ModuleRegistry();
    ModuleRegistry(ModuleRegistry &&) noexcept;
    ModuleRegistry &operator=(ModuleRegistry &&) noexcept;

    using Factory = std::function<std::unique_ptr<ModuleInterface>()>;

    /**
     * Appends the module named @p name that @p factory makes, taking settings of @p schema;
     * its place is its place in the apply order. The factory's module must have the name key
     * @p name. Every module of the library comes with its own schema; SettingsSchema::any() is
     * for the modules of tests.
     */
    void add(const QString &name, Factory factory,
             const SettingsSchema &schema = SettingsSchema::any());

    /** The settings schema of the module named @p name (any() for another name). */
    const SettingsSchema &schema(const QString &name) const;

    /** The modules in apply order, constructed now if they were not yet. */
    std::vector<ModuleInterface *> modules() const;

    /** The module named @p name, constructed now if it was not yet; null for another name. */
    ModuleInterface *module(const QString &name) const;

    /** Whether a module has the name key @p name. */
    bool contains(const QString &name) const;

    /** The name keys in apply order. */
    QStringList names() const;

    /**
     * What a key means when the module @p name leaves it out of its settings: the tool's own
     * default, which the module does not write (drift and apply compare with it).
     */
    static QHash<QString, QVariant> defaultsWhenAbsent(const QString &name);

    /**
     * The settings @p settings that the module @p name read, as a policy holds them: the values
     * that, written back, give the machine's files as they are. Export writes this form and
     * drift compares with it.
     */
    static QHash<QString, QVariant> policyForm(const QString &name,
                                               QHash<QString, QVariant> settings);

    /**
     * The lists of the module @p name whose order means nothing, each with the member of its
     * tables to sort by before drift and apply compare them (kiosk-global reads its entries
     * in the autostart directory's order, which a rewrite can change).
     */
    static QHash<QString, QString> unorderedLists(const QString &name);

private:
    QStringList m_names;
    std::vector<Factory> m_factories;
    std::vector<SettingsSchema> m_schemas;
    mutable std::vector<std::unique_ptr<ModuleInterface>> m_modules; // null until made
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_MODULEREGISTRY_H
