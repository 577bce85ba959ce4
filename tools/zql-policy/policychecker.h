#ifndef ZQLPOLICY_POLICYCHECKER_H
#define ZQLPOLICY_POLICYCHECKER_H

#include "moduleregistry.h"
#include "policydocument.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace ZqlPolicy {

/**
 * Decides whether a policy may be applied on this machine, before anything is changed.
 *
 * For each section it asks the module: is it available under the current security mode, does
 * it know every key (isParametersCorrect), does it accept the values (checkRestrictions). It
 * also refuses any text holding a line feed or another control character, in keys and values
 * at any depth: the modules write their values into line-oriented files (PAM profiles,
 * login.defs, adduser.conf, tessel.conf), where such a character would add lines of its own.
 * Only the multi-line texts a module is made for (multiLineTexts()) may hold line feeds and
 * tabs.
 */
class PolicyChecker
{
public:
    /**
     * @p multiLineTexts: "<module>/<key>" of the settings that are multi-line texts by design,
     * where line feeds and tabs are allowed.
     */
    explicit PolicyChecker(const ModuleRegistry &registry,
                           const QSet<QString> &multiLineTexts = libraryMultiLineTexts());

    /**
     * Checks the sections of @p document whose module is in @p selection (every section when
     * @p selection is empty; a selected module without a section is a problem too). Appends
     * one line per problem, "<module>: <what>", to @p problems and the name of every module
     * checked to @p checked. Returns true when nothing was refused.
     */
    bool check(const PolicyDocument &document, const QStringList &selection, QStringList *problems,
               QStringList *checked) const;

    /**
     * The problem with the control characters in @p key or @p value (at any depth; nested keys
     * are named "key/inner" and list elements "key/0") of @p module, or an empty string.
     * @p multiLine allows line feeds and tabs in the value's texts.
     */
    static QString controlCharacterProblem(const QString &module, const QString &key,
                                           const QVariant &value, bool multiLine);

    /** The multi-line texts of the library's modules. */
    static QSet<QString> libraryMultiLineTexts();

private:
    const ModuleRegistry &m_registry;
    const QSet<QString> m_multiLineTexts;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_POLICYCHECKER_H
