#include "macfixture.h"
#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>

#include <sys/stat.h>

using namespace ZqlTest;
using Settings = QHash<QString, QVariant>;

namespace {
const QString PasswdFile = QStringLiteral("/etc/passwd");
const QString DatabaseDir = QStringLiteral("/etc/zql-platform/mac");
const QString CategoriesFile = QStringLiteral("/etc/zql-platform/mac/categories");
const QString LevelsFile = QStringLiteral("/etc/zql-platform/mac/levels");
const QString LabelsFile = QStringLiteral("/etc/zql-platform/mac/labels");
const QString CategoriesKey = QStringLiteral("mac-categories");
const QString LevelsKey = QStringLiteral("mac-levels");

const QByteArray Categories = "# categories\n"
                              "0x0000000000000000:Nothing\n"
                              "0x0000000000000001:Finance\n"
                              "0x0000000000000003:Two bits\n"
                              "0x0000000000000008:Early name\n"
                              "0x8000000000000000:Top\n"
                              "0x0000000000000008:Later name\n"
                              "0x0000000000000010:\xc3\x96"
                              "ffentlich: Presse\n";
const QByteArray Levels = "0:Unclassified\n1:Restricted\n2:Confidential\n3:Secret\n";
const QByteArray Labels =
    "03000000000000000000000000000000:05000000000000000000000000000000:alice\n";

quint64 inode(const QString &path)
{
    struct stat info = {};
    return ::stat(path.toLocal8Bit().constData(), &info) == 0 ? quint64(info.st_ino) : 0;
}

Settings categoriesTable()
{
    return {{QStringLiteral("0"), QStringLiteral("Finance")},
            {QStringLiteral("1"), QStringLiteral("Two bits")},
            {QStringLiteral("3"), QStringLiteral("Later name")},
            {QStringLiteral("63"), QStringLiteral("Top")},
            {QStringLiteral("4"), QString::fromUtf8("\xc3\x96"
                                                    "ffentlich: Presse")}};
}

Settings levelsTable()
{
    return {{QStringLiteral("0"), QStringLiteral("Unclassified")},
            {QStringLiteral("1"), QStringLiteral("Restricted")},
            {QStringLiteral("2"), QStringLiteral("Confidential")},
            {QStringLiteral("3"), QStringLiteral("Secret")}};
}
} // namespace

class MaicModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void identity();
    void isAvailable_data();
    void isAvailable();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void digit_data();
    void digit();
    void userList();
    void getCategories();
    void getMacLevels();
    void getSettings();
    void getSettingsReadsEachDatabaseTwice();
    void getParam();
    void databaseMissing_data();
    void databaseMissing();
    void databaseUnreadable();
    void damagedRecordIsSkipped();
    void unreadableUserList();
    void setCategoryBitModulo64();
    void setCategoryKeepsOneNamePerBit();
    void setSettingsRoundTripWritesNothing();
    void setSettingsRenames();
    void setSettingsFromJsonMaps();
    void nonAsciiNamesRoundTrip();
    void levelConflict();
    void categoryConflict();
    void sameNameSameEntryIsStoredAgain();
    void storeFailures();
    void entriesBeforeAFailureStay();
    void setValueInUnknownParam();

private:
    QByteArray m_passwd;
    bool m_readOnly = false;
};

void MaicModuleTest::initTestCase()
{
    m_passwd = readBytes(PasswdFile);
    QVERIFY(!m_passwd.isNull());
    const QByteArray users = readBytes(QStringLiteral(ZQL_MAC_TEST_DATA "/passwd"));
    QVERIFY(!users.isEmpty());
    // This suite's own user list, inside the sandbox only; restored afterwards.
    QVERIFY(writeBytes(PasswdFile, users));
}

void MaicModuleTest::init()
{
    QVERIFY(setSecurityMode(2));
    QVERIFY(QDir().mkpath(DatabaseDir));
    QVERIFY(writeBytes(CategoriesFile, Categories));
    QVERIFY(writeBytes(LevelsFile, Levels));
    QVERIFY(writeBytes(LabelsFile, Labels));
}

