#include "outputcapture.h"
#include "systemfixture.h"
#include "tesselfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFileInfo>

using ZqlTest::TesselConfPath;
using Settings = QHash<QString, QVariant>;

class LoginLocalModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void identity();
    void stateToStr_data();
    void stateToStr();
    void strToState_data();
    void strToState();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void getSettings_data();
    void getSettings();
    void setSettings_data();
    void setSettings();
    void failure_data();
    void failure();
    void roundTrip();
    void operationsGoThroughTheFile();

private:
    ZqlTest::TesselFixture m_fixture;
};

void LoginLocalModuleTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void LoginLocalModuleTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void LoginLocalModuleTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void LoginLocalModuleTest::identity()
{
    LoginLocalModule module;
    QCOMPARE(module.getName(), QStringLiteral("login-local"));
    QVERIFY(module.isAvailable());
    QVERIFY(module.checkRestrictions({}));
    QVERIFY(module.checkRestrictions({{QStringLiteral("login_state"), QStringLiteral("x")}}));
    QCOMPARE(module.formatOutput(QStringLiteral("m")), QStringLiteral("login-local : m\n"));
}

void LoginLocalModuleTest::stateToStr_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("text");

    QTest::newRow("0") << 0 << QStringLiteral("unknown");
    QTest::newRow("1") << 1 << QStringLiteral("all");
    QTest::newRow("2") << 2 << QStringLiteral("admin");
    QTest::newRow("3") << 3 << QStringLiteral("no");
    QTest::newRow("4") << 4 << QStringLiteral("unknown");
    QTest::newRow("-1") << -1 << QStringLiteral("unknown");
}

void LoginLocalModuleTest::stateToStr()
{
    QFETCH(int, state);
    QFETCH(QString, text);
    QCOMPARE(LoginLocalModule::StateToStr(TesselConfFile::State(state)), text);
}

void LoginLocalModuleTest::strToState_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<TesselConfFile::State>("state");

    QTest::newRow("all") << QStringLiteral("all") << TesselConfFile::All;
    QTest::newRow("admin") << QStringLiteral("admin") << TesselConfFile::Admin;
    QTest::newRow("no") << QStringLiteral("no") << TesselConfFile::No;
    QTest::newRow("capitals") << QStringLiteral("ADMIN") << TesselConfFile::Unknown;
    QTest::newRow("blank around") << QStringLiteral(" no") << TesselConfFile::Unknown;
    QTest::newRow("unknown") << QStringLiteral("unknown") << TesselConfFile::Unknown;
    QTest::newRow("empty") << QString() << TesselConfFile::Unknown;
}

void LoginLocalModuleTest::strToState()
{
    QFETCH(QString, text);
    QFETCH(TesselConfFile::State, state);
    QCOMPARE(LoginLocalModule::StrToState(text), state);
}

void LoginLocalModuleTest::isParametersCorrect_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("unknown");

    QTest::newRow("empty") << QStringList() << QStringList();
    QTest::newRow("the known key") << QStringList{QStringLiteral("login_state")} << QStringList();
    QTest::newRow("one unknown") << QStringList{QStringLiteral("login_state"), QStringLiteral("x")}
                                 << QStringList{QStringLiteral("x")};
}

void LoginLocalModuleTest::isParametersCorrect()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, unknown);
    LoginLocalModule module;
    QCOMPARE(module.isParametersCorrect(QSet<QString>(given.begin(), given.end())), unknown);
}

void LoginLocalModuleTest::getSettings_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("state");

    QTest::newRow("simulated system") << m_fixture.original() << QStringLiteral("admin");
    QTest::newRow("admin") << QByteArray("login_local admin\n") << QStringLiteral("admin");
    QTest::newRow("all") << QByteArray("login_local all # c\n") << QStringLiteral("all");
    QTest::newRow("no") << QByteArray("login_local no\n") << QStringLiteral("no");
    QTest::newRow("no valid line reads as unknown")
        << QByteArray("login_local nobody\n#login_local no\n") << QStringLiteral("unknown");
}

void LoginLocalModuleTest::getSettings()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, state);

    QVERIFY(ZqlTest::writeBytes(TesselConfPath, content));
    ZqlTest::OutputCapture capture;
    LoginLocalModule module;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    const Settings expected{{QStringLiteral("login_state"), state}};
    QCOMPARE(reply.second, expected);
    QCOMPARE(reply.second.value(QStringLiteral("login_state")).userType(), int(QMetaType::QString));
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());
}

