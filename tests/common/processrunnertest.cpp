
#include <zql-modules/modules.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

namespace {
const QString Tool = QStringLiteral(ZQL_TEST_TOOL);
const QString MissingTool = QStringLiteral("/nonexistent/zql-no-such-tool");

// Whether any process still runs with @p tag among its arguments.
bool processWithTagRuns(const QByteArray &tag)
{
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (cmdline.open(QIODevice::ReadOnly) && cmdline.readAll().split('\0').contains(tag))
            return true;
    }
    return false;
}
} // namespace

class ProcessRunnerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultLimits();
    void boolForm_data();
    void boolForm();
    void appendsAfterEarlierMessage();
    void stringForm_data();
    void stringForm();
    void hangIsKilledAfterLimit();
    void unlimitedWaits();
};

void ProcessRunnerTest::defaultLimits()
{
    QCOMPARE(DefaultProcessTimeoutMs, 30000);
}

void ProcessRunnerTest::boolForm_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("errors");

    const QString notFound = QStringLiteral("execvp: No such file or directory");
    QTest::newRow("success") << Tool << QStringList{QStringLiteral("--exit"), QStringLiteral("0")}
                             << true << QString();
    QTest::newRow("success ignores standard error")
        << Tool << QStringList{QStringLiteral("--stderr"), QStringLiteral("warning\n")} << true
        << QString();
    QTest::newRow("missing program")
        << MissingTool << QStringList{QStringLiteral("--a"), QStringLiteral("b")} << false
        << QStringLiteral("Process: \"/nonexistent/zql-no-such-tool --a b\". Error: ") + notFound +
               QStringLiteral(".\n\"Not started\"");
    QTest::newRow("missing program, empty arguments")
        << MissingTool << QStringList() << false
        << QStringLiteral("Process: \"/nonexistent/zql-no-such-tool \". Error: ") + notFound +
               QStringLiteral(".\n\"Not started\"");
    QTest::newRow("bare name not on the search path")
        << QStringLiteral("zql-no-such-tool") << QStringList{QStringLiteral("x")} << false
        << QStringLiteral("Process: \"zql-no-such-tool x\". Error: ") + notFound +
               QStringLiteral(".\n\"Not started\"");
    QTest::newRow("exit code with standard error")
        << Tool
        << QStringList{QStringLiteral("--stderr"), QStringLiteral("bad\n"),
                       QStringLiteral("--exit"), QStringLiteral("3")}
        << false
        << QStringLiteral("Process: \"") + Tool +
               QStringLiteral(" --stderr bad\n --exit 3\". Exit code: 3.\n\"bad\n\"");
    QTest::newRow("exit code without standard error")
        << Tool << QStringList{QStringLiteral("--exit"), QStringLiteral("5")} << false
        << QStringLiteral("Process: \"") + Tool +
               QStringLiteral(" --exit 5\". Exit code: 5.\n\"\"");
    QTest::newRow("bare name found on the search path, empty arguments")
        << QStringLiteral("false") << QStringList() << false
        << QStringLiteral("Process: \"false \". Exit code: 1.\n\"\"");
    QTest::newRow("standard output is not part of the message")
        << Tool
        << QStringList{QStringLiteral("--stdout"), QStringLiteral("out"), QStringLiteral("--exit"),
                       QStringLiteral("1")}
        << false
        << QStringLiteral("Process: \"") + Tool +
               QStringLiteral(" --stdout out --exit 1\". Exit code: 1.\n\"\"");
    QTest::newRow("crash") << Tool << QStringList{QStringLiteral("--crash")} << false
                           << QStringLiteral("Process: \"") + Tool +
                                  QStringLiteral(
                                      " --crash\". Error: Process crashed.\n\"Not finished\"");
    QTest::newRow("percent signs in arguments stay literal")
        << MissingTool << QStringList{QStringLiteral("%1"), QStringLiteral("%2")} << false
        << QStringLiteral("Process: \"/nonexistent/zql-no-such-tool %1 %2\". Error: ") + notFound +
               QStringLiteral(".\n\"Not started\"");
}

void ProcessRunnerTest::boolForm()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    QFETCH(bool, result);
    QFETCH(QString, errors);

    QString collected;
    QCOMPARE(runProcess(program, arguments, collected), result);
    QCOMPARE(collected, errors);
}

void ProcessRunnerTest::appendsAfterEarlierMessage()
{
    QString errors = QStringLiteral("earlier");
    QVERIFY(!runProcess(Tool, {QStringLiteral("--exit"), QStringLiteral("2")}, errors));
    QCOMPARE(errors, QStringLiteral("earlier\nProcess: \"") + Tool +
                         QStringLiteral(" --exit 2\". Exit code: 2.\n\"\""));

    // A success appends nothing.
    const QString before = errors;
    QVERIFY(runProcess(Tool, {}, errors));
    QCOMPARE(errors, before);
}

void ProcessRunnerTest::stringForm_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("result");

    QTest::newRow("clean success") << QStringList() << QString();
    QTest::newRow("success with standard error")
        << QStringList{QStringLiteral("--stderr"), QStringLiteral("warning: kept\n")}
        << QStringLiteral("warning: kept\n");
    QTest::newRow("failure gives the message")
        << QStringList{QStringLiteral("--stderr"), QStringLiteral("bad\n"),
                       QStringLiteral("--exit"), QStringLiteral("3")}
        << QStringLiteral("Process: \"") + Tool +
               QStringLiteral(" --stderr bad\n --exit 3\". Exit code: 3.\n\"bad\n\"");
}

void ProcessRunnerTest::stringForm()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, result);
    QCOMPARE(runProcess(Tool, arguments), result);
}

void ProcessRunnerTest::hangIsKilledAfterLimit()
{
    const QByteArray tag = "zql-hang-" + QByteArray::number(QCoreApplication::applicationPid());
    const QStringList arguments{QStringLiteral("--stdout"), QString::fromLatin1(tag),
                                QStringLiteral("--hang")};
    QElapsedTimer timer;
    timer.start();
    QString errors;
    QVERIFY(!runProcess(Tool, arguments, errors, DefaultProcessTimeoutMs, 200));
    QCOMPARE(errors, QStringLiteral("Process: \"") + Tool + QStringLiteral(" --stdout ") +
                         QString::fromLatin1(tag) +
                         QStringLiteral(" --hang\". Error: Process operation timed out.\n"
                                        "\"Not finished\""));
    QVERIFY2(timer.elapsed() < 10000, "the finish limit was not applied");
    QVERIFY2(!processWithTagRuns(tag), "the overrunning child was left running");

    // The string form words it the same way.
    QCOMPARE(runProcess(Tool, arguments, DefaultProcessTimeoutMs, 100), errors);
}

void ProcessRunnerTest::unlimitedWaits()
{
    // -1 means no limit for either wait: a tool slower than a short limit still succeeds.
    QString errors;
    QVERIFY(runProcess(Tool, {QStringLiteral("--sleep"), QStringLiteral("300")}, errors, -1, -1));
    QCOMPARE(errors, QString());
    QCOMPARE(runProcess(Tool, {QStringLiteral("--sleep"), QStringLiteral("300")}, -1, -1),
             QString());
    // The same tool overruns a finish limit shorter than its run.
    QVERIFY(!runProcess(Tool, {QStringLiteral("--sleep"), QStringLiteral("3000")}, errors,
                        DefaultProcessTimeoutMs, 100));
    QVERIFY(errors.endsWith(QStringLiteral("\n\"Not finished\"")));
}

QTEST_GUILESS_MAIN(ProcessRunnerTest)
#include "processrunnertest.moc"
