#include "passwordpolicymodule.h"

#include "configfileengine.h"
#include "configfileengine_p.h"
#include "diagnosticstreams_p.h"
#include "passwordcomplexityreaderregexphandler.h"
#include "passwordcomplexityrewriterregexphandler.h"
#include "passwordhistoryreaderregexphandler.h"
#include "passwordpolicy_p.h"
#include "passwordvalidityperiodreaderregexphandler.h"
#include "passwordvalidityperiodrewriterregexphandler.h"
#include "processrunner_p.h"
#include "savefile_p.h"
#include "switchednumber_p.h"
#include "useraddreaderregexphandler.h"
#include "useraddrewriterregexphandler.h"

#include <QFile>
#include <QObject>
#include <QRegularExpression>
#include <QSet>

namespace {
const QString ModuleName = QStringLiteral("password-policy");
const QString ComplexityKey = QStringLiteral("complexity");
const QString ValidityPeriodKey = QStringLiteral("validity-period");
const QString HistoryKey = QStringLiteral("history");
const QSet<QString> KnownKeys = {ComplexityKey, ValidityPeriodKey};
const QSet<QString> KnownKeysWithHistory = {ComplexityKey, ValidityPeriodKey, HistoryKey};

const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
const QString CracklibProfile = QStringLiteral("/usr/share/pam-configs/cracklib");
const QString PwqualityProfile = QStringLiteral("/usr/share/pam-configs/pwquality");
const QString HistoryProfile = QStringLiteral("/usr/share/pam-configs/pwhistory");
const QString LoginDefs = QStringLiteral("/etc/login.defs");
const QString UserAddDefaults = QStringLiteral("/etc/default/useradd");

// Found on the search path for the complexity profiles, by its full path for the history one.
const QString PamAuthUpdate = QStringLiteral("pam-auth-update");
const QString PamAuthUpdatePath = QStringLiteral("/usr/sbin/pam-auth-update");

const QRegularExpression ComplexityModule(QStringLiteral("(pam_cracklib|pam_pwquality)\\.so"));
const QRegularExpression MinLengthOption(QStringLiteral("\\bminlen=(?<minlen>\\d+)\\b"));
const QString MinLengthFormat = QStringLiteral("minlen=%1");

// The history profile is written whole from this text; %1 (twice) is the option text.
const QString HistoryProfileTemplate =
    QStringLiteral("Name: Checking password history using pam_pwhistory module\n"
                   "Default: none\n"
                   "Priority: 1023\n"
                   "Conflicts: unix-zany\n"
                   "Password-Type: Primary\n"
                   "Password:\n"
                   "\trequisite\t\t\tpam_pwhistory.so use_authtok %1\n"
                   "Password-Initial:\n"
                   "\trequisite\t\t\tpam_pwhistory.so %1\n");

// The settings value under @p key as a hash; hosts that built it from JSON may hand a map.
// The message for the first switched number of the three parts that no file can hold, or a
// null text.
QString unusableNumbers(const QHash<QString, QVariant> &complexity,
                        const QHash<QString, QVariant> &validityPeriod,
                        const QHash<QString, QVariant> &history)
{
    QString message = SwitchedNumber::unusableNumber(complexity, PasswordComplexity::NumberKeys);
    if (message.isNull())
        message = SwitchedNumber::unusableNumber(
            validityPeriod,
            {PasswordValidityPeriod::MaxIntervalKey, PasswordValidityPeriod::MinIntervalKey,
             PasswordValidityPeriod::WarningIntervalKey, UserAdd::InactiveIntervalKey,
             UserAdd::ExpireDateKey});
    if (message.isNull())
        message = SwitchedNumber::unusableNumber(history, {PasswordHistory::RememberKey});
    return message;
}

QHash<QString, QVariant> subHash(const QVariant &value)
{
    if (value.userType() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        QHash<QString, QVariant> hash;
        for (auto it = map.constBegin(); it != map.constEnd(); ++it)
            hash.insert(it.key(), it.value());
        return hash;
    }
    return value.toHash();
}
} // namespace

