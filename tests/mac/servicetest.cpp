#include "macfixture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>

using namespace ZqlTest;

namespace {
const QString ApacheConf = QStringLiteral("/etc/apache2/apache2.conf");
const QString CupsConf = QStringLiteral("/etc/cups/cupsd.conf");
const QString WorkFile = QStringLiteral("/var/lib/zql-sim/service-test.conf");

QByteArray fixture(const char *name)
{
    return readBytes(QStringLiteral(ZQL_MAC_TEST_DATA "/") + QLatin1String(name));
}
} // namespace

class ServiceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void registry();
    void names();
    void readDirective_data();
    void readDirective();
    void writeDirective_data();
    void writeDirective();
    void debianFiles_data();
    void debianFiles();
    void unopenableFile();
    void restartWhenRunning();
    void stoppedServiceStaysStopped();
    void restartEvenWhenTheWriteFailed();
    void state();

private:
    QByteArray m_apache;
    QByteArray m_cups;
};

void ServiceTest::initTestCase()
{
    m_apache = readBytes(ApacheConf);
    m_cups = readBytes(CupsConf);
    QVERIFY(!m_apache.isNull());
    QVERIFY(!m_cups.isNull());
    QVERIFY(!fixture("apache2.conf").isEmpty());
    QVERIFY(!fixture("cupsd.conf").isEmpty());
}

void ServiceTest::init()
{
    QVERIFY(writeBytes(ApacheConf, m_apache));
    QVERIFY(writeBytes(CupsConf, m_cups));
    QVERIFY(setUnitActive(QStringLiteral("apache2"), true));
    QVERIFY(setUnitActive(QStringLiteral("cups"), false));
    QVERIFY(clearSystemctlLog());
}

void ServiceTest::cleanupTestCase()
{
    init();
    QFile::remove(WorkFile);
}

void ServiceTest::registry()
{
    const QMap<QString, Mac::Service *> &services = Mac::ServiceRegistry::services();
    QCOMPARE(services.keys(), QStringList({QStringLiteral("Apache"), QStringLiteral("Cups")}));
    QVERIFY(dynamic_cast<Mac::ApacheService *>(services.value(QStringLiteral("Apache"))));
    QVERIFY(dynamic_cast<Mac::CupsService *>(services.value(QStringLiteral("Cups"))));
    QCOMPARE(&Mac::ServiceRegistry::services(), &services);
}

void ServiceTest::names()
{
    Mac::ApacheService apache;
    Mac::CupsService cups;
    QCOMPARE(apache.name(), QStringLiteral("Apache"));
    QCOMPARE(cups.name(), QStringLiteral("Cups"));
    QCOMPARE(apache.detailString(), QString());
    QVERIFY(!apache.hasError());
    QCOMPARE(apache.errorString(), QString());
}

void ServiceTest::readDirective_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("directive");
    QTest::addColumn<bool>("on");

    QTest::newRow("only a commented line")
        << QByteArray("#LumoMode on\n") << QStringLiteral("LumoMode") << false;
    QTest::newRow("indented with a comment after")
        << QByteArray("   MacEnable on # MAC labels\n") << QStringLiteral("MacEnable") << true;
    QTest::newRow("the first line decides")
        << QByteArray("LumoMode on\n#LumoMode off\nLumoMode off\n") << QStringLiteral("LumoMode")
        << true;
    QTest::newRow("off") << QByteArray("LumoMode off\n") << QStringLiteral("LumoMode") << false;
    QTest::newRow("absent") << QByteArray("ServerName x\n") << QStringLiteral("LumoMode") << false;
    QTest::newRow("longer directive does not match")
        << QByteArray("LumoModeX on\n") << QStringLiteral("LumoMode") << false;
    QTest::newRow("word must end")
        << QByteArray("LumoMode online\n") << QStringLiteral("LumoMode") << false;
    QTest::newRow("tab and no line break")
        << QByteArray("\tLumoMode\ton") << QStringLiteral("LumoMode") << true;
    QTest::newRow("upper case value is not a value")
        << QByteArray("LumoMode On\nLumoMode on\n") << QStringLiteral("LumoMode") << true;
    QTest::newRow("empty file") << QByteArray() << QStringLiteral("LumoMode") << false;
}

