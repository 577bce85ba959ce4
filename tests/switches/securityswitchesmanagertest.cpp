#include "outputcapture.h"
#include "searchpathfront.h"
#include "switchfixture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {
// The default waits for what has to succeed, even on a loaded machine; a step that is made to
// hang gets a short one, so that the hang costs a fraction of a second.
const int ShortWaitMs = 300;

SecuritySwitchLimits limitsFor(bool monitorHangs, bool scriptHangs)
{
    SecuritySwitchLimits limits;
    if (monitorHangs)
        limits.monitorMs = ShortWaitMs;
    if (scriptHangs) {
        limits.readMs = ShortWaitMs;
        limits.changeMs = ShortWaitMs;
    }
    return limits;
}

const QByteArray LoadFailed = "Failed to load security options .\n";
// A switch of the simulated system that is off, and one that is on.
const QString OffSwitch = QStringLiteral("param-swap-wipe");
const QString OnSwitch = QStringLiteral("console-tty-lock");

// How a read or a change of one switch is set up to go.
enum Setup {
    Plain,         // as the simulated system has it
    Warning,       // the script writes a warning on standard error
    ExitCode,      // the script exits with 3 after its warning
    ExitOne,       // the script exits with 1 after its warning
    NoLockFile,    // the script cannot create its lock file
    Hang,          // the script never finishes
    Crash,         // the script dies by a signal
    Missing,       // no such script
    NotExecutable, // the script cannot be run
};
} // namespace

Q_DECLARE_METATYPE(Setup)

class SecuritySwitchesManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void defaultLimits();
    void load_data();
    void load();
    void monitorFailure_data();
    void monitorFailure();
    void monitorHangIsCut();
    void monitorThatNeverStartsIsCut();
    void toolsRunByFullPath();
    void getSwitchState_data();
    void getSwitchState();
    void setSwitchState_data();
    void setSwitchState();

private:
    void prepare(Setup setup, const QString &script, const QByteArray &operation);
    ZqlTest::SwitchFixture m_fixture;
};

void SecuritySwitchesManagerTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void SecuritySwitchesManagerTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void SecuritySwitchesManagerTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void SecuritySwitchesManagerTest::defaultLimits()
{
    const SecuritySwitchLimits limits;
    QCOMPARE(limits.monitorMs, 10000);
    QCOMPARE(limits.startMs, 30000);
    QCOMPARE(limits.readMs, 30000);
    QCOMPARE(limits.changeMs, 1800000);
}