PasswordPolicyModule::PasswordPolicyModule(const PamToolLimits &limits)
    : m_limits(limits)
{}

PasswordPolicyModule::~PasswordPolicyModule() = default;

SettingsReply PasswordPolicyModule::getSettings()
{
    if (readComplexity() != 0 || readValidityPeriod() != 0)
        return {StatusFailure, {}};
    if (QFile::exists(HistoryProfile) && readHistory() != 0)
        return {StatusFailure, {}};
    return {StatusSuccess, m_settings};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool PasswordPolicyModule::setSettings(QHash<QString, QVariant> settings)
{
    // Every number is looked at before the first part is written, so that a bad one in a later
    // part does not leave the earlier parts changed.
    const QString unusable = unusableNumbers(subHash(settings.value(ComplexityKey)),
                                             subHash(settings.value(ValidityPeriodKey)),
                                             subHash(settings.value(HistoryKey)));
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return true;
    }
    // A missing part fails without a message: the host sent an incomplete policy.
    if (!settings.contains(ComplexityKey) ||
        setComplexity(subHash(settings.value(ComplexityKey))) != 0)
        return true;
    if (!settings.contains(ValidityPeriodKey) ||
        setValidityPeriod(subHash(settings.value(ValidityPeriodKey))) != 0)
        return true;
    return setHistory(subHash(settings.value(HistoryKey))) != 0;
}

QString PasswordPolicyModule::getName()
{
    return ModuleName;
}

bool PasswordPolicyModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList PasswordPolicyModule::isParametersCorrect(QSet<QString> parameters)
{
    // History settings are accepted only once a history policy exists on the system.
    const QSet<QString> &known = QFile::exists(HistoryProfile) ? KnownKeysWithHistory : KnownKeys;
    return unknownKeys(std::move(parameters), known);
}

