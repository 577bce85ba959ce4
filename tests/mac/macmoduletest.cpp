#include "macfixture.h"
#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>

using namespace ZqlTest;
using Settings = QHash<QString, QVariant>;

namespace {
const QString ApacheConf = QStringLiteral("/etc/apache2/apache2.conf");
const QString CupsConf = QStringLiteral("/etc/cups/cupsd.conf");
const QString KernelKey = QStringLiteral("Mac-kernel");
const QString ApacheKey = QStringLiteral("Apache");
const QString CupsKey = QStringLiteral("Cups");
} // namespace

class MacModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void identity();
    void isAvailable_data();
    void isAvailable();
    void getSettings();
    void getSettingsWithoutCupsFile();
    void roundTripChangesNothing();
    void missingKernelKeySwitchesOff();
    void kernelUnchangedRunsNoTool();
    void enableKernel();
    void servicesFirstThenKernel();
    void serviceEqualIsNotWritten();
    void kernelErrorIsReported();
    void kernelWarningGoesToOutput();
    void isParametersCorrect();
    void isParametersCorrectWithoutCupsFile();

private:
    QByteArray m_apache;
    QByteArray m_cups;
};

void MacModuleTest::initTestCase()
{
    m_apache = readBytes(ApacheConf);
    m_cups = readBytes(CupsConf);
    QVERIFY(!m_apache.isNull());
    QVERIFY(!m_cups.isNull());
}

void MacModuleTest::init()
{
    QVERIFY(writeBytes(ApacheConf, m_apache));
    QVERIFY(writeBytes(CupsConf, m_cups));
    QVERIFY(setSecurityMode(2));
    QVERIFY(setMacControlFault({}));
    QVERIFY(setMacControlWarning({}));
    QVERIFY(setMacControlState(true, true));
    Mac::MacKernel::instance()->update();
    QVERIFY(startMacControlLog());
    QVERIFY(setUnitActive(QStringLiteral("apache2"), true));
    QVERIFY(setUnitActive(QStringLiteral("cups"), false));
    QVERIFY(clearSystemctlLog());
}

void MacModuleTest::cleanupTestCase()
{
    init();
}

void MacModuleTest::identity()
{
    MacModule module;
    QCOMPARE(module.getName(), QStringLiteral("mac"));
    QCOMPARE(module.formatOutput(QStringLiteral("m")), QStringLiteral("mac : m\n"));
    QVERIFY(module.checkRestrictions({}));
    ModuleInterface *base = &module;
    QCOMPARE(base->getName(), QStringLiteral("mac"));
}

void MacModuleTest::isAvailable_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("available");
    QTest::newRow("0") << 0 << false;
    QTest::newRow("1") << 1 << false;
    QTest::newRow("2") << 2 << true;
    QTest::newRow("3") << 3 << false;
}

void MacModuleTest::isAvailable()
{
    QFETCH(int, mode);
    QFETCH(bool, available);
    QVERIFY(setSecurityMode(mode));
    MacModule module;
    QCOMPARE(module.isAvailable(), available);
}

void MacModuleTest::getSettings()
{
    MacModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, Settings({{KernelKey, true}, {ApacheKey, true}, {CupsKey, false}}));
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(macControlCalls(), QStringList()); // the model's flag is read, no tool is run
}

void MacModuleTest::getSettingsWithoutCupsFile()
{
    QVERIFY(QFile::remove(CupsConf));
    MacModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, Settings({{KernelKey, true}, {ApacheKey, true}}));
    QCOMPARE(capture.standardError(), QByteArray("mac : Can't open file /etc/cups/cupsd.conf!\n"));
}

void MacModuleTest::roundTripChangesNothing()
{
    MacModule module;
    const Settings settings = module.getSettings().second;
    OutputCapture capture;
    QCOMPARE(module.setSettings(settings), false);
    capture.finish();
    QCOMPARE(readBytes(ApacheConf), m_apache);
    QCOMPARE(readBytes(CupsConf), m_cups);
    QCOMPARE(macControlCalls(), QStringList());
    QCOMPARE(systemctlCalls(), QStringList());
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(capture.standardOutput(), QByteArray());
}

