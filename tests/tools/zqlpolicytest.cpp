// zql-policy end to end: the built program over the simulated system, as an administrator
// runs it. Every run that should change nothing is checked against the configuration files.
#include "moduleregistry.h"
#include "pamfixture.h"
#include "systemfixture.h"
#include "testmain.h"
#include "toolrun.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <csignal>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString Program = QStringLiteral(ZQL_POLICY);
const QString SandboxProgram = QStringLiteral(ZQL_SANDBOX);
const QString BuildDir = QStringLiteral(ZQL_BUILD_DIR);
const QString HardeningPolicy = QStringLiteral(ZQL_SOURCE_DIR "/examples/hardening.json");
const QString TesselConf = QStringLiteral("/etc/tessel/tessel.conf");
const QString SwitchDir = QStringLiteral("/var/lib/zql-sim/switches");
const QString Monitor = QStringLiteral("/usr/sbin/lumo-security-monitor");
const QString MonitorAway = Monitor + QStringLiteral(".away");
const QString InitramfsBehaviour = QStringLiteral("/var/lib/zql-sim/update-initramfs/behaviour");
const QString InitramfsImage = QStringLiteral("/boot/initrd.img-6.1.0-sim-amd64");
const QString AuditDatabase = QStringLiteral("/etc/zql-platform/auddb");
const QString EventLog = QStringLiteral("/var/log/zql-platform/events.log");

// The files the modules own or touch: configuration under /etc and the PAM profiles, and the
// simulated tools' state. Backups and pam-auth-update's copies are left out.
const QStringList WatchedRoots = {QStringLiteral("/etc"), QStringLiteral("/usr/share/pam-configs"),
                                  QStringLiteral("/var/lib/zql-sim/switches"),
                                  QStringLiteral("/var/lib/zql-sim/mac-control")};

using Snapshot = QMap<QString, QByteArray>;

bool isBackup(const QString &path)
{
    return path.endsWith(QLatin1String(".bak")) || path.endsWith(QLatin1String(".pam-old"));
}

Snapshot configuration()
{
    Snapshot files;
    for (const QString &root : WatchedRoots) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            QFile file(path);
            if (!isBackup(path) && !path.endsWith(QLatin1String("calls.log")) &&
                file.open(QIODevice::ReadOnly))
                files.insert(path, file.readAll());
        }
    }
    return files;
}

// Lists what differs between two snapshots, for a failure message.
QString differences(const Snapshot &before, const Snapshot &after)
{
    QStringList changed;
    for (auto it = after.begin(); it != after.end(); ++it) {
        if (!before.contains(it.key()))
            changed.append(QStringLiteral("A ") + it.key());
        else if (before.value(it.key()) != it.value())
            changed.append(QStringLiteral("M ") + it.key());
    }
    for (auto it = before.begin(); it != before.end(); ++it) {
        if (!after.contains(it.key()))
            changed.append(QStringLiteral("D ") + it.key());
    }
    return changed.join(QLatin1Char(' '));
}

// Puts the watched files back as they were.
void restore(const Snapshot &snapshot)
{
    const Snapshot now = configuration();
    for (auto it = now.begin(); it != now.end(); ++it) {
        if (!snapshot.contains(it.key()))
            QFile::remove(it.key());
    }
    for (auto it = snapshot.begin(); it != snapshot.end(); ++it) {
        if (now.value(it.key()) != it.value())
            ZqlTest::writeBytes(it.key(), it.value());
    }
    // An empty log: the switch scripts log their calls into it from now on.
    ZqlTest::writeBytes(SwitchDir + QStringLiteral("/calls.log"), {});
}

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run run(const QStringList &arguments, const QByteArray &input = QByteArray(),
        const QStringList &environment = QStringList())
{
    const ZqlTest::ToolRun tool = ZqlTest::runTool(Program, arguments, 120000, input, environment);
    Run result;
    result.exitCode = tool.ending == ZqlTest::ToolRun::Ending::Exited ? tool.exitCode : -2;
    result.out = tool.standardOutput;
    result.err = tool.standardError;
    return result;
}

QString describe(const Run &result)
{
    return QStringLiteral("exit %1\nstdout:\n%2\nstderr:\n%3")
        .arg(result.exitCode)
        .arg(QString::fromUtf8(result.out), QString::fromUtf8(result.err));
}

QByteArray lastLine(const QByteArray &text)
{
    const QList<QByteArray> lines = text.trimmed().split('\n');
    return lines.isEmpty() ? QByteArray() : lines.last();
}

// One line of the preview's summary: " /etc/login.defs | 6 +++---".
struct StatEntry
{
    QString path;
    QByteArray count;
};

struct StatGroup
{
    QList<StatEntry> entries;
    QByteArray totals;
};

// The summary's groups by heading, up to the blank line before the diff.
QMap<QByteArray, StatGroup> statGroups(const QByteArray &preview)
{
    QMap<QByteArray, StatGroup> groups;
    QByteArray heading;
    const QList<QByteArray> lines = preview.split('\n');
    for (const QByteArray &line : lines) {
        if (line.isEmpty())
            break;
        if (!line.startsWith(' ')) {
            heading = line;
        } else if (line.contains(" | ")) {
            const int bar = line.indexOf(" | ");
            groups[heading].entries.append({QString::fromUtf8(line.mid(1, bar - 1).trimmed()),
                                            line.mid(bar + 3).trimmed().split(' ').first()});
        } else {
            groups[heading].totals = line;
        }
    }
    return groups;
}

// GNU diff's count of added and removed lines between two files (a missing one is empty).
void diffCounts(const QString &before, const QString &after, int *added, int *removed)
{
    // A file the apply removed is a whiteout (a character device) in the kept layer.
    const QString nothing = QStringLiteral("/dev/null");
    const ZqlTest::ToolRun diff =
        ZqlTest::runTool(QStringLiteral("diff"),
                         {QStringLiteral("-u"), QFileInfo(before).isFile() ? before : nothing,
                          QFileInfo(after).isFile() ? after : nothing});
    *added = 0;
    *removed = 0;
    const QList<QByteArray> lines = diff.standardOutput.split('\n');
    for (int i = 2; i < lines.size(); ++i) {
        if (lines.at(i).startsWith('+'))
            ++*added;
        else if (lines.at(i).startsWith('-'))
            ++*removed;
    }
}

QByteArray totalsLine(int files, int added, int removed)
{
    QByteArray line =
        " " + QByteArray::number(files) + (files == 1 ? " file changed" : " files changed");
    if (added > 0 || removed == 0)
        line +=
            ", " + QByteArray::number(added) + (added == 1 ? " insertion(+)" : " insertions(+)");
    if (removed > 0 || added == 0)
        line +=
            ", " + QByteArray::number(removed) + (removed == 1 ? " deletion(-)" : " deletions(-)");
    return line;
}

const QByteArray ConfigurationHeading = "Configuration files the policy changes:";
const QByteArray StateHeading = "Backups and tool state (their diff: --full):";

const QByteArray LoginAll = "{\"format\": \"zql-policy\", \"version\": 1,\n"
                            " \"login-local\": {\"login_state\": \"all\"}}\n";

} // namespace

class ZqlPolicyTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void help();
    void usageErrors_data();
    void usageErrors();
    void list();
    void registryNamesAreTheModulesNames();
    void getPrintsSettingsAndStatus();
    void getKeepsNotesOffStandardOutput();
    void exportThenApplyChangesNothing();
    void exportAppliedBackChangesNoFile();
    void exportSkipsUnreadableModules();
    void exportToFileAndStandardOutputAgree();
    void checkAcceptsExport();
    void checkReadsStandardInput();
    void macModulesInMode1();
    void refused_data();
    void refused();
    void applyOnlySelectedModules();
    void moduleFailureIsNamedInExitAndSummary();
    void failingApplyOnStockMachineWritesWholeLines();
    void dryRunShowsDiffAndChangesNothing();
    void dryRunOfRefusedPolicyChangesNothing();
    void dryRunPreviewMatchesTheApply();
    void dryRunStatAndFull();
    void driftAfterApplyingTheSamePolicy();
    void driftOfOneChangedKey();
    void driftOfUnreadableModule();
    void rootLayerRunsOnLayeredSystem();
    void rootLayerExportToFile();
    void unreadablePolicy_data();
    void unreadablePolicy();
    void interruptedDryRun_data();
    void interruptedDryRun();
    void unboundedSource_data();
    void unboundedSource();
    void closedOrFullStream_data();
    void closedOrFullStream();
    void exportToUnwritablePlace_data();
    void exportToUnwritablePlace();
    void progressOnTerminal();
    void noProgressWithoutTerminal();
    void dryRunColourOnlyOnTerminal();
    void progressWhileRamDiskIsRebuilt();
    void auditMasksTravelExactly();

private:
    QTemporaryDir m_dir;
    Snapshot m_snapshot;
    Run m_exportAppliedBack;
    QString path(const char *name) const { return m_dir.filePath(QString::fromUtf8(name)); }
    QString path(const QString &name) const { return m_dir.filePath(name); }
};

void ZqlPolicyTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // The target's PAM stack, so that the account lockout can be read.
    QString error;
    QVERIFY2(ZqlTest::useTargetPamStack(&error), qPrintable(error));

    // One apply puts every file into the modules' own form (the line layout they write); the
    // tests start from there.
    const Run exported = run({QStringLiteral("export"), QStringLiteral("-o"), path("start.json")});
    QVERIFY2(exported.exitCode == 0, qPrintable(describe(exported)));
    // The export applied back to the system as it was: checked in exportAppliedBackChangesNoFile.
    m_exportAppliedBack = run({QStringLiteral("apply"), path("start.json"),
                               QStringLiteral("--dry-run"), QStringLiteral("--full")});
    const Run applied = run({QStringLiteral("apply"), path("start.json"), QStringLiteral("--all")});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    m_snapshot = configuration();
}

void ZqlPolicyTest::init()
{
    restore(m_snapshot);
}

void ZqlPolicyTest::cleanup()
{
    restore(m_snapshot);
    QFile::remove(QStringLiteral("/var/lib/zql-sim/security-monitor/behaviour"));
    if (QFileInfo::exists(MonitorAway))
        QFile::rename(MonitorAway, Monitor); // moved by failingApplyOnStockMachineWritesWholeLines
    QFile::remove(InitramfsBehaviour);       // written by progressWhileRamDiskIsRebuilt
    QString error;
    if (QFileInfo(path("full")).isDir())
        ZqlTest::unmount(path("full"), &error); // mounted by exportToUnwritablePlace
}

void ZqlPolicyTest::help()
{
    const Run result = run({QStringLiteral("--help")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(
        result.out.startsWith("Usage: zql-policy [--root-layer DIR]... COMMAND [ARGUMENT]...\n"));
    QVERIFY(result.out.contains("\nExit status:\n  0    done; with diff: the machine follows the "
                                "policy\n"));
    QVERIFY(
        result.out.contains("  3    the policy was refused by the check; nothing was applied\n"));
    QCOMPARE(result.err, QByteArray());
}

void ZqlPolicyTest::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    const QByteArray modules = "user-creation-policy, password-policy, account-lockout, "
                               "login-local, audit, maic, mac, mic, digsig, console-policy, "
                               "system-parameters, kiosk-global";
    QTest::newRow("no command") << QStringList() << QByteArray("no command given");
    QTest::newRow("unknown command") << QStringList{QStringLiteral("frobnicate")}
                                     << QByteArray("unknown command \"frobnicate\"");
    QTest::newRow("unknown option")
        << QStringList{QStringLiteral("list"), QStringLiteral("--bogus")}
        << QByteArray("unknown option --bogus");
    QTest::newRow("unknown module")
        << QStringList{QStringLiteral("get"), QStringLiteral("nosuch")}
        << QByteArray("unknown module \"nosuch\" (the modules: " + modules + ")");
    QTest::newRow("unknown module in --only")
        << QStringList{QStringLiteral("apply"), QStringLiteral("p.json"), QStringLiteral("--only"),
                       QStringLiteral("login-local,nosuch")}
        << QByteArray("unknown module \"nosuch\" (the modules: " + modules + ")");
    QTest::newRow("check without file")
        << QStringList{QStringLiteral("check")} << QByteArray("check takes one policy file");
    QTest::newRow("apply with two files")
        << QStringList{QStringLiteral("apply"), QStringLiteral("a"), QStringLiteral("b")}
        << QByteArray("apply takes one policy file");
    QTest::newRow("list with arguments") << QStringList{QStringLiteral("list"), QStringLiteral("x")}
                                         << QByteArray("list takes no arguments");
    QTest::newRow("--only on list")
        << QStringList{QStringLiteral("list"), QStringLiteral("--only"), QStringLiteral("audit")}
        << QByteArray("--only is for check, apply and diff");
    QTest::newRow("--only without name")
        << QStringList{QStringLiteral("apply"), QStringLiteral("p.json"), QStringLiteral("--only")}
        << QByteArray("--only needs a module name");
    // An empty name must not fall away and leave "--only ," meaning every module.
    QTest::newRow("--only with only a comma")
        << QStringList{QStringLiteral("apply"), QStringLiteral("p.json"), QStringLiteral("--only"),
                       QStringLiteral(",")}
        << QByteArray("--only needs a module name between its commas, not \",\"");
    QTest::newRow("--only with an empty name in the list")
        << QStringList{QStringLiteral("diff"), QStringLiteral("p.json"), QStringLiteral("--only"),
                       QStringLiteral("login-local,,audit")}
        << QByteArray("--only needs a module name between its commas, not \"login-local,,audit\"");
    QTest::newRow("--dry-run on export")
        << QStringList{QStringLiteral("export"), QStringLiteral("--dry-run")}
        << QByteArray("--dry-run is for apply");
    QTest::newRow("--dry-run on check")
        << QStringList{QStringLiteral("check"), QStringLiteral("p.json"),
                       QStringLiteral("--dry-run")}
        << QByteArray("--dry-run is for apply");
    QTest::newRow("--output on get")
        << QStringList{QStringLiteral("get"), QStringLiteral("-o"), QStringLiteral("x")}
        << QByteArray("--output is for export");
    QTest::newRow("-o without file") << QStringList{QStringLiteral("export"), QStringLiteral("-o")}
                                     << QByteArray("-o needs a file name");
    QTest::newRow("--root-layer without directory")
        << QStringList{QStringLiteral("list"), QStringLiteral("--root-layer")}
        << QByteArray("--root-layer needs a directory");
}

void ZqlPolicyTest::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);

    const Run result = run(arguments);
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.out, QByteArray());
    QCOMPARE(result.err, "zql-policy: " + message + "\nTry 'zql-policy --help'.\n");
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

