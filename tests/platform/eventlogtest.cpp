// The reference platform's event log: one line per event with its time, process, code, outcome
// and texts; appended, never rewritten; a full file system refuses the event and leaves the log
// as it was; two processes at once never mix their records.
#include "processesatonce.h"
#include "scratchmounts.h"
#include "systemfixture.h"
#include "testmain.h"

#include "tessel/eventlog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
const QString LogDir = QStringLiteral("/var/log/zql-platform");
const QString Log = QStringLiteral("/var/log/zql-platform/events.log");
const QRegularExpression RecordShape(QStringLiteral(
    "^(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z)\\t(\\d+)\\t(-?\\d+)\\t(success|"
    "failure)\\t([^\\t]*)\\t([^\\t]*)\\t([^\\t]*)$"));

int send(int code, bool success, const QByteArray &text, const QByteArray &subject = {},
         const QByteArray &object = {})
{
    return tessel_log_send(code, success ? 1 : 0, text.constData(),
                           static_cast<size_t>(text.size()), subject.constData(),
                           static_cast<size_t>(subject.size()), object.constData(),
                           static_cast<size_t>(object.size()));
}

QList<QByteArray> records()
{
    QList<QByteArray> lines = ZqlTest::readBytes(Log).split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}
} // namespace

class EventLogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void oneRecord();
    void createsDirectoryAndFile();
    void textsEscaped_data();
    void textsEscaped();
    void appendedNeverRewritten();
    void nullTextWithLengthRefused();
    void fullFileSystemRefuses();
    void readOnlyLogRefuses();
    void twoProcessesAtOnce();

private:
    ZqlTest::ScratchMounts m_mounts;
};

void EventLogTest::init()
{
    cleanup();
}

void EventLogTest::cleanup()
{
    QString error;
    QVERIFY2(m_mounts.unmountAll(&error), qPrintable(error));
    QDir(LogDir).removeRecursively();
}

void EventLogTest::oneRecord()
{
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    QVERIFY(send(99, true, "o:ox:c", "subject", "object") != 0);
    const QDateTime after = QDateTime::currentDateTimeUtc().addMSecs(1);
    const QList<QByteArray> lines = records();
    QCOMPARE(lines.size(), 1);
    const QRegularExpressionMatch match = RecordShape.match(QString::fromUtf8(lines.first()));
    QVERIFY2(match.hasMatch(), lines.first().constData());
    const QDateTime time = QDateTime::fromString(match.captured(1), Qt::ISODateWithMs);
    QVERIFY(time >= before.addMSecs(-1) && time <= after);
    QCOMPARE(match.captured(2).toLongLong(), static_cast<qint64>(::getpid()));
    QCOMPARE(match.captured(3), QStringLiteral("99"));
    QCOMPARE(match.captured(4), QStringLiteral("success"));
    QCOMPARE(match.captured(5), QStringLiteral("o:ox:c"));
    QCOMPARE(match.captured(6), QStringLiteral("subject"));
    QCOMPARE(match.captured(7), QStringLiteral("object"));
    QVERIFY(send(-3, false, {}) != 0);
    QVERIFY(records().last().endsWith("\t-3\tfailure\t\t\t"));
}

void EventLogTest::createsDirectoryAndFile()
{
    QVERIFY(!QFile::exists(LogDir));
    QVERIFY(send(1, true, "x") != 0);
    struct stat status = {};
    QVERIFY(::stat(LogDir.toLocal8Bit().constData(), &status) == 0);
    QCOMPARE(status.st_mode & 07777, 0750U);
    QVERIFY(::stat(Log.toLocal8Bit().constData(), &status) == 0);
    QCOMPARE(status.st_mode & 07777, 0640U);
}

void EventLogTest::textsEscaped_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("written");
    QTest::newRow("plain") << QByteArray("o:abc:") << QByteArray("o:abc:");
    QTest::newRow("line feed and tab") << QByteArray("a\nb\tc") << QByteArray("a\\nb\\tc");
    QTest::newRow("backslash") << QByteArray("a\\n") << QByteArray("a\\\\n");
    QTest::newRow("control bytes")
        << QByteArray("\x01\x1b\x7f\r", 4) << QByteArray("\\x01\\x1b\\x7f\\x0d");
    QTest::newRow("zero byte inside") << QByteArray("a\0b", 3) << QByteArray("a\\x00b");
    QTest::newRow("UTF-8 kept") << QByteArray("журнал") << QByteArray("журнал");
}