void MaicModuleTest::cleanup()
{
    if (m_readOnly) {
        QString error;
        QVERIFY2(unmount(DatabaseDir, &error), qPrintable(error));
        m_readOnly = false;
    }
    QDir(CategoriesFile).removeRecursively();
}

void MaicModuleTest::cleanupTestCase()
{
    QVERIFY(writeBytes(PasswdFile, m_passwd));
}

void MaicModuleTest::identity()
{
    MaicModule module;
    QCOMPARE(module.getName(), QStringLiteral("maic"));
    QCOMPARE(module.formatOutput(QStringLiteral("m")), QStringLiteral("maic : m\n"));
    QVERIFY(module.checkRestrictions({}));
}

void MaicModuleTest::isAvailable_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("available");
    QTest::newRow("-1") << -1 << false;
    QTest::newRow("0") << 0 << false;
    QTest::newRow("1") << 1 << true;
    QTest::newRow("2") << 2 << true;
    QTest::newRow("3") << 3 << false;
}

void MaicModuleTest::isAvailable()
{
    QFETCH(int, mode);
    QFETCH(bool, available);
    QVERIFY(setSecurityMode(mode));
    MaicModule module;
    QCOMPARE(module.isAvailable(), available);
}

void MaicModuleTest::isParametersCorrect_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("unknown");
    const QStringList both{CategoriesKey, LevelsKey};
    QTest::newRow("mode 1") << 1 << both << QStringList{CategoriesKey};
    QTest::newRow("mode 2") << 2 << both << QStringList();
    QTest::newRow("mode 2, one unknown")
        << 2 << QStringList{LevelsKey, QStringLiteral("x")} << QStringList{QStringLiteral("x")};
    QTest::newRow("mode 0") << 0 << both << both;
    QTest::newRow("mode 3") << 3 << both << both;
    QTest::newRow("mode 2, empty") << 2 << QStringList() << QStringList();
}

void MaicModuleTest::isParametersCorrect()
{
    QFETCH(int, mode);
    QFETCH(QStringList, given);
    QFETCH(QStringList, unknown);
    QVERIFY(setSecurityMode(mode));
    MaicModule module;
    QStringList result = module.isParametersCorrect(QSet<QString>(given.begin(), given.end()));
    result.sort();
    unknown.sort();
    QCOMPARE(result, unknown);
}

void MaicModuleTest::digit_data()
{
    QTest::addColumn<quint64>("mask");
    QTest::addColumn<int>("bit");
    for (int bit = 0; bit < 64; ++bit)
        QTest::addRow("bit %d", bit) << (quint64(1) << bit) << bit;
    QTest::newRow("bits 0 and 1") << quint64(3) << 1;
    QTest::newRow("bits 0 and 2") << quint64(5) << 2;
    QTest::newRow("all bits") << ~quint64(0) << 32;
}

void MaicModuleTest::digit()
{
    QFETCH(quint64, mask);
    QFETCH(int, bit);
    QCOMPARE(MaicModule::digit(mask), bit);
}

void MaicModuleTest::userList()
{
    MaicModule module;
    QVERIFY(module.readUserList());
    QStringList names;
    for (const UserListReader::User &user : module.users())
        names << user.name;
    // Ids above 999 but 65534; lines with fewer than seven fields and non-numeric ids skipped.
    QCOMPARE(names, QStringList({QStringLiteral("alice"), QStringLiteral("bob"),
                                 QStringLiteral("carol"), QStringLiteral("dave")}));
    const UserListReader::User alice = module.users().at(0);
    QCOMPARE(alice.labelParts[0], QByteArray("\x03", 1) + QByteArray(15, '\0'));
    QCOMPARE(alice.labelParts[1], QByteArray("\x05", 1) + QByteArray(15, '\0'));
    QCOMPARE(module.users().at(1).labelParts[0], QByteArray(16, '\0'));
    // A second read starts afresh.
    QVERIFY(module.readUserList());
    QCOMPARE(module.users().size(), 4);
}