void SecuritySwitchesManagerTest::load_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QStringList>("console");
    QTest::addColumn<QStringList>("parameters");
    QTest::addColumn<QByteArray>("diagnostic");

    QTest::newRow("simulated system")
        << QByteArray()
        << QStringList{QStringLiteral("console-su-restrict"), QStringLiteral("console-sysrq-block"),
                       QStringLiteral("console-tty-lock")}
        << QStringList{QStringLiteral("param-core-dump-block"), QStringLiteral("param-swap-wipe"),
                       QStringLiteral("param-ptrace-lock")}
        << QByteArray();
    QTest::newRow("empty array") << QByteArray("[]") << QStringList() << QStringList()
                                 << QByteArray();
    QTest::newRow("three console switches come back reversed")
        << QByteArray(
               R"([{"id": 1, "name": "a", "longname": "A", "script": "a", "group": "console"},
                          {"id": 2, "name": "b", "longname": "B", "script": "b", "group": "console"},
                          {"id": 3, "name": "c", "longname": "C", "script": "c", "group": "console"}])")
        << QStringList{QStringLiteral("c"), QStringLiteral("b"), QStringLiteral("a")}
        << QStringList() << QByteArray();
    QTest::newRow("groups are split, each reversed")
        << QByteArray(
               R"([{"id": 1, "name": "a", "longname": "A", "script": "a", "group": "console"},
                          {"id": 2, "name": "b", "longname": "B", "script": "b", "group": "Console"},
                          {"id": 3, "name": "c", "longname": "C", "script": "c"},
                          {"id": 4, "name": "d", "longname": "D", "script": "d", "group": "console"}])")
        << QStringList{QStringLiteral("d"), QStringLiteral("a")}
        << QStringList{QStringLiteral("c"), QStringLiteral("b")} << QByteArray();
    QTest::newRow("flags as numbers")
        << QByteArray(R"([{"id": 1, "name": "a", "longname": "A", "script": "a", "gray": 0.4,
                           "enableNeedReboot": 0.5, "slave": 1e7}])")
        << QStringList() << QStringList{QStringLiteral("a")} << QByteArray();
    QTest::newRow("not an array") << QByteArray(R"({"id": 1})") << QStringList() << QStringList()
                                  << LoadFailed + "Expected json array";
    QTest::newRow("element not an object")
        << QByteArray(R"([{"id": 1, "name": "a", "longname": "A", "script": "a"}, 5])")
        << QStringList() << QStringList() << LoadFailed + "Expected json object";
    QTest::newRow("a bad element empties both groups")
        << QByteArray(
               R"([{"id": 1, "name": "a", "longname": "A", "script": "a", "group": "console"},
                          {"id": 2, "name": "b", "longname": "B", "script": "b"},
                          {"id": 3, "name": "c", "longname": "C", "script": "c", "gray": true}])")
        << QStringList() << QStringList() << LoadFailed + "Expected bool (0/1)";
    QTest::newRow("missing required key")
        << QByteArray(R"([{"id": 1, "name": "a", "script": "a"}])") << QStringList()
        << QStringList() << LoadFailed + "Json object should contain key 'longname'";
    QTest::newRow("slave as string")
        << QByteArray(R"([{"id": 1, "name": "a", "longname": "A", "script": "a", "slave": "2"}])")
        << QStringList() << QStringList() << LoadFailed + "Expected double";
    QTest::newRow("name as number")
        << QByteArray(R"([{"id": 1, "name": 1, "longname": "A", "script": "a"}])") << QStringList()
        << QStringList() << LoadFailed + "Expected string";
    QTest::newRow("invalid JSON") << QByteArray("[{\"id\": 1,") << QStringList() << QStringList()
                                  << LoadFailed + "Json parse error:\nunterminated object";
    QTest::newRow("empty output") << QByteArray(" ") << QStringList() << QStringList()
                                  << LoadFailed + "Json parse error:\nillegal value";
}

void SecuritySwitchesManagerTest::load()
{
    QFETCH(QByteArray, json);
    QFETCH(QStringList, console);
    QFETCH(QStringList, parameters);
    QFETCH(QByteArray, diagnostic);

    if (!json.isNull())
        QVERIFY(m_fixture.setMonitorData(json));
    ZqlTest::OutputCapture capture;
    const SecuritySwitchesManager manager(limitsFor(false, false));
    capture.finish();
    QCOMPARE(manager.switchScripts(false), console);
    QCOMPARE(manager.switchScripts(true), parameters);
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(m_fixture.calls(), QStringList());
}

void SecuritySwitchesManagerTest::monitorFailure_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QByteArray>("diagnostic");

    QTest::newRow("crash") << QByteArray("crash") << LoadFailed + "Process crashed";
    QTest::newRow("exit code") << QByteArray("exit 3")
                               << LoadFailed + "lumo-security-monitor finished with unexpected "
                                               "code: 3";
    QTest::newRow("invalid JSON") << QByteArray("invalid-json")
                                  << LoadFailed + "Json parse error:\nunterminated object";
    QTest::newRow("missing monitor") << QByteArray()
                                     << LoadFailed + "lumo-security-monitor finished with error:\n"
                                                     "execvp: No such file or directory";
}

