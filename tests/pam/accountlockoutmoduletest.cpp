#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <limits>

namespace {
const QString CommonAuth = QStringLiteral("/etc/pam.d/common-auth");
const QString TallyProfile = QStringLiteral("/usr/share/pam-configs/tally");
using Settings = QHash<QString, QVariant>;

// The simulated system's tally profile.
const QByteArray Profile = "Name: Lock accounts after repeated login failures (pam_tally)\n"
                           "Default: yes\n"
                           "Priority: 1024\n"
                           "Auth-Type: Primary\n"
                           "Auth:\n"
                           "\trequired\t\t\tpam_tally.so onerr=fail deny=5 unlock_time=900\n"
                           "Account-Type: Primary\n"
                           "Account:\n"
                           "\trequired\t\t\tpam_tally.so\n";

// The profile after a rewrite with @p authOptions and @p accountOptions: matched lines lose
// their indentation, which pam-auth-update does not need.
QByteArray rewrittenProfile(const QByteArray &authOptions, const QByteArray &accountOptions)
{
    return "Name: Lock accounts after repeated login failures (pam_tally)\n"
           "Default: yes\n"
           "Priority: 1024\n"
           "Auth-Type: Primary\n"
           "Auth:\n"
           "required\t\t\tpam_tally.so" +
           authOptions +
           "\n"
           "Account-Type: Primary\n"
           "Account:\n"
           "required\t\t\tpam_tally.so" +
           accountOptions + "\n";
}

QByteArray tallyLine(const QString &stack)
{
    for (const QByteArray &line : ZqlTest::readBytes(stack).split('\n')) {
        if (line.contains("pam_tally.so") && !line.startsWith('#'))
            return line;
    }
    return {};
}

const QByteArray Defaults = "{\"deny\":[false,0],\"lock_time\":[false,0],\"magic_root\":false,"
                            "\"no_reset\":false,\"per_user\":false,\"unlock_time\":[false,0]}";
const QByteArray NotContain = "account-lockout : \"/usr/share/pam-configs/tally\" not contain "
                              "\"pam_tally\"\n";
const QStringList RemoveAndEnable = {QStringLiteral("--package --remove tally --force"),
                                     QStringLiteral("--package --enable tally --force")};
} // namespace

class AccountLockoutModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void contract();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void read_data();
    void read();
    void readFailure_data();
    void readFailure();
    void rewriteLine_data();
    void rewriteLine();
    void profileWithoutTallyLine();
    void missingProfile();
    void setSettingsOnTheTarget();
    void roundTrip();
    void debianDropsTheProfile();
    void toolFailure_data();
    void toolFailure();
    void readOnlyProfile();
    void commonAuthUpdate_data();
    void commonAuthUpdate();
    void commonAuthUpdateMissingStack();
    void unusableNumber_data();
    void unusableNumber();

private:
    ZqlTest::PamSnapshot m_snapshot;
};

void AccountLockoutModuleTest::initTestCase()
{
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
    QCOMPARE(ZqlTest::readBytes(TallyProfile), Profile);
}

void AccountLockoutModuleTest::init()
{
    // The target system's pam-auth-update keeps pam_tally profiles; Debian 12's drops them.
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(ZqlTest::PamAuthUpdateBehaviour::Target, &error),
             qPrintable(error));
}

void AccountLockoutModuleTest::cleanup()
{
    QString error;
    ZqlTest::unmount(TallyProfile, &error);
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
    QFile::remove(TallyProfile + QStringLiteral(".tmp"));
}

void AccountLockoutModuleTest::contract()
{
    AccountLockoutModule module;
    QCOMPARE(module.getName(), QStringLiteral("account-lockout"));
    QVERIFY(module.isAvailable());
    QVERIFY(module.checkRestrictions({{QStringLiteral("deny"), 3}}));
}

