#include "accountlockoutmodule.h"

#include "accountlockout_p.h"
#include "accountlockoutreaderregexphandler.h"
#include "accountlockoutrewriterregexphandler.h"
#include "configfileengine.h"
#include "configfileengine_p.h"
#include "diagnosticstreams_p.h"
#include "savefile_p.h"
#include "switchednumber_p.h"

#include <QFile>
#include <QObject>
#include <QRegularExpression>
#include <QSet>

#include <utility>

namespace {
const QString ModuleName = QStringLiteral("account-lockout");
const QString TallyProfile = QStringLiteral("/usr/share/pam-configs/tally");
const QString CommonAuth = QStringLiteral("/etc/pam.d/common-auth");
const QString PamAuthUpdate = QStringLiteral("pam-auth-update");
const QString TallyModule = QStringLiteral("pam_tally.so");
const QStringList NumberKeys = {AccountLockout::DenyKey, AccountLockout::LockTimeKey,
                                AccountLockout::UnlockTimeKey};
const QRegularExpression DenyOption(QStringLiteral("\\bdeny=(?<deny>\\d+)\\b"));
const QString DenyFormat = QStringLiteral("deny=%1");
const QSet<QString> KnownKeys = {AccountLockout::PerUserKey,  AccountLockout::MagicRootKey,
                                 AccountLockout::NoResetKey,  AccountLockout::DenyKey,
                                 AccountLockout::LockTimeKey, AccountLockout::UnlockTimeKey};

QString notContainMessage()
{
    return QObject::tr("\"%1\" not contain \"pam_tally\"").arg(TallyProfile);
}
} // namespace

AccountLockoutModule::AccountLockoutModule(const PamToolLimits &limits)
    : m_limits(limits)
{}

AccountLockoutModule::~AccountLockoutModule() = default;

SettingsReply AccountLockoutModule::getSettings()
{
    QString errors;
    AccountLockout::ReaderRegExpHandler reader(m_settings);
    if (!readFileWithHandler(CommonAuth, reader, errors)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return {StatusFailure, {}};
    }
    if (!reader.found()) {
        // The profile is named: it is what an administrator has to repair.
        writeDiagnostic(errorStream, formatOutput(notContainMessage()));
        return {StatusFailure, {}};
    }
    if (!errors.isEmpty())
        writeDiagnostic(outputStream, formatOutput(errors));
    return {StatusSuccess, m_settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool AccountLockoutModule::setSettings(QHash<QString, QVariant> settings)
{
    // A number no file can hold is refused before the profile leaves the stack.
    const QString unusable = SwitchedNumber::unusableNumber(settings, NumberKeys);
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return true;
    }
    // Out of the stack first, so that the stack never runs a half-written profile; the new
    // options reach the stack when the profile is put back.
    QString error = pamAuthUpdate(false);
    if (error.isEmpty())
        error = rewritePamTallyFile(settings);
    if (error.isEmpty())
        error = pamAuthUpdate(true);
    if (error.isEmpty())
        return false;
    writeDiagnostic(errorStream, formatOutput(error));
    return true;
}

QString AccountLockoutModule::getName()
{
    return ModuleName;
}

bool AccountLockoutModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList AccountLockoutModule::isParametersCorrect(QSet<QString> parameters)
{
    return unknownKeys(std::move(parameters), KnownKeys);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
QString AccountLockoutModule::rewritePamTallyFile(QHash<QString, QVariant> settings)
{
    QString unusable = SwitchedNumber::unusableNumber(settings, NumberKeys);
    if (!unusable.isNull())
        return unusable;
    QString errors;
    AccountLockout::RewriterRegExpHandler rewriter(settings);
    if (rewriteFileWithHandler(TallyProfile, rewriter, errors, false) && !rewriter.found())
        errors = notContainMessage();
    return errors;
}

QString AccountLockoutModule::pamAuthUpdate(bool enable)
{
    const QStringList arguments = {QStringLiteral("--package"),
                                   enable ? QStringLiteral("--enable") : QStringLiteral("--remove"),
                                   QStringLiteral("tally"), QStringLiteral("--force")};
    return runProcess(PamAuthUpdate, arguments, m_limits.startTimeoutMs, m_limits.finishTimeoutMs);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
void AccountLockoutModule::commonAuthUpdate(QHash<QString, QVariant> settings)
{
    const QString unusable = SwitchedNumber::unusableNumber(settings, NumberKeys);
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return;
    }
    const QJsonArray deny = SwitchedNumber::setting(settings, AccountLockout::DenyKey);
    QFile input(CommonAuth);
    if (!input.open(QIODevice::ReadOnly)) {
        writeDiagnostic(errorStream, formatOutput(fileErrorMessage(input)));
        return;
    }
    QStringList lines = QString::fromUtf8(input.readAll()).split(QLatin1Char('\n'));
    input.close();
    if (!SwitchedNumber::isOn(deny))
        return;

    const QString wanted = DenyFormat.arg(SwitchedNumber::number(deny));
    for (QString &line : lines) {
        if (!line.contains(TallyModule))
            continue;
        // Every deny option of the line gets the new number, so that none contradicts it.
        if (line.contains(DenyOption))
            line.replace(DenyOption, wanted);
        else
            line += QLatin1Char(' ') + wanted;
    }

    // The stack is replaced whole or not at all: a half-written common-auth could lock out
    // every user.
    SaveFile output(CommonAuth);
    if (!output.open(QIODevice::WriteOnly)) {
        writeDiagnostic(errorStream, formatOutput(fileErrorMessage(output)));
        return;
    }
    if (!output.saveWhole(lines.join(QLatin1Char('\n')).toUtf8()))
        writeDiagnostic(errorStream, formatOutput(fileErrorMessage(output)));
}
