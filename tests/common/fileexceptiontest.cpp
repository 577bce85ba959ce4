
#include <zql-modules/modules.h>

#include <QtTest>

#include <type_traits>

class FileExceptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fields();
    void hierarchy();
    void caughtByBaseType();
};

void FileExceptionTest::fields()
{
    const FileException base(QStringLiteral("/etc/a"), QStringLiteral("reason"));
    QCOMPARE(base.fileName(), QStringLiteral("/etc/a"));
    QCOMPARE(base.errorString(), QStringLiteral("reason"));

    const FileNotExistException missing(QStringLiteral("/etc/b"));
    QCOMPARE(missing.fileName(), QStringLiteral("/etc/b"));
    QCOMPARE(missing.errorString(), QString());
    QVERIFY(missing.errorString().isEmpty());

    const OpenFileException open(QStringLiteral("/etc/c"), QIODevice::WriteOnly | QIODevice::Text,
                                 QStringLiteral("Permission denied"));
    QCOMPARE(open.fileName(), QStringLiteral("/etc/c"));
    QCOMPARE(open.errorString(), QStringLiteral("Permission denied"));
    QCOMPARE(open.openMode(), int(QIODevice::WriteOnly | QIODevice::Text));

    const WriteFileException write(QStringLiteral("/etc/d"), QStringLiteral("No space left"));
    QCOMPARE(write.fileName(), QStringLiteral("/etc/d"));
    QCOMPARE(write.errorString(), QStringLiteral("No space left"));
}

void FileExceptionTest::hierarchy()
{
    static_assert(std::is_base_of<QException, FileException>::value, "a QException");
    static_assert(std::is_base_of<FileException, FileNotExistException>::value, "");
    static_assert(std::is_base_of<FileException, OpenFileException>::value, "");
    static_assert(std::is_base_of<FileException, WriteFileException>::value, "");
    QVERIFY(std::has_virtual_destructor<FileException>::value);
}

void FileExceptionTest::caughtByBaseType()
{
    QString caught;
    try {
        throw OpenFileException(QStringLiteral("/etc/tessel/x"), QIODevice::ReadOnly,
                                QStringLiteral("denied"));
    } catch (const FileException &e) {
        caught = e.fileName() + QLatin1Char('|') + e.errorString();
    }
    QCOMPARE(caught, QStringLiteral("/etc/tessel/x|denied"));

    bool asQException = false;
    try {
        throw WriteFileException(QStringLiteral("/f"), QStringLiteral("e"));
    } catch (const QException &) {
        asQException = true;
    }
    QVERIFY(asQException);
}

QTEST_GUILESS_MAIN(FileExceptionTest)
#include "fileexceptiontest.moc"
