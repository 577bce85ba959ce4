#include "pamfixture.h"
#include "pamsnapshot.h"
#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace {
const QString CommonPassword = QStringLiteral("/etc/pam.d/common-password");
const QString PwqualityProfile = QStringLiteral("/usr/share/pam-configs/pwquality");
const QString HistoryProfile = QStringLiteral("/usr/share/pam-configs/pwhistory");
const QString LoginDefs = QStringLiteral("/etc/login.defs");
const QString UserAddDefaults = QStringLiteral("/etc/default/useradd");
const QString Complexity = QStringLiteral("complexity");
const QString ValidityPeriod = QStringLiteral("validity-period");
const QString History = QStringLiteral("history");
const QByteArray Note = "password-policy : Default password expiration policy will be applied "
                        "only for new user creation\n";
using Settings = QHash<QString, QVariant>;

// The configuration files the module writes (backups aside), for byte comparisons.
QHash<QString, QByteArray> configuration()
{
    QHash<QString, QByteArray> files;
    for (const QString &path : {CommonPassword, PwqualityProfile, HistoryProfile, LoginDefs,
                                UserAddDefaults, QStringLiteral("/usr/share/pam-configs/cracklib")})
        files.insert(path, ZqlTest::readBytes(path));
    return files;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}
} // namespace

// The password-policy module as a whole: its three parts under one record.
class PasswordPolicyModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void contract();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void getSettingsWithoutHistoryProfile();
    void getSettingsWithHistory();
    void getSettingsHistoryProfileWithoutLine();
    void getSettingsStopsAtComplexity();
    void setSettingsOnlyComplexity();
    void setSettingsWithoutComplexity();
    void setSettingsWithoutHistoryRemovesIt();
    void setSettingsFromJsonText();
    void unusableNumberChangesNothing();
    void roundTrip();
    void recordKeepsEarlierReads();

private:
    ZqlTest::PamSnapshot m_snapshot;
    QHash<QString, QByteArray> m_files;
};

void PasswordPolicyModuleTest::initTestCase()
{
    QString error;
    QVERIFY2(m_snapshot.take(&error), qPrintable(error));
    m_files = configuration();
}

void PasswordPolicyModuleTest::cleanup()
{
    QString error;
    QVERIFY2(m_snapshot.restore(&error), qPrintable(error));
    for (auto it = m_files.constBegin(); it != m_files.constEnd(); ++it) {
        if (it.value().isNull())
            QFile::remove(it.key());
        else
            QVERIFY(ZqlTest::writeBytes(it.key(), it.value()));
        QFile::remove(it.key() + QStringLiteral(".bak"));
    }
}

void PasswordPolicyModuleTest::contract()
{
    PasswordPolicyModule module;
    QCOMPARE(module.getName(), QStringLiteral("password-policy"));
    QVERIFY(module.isAvailable());
    QVERIFY(module.checkRestrictions({}));
}

void PasswordPolicyModuleTest::isParametersCorrect_data()
{
    QTest::addColumn<bool>("historyProfile");
    QTest::addColumn<QStringList>("unknown");
    // History is accepted only once a history policy exists on the system.
    QTest::newRow("no history profile")
        << false << QStringList{QStringLiteral("history"), QStringLiteral("x")};
    QTest::newRow("history profile") << true << QStringList{QStringLiteral("x")};
}

void PasswordPolicyModuleTest::isParametersCorrect()
{
    QFETCH(bool, historyProfile);
    QFETCH(QStringList, unknown);
    if (historyProfile)
        QVERIFY(ZqlTest::writeBytes(HistoryProfile, "Name: history\n"));
    PasswordPolicyModule module;
    QCOMPARE(sorted(module.isParametersCorrect(
                 {Complexity, History, QStringLiteral("x"), ValidityPeriod})),
             unknown);
    QCOMPARE(module.isParametersCorrect({}), QStringList());
    QCOMPARE(module.isParametersCorrect({Complexity, ValidityPeriod}), QStringList());
}

