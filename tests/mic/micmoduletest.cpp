#include "micfixture.h"
#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>

using Mic::MicFs;
using Mic::MicKernel;

namespace {
using Settings = QHash<QString, QVariant>;

const QString MicEnabled = QStringLiteral("MicEnabled");
const QString MaxLevel = QStringLiteral("MaxLevel");
const QString ProtectFs = QStringLiteral("ProtectFS");
const QByteArray ProtectedRefusal =
    "mic : When the MIC is turned on on the FS, no import is made. Turn off MIC on FS\n";
const QByteArray LowerRefusal = "mic : Only raising the maximum integrity level is allowed\n";
// What a second getSettings() may take at most while set-fs-ilev answers at once.
constexpr qint64 PromptAnswerMs = 3000;
constexpr int ShortWaitMs = 300;
} // namespace

class MicModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void nameAndKeys();
    void availability_data();
    void availability();
    void getSettingsOnTheSimulatedSystem();
    void secondGetSettingsIsPrompt();
    void getSettingsMeasuresAfresh();
    void modelThatNeverReports();
    void failingQueryEndsTheWait();
    void checkRestrictions_data();
    void checkRestrictions();
    void checkRestrictionsWithRunningLevel127_data();
    void checkRestrictionsWithRunningLevel127();
    void maxLevelEqualRunsNoTool();
    void maxLevelLowerIsRefused();
    void maxLevelHigherEnables();
    void micEnabledSwitches();
    void protectFsSwitches();
    void toolFailuresAreCollected();

private:
    MicTest::MicFixture m_fixture;
};

void MicModuleTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicModuleTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
    MicKernel::instance()->update();
}

void MicModuleTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicModuleTest::nameAndKeys()
{
    MicModule module;
    QCOMPARE(module.getName(), QStringLiteral("mic"));
    QCOMPARE(module.protectFsWaitMs(), 30000);
    QVERIFY(module.isParametersCorrect({MicEnabled, MaxLevel, ProtectFs}).isEmpty());
    QVERIFY(module.isParametersCorrect({}).isEmpty());
    QCOMPARE(module.isParametersCorrect({MaxLevel, QStringLiteral("maxlevel")}),
             QStringList{QStringLiteral("maxlevel")});
}

void MicModuleTest::availability_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<bool>("available");
    QTest::newRow("0") << QByteArray("0\n") << false;
    QTest::newRow("1") << QByteArray("1\n") << true;
    QTest::newRow("2") << QByteArray("2\n") << true;
    QTest::newRow("3") << QByteArray("3\n") << false;
    QTest::newRow("-1") << QByteArray("-1\n") << false;
}

void MicModuleTest::availability()
{
    QFETCH(QByteArray, mode);
    QFETCH(bool, available);
    QVERIFY(MicTest::writeFile(MicTest::SecurityModeFile, mode));
    MicModule module;
    QCOMPARE(module.isAvailable(), available);
}

void MicModuleTest::getSettingsOnTheSimulatedSystem()
{
    MicModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, (Settings{{MicEnabled, true}, {MaxLevel, 63}, {ProtectFs, false}}));
    QCOMPARE(reply.second.value(MaxLevel).userType(), static_cast<int>(QMetaType::Int));
}

// The status is measured once more on every call and the call returns when it is known, not
// at the 30-second limit.
void MicModuleTest::secondGetSettingsIsPrompt()
{
    MicModule module;
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY2(timer.elapsed() < PromptAnswerMs, qPrintable(QString::number(timer.elapsed())));
    timer.restart();
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY2(timer.elapsed() < PromptAnswerMs, qPrintable(QString::number(timer.elapsed())));
    timer.restart();
    // The one inside checkRestrictions() too, and a second module of the same process.
    QVERIFY(module.checkRestrictions({{MaxLevel, 63}}));
    MicModule other;
    QCOMPARE(other.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY2(timer.elapsed() < 2 * PromptAnswerMs, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(MicTest::toolCalls().count(QStringLiteral("set-fs-ilev status")), 4);
}

void MicModuleTest::getSettingsMeasuresAfresh()
{
    MicModule module;
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY(MicTest::setFsState("partly"));
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(true));
    QCOMPARE(MicFs::instance()->status(), MicFs::EnabledPartly);
    QVERIFY(MicTest::setFsState("disabled"));
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
}

// A model whose query never ends: the wait ends at the limit and keeps the last measured value.
void MicModuleTest::modelThatNeverReports()
{
    MicKernel kernel;
    QVERIFY(MicTest::setFsState("enabled"));
    MicFs fs;
    QTRY_COMPARE(fs.status(), MicFs::Enabled);
    QVERIFY(MicTest::setFault(QStringLiteral("set-fs-ilev"), "status hang"));
    MicModule module(&kernel, &fs, ShortWaitMs);
    QElapsedTimer timer;
    timer.start();
    const Settings settings = module.getSettings().second;
    QVERIFY(timer.elapsed() >= ShortWaitMs - 20);
    QVERIFY(timer.elapsed() < 5000);
    QCOMPARE(settings.value(ProtectFs), QVariant(true));
    QCOMPARE(fs.status(), MicFs::Loading);
    // Still no report: the next call waits for the running query and keeps the same value.
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(true));
    QCOMPARE(MicTest::toolCalls().count(QStringLiteral("set-fs-ilev status")), 2);

    // Never measured at all: false.
    MicFs never;
    MicModule first(&kernel, &never, ShortWaitMs);
    QCOMPARE(first.getSettings().second.value(ProtectFs), QVariant(false));
}