void AccountLockoutModuleTest::isParametersCorrect_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("unknown");
    QTest::newRow("empty") << QStringList() << QStringList();
    QTest::newRow("all six") << QStringList{QStringLiteral("per_user"),
                                            QStringLiteral("magic_root"),
                                            QStringLiteral("no_reset"),
                                            QStringLiteral("deny"),
                                            QStringLiteral("lock_time"),
                                            QStringLiteral("unlock_time")}
                             << QStringList();
    QTest::newRow("one unknown") << QStringList{QStringLiteral("deny"), QStringLiteral("onerr")}
                                 << QStringList{QStringLiteral("onerr")};
}

void AccountLockoutModuleTest::isParametersCorrect()
{
    QFETCH(QStringList, keys);
    QFETCH(QStringList, unknown);
    AccountLockoutModule module;
    QCOMPARE(module.isParametersCorrect(QSet<QString>(keys.begin(), keys.end())), unknown);
}

void AccountLockoutModuleTest::read_data()
{
    QTest::addColumn<QByteArray>("stack");
    QTest::addColumn<QByteArray>("settings");

    QTest::newRow("foreign option ignored")
        << QByteArray("auth\trequired\t\t\tpam_tally.so per_user deny=5 onerr=fail\n"
                      "auth\t[success=1 default=ignore]\tpam_unix.so nullok\n")
        << QByteArray("{\"deny\":[true,5],\"lock_time\":[false,0],\"magic_root\":false,"
                      "\"no_reset\":false,\"per_user\":true,\"unlock_time\":[false,0]}");
    QTest::newRow("deny without a number")
        << QByteArray("auth required pam_tally.so deny\n")
        << QByteArray("{\"deny\":[true,0],\"lock_time\":[false,0],\"magic_root\":false,"
                      "\"no_reset\":false,\"per_user\":false,\"unlock_time\":[false,0]}");
    QTest::newRow("every option")
        << QByteArray("auth required pam_tally.so magic_root no_reset lock_time=10 "
                      "unlock_time=600 # strict\n")
        << QByteArray("{\"deny\":[false,0],\"lock_time\":[true,10],\"magic_root\":true,"
                      "\"no_reset\":true,\"per_user\":false,\"unlock_time\":[true,600]}");
    QTest::newRow("later lines overwrite key by key")
        << QByteArray("auth required pam_tally.so deny=3 per_user\n"
                      "#auth required pam_tally.so deny=9\n"
                      "account required pam_tally.so deny=4\n")
        << QByteArray("{\"deny\":[true,4],\"lock_time\":[false,0],\"magic_root\":false,"
                      "\"no_reset\":false,\"per_user\":true,\"unlock_time\":[false,0]}");
    // Unlike the password-policy counts, a number of 0 stays switched on, and the digits carry
    // no sign: "deny=-3" is the option without a number.
    QTest::newRow("deny=0 stays switched on")
        << QByteArray("auth required pam_tally.so deny=0\n")
        << QByteArray("{\"deny\":[true,0],\"lock_time\":[false,0],\"magic_root\":false,"
                      "\"no_reset\":false,\"per_user\":false,\"unlock_time\":[false,0]}");
    QTest::newRow("a sign is not part of the number")
        << QByteArray("auth required pam_tally.so deny=-3\n")
        << QByteArray("{\"deny\":[true,0],\"lock_time\":[false,0],\"magic_root\":false,"
                      "\"no_reset\":false,\"per_user\":false,\"unlock_time\":[false,0]}");
    QTest::newRow("no options") << QByteArray("auth required pam_tally.so\n") << Defaults;
}

void AccountLockoutModuleTest::read()
{
    QFETCH(QByteArray, stack);
    QFETCH(QByteArray, settings);
    QVERIFY(ZqlTest::writeBytes(CommonAuth, stack));

    AccountLockoutModule module;
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second), settings);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
}

void AccountLockoutModuleTest::readFailure_data()
{
    QTest::addColumn<QByteArray>("stack");
    QTest::addColumn<QByteArray>("message");
    // The profile is named, not the stack that was read: it is what has to be repaired.
    QTest::newRow("no pam_tally line")
        << QByteArray("auth required pam_unix.so\n# auth required pam_tally.so deny=3\n")
        << NotContain;
    QTest::newRow("missing stack")
        << QByteArray() << QByteArray("account-lockout : \"/etc/pam.d/common-auth\" not exists\n");
}