void MaicModuleTest::getCategories()
{
    MaicModule module;
    const SettingsReply reply = module.getCategories();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, categoriesTable());
}

void MaicModuleTest::getMacLevels()
{
    MaicModule module;
    const SettingsReply reply = module.getMacLevels();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, levelsTable());
}

void MaicModuleTest::getSettings()
{
    MaicModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second,
             Settings({{CategoriesKey, categoriesTable()}, {LevelsKey, levelsTable()}}));
    QCOMPARE(capture.standardError(), QByteArray());
}

void MaicModuleTest::getSettingsReadsEachDatabaseTwice()
{
    // The damaged line is reported once per read of the database.
    QVERIFY(writeBytes(LevelsFile, Levels + "damaged\n"));
    MaicModule module;
    OutputCapture capture;
    QCOMPARE(module.getSettings().first, 0);
    capture.finish();
    QCOMPARE(capture.standardError(),
             QByteArray("/etc/zql-platform/mac/levels:5: damaged record skipped\n"
                        "/etc/zql-platform/mac/levels:5: damaged record skipped\n"));
}

void MaicModuleTest::getParam()
{
    MaicModule module;
    QCOMPARE(module.getParam(LevelsKey).second, levelsTable());
    QCOMPARE(module.getParam(CategoriesKey).second, categoriesTable());
    OutputCapture capture;
    const SettingsReply reply = module.getParam(QStringLiteral("mac-colours"));
    capture.finish();
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(), QByteArray("maic : Don't have param mac-colours\n"));
}

void MaicModuleTest::databaseMissing_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("message");
    QTest::newRow("categories")
        << CategoriesFile
        << QByteArray("maic : Internal error: opencatdb_r() == 0\nNo such file or directory\n");
    QTest::newRow("levels")
        << LevelsFile
        << QByteArray("maic : Internal error: openlevdb_r() == 0\nNo such file or directory\n");
    // Both tables are read before the status is looked at: each reports.
    QTest::newRow("labels") << LabelsFile
                            << QByteArray("maic : Unable to read user list\n"
                                          "maic : Unable to read user list\n");
}

void MaicModuleTest::databaseMissing()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, message);
    QVERIFY(QFile::remove(file));
    MaicModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(), message);
    // Writing fails the same way and stores nothing.
    OutputCapture writing;
    QCOMPARE(
        module.setSettings({{CategoriesKey, Settings{{QStringLiteral("5"), QStringLiteral("New")}}},
                            {LevelsKey, Settings{{QStringLiteral("7"), QStringLiteral("New")}}}}),
        true);
    writing.finish();
    // The missing database is not created; the categories come first and are stored when
    // only the levels are missing.
    QVERIFY(!QFile::exists(file));
    QCOMPARE(readBytes(CategoriesFile).contains("New"), file == LevelsFile);
}

void MaicModuleTest::databaseUnreadable()
{
    QVERIFY(QFile::remove(CategoriesFile));
    QVERIFY(QDir().mkdir(CategoriesFile));
    MaicModule module;
    OutputCapture capture;
    QCOMPARE(module.getCategories().first, 1);
    capture.finish();
    QCOMPARE(capture.standardError(),
             QByteArray("maic : Internal error: opencatdb_r() == 0\nIs a directory\n"));
}

void MaicModuleTest::damagedRecordIsSkipped()
{
    QVERIFY(writeBytes(CategoriesFile, "0x0000000000000001:Finance\n"
                                       "no colon here\n"
                                       "0xZZ:Bad mask\n"
                                       "0x00000000000000001:Seventeen digits\n"
                                       "0x0000000000000002:Bad %zz escape\n"
                                       "0x0000000000000004:\n"
                                       "0x0000000000000020:Fine\n"));
    MaicModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getCategories();
    capture.finish();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, Settings({{QStringLiteral("0"), QStringLiteral("Finance")},
                                     {QStringLiteral("5"), QStringLiteral("Fine")}}));
    QCOMPARE(capture.standardError().count("damaged record skipped"), 5);
}

