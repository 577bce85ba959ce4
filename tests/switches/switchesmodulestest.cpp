#include "outputcapture.h"
#include "switchfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <memory>

namespace {
using Settings = QHash<QString, QVariant>;

// Both modules through their two bases, so one table covers them.
struct Module
{
    std::unique_ptr<ModuleInterface> owner;
    SecuritySwitchesManager *manager = nullptr;
};

Module makeModule(const QString &name)
{
    Module module;
    if (name == QLatin1String("console-policy")) {
        auto *console = new ConsolePolicyModule();
        module.owner.reset(console);
        module.manager = console;
    } else {
        auto *parameters = new SystemParametersModule();
        module.owner.reset(parameters);
        module.manager = parameters;
    }
    return module;
}

// The simulated system's switches, each group in the modules' order, and their states.
const QStringList ConsoleScripts{QStringLiteral("console-su-restrict"),
                                 QStringLiteral("console-sysrq-block"),
                                 QStringLiteral("console-tty-lock")};
const QStringList ParameterScripts{QStringLiteral("param-core-dump-block"),
                                   QStringLiteral("param-swap-wipe"),
                                   QStringLiteral("param-ptrace-lock")};
const Settings ConsoleSettings{{QStringLiteral("console-su-restrict"), true},
                               {QStringLiteral("console-sysrq-block"), false},
                               {QStringLiteral("console-tty-lock"), true}};
const Settings ParameterSettings{{QStringLiteral("param-core-dump-block"), false},
                                 {QStringLiteral("param-swap-wipe"), false},
                                 {QStringLiteral("param-ptrace-lock"), true}};

QStringList callsOf(const QStringList &scripts, const QString &operation)
{
    QStringList calls;
    for (const QString &script : scripts)
        calls << script + QLatin1Char(' ') + operation;
    return calls;
}
} // namespace

class SwitchesModulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void identity_data();
    void identity();
    void getSettings_data();
    void getSettings();
    void setSettings_data();
    void setSettings();
    void secondOfThreeFailsToRead_data();
    void secondOfThreeFailsToRead();
    void secondOfThreeFailsToChange_data();
    void secondOfThreeFailsToChange();
    void emptyGroup_data();
    void emptyGroup();
    void roundTrip_data();
    void roundTrip();
    void monitorRunsOncePerModule();

private:
    void addModuleColumn();
    ZqlTest::SwitchFixture m_fixture;
};

void SwitchesModulesTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void SwitchesModulesTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void SwitchesModulesTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void SwitchesModulesTest::addModuleColumn()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("scripts");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QStringList>("otherScripts");
}

void SwitchesModulesTest::identity_data()
{
    addModuleColumn();
    QTest::newRow("console-policy") << QStringLiteral("console-policy") << ConsoleScripts
                                    << ConsoleSettings << ParameterScripts;
    QTest::newRow("system-parameters") << QStringLiteral("system-parameters") << ParameterScripts
                                       << ParameterSettings << ConsoleScripts;
}

void SwitchesModulesTest::identity()
{
    QFETCH(QString, name);
    QFETCH(QStringList, scripts);

    const Module module = makeModule(name);
    QCOMPARE(module.owner->getName(), name);
    QVERIFY(module.owner->isAvailable());
    QCOMPARE(module.owner->isParametersCorrect({}), QStringList());
    QCOMPARE(module.owner->isParametersCorrect({QStringLiteral("x"), QStringLiteral("y")}),
             QStringList());
    QVERIFY(module.owner->checkRestrictions({}));
    QVERIFY(module.owner->checkRestrictions({{QStringLiteral("x"), 1}}));
    QCOMPARE(module.manager->switchScripts(name == QLatin1String("system-parameters")), scripts);
}

void SwitchesModulesTest::getSettings_data()
{
    identity_data();
}

void SwitchesModulesTest::getSettings()
{
    QFETCH(QString, name);
    QFETCH(QStringList, scripts);
    QFETCH(Settings, settings);

    const Module module = makeModule(name);
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.owner->getSettings();
    capture.finish();
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    QCOMPARE(reply.second, settings);
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(capture.standardOutput(), QByteArray());
    // The group is walked in the manager's order; the other group is never run.
    QCOMPARE(m_fixture.calls(), callsOf(scripts, QStringLiteral("is-enabled")));
}

