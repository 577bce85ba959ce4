#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>

namespace {
const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
const QString ProfileDir = QStringLiteral("/usr/share/pam-configs");
const QString HistoryProfile = QStringLiteral("/usr/share/pam-configs/pwhistory");
using Settings = QHash<QString, QVariant>;

// The profile the module writes, with @p options in both module lines.
QByteArray profile(const QByteArray &options)
{
    return "Name: Checking password history using pam_pwhistory module\n"
           "Default: none\n"
           "Priority: 1023\n"
           "Conflicts: unix-zany\n"
           "Password-Type: Primary\n"
           "Password:\n"
           "\trequisite\t\t\tpam_pwhistory.so use_authtok " +
           options +
           "\n"
           "Password-Initial:\n"
           "\trequisite\t\t\tpam_pwhistory.so " +
           options + "\n";
}

QByteArray historyLine()
{
    for (const QByteArray &line : ZqlTest::readBytes(CommonPassword).split('\n')) {
        if (line.contains("pam_pwhistory.so"))
            return line;
    }
    return {};
}
} // namespace

// The password-history profile, written whole by the password-policy module and enabled with
// Debian's pam-auth-update.
class PasswordHistoryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void read_data();
    void read();
    void readWithoutHistoryLine();
    void write_data();
    void write();
    void emptyHashWithoutProfileDoesNothing();
    void emptyHashRemovesProfile();
    void replacesProfile();
    void roundTrip();
    void removalByToolFails();
    void profileCannotBeDeleted();
    void profileCannotBeCreated();
    void profileCannotBeWritten();
    void enablingFails();
    void switchFailure_data();
    void switchFailure();

private:
    ZqlTest::PamSnapshot m_snapshot;
};

void PasswordHistoryTest::initTestCase()
{
    QVERIFY(!QFile::exists(HistoryProfile));
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
}

void PasswordHistoryTest::cleanup()
{
    QString error;
    ZqlTest::unmount(HistoryProfile, &error);
    ZqlTest::unmount(ProfileDir, &error);
    QVERIFY2(ZqlTest::restorePamAuthUpdate(&error), qPrintable(error));
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
}

void PasswordHistoryTest::read_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("history");
    QTest::newRow("both options")
        << QByteArray("password requisite pam_pwhistory.so use_authtok enforce_for_root remember=5")
        << QByteArray("{\"enforce_for_root\":true,\"remember\":[true,5]}");
    QTest::newRow("remember=0 is switched off")
        << QByteArray("password requisite pam_pwhistory.so remember=0")
        << QByteArray("{\"enforce_for_root\":false,\"remember\":[false,0]}");
    QTest::newRow("no sign on the count")
        << QByteArray("password requisite pam_pwhistory.so remember=-3")
        << QByteArray("{\"enforce_for_root\":false,\"remember\":[false,0]}");
    QTest::newRow("no options") << QByteArray("password requisite pam_pwhistory.so")
                                << QByteArray(
                                       "{\"enforce_for_root\":false,\"remember\":[false,0]}");
}

void PasswordHistoryTest::read()
{
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, history);
    QVERIFY(
        ZqlTest::writeBytes(CommonPassword, "password requisite pam_pwquality.so retry=3\n" + line +
                                                "\npassword required pam_unix.so use_authtok\n"));
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.readHistory(); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    // getSettings() reports history only while the profile exists.
    QVERIFY(ZqlTest::writeBytes(HistoryProfile, profile("")));
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second.value(QStringLiteral("history")).toHash()), history);
}

void PasswordHistoryTest::readWithoutHistoryLine()
{
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.readHistory(); });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, QByteArray("password-policy : \"/etc/pam.d/common-password\" not "
                                       "contain \"pam_pwhistory\"\n"));
    QCOMPARE(streams.output, QByteArray());
}