void SecuritySwitchesManagerTest::monitorFailure()
{
    QFETCH(QByteArray, behaviour);
    QFETCH(QByteArray, diagnostic);

    if (behaviour.isNull())
        QVERIFY(m_fixture.removeMonitor());
    else
        QVERIFY(m_fixture.setMonitorBehaviour(behaviour));
    ZqlTest::OutputCapture capture;
    const SecuritySwitchesManager manager(limitsFor(false, false));
    capture.finish();
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(manager.switchScripts(false), QStringList());
    QCOMPARE(manager.switchScripts(true), QStringList());
}

void SecuritySwitchesManagerTest::monitorHangIsCut()
{
    QVERIFY(m_fixture.setMonitorBehaviour("hang"));
    QElapsedTimer timer;
    timer.start();
    ZqlTest::OutputCapture capture;
    const SecuritySwitchesManager manager(limitsFor(true, false));
    capture.finish();
    QVERIFY2(timer.elapsed() < 5000, "the monitor's limit was not applied");
    QCOMPARE(capture.standardError(), LoadFailed + "lumo-security-monitor finished with error:\n"
                                                   "Process operation timed out");
    QCOMPARE(manager.switchScripts(true), QStringList());
}

// The monitor's one limit covers its start too: a monitor whose exec blocks (it lies on a file
// system that never answers) is cut after that limit, not after the scripts' start limit.
void SecuritySwitchesManagerTest::monitorThatNeverStartsIsCut()
{
    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const QString dir = scratch.filePath(QStringLiteral("stalled"));
    QVERIFY(QDir().mkpath(dir));
    ZqlTest::StalledMount stalled(dir);
    QString error;
    QVERIFY2(stalled.mount(&error), qPrintable(error));
    QVERIFY(m_fixture.linkMonitorTo(dir + QStringLiteral("/lumo-security-monitor")));

    QElapsedTimer timer;
    timer.start();
    ZqlTest::OutputCapture capture;
    const SecuritySwitchesManager manager(limitsFor(true, false));
    capture.finish();
    QVERIFY2(timer.elapsed() < 5000, "the monitor's limit was not applied to its start");
    QCOMPARE(capture.standardError(), LoadFailed + "lumo-security-monitor finished with error:\n"
                                                   "Process operation timed out");
    QCOMPARE(manager.switchScripts(false), QStringList());
    QCOMPARE(manager.switchScripts(true), QStringList());
}

// The monitor and the switch scripts run by their full paths: tools of the same names in front
// of the search path are never run.
void SecuritySwitchesManagerTest::toolsRunByFullPath()
{
    ZqlTest::SearchPathFront front;
    QString error;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    for (const QString &name : {QStringLiteral("lumo-security-monitor"), OnSwitch, OffSwitch}) {
        QVERIFY(front.addTool(name, "echo '[]'"));
        QCOMPARE(QStandardPaths::findExecutable(name), front.directory() + QLatin1Char('/') + name);
    }
    QVERIFY(m_fixture.countMonitorRuns());

    SecuritySwitchesManager manager(limitsFor(false, false));
    QCOMPARE(manager.switchScripts(false).size(), 3);
    QCOMPARE(manager.getSwitchState(OnSwitch).status, 0);
    QCOMPARE(manager.setSwitchState(OffSwitch, true), 0);
    QCOMPARE(front.runs(), QStringList());
    QCOMPARE(m_fixture.monitorRuns(), QStringList{QStringLiteral("switches")});
    QCOMPARE(m_fixture.calls(), (QStringList{OnSwitch + QStringLiteral(" is-enabled"),
                                             OffSwitch + QStringLiteral(" enable")}));
}

