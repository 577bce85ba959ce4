#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
const QString CracklibProfile = QStringLiteral("/usr/share/pam-configs/cracklib");
const QString PwqualityProfile = QStringLiteral("/usr/share/pam-configs/pwquality");
using Settings = QHash<QString, QVariant>;

// The profile Debian's libpam-pwquality ships.
const QByteArray ShippedPwquality = "Name: Pwquality password strength checking\n"
                                    "Default: yes\n"
                                    "Priority: 1024\n"
                                    "Conflicts: cracklib\n"
                                    "Password-Type: Primary\n"
                                    "Password:\n"
                                    "\trequisite\t\t\tpam_pwquality.so retry=3\n"
                                    "Password-Initial:\n"
                                    "\trequisite\t\t\tpam_pwquality.so retry=3\n";
// A cracklib profile as the target system ships it. Debian 12 has no pam_cracklib.so, so it is
// not enabled by default here.
const QByteArray Cracklib = "Name: Cracklib password strength checking\n"
                            "Default: no\n"
                            "Priority: 1024\n"
                            "Conflicts: pwquality\n"
                            "Password-Type: Primary\n"
                            "Password:\n"
                            "\trequisite\t\t\tpam_cracklib.so retry=3 minlen=8 difok=3\n"
                            "Password-Initial:\n"
                            "\trequisite\t\t\tpam_cracklib.so retry=3 minlen=8 difok=3\n";

// The profile after a rewrite: the matched lines lose their indentation, which
// pam-auth-update does not need.
QByteArray rewritten(QByteArray profile, const QByteArray &oldOptions, const QByteArray &newOptions)
{
    const QByteArray indentedOld = "\trequisite\t\t\t" + oldOptions + '\n';
    return profile.replace(indentedOld, "requisite\t\t\t" + newOptions + '\n');
}

QByteArray stackLine(const QByteArray &stack, const QByteArray &module)
{
    for (const QByteArray &line : stack.split('\n')) {
        if (line.contains(module) && !line.startsWith('#'))
            return line;
    }
    return {};
}

const QByteArray NotContainStack = "password-policy : \"/etc/pam.d/common-password\" not contain "
                                   "\"pam_cracklib or pam_pwquality\"\n";
} // namespace

// The complexity options of pam_cracklib/pam_pwquality, through the password-policy module, with
// Debian's own pam-auth-update regenerating the stack.
class PasswordComplexityTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void read_data();
    void read();
    void readFailure_data();
    void readFailure();
    void rewriteLine_data();
    void rewriteLine();
    void setBothProfiles();
    void setOnlyPwquality();
    void setWithoutProfiles();
    void profileWithoutModuleLine_data();
    void profileWithoutModuleLine();
    void readOnlyProfile();
    void missingTool();
    void toolFailure_data();
    void toolFailure();
    void toolWarningIsPassedOn();
    void repairJoinsPiecesLiterally();
    void repairRemovesASecondMinimumLength();
    void repairOfUnreadableStackIsSkipped();
    void repairOnAFullFileSystem();
    void repairsLocallyEditedMinimumLength();
    void roundTrip();

private:
    ZqlTest::PamSnapshot m_snapshot;
};

void PasswordComplexityTest::initTestCase()
{
    QVERIFY2(QFile::exists(PwqualityProfile),
             "the machine has no pwquality profile: install libpam-pwquality");
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
}

void PasswordComplexityTest::init()
{
    QVERIFY(ZqlTest::writeBytes(CracklibProfile, Cracklib));
    QVERIFY(ZqlTest::writeBytes(PwqualityProfile, ShippedPwquality));
}

void PasswordComplexityTest::cleanup()
{
    QString error;
    ZqlTest::unmount(PwqualityProfile, &error);
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
}

