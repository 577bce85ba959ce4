// Every write, fsync, rename, close and open of a module's setSettings is made to fail in turn
// (an LD_PRELOAD shim, as shadow-utils tests its failures). After each, every file the module
// saves itself holds its old bytes or its new bytes, never anything else, and no temporary
// copy is left where a tool reads the whole directory. Files that pam-auth-update writes are
// the tool's; they are put back between runs but not judged here.
#include "pamfixture.h"
#include "systemfixture.h"
#include "testmain.h"
#include "toolrun.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

const QString Shim = QStringLiteral(ZQL_FAULT_SHIM);
const QString Driver = QStringLiteral(ZQL_FAULT_DRIVER);
const QStringList Functions = {QStringLiteral("write"), QStringLiteral("fsync"),
                               QStringLiteral("rename"), QStringLiteral("close"),
                               QStringLiteral("open")};

// Everything a module or its tool may change, put back before every run.
const QStringList StateRoots = {
    QStringLiteral("/etc/pam.d"),           QStringLiteral("/usr/share/pam-configs"),
    QStringLiteral("/var/lib/pam"),         QStringLiteral("/etc/default"),
    QStringLiteral("/etc/tessel"),          QStringLiteral("/etc/login.defs"),
    QStringLiteral("/etc/login.defs.bak"),  QStringLiteral("/etc/adduser.conf"),
    QStringLiteral("/etc/adduser.conf.bak")};

using Snapshot = QMap<QString, QByteArray>;

QStringList filesUnder(const QString &root)
{
    QStringList files;
    const QFileInfo info(root);
    if (info.isFile()) {
        files << root;
    } else if (info.isDir()) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext())
            files << it.next();
    }
    return files;
}

Snapshot snapshot()
{
    Snapshot files;
    for (const QString &root : StateRoots) {
        for (const QString &path : filesUnder(root))
            files.insert(path, ZqlTest::readBytes(path));
    }
    return files;
}

bool restore(const Snapshot &state)
{
    for (const QString &root : StateRoots) {
        for (const QString &path : filesUnder(root)) {
            if (!state.contains(path) && !QFile::remove(path))
                return false;
        }
    }
    for (auto it = state.begin(); it != state.end(); ++it) {
        if (ZqlTest::readBytes(it.key()) != it.value() &&
            !ZqlTest::writeBytes(it.key(), it.value()))
            return false;
    }
    return true;
}

struct DriverRun
{
    long calls = -1;
    bool injected = false;
    bool failed = false;
    QString describe;
};

DriverRun runDriver(const QString &module, const QString &settingsFile, const QString &fault)
{
    const QString resultFile = settingsFile + QStringLiteral(".result");
    QFile::remove(resultFile);
    const ZqlTest::ToolRun tool = ZqlTest::runTool(
        Driver, {module, settingsFile, resultFile}, 60000, QByteArray(),
        {QStringLiteral("LD_PRELOAD=") + Shim, QStringLiteral("ZQL_FAULT=") + fault,
         // Under AddressSanitizer the shim comes before its runtime, which is fine here.
         QStringLiteral("ASAN_OPTIONS=verify_asan_link_order=0")});
    DriverRun run;
    run.describe = tool.describe();
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^calls=(\\d+) injected=([01]) failed=([01])\\n$"))
            .match(QString::fromUtf8(ZqlTest::readBytes(resultFile)));
    if (!tool.succeeded() || !match.hasMatch())
        return run;
    run.calls = match.captured(1).toLong();
    run.injected = match.captured(2) == QLatin1String("1");
    run.failed = match.captured(3) == QLatin1String("1");
    return run;
}

// Temporary copies beside a saved file: the engine's ".tmp" and QSaveFile's "<name>.XXXXXX".
QStringList leftovers(const QStringList &watched, const Snapshot &before)
{
    QStringList found;
    for (const QString &file : watched) {
        const QFileInfo info(file);
        const QStringList entries = QDir(info.absolutePath())
                                        .entryList({info.fileName() + QStringLiteral(".*")},
                                                   QDir::Files | QDir::Hidden | QDir::System);
        for (const QString &entry : entries) {
            const QString path = info.absolutePath() + QLatin1Char('/') + entry;
            if (before.contains(path) || entry.endsWith(QLatin1String(".bak")) ||
                entry.endsWith(QLatin1String(".pam-old")))
                continue;
            found << path;
        }
    }
    return found;
}

} // namespace

class FaultInjectionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyFailedCallLeavesWholeFiles_data();
    void everyFailedCallLeavesWholeFiles();

private:
    QTemporaryDir m_dir;
};

void FaultInjectionTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // The target's pam-auth-update keeps the pam_tally profile, so account-lockout can apply.
    QString error;
    QVERIFY2(ZqlTest::useTargetPamStack(&error), qPrintable(error));
}