void SecuritySwitchesManagerTest::prepare(Setup setup, const QString &script,
                                          const QByteArray &operation)
{
    QString error;
    switch (setup) {
    case Plain:
    case Missing:
        break;
    case Warning:
        QVERIFY(m_fixture.setWarning(script, "warning: slow disk\n"));
        break;
    case ExitCode:
        QVERIFY(m_fixture.setWarning(script, "cannot do that\n"));
        QVERIFY(m_fixture.setFault(script, operation + " exit 3"));
        break;
    case ExitOne:
        QVERIFY(m_fixture.setWarning(script, "cannot do that\n"));
        QVERIFY(m_fixture.setFault(script, operation + " exit 1"));
        break;
    case NoLockFile:
        QVERIFY2(m_fixture.lockUnavailable(&error), qPrintable(error));
        break;
    case Hang:
        QVERIFY(m_fixture.setFault(script, operation + " hang"));
        break;
    case Crash:
        QVERIFY(m_fixture.setFault(script, "any crash"));
        break;
    case NotExecutable:
        QVERIFY(m_fixture.addProgram(script, "#!/bin/sh\nexit 0\n", false));
        break;
    }
}

void SecuritySwitchesManagerTest::getSwitchState_data()
{
    QTest::addColumn<Setup>("setup");
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QByteArray>("diagnostic");

    QTest::newRow("on") << Plain << OnSwitch << 0 << true << QByteArray() << QByteArray();
    QTest::newRow("off") << Plain << OffSwitch << 0 << false << QByteArray() << QByteArray();
    QTest::newRow("off with a warning, passed on unchanged")
        << Warning << OffSwitch << 0 << false << QByteArray("warning: slow disk\n") << QByteArray();
    QTest::newRow("on with a warning")
        << Warning << OnSwitch << 0 << true << QByteArray("warning: slow disk\n") << QByteArray();
    QTest::newRow("exit 1 on an enabled switch reads as off, warning passed on")
        << ExitOne << OnSwitch << 0 << false << QByteArray("cannot do that\n") << QByteArray();
    QTest::newRow("missing script")
        << Missing << QStringLiteral("no-such-switch") << 1 << false << QByteArray()
        << QByteArray("skipping program /usr/sbin/no-such-switch (not installed)");
    QTest::newRow("no lock file")
        << NoLockFile << OffSwitch << 1 << false << QByteArray()
        << QByteArray("Some switches unavailable: No permission to create \na lock-file that "
                      "provides scripts synchronization");
    QTest::newRow("other exit code")
        << ExitCode << OnSwitch << 1 << false << QByteArray()
        << QByteArray("/usr/sbin/console-tty-lock finished with unexpected code: 3");
    QTest::newRow("hang") << Hang << OnSwitch << 1 << false << QByteArray()
                          << QByteArray("Process: \"/usr/sbin/console-tty-lock is-enabled\". "
                                        "Error: Process operation timed out.\n\"Not finished\"");
    QTest::newRow("crash") << Crash << OffSwitch << 1 << false << QByteArray()
                           << QByteArray("Process: \"/usr/sbin/param-swap-wipe is-enabled\". "
                                         "Error: Process crashed.\n\"Not finished\"");
    QTest::newRow("not executable")
        << NotExecutable << QStringLiteral("zql-not-executable") << 1 << false << QByteArray()
        << QByteArray("Process: \"/usr/sbin/zql-not-executable is-enabled\". Error: execvp: "
                      "Permission denied.\n\"Not started\"");
}

void SecuritySwitchesManagerTest::getSwitchState()
{
    QFETCH(Setup, setup);
    QFETCH(QString, script);
    QFETCH(int, status);
    QFETCH(bool, enabled);
    QFETCH(QByteArray, output);
    QFETCH(QByteArray, diagnostic);

    SecuritySwitchesManager manager(limitsFor(false, setup == Hang));
    prepare(setup, script, "is-enabled");
    const QByteArray stateBefore = m_fixture.state(script);
    ZqlTest::OutputCapture capture;
    const SecuritySwitchesManager::SwitchState state = manager.getSwitchState(script);
    capture.finish();
    QCOMPARE(state.status, status);
    if (status == 0)
        QCOMPARE(state.enabled, enabled);
    QCOMPARE(capture.standardOutput(), output);
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(m_fixture.state(script), stateBefore);
}

