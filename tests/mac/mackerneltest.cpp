#include "macfixture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>
#include <QMetaMethod>
#include <QMutex>
#include <QSignalSpy>
#include <QThread>
#include <QTranslator>

#include <csignal>

using Mac::MacKernel;
using namespace ZqlTest;

namespace {
const QString ControlTool = QStringLiteral("/usr/sbin/lumo-mac-control");
const QString HiddenTool = QStringLiteral("/usr/sbin/lumo-mac-control.hidden");
} // namespace

class MacKernelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void metaObjectOrder();
    void update_data();
    void update();
    void unchangedOutputEmitsNothing();
    void enabledChangedEvenWhenTheFlagStays();
    void enableWhenAlreadyPlanned();
    void disableWhenAlreadyPlanned();
    void enableAndDisableRunTheTool();
    void nonZeroExitIsAWarning();
    void crashIsAnError();
    void missingToolIsAnError();
    void hangingToolBlocksWithoutLimit();
    void slotsWaitForTheMutex();
    void twoThreadsAtOnce();
    void translatedDescriptions();

private:
    // The signals in the order they came, each as "name(argument)".
    QStringList record(MacKernel *kernel);
    QStringList m_emitted;
    QList<QMetaObject::Connection> m_connections;
};

QStringList MacKernelTest::record(MacKernel *kernel)
{
    m_emitted.clear();
    m_connections << connect(kernel, &MacKernel::statusChanged, this, [this](MacKernel::Status s) {
        m_emitted << QStringLiteral("statusChanged(%1)").arg(int(s));
    });
    m_connections << connect(
        kernel, &MacKernel::statusDescriptionChanged, this, [this](const QString &text) {
            m_emitted << QStringLiteral("statusDescriptionChanged(%1)").arg(text);
        });
    m_connections << connect(kernel, &MacKernel::enabledChanged, this, [this](bool on) {
        m_emitted << QStringLiteral("enabledChanged(%1)").arg(on);
    });
    m_connections << connect(kernel, &MacKernel::error, this, [this](const QString &text) {
        m_emitted << QStringLiteral("error(%1)").arg(text);
    });
    m_connections << connect(kernel, &MacKernel::warning, this, [this](const QString &text) {
        m_emitted << QStringLiteral("warning(%1)").arg(text);
    });
    return m_emitted;
}

void MacKernelTest::initTestCase()
{
    // Before init(): the instance does not exist yet.
    QVERIFY(setMacControlState(false, true));
    QVERIFY(startMacControlLog());
    MacKernel *kernel = MacKernel::instance();
    QCOMPARE(kernel->status(), MacKernel::WillBeEnabled);
    QCOMPARE(kernel->enabled(), true);
    QCOMPARE(kernel->statusDescription(),
             QStringLiteral("Subsystem is disabled, but it will be <b>enabled after reboot</b>"));
    QCOMPARE(macControlCalls(),
             QStringList({QStringLiteral("status"), QStringLiteral("is-enabled")}));
    QCOMPARE(MacKernel::instance(), kernel);
}

void MacKernelTest::init()
{
    QVERIFY(setMacControlFault({}));
    QVERIFY(setMacControlWarning({}));
    // A known starting point: Enabled.
    QVERIFY(setMacControlState(true, true));
    MacKernel::instance()->update();
    QCOMPARE(MacKernel::instance()->status(), MacKernel::Enabled);
    QVERIFY(startMacControlLog());
    record(MacKernel::instance());
}

void MacKernelTest::cleanup()
{
    for (const QMetaObject::Connection &connection : qAsConst(m_connections))
        disconnect(connection);
    m_connections.clear();
    if (QFile::exists(HiddenTool))
        QVERIFY(QFile::rename(HiddenTool, ControlTool));
}