void FaultInjectionTest::everyFailedCallLeavesWholeFiles_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QStringList>("watched");   // the files the module saves itself
    QTest::addColumn<QStringList>("mayVanish"); // removed first, written afterwards

    QTest::newRow("user-creation-policy")
        << QStringLiteral("user-creation-policy")
        << QByteArray(R"({"DHOME": "/srv/home", "DSHELL": "/bin/sh", "SKEL": "/etc/skel",
                          "USERGROUPS": false, "USERS_GID": 1000})")
        << QStringList{QStringLiteral("/etc/adduser.conf")} << QStringList();
    QTest::newRow("login-local") << QStringLiteral("login-local")
                                 << QByteArray(R"({"login_state": "no"})")
                                 << QStringList{QStringLiteral("/etc/tessel/tessel.conf")}
                                 << QStringList();
    QTest::newRow("account-lockout")
        << QStringLiteral("account-lockout")
        << QByteArray(R"({"deny": [true, 4], "per_user": true, "unlock_time": [true, 300]})")
        << QStringList{QStringLiteral("/usr/share/pam-configs/tally")} << QStringList();
    // The history profile is taken away before the new one is written (a stale history policy
    // must not stay in force), so it may be missing after a failure.
    QTest::newRow("password-policy")
        << QStringLiteral("password-policy")
        << QByteArray(R"({"complexity": {"minlen": [true, 14], "dcredit": [true, -1],
                          "enforce_for_root": true},
                          "validity-period": {"maxInterval": [true, 60], "minInterval": [true, 2],
                          "warningInterval": [true, 10], "inactiveInterval": [true, 20],
                          "expireDate": [false, 0]},
                          "history": {"remember": [true, 6], "enforce_for_root": true}})")
        << QStringList{QStringLiteral("/etc/login.defs"), QStringLiteral("/etc/default/useradd"),
                       QStringLiteral("/usr/share/pam-configs/pwquality"),
                       QStringLiteral("/usr/share/pam-configs/pwhistory")}
        << QStringList{QStringLiteral("/usr/share/pam-configs/pwhistory")};
}

void FaultInjectionTest::everyFailedCallLeavesWholeFiles()
{
    QFETCH(QString, module);
    QFETCH(QByteArray, settings);
    QFETCH(QStringList, watched);
    QFETCH(QStringList, mayVanish);

    const QString settingsFile = m_dir.filePath(module + QStringLiteral(".json"));
    QVERIFY(ZqlTest::writeBytes(settingsFile, settings));
    const Snapshot before = snapshot();

    // The run without a fault: the new bytes, and how many calls of each function it makes.
    QMap<QString, long> calls;
    Snapshot after;
    for (const QString &function : Functions) {
        QVERIFY(restore(before));
        const DriverRun clean = runDriver(module, settingsFile, function + QStringLiteral(":0"));
        QVERIFY2(clean.calls >= 0, qPrintable(clean.describe));
        QVERIFY2(!clean.failed, qPrintable(clean.describe));
        calls.insert(function, clean.calls);
        after = snapshot();
    }
    for (const QString &file : watched)
        QVERIFY2(after.value(file) != before.value(file) || !before.contains(file),
                 qPrintable(file + QStringLiteral(" does not change: the case tests nothing")));
    QVERIFY2(calls.value(QStringLiteral("write")) > 0 && calls.value(QStringLiteral("rename")) > 0,
             "the module saves nothing");

    int runs = 0;
    for (const QString &function : Functions) {
        for (long n = 1; n <= calls.value(function); ++n) {
            QVERIFY(restore(before));
            const QString fault = QStringLiteral("%1:%2").arg(function).arg(n);
            const DriverRun run = runDriver(module, settingsFile, fault);
            QVERIFY2(run.calls >= 0, qPrintable(fault + QLatin1Char('\n') + run.describe));
            QVERIFY2(run.injected, qPrintable(fault));
            ++runs;
            const Snapshot now = snapshot();
            for (const QString &file : watched) {
                const bool isOld = now.contains(file) == before.contains(file) &&
                                   now.value(file) == before.value(file);
                const bool isNew = now.contains(file) == after.contains(file) &&
                                   now.value(file) == after.value(file);
                const bool vanished = !now.contains(file) && mayVanish.contains(file);
                QVERIFY2(isOld || isNew || vanished,
                         qPrintable(QStringLiteral("%1 after %2 holds neither its old nor its new "
                                                   "bytes:\n%3")
                                        .arg(file, fault, QString::fromUtf8(now.value(file)))));
            }
            const QStringList left = leftovers(watched, before);
            QVERIFY2(left.isEmpty(),
                     qPrintable(fault + QStringLiteral(" left ") + left.join(QLatin1Char(' '))));
        }
    }
    QVERIFY(restore(before));
    qInfo("%s: %d injected failures", qPrintable(module), runs);
}

ZQL_SANDBOXED_TEST_MAIN(FaultInjectionTest)
#include "faultinjectiontest.moc"