void SecuritySwitchesManagerTest::setSwitchState_data()
{
    QTest::addColumn<Setup>("setup");
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("enable");
    QTest::addColumn<int>("result");
    QTest::addColumn<QByteArray>("state");
    QTest::addColumn<QByteArray>("output");
    QTest::addColumn<QByteArray>("diagnostic");

    QTest::newRow("enable") << Plain << OffSwitch << true << 0 << QByteArray("enabled\n")
                            << QByteArray() << QByteArray();
    QTest::newRow("disable") << Plain << OnSwitch << false << 0 << QByteArray("disabled\n")
                             << QByteArray() << QByteArray();
    QTest::newRow("enable what is on") << Plain << OnSwitch << true << 0 << QByteArray("enabled\n")
                                       << QByteArray() << QByteArray();
    QTest::newRow("warning on success, trimmed, to standard output")
        << Warning << OffSwitch << true << 0 << QByteArray("enabled\n")
        << QByteArray("warning: slow disk") << QByteArray();
    QTest::newRow("missing script")
        << Missing << QStringLiteral("no-such-switch") << true << 1 << QByteArray() << QByteArray()
        << QByteArray("skipping program/usr/sbin/no-such-switch(not installed)");
    // Only the two ends of the whole message are trimmed: the line break inside the quotes stays.
    QTest::newRow("exit code with standard error")
        << ExitCode << OffSwitch << true << 1 << QByteArray("disabled\n") << QByteArray()
        << QByteArray("Process: \"/usr/sbin/param-swap-wipe enable\". Exit code: 3.\n"
                      "\"cannot do that\n\"");
    QTest::newRow("exit 1 is a failure when changing")
        << ExitOne << OnSwitch << false << 1 << QByteArray("enabled\n") << QByteArray()
        << QByteArray("Process: \"/usr/sbin/console-tty-lock disable\". Exit code: 1.\n"
                      "\"cannot do that\n\"");
    QTest::newRow("no lock file is an ordinary failure")
        << NoLockFile << OnSwitch << false << 1 << QByteArray("enabled\n") << QByteArray()
        << QByteArray("Process: \"/usr/sbin/console-tty-lock disable\". Exit code: 66.\n\"\"");
    QTest::newRow("hang") << Hang << OnSwitch << false << 1 << QByteArray("enabled\n")
                          << QByteArray()
                          << QByteArray("Process: \"/usr/sbin/console-tty-lock disable\". "
                                        "Error: Process operation timed out.\n\"Not finished\"");
    QTest::newRow("crash") << Crash << OffSwitch << true << 1 << QByteArray("disabled\n")
                           << QByteArray()
                           << QByteArray("Process: \"/usr/sbin/param-swap-wipe enable\". "
                                         "Error: Process crashed.\n\"Not finished\"");
    QTest::newRow("not executable")
        << NotExecutable << QStringLiteral("zql-not-executable") << false << 1 << QByteArray()
        << QByteArray()
        << QByteArray("Process: \"/usr/sbin/zql-not-executable disable\". Error: execvp: "
                      "Permission denied.\n\"Not started\"");
}

void SecuritySwitchesManagerTest::setSwitchState()
{
    QFETCH(Setup, setup);
    QFETCH(QString, script);
    QFETCH(bool, enable);
    QFETCH(int, result);
    QFETCH(QByteArray, state);
    QFETCH(QByteArray, output);
    QFETCH(QByteArray, diagnostic);

    SecuritySwitchesManager manager(limitsFor(false, setup == Hang));
    prepare(setup, script, enable ? "enable" : "disable");
    ZqlTest::OutputCapture capture;
    QCOMPARE(manager.setSwitchState(script, enable), result);
    capture.finish();
    QCOMPARE(capture.standardOutput(), output);
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(m_fixture.state(script), state);
}

ZQL_SANDBOXED_TEST_MAIN(SecuritySwitchesManagerTest)
#include "securityswitchesmanagertest.moc"
