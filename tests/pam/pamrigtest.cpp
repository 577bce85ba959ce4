#include "pamfixture.h"
#include "pamsnapshot.h"
#include "systemfixture.h"
#include "testmain.h"
#include "toolrun.h"

#include <QElapsedTimer>

using ZqlTest::PamAuthUpdateBehaviour;
using ZqlTest::PasswordChange;
using Outcome = ZqlTest::PasswordChange::Outcome;

Q_DECLARE_METATYPE(ZqlTest::PamAuthUpdateBehaviour)
Q_DECLARE_METATYPE(ZqlTest::PasswordChange::Outcome)

namespace {
const QString CommonAuth = QStringLiteral("/etc/pam.d/common-auth");
const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
const QString ProfileDir = QStringLiteral("/usr/share/pam-configs/");
const QString PwqualityProfile = ProfileDir + QStringLiteral("pwquality");
const QString PwhistoryProfile = ProfileDir + QStringLiteral("pwhistory");
const QString Tool = QStringLiteral("pam-auth-update");

// The history profile exactly as the password policy writes it, with "remember=5".
const QByteArray PwhistoryProfileText(
    "Name: Checking password history using pam_pwhistory module\nDefault: none\n"
    "Priority: 1023\nConflicts: unix-zany\nPassword-Type: Primary\nPassword:\n"
    "\trequisite\t\t\tpam_pwhistory.so use_authtok remember=5\nPassword-Initial:\n"
    "\trequisite\t\t\tpam_pwhistory.so remember=5\n");

// Passwords that pass pwquality's dictionary check and pam_unix's "obscure" checks, and do not
// resemble each other.
const QString FirstPassword = QStringLiteral("Kx7#mPq2vLw9");
const QString StrongPassword = QStringLiteral("Hq3@vZp8Lm2#Wr"); // 14 characters
const QString OtherStrongPassword = QStringLiteral("Bn6%rTq9Xs4!Yd");
const QString ShortPassword = QStringLiteral("Tz4$nb8R"); // 8 characters

const QByteArray
    TallyAuthLine("auth\trequired\t\t\tpam_tally.so onerr=fail deny=5 unlock_time=900\n");
const QByteArray
    PwqualityMinlen12Line("password\trequisite\t\t\tpam_pwquality.so retry=3 minlen=12\n");

// Asks pwquality for minlen=12 by editing its profile by hand.
bool requireMinlen12(QString *error)
{
    const QByteArray profile = ZqlTest::readBytes(PwqualityProfile);
    if (!profile.contains("pam_pwquality.so retry=3\n")) {
        *error =
            QStringLiteral("unexpected %1: %2").arg(PwqualityProfile, QString::fromUtf8(profile));
        return false;
    }
    QByteArray edited = profile;
    edited.replace("pam_pwquality.so retry=3\n", "pam_pwquality.so retry=3 minlen=12\n");
    if (!ZqlTest::writeBytes(PwqualityProfile, edited)) {
        *error = QStringLiteral("cannot write %1").arg(PwqualityProfile);
        return false;
    }
    return true;
}
} // namespace

class PamRigTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void pwqualityMinimumLengthIsEnforced();
    void pwhistoryRefusesReuse_data();
    void pwhistoryRefusesReuse();
    void cracklibProfileStaysDisabled_data();
    void cracklibProfileStaysDisabled();
    void brokenStackIsNotTakenForPolicy_data();
    void brokenStackIsNotTakenForPolicy();

    void simulatedExit_data();
    void simulatedExit();
    void simulatedWarningRegeneratesTheStack();
    void simulatedHangIsCutByTheCallersLimit();
    void simulatedCrash();
    void missingTool();
    void tallyReachesCommonAuthOnlyThroughTheTargetTool_data();
    void tallyReachesCommonAuthOnlyThroughTheTargetTool();

private:
    // A new user with FirstPassword, and the password-check service.
    QString createUser();

    ZqlTest::PamSnapshot m_system;
    int m_users = 0;
};

void PamRigTest::initTestCase()
{
    QString error;
    QVERIFY2(m_system.take(&error), qPrintable(error));
}

// Every test starts from the sandbox's system as it came: Debian's tool, the profiles, stacks
// and accounts as they were.
void PamRigTest::init()
{
    QString error;
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(m_system.restore(&error), qPrintable(error));
}

void PamRigTest::cleanup()
{
    QString error;
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
}

