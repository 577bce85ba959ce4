// The reference platform's audit database: store and read back, entries of other types and
// names, a damaged file of every kind, the atomic replacement and two processes at once.
#include "processesatonce.h"
#include "scratchmounts.h"
#include "systemfixture.h"
#include "testmain.h"

#include "tessel/auditdb.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
const QString DatabaseDir = QStringLiteral("/etc/zql-platform");
const QString Database = QStringLiteral("/etc/zql-platform/auddb");
const QString LockFile = QStringLiteral("/etc/zql-platform/auddb.lock");
const QByteArray Header = "zql-platform-auddb 1\n";

// Opens, stores one entry and closes. @return putaudent_r's result, or -2 when the open failed.
int store(int32_t type, const char *name, uint32_t success, uint32_t fail)
{
    auddb *db = openauddb_r();
    if (db == nullptr)
        return -2;
    audent entry = {};
    entry.ae_type = type;
    entry.ae_name = const_cast<char *>(name);
    entry.ae_success = success;
    entry.ae_fail = fail;
    const int result = putaudent_r(db, &entry);
    closeauddb_r(db);
    return result;
}

// "type:name:success:fail" of the entry looked up, "none", or "open failed: <errno>".
QString lookUp(int32_t type, const char *name)
{
    auddb *db = openauddb_r();
    if (db == nullptr)
        return QStringLiteral("open failed: %1").arg(errno);
    audent *entry = getaudtype_r(db, type, name);
    QString result = QStringLiteral("none");
    if (entry != nullptr) {
        result = QStringLiteral("%1:%2:%3:%4")
                     .arg(entry->ae_type)
                     .arg(QString::fromUtf8(entry->ae_name))
                     .arg(entry->ae_success)
                     .arg(entry->ae_fail);
        freeaudent_r(entry);
    }
    closeauddb_r(db);
    return result;
}
} // namespace

class AuditDbTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void simulatedDefaultEntry();
    void storeThenReadBack();
    void noDefaultEntry();
    void otherEntriesKept();
    void nameWithSeparatorRefused();
    void nullArguments();
    void missingDatabase();
    void damaged_data();
    void damaged();
    void tooLarge();
    void directoryInPlace();
    void modeKeptAndNoTemporaryLeft();
    void fullFileSystemKeepsOldDatabase();
    void handleHoldsLock();
    void twoProcessesAtOnce();

private:
    QByteArray m_original;
    ZqlTest::ScratchMounts m_mounts;
};

void AuditDbTest::initTestCase()
{
    m_original = ZqlTest::readBytes(Database);
    QVERIFY(!m_original.isEmpty());
}

void AuditDbTest::init()
{
    cleanup();
}

void AuditDbTest::cleanup()
{
    QString error;
    QVERIFY2(m_mounts.unmountAll(&error), qPrintable(error));
    if (QFileInfo(Database).isDir())
        QVERIFY(QDir(Database).removeRecursively());
    QVERIFY(ZqlTest::writeBytes(Database, m_original));
    QVERIFY(QFile::setPermissions(Database, QFile::ReadOwner | QFile::WriteOwner |
                                                QFile::ReadGroup | QFile::ReadOther));
}

void AuditDbTest::simulatedDefaultEntry()
{
    QCOMPARE(m_original, Header + "4::0x00000006:0x0000003f\n");
    QCOMPARE(lookUp(4, ""), QStringLiteral("4::6:63"));
}

void AuditDbTest::storeThenReadBack()
{
    QCOMPARE(store(4, nullptr, 0xdeadbeefU, 0x1U), 0);
    QCOMPARE(lookUp(4, ""), QStringLiteral("4::3735928559:1"));
    QCOMPARE(lookUp(4, nullptr), QStringLiteral("4::3735928559:1"));
    QCOMPARE(ZqlTest::readBytes(Database), Header + "4::0xdeadbeef:0x00000001\n");
    // A stored entry is seen by the same handle at once.
    auddb *db = openauddb_r();
    QVERIFY(db != nullptr);
    audent entry = {};
    entry.ae_type = 4;
    entry.ae_success = 7;
    QCOMPARE(putaudent_r(db, &entry), 0);
    audent *read = getaudtype_r(db, 4, "");
    QVERIFY(read != nullptr);
    QCOMPARE(read->ae_success, 7U);
    QCOMPARE(read->ae_fail, 0U);
    freeaudent_r(read);
    closeauddb_r(db);
}

