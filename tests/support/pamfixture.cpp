#include "pamfixture.h"

#include "sandboxguard.h"
#include "systemfixture.h"
#include "toolrun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <crypt.h>

namespace ZqlTest {

const QString PamAuthUpdatePath = QStringLiteral("/usr/sbin/pam-auth-update");
const QString SimulatedPamAuthUpdatePath = QStringLiteral("/usr/lib/zql-sim/pam-auth-update");
const QString DebianPamAuthUpdatePath = QStringLiteral("/usr/lib/zql-sim/pam-auth-update.debian");
const QString PamAuthUpdateStatePath = QStringLiteral("/var/lib/zql-sim/pam-auth-update");
const QString PamAuthUpdateCallsPath = QStringLiteral("/var/lib/zql-sim/pam-auth-update.calls");
const QString PasswordCheckService = QStringLiteral("zql-passwd-check");
const QByteArray PasswordCheckServiceText("#%PAM-1.0\n@include common-password\n");

namespace {
const QString ToolName = QStringLiteral("pam-auth-update");
const QString PamServiceDir = QStringLiteral("/etc/pam.d");
const QString ShadowPath = QStringLiteral("/etc/shadow");
const QString PasswdTool = QStringLiteral(ZQL_PAM_PASSWD_TOOL);
const QFileDevice::Permissions ExecutableMode =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
    QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
// yescrypt, as Debian's pam_unix writes it.
const char HashPrefix[] = "$y$";
// removePamAuthUpdate() gives up when the search path holds more copies than this.
const int MaxCopiesOnPath = 8;

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

// Copies @p source over @p target (replacing it) with the mode of an executable.
bool installExecutable(const QString &source, const QString &target, QString *error)
{
    QFile::remove(target);
    QFile file(source);
    if (!file.copy(target))
        return fail(error,
                    QStringLiteral("copy %1 to %2: %3").arg(source, target, file.errorString()));
    if (!QFile::setPermissions(target, ExecutableMode))
        return fail(error, QStringLiteral("make %1 executable").arg(target));
    return true;
}

// Keeps Debian's own tool at DebianPamAuthUpdatePath, once: the simulated one and removals
// then never lose it.
bool keepDebianTool(QString *error)
{
    if (QFileInfo::exists(DebianPamAuthUpdatePath))
        return true;
    if (!QFileInfo::exists(SimulatedPamAuthUpdatePath))
        return fail(error, QStringLiteral("%1 is missing: is sim/layer laid over the root?")
                               .arg(SimulatedPamAuthUpdatePath));
    const QByteArray installed = readBytes(PamAuthUpdatePath);
    if (installed.isEmpty())
        return fail(error, QStringLiteral("%1 is missing and no copy of Debian's tool is kept")
                               .arg(PamAuthUpdatePath));
    if (installed == readBytes(SimulatedPamAuthUpdatePath))
        return fail(error, QStringLiteral("%1 is already the simulated tool, but no copy of "
                                          "Debian's is kept")
                               .arg(PamAuthUpdatePath));
    return installExecutable(PamAuthUpdatePath, DebianPamAuthUpdatePath, error);
}

bool writeState(const QByteArray &state, QString *error)
{
    if (!QDir().mkpath(QFileInfo(PamAuthUpdateStatePath).path()) ||
        !writeBytes(PamAuthUpdateStatePath, state))
        return fail(error, QStringLiteral("cannot write %1").arg(PamAuthUpdateStatePath));
    QFile::remove(PamAuthUpdateCallsPath);
    return true;
}

bool installSimulation(const QByteArray &state, QString *error)
{
    return insideSandbox(error) && keepDebianTool(error) && writeState(state, error) &&
           installExecutable(SimulatedPamAuthUpdatePath, PamAuthUpdatePath, error);
}

QByteArray behaviourWord(PamAuthUpdateBehaviour behaviour)
{
    switch (behaviour) {
    case PamAuthUpdateBehaviour::Debian:
        return "debian";
    case PamAuthUpdateBehaviour::Target:
        return "target";
    case PamAuthUpdateBehaviour::Hang:
        return "hang";
    case PamAuthUpdateBehaviour::Crash:
        return "crash";
    }
    return "debian";
}

// Where a lookup of pam-auth-update succeeds now: the search path, then the full path.
QString findPamAuthUpdate()
{
    QString onPath = QStandardPaths::findExecutable(ToolName);
    if (!onPath.isEmpty())
        return onPath;
    return QFileInfo::exists(PamAuthUpdatePath) ? PamAuthUpdatePath : QString();
}

QString outcomeName(PasswordChange::Outcome outcome)
{
    switch (outcome) {
    case PasswordChange::Outcome::Accepted:
        return QStringLiteral("accepted");
    case PasswordChange::Outcome::Refused:
        return QStringLiteral("refused");
    case PasswordChange::Outcome::CurrentPasswordWrong:
        return QStringLiteral("current password wrong");
    case PasswordChange::Outcome::StackFailed:
        return QStringLiteral("stack failed");
    case PasswordChange::Outcome::NotRun:
        break;
    }
    return QStringLiteral("not run");
}

PasswordChange notRun(const QString &why)
{
    PasswordChange change;
    change.messages << QStringLiteral("result: %1").arg(why);
    return change;
}
} // namespace

bool simulatePamAuthUpdate(PamAuthUpdateBehaviour behaviour, QString *error)
{
    return installSimulation(behaviourWord(behaviour) + '\n', error);
}

bool useTargetPamStack(QString *error)
{
    if (!simulatePamAuthUpdate(PamAuthUpdateBehaviour::Target, error))
        return false;
    const ToolRun regenerate =
        runTool(QStringLiteral("pam-auth-update"), {QStringLiteral("--package")});
    return regenerate.succeeded() || fail(error, regenerate.describe());
}

bool simulatePamAuthUpdateExit(int exitCode, const QByteArray &standardError, QString *error)
{
    return installSimulation("exit " + QByteArray::number(exitCode) + '\n' + standardError, error);
}

bool simulatePamAuthUpdateWarning(const QByteArray &standardError, QString *error)
{
    return installSimulation("warn\n" + standardError, error);
}

bool restorePamAuthUpdate(QString *error)
{
    if (!insideSandbox(error))
        return false;
    QFile::remove(PamAuthUpdateStatePath);
    QFile::remove(PamAuthUpdateCallsPath);
    if (!QFileInfo::exists(DebianPamAuthUpdatePath))
        return QFileInfo::exists(PamAuthUpdatePath) ||
               fail(error, QStringLiteral("%1 is missing and no copy of Debian's tool is kept")
                               .arg(PamAuthUpdatePath));
    return installExecutable(DebianPamAuthUpdatePath, PamAuthUpdatePath, error);
}

bool removePamAuthUpdate(QString *error)
{
    if (!insideSandbox(error) || !keepDebianTool(error))
        return false;
    for (int copy = 0; copy < MaxCopiesOnPath; ++copy) {
        const QString found = findPamAuthUpdate();
        if (found.isEmpty())
            return true;
        if (!QFile::remove(found))
            return fail(error, QStringLiteral("cannot remove %1").arg(found));
    }
    return fail(error,
                QStringLiteral("pam-auth-update is still found: %1").arg(findPamAuthUpdate()));
}

QStringList pamAuthUpdateCalls()
{
    const QString calls = QString::fromLocal8Bit(readBytes(PamAuthUpdateCallsPath));
    return calls.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

bool writePamService(const QString &service, const QByteArray &text, QString *error)
{
    if (!insideSandbox(error))
        return false;
    const QString path = PamServiceDir + QLatin1Char('/') + service;
    if (!writeBytes(path, text))
        return fail(error, QStringLiteral("cannot write %1").arg(path));
    return true;
}

bool createUser(const QString &name, const QString &password, QString *error)
{
    if (!insideSandbox(error))
        return false;
    crypt_data data = {};
    const char *salt = crypt_gensalt_rn(HashPrefix, 0, nullptr, 0, data.setting,
                                        static_cast<int>(sizeof data.setting));
    const char *hash = salt ? crypt_r(password.toUtf8().constData(), salt, &data) : nullptr;
    if (!hash || hash[0] == '*')
        return fail(error, QStringLiteral("cannot hash the password of %1").arg(name));
    // -K keeps the sandbox's login.defs from making the password too young or too old to change.
    const ToolRun run =
        runTool(QStringLiteral("useradd"),
                {QStringLiteral("--no-create-home"), QStringLiteral("--password"),
                 QString::fromLatin1(hash), QStringLiteral("-K"), QStringLiteral("PASS_MIN_DAYS=0"),
                 QStringLiteral("-K"), QStringLiteral("PASS_MAX_DAYS=99999"), name});
    if (!run.succeeded())
        return fail(error, QStringLiteral("useradd %1: %2").arg(name, run.describe()));
    return true;
}

QByteArray shadowHash(const QString &user)
{
    const QByteArray prefix = user.toUtf8() + ':';
    const QList<QByteArray> lines = readBytes(ShadowPath).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(prefix))
            return line.split(':').value(1);
    }
    return {};
}