void AccountLockoutModuleTest::readFailure()
{
    QFETCH(QByteArray, stack);
    QFETCH(QByteArray, message);
    if (stack.isNull())
        QVERIFY(QFile::remove(CommonAuth));
    else
        QVERIFY(ZqlTest::writeBytes(CommonAuth, stack));

    AccountLockoutModule module;
    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(streams.error, message);
    QCOMPARE(streams.output, QByteArray());
}

void AccountLockoutModuleTest::rewriteLine_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("after");

    const QByteArray line = "auth required pam_tally.so per_user deny=5 onerr=fail\n";
    QTest::newRow("foreign option kept in place")
        << line << Settings{{QStringLiteral("per_user"), true}}
        << QByteArray("auth required pam_tally.so onerr=fail per_user\n");
    QTest::newRow("deny switched off is removed")
        << line << Settings{{QStringLiteral("deny"), ZqlTest::pair(false, 7)}}
        << QByteArray("auth required pam_tally.so onerr=fail\n");
    QTest::newRow("deny after the flags")
        << line
        << Settings{{QStringLiteral("deny"), ZqlTest::pair(true, 7)},
                    {QStringLiteral("per_user"), true}}
        << QByteArray("auth required pam_tally.so onerr=fail per_user deny=7\n");
    QTest::newRow("fixed order")
        << QByteArray("auth required pam_tally.so unlock_time=1 file=/var/log/tallylog no_reset\n")
        << Settings{{QStringLiteral("unlock_time"), ZqlTest::pair(true, 600)},
                    {QStringLiteral("lock_time"), ZqlTest::pair(true, 30)},
                    {QStringLiteral("deny"), ZqlTest::pair(true, 3)},
                    {QStringLiteral("no_reset"), true},
                    {QStringLiteral("magic_root"), true},
                    {QStringLiteral("per_user"), true}}
        << QByteArray("auth required pam_tally.so file=/var/log/tallylog per_user magic_root "
                      "no_reset deny=3 lock_time=30 unlock_time=600\n");
    QTest::newRow("a first element 1 is not the boolean true")
        << line << Settings{{QStringLiteral("deny"), QVariant(QJsonArray{1, 7})}}
        << QByteArray("auth required pam_tally.so onerr=fail\n");
    // Any non-empty array switched on is written; a missing number is 0.
    QTest::newRow("one element switched on")
        << line << Settings{{QStringLiteral("deny"), QVariant(QJsonArray{true})}}
        << QByteArray("auth required pam_tally.so onerr=fail deny=0\n");
    QTest::newRow("three elements switched on")
        << line << Settings{{QStringLiteral("deny"), QVariant(QJsonArray{true, 6, 9})}}
        << QByteArray("auth required pam_tally.so onerr=fail deny=6\n");
    QTest::newRow("comment kept")
        << QByteArray("auth required pam_tally.so deny=5   # lock after five\n")
        << Settings{{QStringLiteral("deny"), ZqlTest::pair(true, 4)}}
        << QByteArray("auth required pam_tally.so deny=4\t# lock after five\n");
}

void AccountLockoutModuleTest::rewriteLine()
{
    QFETCH(QByteArray, before);
    QFETCH(Settings, settings);
    QFETCH(QByteArray, after);
    QCOMPARE(ZqlTest::rewrittenBy<AccountLockout::RewriterRegExpHandler>(settings, before), after);
}

