#ifndef ZQLMODULES_AUDITMODULE_H
#define ZQLMODULES_AUDITMODULE_H

#include "moduleinterface.h"
#include "zqlmodules_export.h"

#include <QCoreApplication>

/**
 * The "audit" module: the security subsystem's default audit flags, as the 64-bit masks
 * "success" and "fail" (operations audited when they succeed, when they fail).
 *
 * Owns no data. The flags live in the audit database, reached only through the platform's
 * audit calls, which keep 32 bits a mask: writing keeps the low 32 bits, reading widens with
 * zeros. Every write is reported to the security event log after the database is closed.
 */
class ZQLMODULES_EXPORT AuditModule : public ModuleInterface
{
    Q_DECLARE_TR_FUNCTIONS(AuditModule)

public:
    AuditModule();
    ~AuditModule() override;

    /**
     * Reads the default entry. @return status 0 with "success" and "fail" (unsigned 64-bit),
     * or with no keys when the database has no default entry; status 1 when it cannot be opened.
     */
    SettingsReply getSettings() override;

    /**
     * Writes "success" and "fail" (0 when missing or not a number; low 32 bits kept) and sends
     * the change to the event log.
     * @return `true` when the write failed or the event log refused the event.
     */
    bool setSettings(QHash<QString, QVariant> settings) override;

    /** @return "audit". */
    QString getName() override;

    /** @return `true`: the module is offered in every security mode. */
    bool isAvailable() override;

    /** @return the keys of @p parameters other than "success" and "fail". */
    QStringList isParametersCorrect(QSet<QString> parameters) override;

    /**
     * The flag text of @p mask: for each line i of "/tesselfs/ts-audit-info" (empty lines left
     * out) whose bit i is set, the part of the line after its first ":", in line order.
     * @return the texts joined without separator; empty when the file cannot be read.
     */
    static QString auditToString(unsigned long long mask);
};

#endif // ZQLMODULES_AUDITMODULE_H