void ServiceTest::readDirective()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, directive);
    QFETCH(bool, on);
    QVERIFY(writeBytes(WorkFile, text));
    Mac::ApacheService service;
    QCOMPARE(service.readDirective(WorkFile, directive), on);
    QVERIFY(!service.hasError());
}

void ServiceTest::writeDirective_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("directive");
    QTest::addColumn<bool>("on");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("commented line is uncommented")
        << QByteArray("#LumoMode on\n") << QStringLiteral("LumoMode") << false
        << QByteArray("LumoMode off\n");
    QTest::newRow("indentation dropped, comment kept")
        << QByteArray("   MacEnable on # MAC labels\n") << QStringLiteral("MacEnable") << false
        << QByteArray("MacEnable off # MAC labels\n");
    QTest::newRow("every copy rewritten")
        << QByteArray("LumoMode on\n# LumoMode off\n") << QStringLiteral("LumoMode") << true
        << QByteArray("LumoMode on\nLumoMode on\n");
    QTest::newRow("absent: appended") << QByteArray("ServerName x\n") << QStringLiteral("LumoMode")
                                      << true << QByteArray("ServerName x\n\nLumoMode on\n");
    QTest::newRow("absent, no final line break")
        << QByteArray("ServerName x") << QStringLiteral("LumoMode") << false
        << QByteArray("ServerName x\nLumoMode off\n");
    QTest::newRow("empty file") << QByteArray() << QStringLiteral("MacEnable") << true
                                << QByteArray("\nMacEnable on\n");
    QTest::newRow("blank lines before the directive stay")
        << QByteArray("a\n\n\n  LumoMode off\nb\n") << QStringLiteral("LumoMode") << true
        << QByteArray("a\n\n\nLumoMode on\nb\n");
    QTest::newRow("several hash signs")
        << QByteArray("## LumoMode off\n") << QStringLiteral("LumoMode") << true
        << QByteArray("LumoMode on\n");
    QTest::newRow("longer directive untouched, line appended")
        << QByteArray("LumoModeX on\n") << QStringLiteral("LumoMode") << false
        << QByteArray("LumoModeX on\n\nLumoMode off\n");
    QTest::newRow("bytes that are not UTF-8 survive")
        << QByteArray("# caf\xe9 \xff\nLumoMode off\n") << QStringLiteral("LumoMode") << true
        << QByteArray("# caf\xe9 \xff\nLumoMode on\n");
}

void ServiceTest::writeDirective()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, directive);
    QFETCH(bool, on);
    QFETCH(QByteArray, after);
    QVERIFY(writeBytes(WorkFile, before));
    Mac::CupsService service;
    service.writeDirective(WorkFile, directive, on);
    QVERIFY(!service.hasError());
    QCOMPARE(readBytes(WorkFile), after);
    QCOMPARE(service.readDirective(WorkFile, directive), on);
}

void ServiceTest::debianFiles_data()
{
    QTest::addColumn<QString>("service");
    QTest::addColumn<QByteArray>("pristine");
    QTest::addColumn<QString>("directive");

    QTest::newRow("apache2.conf") << QStringLiteral("Apache") << fixture("apache2.conf")
                                  << QStringLiteral("LumoMode");
    QTest::newRow("cupsd.conf") << QStringLiteral("Cups") << fixture("cupsd.conf")
                                << QStringLiteral("MacEnable");
}

