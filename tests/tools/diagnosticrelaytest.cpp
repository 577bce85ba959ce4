// DiagnosticRelay: the library's diagnostics pass through byte for byte, and a line one of them
// leaves open is ended before anything else is written.
#include "diagnosticrelay.h"
#include "messages.h"
#include "outputcapture.h"
#include "progressreporter.h"

#include <QTextStream>
#include <QtTest>

#include <unistd.h>

namespace {

// Writes as the library does: a text stream over the C stream, flushed per diagnostic.
void libraryWrites(FILE *stream, const char *text)
{
    QTextStream out(stream, QIODevice::WriteOnly);
    out << QString::fromUtf8(text) << Qt::flush;
}

} // namespace

using ZqlPolicy::DiagnosticRelay;
using ZqlPolicy::Messages;

class DiagnosticRelayTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void openLineEndedBeforeOwnLine();
    void openLineEndedBetweenModules();
    void wholeLinesUntouched();
    void notesToStandardError();
    void bothStreamsOnOneFileKeepTheirOrder();
    void largeOutputDoesNotBlock();
    void streamsPutBack();
    void withoutRelayWritesDirectly();
};

void DiagnosticRelayTest::openLineEndedBeforeOwnLine()
{
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay;
        QVERIFY(relay.ok());
        libraryWrites(stderr, "Failed to load security options .\nexecvp: No such file");
        Messages::report(QStringLiteral("applied: a"));
    }
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("Failed to load security options .\n"
                                                 "execvp: No such file\n"
                                                 "zql-policy: applied: a\n"));
    QCOMPARE(capture.standardOutput(), QByteArray());
}

void DiagnosticRelayTest::openLineEndedBetweenModules()
{
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay;
        libraryWrites(stderr, "first: directory");
        DiagnosticRelay::endLines();
        libraryWrites(stderr, "second: directory");
        DiagnosticRelay::endLines();
        libraryWrites(stdout, "a note without its line feed");
    }
    // The relay's end ends the last open line too.
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("first: directory\nsecond: directory\n"));
    QCOMPARE(capture.standardOutput(), QByteArray("a note without its line feed\n"));
}

void DiagnosticRelayTest::wholeLinesUntouched()
{
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay;
        libraryWrites(stderr, "one : text\n");
        libraryWrites(stderr, "two : te");
        libraryWrites(stderr, "xt\n"); // one line in two writes stays one line
        DiagnosticRelay::endLines();
        libraryWrites(stdout, "note : \xd0\xb4\n");
        Messages::report(QStringLiteral("done"));
    }
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("one : text\ntwo : text\nzql-policy: done\n"));
    QCOMPARE(capture.standardOutput(), QByteArray("note : \xd0\xb4\n"));
}

void DiagnosticRelayTest::notesToStandardError()
{
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay(DiagnosticRelay::Notes::ToStandardError);
        // Both now lead to one file: they stay in the order the module wrote them.
        libraryWrites(stdout, "a note");
        libraryWrites(stderr, "an error\n");
        // Our own standard output is the real one.
        DiagnosticRelay::write(STDOUT_FILENO, "{}\n");
    }
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("a notean error\n"));
    QCOMPARE(capture.standardOutput(), QByteArray("{}\n"));
}

void DiagnosticRelayTest::bothStreamsOnOneFileKeepTheirOrder()
{
    ZqlTest::OutputCapture capture(ZqlTest::OutputCapture::MergedChannels);
    {
        DiagnosticRelay relay;
        for (int i = 0; i < 50; ++i) {
            libraryWrites(stdout, "note\n");
            libraryWrites(stderr, "error\n");
        }
        libraryWrites(stderr, "open");
        Messages::writeLine(STDOUT_FILENO, QStringLiteral("ours"));
    }
    capture.finish();
    QByteArray expected;
    for (int i = 0; i < 50; ++i)
        expected += "note\nerror\n";
    QCOMPARE(capture.standardOutput(), expected + "open\nours\n");
}

void DiagnosticRelayTest::largeOutputDoesNotBlock()
{
    // More than a pipe holds, written in one go while nothing else reads.
    const QByteArray text(1 << 20, 'x');
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay;
        QCOMPARE(::write(STDERR_FILENO, text.constData(), size_t(text.size())),
                 ssize_t(text.size()));
    }
    capture.finish();
    QCOMPARE(capture.standardError(), text + '\n');
}

void DiagnosticRelayTest::streamsPutBack()
{
    ZqlTest::OutputCapture capture;
    {
        DiagnosticRelay relay;
        QCOMPARE(DiagnosticRelay::realFd(STDERR_FILENO) == STDERR_FILENO, false);
        // A progress reporter asks about the real stream: a file here, so it stays silent.
        ZqlPolicy::ProgressReporter progress(STDERR_FILENO);
    }
    QCOMPARE(DiagnosticRelay::realFd(STDERR_FILENO), STDERR_FILENO);
    libraryWrites(stderr, "after\n");
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("after\n"));
}

void DiagnosticRelayTest::withoutRelayWritesDirectly()
{
    ZqlTest::OutputCapture capture;
    DiagnosticRelay::endLines();
    DiagnosticRelay::write(STDERR_FILENO, "plain\n");
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("plain\n"));
}

QTEST_GUILESS_MAIN(DiagnosticRelayTest)
#include "diagnosticrelaytest.moc"
