#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>
#include <QFileInfo>

namespace {
const QString LoginDefs = QStringLiteral("/etc/login.defs");
const QString UserAddDefaults = QStringLiteral("/etc/default/useradd");
const QByteArray Note = "password-policy : Default password expiration policy will be applied "
                        "only for new user creation\n";
using Settings = QHash<QString, QVariant>;

QVariant validityPeriod(const SettingsReply &reply)
{
    return reply.second.value(QStringLiteral("validity-period"));
}
} // namespace

// The password ageing defaults of /etc/login.defs and the account defaults of
// /etc/default/useradd, through the password-policy module.
class PasswordValidityPeriodTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void shippedFilesReadAsTheyAre();
    void read_data();
    void read();
    void rewrite_data();
    void rewrite();
    void roundTripOfShippedFiles();
    void readFailure_data();
    void readFailure();
    void readOnlyLoginDefs();
    void missingUserAddKeepsNewLoginDefs();

private:
    QByteArray m_loginDefs;
    QByteArray m_userAdd;
};

void PasswordValidityPeriodTest::initTestCase()
{
    m_loginDefs = ZqlTest::readBytes(LoginDefs);
    m_userAdd = ZqlTest::readBytes(UserAddDefaults);
    QVERIFY2(!m_loginDefs.isNull(), "the machine has no /etc/login.defs (package login)");
    QVERIFY2(!m_userAdd.isNull(), "the machine has no /etc/default/useradd (package passwd)");
}

void PasswordValidityPeriodTest::cleanup()
{
    QString error;
    ZqlTest::unmount(LoginDefs, &error);
    QVERIFY(ZqlTest::writeBytes(LoginDefs, m_loginDefs));
    QVERIFY(ZqlTest::writeBytes(UserAddDefaults, m_userAdd));
    for (const QString &path : {LoginDefs, UserAddDefaults}) {
        QFile::remove(path + QStringLiteral(".bak"));
        QFile::remove(path + QStringLiteral(".tmp"));
    }
}

// Debian 12 ships PASS_MAX_DAYS 99999, PASS_MIN_DAYS 0, PASS_WARN_AGE 7 and leaves INACTIVE and
// EXPIRE commented out.
void PasswordValidityPeriodTest::shippedFilesReadAsTheyAre()
{
    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { result = module.readValidityPeriod(); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::json(
                 module.getSettings().second.value(QStringLiteral("validity-period")).toHash()),
             QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                        "\"maxInterval\":[true,99999],\"minInterval\":[true,0],"
                        "\"warningInterval\":[true,7]}"));
}

void PasswordValidityPeriodTest::read_data()
{
    QTest::addColumn<QByteArray>("loginDefs");
    QTest::addColumn<QByteArray>("userAdd");
    QTest::addColumn<QByteArray>("settings");

    QTest::newRow("tab between key and value")
        << QByteArray("PASS_MAX_DAYS\t99999\n") << QByteArray()
        << QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                      "\"maxInterval\":[true,99999],\"minInterval\":[false,0],"
                      "\"warningInterval\":[false,0]}");
    QTest::newRow("negative and later lines")
        << QByteArray("PASS_MIN_DAYS -2\n# PASS_WARN_AGE 3\nPASS_MIN_DAYS 4 # again\n")
        << QByteArray()
        << QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                      "\"maxInterval\":[false,0],\"minInterval\":[true,4],"
                      "\"warningInterval\":[false,0]}");
    QTest::newRow("empty EXPIRE") << QByteArray() << QByteArray("EXPIRE=\n")
                                  << QByteArray(
                                         "{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                                         "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                                         "\"warningInterval\":[false,0]}");
    QTest::newRow("EXPIRE date")
        << QByteArray() << QByteArray("EXPIRE=2030-01-31\n")
        << QByteArray("{\"expireDate\":[true,21945],\"inactiveInterval\":[false,0],"
                      "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                      "\"warningInterval\":[false,0]}");
    QTest::newRow("EXPIRE before 1970")
        << QByteArray() << QByteArray("EXPIRE=1969-12-31\n")
        << QByteArray("{\"expireDate\":[true,-1],\"inactiveInterval\":[false,0],"
                      "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                      "\"warningInterval\":[false,0]}");
    QTest::newRow("EXPIRE that is no date")
        << QByteArray() << QByteArray("EXPIRE=2030-02-30\n")
        << QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[false,0],"
                      "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                      "\"warningInterval\":[false,0]}");
    QTest::newRow("INACTIVE=-1") << QByteArray() << QByteArray("INACTIVE=-1\n")
                                 << QByteArray(
                                        "{\"expireDate\":[false,0],\"inactiveInterval\":[true,-1],"
                                        "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                                        "\"warningInterval\":[false,0]}");
    QTest::newRow("INACTIVE that is no number")
        << QByteArray() << QByteArray("INACTIVE=never\n")
        << QByteArray("{\"expireDate\":[false,0],\"inactiveInterval\":[true,0],"
                      "\"maxInterval\":[false,0],\"minInterval\":[false,0],"
                      "\"warningInterval\":[false,0]}");
}

