#ifndef ZQLMODULES_MAICMODULE_H
#define ZQLMODULES_MAICMODULE_H

#include "moduleinterface.h"
#include "userlistreader.h"
#include "zqlmodules_export.h"

/**
 * The "maic" module: the names of the MAC categories ("mac-categories", bit number to name) and
 * of the MAC levels ("mac-levels", level to name), kept in the security subsystem's category
 * and level databases.
 *
 * Only adds or renames entries through the databases' own functions; never deletes or
 * renumbers one, and never touches the users' labels, which it only reads.
 */
class ZQLMODULES_EXPORT MaicModule : public ModuleInterface, public UserListReader
{
public:
    MaicModule();
    ~MaicModule() override;

    /** Reads both tables (each twice). @return status and the two nested tables. */
    SettingsReply getSettings() override;

    /**
     * Writes the entries of "mac-categories", then of "mac-levels", that differ from the
     * databases. @return `true` when a write or a read failed, or a name is taken.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "maic". */
    QString getName() override;

    /** @return `true` in security mode 1 or 2. */
    bool isAvailable() override;

    /** @return the keys of @p parameters unknown in the current mode: mode 1 knows
     * "mac-levels", mode 2 also "mac-categories", any other mode nothing. */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /** @return status and the category table: bit number (decimal) to name. */
    SettingsReply getCategories();

    /** @return status and the level table: level (decimal) to name. */
    SettingsReply getMacLevels();

    /** @return the table named @p name ("mac-categories" or "mac-levels"). */
    SettingsReply getParam(QString name);

    /** Writes the entries of @p values that differ from table @p name. @return 0 or 1. */
    int setParameter(QString name, QHash<QString, QVariant> values);

    /** Writes one entry of table @p name; an unknown table does nothing. @return 0 or 1. */
    int setValueInParam(QString name, int number, QString text);

    /** Names category bit @p bit (taken modulo 64) @p name. @return 0 or 1. */
    int setCategory(int bit, QString name);

    /** Names level @p level (taken as one byte) @p name. @return 0 or 1. */
    int setMacLevel(int level, QString name);

    /** @return the number of a set bit of @p mask: the only one of a one-bit mask. Never
     * returns for 0. */
    static int digit(unsigned long long mask);
};

#endif // ZQLMODULES_MAICMODULE_H
