// AuditModule on the simulated system: the flag text of a mask, the default entry of the
// reference platform's audit database read and written, and the event sent for each change,
// with a database that cannot be opened or written and an event log that refuses the event.
#include "outputcapture.h"
#include "scratchmounts.h"
#include "settingsrun.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>

using Settings = QHash<QString, QVariant>;

namespace {
const QString AuditInfo = QStringLiteral("/tesselfs/ts-audit-info");
const QString DatabaseDir = QStringLiteral("/etc/zql-platform");
const QString Database = QStringLiteral("/etc/zql-platform/auddb");
const QString DatabaseLock = QStringLiteral("/etc/zql-platform/auddb.lock");
const QString EventLogDir = QStringLiteral("/var/log/zql-platform");
const QString EventLog = QStringLiteral("/var/log/zql-platform/events.log");
const QString Success = QStringLiteral("success");
const QString Fail = QStringLiteral("fail");
const QByteArray Header = "zql-platform-auddb 1\n";

// setSettings() of a new module; nothing may reach standard output.
ZqlTest::SettingsRun apply(const Settings &settings)
{
    AuditModule module;
    ZqlTest::SettingsRun run = ZqlTest::runSetSettings(module, settings);
    QTest::qVerify(run.standardOutput.isEmpty(), "standard output", "", __FILE__, __LINE__);
    return run;
}

// The fields after the time and the process id of each event of the log, one text per event.
QStringList events()
{
    QStringList result;
    const QList<QByteArray> lines = ZqlTest::readBytes(EventLog).split('\n');
    for (const QByteArray &line : lines) {
        if (!line.isEmpty())
            result.append(QString::fromUtf8(line.split('\t').mid(2).join('\t')));
    }
    return result;
}

} // namespace

class AuditModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void name();
    void parameters_data();
    void parameters();
    void auditToString_data();
    void auditToString();
    void auditToStringWithoutFile();
    void getShipped();
    void getWithoutDefaultEntry();
    void getUnopenable_data();
    void getUnopenable();
    void set_data();
    void set();
    void setKeepsOtherEntries();
    void setUnopenable();
    void setWriteRefused();
    void setEventRefused();
    void setWriteAndEventRefused();

private:
    QByteArray m_database;
    QByteArray m_auditInfo;
    ZqlTest::ScratchMounts m_mounts;
    void fillDatabaseDirectory();
    void fillEventLog();
};

void AuditModuleTest::initTestCase()
{
    m_database = ZqlTest::readBytes(Database);
    m_auditInfo = ZqlTest::readBytes(AuditInfo);
    QVERIFY(!m_database.isEmpty());
    QVERIFY(!m_auditInfo.isEmpty());
}

void AuditModuleTest::init()
{
    cleanup();
}

void AuditModuleTest::cleanup()
{
    QString error;
    QVERIFY2(m_mounts.unmountAll(&error), qPrintable(error));
    QVERIFY(QDir().mkpath(DatabaseDir));
    QVERIFY(ZqlTest::writeBytes(Database, m_database));
    QVERIFY(ZqlTest::writeBytes(AuditInfo, m_auditInfo));
    QFile::remove(EventLog);
}

void AuditModuleTest::name()
{
    AuditModule module;
    QCOMPARE(module.getName(), QStringLiteral("audit"));
    QVERIFY(module.isAvailable());
    QVERIFY(module.checkRestrictions({}));
    // Available whatever the security mode.
    QVERIFY(ZqlTest::writeBytes(QStringLiteral("/etc/zql-platform/security-mode"), "0\n"));
    QVERIFY(module.isAvailable());
    QVERIFY(ZqlTest::writeBytes(QStringLiteral("/etc/zql-platform/security-mode"), "2\n"));
}

void AuditModuleTest::parameters_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("unknown");
    QTest::newRow("empty") << QStringList() << QStringList();
    QTest::newRow("known") << QStringList{Success, Fail} << QStringList();
    QTest::newRow("one unknown") << QStringList{Success, Fail, QStringLiteral("other")}
                                 << QStringList{QStringLiteral("other")};
}

void AuditModuleTest::parameters()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, unknown);
    AuditModule module;
    QCOMPARE(module.isParametersCorrect(QSet<QString>(given.constBegin(), given.constEnd())),
             unknown);
}