void PasswordValidityPeriodTest::read()
{
    QFETCH(QByteArray, loginDefs);
    QFETCH(QByteArray, userAdd);
    QFETCH(QByteArray, settings);
    QVERIFY(ZqlTest::writeBytes(LoginDefs, loginDefs));
    QVERIFY(ZqlTest::writeBytes(UserAddDefaults, userAdd));

    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { result = module.readValidityPeriod(); });
    QCOMPARE(result, 0);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    // The module hands out what it read through getSettings(); read it again there.
    const SettingsReply reply = module.getSettings();
    QCOMPARE(ZqlTest::json(validityPeriod(reply).toHash()), settings);
}

void PasswordValidityPeriodTest::rewrite_data()
{
    QTest::addColumn<QByteArray>("loginDefsBefore");
    QTest::addColumn<QByteArray>("userAddBefore");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("loginDefsAfter");
    QTest::addColumn<QByteArray>("userAddAfter");

    const QByteArray allKeys =
        "# ageing\nPASS_MAX_DAYS\t99999\nPASS_MIN_DAYS\t0\nPASS_WARN_AGE\t7\n";
    QTest::newRow("one blank between key and value")
        << allKeys << QByteArray()
        << Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 90)},
                    {QStringLiteral("minInterval"), ZqlTest::pair(true, 0)},
                    {QStringLiteral("warningInterval"), ZqlTest::pair(true, 7)}}
        << QByteArray("# ageing\nPASS_MAX_DAYS 90\nPASS_MIN_DAYS 0\nPASS_WARN_AGE 7\n")
        << QByteArray();
    QTest::newRow("missing warning age appended")
        << QByteArray("PASS_MAX_DAYS 30\nPASS_MIN_DAYS 1\n") << QByteArray()
        << Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 30)},
                    {QStringLiteral("minInterval"), ZqlTest::pair(true, 1)},
                    {QStringLiteral("warningInterval"), ZqlTest::pair(true, 7)}}
        << QByteArray("PASS_MAX_DAYS 30\nPASS_MIN_DAYS 1\nPASS_WARN_AGE 7\n") << QByteArray();
    QTest::newRow("switched off empties the line, appends nothing")
        << QByteArray("PASS_MIN_DAYS 3 # keep a day\nPASS_MAX_DAYS 5\n") << QByteArray()
        << Settings{{QStringLiteral("minInterval"), ZqlTest::pair(false, 3)},
                    {QStringLiteral("maxInterval"), ZqlTest::pair(true, 5)}}
        << QByteArray("\t# keep a day\nPASS_MAX_DAYS 5\n") << QByteArray();
    QTest::newRow("absent and malformed keys empty their lines")
        << allKeys << QByteArray()
        << Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 1)},
                    {QStringLiteral("minInterval"), QVariant(QJsonArray{1, 2})},
                    {QStringLiteral("warningInterval"), QVariant(QJsonArray{true, 2, 3})}}
        << QByteArray("# ageing\nPASS_MAX_DAYS 1\n\n\n") << QByteArray();
    QTest::newRow("appended in order max, min, warning")
        << QByteArray("# none\n") << QByteArray()
        << Settings{{QStringLiteral("warningInterval"), ZqlTest::pair(true, -7)},
                    {QStringLiteral("minInterval"), ZqlTest::pair(true, 2)},
                    {QStringLiteral("maxInterval"), ZqlTest::pair(true, 60)}}
        << QByteArray("# none\nPASS_MAX_DAYS 60\nPASS_MIN_DAYS 2\nPASS_WARN_AGE -7\n")
        << QByteArray();
    QTest::newRow("no line end before the appended line")
        << QByteArray("PASS_MAX_DAYS 60") << QByteArray()
        << Settings{{QStringLiteral("maxInterval"), ZqlTest::pair(true, 60)},
                    {QStringLiteral("minInterval"), ZqlTest::pair(true, 2)}}
        << QByteArray("PASS_MAX_DAYS 60\nPASS_MIN_DAYS 2\n") << QByteArray();
    QTest::newRow("expiry from day zero")
        << QByteArray() << QByteArray("EXPIRE=2030-01-31\n")
        << Settings{{QStringLiteral("expireDate"), ZqlTest::pair(true, 0)}} << QByteArray()
        << QByteArray("EXPIRE=1970-01-01\n");
    QTest::newRow("INACTIVE=-1 unchanged")
        << QByteArray() << QByteArray("# useradd defaults\nINACTIVE=-1\n")
        << Settings{{QStringLiteral("inactiveInterval"), ZqlTest::pair(true, -1)}} << QByteArray()
        << QByteArray("# useradd defaults\nINACTIVE=-1\n");
    QTest::newRow("both appended, the expiry without line end")
        << QByteArray() << QByteArray("SHELL=/bin/sh\n")
        << Settings{{QStringLiteral("inactiveInterval"), ZqlTest::pair(true, 30)},
                    {QStringLiteral("expireDate"), ZqlTest::pair(true, 21945)}}
        << QByteArray() << QByteArray("SHELL=/bin/sh\nINACTIVE=30\nEXPIRE=2030-01-31");
    QTest::newRow("switched-off expiry empties its line")
        << QByteArray() << QByteArray("INACTIVE=5\nEXPIRE=2030-01-31\n")
        << Settings{{QStringLiteral("inactiveInterval"), ZqlTest::pair(true, 5)},
                    {QStringLiteral("expireDate"), ZqlTest::pair(false, 21945)}}
        << QByteArray() << QByteArray("INACTIVE=5\n\n");
}