void ZqlPolicyTest::list()
{
    const Run result = run({QStringLiteral("list")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray("user-creation-policy   available\n"
                                    "password-policy        available\n"
                                    "account-lockout        available\n"
                                    "login-local            available\n"
                                    "audit                  available\n"
                                    "maic                   available\n"
                                    "mac                    available\n"
                                    "mic                    available\n"
                                    "digsig                 available\n"
                                    "console-policy         available\n"
                                    "system-parameters      available\n"
                                    "kiosk-global           available\n"));
}

void ZqlPolicyTest::registryNamesAreTheModulesNames()
{
    // The program knows the names without making the modules; they must be the modules' own.
    const ZqlPolicy::ModuleRegistry registry = ZqlPolicy::ModuleRegistry::libraryModules();
    QStringList made;
    for (ModuleInterface *module : registry.modules())
        made.append(module->getName());
    QCOMPARE(registry.names(), made);
}

void ZqlPolicyTest::getPrintsSettingsAndStatus()
{
    const Run result = run(
        {QStringLiteral("get"), QStringLiteral("login-local"), QStringLiteral("account-lockout")});
    QCOMPARE(result.exitCode, 0);
    // In apply order, whatever order they were named in.
    QCOMPARE(result.out, QByteArray("{\n"
                                    "    \"account-lockout\": {\n"
                                    "        \"available\": true,\n"
                                    "        \"status\": 0,\n"
                                    "        \"settings\": {\n"
                                    "            \"deny\": [true, 5],\n"
                                    "            \"lock_time\": [false, 0],\n"
                                    "            \"magic_root\": false,\n"
                                    "            \"no_reset\": false,\n"
                                    "            \"per_user\": false,\n"
                                    "            \"unlock_time\": [true, 900]\n"
                                    "        }\n"
                                    "    },\n"
                                    "    \"login-local\": {\n"
                                    "        \"available\": true,\n"
                                    "        \"status\": 0,\n"
                                    "        \"settings\": {\n"
                                    "            \"login_state\": \"admin\"\n"
                                    "        }\n"
                                    "    }\n"
                                    "}\n"));

    // A read that fails: status 1, the module's own message, exit 1.
    QVERIFY(QFile::remove(TesselConf));
    const Run failed = run({QStringLiteral("get"), QStringLiteral("login-local")});
    QCOMPARE(failed.exitCode, 1);
    QCOMPARE(failed.out, QByteArray("{\n"
                                    "    \"login-local\": {\n"
                                    "        \"available\": true,\n"
                                    "        \"status\": 1,\n"
                                    "        \"settings\": {}\n"
                                    "    }\n"
                                    "}\n"));
    QVERIFY2(failed.err.startsWith("login-local : "), failed.err.constData());
}

void ZqlPolicyTest::getKeepsNotesOffStandardOutput()
{
    // A switch script that remarks on standard error: the module passes the remark on as a
    // note, which must not end up inside the JSON.
    QVERIFY(
        ZqlTest::writeBytes(SwitchDir + QStringLiteral("/console-tty-lock.warning"), "a remark\n"));
    const Run result = run({QStringLiteral("get"), QStringLiteral("console-policy")});
    QCOMPARE(result.exitCode, 0);
    QJsonParseError error;
    const QJsonDocument json = QJsonDocument::fromJson(result.out, &error);
    QVERIFY2(error.error == QJsonParseError::NoError, result.out.constData());
    QCOMPARE(json.object()
                 .value(QStringLiteral("console-policy"))
                 .toObject()
                 .value(QStringLiteral("status"))
                 .toInt(-1),
             0);
    QVERIFY2(result.err.contains("a remark"), result.err.constData());
}

void ZqlPolicyTest::exportThenApplyChangesNothing()
{
    const Run exported = run({QStringLiteral("export"), QStringLiteral("-o"), path("p.json")});
    QCOMPARE(exported.exitCode, 0);
    QCOMPARE(exported.out, QByteArray());
    const QByteArray policy = ZqlTest::readBytes(path("p.json"));
    QVERIFY(policy.startsWith("{\n    \"format\": \"zql-policy\",\n    \"version\": 1,\n"));
    QVERIFY(policy.contains("\"deny\": [true, 5]"));

    // Every module already follows its own export: nothing is written, no switch turned.
    const Run applied = run({QStringLiteral("apply"), path("p.json")});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    QCOMPARE(
        applied.err,
        QByteArray("zql-policy: " + path("p.json").toUtf8() +
                   ": nothing to do; unchanged: user-creation-policy, password-policy, "
                   "account-lockout, login-local, audit, maic, mac, mic, digsig, console-policy, "
                   "system-parameters, kiosk-global\n"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());
    const QByteArray calls = ZqlTest::readBytes(SwitchDir + QStringLiteral("/calls.log"));
    QVERIFY2(!calls.contains(" enable") && !calls.contains(" disable"), calls.constData());

    // --all writes every module; in the modules' own layout that changes no byte either.
    const Run all = run({QStringLiteral("apply"), path("p.json"), QStringLiteral("--all")});
    QVERIFY2(all.exitCode == 0, qPrintable(describe(all)));
    QCOMPARE(lastLine(all.err),
             QByteArray(
                 "zql-policy: " + path("p.json").toUtf8() +
                 ": applied: user-creation-policy, password-policy, account-lockout, login-local, "
                 "audit, maic, mac, mic, digsig, console-policy, system-parameters, kiosk-global"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());

    // And the policy read back is the one applied.
    const Run again = run({QStringLiteral("export")});
    QCOMPARE(again.exitCode, 0);
    QCOMPARE(again.out, policy);
}

void ZqlPolicyTest::exportAppliedBackChangesNoFile()
{
    // On the simulated system as it came (tabs in login.defs and the profiles, cracklib's
    // minlen=8) the run says there is nothing to do, and the sandbox's change list is empty: no
    // file of the system, no switch turned. (The switch scripts' call log does not exist yet, so
    // their reads leave no trace.)
    const Run &result = m_exportAppliedBack;
    QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
    QCOMPARE(result.err,
             "zql-policy: " + path("start.json").toUtf8() +
                 ": nothing to do; unchanged: user-creation-policy, password-policy, "
                 "account-lockout, login-local, audit, maic, mac, mic, digsig, console-policy, "
                 "system-parameters, kiosk-global\n"
                 "zql-policy: dry run: no file would change; nothing was changed\n");
    QCOMPARE(result.out, QByteArray());
}

void ZqlPolicyTest::exportSkipsUnreadableModules()
{
    QVERIFY(QFile::remove(TesselConf));
    // By default an unreadable module refuses the export: nothing is written.
    const Run refused = run({QStringLiteral("export"), QStringLiteral("-o"), path("part.json")});
    QCOMPARE(refused.exitCode, 1);
    QVERIFY(!QFileInfo::exists(path("part.json")));

    const Run partial = run({QStringLiteral("export"), QStringLiteral("--skip-unreadable"),
                             QStringLiteral("-o"), path("part.json")});
    QVERIFY2(partial.exitCode == 0, qPrintable(describe(partial)));
    QVERIFY2(partial.err.startsWith("login-local : "), partial.err.constData());
    QVERIFY2(partial.err.endsWith("zql-policy: cannot read the settings of login-local; left out "
                                  "and named in \"not-exported\"\n"),
             partial.err.constData());
    const QByteArray policy = ZqlTest::readBytes(path("part.json"));
    QVERIFY2(policy.startsWith("{\n    \"format\": \"zql-policy\",\n    \"version\": 1,\n"
                               "    \"not-exported\": [\"login-local\"],\n"),
             policy.constData());
    QVERIFY(!policy.contains("\"login-local\": {"));

    // check and apply read it as a module left out, not as an empty section.
    const Run checked = run({QStringLiteral("check"), path("part.json")});
    QCOMPARE(checked.exitCode, 0);
    QCOMPARE(
        checked.out,
        path("part.json").toUtf8() +
            ": accepted: user-creation-policy, password-policy, "
            "account-lockout, audit, maic, mac, mic, digsig, console-policy, system-parameters, "
            "kiosk-global; not exported: "
            "login-local\n");
    const Run applied = run({QStringLiteral("apply"), path("part.json")});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    QVERIFY(!QFileInfo::exists(TesselConf));
    QVERIFY2(!applied.err.contains("login-local"), applied.err.constData());
}

void ZqlPolicyTest::exportToFileAndStandardOutputAgree()
{
    const Run toFile = run({QStringLiteral("export"), QStringLiteral("--output=") + path("f.json"),
                            QStringLiteral("login-local"), QStringLiteral("account-lockout")});
    QCOMPARE(toFile.exitCode, 0);
    const Run toOutput = run({QStringLiteral("export"), QStringLiteral("account-lockout"),
                              QStringLiteral("login-local")});
    QCOMPARE(toOutput.exitCode, 0);
    QCOMPARE(ZqlTest::readBytes(path("f.json")), toOutput.out);
    QCOMPARE(toOutput.out, QByteArray("{\n"
                                      "    \"format\": \"zql-policy\",\n"
                                      "    \"version\": 1,\n"
                                      "    \"account-lockout\": {\n"
                                      "        \"deny\": [true, 5],\n"
                                      "        \"lock_time\": [false, 0],\n"
                                      "        \"magic_root\": false,\n"
                                      "        \"no_reset\": false,\n"
                                      "        \"per_user\": false,\n"
                                      "        \"unlock_time\": [true, 900]\n"
                                      "    },\n"
                                      "    \"login-local\": {\n"
                                      "        \"login_state\": \"admin\"\n"
                                      "    }\n"
                                      "}\n"));
}

void ZqlPolicyTest::checkAcceptsExport()
{
    QVERIFY(run({QStringLiteral("export"), QStringLiteral("-o"), path("c.json")}).exitCode == 0);
    const Run result = run({QStringLiteral("check"), path("c.json")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out,
             (path("c.json") +
              QStringLiteral(
                  ": accepted: user-creation-policy, password-policy, "
                  "account-lockout, login-local, audit, maic, mac, mic, digsig, console-policy, "
                  "system-parameters, kiosk-global\n"))
                 .toUtf8());
    QCOMPARE(result.err, QByteArray());
    QCOMPARE(differences(m_snapshot, configuration()), QString());
    // The switches modules read their switches when they are made; nothing was switched.
    const QByteArray calls = ZqlTest::readBytes(SwitchDir + QStringLiteral("/calls.log"));
    QVERIFY2(!calls.contains(" enable") && !calls.contains(" disable"), calls.constData());
}

void ZqlPolicyTest::checkReadsStandardInput()
{
    const Run result = run({QStringLiteral("check"), QStringLiteral("-")}, LoginAll);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.out, QByteArray("standard input: accepted: login-local\n"));
}

// Mode 1: "maic" knows only its levels and "mac" is not offered; a document carrying either
// is refused, the machine's own export applies back with nothing to do.
void ZqlPolicyTest::macModulesInMode1()
{
    QVERIFY(ZqlTest::writeBytes(QStringLiteral("/etc/zql-platform/security-mode"), "1\n"));
    const Run listed = run({QStringLiteral("list")});
    QCOMPARE(listed.exitCode, 0);
    QVERIFY2(listed.out.contains("\nmaic                   available\n"
                                 "mac                    not available\n"),
             listed.out.constData());

    const Run checked = run({QStringLiteral("check"), HardeningPolicy});
    QCOMPARE(checked.exitCode, 3);
    QVERIFY2(checked.err.contains("maic: unknown key \"mac-categories\"\n"),
             checked.err.constData());
    QVERIFY2(checked.err.contains("mac: the module is not available on this machine (its "
                                  "security mode); leave it out with --only\n"),
             checked.err.constData());

    const Run exported = run({QStringLiteral("export"), QStringLiteral("-o"), path("m1.json")});
    QVERIFY2(exported.exitCode == 0, qPrintable(describe(exported)));
    const QByteArray policy = ZqlTest::readBytes(path("m1.json"));
    QVERIFY(policy.contains("\n    \"maic\": {"));
    QVERIFY(!policy.contains("\"mac\": {"));
    // The export carries both tables of "maic", so mode 1 refuses it as well.
    const Run again = run({QStringLiteral("check"), path("m1.json")});
    QCOMPARE(again.exitCode, 3);
    QVERIFY2(again.err.contains("maic: unknown key \"mac-categories\"\n"), again.err.constData());
}

void ZqlPolicyTest::refused_data()
{
    QTest::addColumn<QByteArray>("policy");
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("problems");

    const QByteArray head = "{\"format\": \"zql-policy\", \"version\": 1, ";
    QTest::newRow("unknown key")
        << head + "\"login-local\": {\"login_state\": \"all\", \"colour\": \"red\"}}"
        << QStringList() << QByteArray("login-local: unknown key \"colour\"\n");
    QTest::newRow("line feed in a value")
        << head + "\"login-local\": {\"login_state\": \"all\\nauth sufficient pam_permit.so\"}}"
        << QStringList()
        << QByteArray("login-local: \"login_state\" holds U+000A (line feed) at character 4; a "
                      "value that ends up in a line-oriented system file must be one line of "
                      "printable text\n");
    QTest::newRow("carriage return in a nested value")
        << head + "\"password-policy\": {\"complexity\": {\"note\": \"a\\rb\"}, "
                  "\"validity-period\": {}}}"
        << QStringList()
        << QByteArray("password-policy: \"complexity/note\" holds U+000D (carriage return) at "
                      "character 2; a value that ends up in a line-oriented system file must be "
                      "one line of printable text\n");
    QTest::newRow("unknown module")
        << head + "\"firewall\": {}}" << QStringList()
        << QByteArray("\"firewall\" is not a module of this library (the modules: "
                      "user-creation-policy, password-policy, account-lockout, login-local, audit, "
                      "maic, mac, mic, "
                      "digsig, "
                      "console-policy, system-parameters, kiosk-global)\n");
    QTest::newRow("wrong format") << QByteArray("{\"format\": \"other\", \"version\": 1}")
                                  << QStringList()
                                  << QByteArray("\"format\" is \"other\", not \"zql-policy\"\n");
    QTest::newRow("newer version")
        << QByteArray("{\"format\": \"zql-policy\", \"version\": 2}") << QStringList()
        << QByteArray("\"version\" is 2; this program reads version 1\n");
    QTest::newRow("not JSON") << QByteArray("deny=5\n") << QStringList()
                              << QByteArray("not a JSON document: parse error at line 1, column 1: "
                                            "syntax error while parsing value - invalid literal; "
                                            "last read: 'd'\n");
    QTest::newRow("a module twice")
        << head + "\"login-local\": {\"login_state\": \"all\"}, \"login-local\": {}}"
        << QStringList()
        << QByteArray("not a JSON document: the key \"login-local\" appears twice\n");
    QTest::newRow("settings not an object")
        << head + "\"login-local\": \"all\"}" << QStringList()
        << QByteArray("login-local: the settings must be a JSON object, not string\n");
    QTest::newRow("selected module without settings")
        << head + "\"login-local\": {\"login_state\": \"all\"}}"
        << QStringList{QStringLiteral("--only"), QStringLiteral("account-lockout")}
        << QByteArray("account-lockout: the policy has no settings for it\n");
    QTest::newRow("one bad module refuses the whole policy")
        << head + "\"login-local\": {\"login_state\": \"all\"}, "
                  "\"account-lockout\": {\"deny\": [true, 3], \"denny\": [true, 3]}}"
        << QStringList() << QByteArray("account-lockout: unknown key \"denny\"\n");
    // Values the modules would misread, each of which once weakened the machine quietly.
    const QByteArray words = "; expected one of \"all\", \"admin\", \"no\"\n";
    const QByteArray denyRange =
        "; expected a switched number: [true or false, an integer from 0 to 65535]\n";
    const QByteArray complexityKeys =
        "expected an object with the keys \"reject_username\", \"gecoscheck\", "
        "\"enforce_for_root\", \"minlen\", \"lcredit\", \"ucredit\", \"dcredit\", \"ocredit\"\n";
    const QByteArray days =
        "; expected a switched number: [true or false, an integer from -1 to 99999]\n";
    const QByteArray password = "\"password-policy\": {\"validity-period\": {}, ";
    QTest::newRow("login_state Admin")
        << head + "\"login-local\": {\"login_state\": \"Admin\"}}" << QStringList()
        << "login-local: \"login_state\" is \"Admin\"" + words;
    QTest::newRow("login_state with a blank")
        << head + "\"login-local\": {\"login_state\": \"admin \"}}" << QStringList()
        << "login-local: \"login_state\" is \"admin \"" + words;
    QTest::newRow("login_state a number")
        << head + "\"login-local\": {\"login_state\": 5}}" << QStringList()
        << "login-local: \"login_state\" is 5" + words;
    QTest::newRow("login_state null")
        << head + "\"login-local\": {\"login_state\": null}}" << QStringList()
        << "login-local: \"login_state\" is null" + words;
    QTest::newRow("deny a plain number")
        << head + "\"account-lockout\": {\"deny\": 5}}" << QStringList()
        << "account-lockout: \"deny\" is 5" + denyRange;
    QTest::newRow("deny a string")
        << head + "\"account-lockout\": {\"deny\": \"5\"}}" << QStringList()
        << "account-lockout: \"deny\" is \"5\"" + denyRange;
    QTest::newRow("deny 1e30") << head + "\"account-lockout\": {\"deny\": [true, 1e30]}}"
                               << QStringList()
                               << "account-lockout: \"deny\" is [true,1e+30]" + denyRange;
    QTest::newRow("deny 2^64 - 1")
        << head + "\"account-lockout\": {\"deny\": [true, 18446744073709551615]}}" << QStringList()
        << "account-lockout: \"deny\" is [true,18446744073709551615]" + denyRange;
    QTest::newRow("minlen a plain number")
        << head + password + "\"complexity\": {\"minlen\": 5}}}" << QStringList()
        << QByteArray("password-policy: \"complexity/minlen\" is 5; expected a switched number: "
                      "[true or false, an integer from 0 to 512]\n");
    QTest::newRow("maxInterval a plain number")
        << head + "\"password-policy\": {\"complexity\": {}, \"validity-period\": "
                  "{\"maxInterval\": 5}}}"
        << QStringList() << "password-policy: \"validity-period/maxInterval\" is 5" + days;
    QTest::newRow("complexity a string")
        << head + password + "\"complexity\": \"x\"}}" << QStringList()
        << "password-policy: \"complexity\" is \"x\"; " + complexityKeys;
    QTest::newRow("a misspelt nested key")
        << head + password + "\"complexity\": {\"minlenx\": [true, 8]}}}" << QStringList()
        << QByteArray("password-policy: unknown key \"complexity/minlenx\"\n");
    QTest::newRow("password-policy without complexity")
        << head + "\"password-policy\": {\"validity-period\": {}}}" << QStringList()
        << "password-policy: \"complexity\" is missing; " + complexityKeys;
    QTest::newRow("USERS_GID 2^32")
        << head + "\"user-creation-policy\": {\"USERS_GID\": 4294967296}}" << QStringList()
        << QByteArray("user-creation-policy: \"USERS_GID\" is 4294967296; expected an integer "
                      "from 0 to 2147483647\n");
    QTest::newRow("USERS_GID a group name")
        << head + "\"user-creation-policy\": {\"USERS_GID\": \"users\"}}" << QStringList()
        << QByteArray("user-creation-policy: \"USERS_GID\" is \"users\"; expected an integer "
                      "from 0 to 2147483647\n");
    QTest::newRow("USERGROUPS no")
        << head + "\"user-creation-policy\": {\"USERGROUPS\": \"no\"}}" << QStringList()
        << QByteArray("user-creation-policy: \"USERGROUPS\" is \"no\"; expected true or false\n");
    QTest::newRow("a switch given no")
        << head + "\"console-policy\": {\"console-tty-lock\": \"no\"}}" << QStringList()
        << QByteArray("console-policy: \"console-tty-lock\" is \"no\"; expected true or false\n");
    QTest::newRow("a switch given off")
        << head + "\"system-parameters\": {\"param-swap-wipe\": \"off\"}}" << QStringList()
        << QByteArray(
               "system-parameters: \"param-swap-wipe\" is \"off\"; expected true or false\n");
    const QByteArray whole = head + "\"login-local\": {\"login_state\": \"all\"}}";
    QTest::newRow("a NUL byte after the document")
        << whole + '\0' + "garbage" << QStringList()
        << QByteArray("not a JSON document: a NUL byte at byte " +
                      QByteArray::number(whole.size()) + "\n");
    QTest::newRow("20 000 levels of arrays")
        << QByteArray(20000, '[') + QByteArray(20000, ']') << QStringList()
        << QByteArray("not a JSON document: nested deeper than 64 levels\n");
    QTest::newRow("20 000 levels of objects in a section")
        << head + "\"login-local\": " + QByteArray("{\"a\": ").repeated(20000) + "1" +
               QByteArray(20001, '}')
        << QStringList() << QByteArray("not a JSON document: nested deeper than 64 levels\n");
}

void ZqlPolicyTest::refused()
{
    QFETCH(QByteArray, policy);
    QFETCH(QStringList, options);
    QFETCH(QByteArray, problems);

    QVERIFY(ZqlTest::writeBytes(path("bad.json"), policy));
    const QByteArray prefix = "zql-policy: " + path("bad.json").toUtf8() + ": ";
    QByteArray expectedProblems;
    for (const QByteArray &line : problems.split('\n')) {
        if (!line.isEmpty())
            expectedProblems += prefix + line + '\n';
    }
    const QStringList calls = ZqlTest::pamAuthUpdateCalls();

    const Run checked = run(QStringList{QStringLiteral("check"), path("bad.json")} + options);
    QCOMPARE(checked.exitCode, 3);
    QCOMPARE(checked.out, QByteArray());
    QCOMPARE(checked.err, expectedProblems + prefix + "refused\n");

    const Run applied = run(QStringList{QStringLiteral("apply"), path("bad.json")} + options);
    QCOMPARE(applied.exitCode, 3);
    QCOMPARE(applied.out, QByteArray());
    QCOMPARE(applied.err, expectedProblems + prefix + "refused; nothing was applied\n");
    QCOMPARE(differences(m_snapshot, configuration()), QString());
    QCOMPARE(ZqlTest::pamAuthUpdateCalls(), calls);
    const QByteArray switchCalls = ZqlTest::readBytes(SwitchDir + QStringLiteral("/calls.log"));
    QVERIFY2(!switchCalls.contains(" enable") && !switchCalls.contains(" disable"),
             switchCalls.constData());
}

void ZqlPolicyTest::applyOnlySelectedModules()
{
    QVERIFY(ZqlTest::writeBytes(path("two.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1,\n"
                                " \"login-local\": {\"login_state\": \"no\"},\n"
                                " \"console-policy\": {\"console-tty-lock\": false}}\n"));
    const Run result = run({QStringLiteral("apply"), path("two.json"), QStringLiteral("--only"),
                            QStringLiteral("login-local")});
    QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
    QCOMPARE(lastLine(result.err),
             QByteArray("zql-policy: " + path("two.json").toUtf8() + ": applied: login-local"));
    QVERIFY(ZqlTest::readBytes(TesselConf).contains("\nlogin_local no\n"));
    // No switch was turned.
    const QByteArray calls = ZqlTest::readBytes(SwitchDir + QStringLiteral("/calls.log"));
    QVERIFY2(!calls.contains(" enable") && !calls.contains(" disable"), calls.constData());
}

void ZqlPolicyTest::moduleFailureIsNamedInExitAndSummary()
{
    QVERIFY(ZqlTest::writeBytes(SwitchDir + QStringLiteral("/console-tty-lock.fault"),
                                "disable exit 3\n"));
    QVERIFY(ZqlTest::writeBytes(path("fail.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1,\n"
                                " \"login-local\": {\"login_state\": \"no\"},\n"
                                " \"console-policy\": {\"console-tty-lock\": false},\n"
                                " \"system-parameters\": {\"param-swap-wipe\": true}}\n"));
    const Run result = run({QStringLiteral("apply"), path("fail.json")});
    QCOMPARE(result.exitCode, 1);
    QVERIFY2(result.err.contains("\"/usr/sbin/console-tty-lock disable\". Exit code: 3."),
             result.err.constData());
    // The switch module's own message does not end its line; the summary still ends stderr.
    QVERIFY2(result.err.endsWith("zql-policy: " + path("fail.json").toUtf8() +
                                 ": failed: console-policy; applied: login-local, "
                                 "system-parameters\n"),
             result.err.constData());
    // The modules after the failed one were still applied.
    QCOMPARE(ZqlTest::readBytes(SwitchDir + QStringLiteral("/param-swap-wipe.state")),
             QByteArray("enabled\n"));
}

void ZqlPolicyTest::failingApplyOnStockMachineWritesWholeLines()
{
    // As on a stock machine: no security monitor and no tessel.conf. Each switches module
    // says so in a diagnostic that does not end its line.
    QVERIFY(QFile::rename(Monitor, MonitorAway));
    QVERIFY(QFile::remove(TesselConf));
    QVERIFY(ZqlTest::writeBytes(path("stock.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1,\n"
                                " \"login-local\": {\"login_state\": \"all\"},\n"
                                " \"console-policy\": {\"console-tty-lock\": true},\n"
                                " \"system-parameters\": {\"param-swap-wipe\": true}}\n"));
    // --all: the modules' own writes only, without the reads that find what already follows.
    const Run result = run({QStringLiteral("apply"), path("stock.json"), QStringLiteral("--all")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.out, QByteArray());
    // The library's bytes as it writes them, each diagnostic's line ended before the next.
    const QByteArray monitorFailed = "Failed to load security options .\n"
                                     "lumo-security-monitor finished with error:\n"
                                     "execvp: No such file or directory";
    QCOMPARE(result.err, monitorFailed + '\n' + monitorFailed + '\n' +
                             "login-local : File '/etc/tessel/tessel.conf' not exist: \n"
                             "zql-policy: " +
                             path("stock.json").toUtf8() +
                             ": failed: login-local; applied: console-policy, "
                             "system-parameters\n");
    QVERIFY(QFile::rename(MonitorAway, Monitor));
}

void ZqlPolicyTest::dryRunShowsDiffAndChangesNothing()
{
    QVERIFY(ZqlTest::writeBytes(path("all.json"), LoginAll));
    const Run result =
        run({QStringLiteral("apply"), path("all.json"), QStringLiteral("--dry-run")});
    QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
    QCOMPARE(result.out, QByteArray("Configuration files the policy changes:\n"
                                    " /etc/tessel/tessel.conf | 2 +-\n"
                                    " 1 file changed, 1 insertion(+), 1 deletion(-)\n"
                                    "\n"
                                    "diff --git a/etc/tessel/tessel.conf b/etc/tessel/tessel.conf\n"
                                    "--- a/etc/tessel/tessel.conf\n"
                                    "+++ b/etc/tessel/tessel.conf\n"
                                    "@@ -6,6 +6,6 @@\n"
                                    " zero_if_notfound yes\n"
                                    " \n"
                                    " # login_local no\n"
                                    "-login_local admin\n"
                                    "+login_local all\n"
                                    " \n"
                                    " max_ilev 63\n"));
    QCOMPARE(result.err,
             QByteArray("zql-policy: " + path("all.json").toUtf8() +
                        ": applied: login-local\n"
                        "zql-policy: dry run: nothing was changed; the apply would change:\n"
                        "  M /etc/tessel/tessel.conf\n"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

void ZqlPolicyTest::dryRunOfRefusedPolicyChangesNothing()
{
    QVERIFY(ZqlTest::writeBytes(path("lf.json"), "{\"format\": \"zql-policy\", \"version\": 1, "
                                                 "\"login-local\": {\"login_state\": \"a\\nb\"}}"));
    const Run result = run({QStringLiteral("apply"), QStringLiteral("--dry-run"), path("lf.json")});
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.out, QByteArray());
    QVERIFY2(result.err.endsWith(": refused; nothing was applied\n"), result.err.constData());
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

void ZqlPolicyTest::dryRunPreviewMatchesTheApply()
{
    // The same apply, in a sandbox of its own that keeps what it wrote: the files after.
    const QString after = path("after");
    const ZqlTest::ToolRun kept = ZqlTest::runTool(
        SandboxProgram,
        {QStringLiteral("--share"), BuildDir, QStringLiteral("--keep"), after, QStringLiteral("--"),
         Program, QStringLiteral("apply"), QStringLiteral("-")},
        120000, ZqlTest::readBytes(HardeningPolicy));
    QVERIFY2(kept.succeeded(), qPrintable(kept.describe()));

    const Run result = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run")});
    QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
    const QMap<QByteArray, StatGroup> groups = statGroups(result.out);
    QCOMPARE(groups.keys(), (QList<QByteArray>{StateHeading, ConfigurationHeading})); // by name

    // Every count of the summary is GNU diff's, file by file and in each group's totals.
    QStringList configurationFiles;
    for (auto group = groups.begin(); group != groups.end(); ++group) {
        int added = 0;
        int removed = 0;
        for (const StatEntry &entry : group.value().entries) {
            int fileAdded = 0;
            int fileRemoved = 0;
            diffCounts(entry.path, after + entry.path, &fileAdded, &fileRemoved);
            QVERIFY2(
                entry.count == QByteArray::number(fileAdded + fileRemoved),
                qPrintable(entry.path + QStringLiteral(": ") + QString::fromUtf8(entry.count)));
            added += fileAdded;
            removed += fileRemoved;
            if (group.key() == ConfigurationHeading)
                configurationFiles.append(entry.path);
        }
        QCOMPARE(group.value().totals, totalsLine(group.value().entries.size(), added, removed));
    }
    QVERIFY(configurationFiles.contains(QStringLiteral("/etc/login.defs")));
    QVERIFY(configurationFiles.contains(QStringLiteral("/etc/pam.d/common-password")));

    // The diff applies with patch to a copy of the configuration files and gives what the apply
    // wrote.
    const QString copy = path("copy");
    for (const QString &file : qAsConst(configurationFiles)) {
        QVERIFY(QDir().mkpath(QFileInfo(copy + file).absolutePath()));
        if (QFileInfo::exists(file))
            QVERIFY(QFile::copy(file, copy + file));
    }
    const QByteArray diff = result.out.mid(result.out.indexOf("\n\ndiff --git ") + 2);
    const ZqlTest::ToolRun patched = ZqlTest::runTool(
        QStringLiteral("patch"),
        {QStringLiteral("-p1"), QStringLiteral("-d"), copy, QStringLiteral("-s")}, 30000, diff);
    QVERIFY2(patched.succeeded(), qPrintable(patched.describe()));
    for (const QString &file : qAsConst(configurationFiles))
        QVERIFY2(ZqlTest::readBytes(copy + file) == ZqlTest::readBytes(after + file),
                 qPrintable(file));

    // git apply takes it as well, outside any repository.
    const QString gitCopy = path("git-copy");
    for (const QString &file : qAsConst(configurationFiles)) {
        QVERIFY(QDir().mkpath(QFileInfo(gitCopy + file).absolutePath()));
        if (QFileInfo::exists(file))
            QVERIFY(QFile::copy(file, gitCopy + file));
    }
    const ZqlTest::ToolRun gitApplied = ZqlTest::runTool(
        QStringLiteral("sh"),
        {QStringLiteral("-c"), QStringLiteral("cd \"$0\" && git apply -p1 -"), gitCopy}, 30000,
        diff);
    QVERIFY2(gitApplied.succeeded(), qPrintable(gitApplied.describe()));
    for (const QString &file : qAsConst(configurationFiles))
        QVERIFY2(ZqlTest::readBytes(gitCopy + file) == ZqlTest::readBytes(after + file),
                 qPrintable(file));
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

void ZqlPolicyTest::dryRunStatAndFull()
{
    const Run plain = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run")});
    QVERIFY2(plain.exitCode == 0, qPrintable(describe(plain)));
    const int diffStart = plain.out.indexOf("\n\ndiff --git ") + 1;
    QVERIFY(diffStart > 0);
    // The configuration diff only: no backup and no state below /var.
    QVERIFY(!plain.out.mid(diffStart).contains(".bak b/"));
    QVERIFY(!plain.out.mid(diffStart).contains(" a/var/"));

    const Run stat = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run"),
                          QStringLiteral("--stat")});
    QVERIFY2(stat.exitCode == 0, qPrintable(describe(stat)));
    QCOMPARE(stat.out, plain.out.left(diffStart).replace(StateHeading, "Backups and tool state:"));

    const Run full = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run"),
                          QStringLiteral("--full")});
    QVERIFY2(full.exitCode == 0, qPrintable(describe(full)));
    // Every backup and piece of state gets its block, after the summary that lists them.
    const QList<StatEntry> state = statGroups(plain.out).value(StateHeading).entries;
    QVERIFY(!state.isEmpty());
    QVERIFY(full.out.startsWith(stat.out + '\n'));
    for (const StatEntry &entry : state) {
        const QByteArray header = "diff --git a" + entry.path.toUtf8() + " b" + entry.path.toUtf8();
        QVERIFY2(full.out.contains(header + '\n'), header.constData());
        QVERIFY2(!plain.out.contains(header + '\n'), header.constData());
    }
    // Piped output is plain whatever the environment.
    QVERIFY(!full.out.contains('\033'));
    const Run always = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run"),
                            QStringLiteral("--color=always")});
    QVERIFY(always.out.contains("\033[1mdiff --git a/etc/login.defs b/etc/login.defs\033[m\n"));

    const Run wrong = run({QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run"),
                           QStringLiteral("--color=sometimes")});
    QCOMPARE(wrong.exitCode, 2);
    QCOMPARE(wrong.err, QByteArray("zql-policy: --color takes auto, always or never, not "
                                   "\"sometimes\"\nTry 'zql-policy --help'.\n"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

void ZqlPolicyTest::driftAfterApplyingTheSamePolicy()
{
    const Run applied = run({QStringLiteral("apply"), HardeningPolicy});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    const Snapshot afterApply = configuration();
    ZqlTest::writeBytes(SwitchDir + QStringLiteral("/calls.log"), {});

    const Run drift = run({QStringLiteral("diff"), HardeningPolicy});
    QVERIFY2(drift.exitCode == 0, qPrintable(describe(drift)));
    QCOMPARE(drift.out, HardeningPolicy.toUtf8() +
                            ": follows: user-creation-policy, password-policy, account-lockout, "
                            "login-local, audit, maic, mac, mic, digsig, console-policy, "
                            "system-parameters, kiosk-global\n");
    // Reading only: no file changed, no switch was turned.
    QCOMPARE(differences(afterApply, configuration()), QString());
    const QByteArray calls = ZqlTest::readBytes(SwitchDir + QStringLiteral("/calls.log"));
    QVERIFY2(!calls.contains(" enable") && !calls.contains(" disable"), calls.constData());

    // The same policy applied twice: the second run has nothing to do.
    const Run again = run({QStringLiteral("apply"), HardeningPolicy});
    QVERIFY2(again.exitCode == 0, qPrintable(describe(again)));
    QCOMPARE(again.err,
             "zql-policy: " + HardeningPolicy.toUtf8() +
                 ": nothing to do; unchanged: user-creation-policy, password-policy, "
                 "account-lockout, login-local, audit, maic, mac, mic, digsig, console-policy, "
                 "system-parameters, kiosk-global\n");
    QCOMPARE(differences(afterApply, configuration()), QString());

    const Run json = run({QStringLiteral("diff"), HardeningPolicy, QStringLiteral("--json"),
                          QStringLiteral("--only"), QStringLiteral("login-local")});
    QCOMPARE(json.exitCode, 0);
    QCOMPARE(json.out, "{\n"
                       "    \"policy\": \"" +
                           HardeningPolicy.toUtf8() +
                           "\",\n"
                           "    \"result\": \"follows\",\n"
                           "    \"modules\": {\n"
                           "        \"login-local\": {\n"
                           "            \"status\": \"follows\",\n"
                           "            \"differences\": []\n"
                           "        }\n"
                           "    }\n"
                           "}\n");
}

void ZqlPolicyTest::driftOfOneChangedKey()
{
    // The tests start from an apply of start.json, the machine's own export.
    const QString policy = path("start.json");
    // One key changed by hand: who may log in locally.
    QByteArray conf = ZqlTest::readBytes(TesselConf);
    QVERIFY(conf.contains("\nlogin_local admin\n"));
    QVERIFY(ZqlTest::writeBytes(TesselConf,
                                conf.replace("\nlogin_local admin\n", "\nlogin_local all\n")));

    const Run drift = run({QStringLiteral("diff"), policy});
    QCOMPARE(drift.exitCode, 1);
    const QByteArray expected =
        QByteArray("login-local login_state: policy \"admin\", machine \"all\"\n") +
        policy.toUtf8() +
        ": drifted: login-local (1 key); follows: user-creation-policy, "
        "password-policy, account-lockout, audit, maic, mac, mic, digsig, console-policy, "
        "system-parameters, kiosk-global\n";
    QVERIFY2(drift.out == expected, drift.out.constData());

    const Run json = run({QStringLiteral("diff"), policy, QStringLiteral("--json"),
                          QStringLiteral("--only=login-local,account-lockout")});
    QCOMPARE(json.exitCode, 1);
    QCOMPARE(json.out, "{\n"
                       "    \"policy\": \"" +
                           policy.toUtf8() +
                           "\",\n"
                           "    \"result\": \"drifted\",\n"
                           "    \"modules\": {\n"
                           "        \"account-lockout\": {\n"
                           "            \"status\": \"follows\",\n"
                           "            \"differences\": []\n"
                           "        },\n"
                           "        \"login-local\": {\n"
                           "            \"status\": \"drifted\",\n"
                           "            \"differences\": [\n"
                           "                {\n"
                           "                    \"key\": \"login_state\",\n"
                           "                    \"policy\": \"admin\",\n"
                           "                    \"machine\": \"all\"\n"
                           "                }\n"
                           "            ]\n"
                           "        }\n"
                           "    }\n"
                           "}\n");
}

void ZqlPolicyTest::driftOfUnreadableModule()
{
    QVERIFY(QFile::remove(TesselConf));
    const Run drift = run({QStringLiteral("diff"), path("start.json"), QStringLiteral("--only"),
                           QStringLiteral("login-local,account-lockout")});
    // Not drift: the module could not be compared, and the status says so.
    QCOMPARE(drift.exitCode, 5);
    QCOMPARE(drift.out, "login-local: the settings could not be read\n" +
                            path("start.json").toUtf8() +
                            ": follows: account-lockout; unreadable: login-local\n");
    QVERIFY2(drift.err.startsWith("login-local : "), drift.err.constData());
}

void ZqlPolicyTest::rootLayerRunsOnLayeredSystem()
{
    // A layer of its own: a system where nobody may log in locally.
    QVERIFY(QDir().mkpath(path("layer/etc/tessel")));
    QVERIFY(ZqlTest::writeBytes(path("layer/etc/tessel/tessel.conf"), "login_local no\n"));
    const QString layer = path("layer");

    const Run got = run({QStringLiteral("--root-layer"), layer, QStringLiteral("get"),
                         QStringLiteral("login-local")});
    QVERIFY2(got.exitCode == 0, qPrintable(describe(got)));
    QVERIFY2(got.out.contains("\"login_state\": \"no\""), got.out.constData());

    QVERIFY(ZqlTest::writeBytes(path("all.json"), LoginAll));
    const Run applied =
        run({QStringLiteral("apply"), path("all.json"), QStringLiteral("--root-layer=") + layer});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    QCOMPARE(applied.err,
             QByteArray("zql-policy: " + path("all.json").toUtf8() + ": applied: login-local\n"));
    // Neither the layer nor the system outside the sandbox changed.
    QCOMPARE(ZqlTest::readBytes(path("layer/etc/tessel/tessel.conf")),
             QByteArray("login_local no\n"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());

    const Run missing =
        run({QStringLiteral("--root-layer"), path("nowhere"), QStringLiteral("list")});
    QCOMPARE(missing.exitCode, 125);
    QCOMPARE(missing.out, QByteArray());
    QCOMPARE(missing.err, QByteArray("zql-policy: the sandbox failed: layer " +
                                     path("nowhere").toUtf8() + ": No such file or directory\n"));
}

void ZqlPolicyTest::rootLayerExportToFile()
{
    QVERIFY(QDir().mkpath(path("layer2/etc/tessel")));
    QVERIFY(ZqlTest::writeBytes(path("layer2/etc/tessel/tessel.conf"), "login_local no\n"));
    const Run result =
        run({QStringLiteral("--root-layer"), path("layer2"), QStringLiteral("export"),
             QStringLiteral("-o"), path("layered.json"), QStringLiteral("login-local")});
    QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
    QCOMPARE(result.out, QByteArray());
    QCOMPARE(ZqlTest::readBytes(path("layered.json")),
             QByteArray("{\n"
                        "    \"format\": \"zql-policy\",\n"
                        "    \"version\": 1,\n"
                        "    \"login-local\": {\n"
                        "        \"login_state\": \"no\"\n"
                        "    }\n"
                        "}\n"));
}

void ZqlPolicyTest::unreadablePolicy_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("dryRun");
    QTest::newRow("check") << QStringLiteral("check") << false;
    QTest::newRow("apply") << QStringLiteral("apply") << false;
    QTest::newRow("apply --dry-run") << QStringLiteral("apply") << true;
}

void ZqlPolicyTest::unreadablePolicy()
{
    QFETCH(QString, command);
    QFETCH(bool, dryRun);

    QStringList arguments{command, path("absent.json")};
    if (dryRun)
        arguments << QStringLiteral("--dry-run");
    const Run missing = run(arguments);
    QCOMPARE(missing.exitCode, 4);
    QCOMPARE(missing.out, QByteArray());
    QCOMPARE(missing.err, QByteArray("zql-policy: cannot read \"" + path("absent.json").toUtf8() +
                                     "\": No such file or directory\n"));
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

namespace {
const QString MonitorBehaviour = QStringLiteral("/var/lib/zql-sim/security-monitor/behaviour");
// What the hanging security monitor runs (see sim/layer/usr/sbin/lumo-security-monitor).
const QByteArray HangingMonitor = QByteArray("sleep\0"
                                             "3600\0",
                                             11);

bool processWithCommandLine(const QByteArray &cmdline)
{
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        if (ZqlTest::readBytes(QStringLiteral("/proc/%1/cmdline").arg(pid)) == cmdline)
            return true;
    }
    return false;
}
} // namespace

// A dry run stopped while the sandboxed apply is half done: no partial diff, one line that says
// what happened, and nothing it started is left running.
void ZqlPolicyTest::interruptedDryRun_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QByteArray>("finalLine");
    QTest::newRow("SIGTERM") << int(SIGTERM)
                             << QByteArray(
                                    "zql-policy: interrupted by SIGTERM; nothing was changed");
    QTest::newRow("SIGINT") << int(SIGINT)
                            << QByteArray("zql-policy: interrupted by SIGINT; nothing was changed");
    QTest::newRow("SIGHUP") << int(SIGHUP)
                            << QByteArray("zql-policy: interrupted by SIGHUP; nothing was changed");
    QTest::newRow("SIGKILL") << int(SIGKILL) << QByteArray();
}

void ZqlPolicyTest::interruptedDryRun()
{
    QFETCH(int, signal);
    QFETCH(QByteArray, finalLine);

    QVERIFY(ZqlTest::writeBytes(MonitorBehaviour, "hang\n"));
    QProcess process;
    process.start(Program, {QStringLiteral("apply"), HardeningPolicy, QStringLiteral("--dry-run")});
    QVERIFY(process.waitForStarted(10000));
    QTRY_VERIFY_WITH_TIMEOUT(processWithCommandLine(HangingMonitor), 10000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), signal), 0);
    const bool finished = process.waitForFinished(10000);
    QFile::remove(MonitorBehaviour);
    QVERIFY(finished);

    QCOMPARE(process.readAllStandardOutput(), QByteArray());
    if (signal == SIGKILL) {
        QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    } else {
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 128 + signal);
        QCOMPARE(lastLine(process.readAllStandardError()), finalLine);
    }
    QTRY_VERIFY2_WITH_TIMEOUT(!processWithCommandLine(HangingMonitor),
                              "the security monitor the run started is still running", 10000);
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

// Sources that are no policy file: each is refused before it is read, at once.
void ZqlPolicyTest::unboundedSource_data()
{
    QTest::addColumn<QString>("source"); // a path, or "large standard input"
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("reason");

    const QByteArray notRegular = "not a regular file (give a file, or - for standard input)";
    const QByteArray tooLarge = "larger than 4 MiB";
    const QStringList dryRun{QStringLiteral("--dry-run")};
    for (const QStringList &options : {QStringList(), dryRun}) {
        const QString how = options.isEmpty() ? QStringLiteral("") : QStringLiteral(", dry run");
        QTest::addRow("a device%s", qPrintable(how))
            << QStringLiteral("/dev/zero") << options << notRegular;
        QTest::addRow("a FIFO without a writer%s", qPrintable(how))
            << QStringLiteral("fifo") << options << notRegular;
        QTest::addRow("a file of 4 MiB and a byte%s", qPrintable(how))
            << QStringLiteral("large.json") << options << tooLarge;
        QTest::addRow("a directory%s", qPrintable(how))
            << QStringLiteral("directory") << options << QByteArray("Is a directory");
    }
    QTest::newRow("standard input of 4 MiB and a byte")
        << QStringLiteral("-") << QStringList() << tooLarge;
}

void ZqlPolicyTest::unboundedSource()
{
    QFETCH(QString, source);
    QFETCH(QStringList, options);
    QFETCH(QByteArray, reason);

    QString file = source;
    QByteArray input;
    const QByteArray large = "{" + QByteArray(4 * 1024 * 1024 - 1, ' ') + "}";
    if (source == QLatin1String("fifo")) {
        file = path("policy.fifo");
        QFile::remove(file);
        QCOMPARE(::mkfifo(QFile::encodeName(file).constData(), 0600), 0);
    } else if (source == QLatin1String("large.json")) {
        file = path(source);
        QVERIFY(ZqlTest::writeBytes(file, large));
    } else if (source == QLatin1String("directory")) {
        file = path(source);
        QVERIFY(QDir().mkpath(file));
    } else if (source == QLatin1String("-")) {
        input = large;
    }
    const QByteArray shown = source == QLatin1String("-") ? "standard input" : file.toUtf8();
    for (const QString &command : {QStringLiteral("check"), QStringLiteral("apply")}) {
        if (command == QLatin1String("check") && !options.isEmpty())
            continue;
        const Run result = run(QStringList{command, file} + options, input);
        QVERIFY2(result.exitCode == 4, qPrintable(describe(result)));
        QCOMPARE(result.out, QByteArray());
        QCOMPARE(result.err, "zql-policy: cannot read \"" + shown + "\": " + reason + "\n");
    }
    QCOMPARE(differences(m_snapshot, configuration()), QString());
}

// A closed or full standard stream is said in one line, and nothing lands elsewhere.
void ZqlPolicyTest::closedOrFullStream_data()
{
    QTest::addColumn<QString>("script"); // run by sh with the program as $0
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("err");
    QTest::newRow("export with standard output closed")
        << QStringLiteral("exec \"$0\" export >&-") << 4
        << QByteArray("zql-policy: cannot write standard output: it is closed\n");
    QTest::newRow("get with standard output closed")
        << QStringLiteral("exec \"$0\" get login-local >&-") << 4
        << QByteArray("zql-policy: cannot write standard output: it is closed\n");
    QTest::newRow("check of standard input, closed")
        << QStringLiteral("exec \"$0\" check - <&-") << 4
        << QByteArray("zql-policy: cannot read \"standard input\": standard input is closed\n");
    QTest::newRow("export into a full file system")
        << QStringLiteral("exec \"$0\" export > \"$1\"/p.json") << 4
        << QByteArray("zql-policy: cannot write standard output: No space left on device\n");
}

void ZqlPolicyTest::closedOrFullStream()
{
    QFETCH(QString, script);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, err);

    const QString full = path("full-stream");
    QVERIFY(QDir().mkpath(full));
    QString error;
    QVERIFY2(ZqlTest::mountTmpfs(full, QStringLiteral("size=4k"), &error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(full + QStringLiteral("/filler"), QByteArray(4096, 'x')));
    const ZqlTest::ToolRun result =
        ZqlTest::runTool(QStringLiteral("sh"), {QStringLiteral("-c"), script, Program, full});
    ZqlTest::unmount(full, &error);
    QVERIFY2(result.ending == ZqlTest::ToolRun::Ending::Exited, qPrintable(result.describe()));
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.standardError, err);
}

void ZqlPolicyTest::exportToUnwritablePlace_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("missing directory")
        << QStringLiteral("/nonexistent-dir/p.json") << QByteArray("No such file or directory");
    QTest::newRow("full file system")
        << QStringLiteral("full/p.json") << QByteArray("No space left on device");
}

void ZqlPolicyTest::exportToUnwritablePlace()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, reason);

    QString file = target;
    if (target.startsWith(QLatin1String("full/"))) {
        // A tmpfs too small for the policy.
        QVERIFY(QDir().mkpath(path("full")));
        QString error;
        QVERIFY2(ZqlTest::mountTmpfs(path("full"), QStringLiteral("size=4k"), &error),
                 qPrintable(error));
        file = path(target);
        QVERIFY(ZqlTest::writeBytes(file, "the old export\n"));
    }
    const Run result = run({QStringLiteral("export"), QStringLiteral("-o"), file});
    if (target.startsWith(QLatin1String("full/"))) {
        // The old file is kept whole.
        QCOMPARE(ZqlTest::readBytes(file), QByteArray("the old export\n"));
    }
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.out, QByteArray());
    QVERIFY2(
        result.err.startsWith(QByteArray("zql-policy: cannot write \"" + file.toUtf8() + "\": ")),
        result.err.constData());
    QVERIFY2(result.err.contains(reason), result.err.constData());
}