void PasswordComplexityTest::read_data()
{
    QTest::addColumn<QByteArray>("stack");
    QTest::addColumn<QByteArray>("complexity");

    QTest::newRow("pwquality with credits")
        << QByteArray("password requisite pam_pwquality.so retry=3 minlen=8 ucredit=-1 lcredit=0\n")
        << QByteArray("{\"dcredit\":[false,0],\"enforce_for_root\":false,\"gecoscheck\":false,"
                      "\"lcredit\":[false,0],\"minlen\":[true,8],\"ocredit\":[false,0],"
                      "\"reject_username\":false,\"ucredit\":[true,-1]}");
    QTest::newRow("bare minlen and lcredit")
        << QByteArray("password requisite pam_cracklib.so minlen lcredit\n")
        << QByteArray("{\"dcredit\":[false,0],\"enforce_for_root\":false,\"gecoscheck\":false,"
                      "\"lcredit\":[false,0],\"minlen\":[true,0],\"ocredit\":[false,0],"
                      "\"reject_username\":false,\"ucredit\":[false,0]}");
    QTest::newRow("an option inside a longer token")
        << QByteArray("password requisite pam_pwquality.so xminlen=5\n")
        << QByteArray("{\"dcredit\":[false,0],\"enforce_for_root\":false,\"gecoscheck\":false,"
                      "\"lcredit\":[false,0],\"minlen\":[true,5],\"ocredit\":[false,0],"
                      "\"reject_username\":false,\"ucredit\":[false,0]}");
    QTest::newRow("flags and positive credits")
        << QByteArray("password\trequisite\tpam_cracklib.so gecoscheck enforce_for_root "
                      "reject_username dcredit=2 ocredit=-3 # strict\n")
        << QByteArray("{\"dcredit\":[true,2],\"enforce_for_root\":true,\"gecoscheck\":true,"
                      "\"lcredit\":[false,0],\"minlen\":[false,0],\"ocredit\":[true,-3],"
                      "\"reject_username\":true,\"ucredit\":[false,0]}");
    QTest::newRow("later lines overwrite what they carry")
        << QByteArray("password requisite pam_cracklib.so minlen=8 dcredit=1\n"
                      "#password requisite pam_pwquality.so minlen=20\n"
                      "password requisite pam_pwquality.so minlen=10\n")
        << QByteArray("{\"dcredit\":[true,1],\"enforce_for_root\":false,\"gecoscheck\":false,"
                      "\"lcredit\":[false,0],\"minlen\":[true,10],\"ocredit\":[false,0],"
                      "\"reject_username\":false,\"ucredit\":[false,0]}");
}

void PasswordComplexityTest::read()
{
    QFETCH(QByteArray, stack);
    QFETCH(QByteArray, complexity);
    QVERIFY(ZqlTest::writeBytes(CommonPassword, stack));

    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.readComplexity(); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second.value(QStringLiteral("complexity")).toHash()), complexity);
}

void PasswordComplexityTest::readFailure_data()
{
    QTest::addColumn<QByteArray>("stack");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("no module line")
        << QByteArray("password required pam_unix.so\n# pam_pwquality.so minlen=9\n")
        << NotContainStack;
    QTest::newRow("missing stack")
        << QByteArray()
        << QByteArray("password-policy : \"/etc/pam.d/common-password\" not exists\n");
}

void PasswordComplexityTest::readFailure()
{
    QFETCH(QByteArray, stack);
    QFETCH(QByteArray, message);
    if (stack.isNull())
        QVERIFY(QFile::remove(CommonPassword));
    else
        QVERIFY(ZqlTest::writeBytes(CommonPassword, stack));

    PasswordPolicyModule module;
    int result = 0;
    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.readComplexity();
        reply = module.getSettings();
    });
    QCOMPARE(result, 1);
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(streams.error, message + message);
    QCOMPARE(streams.output, QByteArray());
}