QString PamRigTest::createUser()
{
    QString name = QStringLiteral("zqlrig%1").arg(++m_users);
    QString error;
    if (!ZqlTest::createUser(name, FirstPassword, &error) ||
        !ZqlTest::writePamService(ZqlTest::PasswordCheckService, ZqlTest::PasswordCheckServiceText,
                                  &error)) {
        qWarning("%s", qPrintable(error));
        return {};
    }
    return name;
}

void PamRigTest::pwqualityMinimumLengthIsEnforced()
{
    QString error;
    QVERIFY2(requireMinlen12(&error), qPrintable(error));
    const ZqlTest::ToolRun update = ZqlTest::runTool(Tool, {QStringLiteral("--package")});
    QVERIFY2(update.succeeded(), qPrintable(update.describe()));
    QVERIFY(ZqlTest::readBytes(CommonPassword).contains(PwqualityMinlen12Line));

    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    const PasswordChange tooShort =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, FirstPassword, ShortPassword);
    QVERIFY2(tooShort.outcome == Outcome::Refused, qPrintable(tooShort.describe()));
    QVERIFY2(tooShort.errors().contains(
                 QStringLiteral("BAD PASSWORD: The password is shorter than 12 characters")),
             qPrintable(tooShort.describe()));

    const QByteArray unchanged = ZqlTest::shadowHash(user);
    const PasswordChange strong =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, FirstPassword, StrongPassword);
    QVERIFY2(strong.outcome == Outcome::Accepted, qPrintable(strong.describe()));
    QVERIFY(ZqlTest::shadowHash(user) != unchanged);
}

void PamRigTest::pwhistoryRefusesReuse_data()
{
    QTest::addColumn<bool>("historyEnabled");
    QTest::addColumn<Outcome>("reuse");

    QTest::newRow("history enabled") << true << Outcome::Refused;
    // The control: without the profile, the same reuse goes through.
    QTest::newRow("no history") << false << Outcome::Accepted;
}

void PamRigTest::pwhistoryRefusesReuse()
{
    QFETCH(bool, historyEnabled);
    QFETCH(Outcome, reuse);

    if (historyEnabled) {
        QVERIFY(ZqlTest::writeBytes(PwhistoryProfile, PwhistoryProfileText));
        const ZqlTest::ToolRun update = ZqlTest::runTool(
            ZqlTest::PamAuthUpdatePath, {QStringLiteral("--package"), QStringLiteral("--enable"),
                                         QStringLiteral("pwhistory"), QStringLiteral("--force")});
        QVERIFY2(update.succeeded(), qPrintable(update.describe()));
        QVERIFY(
            ZqlTest::readBytes(CommonPassword)
                .contains("password\trequisite\t\t\tpam_pwhistory.so use_authtok remember=5\n"));
    } else {
        QVERIFY(!ZqlTest::readBytes(CommonPassword).contains("pam_pwhistory"));
    }

    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    const PasswordChange first =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, FirstPassword, StrongPassword);
    QVERIFY2(first.outcome == Outcome::Accepted, qPrintable(first.describe()));
    const PasswordChange back =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, StrongPassword, FirstPassword);
    QVERIFY2(back.outcome == reuse, qPrintable(back.describe()));
    if (reuse == Outcome::Refused) {
        QVERIFY2(back.errors().contains(
                     QStringLiteral("Password has been already used. Choose another.")),
                 qPrintable(back.describe()));
        // Only the reuse is refused: a new password still goes through.
        const PasswordChange fresh = ZqlTest::changePassword(ZqlTest::PasswordCheckService, user,
                                                             StrongPassword, OtherStrongPassword);
        QVERIFY2(fresh.outcome == Outcome::Accepted, qPrintable(fresh.describe()));
    }
}

void PamRigTest::cracklibProfileStaysDisabled_data()
{
    QTest::addColumn<PamAuthUpdateBehaviour>("behaviour");
    QTest::addColumn<QStringList>("arguments");

    const QStringList package{QStringLiteral("--package")};
    QTest::newRow("Debian's tool") << PamAuthUpdateBehaviour::Debian << package;
    QTest::newRow("target's tool") << PamAuthUpdateBehaviour::Target << package;
    // pwquality's profile conflicts with cracklib and outranks it, so even asking does not help.
    QTest::newRow("asked for by name")
        << PamAuthUpdateBehaviour::Debian
        << QStringList{QStringLiteral("--package"), QStringLiteral("--enable"),
                       QStringLiteral("cracklib")};
}