void SwitchesModulesTest::setSettings_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<Settings>("after");

    const QStringList consoleOff{QStringLiteral("console-su-restrict disable"),
                                 QStringLiteral("console-sysrq-block disable"),
                                 QStringLiteral("console-tty-lock disable")};
    QTest::newRow("console, empty record turns every switch off")
        << QStringLiteral("console-policy") << Settings() << consoleOff
        << Settings{{QStringLiteral("console-su-restrict"), false},
                    {QStringLiteral("console-sysrq-block"), false},
                    {QStringLiteral("console-tty-lock"), false}};
    QTest::newRow("parameters, empty record turns every switch off")
        << QStringLiteral("system-parameters") << Settings()
        << QStringList{QStringLiteral("param-core-dump-block disable"),
                       QStringLiteral("param-swap-wipe disable"),
                       QStringLiteral("param-ptrace-lock disable")}
        << Settings{{QStringLiteral("param-core-dump-block"), false},
                    {QStringLiteral("param-swap-wipe"), false},
                    {QStringLiteral("param-ptrace-lock"), false}};
    QTest::newRow("console, partial record; other keys ignored")
        << QStringLiteral("console-policy")
        << Settings{{QStringLiteral("console-sysrq-block"), true},
                    {QStringLiteral("param-swap-wipe"), true},
                    {QStringLiteral("x"), true}}
        << QStringList{QStringLiteral("console-su-restrict disable"),
                       QStringLiteral("console-sysrq-block enable"),
                       QStringLiteral("console-tty-lock disable")}
        << Settings{{QStringLiteral("console-su-restrict"), false},
                    {QStringLiteral("console-sysrq-block"), true},
                    {QStringLiteral("console-tty-lock"), false}};
    QTest::newRow("parameters, values through the variant's boolean conversion")
        << QStringLiteral("system-parameters")
        << Settings{{QStringLiteral("param-core-dump-block"), 1},
                    {QStringLiteral("param-swap-wipe"), QStringLiteral("true")},
                    {QStringLiteral("param-ptrace-lock"), QStringLiteral("false")}}
        << QStringList{QStringLiteral("param-core-dump-block enable"),
                       QStringLiteral("param-swap-wipe enable"),
                       QStringLiteral("param-ptrace-lock disable")}
        << Settings{{QStringLiteral("param-core-dump-block"), true},
                    {QStringLiteral("param-swap-wipe"), true},
                    {QStringLiteral("param-ptrace-lock"), false}};
}

void SwitchesModulesTest::setSettings()
{
    QFETCH(QString, name);
    QFETCH(Settings, settings);
    QFETCH(QStringList, calls);
    QFETCH(Settings, after);

    const QHash<QString, QByteArray> statesBefore = m_fixture.states();
    const Module module = makeModule(name);
    ZqlTest::OutputCapture capture;
    QCOMPARE(module.owner->setSettings(settings), false);
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(m_fixture.calls(), calls);

    // The group's switches are as asked, the other group's as they were.
    QHash<QString, QByteArray> expected = statesBefore;
    for (auto it = after.cbegin(); it != after.cend(); ++it)
        expected.insert(it.key(), it.value().toBool() ? "enabled\n" : "disabled\n");
    QCOMPARE(m_fixture.states(), expected);
}

void SwitchesModulesTest::secondOfThreeFailsToRead_data()
{
    identity_data();
}

void SwitchesModulesTest::secondOfThreeFailsToRead()
{
    QFETCH(QString, name);
    QFETCH(QStringList, scripts);

    QVERIFY(m_fixture.setFault(scripts.at(1), "is-enabled exit 4"));
    const Module module = makeModule(name);
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.owner->getSettings();
    capture.finish();
    QCOMPARE(reply.first, ModuleInterface::StatusFailure);
    QCOMPARE(reply.second, Settings());
    QCOMPARE(capture.standardError(),
             QStringLiteral("/usr/sbin/%1 finished with unexpected code: 4")
                 .arg(scripts.at(1))
                 .toUtf8());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(m_fixture.calls(), callsOf(scripts.mid(0, 2), QStringLiteral("is-enabled")));
}

void SwitchesModulesTest::secondOfThreeFailsToChange_data()
{
    identity_data();
}