void MacModuleTest::missingKernelKeySwitchesOff()
{
    MacModule module;
    OutputCapture capture;
    QCOMPARE(module.setSettings({{ApacheKey, true}}), false);
    capture.finish();
    QCOMPARE(macControlCalls(), QStringList({QStringLiteral("disable"), QStringLiteral("status"),
                                             QStringLiteral("is-enabled")}));
    QCOMPARE(Mac::MacKernel::instance()->status(), Mac::MacKernel::WillBeDisabled);
    QCOMPARE(module.getSettings().second.value(KernelKey), QVariant(false));
    QCOMPARE(readBytes(ApacheConf), m_apache); // already on
}

void MacModuleTest::kernelUnchangedRunsNoTool()
{
    MacModule module;
    QCOMPARE(module.setSettings({{KernelKey, true}}), false);
    QCOMPARE(macControlCalls(), QStringList());
}

void MacModuleTest::enableKernel()
{
    QVERIFY(setMacControlState(false, false));
    Mac::MacKernel::instance()->update();
    QVERIFY(startMacControlLog());
    MacModule module;
    QCOMPARE(module.setSettings({{KernelKey, true}}), false);
    QCOMPARE(macControlCalls(), QStringList({QStringLiteral("enable"), QStringLiteral("status"),
                                             QStringLiteral("is-enabled")}));
    QCOMPARE(Mac::MacKernel::instance()->status(), Mac::MacKernel::WillBeEnabled);
}

void MacModuleTest::servicesFirstThenKernel()
{
    MacModule module;
    QCOMPARE(module.setSettings({{KernelKey, true}, {ApacheKey, false}, {CupsKey, true}}), false);
    QCOMPARE(readBytes(ApacheConf), QByteArray(m_apache).replace("LumoMode on", "LumoMode off"));
    QCOMPARE(readBytes(CupsConf), QByteArray(m_cups).replace("MacEnable off", "MacEnable on"));
    // Apache runs and is restarted; CUPS is stopped and stays so.
    QCOMPARE(systemctlCalls(), QStringList({QStringLiteral("is-active --quiet apache2"),
                                            QStringLiteral("restart apache2"),
                                            QStringLiteral("is-active --quiet cups")}));
    QCOMPARE(module.getSettings().second,
             Settings({{KernelKey, true}, {ApacheKey, false}, {CupsKey, true}}));
}

void MacModuleTest::serviceEqualIsNotWritten()
{
    MacModule module;
    QCOMPARE(module.setSettings({{KernelKey, true}, {CupsKey, false}}), false);
    QCOMPARE(systemctlCalls(), QStringList());
    QCOMPARE(readBytes(CupsConf), m_cups);
}

void MacModuleTest::kernelErrorIsReported()
{
    QVERIFY(setMacControlFault("disable crash"));
    MacModule module;
    OutputCapture capture;
    QCOMPARE(module.setSettings({{KernelKey, false}}), true);
    capture.finish();
    QCOMPARE(capture.standardError(),
             QByteArray("mac : lumo-mac-control disable returned -1:\n\n\n"));
    QCOMPARE(capture.standardOutput(), QByteArray());
}

void MacModuleTest::kernelWarningGoesToOutput()
{
    QVERIFY(setMacControlWarning("careful\n"));
    MacModule module;
    OutputCapture capture;
    QCOMPARE(module.setSettings({{KernelKey, false}}), false);
    capture.finish();
    // One warning from each of the three runs: disable, status, is-enabled.
    QCOMPARE(capture.standardOutput(), QByteArray("mac : careful\n\ncareful\n\ncareful\n\n"));
    QCOMPARE(capture.standardError(), QByteArray());
}

void MacModuleTest::isParametersCorrect()
{
    MacModule module;
    QCOMPARE(module.isParametersCorrect({}), QStringList());
    QCOMPARE(module.isParametersCorrect({KernelKey, CupsKey, QStringLiteral("unknown")}),
             QStringList({QStringLiteral("unknown")}));
    QCOMPARE(module.isParametersCorrect({KernelKey, ApacheKey, CupsKey}), QStringList());
}

void MacModuleTest::isParametersCorrectWithoutCupsFile()
{
    QVERIFY(QFile::remove(CupsConf));
    MacModule module;
    OutputCapture capture;
    QStringList unknown =
        module.isParametersCorrect({KernelKey, CupsKey, QStringLiteral("unknown")});
    capture.finish();
    unknown.sort();
    QCOMPARE(unknown, QStringList({CupsKey, QStringLiteral("unknown")}));
    QCOMPARE(capture.standardError(), QByteArray("mac : Can't open file /etc/cups/cupsd.conf!\n"));
}

ZQL_SANDBOXED_TEST_MAIN(MacModuleTest)
#include "macmoduletest.moc"
