// Runs zql-sandbox (and the library) on this machine and checks that nothing reaches the real
// root. Must itself run outside any sandbox, as root.
#include "sandbox.h"
#include "unifieddiff.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

struct Outcome
{
    int exitCode = -1;
    bool crashed = false;
    QByteArray out;
    QByteArray err;
};

const QString Binary = QStringLiteral(ZQL_SANDBOX_BINARY);
const QString RealFile = QStringLiteral("/etc/debian_version"); // a plain file on the root fs

// Scripts write to /etc: should the sandbox ever run them on the real root, they stop first
// (status 99) unless they are in another mount namespace whose root is an overlay.
const QString Guard =
    QStringLiteral("[ \"$ZQL_SANDBOX\" = 1 ] && [ -n \"$ZQL_SANDBOX_HOST_MNTNS\" ] && "
                   "[ \"$(stat -L -c %i /proc/self/ns/mnt)\" != \"$ZQL_SANDBOX_HOST_MNTNS\" ] && "
                   "awk '$5 == \"/\" { t = $0 } END { sub(/.* - /, \"\", t); split(t, f, \" \"); "
                   "exit f[1] != \"overlay\" }' /proc/self/mountinfo || exit 99\n");

QStringList shell(const QString &script)
{
    return {QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"), Guard + script};
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray("<unreadable>");
    return file.readAll();
}

bool writeFile(const QString &path, const QByteArray &data, mode_t mode = 0644)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(data) != data.size())
        return false;
    file.close();
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

QStringList changeLines(const QByteArray &err)
{
    QStringList lines;
    const QList<QByteArray> all = err.split('\n');
    for (const QByteArray &line : all) {
        if (line.size() > 2 && QByteArray("AMD").contains(line.at(0)) && line.at(1) == ' ' &&
            line.at(2) == '/')
            lines << QString::fromLocal8Bit(line);
    }
    return lines;
}

bool existsOnHost(const QString &path)
{
    struct stat st;
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

// Runs a shell script on the host in dir, to build a layer there.
bool runIn(const QString &dir, const QString &script)
{
    QProcess process;
    process.setWorkingDirectory(dir);
    process.start(QStringLiteral("sh"), {QStringLiteral("-ec"), script});
    return process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// Sets PATH for the lifetime of the object.
class PathOverride
{
public:
    explicit PathOverride(const QByteArray &path)
        : m_saved(qgetenv("PATH"))
    {
        qputenv("PATH", path);
    }
    ~PathOverride() { qputenv("PATH", m_saved); }
    PathOverride(const PathOverride &) = delete;
    PathOverride &operator=(const PathOverride &) = delete;

private:
    QByteArray m_saved;
};

ino_t mountNamespace()
{
    struct stat st;
    return ::stat("/proc/self/ns/mnt", &st) == 0 ? st.st_ino : 0;
}

} // namespace

class SandboxTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void writesStayInside();
    void layerIsVisible();
    void laterLayerWins();
    void realFileVisibleAndUnchanged();
    void changesAreListed();
    void changesWithoutLayers();
    void rootIsOverlayInOtherNamespace();
    void tmpIsPrivate();
    void missingLayerFailsClosed();
    void failureInsideNamespaceFailsClosed();
    void nonRootIsRefused();
    void exitStatusPassesThrough();
    void commandNotFound();
    void usageErrors();
    void keepDirHoldsUpperLayer();
    void keepDirMustBeEmpty();
    void leftoverProcessesEnd();
    void terminationEndsEverything();
    void killEndsEverything();
    void commandHasItsOwnPidNamespace();
    void staleBaseIsRemoved();
    void workingDirectory();
    void sharedDirectory();
    void libraryApi();
    void diffShowsChange_data();
    void diffShowsChange();
    void diffBeforeComesFromLayer();
    void diffNotWrittenWhenCommandDidNotStart();
    void diffWithoutDiffProgram();
    void inspectorSeesBothVersions();
    void inspectorNotCalled();
    void inspectorExceptionAfterCleanUp();
    void unifiedDiffFailures_data();
    void unifiedDiffFailures();

private:
    Outcome run(const QStringList &args, const QString &workingDir = QString(),
                const QString &program = QString());
    QString name(const char *what) const;

    QString m_tag;
};

void SandboxTest::initTestCase()
{
    QVERIFY2(::geteuid() == 0, "zql-sandbox needs root: run the suite as root");
    QVERIFY2(qEnvironmentVariableIsEmpty("ZQL_SANDBOX"),
             "must run outside a sandbox: it checks the real root");
    QVERIFY2(QFile::exists(Binary), qPrintable(Binary));
    m_tag = QStringLiteral("zsbt-%1-%2")
                .arg(QCoreApplication::applicationPid())
                .arg(QRandomGenerator::global()->generate() % 1000000);
}

QString SandboxTest::name(const char *what) const
{
    return QStringLiteral("/etc/%1-%2").arg(m_tag, QLatin1String(what));
}

Outcome SandboxTest::run(const QStringList &args, const QString &workingDir, const QString &program)
{
    QProcess process;
    if (program.isEmpty()) {
        process.setProgram(Binary);
        process.setArguments(args);
    } else {
        process.setProgram(program);
        process.setArguments(args);
    }
    if (!workingDir.isEmpty())
        process.setWorkingDirectory(workingDir);
    process.start();
    Outcome outcome;
    if (!process.waitForStarted(10000) || !process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        outcome.crashed = true;
        return outcome;
    }
    outcome.crashed = process.exitStatus() != QProcess::NormalExit;
    outcome.exitCode = process.exitCode();
    outcome.out = process.readAllStandardOutput();
    outcome.err = process.readAllStandardError();
    return outcome;
}

void SandboxTest::writesStayInside()
{
    const QString path = name("written");
    QVERIFY(!QFile::exists(path));
    const Outcome o = run(shell(QStringLiteral("echo inside > %1 && cat %1").arg(path)));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, QByteArray("inside\n"));
    QVERIFY(!QFile::exists(path));
}

void SandboxTest::layerIsVisible()
{
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    QVERIFY(writeFile(layer.path() + name("layered"), "from the layer\n"));
    const Outcome o = run({QStringLiteral("--layer"), layer.path(), QStringLiteral("--"),
                           QStringLiteral("cat"), name("layered")});
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, QByteArray("from the layer\n"));
    QVERIFY(!QFile::exists(name("layered")));
}