void PasswordHistoryTest::write_data()
{
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QByteArray>("readBack");

    QTest::newRow("both options") << Settings{{QStringLiteral("enforce_for_root"), true},
                                              {QStringLiteral("remember"), ZqlTest::pair(true, 5)}}
                                  << QByteArray("enforce_for_root remember=5")
                                  << QByteArray(
                                         "{\"enforce_for_root\":true,\"remember\":[true,5]}");
    QTest::newRow("remember=0 reads back switched off")
        << Settings{{QStringLiteral("remember"), ZqlTest::pair(true, 0)}}
        << QByteArray("remember=0")
        << QByteArray("{\"enforce_for_root\":false,\"remember\":[false,0]}");
    QTest::newRow("switched off: a profile without options")
        << Settings{{QStringLiteral("remember"), ZqlTest::pair(false, 7)}} << QByteArray()
        << QByteArray("{\"enforce_for_root\":false,\"remember\":[false,0]}");
    QTest::newRow("a first element 1 is not true")
        << Settings{{QStringLiteral("remember"), QVariant(QJsonArray{1, 7})}} << QByteArray()
        << QByteArray("{\"enforce_for_root\":false,\"remember\":[false,0]}");
    QTest::newRow("only enforce_for_root")
        << Settings{{QStringLiteral("enforce_for_root"), true}} << QByteArray("enforce_for_root")
        << QByteArray("{\"enforce_for_root\":true,\"remember\":[false,0]}");
}

void PasswordHistoryTest::write()
{
    QFETCH(Settings, settings);
    QFETCH(QByteArray, options);
    QFETCH(QByteArray, readBack);

    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { result = module.setHistory(settings); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    const QByteArray written = ZqlTest::readBytes(HistoryProfile);
    QCOMPARE(written, profile(options));
    QCOMPARE(QFile::permissions(HistoryProfile) & 0x0fff,
             QFile::permissions(ProfileDir + QStringLiteral("/unix")) & 0x0fff);
    // Enabled: pam-auth-update put it into the stack.
    // pam-auth-update drops the blank that an empty option text leaves at the end.
    QCOMPARE(
        historyLine(),
        QByteArray(QByteArray("password\trequisite\t\t\tpam_pwhistory.so use_authtok ") + options)
            .trimmed());

    QCOMPARE(module.readHistory(), 0);
    QCOMPARE(ZqlTest::json(module.getSettings().second.value(QStringLiteral("history")).toHash()),
             readBack);
}

void PasswordHistoryTest::emptyHashWithoutProfileDoesNothing()
{
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.setHistory({}); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PasswordHistoryTest::emptyHashRemovesProfile()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 3)}}), 0);
    QVERIFY(!historyLine().isEmpty());

    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { result = module.setHistory({}); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(historyLine(), QByteArray());
}

void PasswordHistoryTest::replacesProfile()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 3)}}), 0);
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 8)}}), 0);
    QCOMPARE(ZqlTest::readBytes(HistoryProfile), profile("remember=8"));
    QCOMPARE(historyLine(),
             QByteArray("password\trequisite\t\t\tpam_pwhistory.so use_authtok remember=8"));
}

void PasswordHistoryTest::roundTrip()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 4)},
                                {QStringLiteral("enforce_for_root"), true}}),
             0);
    for (int round = 0; round < 2; ++round) {
        QCOMPARE(module.readHistory(), 0);
        const QByteArray stack = ZqlTest::readBytes(CommonPassword);
        QCOMPARE(module.setHistory(
                     module.getSettings().second.value(QStringLiteral("history")).toHash()),
                 0);
        QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
        QCOMPARE(ZqlTest::readBytes(HistoryProfile), profile("enforce_for_root remember=4"));
    }
}

void PasswordHistoryTest::removalByToolFails()
{
    QVERIFY(ZqlTest::writeBytes(HistoryProfile, profile("remember=2")));
    QString error;
    QVERIFY2(ZqlTest::removePamAuthUpdate(&error), qPrintable(error));
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, QByteArray("password-policy : Error when deleting previous "
                                       "configuration pam_pwhistory (call pam-auth-update "
                                       "failed)\n"));
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(HistoryProfile), profile("remember=2"));
}

void PasswordHistoryTest::profileCannotBeDeleted()
{
    QVERIFY(ZqlTest::writeBytes(HistoryProfile, profile("remember=2")));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(HistoryProfile, &error), qPrintable(error));
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    // No closing parenthesis: the message is kept as hosts know it.
    QCOMPARE(streams.error, QByteArray("password-policy : Error when deleting previous "
                                       "configuration pam_pwhistory (failed to delete "
                                       "configuration file /usr/share/pam-configs/pwhistory\n"));
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(HistoryProfile), profile("remember=2"));
    // The tool already took it out of the stack: no history policy is left in force.
    QCOMPARE(historyLine(), QByteArray());
}

void PasswordHistoryTest::profileCannotBeCreated()
{
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(ProfileDir, &error), qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, QByteArray("password-policy : Failed to create configuration file "
                                       "/usr/share/pam-configs/pwhistory\n"));
    QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