// The profile is rewritten unchanged, and the missing line is still reported.
void AccountLockoutModuleTest::profileWithoutTallyLine()
{
    const QByteArray noTally = "Name: no tally\nDefault: yes\nPriority: 1024\nAuth-Type: "
                               "Primary\nAuth:\n\trequired\t\t\tpam_faildelay.so delay=10\n";
    QVERIFY(ZqlTest::writeBytes(TallyProfile, noTally));
    AccountLockoutModule module;
    QString error;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        error = module.rewritePamTallyFile({{QStringLiteral("deny"), ZqlTest::pair(true, 3)}});
    });
    QCOMPARE(error, QStringLiteral("\"/usr/share/pam-configs/tally\" not contain \"pam_tally\""));
    QCOMPARE(ZqlTest::readBytes(TallyProfile), noTally);
    QVERIFY(!QFile::exists(TallyProfile + QStringLiteral(".bak")));
    QCOMPARE(streams.error, QByteArray());

    // Through setSettings: the profile was taken out of the stack first and stays out.
    bool failed = false;
    const ZqlTest::Streams setStreams = ZqlTest::captured([&] { failed = module.setSettings({}); });
    QVERIFY(failed);
    QCOMPARE(setStreams.error, NotContain);
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), RemoveAndEnable.mid(0, 1));
}

void AccountLockoutModuleTest::missingProfile()
{
    QVERIFY(QFile::remove(TallyProfile));
    AccountLockoutModule module;
    QCOMPARE(module.rewritePamTallyFile({}),
             QStringLiteral("\"/usr/share/pam-configs/tally\" not exists"));
    QVERIFY(!QFile::exists(TallyProfile));
    QVERIFY(!QFile::exists(TallyProfile + QStringLiteral(".tmp")));
}

void AccountLockoutModuleTest::setSettingsOnTheTarget()
{
    AccountLockoutModule module;
    bool failed = true;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings({{QStringLiteral("deny"), ZqlTest::pair(true, 3)},
                                     {QStringLiteral("unlock_time"), ZqlTest::pair(false, 900)},
                                     {QStringLiteral("per_user"), true}});
    });
    QVERIFY(!failed);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), RemoveAndEnable);
    QCOMPARE(ZqlTest::readBytes(TallyProfile),
             rewrittenProfile(" onerr=fail per_user deny=3", " per_user deny=3"));
    QCOMPARE(tallyLine(CommonAuth),
             QByteArray("auth\trequired\t\t\tpam_tally.so onerr=fail per_user deny=3"));

    SettingsReply reply;
    const ZqlTest::Streams readStreams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second),
             QByteArray("{\"deny\":[true,3],\"lock_time\":[false,0],\"magic_root\":false,"
                        "\"no_reset\":false,\"per_user\":true,\"unlock_time\":[false,0]}"));
    QCOMPARE(readStreams.error, QByteArray());
}

// What the module reads it writes back; a second round trip changes no byte.
void AccountLockoutModuleTest::roundTrip()
{
    AccountLockoutModule module;
    // Bring the shipped profile into the stack first.
    QVERIFY(module.pamAuthUpdate(true).isEmpty());
    QCOMPARE(tallyLine(CommonAuth),
             QByteArray("auth\trequired\t\t\tpam_tally.so onerr=fail deny=5 unlock_time=900"));
    for (int round = 0; round < 2; ++round) {
        const SettingsReply reply = module.getSettings();
        QCOMPARE(reply.first, 0);
        QCOMPARE(ZqlTest::json(reply.second),
                 QByteArray("{\"deny\":[true,5],\"lock_time\":[false,0],\"magic_root\":false,"
                            "\"no_reset\":false,\"per_user\":false,\"unlock_time\":[true,900]}"));
        const QByteArray stack = ZqlTest::readBytes(CommonAuth);
        bool failed = true;
        const ZqlTest::Streams streams =
            ZqlTest::captured([&] { failed = module.setSettings(reply.second); });
        QVERIFY(!failed);
        QCOMPARE(streams.error, QByteArray());
        QCOMPARE(ZqlTest::readBytes(CommonAuth), stack);
        QCOMPARE(ZqlTest::readBytes(TallyProfile),
                 rewrittenProfile(" onerr=fail deny=5 unlock_time=900", " deny=5 unlock_time=900"));
    }
}

// Debian 12's own tool drops every profile that mentions pam_tally: the options are written but
// never reach the stack, and reading them back says so.
void AccountLockoutModuleTest::debianDropsTheProfile()
{
    QString error;
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    AccountLockoutModule module;
    QVERIFY(!module.setSettings({{QStringLiteral("deny"), ZqlTest::pair(true, 3)}}));
    QCOMPARE(tallyLine(CommonAuth), QByteArray());
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 1);
    QCOMPARE(streams.error, NotContain);
}