void PasswordValidityPeriodTest::rewrite()
{
    QFETCH(QByteArray, loginDefsBefore);
    QFETCH(QByteArray, userAddBefore);
    QFETCH(Settings, settings);
    QFETCH(QByteArray, loginDefsAfter);
    QFETCH(QByteArray, userAddAfter);
    QVERIFY(ZqlTest::writeBytes(LoginDefs, loginDefsBefore));
    QVERIFY(ZqlTest::writeBytes(UserAddDefaults, userAddBefore));

    PasswordPolicyModule module;
    int result = 1;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { result = module.setValidityPeriod(settings); });
    QCOMPARE(result, 0);
    QCOMPARE(ZqlTest::readBytes(LoginDefs), loginDefsAfter);
    QCOMPARE(ZqlTest::readBytes(UserAddDefaults), userAddAfter);
    QCOMPARE(ZqlTest::readBytes(LoginDefs + QStringLiteral(".bak")), loginDefsBefore);
    QCOMPARE(ZqlTest::readBytes(UserAddDefaults + QStringLiteral(".bak")), userAddBefore);
    QCOMPARE(streams.error, QByteArray());
    // Every successful write says that existing accounts keep their ageing.
    QCOMPARE(streams.output, Note);
}

// The files as they ship take one rewrite to come into the module's form (one blank between
// key and value); after that, what is read is written back unchanged.
void PasswordValidityPeriodTest::roundTripOfShippedFiles()
{
    QByteArray expected = m_loginDefs;
    for (const char *key : {"PASS_MAX_DAYS", "PASS_MIN_DAYS", "PASS_WARN_AGE"}) {
        const QByteArray shipped = "\n" + QByteArray(key) + '\t';
        QVERIFY2(expected.contains(shipped), key);
        expected.replace(shipped, "\n" + QByteArray(key) + ' ');
    }

    PasswordPolicyModule module;
    for (int round = 0; round < 2; ++round) {
        QCOMPARE(module.readValidityPeriod(), 0);
        const Settings read = validityPeriod(module.getSettings()).toHash();
        int result = 1;
        const ZqlTest::Streams streams =
            ZqlTest::captured([&] { result = module.setValidityPeriod(read); });
        QCOMPARE(result, 0);
        QCOMPARE(ZqlTest::readBytes(LoginDefs), expected);
        QCOMPARE(ZqlTest::readBytes(UserAddDefaults), m_userAdd);
        QCOMPARE(streams.error, QByteArray());
        QCOMPARE(streams.output, Note);
    }
}

