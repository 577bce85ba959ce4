#ifndef ZQLPOLICY_POLICYTOOL_H
#define ZQLPOLICY_POLICYTOOL_H

#include "moduleregistry.h"
#include "policydocument.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace ZqlPolicy {

class ProgressReporter;

/**
 * The commands of zql-policy on this machine's system (or, inside the sandbox, on the system
 * the sandbox shows). Messages of its own go to standard error as "zql-policy: ..."; the
 * library's diagnostics pass through as the modules write them.
 */
class PolicyTool
{
public:
    /** Exit statuses; docs/zql-policy.md explains them. */
    enum Exit {
        ExitSuccess = 0,
        ExitModuleFailed = 1, ///< a module could not read or apply its settings
        ExitUsage = 2,        ///< the command line was wrong
        ExitRefused = 3,      ///< the policy was refused by the check; nothing was applied
        ExitFileError = 4,    ///< the policy could not be read or the output not written
        ExitDrifted = 1,      ///< diff: a key of the machine differs from the policy
        ExitIncomplete = 5,   ///< diff: nothing differs, but a module could not be compared
    };

    explicit PolicyTool(const ModuleRegistry &registry);

    /** The name of the policy in messages (default: the file name given). */
    void setSourceName(const QString &name);

    /** Every module with its name key and whether it is available. */
    int list();

    /**
     * The JSON Schema (draft 2020-12) of a policy document for the modules of the registry,
     * so that an editor can check a policy while it is written. Constructs no module.
     */
    int schema();

    /** The schema that schema() prints. */
    Json jsonSchema() const;

    /** The current settings of @p modules (all available ones when empty) with each status. */
    int get(const QStringList &modules);

    /**
     * The policy of @p modules (all available ones when empty), to @p outputFile or stdout.
     * A module that cannot be read makes it fail, or with @p skipUnreadable is left out and
     * named on standard error and in the document as not exported.
     */
    int exportPolicy(const QStringList &modules, const QString &outputFile,
                     bool skipUnreadable = false);

    /** Checks the policy in @p policyFile ("-": standard input), limited to @p only. */
    int check(const QString &policyFile, const QStringList &only);

    /**
     * Checks, then applies the policy in @p policyFile, limited to @p only. A module whose
     * live settings already equal the policy's (as drift() compares them) is left out and
     * named as unchanged, unless @p all.
     */
    int apply(const QString &policyFile, const QStringList &only, bool all = false);

    /**
     * Compares the policy in @p policyFile with the machine's live settings, module by module
     * and key by key, limited to @p only; as text, or as a JSON document with @p json. Reads
     * only: takes no lock and changes nothing.
     */
    int drift(const QString &policyFile, const QStringList &only, bool json);

    /**
     * Saves @p text as @p fileName, whole or not at all; a message names the file and the
     * reason when that fails.
     */
    static bool saveFile(const QString &fileName, const QByteArray &text);

    /** How @p policyFile is named in messages: "standard input" for "-". */
    static QString displayName(const QString &policyFile);

    /** The name keys of the modules, in apply order. */
    QStringList moduleNames() const;

    /** The names in @p modules that are no module's; reported as a usage error. */
    QStringList unknownModules(const QStringList &modules) const;

private:
    bool readPolicy(const QString &policyFile, QByteArray *text);
    // Reads and checks the policy; on refusal, the problems and then "<policy>: <refusal>".
    int checkedPolicy(const QString &policyFile, const QStringList &only, PolicyDocument *document,
                      QStringList *checked, const QString &refusal);
    QString sourceName(const QString &policyFile) const;

    const ModuleRegistry &m_registry;
    QString m_sourceName;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_POLICYTOOL_H