QStringList PasswordChange::errors() const
{
    const QString kind = QStringLiteral("error: ");
    QStringList reasons;
    for (const QString &message : messages) {
        if (message.startsWith(kind))
            reasons << message.mid(kind.size());
    }
    return reasons;
}

QString PasswordChange::describe() const
{
    return outcomeName(outcome) + QStringLiteral(":\n  ") + messages.join(QStringLiteral("\n  "));
}

PasswordChange changePassword(const QString &service, const QString &user, const QString &current,
                              const QString &next)
{
    QString error;
    if (!insideSandbox(&error))
        return notRun(error);
    const QByteArray before = shadowHash(user);
    const ToolRun run =
        runTool(PasswdTool, {service, user}, 30000, current.toUtf8() + '\n' + next.toUtf8() + '\n');

    PasswordChange change;
    change.messages =
        QString::fromLocal8Bit(run.standardOutput).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (run.ending != ToolRun::Ending::Exited) {
        change.messages << QStringLiteral("result: zql-pam-passwd %1").arg(run.describe());
        return change;
    }
    // The helper's exit codes, see tests/helpers/pampasswd.cpp.
    switch (run.exitCode) {
    case 0:
        change.outcome = PasswordChange::Outcome::Accepted;
        if (shadowHash(user) == before) {
            change.outcome = PasswordChange::Outcome::StackFailed;
            change.messages << QStringLiteral("result: accepted, but the shadow entry of %1 "
                                              "did not change")
                                   .arg(user);
        }
        break;
    case 1:
        change.outcome = PasswordChange::Outcome::Refused;
        break;
    case 2:
        change.outcome = PasswordChange::Outcome::CurrentPasswordWrong;
        break;
    case 3:
        change.outcome = PasswordChange::Outcome::StackFailed;
        break;
    default:
        change.messages << QStringLiteral("result: zql-pam-passwd %1").arg(run.describe());
        break;
    }
    return change;
}

} // namespace ZqlTest