void MaicModuleTest::unreadableUserList()
{
    QVERIFY(QFile::remove(PasswdFile));
    MaicModule module;
    OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QVERIFY(writeBytes(PasswdFile, readBytes(QStringLiteral(ZQL_MAC_TEST_DATA "/passwd"))));
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(), QByteArray("maic : Unable to read user list\n"
                                                 "maic : Unable to read user list\n"));
}

void MaicModuleTest::setCategoryBitModulo64()
{
    MaicModule module;
    QCOMPARE(module.setCategory(64, QStringLiteral("x")), 0);
    QVERIFY(readBytes(CategoriesFile).contains("\n0x0000000000000001:x\n"));
    QVERIFY(!readBytes(CategoriesFile).contains(":Finance\n"));
    QCOMPARE(module.getCategories().second.value(QStringLiteral("0")),
             QVariant(QStringLiteral("x")));
}

void MaicModuleTest::setCategoryKeepsOneNamePerBit()
{
    MaicModule module;
    QCOMPARE(module.setCategory(3, QStringLiteral("Third")), 0);
    const QByteArray after = readBytes(CategoriesFile);
    QCOMPARE(after.count("0x0000000000000008:"), 1);
    QVERIFY(after.contains("0x0000000000000008:Third\n"));
    QCOMPARE(module.getCategories().second.value(QStringLiteral("3")),
             QVariant(QStringLiteral("Third")));
}

void MaicModuleTest::setSettingsRoundTripWritesNothing()
{
    MaicModule module;
    const Settings settings = module.getSettings().second;
    const quint64 levelsInode = inode(LevelsFile);
    const quint64 categoriesInode = inode(CategoriesFile);
    OutputCapture capture;
    QCOMPARE(module.setSettings(settings), false);
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(readBytes(CategoriesFile), Categories);
    QCOMPARE(readBytes(LevelsFile), Levels);
    // No store was made: a store puts a new file in place.
    QCOMPARE(inode(LevelsFile), levelsInode);
    QCOMPARE(inode(CategoriesFile), categoriesInode);
}

void MaicModuleTest::setSettingsRenames()
{
    MaicModule module;
    Settings levels = levelsTable();
    levels.insert(QStringLiteral("2"), QStringLiteral("Internal"));
    levels.insert(QStringLiteral("7"), QStringLiteral("Top secret"));
    levels.remove(QStringLiteral("0")); // entries left out stay in the database
    QCOMPARE(module.setSettings({{LevelsKey, levels}}), false);
    Settings expected = levelsTable();
    expected.insert(QStringLiteral("2"), QStringLiteral("Internal"));
    expected.insert(QStringLiteral("7"), QStringLiteral("Top secret"));
    QCOMPARE(module.getMacLevels().second, expected);
    QCOMPARE(readBytes(LevelsFile),
             QByteArray("0:Unclassified\n1:Restricted\n2:Internal\n3:Secret\n7:Top secret\n"));
    QCOMPARE(readBytes(CategoriesFile), Categories);
}

void MaicModuleTest::setSettingsFromJsonMaps()
{
    MaicModule module;
    const QVariantMap levels{{QStringLiteral("9"), QStringLiteral("Nine")}};
    const QVariantMap categories{{QStringLiteral("9"), QStringLiteral("Bit nine")}};
    QCOMPARE(module.setSettings({{LevelsKey, levels}, {CategoriesKey, categories}}), false);
    QCOMPARE(module.getMacLevels().second.value(QStringLiteral("9")),
             QVariant(QStringLiteral("Nine")));
    QCOMPARE(module.getCategories().second.value(QStringLiteral("9")),
             QVariant(QStringLiteral("Bit nine")));
}

void MaicModuleTest::nonAsciiNamesRoundTrip()
{
    MaicModule module;
    const QString name = QString::fromUtf8("Совершенно секретно: 100%\tнет");
    QCOMPARE(module.setMacLevel(5, name), 0);
    QCOMPARE(module.setCategory(7, name), 0);
    QVERIFY(readBytes(LevelsFile)
                .contains("5:" + name.toUtf8().replace("%", "%25").replace("\t", "%09") + "\n"));
    QCOMPARE(module.getMacLevels().second.value(QStringLiteral("5")), QVariant(name));
    QCOMPARE(module.getCategories().second.value(QStringLiteral("7")), QVariant(name));
}