void AccountLockoutModuleTest::toolFailure_data()
{
    QTest::addColumn<QString>("behaviour");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("missing")
        << QStringLiteral("missing")
        << QByteArray("account-lockout : Process: \"pam-auth-update --package --remove tally "
                      "--force\". Error: execvp: No such file or directory.\n\"Not started\"\n");
    QTest::newRow("exit code")
        << QStringLiteral("exit")
        << QByteArray("account-lockout : Process: \"pam-auth-update --package --remove tally "
                      "--force\". Exit code: 2.\n\"debconf: no database\n\"\n");
    QTest::newRow("warning with exit code 0")
        << QStringLiteral("warn")
        << QByteArray("account-lockout : pam-auth-update: profile tally is odd\n\n");
    QTest::newRow("hang")
        << QStringLiteral("hang")
        << QByteArray("account-lockout : Process: \"pam-auth-update --package --remove tally "
                      "--force\". Error: Process operation timed out.\n\"Not finished\"\n");
    QTest::newRow("crash")
        << QStringLiteral("crash")
        << QByteArray("account-lockout : Process: \"pam-auth-update --package --remove tally "
                      "--force\". Error: Process crashed.\n\"Not finished\"\n");
}

// The first step fails: the profile is not touched and the sequence stops.
void AccountLockoutModuleTest::toolFailure()
{
    QFETCH(QString, behaviour);
    QFETCH(QByteArray, message);
    QString error;
    bool ready = false;
    if (behaviour == QLatin1String("missing"))
        ready = ZqlTest::removePamAuthUpdate(&error);
    else if (behaviour == QLatin1String("exit"))
        ready = ZqlTest::simulatePamAuthUpdateExit(2, "debconf: no database\n", &error);
    else if (behaviour == QLatin1String("warn"))
        ready = ZqlTest::simulatePamAuthUpdateWarning("pam-auth-update: profile tally is odd\n",
                                                      &error);
    else if (behaviour == QLatin1String("hang"))
        ready = ZqlTest::simulatePamAuthUpdate(ZqlTest::PamAuthUpdateBehaviour::Hang, &error);
    else
        ready = ZqlTest::simulatePamAuthUpdate(ZqlTest::PamAuthUpdateBehaviour::Crash, &error);
    QVERIFY2(ready, qPrintable(error));

    PamToolLimits limits;
    // Short only where the tool is made to hang: a real run may take longer on a loaded machine.
    if (behaviour == QLatin1String("hang"))
        limits.finishTimeoutMs = 300;
    AccountLockoutModule module(limits);
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings({{QStringLiteral("deny"), ZqlTest::pair(true, 3)}});
    });
    QVERIFY(failed);
    QCOMPARE(streams.error, message);
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(TallyProfile), Profile);
    if (behaviour != QLatin1String("missing"))
        QCOMPARE(ZqlTest::pamAuthUpdateCalls(), RemoveAndEnable.mid(0, 1));
}

void AccountLockoutModuleTest::readOnlyProfile()
{
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(TallyProfile, &error), qPrintable(error));
    AccountLockoutModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings({{QStringLiteral("deny"), ZqlTest::pair(true, 3)}});
    });
    QVERIFY(failed);
    // The new profile takes the old one's place by a rename, which a mount point refuses; the
    // temporary copy is not left among the profiles, where pam-auth-update would read it.
    QCOMPARE(QString::fromUtf8(streams.error),
             QStringLiteral("account-lockout : \"/usr/share/pam-configs/tally\" error 10\n"
                            "Device or resource busy\n"));
    QVERIFY(!QFileInfo::exists(TallyProfile + QStringLiteral(".tmp")));
    QCOMPARE(ZqlTest::readBytes(TallyProfile), Profile);
    // Taken out of the stack before the rewrite failed; nothing puts it back.
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), RemoveAndEnable.mid(0, 1));
    QCOMPARE(tallyLine(CommonAuth), QByteArray());
}

