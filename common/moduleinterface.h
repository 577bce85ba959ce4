#ifndef ZQLMODULES_MODULEINTERFACE_H
#define ZQLMODULES_MODULEINTERFACE_H

#include "zqlmodules_export.h"

#include <QHash>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

/**
 * What ModuleInterface::getSettings() returns: the status (0 success, 1 failure) as `first`
 * and the module's settings as `second` (empty on failure unless the module says otherwise).
 */
using SettingsReply = QPair<qint32, QHash<QString, QVariant>>;

/**
 * The contract every policy module fulfils towards its host.
 *
 * A module translates between a flat settings hash and the real configuration of the system.
 * No exception ever leaves one of these operations: failures come back as status 1 from
 * getSettings() or as `true` from setSettings(), and their text goes to the module's
 * diagnostic stream through formatOutput(). The class has no data members.
 */
class ZQLMODULES_EXPORT ModuleInterface
{
public:
    /** Status of a SettingsReply that carries the module's settings. */
    static constexpr qint32 StatusSuccess = 0;
    /** Status of a SettingsReply after a failed read. */
    static constexpr qint32 StatusFailure = 1;

    virtual ~ModuleInterface();

    /** Reads the system. @return status and settings. */
    virtual SettingsReply getSettings() = 0;

    /**
     * Applies @p settings to the system; unknown keys are ignored.
     * @return `true` when any step failed, `false` when everything was applied.
     */
    virtual bool setSettings(QHash<QString, QVariant> settings) = 0;

    /** The module's name key, also the prefix of its diagnostics. */
    virtual QString getName() = 0;

    /** Whether the host may offer this module under the current security mode. */
    virtual bool isAvailable() = 0;

    /** @return the keys of @p parameters that the module does not know (empty when all are known).
     */
    virtual QStringList isParametersCorrect(QSet<QString> parameters) = 0;

    /** A further veto on a whole settings hash before it is applied; the base accepts all. */
    virtual bool checkRestrictions(const QHash<QString, QVariant> &settings);

    /** @return @p message as a diagnostic line: "<name key> : <message>\n". */
    QString formatOutput(QString message);

protected:
    /** @return @p given minus @p known, as a list (the set difference behind isParametersCorrect).
     */
    static QStringList unknownKeys(QSet<QString> given, const QSet<QString> &known);
};

#endif // ZQLMODULES_MODULEINTERFACE_H