void MacKernelTest::metaObjectOrder()
{
    const QMetaObject &meta = MacKernel::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(methods,
             QStringList({QStringLiteral("error(QString)"), QStringLiteral("warning(QString)"),
                          QStringLiteral("statusChanged(Mac::MacKernel::Status)"),
                          QStringLiteral("statusDescriptionChanged(QString)"),
                          QStringLiteral("enabledChanged(bool)"), QStringLiteral("update()"),
                          QStringLiteral("enable()"), QStringLiteral("disable()")}));
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 0);
    const QMetaEnum status = meta.enumerator(meta.indexOfEnumerator("Status"));
    QVERIFY(status.isValid());
    QCOMPARE(status.keyToValue("Loading"), 0);
    QCOMPARE(status.keyToValue("Enabled"), 1);
    QCOMPARE(status.keyToValue("Disabled"), 2);
    QCOMPARE(status.keyToValue("WillBeEnabled"), 3);
    QCOMPARE(status.keyToValue("WillBeDisabled"), 4);
}

void MacKernelTest::update_data()
{
    QTest::addColumn<bool>("activeNow");
    QTest::addColumn<bool>("plannedOn");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("description");
    QTest::addColumn<bool>("enabled");

    QTest::newRow("off now, on after reboot")
        << false << true << int(MacKernel::WillBeEnabled)
        << QStringLiteral("Subsystem is disabled, but it will be <b>enabled after reboot</b>")
        << true;
    QTest::newRow("on now, off after reboot")
        << true << false << int(MacKernel::WillBeDisabled)
        << QStringLiteral("Subsystem is enabled, but it will be <b>disabled after reboot</b>")
        << false;
    QTest::newRow("off now, off after reboot")
        << false << false << int(MacKernel::Disabled)
        << QStringLiteral("Subsystem is <b>disabled</b>") << false;
}

void MacKernelTest::update()
{
    QFETCH(bool, activeNow);
    QFETCH(bool, plannedOn);
    QFETCH(int, status);
    QFETCH(QString, description);
    QFETCH(bool, enabled);

    MacKernel *kernel = MacKernel::instance();
    QSignalSpy statusSpy(kernel, &MacKernel::statusChanged);
    QSignalSpy descriptionSpy(kernel, &MacKernel::statusDescriptionChanged);
    QSignalSpy enabledSpy(kernel, &MacKernel::enabledChanged);
    QVERIFY(setMacControlState(activeNow, plannedOn));
    kernel->update();

    QCOMPARE(int(kernel->status()), status);
    QCOMPARE(kernel->statusDescription(), description);
    QCOMPARE(kernel->enabled(), enabled);
    QCOMPARE(statusSpy.count(), 1);
    QCOMPARE(statusSpy.at(0).at(0).value<MacKernel::Status>(), MacKernel::Status(status));
    QCOMPARE(descriptionSpy.count(), 1);
    QCOMPARE(descriptionSpy.at(0).at(0).toString(), description);
    QCOMPARE(enabledSpy.count(), 1);
    QCOMPARE(enabledSpy.at(0).at(0).toBool(), enabled);
    QCOMPARE(m_emitted,
             QStringList({QStringLiteral("statusChanged(%1)").arg(status),
                          QStringLiteral("statusDescriptionChanged(%1)").arg(description),
                          QStringLiteral("enabledChanged(%1)").arg(enabled)}));
    QCOMPARE(macControlCalls(),
             QStringList({QStringLiteral("status"), QStringLiteral("is-enabled")}));
}

void MacKernelTest::unchangedOutputEmitsNothing()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(false, false));
    kernel->update();
    kernel->update();
    QCOMPARE(m_emitted.size(), 3);
    QCOMPARE(kernel->status(), MacKernel::Disabled);
}

void MacKernelTest::enabledChangedEvenWhenTheFlagStays()
{
    MacKernel *kernel = MacKernel::instance();
    QSignalSpy enabledSpy(kernel, &MacKernel::enabledChanged);
    QVERIFY(setMacControlState(false, true)); // Enabled -> WillBeEnabled: the flag stays true
    kernel->update();
    QCOMPARE(enabledSpy.count(), 1);
    QCOMPARE(enabledSpy.at(0).at(0).toBool(), true);
}