void SandboxTest::laterLayerWins()
{
    QTemporaryDir lower, upper;
    QVERIFY(lower.isValid() && upper.isValid());
    QVERIFY(writeFile(lower.path() + name("both"), "lower\n"));
    QVERIFY(writeFile(lower.path() + name("loweronly"), "only lower\n"));
    QVERIFY(writeFile(upper.path() + name("both"), "upper\n"));
    const Outcome o =
        run({QStringLiteral("--layer"), lower.path(), QStringLiteral("--layer=") + upper.path(),
             QStringLiteral("--"), QStringLiteral("cat"), name("both"), name("loweronly")});
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, QByteArray("upper\nonly lower\n"));
}

void SandboxTest::realFileVisibleAndUnchanged()
{
    const QByteArray before = readAll(RealFile);
    QVERIFY(!before.isEmpty());
    const Outcome o =
        run(shell(QStringLiteral("cat %1 && echo changed >> %1 && tail -n 1 %1").arg(RealFile)));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, before + "changed\n");
    QCOMPARE(readAll(RealFile), before);
}

void SandboxTest::changesAreListed()
{
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    const QString l = layer.path();
    QVERIFY(writeFile(l + name("gone"), "gone\n"));
    QVERIFY(writeFile(l + name("append"), "append\n"));
    QVERIFY(writeFile(l + name("touched"), "touched\n"));
    QVERIFY(writeFile(l + name("same"), "same\n"));
    QVERIFY(writeFile(l + name("mode"), "mode\n"));
    QVERIFY(writeFile(l + name("modesame"), "modesame\n"));
    QVERIFY(writeFile(l + name("dir") + QStringLiteral("/a"), "old a\n"));
    QVERIFY(writeFile(l + name("dir") + QStringLiteral("/b"), "b\n"));
    const QByteArray layerAppend = readAll(l + name("append"));

    const QString script =
        QStringLiteral("set -e\n"
                       "echo x > %1\n"
                       "rm %2\n"
                       "echo y >> %3\n"
                       "touch %4\n"
                       "cat %5 > /tmp/same; cat /tmp/same > %5\n"
                       "chmod 600 %6\n"
                       "chmod 644 %7\n"
                       "mkdir %8\n"
                       "mkdir -p %9/sub; echo z > %9/sub/f\n")
            .arg(name("new"), name("gone"), name("append"), name("touched"), name("same"),
                 name("mode"), name("modesame"), name("emptydir"), name("newdir")) +
        QStringLiteral("rm -rf %1; mkdir %1; echo new > %1/a\n"
                       "echo >> %2\n"
                       "ln -s %2 %3\n"
                       "echo tmp > /tmp/%4\n")
            .arg(name("dir"), RealFile, name("link"), m_tag);
    const Outcome o =
        run(QStringList{QStringLiteral("--layer"), l, QStringLiteral("--changes")} + shell(script));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());

    QStringList expected{
        QStringLiteral("M ") + RealFile,
        QStringLiteral("A ") + name("new"),
        QStringLiteral("D ") + name("gone"),
        QStringLiteral("M ") + name("append"),
        QStringLiteral("M ") + name("mode"),
        QStringLiteral("A ") + name("emptydir"),
        QStringLiteral("A ") + name("newdir") + QStringLiteral("/sub/f"),
        QStringLiteral("M ") + name("dir") + QStringLiteral("/a"),
        QStringLiteral("D ") + name("dir") + QStringLiteral("/b"),
        QStringLiteral("A ") + name("link"),
    };
    // Sorted by path, byte by byte.
    std::sort(expected.begin(), expected.end(), [](const QString &a, const QString &b) {
        return a.mid(2).toUtf8() < b.mid(2).toUtf8();
    });
    QCOMPARE(changeLines(o.err), expected);
    // Only the change lines go to standard error.
    QCOMPARE(o.err, (expected.join(QLatin1Char('\n')) + QLatin1Char('\n')).toUtf8());
    // The layer itself is never changed.
    QCOMPARE(readAll(l + name("append")), layerAppend);
    QVERIFY(QFile::exists(l + name("gone")));
}

void SandboxTest::changesWithoutLayers()
{
    const Outcome quiet = run(QStringList{QStringLiteral("--changes")} +
                              shell(QStringLiteral("touch %1").arg(RealFile)));
    QVERIFY2(!quiet.crashed && quiet.exitCode == 0, quiet.err.constData());
    QCOMPARE(changeLines(quiet.err), QStringList());

    const Outcome o = run(QStringList{QStringLiteral("--changes")} +
                          shell(QStringLiteral("rm %1; echo n > %2").arg(RealFile, name("n"))));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(changeLines(o.err),
             (QStringList{QStringLiteral("D ") + RealFile, QStringLiteral("A ") + name("n")}));
    QVERIFY(QFile::exists(RealFile));
}

void SandboxTest::rootIsOverlayInOtherNamespace()
{
    const Outcome o = run(shell(QStringLiteral("cat /proc/self/mountinfo;"
                                               "echo \"SB=$ZQL_SANDBOX\";"
                                               "echo \"HOSTNS=$ZQL_SANDBOX_HOST_MNTNS\";"
                                               "echo \"NS=$(stat -L -c %i /proc/self/ns/mnt)\"")));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QByteArray rootType, sb, hostNs, ns;
    const QList<QByteArray> lines = o.out.split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith("SB=")) {
            sb = line.mid(3);
        } else if (line.startsWith("HOSTNS=")) {
            hostNs = line.mid(7);
        } else if (line.startsWith("NS=")) {
            ns = line.mid(3);
        } else {
            const QList<QByteArray> fields = line.split(' ');
            const int dash = fields.indexOf("-");
            if (fields.size() > 4 && fields.at(4) == "/" && dash > 0 && dash + 1 < fields.size())
                rootType = fields.at(dash + 1);
        }
    }
    QCOMPARE(rootType, QByteArray("overlay"));
    QCOMPARE(sb, QByteArray("1"));
    QCOMPARE(hostNs, QByteArray::number(quint64(mountNamespace())));
    QVERIFY(!ns.isEmpty());
    QVERIFY(ns != hostNs);
}

void SandboxTest::tmpIsPrivate()
{
    QTemporaryDir here;
    QVERIFY(here.isValid());
    const Outcome o = run(shell(
        QStringLiteral("test ! -e %1 && ls -A /tmp && echo x > /tmp/%2").arg(here.path(), m_tag)));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, QByteArray());
    QVERIFY(!QFile::exists(QStringLiteral("/tmp/") + m_tag));
}

void SandboxTest::missingLayerFailsClosed()
{
    const QString missing = QStringLiteral("/nonexistent-") + m_tag;
    const Outcome o = run({QStringLiteral("--layer"), missing, QStringLiteral("--"),
                           QStringLiteral("echo"), QStringLiteral("RAN")});
    QVERIFY(!o.crashed);
    QCOMPARE(o.exitCode, 125);
    QVERIFY(!o.out.contains("RAN"));
    QVERIFY2(o.err.startsWith("zql-sandbox: layer " + missing.toUtf8()), o.err.constData());
}