void PasswordValidityPeriodTest::readFailure_data()
{
    QTest::addColumn<QString>("missing");
    QTest::newRow("login.defs") << LoginDefs;
    QTest::newRow("useradd") << UserAddDefaults;
}

void PasswordValidityPeriodTest::readFailure()
{
    QFETCH(QString, missing);
    QVERIFY(QFile::remove(missing));
    PasswordPolicyModule module;
    int readResult = 0;
    int writeResult = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        readResult = module.readValidityPeriod();
        writeResult = module.setValidityPeriod({});
    });
    QCOMPARE(readResult, 1);
    QCOMPARE(writeResult, 1);
    const QByteArray message = "password-policy : \"" + missing.toUtf8() + "\" not exists\n";
    QCOMPARE(streams.error, message + message);
    QCOMPARE(streams.output, QByteArray());
    QVERIFY(!QFile::exists(missing));

    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    const ZqlTest::Streams getStreams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(getStreams.error, message);
}

void PasswordValidityPeriodTest::readOnlyLoginDefs()
{
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(LoginDefs, &error), qPrintable(error));
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result = module.setValidityPeriod(
            {{QStringLiteral("maxInterval"), ZqlTest::pair(true, 30)},
             {QStringLiteral("inactiveInterval"), ZqlTest::pair(true, 30)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(ZqlTest::readBytes(LoginDefs), m_loginDefs);
    QCOMPARE(ZqlTest::readBytes(UserAddDefaults), m_userAdd);
    QCOMPARE(QString::fromUtf8(streams.error),
             QStringLiteral("password-policy : \"/etc/login.defs\" error 10\n"
                            "Device or resource busy\n"));
    QVERIFY(!QFileInfo::exists(LoginDefs + QStringLiteral(".tmp")));
    QCOMPARE(streams.output, QByteArray());
}

// The first file keeps its new content when the second fails: nothing is rolled back.
void PasswordValidityPeriodTest::missingUserAddKeepsNewLoginDefs()
{
    QVERIFY(ZqlTest::writeBytes(LoginDefs, "PASS_MAX_DAYS 5\n"));
    QVERIFY(QFile::remove(UserAddDefaults));
    PasswordPolicyModule module;
    int result = 0;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        result =
            module.setValidityPeriod({{QStringLiteral("maxInterval"), ZqlTest::pair(true, 9)}});
    });
    QCOMPARE(result, 1);
    QCOMPARE(ZqlTest::readBytes(LoginDefs), QByteArray("PASS_MAX_DAYS 9\n"));
    QVERIFY(!QFile::exists(UserAddDefaults));
    QCOMPARE(streams.error, QByteArray("password-policy : \"/etc/default/useradd\" not exists\n"));
    QCOMPARE(streams.output, QByteArray());
}

ZQL_SANDBOXED_TEST_MAIN(PasswordValidityPeriodTest)
#include "passwordvalidityperiodtest.moc"