void MicModuleTest::failingQueryEndsTheWait()
{
    MicKernel kernel;
    QVERIFY(MicTest::setFault(QStringLiteral("set-fs-ilev"), "status crash"));
    MicFs fs;
    MicModule module(&kernel, &fs);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY2(timer.elapsed() < PromptAnswerMs, qPrintable(QString::number(timer.elapsed())));
}

void MicModuleTest::checkRestrictions_data()
{
    QTest::addColumn<QByteArray>("fsState");
    QTest::addColumn<Settings>("incoming");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QByteArray>("diagnostic");

    QTest::newRow("protected: refused even when turning protection off")
        << QByteArray("enabled") << Settings{{ProtectFs, false}, {MaxLevel, 127}} << false
        << ProtectedRefusal;
    QTest::newRow("partly protected: refused")
        << QByteArray("partly") << Settings{} << false << ProtectedRefusal;
    QTest::newRow("same level") << QByteArray("disabled") << Settings{{MaxLevel, 63}} << true
                                << QByteArray();
    QTest::newRow("higher level") << QByteArray("disabled")
                                  << Settings{{MaxLevel, 127}, {ProtectFs, true}} << true
                                  << QByteArray();
    QTest::newRow("lower level") << QByteArray("disabled") << Settings{{MaxLevel, 0}} << false
                                 << LowerRefusal;
    QTest::newRow("missing MaxLevel reads 0")
        << QByteArray("disabled") << Settings{{MicEnabled, true}} << false << LowerRefusal;
}

void MicModuleTest::checkRestrictions()
{
    QFETCH(QByteArray, fsState);
    QFETCH(Settings, incoming);
    QFETCH(bool, accepted);
    QFETCH(QByteArray, diagnostic);
    QVERIFY(MicTest::setFsState(fsState));
    MicModule module;
    ZqlTest::OutputCapture capture;
    const bool result = module.checkRestrictions(incoming);
    capture.finish();
    QCOMPARE(result, accepted);
    QCOMPARE(capture.standardError(), diagnostic);
    QCOMPARE(capture.standardOutput(), QByteArray());
    // A check runs no tool but the status query.
    QCOMPARE(MicTest::toolCalls(), QStringList{QStringLiteral("set-fs-ilev status")});
}

void MicModuleTest::checkRestrictionsWithRunningLevel127_data()
{
    QTest::addColumn<int>("incoming");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("63 is lower") << 63 << false;
    QTest::newRow("127 is equal") << 127 << true;
    QTest::newRow("255 is higher") << 255 << true;
}

void MicModuleTest::checkRestrictionsWithRunningLevel127()
{
    QFETCH(int, incoming);
    QFETCH(bool, accepted);
    QVERIFY(MicTest::setRunningLevel(127));
    MicKernel kernel;
    MicFs fs;
    MicModule module(&kernel, &fs);
    ZqlTest::OutputCapture capture;
    const bool result = module.checkRestrictions({{MaxLevel, incoming}});
    capture.finish();
    QCOMPARE(result, accepted);
    QCOMPARE(capture.standardError(), accepted ? QByteArray() : LowerRefusal);
}

void MicModuleTest::maxLevelEqualRunsNoTool()
{
    MicModule module;
    ZqlTest::OutputCapture capture;
    const bool failed = module.setSettings({{MaxLevel, 63}});
    capture.finish();
    QVERIFY(!failed);
    QCOMPARE(capture.standardOutput(), QByteArray("mic : MaxLevel is already 63\n"));
    QCOMPARE(capture.standardError(), QByteArray());
    QVERIFY(MicTest::toolCalls().isEmpty());
}