void SandboxTest::failureInsideNamespaceFailsClosed()
{
    // A layer that does not fit on the tmpfs: cp fails inside the new namespace.
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    QVERIFY(writeFile(layer.path() + QStringLiteral("/big"), QByteArray(1 << 20, 'x')));
    const QString marker = name("ran");
    const Outcome o = run(QStringList{QStringLiteral("--tmpfs-size"), QStringLiteral("16k"),
                                      QStringLiteral("--layer"), layer.path()} +
                          shell(QStringLiteral("echo RAN; touch %1").arg(marker)));
    QVERIFY(!o.crashed);
    QCOMPARE(o.exitCode, 125);
    QVERIFY(!o.out.contains("RAN"));
    QVERIFY2(o.err.contains("zql-sandbox: copy layer " + layer.path().toUtf8()), o.err.constData());
    QVERIFY(!QFile::exists(marker));

    const Outcome bad = run({QStringLiteral("--tmpfs-size"), QStringLiteral("2g,uid=5"),
                             QStringLiteral("--"), QStringLiteral("echo"), QStringLiteral("RAN")});
    QCOMPARE(bad.exitCode, 125);
    QVERIFY(!bad.out.contains("RAN"));
    QVERIFY2(bad.err.startsWith("zql-sandbox: invalid tmpfs size"), bad.err.constData());

    // tmpfs takes a size of 0 as no limit: refused in every spelling.
    for (const char *zero : {"0", "00", "0k", "0M", "0%"}) {
        const Outcome unlimited =
            run({QStringLiteral("--tmpfs-size"), QString::fromLatin1(zero), QStringLiteral("--"),
                 QStringLiteral("echo"), QStringLiteral("RAN")});
        QCOMPARE(unlimited.exitCode, 125);
        QVERIFY(!unlimited.out.contains("RAN"));
        QCOMPARE(unlimited.err, "zql-sandbox: invalid tmpfs size '" + QByteArray(zero) +
                                    "' (tmpfs takes 0 as no limit; give a size above 0)\n");
    }
}

void SandboxTest::nonRootIsRefused()
{
    const QString setpriv = QStandardPaths::findExecutable(QStringLiteral("setpriv"));
    QVERIFY2(!setpriv.isEmpty(), "setpriv (util-linux) not found");
    const Outcome o = run({QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                           QStringLiteral("--clear-groups"), Binary, QStringLiteral("--"),
                           QStringLiteral("echo"), QStringLiteral("RAN")},
                          QStringLiteral("/"), setpriv);
    QVERIFY(!o.crashed);
    QCOMPARE(o.exitCode, 125);
    QVERIFY(!o.out.contains("RAN"));
    QVERIFY2(o.err.contains("must be run as root"), o.err.constData());
}

void SandboxTest::exitStatusPassesThrough()
{
    const struct
    {
        const char *script;
        int status;
    } cases[] = {
        {"exit 0", 0},
        {"exit 7", 7},
        {"exit 125", 125},
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
    };
    for (const auto &c : cases) {
        const Outcome o = run(shell(QLatin1String(c.script)));
        QVERIFY(!o.crashed);
        QCOMPARE(o.exitCode, c.status);
        QCOMPARE(o.err, QByteArray()); // a command's 125 is not a sandbox failure
    }
}

void SandboxTest::commandNotFound()
{
    const Outcome o = run({QStringLiteral("--"), QStringLiteral("/nonexistent/") + m_tag});
    QVERIFY(!o.crashed);
    QCOMPARE(o.exitCode, 127);
    QVERIFY2(o.err.contains("cannot run"), o.err.constData());
}

void SandboxTest::usageErrors()
{
    const Outcome none = run({});
    QCOMPARE(none.exitCode, 125);
    QVERIFY(none.err.contains("Usage:"));

    const Outcome onlyOptions = run({QStringLiteral("--changes"), QStringLiteral("--")});
    QCOMPARE(onlyOptions.exitCode, 125);

    const Outcome unknown =
        run({QStringLiteral("--bogus"), QStringLiteral("echo"), QStringLiteral("RAN")});
    QCOMPARE(unknown.exitCode, 125);
    QVERIFY(!unknown.out.contains("RAN"));
    QVERIFY(unknown.err.contains("unknown option --bogus"));

    const Outcome noValue = run({QStringLiteral("--layer")});
    QCOMPARE(noValue.exitCode, 125);

    const Outcome help = run({QStringLiteral("--help")});
    QCOMPARE(help.exitCode, 0);
    QVERIFY(help.out.startsWith("Usage: zql-sandbox"));

    // Options after the command belong to the command.
    const Outcome late = run({QStringLiteral("echo"), QStringLiteral("--bogus")});
    QCOMPARE(late.exitCode, 0);
    QCOMPARE(late.out, QByteArray("--bogus\n"));
}

void SandboxTest::keepDirHoldsUpperLayer()
{
    QTemporaryDir layer, scratch;
    QVERIFY(layer.isValid() && scratch.isValid());
    QVERIFY(writeFile(layer.path() + name("gone"), "gone\n"));
    const QString keep = scratch.path() + QStringLiteral("/keep");
    const Outcome o =
        run(QStringList{QStringLiteral("--layer"), layer.path(), QStringLiteral("--keep"), keep} +
            shell(QStringLiteral("echo kept > %1; rm %2").arg(name("kept"), name("gone"))));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(readAll(keep + name("kept")), QByteArray("kept\n"));
    struct stat st;
    QCOMPARE(::lstat(QFile::encodeName(keep + name("gone")).constData(), &st), 0);
    QVERIFY(S_ISCHR(st.st_mode) && st.st_rdev == makedev(0, 0)); // overlayfs whiteout
    QVERIFY(!QFile::exists(name("kept")));
}

void SandboxTest::keepDirMustBeEmpty()
{
    QTemporaryDir keep;
    QVERIFY(keep.isValid());
    QVERIFY(writeFile(keep.path() + QStringLiteral("/existing"), "x\n"));
    const Outcome o = run({QStringLiteral("--keep"), keep.path(), QStringLiteral("--"),
                           QStringLiteral("echo"), QStringLiteral("RAN")});
    QCOMPARE(o.exitCode, 125);
    QVERIFY(!o.out.contains("RAN"));
    QVERIFY2(o.err.startsWith("zql-sandbox: keep directory"), o.err.constData());
}