void EventLogTest::textsEscaped()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, written);
    QVERIFY(send(7, true, text, text, text) != 0);
    const QList<QByteArray> lines = records();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().endsWith('\t' + written + '\t' + written + '\t' + written),
             lines.first().constData());
}

void EventLogTest::appendedNeverRewritten()
{
    QVERIFY(send(1, true, "first") != 0);
    const QByteArray first = ZqlTest::readBytes(Log);
    struct stat before = {};
    QVERIFY(::stat(Log.toLocal8Bit().constData(), &before) == 0);
    QVERIFY(send(2, false, "second") != 0);
    const QByteArray both = ZqlTest::readBytes(Log);
    QVERIFY(both.startsWith(first));
    QCOMPARE(records().size(), 2);
    struct stat after = {};
    QVERIFY(::stat(Log.toLocal8Bit().constData(), &after) == 0);
    QCOMPARE(after.st_ino, before.st_ino); // the same file, not a replacement
}

void EventLogTest::nullTextWithLengthRefused()
{
    QCOMPARE(tessel_log_send(1, 1, nullptr, 3, nullptr, 0, nullptr, 0), 0);
    QCOMPARE(tessel_log_send(1, 1, "x", 1, nullptr, 2, nullptr, 0), 0);
    QVERIFY(!QFile::exists(Log));
    QVERIFY(tessel_log_send(1, 1, nullptr, 0, nullptr, 0, nullptr, 0) != 0);
}

void EventLogTest::fullFileSystemRefuses()
{
    QVERIFY(QDir().mkpath(LogDir));
    QString error;
    QVERIFY2(m_mounts.tmpfs(LogDir, QStringLiteral("size=16k"), &error), qPrintable(error));
    // A log whose last block is full, then no free block left.
    QVERIFY(ZqlTest::writeBytes(Log, QByteArray(4095, 'x') + '\n'));
    ZqlTest::fillFileSystem(LogDir);
    const QByteArray before = ZqlTest::readBytes(Log);
    QCOMPARE(send(99, true, "o:a:b"), 0);
    QCOMPARE(ZqlTest::readBytes(Log), before);
    // A record that fits only in part is cut off again: the log never holds half a record.
    QVERIFY(QFile::remove(LogDir + QStringLiteral("/filler")));
    QVERIFY(ZqlTest::writeBytes(Log, QByteArray(4000, 'x') + '\n'));
    ZqlTest::fillFileSystem(LogDir);
    const QByteArray partial = ZqlTest::readBytes(Log);
    QCOMPARE(send(99, true, QByteArray(500, 'y')), 0);
    QCOMPARE(ZqlTest::readBytes(Log), partial);
}

void EventLogTest::readOnlyLogRefuses()
{
    QVERIFY(send(1, true, "x") != 0);
    QString error;
    QVERIFY2(m_mounts.readOnly(LogDir, &error), qPrintable(error));
    const QByteArray before = ZqlTest::readBytes(Log);
    QCOMPARE(send(2, true, "y"), 0);
    QCOMPARE(ZqlTest::readBytes(Log), before);
}

void EventLogTest::twoProcessesAtOnce()
{
    constexpr int PerProcess = 300;
    QVERIFY(ZqlTest::runProcessesAtOnce(2, [](int child) {
        // Long texts, so that a record takes more than one small write if it were split.
        const QByteArray text = QByteArray(2000, child == 0 ? 'a' : 'b');
        for (int i = 0; i < PerProcess; ++i) {
            if (send(i, true, text + QByteArray::number(i)) == 0)
                return false;
        }
        return true;
    }));
    const QList<QByteArray> lines = records();
    QCOMPARE(lines.size(), 2 * PerProcess);
    int seen[2] = {0, 0};
    for (const QByteArray &line : lines) {
        const QRegularExpressionMatch match = RecordShape.match(QString::fromUtf8(line));
        QVERIFY(match.hasMatch());
        const QString text = match.captured(5);
        const int child = text.startsWith(QLatin1Char('a')) ? 0 : 1;
        QCOMPARE(text, QString(2000, QLatin1Char(child == 0 ? 'a' : 'b')) + match.captured(3));
        // Each process's records in the order it sent them.
        QCOMPARE(match.captured(3).toInt(), seen[child]++);
    }
    QCOMPARE(seen[0], PerProcess);
    QCOMPARE(seen[1], PerProcess);
}

ZQL_SANDBOXED_TEST_MAIN(EventLogTest)
#include "eventlogtest.moc"