void PasswordComplexityTest::rewriteLine_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("foreign options kept, managed ones in fixed order")
        << QByteArray("password requisite pam_cracklib.so retry=3 minlen=8 gecoscheck\n")
        << Settings{{QStringLiteral("gecoscheck"), false},
                    {QStringLiteral("minlen"), ZqlTest::pair(true, 12)},
                    {QStringLiteral("ocredit"), ZqlTest::pair(true, -2)}}
        << QByteArray("password requisite pam_cracklib.so retry=3 minlen=12 ocredit=-2\n");
    QTest::newRow("every option")
        << QByteArray("password requisite pam_pwquality.so difok=3 reject_username retry=3\n")
        << Settings{{QStringLiteral("reject_username"), true},
                    {QStringLiteral("enforce_for_root"), true},
                    {QStringLiteral("gecoscheck"), true},
                    {QStringLiteral("ocredit"), ZqlTest::pair(true, 4)},
                    {QStringLiteral("dcredit"), ZqlTest::pair(true, -1)},
                    {QStringLiteral("ucredit"), ZqlTest::pair(true, 0)},
                    {QStringLiteral("lcredit"), ZqlTest::pair(true, -2)},
                    {QStringLiteral("minlen"), ZqlTest::pair(true, 9)}}
        << QByteArray("password requisite pam_pwquality.so difok=3 retry=3 gecoscheck "
                      "enforce_for_root reject_username minlen=9 lcredit=-2 ucredit=0 dcredit=-1 "
                      "ocredit=4\n");
    QTest::newRow("a first element 1 is not the boolean true")
        << QByteArray("password requisite pam_pwquality.so minlen=8\n")
        << Settings{{QStringLiteral("minlen"), QVariant(QJsonArray{1, 12})}}
        << QByteArray("password requisite pam_pwquality.so\n");
    QTest::newRow("switched off, absent or malformed numbers are dropped")
        << QByteArray(
               "password requisite pam_pwquality.so minlen=8 dcredit=1 ucredit=1 lcredit=1\n")
        << Settings{{QStringLiteral("minlen"), ZqlTest::pair(false, 12)},
                    {QStringLiteral("dcredit"), QVariant(QJsonArray{true})},
                    {QStringLiteral("lcredit"), QVariant(QJsonArray{true, 1, 2})}}
        << QByteArray("password requisite pam_pwquality.so\n");
    QTest::newRow("comment and indentation")
        << QByteArray("  password requisite pam_cracklib.so retry=3   # strength\n")
        << Settings{{QStringLiteral("minlen"), ZqlTest::pair(true, 10)}}
        << QByteArray("password requisite pam_cracklib.so retry=3 minlen=10\t# strength\n");
    QTest::newRow("other lines untouched")
        << QByteArray("Password:\n\trequisite\t\t\tpam_pwquality.so retry=3\nother line\n")
        << Settings{{QStringLiteral("minlen"), ZqlTest::pair(true, 10)}}
        << QByteArray("Password:\nrequisite\t\t\tpam_pwquality.so retry=3 minlen=10\nother line\n");
}

void PasswordComplexityTest::rewriteLine()
{
    QFETCH(QByteArray, before);
    QFETCH(Settings, settings);
    QFETCH(QByteArray, after);
    QCOMPARE(ZqlTest::rewrittenBy<PasswordComplexity::RewriterRegExpHandler>(settings, before),
             after);
}

void PasswordComplexityTest::setBothProfiles()
{
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 12)},
                                       {QStringLiteral("ucredit"), ZqlTest::pair(true, -1)},
                                       {QStringLiteral("enforce_for_root"), true}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CracklibProfile),
             rewritten(Cracklib, "pam_cracklib.so retry=3 minlen=8 difok=3",
                       "pam_cracklib.so retry=3 difok=3 enforce_for_root minlen=12 ucredit=-1"));
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile),
             rewritten(ShippedPwquality, "pam_pwquality.so retry=3",
                       "pam_pwquality.so retry=3 enforce_for_root minlen=12 ucredit=-1"));
    // pam-auth-update put the new options into the stack.
    QCOMPARE(stackLine(ZqlTest::readBytes(CommonPassword), "pam_pwquality.so"),
             QByteArray("password\trequisite\t\t\tpam_pwquality.so retry=3 enforce_for_root "
                        "minlen=12 ucredit=-1"));
    QCOMPARE(stackLine(ZqlTest::readBytes(CommonPassword), "pam_cracklib.so"), QByteArray());
}