void SandboxTest::leftoverProcessesEnd()
{
    // A unique duration marks the background process in /proc.
    const QByteArray duration =
        QByteArray::number(40 + QRandomGenerator::global()->bounded(1000)) + ".5";
    QElapsedTimer timer;
    timer.start();
    const Outcome o =
        run(shell(QStringLiteral("sleep %1 & echo started").arg(QString::fromLatin1(duration))));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, QByteArray("started\n"));
    QVERIFY2(timer.elapsed() < 20000, "the background process kept the sandbox alive");
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        const QByteArray cmdline = readAll(QStringLiteral("/proc/%1/cmdline").arg(pid));
        QVERIFY2(cmdline != QByteArray("sleep\0", 6) + duration + '\0',
                 "the background process survived");
    }
}

void SandboxTest::terminationEndsEverything()
{
    const QByteArray duration =
        QByteArray::number(40 + QRandomGenerator::global()->bounded(1000)) + ".75";
    QProcess process;
    process.setProgram(Binary);
    process.setArguments(shell(
        QStringLiteral("sleep %1 & echo started; sleep %1").arg(QString::fromLatin1(duration))));
    process.start();
    QVERIFY(process.waitForStarted(10000));
    QVERIFY(process.waitForReadyRead(10000));
    QElapsedTimer timer;
    timer.start();
    process.terminate(); // SIGTERM
    QVERIFY(process.waitForFinished(20000));
    QVERIFY(timer.elapsed() < 10000);
    QCOMPARE(process.exitStatus(), QProcess::CrashExit); // ended by the same signal
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        const QByteArray cmdline = readAll(QStringLiteral("/proc/%1/cmdline").arg(pid));
        QVERIFY2(cmdline != QByteArray("sleep\0", 6) + duration + '\0',
                 "a process of the command survived");
    }
}

namespace {
bool processWithCommandLine(const QByteArray &cmdline)
{
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString &pid : pids) {
        if (readAll(QStringLiteral("/proc/%1/cmdline").arg(pid)) == cmdline)
            return true;
    }
    return false;
}

QStringList baseDirectories()
{
    return QDir(QStringLiteral("/tmp"))
        .entryList({QStringLiteral("zsb.??????")}, QDir::Dirs | QDir::Hidden);
}
} // namespace

// SIGKILL leaves the sandbox no time for anything: the kernel must end the command's processes,
// also those it put in the background, and the next sandbox removes the directory it left.
void SandboxTest::killEndsEverything()
{
    const QByteArray duration =
        QByteArray::number(40 + QRandomGenerator::global()->bounded(1000)) + ".25";
    const QByteArray sleeper = QByteArray("sleep\0", 6) + duration + '\0';
    const QStringList basesBefore = baseDirectories();
    QProcess process;
    process.setProgram(Binary);
    process.setArguments(shell(QStringLiteral("setsid sleep %1 & sleep %1 & echo started; wait")
                                   .arg(QString::fromLatin1(duration))));
    process.start();
    QVERIFY(process.waitForStarted(10000));
    QVERIFY(process.waitForReadyRead(10000));
    QTRY_VERIFY_WITH_TIMEOUT(processWithCommandLine(sleeper), 10000);
    QStringList left = baseDirectories();
    for (const QString &base : basesBefore)
        left.removeAll(base);
    // Sandboxes of suites running beside this one may appear here too.
    QVERIFY(!left.isEmpty());

    process.kill(); // SIGKILL
    QVERIFY(process.waitForFinished(10000));
    QTRY_VERIFY2_WITH_TIMEOUT(!processWithCommandLine(sleeper), "a process of the command survived",
                              10000);
    // The killed sandbox's directory stays until a sandbox starts: the next one here, or one of
    // a test running beside this one, removes it.

    const Outcome next = run(shell(QStringLiteral("true")));
    QVERIFY2(!next.crashed && next.exitCode == 0, next.err.constData());
    // Ours is gone; a neighbour's that is still running (and holds its lock) may stay.
    for (const QString &base : qAsConst(left)) {
        const QString path = QStringLiteral("/tmp/") + base;
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY);
        const bool stale = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (fd >= 0)
            ::close(fd);
        QVERIFY2(!stale, qPrintable(path + QStringLiteral(" is stale and still there")));
    }
}

void SandboxTest::commandHasItsOwnPidNamespace()
{
    struct stat pidNamespace;
    QCOMPARE(::stat("/proc/self/ns/pid", &pidNamespace), 0);
    const Outcome o =
        run(shell(QStringLiteral("echo $$; ls /proc > /tmp/p; grep -c '^[0-9]' /tmp/p; "
                                 "[ \"$(stat -L -c %i /proc/self/ns/pid)\" != %1 ] "
                                 "&& echo other")
                      .arg(pidNamespace.st_ino)));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    // The shell is the second process of the namespace, after the one that waits for it; its
    // /proc shows the namespace's processes only: those two and ls.
    QCOMPARE(o.out, QByteArray("2\n3\nother\n"));
}