namespace {

// Runs the program with both output streams on a terminal; returns what the terminal showed.
QByteArray runOnTerminal(const QStringList &arguments, int *exitCode)
{
    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (child < 0)
        return QByteArray();
    if (child == 0) {
        QVector<QByteArray> storage{QFile::encodeName(Program)};
        for (const QString &argument : arguments)
            storage.append(argument.toUtf8());
        QVector<char *> argv;
        for (QByteArray &argument : storage)
            argv.append(argument.data());
        argv.append(nullptr);
        ::setenv("ZQL_POLICY_PROGRESS_INTERVAL_MS", "200", 1);
        ::execv(argv.first(), argv.data());
        ::_exit(127);
    }
    QByteArray shown;
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(master, buffer, sizeof buffer);
        if (got <= 0)
            break; // EIO once the child has closed the terminal
        shown.append(buffer, static_cast<int>(got));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(master);
    *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return shown;
}

} // namespace

void ZqlPolicyTest::progressOnTerminal()
{
    // A switch that takes a second to turn: the step shows its elapsed time, then that it ended.
    QVERIFY(ZqlTest::writeBytes(SwitchDir + QStringLiteral("/console-tty-lock.fault"),
                                "disable delay 1\n"));
    QVERIFY(ZqlTest::writeBytes(path("slow.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1, "
                                "\"console-policy\": {\"console-tty-lock\": false}}"));
    int exitCode = -1;
    const QByteArray shown = runOnTerminal({QStringLiteral("apply"), path("slow.json")}, &exitCode);
    QCOMPARE(exitCode, 0);
    const QRegularExpression progress(
        QStringLiteral("^zql-policy: applying console-policy: \\d+\\.\\d s\\r$"),
        QRegularExpression::MultilineOption);
    QVERIFY2(progress.match(QString::fromUtf8(shown)).hasMatch(), shown.constData());
    const QRegularExpression done(
        QStringLiteral("^zql-policy: applying console-policy: done after \\d+\\.\\d s\\r$"),
        QRegularExpression::MultilineOption);
    QVERIFY2(done.match(QString::fromUtf8(shown)).hasMatch(), shown.constData());
    QCOMPARE(ZqlTest::readBytes(SwitchDir + QStringLiteral("/console-tty-lock.state")),
             QByteArray("disabled\n"));
}

void ZqlPolicyTest::noProgressWithoutTerminal()
{
    QVERIFY(ZqlTest::writeBytes(SwitchDir + QStringLiteral("/console-tty-lock.fault"),
                                "disable delay 1\n"));
    QVERIFY(ZqlTest::writeBytes(path("slow.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1, "
                                "\"console-policy\": {\"console-tty-lock\": false}}"));
    const Run result = run({QStringLiteral("apply"), path("slow.json")}, QByteArray(),
                           {QStringLiteral("ZQL_POLICY_PROGRESS_INTERVAL_MS=200")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.err, QByteArray("zql-policy: " + path("slow.json").toUtf8() +
                                    ": applied: console-policy\n"));
}

void ZqlPolicyTest::dryRunColourOnlyOnTerminal()
{
    QVERIFY(ZqlTest::writeBytes(path("all.json"), LoginAll));
    int exitCode = -1;
    const QByteArray shown = runOnTerminal(
        {QStringLiteral("apply"), path("all.json"), QStringLiteral("--dry-run")}, &exitCode);
    QCOMPARE(exitCode, 0);
    // git's colours; the terminal turns each line feed into CR LF.
    QVERIFY2(shown.contains(" /etc/tessel/tessel.conf | 2 \033[32m+\033[m\033[31m-\033[m\r\n"),
             shown.constData());
    QVERIFY2(shown.contains("\033[1mdiff --git a/etc/tessel/tessel.conf b/etc/tessel/tessel.conf"
                            "\033[m\r\n"),
             shown.constData());
    QVERIFY(shown.contains("\033[36m@@ -6,6 +6,6 @@\033[m\r\n"));
    QVERIFY(shown.contains("\033[31m-login_local admin\033[m\r\n"));
    QVERIFY(shown.contains("\033[32m+login_local all\033[m\r\n"));

    const QByteArray plain =
        runOnTerminal({QStringLiteral("apply"), path("all.json"), QStringLiteral("--dry-run"),
                       QStringLiteral("--color=never")},
                      &exitCode);
    QCOMPARE(exitCode, 0);
    QVERIFY2(plain.contains("+login_local all\r\n") && !plain.contains('\033'), plain.constData());
}

void ZqlPolicyTest::progressWhileRamDiskIsRebuilt()
{
    // Every digsig write rebuilds the initial RAM disks, here for a second: the terminal shows
    // how long the step has been running, then that it ended.
    QVERIFY(ZqlTest::writeBytes(InitramfsBehaviour, "delay 1\n"));
    QVERIFY(ZqlTest::writeBytes(path("digsig.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1, \"digsig\": "
                                "{\"Attributes\": \"Debug\", \"Files\": \"On\", "
                                "\"Templates\": \"security.ima\"}}"));
    int exitCode = -1;
    const QByteArray shown =
        runOnTerminal({QStringLiteral("apply"), path("digsig.json")}, &exitCode);
    QCOMPARE(exitCode, 0);
    const QRegularExpression progress(
        QStringLiteral("^zql-policy: applying digsig: \\d+\\.\\d s\\r$"),
        QRegularExpression::MultilineOption);
    QVERIFY2(progress.match(QString::fromUtf8(shown)).hasMatch(), shown.constData());
    const QRegularExpression done(
        QStringLiteral("^zql-policy: applying digsig: done after \\d+\\.\\d s\\r$"),
        QRegularExpression::MultilineOption);
    QVERIFY2(done.match(QString::fromUtf8(shown)).hasMatch(), shown.constData());
    QVERIFY(ZqlTest::readBytes(InitramfsImage).contains("DIGSIG_XATTR_MODE=2\n"));
}

void ZqlPolicyTest::auditMasksTravelExactly()
{
    // 2^53 + 1 and 2^64 - 1: a double would make the first 2^53, whose low 32 bits are 0. The
    // module keeps the low 32 bits of each.
    QVERIFY(ZqlTest::writeBytes(path("audit.json"),
                                "{\"format\": \"zql-policy\", \"version\": 1, \"audit\": "
                                "{\"success\": 9007199254740993, "
                                "\"fail\": 18446744073709551615}}"));
    const Run applied = run({QStringLiteral("apply"), path("audit.json")});
    QVERIFY2(applied.exitCode == 0, qPrintable(describe(applied)));
    QCOMPARE(ZqlTest::readBytes(AuditDatabase),
             QByteArray("zql-platform-auddb 1\n4::0x00000001:0xffffffff\n"));
    QVERIFY(ZqlTest::readBytes(EventLog).endsWith("\t99\tsuccess\to:o:ocxdrwamunil\t\t\n"));

    const Run got = run({QStringLiteral("get"), QStringLiteral("audit")});
    QCOMPARE(got.exitCode, 0);
    QVERIFY2(got.out.contains("\"fail\": 4294967295") && got.out.contains("\"success\": 1"),
             got.out.constData());
}

ZQL_SANDBOXED_TEST_MAIN(ZqlPolicyTest)
#include "zqlpolicytest.moc"