void PamRigTest::cracklibProfileStaysDisabled()
{
    QFETCH(PamAuthUpdateBehaviour, behaviour);
    QFETCH(QStringList, arguments);

    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(behaviour, &error), qPrintable(error));
    QVERIFY(
        ZqlTest::readBytes(ProfileDir + QStringLiteral("cracklib")).contains("pam_cracklib.so"));
    const ZqlTest::ToolRun update = ZqlTest::runTool(Tool, arguments);
    QVERIFY2(update.succeeded(), qPrintable(update.describe()));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    QVERIFY2(!stack.contains("pam_cracklib"), stack.constData());
    QVERIFY2(stack.contains("pam_pwquality.so"), stack.constData());

    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    const PasswordChange change =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, FirstPassword, StrongPassword);
    QVERIFY2(change.outcome == Outcome::Accepted, qPrintable(change.describe()));
}

void PamRigTest::brokenStackIsNotTakenForPolicy_data()
{
    QTest::addColumn<QByteArray>("from");
    QTest::addColumn<QByteArray>("to");
    QTest::addColumn<QString>("current");
    QTest::addColumn<QString>("next");
    QTest::addColumn<Outcome>("outcome");

    QTest::newRow("policy refuses") << QByteArray() << QByteArray() << FirstPassword
                                    << ShortPassword.left(5) << Outcome::Refused;
    QTest::newRow("module missing")
        << QByteArray("pam_pwquality.so") << QByteArray("pam_cracklib.so") << FirstPassword
        << StrongPassword << Outcome::StackFailed;
    QTest::newRow("silent refusal")
        << QByteArray("pam_pwquality.so retry=3") << QByteArray("pam_deny.so") << FirstPassword
        << StrongPassword << Outcome::StackFailed;
    QTest::newRow("unreadable line")
        << QByteArray("requisite\t\t\tpam_pwquality.so") << QByteArray("bogus") << FirstPassword
        << StrongPassword << Outcome::StackFailed;
    QTest::newRow("wrong current password") << QByteArray() << QByteArray() << StrongPassword
                                            << OtherStrongPassword << Outcome::CurrentPasswordWrong;
    QTest::newRow("working stack")
        << QByteArray() << QByteArray() << FirstPassword << StrongPassword << Outcome::Accepted;
}

// A compliant change that a broken stack refuses comes out as StackFailed, never as a policy
// refusal: the rig tells the two apart by the status and by whether a module said why.
void PamRigTest::brokenStackIsNotTakenForPolicy()
{
    QFETCH(QByteArray, from);
    QFETCH(QByteArray, to);
    QFETCH(QString, current);
    QFETCH(QString, next);
    QFETCH(Outcome, outcome);

    if (!from.isEmpty()) {
        QByteArray stack = ZqlTest::readBytes(CommonPassword);
        QVERIFY(stack.contains(from));
        QVERIFY(ZqlTest::writeBytes(CommonPassword, stack.replace(from, to)));
    }
    const QString user = createUser();
    QVERIFY(!user.isEmpty());
    const QByteArray before = ZqlTest::shadowHash(user);
    const PasswordChange change =
        ZqlTest::changePassword(ZqlTest::PasswordCheckService, user, current, next);
    QVERIFY2(change.outcome == outcome, qPrintable(change.describe()));
    QCOMPARE(ZqlTest::shadowHash(user) != before, outcome == Outcome::Accepted);
    QCOMPARE(change.errors().isEmpty(), outcome != Outcome::Refused);
}

void PamRigTest::simulatedExit_data()
{
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("standardError");
    QTest::addColumn<QString>("program");

    const QByteArray message("pam-auth-update: cannot lock /var/cache/debconf/config.dat\n");
    QTest::newRow("failure, by name") << 3 << message << Tool;
    QTest::newRow("failure, by full path") << 3 << message << ZqlTest::PamAuthUpdatePath;
    QTest::newRow("failure without a message") << 1 << QByteArray() << Tool;
    QTest::newRow("warning without regenerating")
        << 0 << QByteArray("warning: no line break at the end") << Tool;
    QTest::newRow("several lines")
        << 2 << QByteArray("\nfirst\n\nsecond line\n\n") << ZqlTest::PamAuthUpdatePath;
}

void PamRigTest::simulatedExit()
{
    QFETCH(int, exitCode);
    QFETCH(QByteArray, standardError);
    QFETCH(QString, program);

    QString error;
    QVERIFY2(requireMinlen12(&error), qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(exitCode, standardError, &error),
             qPrintable(error));

    const QStringList arguments{QStringLiteral("--package"), QStringLiteral("--remove"),
                                QStringLiteral("tally"), QStringLiteral("--force")};
    const ZqlTest::ToolRun run = ZqlTest::runTool(program, arguments);
    QCOMPARE(run.ending, ZqlTest::ToolRun::Ending::Exited);
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(run.standardError, standardError);
    QCOMPARE(run.standardOutput, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack); // nothing was regenerated
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), QStringList{arguments.join(QLatin1Char(' '))});
}