// A base directory that no live sandbox holds is removed; one that is held stays.
void SandboxTest::staleBaseIsRemoved()
{
    char staleTemplate[] = "/tmp/zsb.XXXXXX";
    char heldTemplate[] = "/tmp/zsb.XXXXXX";
    QVERIFY(::mkdtemp(staleTemplate));
    QVERIFY(::mkdtemp(heldTemplate));
    const int held = ::open(heldTemplate, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QVERIFY(held >= 0);
    QCOMPARE(::flock(held, LOCK_EX), 0);
    char otherName[] = "/tmp/zsb.other-name";
    QVERIFY(::mkdir(otherName, 0700) == 0 || errno == EEXIST);

    const Outcome o = run(shell(QStringLiteral("true")));
    const bool staleLeft = existsOnHost(QString::fromLatin1(staleTemplate));
    const bool heldLeft = existsOnHost(QString::fromLatin1(heldTemplate));
    const bool otherLeft = existsOnHost(QString::fromLatin1(otherName));
    ::close(held);
    ::rmdir(heldTemplate);
    ::rmdir(otherName);
    ::rmdir(staleTemplate);
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QVERIFY2(!staleLeft, staleTemplate);
    QVERIFY2(heldLeft, heldTemplate);
    QVERIFY2(otherLeft, otherName);
}

void SandboxTest::workingDirectory()
{
    const Outcome etc = run({QStringLiteral("pwd")}, QStringLiteral("/etc"));
    QCOMPARE(etc.exitCode, 0);
    QCOMPARE(etc.out, QByteArray("/etc\n"));

    // Host /tmp is hidden by the sandbox's own /tmp: fall back to "/".
    QTemporaryDir here;
    QVERIFY(here.isValid());
    const Outcome hidden = run({QStringLiteral("pwd")}, here.path());
    QCOMPARE(hidden.exitCode, 0);
    QCOMPARE(hidden.out, QByteArray("/\n"));
}

void SandboxTest::sharedDirectory()
{
    // A host directory under /tmp, which the sandbox's fresh /tmp would hide, shown
    // copy-on-write: readable and writable inside, unchanged outside.
    QTemporaryDir shared;
    QVERIFY(shared.isValid());
    QVERIFY(writeFile(shared.path() + QStringLiteral("/data"), "shared\n"));
    const Outcome o =
        run({QStringLiteral("--share"), shared.path(), QStringLiteral("--changes"),
             QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"),
             QStringLiteral("cat %1/data; echo x > %1/data; echo y > %1/new; cat %1/data; pwd")
                 .arg(shared.path())},
            shared.path());
    QCOMPARE(o.exitCode, 0);
    QCOMPARE(o.out, "shared\nx\n" + shared.path().toUtf8() + '\n');
    QCOMPARE(o.err, QByteArray()); // writes to a share are not changes of the root
    QCOMPARE(readAll(shared.path() + QStringLiteral("/data")), QByteArray("shared\n"));
    QVERIFY(!QFile::exists(shared.path() + QStringLiteral("/new")));

    const QString missing = QStringLiteral("/nonexistent-") + m_tag;
    const Outcome bad = run({QStringLiteral("--share"), missing, QStringLiteral("--"),
                             QStringLiteral("echo"), QStringLiteral("RAN")});
    QCOMPARE(bad.exitCode, 125);
    QVERIFY(!bad.out.contains("RAN"));
    QVERIFY2(bad.err.startsWith("zql-sandbox: shared directory " + missing.toUtf8()),
             bad.err.constData());
}

void SandboxTest::libraryApi()
{
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    QVERIFY(writeFile(layer.path() + name("api"), "api\n"));

    ZqlSandbox::Sandbox sandbox;
    sandbox.addLayer(layer.path().toStdString());
    QCOMPARE(sandbox.tmpfsSize(), std::string("2g"));
    const std::string added = name("apiadded").toStdString();
    const int status = sandbox.run({"sh", "-c",
                                    Guard.toStdString() + "echo a > " + added + " && rm " +
                                        name("api").toStdString() + " && exit 3"});
    QCOMPARE(status, 3);
    QVERIFY(sandbox.errorString().empty());
    QVERIFY(sandbox.commandRan());
    // Sorted by path: ".../api" before ".../apiadded".
    const std::vector<ZqlSandbox::Change> expected{{'D', name("api").toStdString()}, {'A', added}};
    QVERIFY(sandbox.changes() == expected);
    QVERIFY(!QFile::exists(name("apiadded")));

    ZqlSandbox::Sandbox broken;
    broken.addLayer("/nonexistent-" + m_tag.toStdString());
    QCOMPARE(broken.run({"true"}), ZqlSandbox::Sandbox::ExitSetupFailed);
    QVERIFY(!broken.commandRan());
    QVERIFY(broken.changes().empty());
    QVERIFY(broken.errorString().rfind("zql-sandbox: layer ", 0) == 0);

    ZqlSandbox::Sandbox empty;
    QCOMPARE(empty.run({}), ZqlSandbox::Sandbox::ExitSetupFailed);
    QVERIFY(!empty.errorString().empty());
}

void SandboxTest::diffShowsChange_data()
{
    // layer: a script run in the layer's directory on the host; script: run inside, in "/".
    // Both see $P, a relative path under etc/; {P} in the expected diff stands for it.
    QTest::addColumn<QString>("layer");
    QTest::addColumn<QString>("script");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("modified text")
        << QStringLiteral("seq 1 10 > $P") << QStringLiteral("sed -i 5s/5/five/ $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "--- a/{P}\n"
                      "+++ b/{P}\n"
                      "@@ -2,7 +2,7 @@\n"
                      " 2\n"
                      " 3\n"
                      " 4\n"
                      "-5\n"
                      "+five\n"
                      " 6\n"
                      " 7\n"
                      " 8\n");
    QTest::newRow("added file") << QString() << QStringLiteral("echo added > $P")
                                << QByteArray("diff --git a/{P} b/{P}\n"
                                              "new file mode 100644\n"
                                              "--- /dev/null\n"
                                              "+++ b/{P}\n"
                                              "@@ -0,0 +1 @@\n"
                                              "+added\n");
    QTest::newRow("added empty file") << QString() << QStringLiteral(": > $P")
                                      << QByteArray("diff --git a/{P} b/{P}\n"
                                                    "new file mode 100644\n");
    QTest::newRow("added executable")
        << QString() << QStringLiteral("printf '#!/bin/sh\\n' > $P; chmod 755 $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "new file mode 100755\n"
                      "--- /dev/null\n"
                      "+++ b/{P}\n"
                      "@@ -0,0 +1 @@\n"
                      "+#!/bin/sh\n");
    QTest::newRow("no newline at end") << QString() << QStringLiteral("printf last > $P")
                                       << QByteArray("diff --git a/{P} b/{P}\n"
                                                     "new file mode 100644\n"
                                                     "--- /dev/null\n"
                                                     "+++ b/{P}\n"
                                                     "@@ -0,0 +1 @@\n"
                                                     "+last\n"
                                                     "\\ No newline at end of file\n");
    QTest::newRow("deleted file") << QStringLiteral("echo gone > $P") << QStringLiteral("rm $P")
                                  << QByteArray("diff --git a/{P} b/{P}\n"
                                                "deleted file mode 100644\n"
                                                "--- a/{P}\n"
                                                "+++ /dev/null\n"
                                                "@@ -1 +0,0 @@\n"
                                                "-gone\n");
    QTest::newRow("mode only") << QStringLiteral("echo same > $P") << QStringLiteral("chmod 600 $P")
                               << QByteArray("diff --git a/{P} b/{P}\n"
                                             "old mode 100644\n"
                                             "new mode 100600\n");
    QTest::newRow("owner only") << QStringLiteral("echo same > $P")
                                << QStringLiteral("chown 1000:1000 $P")
                                << QByteArray("diff --git a/{P} b/{P}\n"
                                              "old owner 0:0\n"
                                              "new owner 1000:1000\n");
    QTest::newRow("mode, owner and content")
        << QStringLiteral("echo one > $P")
        << QStringLiteral("echo two >> $P; chown 1000:0 $P; chmod 640 $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old mode 100644\n"
                      "new mode 100640\n"
                      "old owner 0:0\n"
                      "new owner 1000:0\n"
                      "--- a/{P}\n"
                      "+++ b/{P}\n"
                      "@@ -1 +1,2 @@\n"
                      " one\n"
                      "+two\n");
    QTest::newRow("new symlink") << QString() << QStringLiteral("ln -s /etc/target $P")
                                 << QByteArray("diff --git a/{P} b/{P}\n"
                                               "new file mode 120000\n"
                                               "new symlink /etc/target\n");
    QTest::newRow("changed symlink")
        << QStringLiteral("ln -s old-target $P") << QStringLiteral("ln -sfn new-target $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old symlink old-target\n"
                      "new symlink new-target\n");
    QTest::newRow("deleted symlink")
        << QStringLiteral("ln -s gone-target $P") << QStringLiteral("rm $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "deleted file mode 120000\n"
                      "old symlink gone-target\n");
    QTest::newRow("binary") << QStringLiteral("printf 'a\\0b' > $P")
                            << QStringLiteral("printf 'a\\0c' > $P")
                            << QByteArray("diff --git a/{P} b/{P}\n"
                                          "Binary files a/{P} and b/{P} differ\n");
    QTest::newRow("added binary") << QString() << QStringLiteral("printf '\\0' > $P")
                                  << QByteArray("diff --git a/{P} b/{P}\n"
                                                "new file mode 100644\n"
                                                "Binary files /dev/null and b/{P} differ\n");
    QTest::newRow("new empty directory") << QString() << QStringLiteral("mkdir -m 755 $P")
                                         << QByteArray("diff --git a/{P} b/{P}\n"
                                                       "new directory mode 040755\n");
    QTest::newRow("new directory with a file")
        << QString() << QStringLiteral("mkdir -m 700 $P; echo x > $P/x")
        << QByteArray("diff --git a/{P}/x b/{P}/x\n"
                      "new file mode 100644\n"
                      "--- /dev/null\n"
                      "+++ b/{P}/x\n"
                      "@@ -0,0 +1 @@\n"
                      "+x\n");
    QTest::newRow("removed directory")
        << QStringLiteral("mkdir $P; echo x > $P/x") << QStringLiteral("rm -r $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "deleted directory mode 040755\n");
    QTest::newRow("file replaced by a directory")
        << QStringLiteral("echo old > $P")
        << QStringLiteral("rm $P; mkdir -m 755 $P; echo new > $P/x")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old type regular file\n"
                      "new type directory\n"
                      "old mode 100644\n"
                      "new mode 040755\n"
                      "diff --git a/{P}/x b/{P}/x\n"
                      "new file mode 100644\n"
                      "--- /dev/null\n"
                      "+++ b/{P}/x\n"
                      "@@ -0,0 +1 @@\n"
                      "+new\n");
    QTest::newRow("directory replaced by a file")
        << QStringLiteral("mkdir $P; echo x > $P/x") << QStringLiteral("rm -r $P; echo new > $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old type directory\n"
                      "new type regular file\n"
                      "old mode 040755\n"
                      "new mode 100644\n"
                      "--- /dev/null\n"
                      "+++ b/{P}\n"
                      "@@ -0,0 +1 @@\n"
                      "+new\n");
    QTest::newRow("symlink replaced by a file")
        << QStringLiteral("ln -s t $P") << QStringLiteral("rm $P; echo r > $P")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old type symbolic link\n"
                      "new type regular file\n"
                      "old mode 120000\n"
                      "new mode 100644\n"
                      "old symlink t\n"
                      "--- /dev/null\n"
                      "+++ b/{P}\n"
                      "@@ -0,0 +1 @@\n"
                      "+r\n");
    QTest::newRow("new fifo") << QString() << QStringLiteral("mkfifo -m 644 $P")
                              << QByteArray("diff --git a/{P} b/{P}\n"
                                            "new file mode 010644\n"
                                            "new type fifo\n");
    QTest::newRow("device number")
        << QStringLiteral("mknod -m 600 $P c 1 3") << QStringLiteral("rm $P; mknod -m 600 $P c 1 5")
        << QByteArray("diff --git a/{P} b/{P}\n"
                      "old type character device 1:3\n"
                      "new type character device 1:5\n");
}