// Debian's own files, with the directive absent, added, commented and indented: every other
// byte of the file is the same after every write.
void ServiceTest::debianFiles()
{
    QFETCH(QString, service);
    QFETCH(QByteArray, pristine);
    QFETCH(QString, directive);
    Mac::Service *object = Mac::ServiceRegistry::services().value(service);
    const QString path = service == QLatin1String("Apache") ? ApacheConf : CupsConf;
    const QByteArray d = directive.toLatin1();

    // Absent: reads off; on appends one line.
    QVERIFY(writeBytes(path, pristine));
    QCOMPARE(object->isEnabled(), false);
    object->setEnabled(true);
    QVERIFY(!object->hasError());
    QCOMPARE(readBytes(path), pristine + "\n" + d + " on\n");
    QCOMPARE(object->isEnabled(), true);
    // Added: off rewrites the line in place.
    object->setEnabled(false);
    QCOMPARE(readBytes(path), pristine + "\n" + d + " off\n");
    QCOMPARE(object->isEnabled(), false);

    // Commented and indented in the middle of the file.
    const int middle = pristine.indexOf("\n\n") + 1;
    QVERIFY(middle > 0);
    const QByteArray head = pristine.left(middle);
    const QByteArray tail = pristine.mid(middle);
    QVERIFY(writeBytes(path, head + "#   " + d + " on\n" + tail));
    QCOMPARE(object->isEnabled(), false);
    object->setEnabled(true);
    QCOMPARE(readBytes(path), head + d + " on\n" + tail);
    QVERIFY(writeBytes(path, head + "\t  " + d + " off\n" + tail));
    QCOMPARE(object->isEnabled(), false);
    object->setEnabled(true);
    QCOMPARE(readBytes(path), head + d + " on\n" + tail);
    QCOMPARE(object->isEnabled(), true);
}

void ServiceTest::unopenableFile()
{
    QVERIFY(QFile::remove(CupsConf));
    Mac::Service *cups = Mac::ServiceRegistry::services().value(QStringLiteral("Cups"));
    QCOMPARE(cups->isEnabled(), false);
    QVERIFY(cups->hasError());
    QCOMPARE(cups->errorString(), QStringLiteral("Can't open file /etc/cups/cupsd.conf!"));
    cups->setEnabled(true);
    QVERIFY(cups->hasError());
    QCOMPARE(cups->errorString(), QStringLiteral("Can't open file /etc/cups/cupsd.conf!"));
    QVERIFY(!QFile::exists(CupsConf)); // never created
    cups->clearError();
    QVERIFY(!cups->hasError());
    QCOMPARE(cups->errorString(), QString());
    // The error stays until the next read clears it.
    QVERIFY(writeBytes(CupsConf, m_cups));
    cups->isEnabled();
    QVERIFY(!cups->hasError());
}

void ServiceTest::restartWhenRunning()
{
    Mac::Service *apache = Mac::ServiceRegistry::services().value(QStringLiteral("Apache"));
    apache->setEnabled(false);
    QCOMPARE(systemctlCalls(), QStringList({QStringLiteral("is-active --quiet apache2"),
                                            QStringLiteral("restart apache2")}));
}

void ServiceTest::stoppedServiceStaysStopped()
{
    Mac::Service *cups = Mac::ServiceRegistry::services().value(QStringLiteral("Cups"));
    cups->setEnabled(true);
    QCOMPARE(systemctlCalls(), QStringList({QStringLiteral("is-active --quiet cups")}));
    QCOMPARE(readBytes(QStringLiteral("/var/lib/zql-sim/systemctl/cups.state")),
             QByteArray("inactive\n"));
}

void ServiceTest::restartEvenWhenTheWriteFailed()
{
    QVERIFY(QFile::remove(ApacheConf));
    Mac::Service *apache = Mac::ServiceRegistry::services().value(QStringLiteral("Apache"));
    apache->setEnabled(true);
    QVERIFY(apache->hasError());
    QCOMPARE(systemctlCalls(), QStringList({QStringLiteral("is-active --quiet apache2"),
                                            QStringLiteral("restart apache2")}));
}

void ServiceTest::state()
{
    Mac::Service *apache = Mac::ServiceRegistry::services().value(QStringLiteral("Apache"));
    Mac::Service::State state = apache->state();
    QCOMPARE(state.name, QStringLiteral("Apache"));
    QCOMPARE(state.enabled, true); // the simulated system's apache2.conf says on
    QVERIFY(!state.hasError);
    QCOMPARE(state.text, QString());
    QVERIFY(QFile::remove(ApacheConf));
    state = apache->state();
    QVERIFY(state.hasError);
    QCOMPARE(state.enabled, false);
    QCOMPARE(state.text, QStringLiteral("Can't open file /etc/apache2/apache2.conf!"));
}

ZQL_SANDBOXED_TEST_MAIN(ServiceTest)
#include "servicetest.moc"