int PasswordPolicyModule::readComplexity()
{
    QHash<QString, QVariant> complexity;
    PasswordComplexity::ReaderRegExpHandler reader(&complexity);
    QString errors;
    if (!readFileWithHandler(CommonPassword, reader, errors)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    if (!reader.found()) {
        writeDiagnostic(errorStream,
                        formatOutput(QObject::tr("\"%1\" not contain \"pam_cracklib or "
                                                 "pam_pwquality\"")
                                         .arg(CommonPassword)));
        return 1;
    }
    if (!errors.isEmpty())
        writeDiagnostic(outputStream, formatOutput(errors));
    m_settings.insert(ComplexityKey, complexity);
    return 0;
}

int PasswordPolicyModule::readHistory()
{
    QHash<QString, QVariant> history;
    PasswordHistory::ReaderRegExpHandler reader(&history);
    QString errors;
    if (!readFileWithHandler(CommonPassword, reader, errors)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    if (!reader.found()) {
        writeDiagnostic(
            errorStream,
            formatOutput(QObject::tr("\"%1\" not contain \"pam_pwhistory\"").arg(CommonPassword)));
        return 1;
    }
    if (!errors.isEmpty())
        writeDiagnostic(outputStream, formatOutput(errors));
    m_settings.insert(HistoryKey, history);
    return 0;
}

int PasswordPolicyModule::readValidityPeriod()
{
    QHash<QString, QVariant> validity;
    PasswordValidityPeriod::ReaderRegExpHandler loginDefsReader(&validity);
    UserAdd::ReaderRegExpHandler userAddReader(&validity);
    QString errors;
    if (!readFileWithHandler(LoginDefs, loginDefsReader, errors) ||
        !readFileWithHandler(UserAddDefaults, userAddReader, errors)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    if (!errors.isEmpty())
        writeDiagnostic(outputStream, formatOutput(errors));
    m_settings.insert(ValidityPeriodKey, validity);
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
int PasswordPolicyModule::setComplexity(QHash<QString, QVariant> settings)
{
    const QString unusable = unusableNumbers(settings, {}, {});
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return 1;
    }
    const bool hasCracklib = QFile::exists(CracklibProfile);
    const bool hasPwquality = QFile::exists(PwqualityProfile);
    if (!hasCracklib && !hasPwquality) {
        writeDiagnostic(errorStream,
                        formatOutput(QObject::tr("Both profiles of supported PAM modules do not "
                                                 "exist (%1, %2)")
                                         .arg(CracklibProfile, PwqualityProfile)));
        return 1;
    }

    // Each profile gets its own rewriter, so that a profile without its module line is
    // reported whatever the other one held.
    const struct
    {
        bool exists;
        const QString &path;
        QString notContain;
    } profiles[] = {{hasCracklib, CracklibProfile,
                     QObject::tr("\"%1\" not contain \"pam_cracklib\"").arg(CracklibProfile)},
                    {hasPwquality, PwqualityProfile,
                     QObject::tr("\"%1\" not contain \"pam_pwquality\"").arg(PwqualityProfile)}};
    for (const auto &profile : profiles) {
        if (!profile.exists)
            continue;
        PasswordComplexity::RewriterRegExpHandler rewriter(settings);
        QString errors;
        if (!rewriteFileWithHandler(profile.path, rewriter, errors, false)) {
            writeDiagnostic(errorStream, formatOutput(errors));
            return 1;
        }
        if (!rewriter.found()) {
            writeDiagnostic(errorStream, formatOutput(profile.notContain));
            return 1;
        }
    }

    const QStringList updateArguments{QStringLiteral("--package")};
    ProcessRunOptions updateOptions;
    updateOptions.startTimeoutMs = m_limits.startTimeoutMs;
    updateOptions.finishTimeoutMs = m_limits.finishTimeoutMs;
    const ProcessOutcome update = runTool(PamAuthUpdate, updateArguments, updateOptions);
    if (!update.exitedWithZero()) {
        writeDiagnostic(errorStream, formatOutput(processFailureMessage(PamAuthUpdate,
                                                                        updateArguments, update)));
        return 1;
    }
    const QString warning = QString::fromLocal8Bit(update.standardError).trimmed();
    if (!warning.isEmpty())
        writeDiagnostic(outputStream, formatOutput(warning));

    return repairMinimumLength(settings);
}

// The regenerated stack must carry the wanted minlen once. The pieces around the old option are
// joined without a separator and the option is appended at the end of the line.
int PasswordPolicyModule::repairMinimumLength(const QHash<QString, QVariant> &settings)
{
    QFile input(CommonPassword);
    if (!input.open(QIODevice::ReadOnly))
        return 0;
    QStringList lines = QString::fromUtf8(input.readAll()).split(QLatin1Char('\n'));
    input.close();

    const qint64 wanted =
        SwitchedNumber::number(SwitchedNumber::setting(settings, PasswordComplexity::MinLengthKey));
    bool changed = false;
    for (QString &line : lines) {
        if (!line.contains(ComplexityModule))
            continue;
        const QRegularExpressionMatch match = MinLengthOption.match(line);
        if (!match.hasMatch())
            continue;
        int count = 0;
        for (auto it = MinLengthOption.globalMatch(line); it.hasNext(); it.next())
            ++count;
        if (count == 1 && match.captured(QStringLiteral("minlen")).toLongLong() == wanted)
            continue;
        QStringList pieces = line.split(MinLengthOption, Qt::SkipEmptyParts);
        pieces.append(MinLengthFormat.arg(wanted));
        line = pieces.join(QString());
        changed = true;
    }
    if (!changed)
        return 0;

    // The stack is replaced whole or not at all: a half-written common-password could refuse
    // every password change.
    SaveFile output(CommonPassword);
    if (!output.open(QIODevice::WriteOnly))
        return 0;
    if (!output.saveWhole(lines.join(QLatin1Char('\n')).toUtf8())) {
        writeDiagnostic(errorStream, formatOutput(fileErrorMessage(output)));
        return 1;
    }
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
int PasswordPolicyModule::setHistory(QHash<QString, QVariant> settings)
{
    const QString unusable = unusableNumbers({}, {}, settings);
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return 1;
    }
    // The old profile goes first, so a failure below leaves no history policy in force rather
    // than a stale one.
    if (QFile::exists(HistoryProfile)) {
        if (!switchHistoryProfile(false)) {
            writeDiagnostic(errorStream,
                            formatOutput(QObject::tr("Error when deleting previous configuration "
                                                     "pam_pwhistory (call pam-auth-update "
                                                     "failed)")));
            return 1;
        }
        if (!QFile::remove(HistoryProfile)) {
            // The message has no closing parenthesis; hosts match it as it is.
            writeDiagnostic(errorStream,
                            formatOutput(QObject::tr("Error when deleting previous configuration "
                                                     "pam_pwhistory (failed to delete "
                                                     "configuration file %1")
                                             .arg(HistoryProfile)));
            return 1;
        }
    }
    if (settings.isEmpty())
        return 0;

    SaveFile profile(HistoryProfile);
    if (!profile.open(QIODevice::WriteOnly)) {
        writeDiagnostic(
            errorStream,
            formatOutput(
                QObject::tr("Failed to create configuration file %1").arg(HistoryProfile)));
        return 1;
    }

    QString options;
    if (settings.value(PasswordHistory::EnforceForRootKey).toBool())
        options += PasswordHistory::EnforceForRootKey;
    const QJsonArray remember = SwitchedNumber::setting(settings, PasswordHistory::RememberKey);
    if (remember.size() == 2 && remember.at(0).toBool()) {
        if (!options.isEmpty())
            options += QLatin1Char(' ');
        options += PasswordHistory::RememberKey + QLatin1Char('=') +
                   QString::number(SwitchedNumber::number(remember));
    }

    if (!profile.saveWhole(HistoryProfileTemplate.arg(options).toLocal8Bit())) {
        writeDiagnostic(
            errorStream,
            formatOutput(QObject::tr("Failed to write configuration file %1").arg(HistoryProfile)));
        return 1;
    }

    if (!switchHistoryProfile(true)) {
        // The caller is told success: the message is the only sign that the policy is not in
        // force.
        QFile::remove(HistoryProfile);
        writeDiagnostic(errorStream,
                        formatOutput(QObject::tr("pam_pwhistory configuration update failed "
                                                 "(call pam-auth-update failed)")));
    }
    return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): exported operation takes a copy
int PasswordPolicyModule::setValidityPeriod(QHash<QString, QVariant> settings)
{
    const QString unusable = unusableNumbers({}, settings, {});
    if (!unusable.isNull()) {
        writeDiagnostic(errorStream, formatOutput(unusable));
        return 1;
    }
    QString errors;
    PasswordValidityPeriod::RewriterRegExpHandler loginDefsRewriter(settings);
    if (!rewriteFileWithHandler(LoginDefs, loginDefsRewriter, errors, true)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    UserAdd::RewriterRegExpHandler userAddRewriter(settings);
    if (!rewriteFileWithHandler(UserAddDefaults, userAddRewriter, errors, true)) {
        writeDiagnostic(errorStream, formatOutput(errors));
        return 1;
    }
    // These defaults reach only accounts created from now on.
    QString note;
    if (!errors.isEmpty())
        note = errors + QLatin1Char('\n');
    note += QObject::tr("Default password expiration policy will be applied only for new user "
                        "creation");
    writeDiagnostic(outputStream, formatOutput(note));
    return 0;
}

// Enables or removes the history profile through "pam-auth-update". The tool's own output goes
// straight to the host's streams; only its exit code counts. It may take as long as it needs to
// start.
bool PasswordPolicyModule::switchHistoryProfile(bool enable)
{
    ProcessRunOptions options;
    options.startTimeoutMs = -1;
    options.finishTimeoutMs = m_limits.historySwitchTimeoutMs;
    options.forwardOutput = true;
    return runTool(PamAuthUpdatePath,
                   {QStringLiteral("--package"),
                    enable ? QStringLiteral("--enable") : QStringLiteral("--remove"),
                    QStringLiteral("pwhistory"), QStringLiteral("--force")},
                   options)
        .exitedWithZero();
}