void SandboxTest::diffShowsChange()
{
    QFETCH(QString, layer);
    QFETCH(QString, script);
    QFETCH(QByteArray, expected);
    const QString path = name("diff");
    const QString p = path.mid(1);
    const QString variables = QStringLiteral("set -e; umask 022; P=%1\n").arg(p);
    QTemporaryDir layerDir;
    QVERIFY(layerDir.isValid());
    QVERIFY(runIn(layerDir.path(), variables + QStringLiteral("mkdir -p etc\n") + layer));

    const Outcome o =
        run(QStringList{QStringLiteral("--layer"), layerDir.path(), QStringLiteral("--diff")} +
            shell(variables + QStringLiteral("cd /\n") + script));
    QVERIFY2(!o.crashed && o.exitCode == 0, o.err.constData());
    QCOMPARE(o.out, expected.replace("{P}", p.toUtf8()));
    QCOMPARE(o.err, QByteArray());
    QVERIFY(!existsOnHost(path));
}

void SandboxTest::diffBeforeComesFromLayer()
{
    const QByteArray real = readAll(RealFile);
    QVERIFY2(real.endsWith('\n') && real.count('\n') == 1, "expects a one-line file");
    const QByteArray p = RealFile.mid(1).toUtf8();
    const QByteArray modified =
        "diff --git a/" + p + " b/" + p + "\n--- a/" + p + "\n+++ b/" + p + "\n@@ -1 +1,2 @@\n";
    const QString script =
        QStringLiteral("echo ran; echo changed >> %1; rm -f %2").arg(RealFile, name("loweronly"));

    // With the real root alone, the old version is the machine's own file. The command's
    // output comes first.
    const Outcome plain = run(QStringList{QStringLiteral("--diff")} + shell(script));
    QVERIFY2(!plain.crashed && plain.exitCode == 0, plain.err.constData());
    QCOMPARE(plain.out, "ran\n" + modified + ' ' + real + "+changed\n");

    // With layers, it is the topmost layer's version.
    QTemporaryDir lower, upper;
    QVERIFY(lower.isValid() && upper.isValid());
    QVERIFY(writeFile(lower.path() + RealFile, "lower\n"));
    QVERIFY(writeFile(lower.path() + name("loweronly"), "only lower\n"));
    QVERIFY(writeFile(upper.path() + RealFile, "from the layer\n"));
    const Outcome layered =
        run(QStringList{QStringLiteral("--layer"), lower.path(), QStringLiteral("--layer"),
                        upper.path(), QStringLiteral("--diff"), QStringLiteral("--changes")} +
            shell(script));
    QVERIFY2(!layered.crashed && layered.exitCode == 0, layered.err.constData());
    const QByteArray gone = name("loweronly").mid(1).toUtf8();
    QCOMPARE(layered.out, "ran\n" + modified + " from the layer\n+changed\n" + "diff --git a/" +
                              gone + " b/" + gone +
                              "\ndeleted file mode 100644\n"
                              "--- a/" +
                              gone + "\n+++ /dev/null\n@@ -1 +0,0 @@\n-only lower\n");
    QCOMPARE(layered.err, "M " + RealFile.toUtf8() + "\nD /" + gone + '\n');

    // Neither the real root nor the layers changed.
    QCOMPARE(readAll(RealFile), real);
    QCOMPARE(readAll(upper.path() + RealFile), QByteArray("from the layer\n"));
    QCOMPARE(readAll(lower.path() + name("loweronly")), QByteArray("only lower\n"));
}

