// zql-policy end to end with the "mic" module: the built program over the simulated system
// refuses, with the module's own message, a section that lowers the maximum integrity level or
// arrives while the filesystem is protected, and previews the boot-file and fs-ilev.conf
// changes of an accepted one.
#include "micfixture.h"
#include "systemfixture.h"
#include "testmain.h"
#include "toolrun.h"

#include <QFile>
#include <QTemporaryDir>

namespace {
const QString Program = QStringLiteral(ZQL_POLICY);
const QByteArray Head = "{\"format\": \"zql-policy\", \"version\": 1, ";
const QByteArray ProtectedRefusal =
    "mic : When the MIC is turned on on the FS, no import is made. Turn off MIC on FS\n";
const QByteArray LowerRefusal = "mic : Only raising the maximum integrity level is allowed\n";

ZqlTest::ToolRun run(const QStringList &arguments)
{
    return ZqlTest::runTool(Program, arguments, 120000);
}

// The run's exit, both streams.
QString describe(const ZqlTest::ToolRun &result)
{
    return result.describe() + QStringLiteral("\nstdout:\n") +
           QString::fromUtf8(result.standardOutput);
}

// Tool runs that change something: everything but the status query and the defaults.
QStringList changingCalls()
{
    QStringList calls = MicTest::toolCalls();
    calls.removeAll(QStringLiteral("set-fs-ilev status"));
    calls.removeAll(QStringLiteral("set-fs-ilev defconfig"));
    return calls;
}
} // namespace

class ZqlPolicyMicTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void refused_data();
    void refused();
    void dryRunOfAcceptedSection();

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
    MicTest::MicFixture m_fixture;
};

void ZqlPolicyMicTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void ZqlPolicyMicTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void ZqlPolicyMicTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void ZqlPolicyMicTest::refused_data()
{
    QTest::addColumn<QByteArray>("fsState");
    QTest::addColumn<QByteArray>("section");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("lowers MaxLevel")
        << QByteArray("disabled")
        << QByteArray("{\"MaxLevel\": 15, \"MicEnabled\": true, \"ProtectFS\": false}")
        << LowerRefusal;
    QTest::newRow("filesystem protected")
        << QByteArray("enabled")
        << QByteArray("{\"MaxLevel\": 127, \"MicEnabled\": true, \"ProtectFS\": false}")
        << ProtectedRefusal;
    QTest::newRow("filesystem partly protected")
        << QByteArray("partly") << QByteArray("{\"MaxLevel\": 63}") << ProtectedRefusal;
}

void ZqlPolicyMicTest::refused()
{
    QFETCH(QByteArray, fsState);
    QFETCH(QByteArray, section);
    QFETCH(QByteArray, message);
    QVERIFY(MicTest::setFsState(fsState));
    QVERIFY(
        ZqlTest::writeBytes(path(QStringLiteral("mic.json")), Head + "\"mic\": " + section + "}"));
    const QByteArray prefix = "zql-policy: " + path(QStringLiteral("mic.json")).toUtf8() + ": ";

    const ZqlTest::ToolRun checked =
        run({QStringLiteral("check"), path(QStringLiteral("mic.json"))});
    QVERIFY(checked.ending == ZqlTest::ToolRun::Ending::Exited);
    QCOMPARE(checked.exitCode, 3);
    QVERIFY2(checked.standardError.startsWith(message), qPrintable(describe(checked)));
    QVERIFY2(checked.standardError.endsWith(prefix + "refused\n"), qPrintable(describe(checked)));

    const ZqlTest::ToolRun applied =
        run({QStringLiteral("apply"), path(QStringLiteral("mic.json"))});
    QVERIFY(applied.ending == ZqlTest::ToolRun::Ending::Exited);
    QCOMPARE(applied.exitCode, 3);
    QVERIFY2(applied.standardError.startsWith(message), qPrintable(describe(applied)));
    QVERIFY2(applied.standardError.endsWith(prefix + "refused; nothing was applied\n"),
             qPrintable(describe(applied)));

    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
    QVERIFY(!QFile::exists(MicTest::FsIlevConf));
    QCOMPARE(changingCalls(), QStringList());
}

void ZqlPolicyMicTest::dryRunOfAcceptedSection()
{
    QVERIFY(ZqlTest::writeBytes(path(QStringLiteral("raise.json")),
                                Head + "\"mic\": {\"MaxLevel\": 127, \"ProtectFS\": true}}"));
    const ZqlTest::ToolRun result = run(
        {QStringLiteral("apply"), path(QStringLiteral("raise.json")), QStringLiteral("--dry-run")});
    QVERIFY2(result.succeeded(), qPrintable(describe(result)));
    QVERIFY2(result.standardOutput.contains(" /etc/default/grub "), qPrintable(describe(result)));
    QVERIFY2(result.standardOutput.contains(" /etc/tessel/fs-ilev.conf "),
             qPrintable(describe(result)));
    QVERIFY2(result.standardOutput.contains(
                 "-GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=63\"\n"
                 "+GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=127\"\n"),
             qPrintable(describe(result)));
    QVERIFY2(result.standardOutput.contains("+max\t/usr\n"), qPrintable(describe(result)));
    QVERIFY2(result.standardError.contains("  M /etc/default/grub\n"),
             qPrintable(describe(result)));
    QVERIFY2(result.standardError.contains("  A /etc/tessel/fs-ilev.conf\n"),
             qPrintable(describe(result)));

    // A dry run: nothing here changed.
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
    QVERIFY(!QFile::exists(MicTest::FsIlevConf));
    QCOMPARE(changingCalls(), QStringList());
}

ZQL_SANDBOXED_TEST_MAIN(ZqlPolicyMicTest)
#include "zqlpolicymictest.moc"
