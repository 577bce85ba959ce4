#include "systemfixture.h"
#include "testmain.h"

#include "tessel/macdb.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ZqlTest;

namespace {
const QString DatabaseDir = QStringLiteral("/etc/zql-platform/mac");
const QString CategoriesFile = QStringLiteral("/etc/zql-platform/mac/categories");
const QString LevelsFile = QStringLiteral("/etc/zql-platform/mac/levels");
const QString LabelsFile = QStringLiteral("/etc/zql-platform/mac/labels");

struct Level
{
    int level;
    QByteArray name;
    bool operator==(const Level &other) const { return level == other.level && name == other.name; }
};

QList<Level> readLevels()
{
    QList<Level> levels;
    tessel_levdb *db = openlevdb_r();
    if (!db || setlevent_r(db) < 0) {
        closelevdb_r(db);
        return levels;
    }
    while (tessel_levent *record = getlevent_r(db)) {
        levels << Level{record->lev_level, QByteArray(record->lev_name)};
        freelevent_r(record);
    }
    endlevent_r(db);
    closelevdb_r(db);
    return levels;
}

int putLevel(int level, const QByteArray &name)
{
    tessel_levdb *db = openlevdb_r();
    if (!db)
        return -1;
    auto *record = static_cast<tessel_levent *>(std::calloc(1, sizeof(tessel_levent)));
    record->lev_name = strdup(name.constData());
    record->lev_level = static_cast<unsigned char>(level);
    const int result = putlevent_r(db, record);
    const int error = errno;
    freelevent_r(record);
    closelevdb_r(db);
    errno = error;
    return result;
}

int putCategory(quint64 mask, const QByteArray &name)
{
    tessel_catdb *db = opencatdb_r();
    if (!db)
        return -1;
    auto *record = static_cast<tessel_catent *>(std::calloc(1, sizeof(tessel_catent)));
    record->cat_name = strdup(name.constData());
    record->cat_mask = mask;
    const int result = putcatent_r(db, record);
    const int error = errno;
    freecatent_r(record);
    closecatdb_r(db);
    errno = error;
    return result;
}

QStringList leftovers()
{
    return QDir(DatabaseDir).entryList({QStringLiteral(".*.??????")}, QDir::Files | QDir::Hidden);
}
} // namespace

class MacDbTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void simulatedSystemHasTheDatabases();
    void storeThenReadBack();
    void storeReplacesTheSameNumber();
    void namesAreStoredByteForByte_data();
    void namesAreStoredByteForByte();
    void damagedLinesAreSkippedAndKept();
    void openFailures();
    void rewindFailure();
    void invalidRecords();
    void categoriesAreStoredWithTheirMask();
    void labels();
    void modeIsKept();
    void fullFileSystemKeepsTheOldFile();
    void twoProcessesStoringAtOnce();

private:
    bool m_mounted = false;
};

void MacDbTest::init()
{
    QVERIFY(QDir().mkpath(DatabaseDir));
    QVERIFY(writeBytes(CategoriesFile, "0x0000000000000001:One\n"));
    QVERIFY(writeBytes(LevelsFile, "# levels\n0:Zero\n1:One\n"));
    QVERIFY(writeBytes(LabelsFile, "01000000000000000000000000000000:"
                                   "02000000000000000000000000000000:alice\n"));
}

void MacDbTest::cleanup()
{
    if (m_mounted) {
        QString error;
        QVERIFY2(unmount(DatabaseDir, &error), qPrintable(error));
        m_mounted = false;
    }
}

void MacDbTest::simulatedSystemHasTheDatabases()
{
    // The layer's files (init() has replaced them here; their format is the same).
    QVERIFY(QFile::exists(CategoriesFile));
    QVERIFY(QFile::exists(LevelsFile));
    QVERIFY(QFile::exists(LabelsFile));
}

void MacDbTest::storeThenReadBack()
{
    QCOMPARE(putLevel(7, "Seven"), 0);
    QCOMPARE(readLevels(), QList<Level>({{0, "Zero"}, {1, "One"}, {7, "Seven"}}));
    QCOMPARE(readBytes(LevelsFile), QByteArray("# levels\n0:Zero\n1:One\n7:Seven\n"));
    QVERIFY(leftovers().isEmpty());
}