void SwitchesModulesTest::secondOfThreeFailsToChange()
{
    QFETCH(QString, name);
    QFETCH(QStringList, scripts);

    QVERIFY(m_fixture.setFault(scripts.at(1), "any exit 2"));
    QVERIFY(m_fixture.setState(scripts.at(0), false));
    QVERIFY(m_fixture.setState(scripts.at(2), false));
    const Module module = makeModule(name);
    ZqlTest::OutputCapture capture;
    const Settings everythingOn{
        {scripts.at(0), true}, {scripts.at(1), true}, {scripts.at(2), true}};
    QCOMPARE(module.owner->setSettings(everythingOn), true);
    capture.finish();
    QCOMPARE(capture.standardError(),
             QStringLiteral("Process: \"/usr/sbin/%1 enable\". Exit code: 2.\n\"\"")
                 .arg(scripts.at(1))
                 .toUtf8());
    QCOMPARE(m_fixture.calls(), callsOf(scripts.mid(0, 2), QStringLiteral("enable")));
    // The first stays changed, the third was not reached.
    QCOMPARE(m_fixture.state(scripts.at(0)), QByteArray("enabled\n"));
    QCOMPARE(m_fixture.state(scripts.at(2)), QByteArray("disabled\n"));
}

void SwitchesModulesTest::emptyGroup_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QByteArray>("diagnostic");

    for (const QString &name :
         {QStringLiteral("console-policy"), QStringLiteral("system-parameters")}) {
        QTest::addRow("%s, empty list", qPrintable(name))
            << name << QByteArray("[]") << QByteArray() << QByteArray();
        QTest::addRow("%s, monitor crashed", qPrintable(name))
            << name << QByteArray() << QByteArray("crash")
            << QByteArray("Failed to load security options .\nProcess crashed");
        QTest::addRow("%s, bad element", qPrintable(name))
            << name
            << QByteArray(R"([{"id": 1, "name": "a", "longname": "A", "script": "console-tty-lock",
                               "group": "console"}, {"id": 2}])")
            << QByteArray()
            << QByteArray("Failed to load security options .\n"
                          "Json object should contain key 'name'");
    }
}

void SwitchesModulesTest::emptyGroup()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, behaviour);
    QFETCH(QByteArray, diagnostic);

    if (!json.isNull())
        QVERIFY(m_fixture.setMonitorData(json));
    if (!behaviour.isNull())
        QVERIFY(m_fixture.setMonitorBehaviour(behaviour));
    const QHash<QString, QByteArray> statesBefore = m_fixture.states();
    ZqlTest::OutputCapture capture;
    const Module module = makeModule(name);
    const SettingsReply reply = module.owner->getSettings();
    const bool failed = module.owner->setSettings({});
    capture.finish();
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    QCOMPARE(reply.second, Settings());
    QCOMPARE(failed, false);
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(m_fixture.calls(), QStringList());
    QCOMPARE(m_fixture.states(), statesBefore);
}

void SwitchesModulesTest::roundTrip_data()
{
    identity_data();
}

void SwitchesModulesTest::roundTrip()
{
    QFETCH(QString, name);
    QFETCH(Settings, settings);

    const QHash<QString, QByteArray> statesBefore = m_fixture.states();
    const Module module = makeModule(name);
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.owner->getSettings();
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    QCOMPARE(module.owner->setSettings(reply.second), false);
    const SettingsReply again = module.owner->getSettings();
    capture.finish();
    QCOMPARE(again, reply);
    QCOMPARE(again.second, settings);
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(m_fixture.states(), statesBefore);
}

// Each module lists the switches once, when it is built; reading and changing them runs only
// the scripts.
void SwitchesModulesTest::monitorRunsOncePerModule()
{
    QVERIFY(m_fixture.countMonitorRuns());
    ConsolePolicyModule console;
    QCOMPARE(m_fixture.monitorRuns().size(), 1);
    SystemParametersModule parameters;
    QCOMPARE(m_fixture.monitorRuns(),
             (QStringList{QStringLiteral("switches"), QStringLiteral("switches")}));

    QCOMPARE(console.getSettings().second, ConsoleSettings);
    QCOMPARE(parameters.getSettings().second, ParameterSettings);
    QVERIFY(!console.setSettings(ConsoleSettings));
    QVERIFY(!parameters.setSettings(ParameterSettings));
    QCOMPARE(m_fixture.calls().size(), 2 * (ConsoleScripts.size() + ParameterScripts.size()));
    QCOMPARE(m_fixture.monitorRuns().size(), 2);
}

ZQL_SANDBOXED_TEST_MAIN(SwitchesModulesTest)
#include "switchesmodulestest.moc"