void AccountLockoutModuleTest::commonAuthUpdate_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("replaced")
        << QByteArray("auth required pam_tally.so onerr=fail deny=5 per_user\nauth required "
                      "pam_unix.so deny=5\n")
        << Settings{{QStringLiteral("deny"), ZqlTest::pair(true, 8)}}
        << QByteArray("auth required pam_tally.so onerr=fail deny=8 per_user\nauth required "
                      "pam_unix.so deny=5\n");
    QTest::newRow("appended") << QByteArray("auth required pam_tally.so onerr=fail\n")
                              << Settings{{QStringLiteral("deny"), ZqlTest::pair(true, 8)}}
                              << QByteArray("auth required pam_tally.so onerr=fail deny=8\n");
    QTest::newRow("every deny of a line")
        << QByteArray("auth required pam_tally.so deny=5 deny=6")
        << Settings{{QStringLiteral("deny"), ZqlTest::pair(true, 2)}}
        << QByteArray("auth required pam_tally.so deny=2 deny=2");
    QTest::newRow("switched off changes nothing")
        << QByteArray("auth required pam_tally.so deny=5\n")
        << Settings{{QStringLiteral("deny"), ZqlTest::pair(false, 8)}}
        << QByteArray("auth required pam_tally.so deny=5\n");
}

void AccountLockoutModuleTest::commonAuthUpdate()
{
    QFETCH(QByteArray, before);
    QFETCH(Settings, settings);
    QFETCH(QByteArray, after);
    QVERIFY(ZqlTest::writeBytes(CommonAuth, before));
    AccountLockoutModule module;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { module.commonAuthUpdate(settings); });
    QCOMPARE(ZqlTest::readBytes(CommonAuth), after);
    QCOMPARE(streams.error, QByteArray());
}

void AccountLockoutModuleTest::commonAuthUpdateMissingStack()
{
    QVERIFY(QFile::remove(CommonAuth));
    AccountLockoutModule module;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        module.commonAuthUpdate({{QStringLiteral("deny"), ZqlTest::pair(true, 8)}});
    });
    QVERIFY(!QFile::exists(CommonAuth));
    QCOMPARE(streams.error, QByteArray("account-lockout : \"/etc/pam.d/common-auth\" error 5\n"
                                       "No such file or directory\n"));
}

// A number no file can hold (and whose conversion would be undefined) is refused before
// anything changes: the profile stays in the stack and pam-auth-update does not run.
void AccountLockoutModuleTest::unusableNumber_data()
{
    QTest::addColumn<QVariant>("deny");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("1e30") << QVariant(QJsonArray{true, 1e30}) << QByteArray("1e+30");
    QTest::newRow("infinity") << QVariant(QJsonArray{true, std::numeric_limits<double>::infinity()})
                              << QByteArray("inf");
    QTest::newRow("a fraction") << QVariant(QJsonArray{true, 5.5}) << QByteArray("5.5");
    QTest::newRow("2^64 - 1 from a host's list")
        << QVariant(QVariantList{true, std::numeric_limits<qulonglong>::max()})
        << QByteArray("18446744073709552000");
    QTest::newRow("switched off does not help")
        << QVariant(QJsonArray{false, -1e300}) << QByteArray("-1e+300");
}

void AccountLockoutModuleTest::unusableNumber()
{
    QFETCH(QVariant, deny);
    QFETCH(QByteArray, shown);

    const QStringList calls = ZqlTest::pamAuthUpdateCalls();
    const QByteArray stack = ZqlTest::readBytes(CommonAuth);
    AccountLockoutModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings({{QStringLiteral("deny"), deny}});
    });
    QVERIFY(failed);
    QCOMPARE(streams.error,
             "account-lockout : \"deny\" holds " + shown +
                 ": a switched number needs a whole number from -9007199254740992 to "
                 "9007199254740992\n");
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(TallyProfile), Profile);
    QCOMPARE(ZqlTest::readBytes(CommonAuth), stack);
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), calls);
}

ZQL_SANDBOXED_TEST_MAIN(AccountLockoutModuleTest)
#include "accountlockoutmoduletest.moc"