void MacDbTest::storeReplacesTheSameNumber()
{
    QVERIFY(writeBytes(LevelsFile, "0:Zero\n1:One\n2:Two\n1:Again one\n"));
    QCOMPARE(putLevel(1, "First"), 0);
    QCOMPARE(readBytes(LevelsFile), QByteArray("0:Zero\n1:First\n2:Two\n"));
}

void MacDbTest::namesAreStoredByteForByte_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("blanks") << QByteArray("Top secret") << QByteArray("3:Top secret\n");
    QTest::newRow("colons") << QByteArray("a:b::c") << QByteArray("3:a:b::c\n");
    QTest::newRow("percent") << QByteArray("100%") << QByteArray("3:100%25\n");
    QTest::newRow("line break and tab")
        << QByteArray("a\nb\tc\r") << QByteArray("3:a%0ab%09c%0d\n");
    QTest::newRow("UTF-8") << QByteArray("\xd0\xa1\xd0\xb5\xd0\xba\xd1\x80\xd0\xb5\xd1\x82")
                           << QByteArray("3:\xd0\xa1\xd0\xb5\xd0\xba\xd1\x80\xd0\xb5\xd1\x82\n");
    QTest::newRow("Latin-1 byte") << QByteArray("caf\xe9") << QByteArray("3:caf\xe9\n");
    QTest::newRow("hash sign first") << QByteArray("#1") << QByteArray("3:#1\n");
}

void MacDbTest::namesAreStoredByteForByte()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, line);
    QVERIFY(writeBytes(LevelsFile, {}));
    QCOMPARE(putLevel(3, name), 0);
    QCOMPARE(readBytes(LevelsFile), line);
    QCOMPARE(readLevels(), QList<Level>({{3, name}}));
}

void MacDbTest::damagedLinesAreSkippedAndKept()
{
    const QByteArray text = "0:Zero\n"
                            "no colon\n"
                            "256:Too high\n"
                            "-1:Negative\n"
                            "x:Not a number\n"
                            "4:\n"
                            "5:Bad %g1 escape\n"
                            "6:Cut %4\n"
                            "7:Nul %00\n"
                            "\n"
                            "8:Eight";
    QVERIFY(writeBytes(LevelsFile, text));
    QCOMPARE(readLevels(), QList<Level>({{0, "Zero"}, {8, "Eight"}}));
    // A store keeps what it cannot read.
    QCOMPARE(putLevel(9, "Nine"), 0);
    QCOMPARE(readBytes(LevelsFile), text + "\n9:Nine\n");
}

void MacDbTest::openFailures()
{
    QVERIFY(QFile::remove(LevelsFile));
    errno = 0;
    QVERIFY(!openlevdb_r());
    QCOMPARE(errno, ENOENT);
    QVERIFY(QDir().mkdir(LevelsFile));
    errno = 0;
    QVERIFY(!openlevdb_r());
    QCOMPARE(errno, EISDIR);
    QVERIFY(QDir().rmdir(LevelsFile));
    QVERIFY(QFile::remove(CategoriesFile));
    QVERIFY(!opencatdb_r());
    QCOMPARE(errno, ENOENT);
    QVERIFY(QFile::remove(LabelsFile));
    QVERIFY(!openmacdb_r());
    QCOMPARE(errno, ENOENT);
}

void MacDbTest::rewindFailure()
{
    tessel_catdb *db = opencatdb_r();
    QVERIFY(db);
    QVERIFY(QFile::remove(CategoriesFile));
    errno = 0;
    QVERIFY(setcatent_r(db) < 0);
    QCOMPARE(errno, ENOENT);
    QVERIFY(!getcatent_r(db));
    closecatdb_r(db);
    QVERIFY(setcatent_r(nullptr) < 0);
    closecatdb_r(nullptr);
}

void MacDbTest::invalidRecords()
{
    tessel_levdb *db = openlevdb_r();
    QVERIFY(db);
    tessel_levent empty{const_cast<char *>(""), 1};
    QCOMPARE(putlevent_r(db, &empty), -1);
    QCOMPARE(errno, EINVAL);
    tessel_levent none{nullptr, 1};
    QCOMPARE(putlevent_r(db, &none), -1);
    QCOMPARE(putlevent_r(db, nullptr), -1);
    closelevdb_r(db);
    QCOMPARE(readBytes(LevelsFile), QByteArray("# levels\n0:Zero\n1:One\n"));
}