void PasswordComplexityTest::setOnlyPwquality()
{
    QVERIFY(QFile::remove(CracklibProfile));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("dcredit"), ZqlTest::pair(true, -2)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QVERIFY(!QFile::exists(CracklibProfile));
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile),
             rewritten(ShippedPwquality, "pam_pwquality.so retry=3",
                       "pam_pwquality.so retry=3 dcredit=-2"));
    QCOMPARE(stackLine(ZqlTest::readBytes(CommonPassword), "pam_pwquality.so"),
             QByteArray("password\trequisite\t\t\tpam_pwquality.so retry=3 dcredit=-2"));
}

void PasswordComplexityTest::setWithoutProfiles()
{
    QVERIFY(QFile::remove(CracklibProfile));
    QVERIFY(QFile::remove(PwqualityProfile));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error,
             QByteArray("password-policy : Both profiles of supported PAM modules do not exist "
                        "(/usr/share/pam-configs/cracklib, /usr/share/pam-configs/pwquality)\n"));
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PasswordComplexityTest::profileWithoutModuleLine_data()
{
    QTest::addColumn<QString>("emptied");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("cracklibAfter");
    QTest::newRow("cracklib") << CracklibProfile
                              << QByteArray("password-policy : \"/usr/share/pam-configs/cracklib\" "
                                            "not contain \"pam_cracklib\"\n")
                              << QByteArray("Name: none\n");
    // The cracklib profile was rewritten before the pwquality one failed; it stays so.
    QTest::newRow("pwquality") << PwqualityProfile
                               << QByteArray(
                                      "password-policy : \"/usr/share/pam-configs/pwquality\" "
                                      "not contain \"pam_pwquality\"\n")
                               << rewritten(Cracklib, "pam_cracklib.so retry=3 minlen=8 difok=3",
                                            "pam_cracklib.so retry=3 difok=3 minlen=11");
}

void PasswordComplexityTest::profileWithoutModuleLine()
{
    QFETCH(QString, emptied);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, cracklibAfter);
    QVERIFY(ZqlTest::writeBytes(emptied, "Name: none\n"));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    const QByteArray pwqualityBefore = ZqlTest::readBytes(PwqualityProfile);

    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 11)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, message);
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CracklibProfile), cracklibAfter);
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile), pwqualityBefore);
    // The tool did not run.
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PasswordComplexityTest::readOnlyProfile()
{
    QVERIFY(QFile::remove(CracklibProfile));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(PwqualityProfile, &error), qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);

    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 11)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(QString::fromUtf8(streams.error),
             QStringLiteral("password-policy : \"/usr/share/pam-configs/pwquality\" error 10\n"
                            "Device or resource busy\n"));
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile), ShippedPwquality);
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
    // pam-auth-update reads every file among the profiles: no copy of the failed policy stays.
    QVERIFY(!QFileInfo::exists(PwqualityProfile + QStringLiteral(".tmp")));
}

