#include <zql-modules/modules.h>

#include <QtTest>

class CommandLineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void split_data();
    void split();
    void isValid_data();
    void isValid();
};

void CommandLineTest::split_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("empty") << QString() << QString() << QString() << QStringList();
    QTest::newRow("blanks only") << QStringLiteral("   ") << QString() << QString()
                                 << QStringList();
    QTest::newRow("absolute program")
        << QStringLiteral("/opt/app  -x   y") << QStringLiteral("/opt/app -x y")
        << QStringLiteral("/opt/app") << QStringList{QStringLiteral("-x"), QStringLiteral("y")};
    // sh is in /usr/bin and /bin on Debian 12 (merged /usr): the first directory wins.
    QTest::newRow("found in the search directories")
        << QStringLiteral(" sh -c true") << QStringLiteral("/usr/bin/sh -c true")
        << QStringLiteral("/usr/bin/sh")
        << QStringList{QStringLiteral("-c"), QStringLiteral("true")};
    QTest::newRow("found nowhere stays relative")
        << QStringLiteral("no-such-program-here a") << QStringLiteral("no-such-program-here a")
        << QStringLiteral("no-such-program-here") << QStringList{QStringLiteral("a")};
    QTest::newRow("tabs are no separators")
        << QStringLiteral("a\tb c") << QStringLiteral("a\tb c") << QStringLiteral("a\tb")
        << QStringList{QStringLiteral("c")};
}

void CommandLineTest::split()
{
    QFETCH(QString, text);
    QFETCH(QString, command);
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);

    const CommandLine line(text);
    QCOMPARE(line.command(), command);
    QCOMPARE(line.program(), program);
    QCOMPARE(line.arguments(), arguments);
}

void CommandLineTest::isValid_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");

    QTest::newRow("empty") << QString() << false;
    QTest::newRow("executable found by name") << QStringLiteral("sh -c x") << true;
    QTest::newRow("absolute executable") << QStringLiteral("/bin/sh") << true;
    QTest::newRow("absolute, missing") << QStringLiteral("/nonexistent/app") << false;
    QTest::newRow("absolute, not executable") << QStringLiteral("/etc/passwd") << false;
    QTest::newRow("absolute, a directory") << QStringLiteral("/usr/bin") << false;
    QTest::newRow("semicolon") << QStringLiteral("/bin/sh a;b") << false;
    QTest::newRow("colon") << QStringLiteral("/bin/sh a:b") << false;
    QTest::newRow("ampersand") << QStringLiteral("/bin/sh &") << false;
    QTest::newRow("question mark") << QStringLiteral("/bin/sh ?") << false;
    QTest::newRow("<> pair") << QStringLiteral("/bin/sh <>") << false;
    QTest::newRow("<> with commas") << QStringLiteral("/bin/sh x<>,,") << false;
    QTest::newRow("single < is let through") << QStringLiteral("/bin/sh <") << true;
    QTest::newRow("single > is let through") << QStringLiteral("/bin/sh >") << true;
    QTest::newRow("pipe is let through") << QStringLiteral("/bin/sh |") << true;
    QTest::newRow("><  is let through") << QStringLiteral("/bin/sh ><") << true;
    QTest::newRow("relative ASCII program found nowhere")
        << QStringLiteral("no-such-program-here") << false;
    QTest::newRow("relative program with non-ASCII") << QString::fromUtf8("программа -x") << true;
    QTest::newRow("relative path with non-ASCII") << QString::fromUtf8("dir/прог") << false;
}

void CommandLineTest::isValid()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);

    QCOMPARE(CommandLine(text).isValid(), valid);
}

QTEST_GUILESS_MAIN(CommandLineTest)
#include "commandlinetest.moc"