void MicModuleTest::maxLevelLowerIsRefused()
{
    QVERIFY(MicTest::setRunningLevel(127));
    MicKernel kernel;
    MicFs fs;
    MicModule module(&kernel, &fs);
    const QStringList callsBefore = MicTest::toolCalls();
    ZqlTest::OutputCapture capture;
    const bool failed = module.setSettings({{MaxLevel, 63}});
    capture.finish();
    QVERIFY(failed);
    QCOMPARE(capture.standardError(),
             QByteArray("mic : only an increase in the integrity level is allowed\n"));
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(MicTest::toolCalls(), callsBefore);
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
}

void MicModuleTest::maxLevelHigherEnables()
{
    MicModule module;
    ZqlTest::OutputCapture capture;
    // 383 is 127 in 8 bits.
    const bool failed = module.setSettings({{MaxLevel, 383}});
    capture.finish();
    QVERIFY(!failed);
    QCOMPARE(capture.standardOutput() + capture.standardError(), QByteArray());
    QCOMPARE(MicTest::toolCalls(), (QStringList{QStringLiteral("lumo-mic-control enable -i 127"),
                                                QStringLiteral("update-grub ")}));
    QCOMPARE(MicKernel::instance()->futureLevel().level, quint8(127));
    // The running kernel's level is what getSettings() reports.
    QCOMPARE(module.getSettings().second.value(MaxLevel), QVariant(63));
}

void MicModuleTest::micEnabledSwitches()
{
    MicModule module;
    {
        ZqlTest::OutputCapture capture;
        QVERIFY(!module.setSettings({{MicEnabled, false}}));
        capture.finish();
        QCOMPARE(capture.standardOutput() + capture.standardError(), QByteArray());
    }
    QCOMPARE(MicKernel::instance()->status(), MicKernel::WillBeDisabled);
    QCOMPARE(module.getSettings().second.value(MicEnabled), QVariant(false));
    {
        // Asked again: the model's guard turns it into a warning, written as a note.
        ZqlTest::OutputCapture capture;
        QVERIFY(!module.setSettings({{MicEnabled, false}}));
        capture.finish();
        QCOMPARE(capture.standardOutput(),
                 QByteArray("mic : MIC disabling already planned after reboot.\n"));
        QCOMPARE(capture.standardError(), QByteArray());
    }
    QVERIFY(!module.setSettings({{MicEnabled, true}}));
    QCOMPARE(MicKernel::instance()->status(), MicKernel::Enabled);
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
    QCOMPARE(MicTest::toolCalls().filter(QStringLiteral("lumo-mic-control")),
             (QStringList{QStringLiteral("lumo-mic-control disable"),
                          QStringLiteral("lumo-mic-control enable -i 63")}));
}

void MicModuleTest::protectFsSwitches()
{
    MicModule module;
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    // Already off: nothing to run.
    QVERIFY(!module.setSettings({{ProtectFs, false}}));
    QVERIFY(MicTest::toolCalls().filter(QStringLiteral("unset-fs-ilev")).isEmpty());
    QVERIFY(!module.setSettings({{ProtectFs, true}}));
    QCOMPARE(MicTest::toolCalls().count(QStringLiteral("set-fs-ilev ")), 1);
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(true));
    // On: a second request runs nothing.
    QVERIFY(!module.setSettings({{ProtectFs, true}}));
    QCOMPARE(MicTest::toolCalls().count(QStringLiteral("set-fs-ilev ")), 1);
    QVERIFY(!module.setSettings({{ProtectFs, false}}));
    QCOMPARE(MicTest::toolCalls().count(QStringLiteral("unset-fs-ilev ")), 1);
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
}

void MicModuleTest::toolFailuresAreCollected()
{
    MicModule module;
    QCOMPARE(module.getSettings().second.value(ProtectFs), QVariant(false));
    QVERIFY(MicTest::setFault(QStringLiteral("set-fs-ilev"), "apply exit 3"));
    QVERIFY(MicTest::setToolStderr(QStringLiteral("set-fs-ilev"), "no labels\n"));
    QVERIFY(MicTest::setToolStderr(QStringLiteral("lumo-mic-control"), "grub is old\n"));
    ZqlTest::OutputCapture capture;
    const bool failed = module.setSettings({{ProtectFs, true}, {MicEnabled, false}});
    capture.finish();
    QVERIFY(failed);
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(),
             QByteArray("mic : /usr/sbin/set-fs-ilev  returned 3:\n\nno labels\n\n"
                        "grub is old\n\n"));
}

ZQL_SANDBOXED_TEST_MAIN(MicModuleTest)
#include "micmoduletest.moc"