void MacKernelTest::enableWhenAlreadyPlanned()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(false, true));
    kernel->update();
    QVERIFY(startMacControlLog());
    m_emitted.clear();
    QSignalSpy warningSpy(kernel, &MacKernel::warning);
    QSignalSpy errorSpy(kernel, &MacKernel::error);
    kernel->enable();
    QCOMPARE(warningSpy.count(), 1);
    QCOMPARE(warningSpy.at(0).at(0).toString(),
             QStringLiteral("MAC enabling already planned after reboot."));
    QCOMPARE(errorSpy.count(), 0);
    QCOMPARE(macControlCalls(), QStringList());
}

void MacKernelTest::disableWhenAlreadyPlanned()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(true, false));
    kernel->update();
    QVERIFY(startMacControlLog());
    QSignalSpy warningSpy(kernel, &MacKernel::warning);
    kernel->disable();
    QCOMPARE(warningSpy.count(), 1);
    QCOMPARE(warningSpy.at(0).at(0).toString(),
             QStringLiteral("MAC disabling already planned after reboot."));
    QCOMPARE(macControlCalls(), QStringList());
}

void MacKernelTest::enableAndDisableRunTheTool()
{
    MacKernel *kernel = MacKernel::instance();
    // Enabled: disable() runs the tool but does not read the state again.
    kernel->disable();
    QCOMPARE(macControlCalls(), QStringList({QStringLiteral("disable")}));
    QCOMPARE(kernel->status(), MacKernel::Enabled);
    QCOMPARE(m_emitted, QStringList());
    kernel->update();
    QCOMPARE(kernel->status(), MacKernel::WillBeDisabled);
    // Enabled (not WillBeEnabled) also runs enable().
    kernel->enable();
    QCOMPARE(macControlCalls().last(), QStringLiteral("enable"));
    kernel->update();
    QCOMPARE(kernel->status(), MacKernel::Enabled);
}

void MacKernelTest::nonZeroExitIsAWarning()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlFault("status exit 1"));
    QVERIFY(setMacControlWarning("mac-control: something odd\n"));
    QSignalSpy warningSpy(kernel, &MacKernel::warning);
    QSignalSpy errorSpy(kernel, &MacKernel::error);
    kernel->update();
    QCOMPARE(errorSpy.count(), 0);
    QCOMPARE(warningSpy.count(), 2); // each of the two runs wrote to standard error
    QCOMPARE(warningSpy.at(0).at(0).toString(), QStringLiteral("mac-control: something odd\n"));
    QCOMPARE(kernel->status(), MacKernel::Enabled); // the output still counts
}

void MacKernelTest::crashIsAnError()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(false, false));
    QVERIFY(setMacControlFault("status crash"));
    QSignalSpy errorSpy(kernel, &MacKernel::error);
    QSignalSpy warningSpy(kernel, &MacKernel::warning);
    kernel->update();
    QCOMPARE(errorSpy.count(), 1);
    QCOMPARE(errorSpy.at(0).at(0).toString(),
             QStringLiteral("lumo-mac-control status returned -1:\n\n"));
    QCOMPARE(warningSpy.count(), 0);
    // A failed status run counts as active: on now, off after reboot.
    QCOMPARE(kernel->status(), MacKernel::WillBeDisabled);
}

void MacKernelTest::missingToolIsAnError()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(QFile::rename(ControlTool, HiddenTool));
    QSignalSpy errorSpy(kernel, &MacKernel::error);
    kernel->update();
    QCOMPARE(errorSpy.count(), 2);
    QCOMPARE(errorSpy.at(1).at(0).toString(),
             QStringLiteral("lumo-mac-control is-enabled returned -1:\n\n"));
    // Active (no INACTIVE) and not planned (no ENABLE).
    QCOMPARE(kernel->status(), MacKernel::WillBeDisabled);
    // Asking to enable runs (and fails to run) the tool.
    kernel->enable();
    QCOMPARE(errorSpy.count(), 3);
    QCOMPARE(errorSpy.at(2).at(0).toString(),
             QStringLiteral("lumo-mac-control enable returned -1:\n\n"));
}