void PasswordComplexityTest::missingTool()
{
    QString error;
    QVERIFY2(ZqlTest::removePamAuthUpdate(&error), qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);

    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 11)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error,
             QByteArray("password-policy : Process: \"pam-auth-update --package\". Error: execvp: "
                        "No such file or directory.\n\"Not started\"\n"));
    QCOMPARE(streams.output, QByteArray());
    // The profiles were rewritten; the stack still holds the old options.
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile),
             rewritten(ShippedPwquality, "pam_pwquality.so retry=3",
                       "pam_pwquality.so retry=3 minlen=11"));
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PasswordComplexityTest::toolFailure_data()
{
    QTest::addColumn<QString>("behaviour");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("exit code") << QStringLiteral("exit")
                               << QByteArray("password-policy : Process: \"pam-auth-update "
                                             "--package\". Exit code: 3.\n\"bad\n\"\n");
    QTest::newRow("hang") << QStringLiteral("hang")
                          << QByteArray("password-policy : Process: \"pam-auth-update --package\". "
                                        "Error: Process operation timed out.\n\"Not finished\"\n");
    QTest::newRow("crash") << QStringLiteral("crash")
                           << QByteArray(
                                  "password-policy : Process: \"pam-auth-update --package\". "
                                  "Error: Process crashed.\n\"Not finished\"\n");
}

// The profiles are rewritten before the tool fails; nothing is rolled back.
void PasswordComplexityTest::toolFailure()
{
    QFETCH(QString, behaviour);
    QFETCH(QByteArray, message);
    QString error;
    if (behaviour == QLatin1String("exit"))
        QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(3, "bad\n", &error), qPrintable(error));
    else
        QVERIFY2(ZqlTest::simulatePamAuthUpdate(behaviour == QLatin1String("hang")
                                                    ? ZqlTest::PamAuthUpdateBehaviour::Hang
                                                    : ZqlTest::PamAuthUpdateBehaviour::Crash,
                                                &error),
                 qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);

    PamToolLimits limits;
    // Short only where the tool is made to hang.
    if (behaviour == QLatin1String("hang"))
        limits.finishTimeoutMs = 300;
    PasswordPolicyModule module(limits);
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 11)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, message);
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile),
             rewritten(ShippedPwquality, "pam_pwquality.so retry=3",
                       "pam_pwquality.so retry=3 minlen=11"));
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), QStringList{QStringLiteral("--package")});
}

// A tool that succeeds with a remark on standard error: the remark is a warning, trimmed, and
// the update goes on.
void PasswordComplexityTest::toolWarningIsPassedOn()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdateWarning("  pam-auth-update: odd profile\n\n", &error),
             qPrintable(error));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 11)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray("password-policy : pam-auth-update: odd profile\n"));
    QCOMPARE(stackLine(ZqlTest::readBytes(CommonPassword), "pam_pwquality.so"),
             QByteArray("password\trequisite\t\t\tpam_pwquality.so retry=3 minlen=11"));
}

// The pieces around the old option are joined with nothing between them and the new option
// goes to the end of the line: "retry=3 minlen=8 difok=3" becomes "retry=3  difok=3minlen=10".
void PasswordComplexityTest::repairJoinsPiecesLiterally()
{
    QString error;
    // A tool that regenerates nothing, so the stack stays as written here.
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(0, QByteArray(), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(CommonPassword,
                                "# stack\n"
                                "password requisite pam_cracklib.so retry=3 minlen=8 difok=3\n"
                                "password requisite pam_pwquality.so minlen=10\n"
                                "password requisite pam_pwquality.so minlen=8 minlen=9 # twice\n"
                                "password required pam_unix.so minlen=4\n"
                                "password requisite pam_pwquality.so retry=3\n"
                                "\n"));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 10)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CommonPassword),
             QByteArray("# stack\n"
                        "password requisite pam_cracklib.so retry=3  difok=3minlen=10\n"
                        "password requisite pam_pwquality.so minlen=10\n"
                        "password requisite pam_pwquality.so   # twiceminlen=10\n"
                        "password required pam_unix.so minlen=4\n"
                        "password requisite pam_pwquality.so retry=3\n"
                        "\n"));
}

// A line with minlen twice is repaired even when the first one already holds the wanted value.
void PasswordComplexityTest::repairRemovesASecondMinimumLength()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(0, QByteArray(), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(CommonPassword,
                                "password requisite pam_pwquality.so minlen=8 minlen=9\n"));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 8)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CommonPassword),
             QByteArray("password requisite pam_pwquality.so  minlen=8\n"));
}