void MacDbTest::categoriesAreStoredWithTheirMask()
{
    QCOMPARE(putCategory(quint64(1) << 63, "Top"), 0);
    QCOMPARE(putCategory(1, "Uno"), 0);
    QCOMPARE(readBytes(CategoriesFile),
             QByteArray("0x0000000000000001:Uno\n0x8000000000000000:Top\n"));
    QVERIFY(writeBytes(CategoriesFile, "0x1:Short\n0XfF:Upper\n"));
    tessel_catdb *db = opencatdb_r();
    QVERIFY(db);
    QCOMPARE(setcatent_r(db), 0);
    tessel_catent *first = getcatent_r(db);
    QVERIFY(first);
    QCOMPARE(first->cat_mask, quint64(1));
    freecatent_r(first);
    tessel_catent *second = getcatent_r(db);
    QVERIFY(second);
    QCOMPARE(second->cat_mask, quint64(0xff));
    freecatent_r(second);
    QVERIFY(!getcatent_r(db));
    endcatent_r(db);
    QVERIFY(!getcatent_r(db));
    closecatdb_r(db);
}

void MacDbTest::labels()
{
    QVERIFY(writeBytes(LabelsFile, "# labels\n"
                                   "damaged\n"
                                   "01000000000000000000000000000000:"
                                   "02000000000000000000000000000000:alice\n"
                                   "ff00000000000000000000000000000a:"
                                   "00000000000000000000000000000000:bob\n"));
    tessel_macdb *db = openmacdb_r();
    QVERIFY(db);
    tessel_macent *bob = getmacnam_r(db, "bob");
    QVERIFY(bob);
    QCOMPARE(QByteArray(bob->mac_name), QByteArray("bob"));
    QCOMPARE(int(bob->mac_label[0][0]), 0xff);
    QCOMPARE(int(bob->mac_label[0][15]), 0x0a);
    freemacent_r(bob);
    errno = 0;
    QVERIFY(!getmacnam_r(db, "carol"));
    QCOMPARE(errno, ENOENT);
    closemacdb_r(db);
}

void MacDbTest::modeIsKept()
{
    QVERIFY(QFile::setPermissions(LevelsFile, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                  QFileDevice::ReadGroup));
    QCOMPARE(putLevel(2, "Two"), 0);
    struct stat info = {};
    QCOMPARE(::stat(LevelsFile.toLocal8Bit().constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0640));
}

void MacDbTest::fullFileSystemKeepsTheOldFile()
{
    const QByteArray levels = readBytes(LevelsFile);
    QString error;
    QVERIFY2(mountTmpfs(DatabaseDir, QStringLiteral("size=12k"), &error), qPrintable(error));
    m_mounted = true;
    QVERIFY(writeBytes(LevelsFile, levels));
    errno = 0;
    QCOMPARE(putLevel(5, QByteArray(64 * 1024, 'x')), -1);
    QCOMPARE(errno, ENOSPC);
    QCOMPARE(readBytes(LevelsFile), levels);
    QVERIFY(leftovers().isEmpty());
    QCOMPARE(readLevels(), QList<Level>({{0, "Zero"}, {1, "One"}}));
}

void MacDbTest::twoProcessesStoringAtOnce()
{
    QVERIFY(writeBytes(LevelsFile, {}));
    constexpr int PerProcess = 100;
    pid_t children[2];
    for (int i = 0; i < 2; ++i) {
        children[i] = ::fork();
        QVERIFY(children[i] >= 0);
        if (children[i] == 0) {
            int failures = 0;
            for (int n = 0; n < PerProcess; ++n) {
                const int level = i * PerProcess + n;
                failures += putLevel(level, "Level " + QByteArray::number(level) + " of " +
                                                QByteArray::number(i)) != 0;
            }
            ::_exit(failures == 0 ? 0 : 1);
        }
    }
    for (pid_t child : children) {
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFEXITED(status));
        QCOMPARE(WEXITSTATUS(status), 0);
    }
    const QList<Level> levels = readLevels();
    QCOMPARE(levels.size(), 2 * PerProcess);
    for (const Level &level : levels) {
        const int owner = level.level / PerProcess;
        QCOMPARE(level.name,
                 "Level " + QByteArray::number(level.level) + " of " + QByteArray::number(owner));
    }
    QVERIFY(leftovers().isEmpty());
}

ZQL_SANDBOXED_TEST_MAIN(MacDbTest)
#include "macdbtest.moc"