void PasswordPolicyModuleTest::getSettingsWithoutHistoryProfile()
{
    PasswordPolicyModule module;
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 0);
    QCOMPARE(sorted(reply.second.keys()), (QStringList{Complexity, ValidityPeriod}));
    // Debian's pwquality profile asks for nothing but retry=3; login.defs ships its ageing.
    QCOMPARE(ZqlTest::json(reply.second.value(Complexity).toHash()),
             QByteArray("{\"dcredit\":[false,0],\"enforce_for_root\":false,\"gecoscheck\":false,"
                        "\"lcredit\":[false,0],\"minlen\":[false,0],\"ocredit\":[false,0],"
                        "\"reject_username\":false,\"ucredit\":[false,0]}"));
    QCOMPARE(ZqlTest::json(reply.second.value(ValidityPeriod).toHash()),
             QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                        "\"maxInterval\":[true,99999],\"minInterval\":[true,0],"
                        "\"warningInterval\":[true,7]}"));
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
}

void PasswordPolicyModuleTest::getSettingsWithHistory()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 5)}}), 0);
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(sorted(reply.second.keys()), (QStringList{Complexity, History, ValidityPeriod}));
    QCOMPARE(ZqlTest::json(reply.second.value(History).toHash()),
             QByteArray("{\"enforce_for_root\":false,\"remember\":[true,5]}"));
}

void PasswordPolicyModuleTest::getSettingsHistoryProfileWithoutLine()
{
    QVERIFY(ZqlTest::writeBytes(HistoryProfile, "Name: not enabled\n"));
    PasswordPolicyModule module;
    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(streams.error, QByteArray("password-policy : \"/etc/pam.d/common-password\" not "
                                       "contain \"pam_pwhistory\"\n"));
}

// The first failed read ends getSettings(): the validity files are not read.
void PasswordPolicyModuleTest::getSettingsStopsAtComplexity()
{
    QVERIFY(ZqlTest::writeBytes(CommonPassword, "password required pam_unix.so\n"));
    QVERIFY(QFile::remove(LoginDefs));
    PasswordPolicyModule module;
    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(streams.error, QByteArray("password-policy : \"/etc/pam.d/common-password\" not "
                                       "contain \"pam_cracklib or pam_pwquality\"\n"));
}

// Complexity is written, then the missing validity period fails the call without a message and
// without touching its files.
void PasswordPolicyModuleTest::setSettingsOnlyComplexity()
{
    PasswordPolicyModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings(
            {{Complexity, Settings{{QStringLiteral("minlen"), ZqlTest::pair(true, 12)}}}});
    });
    QVERIFY(failed);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QVERIFY(ZqlTest::readBytes(PwqualityProfile).contains("pam_pwquality.so retry=3 minlen=12\n"));
    QCOMPARE(ZqlTest::readBytes(LoginDefs), m_files.value(LoginDefs));
    QVERIFY(!QFile::exists(LoginDefs + QStringLiteral(".bak")));
    QCOMPARE(ZqlTest::readBytes(UserAddDefaults), m_files.value(UserAddDefaults));
}

void PasswordPolicyModuleTest::setSettingsWithoutComplexity()
{
    PasswordPolicyModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings(
            {{ValidityPeriod, Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 1)}}}});
    });
    QVERIFY(failed);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(configuration(), m_files);
}

// A record without "history" takes the history policy away.
void PasswordPolicyModuleTest::setSettingsWithoutHistoryRemovesIt()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 5)}}), 0);
    QVERIFY(QFile::exists(HistoryProfile));
    Settings record = module.getSettings().second;
    QVERIFY(record.remove(History));

    bool failed = true;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { failed = module.setSettings(record); });
    QVERIFY(!failed);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, Note);
    QVERIFY(!QFile::exists(HistoryProfile));
    QVERIFY(!ZqlTest::readBytes(CommonPassword).contains("pam_pwhistory"));
}