// The wanted value is the number even when it is switched off, and 0 when it is absent; a stack
// that cannot be opened is not repaired and is no failure.
void PasswordComplexityTest::repairOfUnreadableStackIsSkipped()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(0, QByteArray(), &error), qPrintable(error));
    QVERIFY(QFile::remove(CommonPassword));
    QVERIFY(QDir().mkdir(CommonPassword));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.setComplexity({}); });
    QVERIFY(QDir().rmdir(CommonPassword));
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
}

// The repaired stack is written whole or not at all: on a full file system the stack keeps its
// old bytes and the failure is reported.
void PasswordComplexityTest::repairOnAFullFileSystem()
{
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdateExit(0, QByteArray(), &error), qPrintable(error));
    const QByteArray stack = "password requisite pam_pwquality.so retry=3 minlen=8\n";
    // A tmpfs of one page, which the stack fills: its new copy cannot be written.
    const QString pamDir = QStringLiteral("/etc/pam.d");
    QVERIFY2(ZqlTest::mountTmpfs(pamDir, QStringLiteral("size=4k"), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(CommonPassword, stack));

    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 10)}});
    });
    const QByteArray after = ZqlTest::readBytes(CommonPassword);
    const QStringList left = QDir(pamDir).entryList(QDir::Files | QDir::Hidden);
    QVERIFY2(ZqlTest::unmount(pamDir, &error), qPrintable(error));
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, QByteArray("password-policy : \"/etc/pam.d/common-password\" error 4\n"
                                       "No space left on device\n"));
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(after, stack);
    QCOMPARE(left, QStringList{QStringLiteral("common-password")});
}

// An administrator added minlen=8 to the stack by hand. pam-auth-update keeps that local change
// next to the profile's new minlen, and pam_pwquality would take the last one; the repair leaves
// the wanted value alone in the line.
void PasswordComplexityTest::repairsLocallyEditedMinimumLength()
{
    QByteArray stack = ZqlTest::readBytes(CommonPassword);
    QVERIFY(stack.contains("pam_pwquality.so retry=3\n"));
    stack.replace("pam_pwquality.so retry=3\n", "pam_pwquality.so retry=3 minlen=8\n");
    QVERIFY(ZqlTest::writeBytes(CommonPassword, stack));

    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 12)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(stackLine(ZqlTest::readBytes(CommonPassword), "pam_pwquality.so"),
             QByteArray("password\trequisite\t\t\tpam_pwquality.so retry=3  minlen=12"));

    QCOMPARE(module.readComplexity(), 0);
    QCOMPARE(module.getSettings()
                 .second.value(QStringLiteral("complexity"))
                 .toHash()
                 .value(QStringLiteral("minlen")),
             ZqlTest::pair(true, 12));
}

void PasswordComplexityTest::roundTrip()
{
    PasswordPolicyModule module;
    QVERIFY(!module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 10)},
                                   {QStringLiteral("ocredit"), ZqlTest::pair(true, -1)},
                                   {QStringLiteral("reject_username"), true}}));
    QCOMPARE(module.readComplexity(), 0);
    const Settings first = module.getSettings().second.value(QStringLiteral("complexity")).toHash();
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    const QByteArray profile = ZqlTest::readBytes(PwqualityProfile);

    int result = 1;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { result = module.setComplexity(first); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
    QCOMPARE(ZqlTest::readBytes(PwqualityProfile), profile);
    QCOMPARE(module.readComplexity(), 0);
    QCOMPARE(
        ZqlTest::json(module.getSettings().second.value(QStringLiteral("complexity")).toHash()),
        ZqlTest::json(first));
}

ZQL_SANDBOXED_TEST_MAIN(PasswordComplexityTest)
#include "passwordcomplexitytest.moc"