void LoginLocalModuleTest::setSettings_data()
{
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("line");

    const QString key = QStringLiteral("login_state");
    QTest::newRow("admin") << Settings{{key, QStringLiteral("admin")}}
                           << QByteArray("login_local admin");
    QTest::newRow("no") << Settings{{key, QStringLiteral("no")}} << QByteArray("login_local no");
    QTest::newRow("all") << Settings{{key, QStringLiteral("all")}} << QByteArray("login_local all");
    QTest::newRow("capitals write all")
        << Settings{{key, QStringLiteral("ADMIN")}} << QByteArray("login_local all");
    QTest::newRow("unknown word writes all")
        << Settings{{key, QStringLiteral("unknown")}} << QByteArray("login_local all");
    QTest::newRow("missing key writes all") << Settings() << QByteArray("login_local all");
    QTest::newRow("other keys are ignored")
        << Settings{{key, QStringLiteral("no")}, {QStringLiteral("x"), 1}}
        << QByteArray("login_local no");
}

void LoginLocalModuleTest::setSettings()
{
    QFETCH(Settings, settings);
    QFETCH(QByteArray, line);

    ZqlTest::OutputCapture capture;
    LoginLocalModule module;
    QCOMPARE(module.setSettings(settings), false);
    capture.finish();
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());
    QByteArray expected = m_fixture.original();
    expected.replace("\nlogin_local admin\n", "\n" + line + "\n");
    QCOMPARE(ZqlTest::readBytes(TesselConfPath), expected);
}

void LoginLocalModuleTest::failure_data()
{
    QTest::addColumn<ZqlTest::TesselFailure>("failure");
    QTest::addColumn<bool>("writing");
    QTest::addColumn<QByteArray>("diagnostic");

    const QByteArray notExist = "login-local : File '/etc/tessel/tessel.conf' not exist: \n";
    QTest::newRow("read missing file") << ZqlTest::MissingFile << false << notExist;
    QTest::newRow("write missing file") << ZqlTest::MissingFile << true << notExist;
    QTest::newRow("read directory")
        << ZqlTest::DirectoryAsFile << false
        << QByteArray("login-local : Open file '/etc/tessel/tessel.conf' error: file to open is a "
                      "directory\n");
    QTest::newRow("write read-only file")
        << ZqlTest::ReadOnlyFile << true
        << QByteArray("login-local : Open file '/etc/tessel/tessel.conf' error: Existing file "
                      "/etc/tessel/tessel.conf is not writable\n");
    QTest::newRow("write on a full file system")
        << ZqlTest::FullDisk << true
        << QByteArray("login-local : Write file '/etc/tessel/tessel.conf' error: No space left on "
                      "device\n");
}

void LoginLocalModuleTest::failure()
{
    QFETCH(ZqlTest::TesselFailure, failure);
    QFETCH(bool, writing);
    QFETCH(QByteArray, diagnostic);

    const QByteArray content = m_fixture.original();
    QString error;
    QVERIFY2(m_fixture.shape(failure, content, &error), qPrintable(error));

    ZqlTest::OutputCapture capture;
    LoginLocalModule module;
    if (writing) {
        QCOMPARE(
            module.setSettings(Settings{{QStringLiteral("login_state"), QStringLiteral("no")}}),
            true);
    } else {
        const SettingsReply reply = module.getSettings();
        QCOMPARE(reply.first, ModuleInterface::StatusFailure);
        QVERIFY(reply.second.isEmpty());
    }
    capture.finish();
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(capture.standardOutput(), QByteArray());

    const QFileInfo info(TesselConfPath);
    if (failure == ZqlTest::MissingFile)
        QVERIFY2(!info.exists(), "the missing file was created");
    else if (failure == ZqlTest::DirectoryAsFile)
        QVERIFY(info.isDir());
    else
        QCOMPARE(ZqlTest::readBytes(TesselConfPath), content);
}

void LoginLocalModuleTest::roundTrip()
{
    ZqlTest::OutputCapture capture;
    LoginLocalModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    QCOMPARE(module.setSettings(reply.second), false);
    QCOMPARE(module.getSettings(), reply);
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(ZqlTest::readBytes(TesselConfPath), m_fixture.original());
}

void LoginLocalModuleTest::operationsGoThroughTheFile()
{
    LoginLocalModule module;
    QVERIFY(module.setLoginState(QStringLiteral("no")).errors().isEmpty());
    const TesselConfFile::OperationResult result = module.getLoginState();
    QVERIFY(result.errors().isEmpty());
    QCOMPARE(result.state(), TesselConfFile::No);
    QCOMPARE(module.getSettings().second.value(QStringLiteral("login_state")),
             QVariant(QStringLiteral("no")));
}

ZQL_SANDBOXED_TEST_MAIN(LoginLocalModuleTest)
#include "loginlocalmoduletest.moc"