void SandboxTest::diffNotWrittenWhenCommandDidNotStart()
{
    const QString marker = name("notstarted");
    const Outcome missing = run(QStringList{QStringLiteral("--diff"), QStringLiteral("--layer"),
                                            QStringLiteral("/nonexistent-") + m_tag} +
                                shell(QStringLiteral("echo RAN; echo x > %1").arg(marker)));
    QCOMPARE(missing.exitCode, 125);
    QCOMPARE(missing.out, QByteArray());
    QVERIFY2(missing.err.startsWith("zql-sandbox: layer "), missing.err.constData());

    // Failing inside the new namespace: the layer does not fit on the tmpfs.
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    QVERIFY(writeFile(layer.path() + QStringLiteral("/big"), QByteArray(1 << 20, 'x')));
    const Outcome full =
        run(QStringList{QStringLiteral("--diff"), QStringLiteral("--tmpfs-size"),
                        QStringLiteral("16k"), QStringLiteral("--layer"), layer.path()} +
            shell(QStringLiteral("echo RAN; echo x > %1").arg(marker)));
    QCOMPARE(full.exitCode, 125);
    QCOMPARE(full.out, QByteArray());
    QVERIFY2(full.err.contains("zql-sandbox: copy layer "), full.err.constData());

    const Outcome notFound = run(
        {QStringLiteral("--diff"), QStringLiteral("--"), QStringLiteral("/nonexistent/") + m_tag});
    QCOMPARE(notFound.exitCode, 127);
    QCOMPARE(notFound.out, QByteArray());
    QVERIFY2(notFound.err.startsWith("zql-sandbox: cannot run "), notFound.err.constData());
    QVERIFY(!existsOnHost(marker));
}

void SandboxTest::diffWithoutDiffProgram()
{
    // The command runs and its output stays; the diff cannot be written, and that is a
    // failure of the sandbox (125), with the command's status in the message.
    QTemporaryDir emptyBin;
    QVERIFY(emptyBin.isValid());
    const QString marker = name("nodiff");
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PATH"), emptyBin.path());
    process.setProcessEnvironment(env);
    process.start(Binary, {QStringLiteral("--diff"), QStringLiteral("--"),
                           QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                           QStringLiteral("PATH=/usr/sbin:/usr/bin:/sbin:/bin\n") + Guard +
                               QStringLiteral("echo ran; echo x > %1").arg(marker)});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 125);
    QCOMPARE(process.readAllStandardOutput(), QByteArray("ran\n"));
    QCOMPARE(process.readAllStandardError(),
             "zql-sandbox: write the diff: cannot run diff: not found in PATH (" +
                 emptyBin.path().toUtf8() + ") (the command ran and exited with status 0)\n");
    QVERIFY(!existsOnHost(marker));
}

void SandboxTest::inspectorSeesBothVersions()
{
    QTemporaryDir layer;
    QVERIFY(layer.isValid());
    QVERIFY(writeFile(layer.path() + name("inspected"), "before\n"));
    QVERIFY(writeFile(layer.path() + name("removed"), "removed\n"));
    const QByteArray real = readAll(RealFile);

    ZqlSandbox::Sandbox sandbox;
    sandbox.addLayer(layer.path().toStdString());
    int calls = 0;
    std::vector<ZqlSandbox::ChangedFile> seen;
    QStringList read; // "K path [before] [after]", read during the call
    sandbox.setInspector([&](const std::vector<ZqlSandbox::ChangedFile> &files) {
        ++calls;
        seen = files;
        for (const ZqlSandbox::ChangedFile &file : files) {
            auto contents = [](const std::string &path) {
                return path.empty() ? QStringLiteral("-")
                                    : QString::fromUtf8(readAll(QString::fromStdString(path)));
            };
            read << QStringLiteral("%1 %2 [%3] [%4]")
                        .arg(QString(QLatin1Char(file.change.kind)),
                             QString::fromStdString(file.change.path), contents(file.before),
                             contents(file.after));
        }
    });
    const int status = sandbox.run(
        {"sh", "-c",
         Guard.toStdString() +
             (QStringLiteral("echo after > %1; rm %2; echo added > %3; echo more >> %4; "
                             "exit 3")
                  .arg(name("inspected"), name("removed"), name("added"), RealFile))
                 .toStdString()});
    QCOMPARE(status, 3);
    QVERIFY(sandbox.errorString().empty());
    QCOMPARE(calls, 1);
    QStringList expected{
        QStringLiteral("M %1 [%2] [%2more\n]").arg(RealFile, QString::fromUtf8(real)),
        QStringLiteral("A %1 [-] [added\n]").arg(name("added")),
        QStringLiteral("M %1 [before\n] [after\n]").arg(name("inspected")),
        QStringLiteral("D %1 [removed\n] [-]").arg(name("removed")),
    };
    QCOMPARE(read, expected);
    std::vector<ZqlSandbox::Change> changes;
    for (const ZqlSandbox::ChangedFile &file : seen) {
        changes.push_back(file.change);
        // Reached through the sandbox process; gone with it.
        for (const std::string &path : {file.before, file.after}) {
            if (path.empty())
                continue;
            const QString p = QString::fromStdString(path);
            QVERIFY2(p.startsWith(QStringLiteral("/proc/")) &&
                         p.endsWith(QString::fromStdString(file.change.path)),
                     qPrintable(p));
            QVERIFY2(!existsOnHost(p), qPrintable(p));
        }
    }
    QVERIFY(changes == sandbox.changes());
    QCOMPARE(readAll(RealFile), real);
    QVERIFY(!existsOnHost(name("added")));
}