// A full file system: the profile is not left behind empty or cut short.
void PasswordHistoryTest::profileCannotBeWritten()
{
    QHash<QString, QByteArray> profiles;
    const QStringList names = QDir(ProfileDir).entryList(QDir::Files);
    for (const QString &name : names)
        profiles.insert(name, ZqlTest::readBytes(ProfileDir + QLatin1Char('/') + name));
    QString error;
    // One page for each profile and one more, which the filler takes.
    const QString size = QStringLiteral("size=%1k").arg((names.size() + 1) * 4);
    QVERIFY2(ZqlTest::mountTmpfs(ProfileDir, size, &error), qPrintable(error));
    for (auto it = profiles.constBegin(); it != profiles.constEnd(); ++it)
        QVERIFY(ZqlTest::writeBytes(ProfileDir + QLatin1Char('/') + it.key(), it.value()));
    // Fill what is left, so that the new profile's first block cannot be written.
    QFile filler(ProfileDir + QStringLiteral("/.filler"));
    QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (filler.write(QByteArray(512, 'x')) > 0) {
    }
    filler.close();

    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(streams.error, QByteArray("password-policy : Failed to write configuration file "
                                       "/usr/share/pam-configs/pwhistory\n"));
    QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(QDir(ProfileDir).entryList(QDir::Files | QDir::Hidden).size(), names.size() + 1);
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

// The caller is told success, but the new profile is gone again and the message says so.
void PasswordHistoryTest::enablingFails()
{
    QString error;
    QVERIFY2(ZqlTest::removePamAuthUpdate(&error), qPrintable(error));
    const QByteArray stack = ZqlTest::readBytes(CommonPassword);
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error,
             QByteArray("password-policy : pam_pwhistory configuration update failed "
                        "(call pam-auth-update failed)\n"));
    QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(ZqlTest::readBytes(CommonPassword), stack);
}

void PasswordHistoryTest::switchFailure_data()
{
    QTest::addColumn<int>("behaviour");
    QTest::addColumn<bool>("existingProfile");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("message");

    const QByteArray removal = "password-policy : Error when deleting previous configuration "
                               "pam_pwhistory (call pam-auth-update failed)\n";
    const QByteArray enabling = "password-policy : pam_pwhistory configuration update failed (call "
                                "pam-auth-update failed)\n";
    const int hang = int(ZqlTest::PamAuthUpdateBehaviour::Hang);
    const int crash = int(ZqlTest::PamAuthUpdateBehaviour::Crash);
    QTest::newRow("removal hangs") << hang << true << 1 << removal;
    QTest::newRow("removal crashes") << crash << true << 1 << removal;
    QTest::newRow("enabling hangs") << hang << false << 0 << enabling;
    QTest::newRow("enabling crashes") << crash << false << 0 << enabling;
}

// A tool that hangs past the limit or crashes counts as failed; without a limit the module
// would wait for it as long as it runs.
void PasswordHistoryTest::switchFailure()
{
    QFETCH(int, behaviour);
    QFETCH(bool, existingProfile);
    QFETCH(int, result);
    QFETCH(QByteArray, message);
    if (existingProfile)
        QVERIFY(ZqlTest::writeBytes(HistoryProfile, profile("remember=2")));
    QString error;
    QVERIFY2(ZqlTest::simulatePamAuthUpdate(ZqlTest::PamAuthUpdateBehaviour(behaviour), &error),
             qPrintable(error));

    PamToolLimits limits;
    // Short only where the tool is made to hang; a crash is seen without any limit.
    if (ZqlTest::PamAuthUpdateBehaviour(behaviour) == ZqlTest::PamAuthUpdateBehaviour::Hang)
        limits.historySwitchTimeoutMs = 300;
    PasswordPolicyModule module(limits);
    int actual = -1;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        actual = module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(actual, result);
    QCOMPARE(streams.error, message);
    QCOMPARE(streams.output, QByteArray());
    if (existingProfile)
        QCOMPARE(ZqlTest::readBytes(HistoryProfile), profile("remember=2"));
    else
        QVERIFY(!QFile::exists(HistoryProfile));
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(),
             QStringList{existingProfile ? QStringLiteral("--package --remove pwhistory --force")
                                         : QStringLiteral("--package --enable pwhistory --force")});
}

ZQL_SANDBOXED_TEST_MAIN(PasswordHistoryTest)
#include "passwordhistorytest.moc"
