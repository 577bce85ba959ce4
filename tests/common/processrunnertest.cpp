#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

// Both forms of runProcess take this for their start and finish limits when none is given.
static_assert(DefaultProcessTimeoutMs == 30000,
              "runProcess waits 30 s to start and 30 s to finish");

namespace {
const QString Tool = QStringLiteral(ZQL_TEST_TOOL);
const QString MissingTool = QStringLiteral("/nonexistent/zql-no-such-tool");
const QString TimedOut = QStringLiteral("Process operation timed out");

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

// The processes whose parent is this one, reaped or not.
QStringList childProcesses()
{
    const QByteArray self = QByteArray::number(QCoreApplication::applicationPid());
    QStringList children;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        // "PID (COMMAND) STATE PPID ...": the command may hold blanks, the rest does not.
        const QByteArray line = stat.readAll();
        const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
        if (fields.value(1) == self)
            children << pid;
    }
    return children;
}
} // namespace

class ProcessRunnerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultLimits();
    void finishLimit_data();
    void finishLimit();
    void startLimit();
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

void ProcessRunnerTest::finishLimit_data()
{
    QTest::addColumn<bool>("defaults");
    QTest::addColumn<int>("finishTimeoutMs");
    QTest::addColumn<bool>("finishes");

    // The tool sleeps 1100 ms: slightly over the short limit, far under the default one.
    QTest::newRow("the default finish limit lets a 1.1 s tool finish") << true << 0 << true;
    QTest::newRow("a 1000 ms finish limit cuts a 1.1 s tool") << false << 1000 << false;
}

void ProcessRunnerTest::finishLimit()
{
    QFETCH(bool, defaults);
    QFETCH(int, finishTimeoutMs);
    QFETCH(bool, finishes);

    const QStringList arguments{QStringLiteral("--sleep"), QStringLiteral("1100")};
    const QString cut = QStringLiteral("Process: \"") + Tool +
                        QStringLiteral(" --sleep 1100\". Error: ") + TimedOut +
                        QStringLiteral(".\n\"Not finished\"");
    QString errors;
    const bool succeeded =
        defaults ? runProcess(Tool, arguments, errors)
                 : runProcess(Tool, arguments, errors, DefaultProcessTimeoutMs, finishTimeoutMs);
    QCOMPARE(succeeded, finishes);
    QCOMPARE(errors, finishes ? QString() : cut);

    // The string form has its own defaults.
    const QString result =
        defaults ? runProcess(Tool, arguments)
                 : runProcess(Tool, arguments, DefaultProcessTimeoutMs, finishTimeoutMs);
    QCOMPARE(result, finishes ? QString() : cut);
}

// A program whose exec blocks (it lies on a file system that never answers) does not start
// within the start limit: "Not started", and the child is killed and reaped.
void ProcessRunnerTest::startLimit()
{
    QTemporaryDir scratch;
    QVERIFY(scratch.isValid());
    const QString dir = scratch.filePath(QStringLiteral("stalled"));
    QVERIFY(QDir().mkpath(dir));
    const QString program = dir + QStringLiteral("/zql-tool");
    const QStringList arguments{QStringLiteral("--exit"), QStringLiteral("0")};
    const QString notStarted = QStringLiteral("Process: \"") + program +
                               QStringLiteral(" --exit 0\". Error: ") + TimedOut +
                               QStringLiteral(".\n\"Not started\"");
    {
        ZqlTest::StalledMount stalled(dir);
        QString error;
        QVERIFY2(stalled.mount(&error), qPrintable(error));

        // The finish limit is longer than the time allowed here: only the start limit can
        // end these runs in time.
        QElapsedTimer timer;
        timer.start();
        QString errors;
        QVERIFY(!runProcess(program, arguments, errors, 200, 5000));
        QCOMPARE(errors, notStarted);
        QVERIFY2(timer.elapsed() < 2500, "the start limit was not applied");
        timer.restart();
        QCOMPARE(runProcess(program, arguments, 200, 5000), notStarted);
        QVERIFY2(timer.elapsed() < 2500, "the start limit was not applied");
        QCOMPARE(childProcesses(), QStringList());
    }
    // Once the file system is gone the same program is simply missing.
    QString errors;
    QVERIFY(!runProcess(program, arguments, errors, 200, DefaultProcessTimeoutMs));
    QVERIFY2(errors.endsWith(QStringLiteral("No such file or directory.\n\"Not started\"")),
             qPrintable(errors));
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

ZQL_SANDBOXED_TEST_MAIN(ProcessRunnerTest)
#include "processrunnertest.moc"