// A host that saved the record as JSON and imports it again hands maps and lists, not hashes
// and JSON arrays; the module applies them the same way.
void PasswordPolicyModuleTest::setSettingsFromJsonText()
{
    const QByteArray policy =
        R"({"complexity": {"minlen": [true, 13], "dcredit": [true, -1], "gecoscheck": true},
            "validity-period": {"maxInterval": [true, 60], "expireDate": [true, 21945]},
            "history": {"remember": [true, 4]}})";
    Settings imported;
    const QVariantMap map = QJsonDocument::fromJson(policy).toVariant().toMap();
    for (auto it = map.constBegin(); it != map.constEnd(); ++it)
        imported.insert(it.key(), it.value());

    PasswordPolicyModule module;
    bool failed = true;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { failed = module.setSettings(imported); });
    QVERIFY(!failed);
    QCOMPARE(streams.error, QByteArray());
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second.value(Complexity).toHash()),
             QByteArray("{\"dcredit\":[true,-1],\"enforce_for_root\":false,\"gecoscheck\":true,"
                        "\"lcredit\":[false,0],\"minlen\":[true,13],\"ocredit\":[false,0],"
                        "\"reject_username\":false,\"ucredit\":[false,0]}"));
    QCOMPARE(ZqlTest::json(reply.second.value(ValidityPeriod).toHash()),
             QByteArray("{\"expireDate\":[true,21945],\"inactiveInterval\":[false,0],"
                        "\"maxInterval\":[true,60],\"minInterval\":[false,0],"
                        "\"warningInterval\":[false,0]}"));
    QCOMPARE(ZqlTest::json(reply.second.value(History).toHash()),
             QByteArray("{\"enforce_for_root\":false,\"remember\":[true,4]}"));
}

// What the module reads it writes back with success; a second round trip changes no byte.
void PasswordPolicyModuleTest::roundTrip()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 5)},
                                {QStringLiteral("enforce_for_root"), true}}),
             0);
    QVERIFY(!module.setComplexity({{QStringLiteral("minlen"), ZqlTest::pair(true, 10)}}));

    QHash<QString, QByteArray> afterFirst;
    for (int round = 0; round < 2; ++round) {
        const SettingsReply reply = module.getSettings();
        QCOMPARE(reply.first, 0);
        bool failed = true;
        const ZqlTest::Streams streams =
            ZqlTest::captured([&] { failed = module.setSettings(reply.second); });
        QVERIFY(!failed);
        QCOMPARE(streams.error, QByteArray());
        QCOMPARE(streams.output, Note);
        if (round == 0)
            afterFirst = configuration();
        else
            QCOMPARE(configuration(), afterFirst);
    }
}

// The record keeps what earlier reads stored: a history read once stays in it after the profile
// is gone.
void PasswordPolicyModuleTest::recordKeepsEarlierReads()
{
    PasswordPolicyModule module;
    QCOMPARE(module.setHistory({{QStringLiteral("remember"), ZqlTest::pair(true, 5)}}), 0);
    QVERIFY(module.getSettings().second.contains(History));
    QCOMPARE(module.setHistory({}), 0);
    QVERIFY(!QFile::exists(HistoryProfile));
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QVERIFY(reply.second.contains(History));
    // A fresh module reads only what is there.
    QVERIFY(!PasswordPolicyModule().getSettings().second.contains(History));
}

// A bad number in the last part stops the whole record before the first part is written.
void PasswordPolicyModuleTest::unusableNumberChangesNothing()
{
    PasswordPolicyModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings(
            {{Complexity, Settings{{QStringLiteral("minlen"), ZqlTest::pair(true, 12)}}},
             {ValidityPeriod, Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 90)}}},
             {History, Settings{{QStringLiteral("remember"), QJsonArray{true, 1e30}}}}});
    });
    QVERIFY(failed);
    QCOMPARE(streams.error, QByteArray("password-policy : \"remember\" holds 1e+30: a switched "
                                       "number needs a whole number from -9007199254740992 to "
                                       "9007199254740992\n"));
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(configuration(), m_files);
}

ZQL_SANDBOXED_TEST_MAIN(PasswordPolicyModuleTest)
#include "passwordpolicymoduletest.moc"