void AuditDbTest::noDefaultEntry()
{
    QVERIFY(ZqlTest::writeBytes(Database, Header));
    QCOMPARE(lookUp(4, ""), QStringLiteral("none"));
    QVERIFY(ZqlTest::writeBytes(Database, Header + "4:x:0x00000001:0x00000001\n"));
    QCOMPARE(lookUp(4, ""), QStringLiteral("none"));
    QCOMPARE(lookUp(4, "x"), QStringLiteral("4:x:1:1"));
    QCOMPARE(lookUp(-1, ""), QStringLiteral("none"));
}

void AuditDbTest::otherEntriesKept()
{
    QVERIFY(ZqlTest::writeBytes(Database, Header + "-7:b:0x00000001:0x00000002\n"));
    QCOMPARE(store(4, "", 3, 4), 0);
    QCOMPARE(store(-7, "b", 5, 6), 0);
    QCOMPARE(store(4, "user name", 7, 8), 0);
    QCOMPARE(ZqlTest::readBytes(Database), Header + "-7:b:0x00000005:0x00000006\n"
                                                    "4::0x00000003:0x00000004\n"
                                                    "4:user name:0x00000007:0x00000008\n");
    QCOMPARE(lookUp(-7, "b"), QStringLiteral("-7:b:5:6"));
}

void AuditDbTest::nameWithSeparatorRefused()
{
    errno = 0;
    QCOMPARE(store(4, "a:b", 1, 1), -1);
    QCOMPARE(errno, EINVAL);
    QCOMPARE(store(4, "a\nb", 1, 1), -1);
    QCOMPARE(ZqlTest::readBytes(Database), m_original);
}

void AuditDbTest::nullArguments()
{
    errno = 0;
    QVERIFY(getaudtype_r(nullptr, 4, "") == nullptr);
    QCOMPARE(errno, EINVAL);
    QCOMPARE(putaudent_r(nullptr, nullptr), -1);
    auddb *db = openauddb_r();
    QVERIFY(db != nullptr);
    QCOMPARE(putaudent_r(db, nullptr), -1);
    QCOMPARE(errno, EINVAL);
    closeauddb_r(db);
    closeauddb_r(nullptr);
    freeaudent_r(nullptr);
}

void AuditDbTest::missingDatabase()
{
    QVERIFY(QFile::remove(Database));
    errno = 0;
    QVERIFY(openauddb_r() == nullptr);
    QCOMPARE(errno, ENOENT);
}

void AuditDbTest::damaged_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no header") << QByteArray("4::0x00000006:0x0000003f\n");
    QTest::newRow("other version") << QByteArray("zql-platform-auddb 2\n");
    QTest::newRow("last line without line feed") << Header + "4::0x00000006:0x0000003f";
    QTest::newRow("decimal mask") << Header + "4::6:63\n";
    QTest::newRow("short mask") << Header + "4::0x6:0x0000003f\n";
    QTest::newRow("upper-case mask") << Header + "4::0x0000000A:0x0000003f\n";
    QTest::newRow("too few fields") << Header + "4:0x00000006:0x0000003f\n";
    QTest::newRow("too many fields") << Header + "4:a:b:0x00000006:0x0000003f\n";
    QTest::newRow("type not a number") << Header + "four::0x00000006:0x0000003f\n";
    QTest::newRow("type out of range") << Header + "2147483648::0x00000006:0x0000003f\n";
    QTest::newRow("empty line") << Header + "\n";
    QTest::newRow("same entry twice")
        << Header + "4::0x00000006:0x0000003f\n4::0x00000001:0x00000001\n";
    QTest::newRow("binary garbage") << QByteArray("\x7f"
                                                  "ELF\x02\x01\x01\0\0\0",
                                                  10);
}

