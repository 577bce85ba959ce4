#include "auditmodule.h"

#include "diagnosticstreams_p.h"
#include "tessel/auditdb.h"
#include "tessel/eventlog.h"

#include <QFile>

#include <cerrno>
#include <cstring>

namespace {
const QString ModuleName = QStringLiteral("audit");
const QString SuccessKey = QStringLiteral("success");
const QString FailKey = QStringLiteral("fail");
const QSet<QString> KnownKeys{SuccessKey, FailKey};

const QString AuditInfoPath = QStringLiteral("/tesselfs/ts-audit-info");
const QChar FlagSeparator = QLatin1Char(':');
constexpr unsigned MaskBits = 64;

// The entry of the audit database that holds the defaults, and its (empty) name on look-up.
constexpr int32_t DefaultsType = AUDIT_DEFAULTS_TYPE;
const char DefaultsName[] = "";
// The event of a change of the defaults.
constexpr int ChangeEventCode = 99;
const QString ChangeEventFormat = QStringLiteral("%1:%2:%3");
const QString ChangeEventMarker = QStringLiteral("o");

const QString OpenFailureFormat = QStringLiteral("openauddb_r() == 0\n%1");
const QString PutFailureFormat = QStringLiteral("putaudent_r() != 0\n%1");

QString systemReason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// The mask of @p key: 0 when missing or not a number; only the low 32 bits are stored.
uint32_t storedMask(const QHash<QString, QVariant> &settings, const QString &key)
{
    bool ok = false;
    const qulonglong mask = settings.value(key).toULongLong(&ok);
    return ok ? static_cast<uint32_t>(mask & 0xffffffffULL) : 0;
}
} // namespace

AuditModule::AuditModule() = default;

AuditModule::~AuditModule() = default;

SettingsReply AuditModule::getSettings()
{
    auddb *db = openauddb_r();
    if (db == nullptr) {
        const QString reason = systemReason(errno);
        writeDiagnostic(errorStream,
                        formatOutput(tr("Internal errror: %1").arg(OpenFailureFormat.arg(reason))));
        return {StatusFailure, {}};
    }
    QHash<QString, QVariant> settings;
    if (audent *entry = getaudtype_r(db, DefaultsType, DefaultsName)) {
        settings.insert(SuccessKey, QVariant::fromValue<qulonglong>(entry->ae_success));
        settings.insert(FailKey, QVariant::fromValue<qulonglong>(entry->ae_fail));
        freeaudent_r(entry);
    }
    closeauddb_r(db);
    return {StatusSuccess, settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool AuditModule::setSettings(QHash<QString, QVariant> settings)
{
    auddb *db = openauddb_r();
    if (db == nullptr) {
        const QString reason = systemReason(errno);
        writeDiagnostic(errorStream,
                        formatOutput(tr("Internal errror: %1").arg(OpenFailureFormat.arg(reason))));
        return true;
    }
    audent entry = {};
    entry.ae_type = DefaultsType;
    entry.ae_name = nullptr;
    entry.ae_success = storedMask(settings, SuccessKey);
    entry.ae_fail = storedMask(settings, FailKey);
    const int result = putaudent_r(db, &entry);
    const int putError = errno;
    closeauddb_r(db);

    // The event goes out after the database is closed; a refused event undoes nothing.
    const QByteArray text =
        ChangeEventFormat
            .arg(ChangeEventMarker, auditToString(entry.ae_success), auditToString(entry.ae_fail))
            .toLocal8Bit();
    const bool accepted = tessel_log_send(ChangeEventCode, result == 0 ? 1 : 0, text.constData(),
                                          static_cast<size_t>(text.size()), "", 0, "", 0) != 0;
    if (result == 0) {
        if (accepted)
            return false;
        writeDiagnostic(errorStream, formatOutput(tr("Failed to add audit record")));
        return true;
    }
    QString message = tr("Internal errror: %1").arg(PutFailureFormat.arg(systemReason(putError)));
    if (!accepted)
        message += QLatin1Char('\n') + tr("Failed to add audit record");
    writeDiagnostic(errorStream, formatOutput(message));
    return true;
}

QString AuditModule::getName()
{
    return ModuleName;
}

bool AuditModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList AuditModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}

QString AuditModule::auditToString(unsigned long long mask)
{
    QFile file(AuditInfoPath);
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines =
        QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QString flags;
    for (int i = 0; i < lines.size(); ++i) {
        if ((mask >> (static_cast<unsigned>(i) % MaskBits)) & 1ULL) {
            // Everything after the first colon; a line without one gives nothing.
            const int colon = lines.at(i).indexOf(FlagSeparator);
            if (colon >= 0)
                flags += lines.at(i).mid(colon + 1);
        }
    }
    return flags;
}