void SandboxTest::inspectorNotCalled()
{
    int calls = 0;
    auto count = [&calls](const std::vector<ZqlSandbox::ChangedFile> &) { ++calls; };

    ZqlSandbox::Sandbox broken;
    broken.addLayer("/nonexistent-" + m_tag.toStdString());
    broken.setInspector(count);
    QCOMPARE(broken.run({"true"}), ZqlSandbox::Sandbox::ExitSetupFailed);
    QCOMPARE(calls, 0);

    ZqlSandbox::Sandbox notFound;
    notFound.setInspector(count);
    QCOMPARE(notFound.run({"/nonexistent/" + m_tag.toStdString()}), 127);
    QCOMPARE(calls, 0);

    ZqlSandbox::Sandbox unrecorded;
    unrecorded.setRecordChanges(false);
    unrecorded.setInspector(count);
    QCOMPARE(unrecorded.run({"true"}), 0);
    QCOMPARE(calls, 0);

    // A command's own 127 is not a failure to start it; an empty inspector is none.
    ZqlSandbox::Sandbox own;
    own.setInspector(count);
    QCOMPARE(own.run({"sh", "-c", "exit 127"}), 127);
    QCOMPARE(calls, 1);
    own.setInspector(ZqlSandbox::Inspector());
    QCOMPARE(own.run({"true"}), 0);
    QCOMPARE(calls, 1);
}

void SandboxTest::inspectorExceptionAfterCleanUp()
{
    ZqlSandbox::Sandbox sandbox;
    std::string upper;
    sandbox.setInspector([&upper](const std::vector<ZqlSandbox::ChangedFile> &files) {
        upper = files.at(0).after;
        throw std::runtime_error("inspector failed");
    });
    bool thrown = false;
    try {
        sandbox.run({"sh", "-c",
                     Guard.toStdString() +
                         QStringLiteral("echo x > %1").arg(name("thrown")).toStdString()});
    } catch (const std::runtime_error &e) {
        thrown = std::string(e.what()) == "inspector failed";
    }
    QVERIFY(thrown);
    // "/proc/PID/root/tmp/zsb.XXXXXX/upper/etc/...": the process is reaped, the directory gone.
    const QStringList parts = QString::fromStdString(upper).split(QLatin1Char('/'));
    QVERIFY2(parts.size() > 6 && parts.at(5).startsWith(QStringLiteral("zsb.")), upper.c_str());
    QVERIFY(!existsOnHost(QStringLiteral("/proc/") + parts.at(2)));
    QVERIFY(!existsOnHost(QStringLiteral("/tmp/") + parts.at(5)));
    QVERIFY(!existsOnHost(name("thrown")));
}

void SandboxTest::unifiedDiffFailures_data()
{
    // diff: the program found in PATH ("" none, "-" the machine's own, else a script);
    // {DIR} stands for the directory in PATH, {OLD} and {NEW} for the files compared.
    QTest::addColumn<QByteArray>("diff");
    QTest::addColumn<bool>("oldMissing");
    QTest::addColumn<bool>("readerGone");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QByteArray>("written");

    QTest::newRow("no diff in PATH")
        << QByteArray() << false << false
        << QStringLiteral("cannot run diff: not found in PATH ({DIR})") << QByteArray();
    QTest::newRow("diff status 2")
        << QByteArray("#!/bin/sh\necho 'diff: trouble' >&2\nexit 2\n") << false << false
        << QStringLiteral("{DIR}/diff failed on /etc/changed with status 2: diff: trouble")
        << QByteArray("diff --git a/etc/changed b/etc/changed\n");
    QTest::newRow("diff killed") << QByteArray("#!/bin/sh\nkill -KILL $$\n") << false << false
                                 << QStringLiteral("{DIR}/diff was killed by signal 9 on "
                                                   "/etc/changed")
                                 << QByteArray("diff --git a/etc/changed b/etc/changed\n");
    QTest::newRow("diff not executable")
        << QByteArray("#!/nonexistent/interpreter\n") << false << false
        << QStringLiteral("cannot run {DIR}/diff: No such file or directory")
        << QByteArray("diff --git a/etc/changed b/etc/changed\n");
    QTest::newRow("old version missing")
        << QByteArray("-") << true << false
        << QStringLiteral("read {OLD}: No such file or directory") << QByteArray();
    QTest::newRow("reader gone") << QByteArray("-") << false << true
                                 << QStringLiteral("write the diff of /etc/changed: Broken pipe")
                                 << QByteArray();
}

void SandboxTest::unifiedDiffFailures()
{
    QFETCH(QByteArray, diff);
    QFETCH(bool, oldMissing);
    QFETCH(bool, readerGone);
    QFETCH(QString, error);
    QFETCH(QByteArray, written);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString bin = dir.path() + QStringLiteral("/bin");
    QVERIFY(QDir().mkpath(bin));
    if (!diff.isEmpty() && diff != "-")
        QVERIFY(writeFile(bin + QStringLiteral("/diff"), diff, 0755));
    const QString oldFile = dir.path() + QStringLiteral("/old");
    const QString newFile = dir.path() + QStringLiteral("/new");
    if (!oldMissing)
        QVERIFY(writeFile(oldFile, "old\n"));
    QVERIFY(writeFile(newFile, "new\n"));
    const std::vector<ZqlSandbox::ChangedFile> files{
        {{'M', "/etc/changed"}, oldFile.toStdString(), newFile.toStdString()}};

    int fds[2];
    QCOMPARE(::pipe2(fds, O_CLOEXEC), 0);
    if (readerGone) {
        ::close(fds[0]);
        fds[0] = -1;
    }
    bool ok = false;
    std::string message;
    {
        PathOverride path(diff == "-" ? qgetenv("PATH") : QFile::encodeName(bin));
        ok = ZqlSandbox::writeUnifiedDiff(files, fds[1], &message);
    }
    ::close(fds[1]);
    QByteArray out;
    if (fds[0] >= 0) {
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
            out.append(buffer, static_cast<int>(n));
        ::close(fds[0]);
    }
    QVERIFY(!ok);
    QCOMPARE(QString::fromStdString(message), QString(error)
                                                  .replace(QStringLiteral("{DIR}"), bin)
                                                  .replace(QStringLiteral("{OLD}"), oldFile));
    QCOMPARE(out, written);
    // The closed reader did not end this process, and no SIGPIPE is left pending.
    sigset_t pending;
    QCOMPARE(::sigpending(&pending), 0);
    QVERIFY(!sigismember(&pending, SIGPIPE));
}

QTEST_GUILESS_MAIN(SandboxTest)
#include "sandboxtest.moc"