void AuditDbTest::damaged()
{
    QFETCH(QByteArray, content);
    QVERIFY(ZqlTest::writeBytes(Database, content));
    errno = 0;
    QVERIFY(openauddb_r() == nullptr);
    QCOMPARE(errno, EBADMSG);
    // A damaged database is never rewritten by a failed open.
    QCOMPARE(ZqlTest::readBytes(Database), content);
}

void AuditDbTest::tooLarge()
{
    QVERIFY(ZqlTest::writeBytes(Database, Header + QByteArray(2 << 20, '\n')));
    errno = 0;
    QVERIFY(openauddb_r() == nullptr);
    QCOMPARE(errno, EFBIG);
}

void AuditDbTest::directoryInPlace()
{
    QVERIFY(QFile::remove(Database));
    QVERIFY(QDir().mkdir(Database));
    errno = 0;
    QVERIFY(openauddb_r() == nullptr);
    QCOMPARE(errno, EBADMSG);
}

void AuditDbTest::modeKeptAndNoTemporaryLeft()
{
    QVERIFY(::chmod(Database.toLocal8Bit().constData(), 0600) == 0);
    QCOMPARE(store(4, "", 1, 2), 0);
    struct stat status = {};
    QVERIFY(::stat(Database.toLocal8Bit().constData(), &status) == 0);
    QCOMPARE(status.st_mode & 07777, 0600U);
    const QStringList left =
        QDir(DatabaseDir).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(left.filter(QStringLiteral(".auddb.")), QStringList());
}

void AuditDbTest::fullFileSystemKeepsOldDatabase()
{
    QString error;
    QVERIFY2(m_mounts.tmpfs(DatabaseDir, QStringLiteral("size=16k"), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(Database, m_original));
    QVERIFY(ZqlTest::writeBytes(LockFile, {}));
    ZqlTest::fillFileSystem(DatabaseDir);
    errno = 0;
    QCOMPARE(store(4, "", 1, 2), -1);
    QCOMPARE(errno, ENOSPC);
    QCOMPARE(ZqlTest::readBytes(Database), m_original);
    const QStringList left =
        QDir(DatabaseDir).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    QCOMPARE(left.filter(QStringLiteral(".auddb.")), QStringList());
}

void AuditDbTest::handleHoldsLock()
{
    auddb *db = openauddb_r();
    QVERIFY(db != nullptr);
    const int probe = ::open(LockFile.toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
    QVERIFY(probe >= 0);
    QCOMPARE(::flock(probe, LOCK_EX | LOCK_NB), -1);
    QCOMPARE(errno, EWOULDBLOCK);
    closeauddb_r(db);
    QCOMPARE(::flock(probe, LOCK_EX | LOCK_NB), 0);
    ::close(probe);
}

void AuditDbTest::twoProcessesAtOnce()
{
    // Each process adds its own entries, one open-store-close at a time; none may be lost to
    // the other's read-modify-write.
    constexpr int PerProcess = 40;
    QVERIFY(ZqlTest::runProcessesAtOnce(2, [](int child) {
        for (int i = 0; i < PerProcess; ++i) {
            const QByteArray name = "p" + QByteArray::number(child) + "-" + QByteArray::number(i);
            if (store(5, name.constData(), static_cast<uint32_t>(i), 0) != 0)
                return false;
        }
        return true;
    }));
    const QList<QByteArray> lines = ZqlTest::readBytes(Database).split('\n');
    QCOMPARE(lines.size(), 2 + 2 * PerProcess + 1); // header, default entry, the new, the end
    for (int child = 0; child < 2; ++child) {
        for (int i = 0; i < PerProcess; ++i) {
            const QByteArray name = "p" + QByteArray::number(child) + "-" + QByteArray::number(i);
            QCOMPARE(lookUp(5, name.constData()),
                     QStringLiteral("5:%1:%2:0").arg(QString::fromLatin1(name)).arg(i));
        }
    }
}

ZQL_SANDBOXED_TEST_MAIN(AuditDbTest)
#include "auditdbtest.moc"