// No time limit: the call waits for the tool however long it takes; a tool killed from outside
// ends it as a crash.
void MacKernelTest::hangingToolBlocksWithoutLimit()
{
    MacKernel *kernel = MacKernel::instance();
    const QString pidFile = MacControlDir + QStringLiteral("/hang.pid");
    QFile::remove(pidFile);
    QVERIFY(setMacControlFault("is-enabled hang"));
    QSignalSpy errorSpy(kernel, &MacKernel::error);
    QThread *thread = QThread::create([kernel] { kernel->update(); });
    thread->start();
    QTRY_VERIFY(!readBytes(pidFile).trimmed().isEmpty());
    QVERIFY(!thread->wait(300));
    const pid_t pid = readBytes(pidFile).trimmed().toInt();
    QVERIFY(pid > 0);
    QCOMPARE(::kill(pid, SIGKILL), 0);
    QTRY_VERIFY(thread->isFinished());
    delete thread;
    QCOMPARE(errorSpy.count(), 1);
    QCOMPARE(errorSpy.at(0).at(0).toString(),
             QStringLiteral("lumo-mac-control is-enabled returned -1:\n\n"));
    // Active now (the status run was fine), not planned (the killed run gave nothing).
    QCOMPARE(kernel->status(), MacKernel::WillBeDisabled);
}

void MacKernelTest::slotsWaitForTheMutex()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(false, false));
    MacKernel::slotMutex()->lock();
    QThread *thread = QThread::create([kernel] { kernel->update(); });
    thread->start();
    // While the mutex is held the slot does not get to run the tool.
    QVERIFY(!thread->wait(300));
    QCOMPARE(macControlCalls(), QStringList());
    MacKernel::slotMutex()->unlock();
    QTRY_VERIFY(thread->isFinished());
    delete thread;
    QCOMPARE(macControlCalls(),
             QStringList({QStringLiteral("status"), QStringLiteral("is-enabled")}));
    QCOMPARE(kernel->status(), MacKernel::Disabled);
}

void MacKernelTest::twoThreadsAtOnce()
{
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(true, false));
    MacKernel::slotMutex()->lock();
    QThread *first = QThread::create([kernel] { kernel->update(); });
    QThread *second = QThread::create([kernel] { kernel->update(); });
    first->start();
    second->start();
    QVERIFY(!first->wait(200));
    QVERIFY(!second->isFinished());
    QCOMPARE(macControlCalls(), QStringList());
    MacKernel::slotMutex()->unlock();
    QTRY_VERIFY(first->isFinished() && second->isFinished());
    delete first;
    delete second;
    QCOMPARE(macControlCalls().size(), 4);
    QCOMPARE(kernel->status(), MacKernel::WillBeDisabled);
}

// The descriptions come from the catalogue in the kernel model's own context; the keywords
// searched in the tool's output keep their meaning.
void MacKernelTest::translatedDescriptions()
{
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral("libzql-modules_ru"),
                            QStringLiteral("/usr/share/vela/translations")));
    QVERIFY(QCoreApplication::installTranslator(&translator));
    MacKernel *kernel = MacKernel::instance();
    QVERIFY(setMacControlState(false, true));
    kernel->update();
    QCOMPARE(kernel->status(), MacKernel::WillBeEnabled);
    QCOMPARE(
        kernel->statusDescription(),
        QString::fromUtf8("Подсистема выключена, но будет <b>включена после перезагрузки</b>"));
    QSignalSpy warningSpy(kernel, &MacKernel::warning);
    kernel->enable();
    QCOMPARE(warningSpy.at(0).at(0).toString(),
             QString::fromUtf8("Включение МРД уже запланировано после перезагрузки."));
    QVERIFY(QCoreApplication::removeTranslator(&translator));
}

ZQL_SANDBOXED_TEST_MAIN(MacKernelTest)
#include "mackerneltest.moc"
