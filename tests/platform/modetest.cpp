#include "systemfixture.h"
#include "testmain.h"

#include "velaadmin/mode.h"

#include <QDir>
#include <QFile>

namespace {
const QString ModeFile = QStringLiteral("/etc/zql-platform/security-mode");
}

class ModeTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void simulatedSystemIsInMode2();
    void modeFile_data();
    void modeFile();
    void missingFileIsMode0();
    void directoryIsMode0();
};

void ModeTest::simulatedSystemIsInMode2()
{
    QCOMPARE(VelaAdmin::Mode::getCurrentMode(), 2);
}

void ModeTest::modeFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("mode");
    QTest::newRow("0") << QByteArray("0\n") << 0;
    QTest::newRow("1") << QByteArray("1\n") << 1;
    QTest::newRow("2 without line break") << QByteArray("2") << 2;
    QTest::newRow("3") << QByteArray("3\n") << 3;
    QTest::newRow("blanks around") << QByteArray("  1 \t\n") << 1;
    QTest::newRow("only the first line counts") << QByteArray("1\n2\n") << 1;
    QTest::newRow("empty") << QByteArray() << 0;
    QTest::newRow("not a number") << QByteArray("secure\n") << 0;
    QTest::newRow("number with trailing text") << QByteArray("2 modes\n") << 0;
    QTest::newRow("hexadecimal is not read") << QByteArray("0x2\n") << 0;
    QTest::newRow("too long to be a mode file") << QByteArray(100, ' ') + "1\n" << 0;
}

void ModeTest::modeFile()
{
    QFETCH(QByteArray, content);
    QFETCH(int, mode);
    QVERIFY(ZqlTest::writeBytes(ModeFile, content));
    QCOMPARE(VelaAdmin::Mode::getCurrentMode(), mode);
}

void ModeTest::missingFileIsMode0()
{
    QFile::remove(ModeFile);
    QVERIFY(!QFile::exists(ModeFile));
    QCOMPARE(VelaAdmin::Mode::getCurrentMode(), 0);
}

void ModeTest::directoryIsMode0()
{
    QFile::remove(ModeFile);
    QVERIFY(QDir().mkdir(ModeFile));
    QCOMPARE(VelaAdmin::Mode::getCurrentMode(), 0);
    QVERIFY(QDir().rmdir(ModeFile));
}

ZQL_SANDBOXED_TEST_MAIN(ModeTest)
#include "modetest.moc"
