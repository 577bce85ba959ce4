#ifndef ZQLMODULES_DIGSIGMODULE_H
#define ZQLMODULES_DIGSIGMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

#include <QCoreApplication>

/**
 * The "digsig" module: signature checking of executables and extended attributes as the
 * settings "Files", "Attributes" (each "On", "Off" or "Debug") and "Templates" (the text of
 * xattr_control).
 *
 * Owns no data. Every write replaces both signature files (DigSigConfig) and rebuilds the initial
 * RAM disks, remounting "/boot" read-write for the rebuild when it is mounted read-only.
 */
class ZQLMODULES_EXPORT DigSigModule : public ModuleInterface
{
    Q_DECLARE_TR_FUNCTIONS(DigSigModule)

public:
    DigSigModule();
    ~DigSigModule() override;

    /**
     * Reads both files. @return status 0 with "Files", "Attributes" ("Unknown" for a mode
     * without a name) and, when the text is not empty, "Templates"; status 1 and nothing when a
     * file has a problem (every problem is written to standard error).
     */
    SettingsReply getSettings() override;

    /**
     * Writes "Files", "Attributes" and "Templates" (an absent key writes off, or an empty
     * text), keeps the two ignore flags of the files, then rebuilds the initial RAM disks.
     * Warnings of the rebuild go to standard output.
     * @return `true` when a file could not be written or the rebuild failed.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "digsig". */
    QString getName() override;

    /** @return whether the security mode is 1 or 2. */
    bool isAvailable() override;

    /** @return the keys of @p parameters other than "Files", "Attributes" and "Templates". */
    QStringList isParametersCorrect(QSet<QString> parameters) override;
};

#endif // ZQLMODULES_DIGSIGMODULE_H