void AuditModuleTest::auditToString_data()
{
    QTest::addColumn<QByteArray>("info");
    QTest::addColumn<qulonglong>("mask");
    QTest::addColumn<QString>("flags");
    const QByteArray three = "0:o\n1:c\n2:x\n";
    QTest::newRow("5 is ox") << three << 5ULL << QStringLiteral("ox");
    QTest::newRow("0 is nothing") << three << 0ULL << QString();
    QTest::newRow("bits beyond the last line") << three << 0xfffffff8ULL << QString();
    QTest::newRow("all bits") << three << ~0ULL << QStringLiteral("ocx");
    QTest::newRow("empty lines are left out")
        << QByteArray("\n0:o\n\n\n1:c\n2:x") << 6ULL << QStringLiteral("cx");
    QTest::newRow("everything after the first colon")
        << QByteArray("0:a:b\n1::\n") << 3ULL << QStringLiteral("a:b:");
    QTest::newRow("a line without colon gives nothing")
        << QByteArray("0:o\nplain\n2:x\n") << 7ULL << QStringLiteral("ox");
    QTest::newRow("UTF-8") << QByteArray("0:о\n1:ж\n") << 3ULL << QStringLiteral("\u043e\u0436");
    // Line 64 stands for bit 0 again.
    QByteArray many;
    for (int i = 0; i < 66; ++i)
        many += QByteArray::number(i) + ':' + QByteArray::number(i) + '\n';
    QTest::newRow("bit number modulo 64") << many << 1ULL << QStringLiteral("064");
    QTest::newRow("bit 63") << many << (1ULL << 63U) << QStringLiteral("63");
    QTest::newRow("shipped file") << QByteArray() << 0x3fULL << QStringLiteral("ocxdrw");
}

void AuditModuleTest::auditToString()
{
    QFETCH(QByteArray, info);
    QFETCH(qulonglong, mask);
    QFETCH(QString, flags);
    if (!info.isNull())
        QVERIFY(ZqlTest::writeBytes(AuditInfo, info));
    QCOMPARE(AuditModule::auditToString(mask), flags);
}

void AuditModuleTest::auditToStringWithoutFile()
{
    QVERIFY(QFile::remove(AuditInfo));
    QCOMPARE(AuditModule::auditToString(5), QString());
    QVERIFY(QDir().mkdir(AuditInfo));
    QCOMPARE(AuditModule::auditToString(5), QString());
    QVERIFY(QDir().rmdir(AuditInfo));
}

void AuditModuleTest::getShipped()
{
    AuditModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second.size(), 2);
    QCOMPARE(reply.second.value(Success).userType(), int(QMetaType::ULongLong));
    QCOMPARE(reply.second.value(Fail).userType(), int(QMetaType::ULongLong));
    QCOMPARE(reply.second.value(Success).toULongLong(), 6ULL);
    QCOMPARE(reply.second.value(Fail).toULongLong(), 0x3fULL);
    QVERIFY(!QFile::exists(EventLog)); // reading sends nothing
}

void AuditModuleTest::getWithoutDefaultEntry()
{
    QVERIFY(ZqlTest::writeBytes(Database, Header + "4:user:0x00000001:0x00000002\n"
                                                   "3::0x00000001:0x00000002\n"));
    AuditModule module;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 0);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(), QByteArray());
}

void AuditModuleTest::getUnopenable_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("missing") << QByteArray() << QByteArray("No such file or directory");
    QTest::newRow("damaged") << QByteArray("4::6:63\n") << QByteArray("Bad message");
}

void AuditModuleTest::getUnopenable()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, reason);
    if (content.isEmpty())
        QVERIFY(QFile::remove(Database));
    else
        QVERIFY(ZqlTest::writeBytes(Database, content));
    AuditModule module;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(),
             "audit : Internal errror: openauddb_r() == 0\n" + reason + '\n');
}

void AuditModuleTest::set_data()
{
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("entry");
    QTest::addColumn<QString>("event");

    QTest::newRow("two masks") << QHash<QString, QVariant>{{Success, 5ULL}, {Fail, 0x30ULL}}
                               << QByteArray("4::0x00000005:0x00000030\n")
                               << QStringLiteral("99\tsuccess\to:ox:rw\t\t");
    QTest::newRow("2^32 + 1 is written as 1")
        << QHash<QString, QVariant>{{Success, (1ULL << 32U) + 1}, {Fail, 1ULL << 32U}}
        << QByteArray("4::0x00000001:0x00000000\n") << QStringLiteral("99\tsuccess\to:o:\t\t");
    QTest::newRow("above 2^53") << QHash<QString, QVariant>{{Success, (1ULL << 53U) + 3},
                                                            {Fail, ~0ULL}}
                                << QByteArray("4::0x00000003:0xffffffff\n")
                                << QStringLiteral("99\tsuccess\to:oc:ocxdrwamunil\t\t");
    QTest::newRow("empty record writes 0 and 0")
        << QHash<QString, QVariant>() << QByteArray("4::0x00000000:0x00000000\n")
        << QStringLiteral("99\tsuccess\to::\t\t");
    QTest::newRow("not a number is 0")
        << QHash<QString, QVariant>{{Success, QStringLiteral("many")}, {Fail, QStringList()}}
        << QByteArray("4::0x00000000:0x00000000\n") << QStringLiteral("99\tsuccess\to::\t\t");
    QTest::newRow("other integer types")
        << QHash<QString, QVariant>{{Success, 3}, {Fail, QStringLiteral("4")}}
        << QByteArray("4::0x00000003:0x00000004\n") << QStringLiteral("99\tsuccess\to:oc:x\t\t");
}