void PamRigTest::simulatedWarningRegeneratesTheStack()
{
    QString error;
    QVERIFY2(requireMinlen12(&error), qPrintable(error));
    const QByteArray warning("pam-auth-update: a warning\n");
    QVERIFY2(ZqlTest::simulatePamAuthUpdateWarning(warning, &error), qPrintable(error));

    const ZqlTest::ToolRun run = ZqlTest::runTool(Tool, {QStringLiteral("--package")});
    QVERIFY2(run.succeeded(), qPrintable(run.describe()));
    QCOMPARE(run.standardError, warning);
    QVERIFY(ZqlTest::readBytes(CommonPassword).contains(PwqualityMinlen12Line));
}

void PamRigTest::simulatedHangIsCutByTheCallersLimit()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(PamAuthUpdateBehaviour::Hang, &error),
             qPrintable(error));
    QElapsedTimer timer;
    timer.start();
    const ZqlTest::ToolRun run = ZqlTest::runTool(Tool, {QStringLiteral("--package")}, 200);
    QCOMPARE(run.ending, ZqlTest::ToolRun::Ending::TimedOut);
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
}

void PamRigTest::simulatedCrash()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(PamAuthUpdateBehaviour::Crash, &error),
             qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    const ZqlTest::ToolRun run = ZqlTest::runTool(Tool, {QStringLiteral("--package")});
    QCOMPARE(run.ending, ZqlTest::ToolRun::Ending::Crashed);
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PamRigTest::missingTool()
{
    QString error;
    QVERIFY2(ZqlTest::removePamAuthUpdate(&error), qPrintable(error));
    QCOMPARE(ZqlTest::runTool(Tool, {QStringLiteral("--package")}).ending,
             ZqlTest::ToolRun::Ending::NotStarted);
    QCOMPARE(ZqlTest::runTool(ZqlTest::PamAuthUpdatePath, {QStringLiteral("--package")}).ending,
             ZqlTest::ToolRun::Ending::NotStarted);

    // Debian's tool comes back, and the simulated one can stand in again.
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY(ZqlTest::runTool(Tool, {QStringLiteral("--package")}).succeeded());
    QVERIFY2(ZqlTest::removePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(PamAuthUpdateBehaviour::Debian, &error),
             qPrintable(error));
    QVERIFY(
        ZqlTest::runTool(ZqlTest::PamAuthUpdatePath, {QStringLiteral("--package")}).succeeded());
}

void PamRigTest::tallyReachesCommonAuthOnlyThroughTheTargetTool_data()
{
    QTest::addColumn<bool>("simulated");
    QTest::addColumn<PamAuthUpdateBehaviour>("behaviour");
    QTest::addColumn<bool>("tallyInStack");

    QTest::newRow("the machine's own tool") << false << PamAuthUpdateBehaviour::Debian << false;
    QTest::newRow("simulated, Debian") << true << PamAuthUpdateBehaviour::Debian << false;
    QTest::newRow("simulated, target") << true << PamAuthUpdateBehaviour::Target << true;
}

void PamRigTest::tallyReachesCommonAuthOnlyThroughTheTargetTool()
{
    QFETCH(bool, simulated);
    QFETCH(PamAuthUpdateBehaviour, behaviour);
    QFETCH(bool, tallyInStack);

    QString error;
    if (simulated)
        QVERIFY2(ZqlTest::simulatePamAuthUpdate(behaviour, &error), qPrintable(error));
    QVERIFY(ZqlTest::readBytes(ProfileDir + QStringLiteral("tally")).contains("pam_tally.so"));
    const ZqlTest::ToolRun run =
        ZqlTest::runTool(Tool, {QStringLiteral("--package"), QStringLiteral("--enable"),
                                QStringLiteral("tally"), QStringLiteral("--force")});
    QVERIFY2(run.succeeded(), qPrintable(run.describe()));
    const QByteArray stack = ZqlTest::readBytes(CommonAuth);
    QVERIFY2(stack.contains(TallyAuthLine) == tallyInStack, stack.constData());
    QVERIFY2(stack.contains("pam_tally") == tallyInStack, stack.constData());
    QVERIFY2(stack.contains("pam_unix.so"), stack.constData());
    QCOMPARE(ZqlTest::pamAuthUpdateCalls().size(), simulated ? 1 : 0);
}

ZQL_SANDBOXED_TEST_MAIN(PamRigTest)

#include "pamrigtest.moc"