void MaicModuleTest::levelConflict()
{
    MaicModule module;
    OutputCapture capture;
    const bool failed =
        module.setSettings({{LevelsKey, Settings{{QStringLiteral("2"), QStringLiteral("Secret")}}},
                            {CategoriesKey, categoriesTable()}});
    capture.finish();
    QCOMPARE(failed, true);
    QCOMPARE(capture.standardError(), QByteArray("maic : Level name \"Secret\" already exists\n"));
    QCOMPARE(readBytes(LevelsFile), Levels);
}

void MaicModuleTest::categoryConflict()
{
    MaicModule module;
    OutputCapture capture;
    // The category conflict stops the rest: the levels are not looked at.
    const bool failed = module.setSettings(
        {{CategoriesKey, Settings{{QStringLiteral("5"), QStringLiteral("Finance")}}},
         {LevelsKey, Settings{{QStringLiteral("8"), QStringLiteral("Eight")}}}});
    capture.finish();
    QCOMPARE(failed, true);
    QCOMPARE(capture.standardError(),
             QByteArray("maic : Category name \"Finance\" already exists\n"));
    QCOMPARE(readBytes(CategoriesFile), Categories);
    QCOMPARE(readBytes(LevelsFile), Levels);
}

void MaicModuleTest::sameNameSameEntryIsStoredAgain()
{
    MaicModule module;
    const quint64 before = inode(LevelsFile);
    QCOMPARE(module.setMacLevel(3, QStringLiteral("Secret")), 0);
    QCOMPARE(readBytes(LevelsFile), Levels);
    QVERIFY(inode(LevelsFile) != before); // stored again: a new file in place
}

void MaicModuleTest::storeFailures()
{
    QString error;
    QVERIFY2(bindReadOnly(DatabaseDir, &error), qPrintable(error));
    m_readOnly = true;
    MaicModule module;
    OutputCapture capture;
    QCOMPARE(module.setCategory(9, QStringLiteral("Nine")), 1);
    QCOMPARE(module.setMacLevel(9, QStringLiteral("Nine")), 1);
    capture.finish();
    QCOMPARE(capture.standardError(),
             QByteArray("maic : Internal errror: openauddb_r() == 0\nRead-only file system\n"
                        "maic : Internal error: putlevent_r() != 0\nRead-only file system\n"));
    QCOMPARE(readBytes(CategoriesFile), Categories);
    QCOMPARE(readBytes(LevelsFile), Levels);
}

void MaicModuleTest::entriesBeforeAFailureStay()
{
    MaicModule module;
    // A hash of one renaming and one conflict: whichever comes first in the hash's order is
    // stored when it is the renaming, and stays stored after the conflict stops the update.
    const Settings levels{{QStringLiteral("1"), QStringLiteral("Secret")},
                          {QStringLiteral("9"), QStringLiteral("Nine")}};
    OutputCapture capture;
    QCOMPARE(module.setSettings({{LevelsKey, levels}}), true);
    capture.finish();
    const bool nineFirst = levels.constBegin().key() == QLatin1String("9");
    QCOMPARE(module.getMacLevels().second.contains(QStringLiteral("9")), nineFirst);
    QCOMPARE(module.getMacLevels().second.value(QStringLiteral("1")),
             QVariant(QStringLiteral("Restricted")));
}

void MaicModuleTest::setValueInUnknownParam()
{
    MaicModule module;
    QCOMPARE(module.setValueInParam(QStringLiteral("mac-colours"), 1, QStringLiteral("x")), 0);
    OutputCapture capture;
    QCOMPARE(module.setParameter(QStringLiteral("mac-colours"), {}), 1);
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray("maic : Don't have param mac-colours\n"));
}

ZQL_SANDBOXED_TEST_MAIN(MaicModuleTest)
#include "maicmoduletest.moc"
