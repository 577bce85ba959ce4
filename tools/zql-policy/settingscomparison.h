#ifndef ZQLPOLICY_SETTINGSCOMPARISON_H
#define ZQLPOLICY_SETTINGSCOMPARISON_H

#include "policyjson.h"

#include <QHash>
#include <QString>
#include <QVariant>
#include <QVector>

namespace ZqlPolicy {

/** One key whose value on the machine is not the policy's. */
struct KeyDifference
{
    QString key;  ///< nested members as "table/member"
    Json policy;  ///< what the policy says
    Json machine; ///< what the machine has; null when it has nothing there
    bool onMachine = false;
};

/**
 * Compares a module's settings in a policy with the machine's, by value: key by key, nested
 * tables member by member, lists and switched numbers whole. Only the policy's keys count: a
 * key the policy leaves out is left alone by an apply too. A switched number that is off is
 * off whatever its number, as the modules' writers ignore it.
 */
class SettingsComparison
{
public:
    /**
     * The keys of @p policy whose value in @p machine differs, in key order. A key the machine
     * leaves out has the value @p defaults gives it, if any (a tool's own default that the
     * module does not write).
     */
    static QVector<KeyDifference> differences(const QHash<QString, QVariant> &policy,
                                              const QHash<QString, QVariant> &machine,
                                              const QHash<QString, QVariant> &defaults = {});

    /**
     * @p settings with each list named in @p sortKeys sorted by the text of the member that
     * @p sortKeys gives for it (a list of tables whose order means nothing, such as entries a
     * module reads in a directory's order). Elements without the member keep their place
     * relative to each other, after the others.
     */
    static QHash<QString, QVariant> withListsSorted(QHash<QString, QVariant> settings,
                                                    const QHash<QString, QString> &sortKeys);

    /** Whether two JSON values mean the same setting (see the class comment). */
    static bool sameValue(const Json &policy, const Json &machine);

    /** @p value on one line: "[true, 12]", "\"admin\"", {"a": 1}. */
    static QString text(const Json &value);
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_SETTINGSCOMPARISON_H
