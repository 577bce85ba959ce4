#include "systemfixture.h"
#include "testmain.h"

#include "velaadmin/systemdservice.h"

#include <QFile>

using namespace ZqlTest;

namespace {
const QString StateDir = QStringLiteral("/var/lib/zql-sim/systemctl");
const QString Systemctl = QStringLiteral("/usr/bin/systemctl");
const QString HiddenSystemctl = QStringLiteral("/usr/bin/systemctl.hidden");

QStringList calls()
{
    QStringList lines = QString::fromUtf8(readBytes(StateDir + QStringLiteral("/calls.log")))
                            .split(QLatin1Char('\n'));
    lines.removeAll(QString());
    return lines;
}
} // namespace

class SystemdServiceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void activeUnit();
    void inactiveUnit();
    void restart();
    void failingServiceManager();
    void noServiceManager();
};

void SystemdServiceTest::init()
{
    QVERIFY(writeBytes(StateDir + QStringLiteral("/calls.log"), {}));
    QVERIFY(writeBytes(StateDir + QStringLiteral("/demo.state"), "inactive\n"));
    QFile::remove(StateDir + QStringLiteral("/fault"));
}

void SystemdServiceTest::cleanup()
{
    if (QFile::exists(HiddenSystemctl))
        QVERIFY(QFile::rename(HiddenSystemctl, Systemctl));
    QFile::remove(StateDir + QStringLiteral("/fault"));
}

void SystemdServiceTest::activeUnit()
{
    QVERIFY(writeBytes(StateDir + QStringLiteral("/demo.state"), "active\n"));
    VelaAdmin::SystemdService service(QStringLiteral("demo"));
    QVERIFY(service.isActive());
    QCOMPARE(calls(), QStringList({QStringLiteral("is-active --quiet demo")}));
}

void SystemdServiceTest::inactiveUnit()
{
    VelaAdmin::SystemdService service(QStringLiteral("demo"));
    QVERIFY(!service.isActive());
    VelaAdmin::SystemdService unknown(QStringLiteral("no-such-unit"));
    QVERIFY(!unknown.isActive());
}

void SystemdServiceTest::restart()
{
    VelaAdmin::SystemdService service(QStringLiteral("demo"));
    QVERIFY(service.restart());
    QVERIFY(service.isActive());
    QCOMPARE(calls(), QStringList({QStringLiteral("restart demo"),
                                   QStringLiteral("is-active --quiet demo")}));
}

void SystemdServiceTest::failingServiceManager()
{
    QVERIFY(writeBytes(StateDir + QStringLiteral("/demo.state"), "active\n"));
    QVERIFY(writeBytes(StateDir + QStringLiteral("/fault"), "exit 1\n"));
    VelaAdmin::SystemdService service(QStringLiteral("demo"));
    QVERIFY(!service.isActive());
    QVERIFY(!service.restart());
}

void SystemdServiceTest::noServiceManager()
{
    QVERIFY(QFile::rename(Systemctl, HiddenSystemctl));
    VelaAdmin::SystemdService service(QStringLiteral("demo"));
    QVERIFY(!service.isActive());
    QVERIFY(!service.restart());
}

ZQL_SANDBOXED_TEST_MAIN(SystemdServiceTest)
#include "systemdservicetest.moc"