void AuditModuleTest::set()
{
    QFETCH(Settings, settings);
    QFETCH(QByteArray, entry);
    QFETCH(QString, event);
    const ZqlTest::SettingsRun result = apply(settings);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.failed, false);
    QCOMPARE(ZqlTest::readBytes(Database), Header + entry);
    QCOMPARE(events(), QStringList{event});
    // Read back, widened to 64 bits.
    AuditModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second.value(Success).toULongLong(),
             settings.value(Success).toULongLong() & 0xffffffffULL);
}

void AuditModuleTest::setKeepsOtherEntries()
{
    QVERIFY(ZqlTest::writeBytes(Database, Header + "3:alice:0x00000001:0x00000002\n"
                                                   "4::0x00000006:0x0000003f\n"
                                                   "4:bob:0x00000001:0x00000002\n"));
    QCOMPARE(apply({{Success, 1ULL}, {Fail, 2ULL}}).failed, false);
    QCOMPARE(ZqlTest::readBytes(Database), Header + "3:alice:0x00000001:0x00000002\n"
                                                    "4::0x00000001:0x00000002\n"
                                                    "4:bob:0x00000001:0x00000002\n");
}

void AuditModuleTest::setUnopenable()
{
    QVERIFY(QFile::remove(Database));
    const ZqlTest::SettingsRun result = apply({{Success, 1ULL}});
    QCOMPARE(result.failed, true);
    QCOMPARE(
        result.standardError,
        QByteArray("audit : Internal errror: openauddb_r() == 0\nNo such file or directory\n"));
    QVERIFY(!QFile::exists(EventLog)); // nothing was changed, nothing is reported
}

// The database's directory on a full tmpfs: the database can be opened, not written.
void AuditModuleTest::fillDatabaseDirectory()
{
    QString error;
    QVERIFY2(m_mounts.tmpfs(DatabaseDir, QStringLiteral("size=16k"), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(Database, m_database));
    QVERIFY(ZqlTest::writeBytes(DatabaseLock, {}));
    ZqlTest::fillFileSystem(DatabaseDir);
}

// The event log's directory on a full tmpfs: no event can be recorded.
void AuditModuleTest::fillEventLog()
{
    QString error;
    QVERIFY(QDir().mkpath(EventLogDir));
    QVERIFY2(m_mounts.tmpfs(EventLogDir, QStringLiteral("size=16k"), &error), qPrintable(error));
    ZqlTest::fillFileSystem(EventLogDir);
}

void AuditModuleTest::setWriteRefused()
{
    fillDatabaseDirectory();
    const ZqlTest::SettingsRun result = apply({{Success, 1ULL}, {Fail, 2ULL}});
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError, QByteArray("audit : Internal errror: putaudent_r() != 0\n"
                                              "No space left on device\n"));
    QCOMPARE(ZqlTest::readBytes(Database), m_database);
    // The attempt is recorded as a failure.
    QCOMPARE(events(), QStringList{QStringLiteral("99\tfailure\to:o:c\t\t")});
}

void AuditModuleTest::setEventRefused()
{
    fillEventLog();
    const ZqlTest::SettingsRun result = apply({{Success, 1ULL}, {Fail, 2ULL}});
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError, QByteArray("audit : Failed to add audit record\n"));
    // The flags were written all the same.
    QCOMPARE(ZqlTest::readBytes(Database), Header + "4::0x00000001:0x00000002\n");
    QCOMPARE(ZqlTest::readBytes(EventLog), QByteArray());
}

void AuditModuleTest::setWriteAndEventRefused()
{
    fillDatabaseDirectory();
    fillEventLog();
    const ZqlTest::SettingsRun result = apply({{Success, 1ULL}});
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError,
             QByteArray("audit : Internal errror: putaudent_r() != 0\n"
                        "No space left on device\nFailed to add audit record\n"));
}

ZQL_SANDBOXED_TEST_MAIN(AuditModuleTest)
#include "auditmoduletest.moc"
