#include "outputcapture.h"
#include "searchpathfront.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {
// A handler that records what it is offered and replaces matched lines by a fixed text (or
// leaves them whole when it has none), appending a fixed tail at the end.
class RecordingHandler : public RegExpHandler
{
public:
    RecordingHandler(const QString &pattern, const QByteArray &replacement = {},
                     const QByteArray &tail = {})
        : RegExpHandler(pattern)
        , m_replacement(replacement)
        , m_tail(tail)
    {}

    bool handleLine(QByteArray *line) override
    {
        captures << regExp().cap(1);
        if (!line)
            return false;
        offered << *line;
        if (m_replacement.isNull())
            return false;
        *line = m_replacement;
        return true;
    }

    bool appendMissing(QByteArray *tail) override
    {
        if (m_tail.isNull())
            return false;
        *tail = m_tail;
        return true;
    }

    QList<QByteArray> offered;
    QStringList captures;

private:
    QByteArray m_replacement;
    QByteArray m_tail;
};

// Which of the target, its ".tmp" and its ".bak" exist, and what they hold.
struct Survivors
{
    explicit Survivors(const QString &path)
        : target(ZqlTest::readBytes(path))
        , temporary(ZqlTest::readBytes(path + QStringLiteral(".tmp")))
        , backup(ZqlTest::readBytes(path + QStringLiteral(".bak")))
    {}
    QByteArray target;
    QByteArray temporary;
    QByteArray backup;
};

// The tool as QProcess runs it: its messages start with the path found on the search path.
const QString CopyTool = QStandardPaths::findExecutable(QStringLiteral("cp"));

const QByteArray OldContent = "# policy\nkey = 1   # the old value\nother = 2\n";
const QByteArray NewContent = "# policy\nkey = 2\t# the old value\nother = 2\n";

// How a rewrite is made to fail.
enum Failure {
    ReadOnlyDirectory,    // the temporary copy cannot be created
    MissingCopyTool,      // cp is not on the search path
    DirectoryAsTemporary, // the temporary file cannot be opened for writing
    FullDisk,             // the temporary file cannot be written whole
    DirectoryAsBackup,    // the backup cannot be made
    ReadOnlyTarget,       // the target is a mount point: the rename over it fails
    BusyTemporary,        // the temporary file is a mount point: it cannot be renamed
};

// What a path holds after a failed rewrite.
enum Held {
    Nothing,   // it does not exist
    OldBytes,  // the content before the rewrite
    NewBytes,  // the rewritten content
    Directory, // the directory that was put in the way
};

void verifyHeld(const QString &path, Held held, const QByteArray &oldBytes,
                const QByteArray &newBytes)
{
    const QFileInfo info(path);
    switch (held) {
    case Nothing:
        QVERIFY2(!info.exists(), qPrintable(path + QStringLiteral(" exists")));
        break;
    case OldBytes:
        QCOMPARE(ZqlTest::readBytes(path), oldBytes);
        break;
    case NewBytes:
        QCOMPARE(ZqlTest::readBytes(path), newBytes);
        break;
    case Directory:
        QVERIFY2(info.isDir(), qPrintable(path + QStringLiteral(" is not a directory")));
        break;
    }
}
} // namespace

Q_DECLARE_METATYPE(Failure)
Q_DECLARE_METATYPE(Held)

class ConfigFileEngineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void rewrite_data();
    void rewrite();
    void readOffersMatchingLinesOnly();
    void setRegExpReplacesThePattern();
    void baseAppendMissingAddsNothing();
    void readMissingFile();
    void readDirectory();
    void rewriteMissingFileCreatesNothing();
    void messagesAppendToEarlierText();
    void rewriteKeepsModeAndOwner();
    void existingBackup_data();
    void existingBackup();
    void rewriteFailure_data();
    void rewriteFailure();
    void nearlyFullDiskKeepsTheTarget();
    void staleTemporaryIsReplaced();
    void rewriteFollowsSymbolicLink();
    void rewriteKeepsExtendedAttributes();
    void rewriteKeepsSetGroupIdMode();
    void copyFileMissingSource();
    void copyFileKeepsSourceModeAndOwner();
    void copyFileFindsCpOnSearchPath();

private:
    QString m_dir;
    QString m_path;
    QStringList m_mounts;
    QTemporaryDir *m_temporaryDir = nullptr;
    void mountOrFail(bool ok, const QString &mountPoint, const QString &error);
};

void ConfigFileEngineTest::init()
{
    // Each test gets a fresh directory of the sandbox's own /etc, so the paths look like the
    // real ones and nothing leaks between tests.
    m_temporaryDir = new QTemporaryDir(QStringLiteral("/etc/zql-engine-test-XXXXXX"));
    QVERIFY(m_temporaryDir->isValid());
    m_dir = m_temporaryDir->path();
    m_path = m_dir + QStringLiteral("/policy.conf");
}

void ConfigFileEngineTest::cleanup()
{
    QString error;
    while (!m_mounts.isEmpty())
        ZqlTest::unmount(m_mounts.takeLast(), &error);
    delete m_temporaryDir;
    m_temporaryDir = nullptr;
}

void ConfigFileEngineTest::mountOrFail(bool ok, const QString &mountPoint, const QString &error)
{
    QVERIFY2(ok, qPrintable(error));
    m_mounts << mountPoint;
}

void ConfigFileEngineTest::rewrite_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QByteArray>("replacement");
    QTest::addColumn<QByteArray>("tail");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QList<QByteArray>>("offered");

    const QString key = QStringLiteral("^key\\s*=");
    QTest::newRow("blank and comment-only lines are copied and never offered")
        << QByteArray("# key = 0\n\n   \n\t# key = 0 again\n  #key\nkey = 1\n") << key
        << QByteArray("key = 2") << QByteArray()
        << QByteArray("# key = 0\n\n   \n\t# key = 0 again\n  #key\nkey = 2\n")
        << QList<QByteArray>{"key = 1\n"};
    QTest::newRow("replaced line keeps its comment after one tab")
        << QByteArray("key = 1   #  the comment  \n") << key << QByteArray("key = 2")
        << QByteArray() << QByteArray("key = 2\t#  the comment\n")
        << QList<QByteArray>{"key = 1   #  the comment  \n"};
    QTest::newRow("replaced line without comment")
        << QByteArray("key = 1\n") << key << QByteArray("key = 2") << QByteArray()
        << QByteArray("key = 2\n") << QList<QByteArray>{"key = 1\n"};
    QTest::newRow("a lone hash is a comment too")
        << QByteArray("key = 1 #\n") << key << QByteArray("key = 2") << QByteArray()
        << QByteArray("key = 2\t#\n") << QList<QByteArray>{"key = 1 #\n"};
    QTest::newRow("hash inside a value starts the comment")
        << QByteArray("key = a#b\n") << QStringLiteral("^key = a$") << QByteArray("key = c")
        << QByteArray() << QByteArray("key = c\t#b\n") << QList<QByteArray>{"key = a#b\n"};
    QTest::newRow("last line without line break gets one when replaced")
        << QByteArray("a = 0\nkey = 1") << key << QByteArray("key = 2") << QByteArray()
        << QByteArray("a = 0\nkey = 2\n") << QList<QByteArray>{"key = 1"};
    QTest::newRow("handler that keeps lines leaves the bytes alone")
        << QByteArray("key = 1  # c\r\nkey=3\nkey = 4") << key << QByteArray() << QByteArray()
        << QByteArray("key = 1  # c\r\nkey=3\nkey = 4")
        << QList<QByteArray>{"key = 1  # c\r\n", "key=3\n", "key = 4"};
    QTest::newRow("pattern searches the whole content, unanchored")
        << QByteArray("  prefix key=1 suffix  \n") << QStringLiteral("key=1") << QByteArray("new")
        << QByteArray() << QByteArray("new\n") << QList<QByteArray>{"  prefix key=1 suffix  \n"};
    QTest::newRow("matching is case-sensitive")
        << QByteArray("KEY = 1\n") << key << QByteArray("key = 2") << QByteArray()
        << QByteArray("KEY = 1\n") << QList<QByteArray>();
    QTest::newRow("empty file gets only what is missing")
        << QByteArray() << key << QByteArray("key = 2") << QByteArray("key = 9\n")
        << QByteArray("key = 9\n") << QList<QByteArray>();
    QTest::newRow("missing lines are appended after the last line as given")
        << QByteArray("a = 1") << key << QByteArray("key = 2") << QByteArray("key = 9")
        << QByteArray("a = 1key = 9") << QList<QByteArray>();
    QTest::newRow("non-ASCII comment survives")
        << QByteArray("key = 1 # \xd0\xba\xd0\xbb\xd1\x8e\xd1\x87\n") << key
        << QByteArray("key = 2") << QByteArray()
        << QByteArray("key = 2\t# \xd0\xba\xd0\xbb\xd1\x8e\xd1\x87\n")
        << QList<QByteArray>{"key = 1 # \xd0\xba\xd0\xbb\xd1\x8e\xd1\x87\n"};
}

void ConfigFileEngineTest::rewrite()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, pattern);
    QFETCH(QByteArray, replacement);
    QFETCH(QByteArray, tail);
    QFETCH(QByteArray, after);
    QFETCH(QList<QByteArray>, offered);

    QVERIFY(ZqlTest::writeBytes(m_path, before));
    RecordingHandler handler(pattern, replacement, tail);
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, true));
    QCOMPARE(errors, QString());
    QCOMPARE(handler.offered, offered);

    const Survivors files(m_path);
    QCOMPARE(files.target, after);
    QCOMPARE(files.backup, before);
    QVERIFY2(files.temporary.isNull(), "the temporary file was left behind");
}

void ConfigFileEngineTest::readOffersMatchingLinesOnly()
{
    const QByteArray content = "# key = 0\nkey = 1 # one\n\nother = 5\n  key =   7\n#key = 8\n";
    QVERIFY(ZqlTest::writeBytes(m_path, content));
    RecordingHandler handler(QStringLiteral("^key\\s*=\\s*(\\S+)"));
    QString errors;
    QVERIFY(readFileWithHandler(m_path, handler, errors));
    QCOMPARE(errors, QString());
    QCOMPARE(handler.captures, (QStringList{QStringLiteral("1"), QStringLiteral("7")}));
    QVERIFY(handler.offered.isEmpty()); // reading offers a null line
    QCOMPARE(ZqlTest::readBytes(m_path), content);
    QVERIFY(!QFileInfo::exists(m_path + QStringLiteral(".tmp")));
}

void ConfigFileEngineTest::setRegExpReplacesThePattern()
{
    QVERIFY(ZqlTest::writeBytes(m_path, "key = 1\nother = 2\n"));
    RecordingHandler handler(QStringLiteral("^key\\s*=\\s*(\\S+)"));
    handler.setRegExp(QRegExp(QStringLiteral("^other\\s*=\\s*(\\S+)")));
    QString errors;
    QVERIFY(readFileWithHandler(m_path, handler, errors));
    QCOMPARE(handler.captures, QStringList{QStringLiteral("2")});
}

void ConfigFileEngineTest::baseAppendMissingAddsNothing()
{
    // A handler that keeps the base appendMissing: only the matched lines can change.
    struct KeepingHandler : RegExpHandler
    {
        KeepingHandler()
            : RegExpHandler(QStringLiteral("^key"))
        {}
        bool handleLine(QByteArray *line) override
        {
            *line = "key = 2";
            return true;
        }
    } handler;
    QByteArray tail = "untouched";
    QVERIFY(!handler.appendMissing(&tail));
    QCOMPARE(tail, QByteArray("untouched"));

    QVERIFY(ZqlTest::writeBytes(m_path, "a = 1\nkey = 1\n"));
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, false));
    QCOMPARE(ZqlTest::readBytes(m_path), QByteArray("a = 1\nkey = 2\n"));
}

void ConfigFileEngineTest::readMissingFile()
{
    RecordingHandler handler(QStringLiteral("key"));
    QString errors;
    QVERIFY(!readFileWithHandler(m_path, handler, errors));
    QCOMPARE(errors, QStringLiteral("\"%1\" not exists").arg(m_path));
    QVERIFY(handler.captures.isEmpty());
}

void ConfigFileEngineTest::readDirectory()
{
    // Something that exists but cannot be opened as a file.
    QVERIFY(QDir().mkdir(m_path));
    RecordingHandler handler(QStringLiteral("key"));
    QString errors;
    QVERIFY(!readFileWithHandler(m_path, handler, errors));
    QCOMPARE(errors, QStringLiteral("\"%1\" error 5\nfile to open is a directory").arg(m_path));
}

void ConfigFileEngineTest::rewriteMissingFileCreatesNothing()
{
    RecordingHandler handler(QStringLiteral("key"), "key = 2", "key = 2\n");
    QString errors;
    QVERIFY(!rewriteFileWithHandler(m_path, handler, errors, true));
    QCOMPARE(errors, QStringLiteral("\"%1\" not exists").arg(m_path));
    QCOMPARE(QDir(m_dir).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList());
}

void ConfigFileEngineTest::messagesAppendToEarlierText()
{
    RecordingHandler handler(QStringLiteral("key"));
    QString errors = QStringLiteral("earlier");
    QVERIFY(!readFileWithHandler(m_path, handler, errors));
    QVERIFY(!rewriteFileWithHandler(m_path, handler, errors, false));
    QCOMPARE(errors, QStringLiteral("earlier\n\"%1\" not exists\n\"%1\" not exists").arg(m_path));
}

void ConfigFileEngineTest::rewriteKeepsModeAndOwner()
{
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    QVERIFY(::chmod(QFile::encodeName(m_path).constData(), 0640) == 0);
    QVERIFY(::chown(QFile::encodeName(m_path).constData(), 1, 42) == 0);
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, false));
    QCOMPARE(errors, QString());
    QCOMPARE(ZqlTest::readBytes(m_path), NewContent);
    struct stat info = {};
    QCOMPARE(::stat(QFile::encodeName(m_path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 0640u);
    QCOMPARE(info.st_uid, 1u);
    QCOMPARE(info.st_gid, 42u);
    QVERIFY(!QFileInfo::exists(m_path + QStringLiteral(".bak")));
}

void ConfigFileEngineTest::existingBackup_data()
{
    QTest::addColumn<bool>("makeBackup");
    QTest::addColumn<QByteArray>("backup");
    QTest::newRow("a new backup replaces the old one") << true << OldContent;
    QTest::newRow("without backup the old one is neither removed nor updated")
        << false << QByteArray("stale backup\n");
}

void ConfigFileEngineTest::existingBackup()
{
    QFETCH(bool, makeBackup);
    QFETCH(QByteArray, backup);
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    QVERIFY(ZqlTest::writeBytes(m_path + QStringLiteral(".bak"), "stale backup\n"));
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, makeBackup));
    const Survivors files(m_path);
    QCOMPARE(files.target, NewContent);
    QCOMPARE(files.backup, backup);
    QVERIFY(files.temporary.isNull());
}

void ConfigFileEngineTest::rewriteFailure_data()
{
    QTest::addColumn<Failure>("failure");
    QTest::addColumn<bool>("makeBackup");
    QTest::addColumn<QString>("message"); // %1 the target's path, %2 the cp found on the path
    QTest::addColumn<Held>("target");
    QTest::addColumn<Held>("temporary");
    QTest::addColumn<Held>("backup");

    const QString copyToTemporary =
        QStringLiteral("Process: \"cp --force --preserve=mode,ownership %1 %1.tmp\". ");
    QTest::newRow("temporary copy fails: read-only directory")
        << ReadOnlyDirectory << true
        << copyToTemporary +
               QStringLiteral("Exit code: 1.\n\"%2: cannot create regular file '%1.tmp': "
                              "Read-only file system\n\"")
        << OldBytes << Nothing << Nothing;
    QTest::newRow("temporary copy fails: cp missing")
        << MissingCopyTool << true
        << copyToTemporary +
               QStringLiteral("Error: execvp: No such file or directory.\n\"Not started\"")
        << OldBytes << Nothing << Nothing;
    QTest::newRow("temporary file cannot be opened")
        << DirectoryAsTemporary << true << QStringLiteral("\"%1.tmp\" error 5\nIs a directory")
        << OldBytes << Directory << Nothing;
    // From here on the temporary copy is the rewrite's own: whatever is left of it is removed,
    // so that no partial or stale copy stays where a tool reads the whole directory.
    QTest::newRow("full disk while writing the temporary file")
        << FullDisk << true << QStringLiteral("\"%1.tmp\" error 4\nNo space left on device")
        << OldBytes << Nothing << Nothing;
    QTest::newRow("backup fails") << DirectoryAsBackup << true
                                  << QStringLiteral("\"%1\" error 14\nDestination file exists")
                                  << OldBytes << Nothing << Directory;
    // The new content takes the target's place by a rename: it fails whole or not at all.
    const QString renameFails = QStringLiteral("\"%1\" error 10\nDevice or resource busy");
    QTest::newRow("rename over the target fails: target is a mount point, with backup")
        << ReadOnlyTarget << true << renameFails << OldBytes << Nothing << OldBytes;
    QTest::newRow("rename over the target fails: target is a mount point, without backup")
        << ReadOnlyTarget << false << renameFails << OldBytes << Nothing << Nothing;
    QTest::newRow("rename fails: temporary file is a mount point")
        << BusyTemporary << true << renameFails << OldBytes << NewBytes << OldBytes;
}

void ConfigFileEngineTest::rewriteFailure()
{
    QFETCH(Failure, failure);
    QFETCH(bool, makeBackup);
    QFETCH(QString, message);
    QFETCH(Held, target);
    QFETCH(Held, temporary);
    QFETCH(Held, backup);

    // The full disk needs a target that fills its share of the space and a longer rewrite.
    const bool fullDisk = failure == FullDisk;
    const QByteArray oldBytes =
        fullDisk ? QByteArray("key = 1\n" + QByteArray(3000, 'x') + '\n') : OldContent;
    const QByteArray replacement =
        fullDisk ? QByteArray("key = " + QByteArray(6000, '2')) : QByteArray("key = 2");
    const QString temporaryPath = m_path + QStringLiteral(".tmp");
    const QString backupPath = m_path + QStringLiteral(".bak");
    QString error;

    if (failure == FullDisk) // two pages: the target and its first temporary copy fill them
        mountOrFail(ZqlTest::mountTmpfs(m_dir, QStringLiteral("size=8k"), &error), m_dir, error);
    QVERIFY(ZqlTest::writeBytes(m_path, oldBytes));
    switch (failure) {
    case ReadOnlyDirectory:
        mountOrFail(ZqlTest::bindReadOnly(m_dir, &error), m_dir, error);
        break;
    case ReadOnlyTarget:
        mountOrFail(ZqlTest::bindReadOnly(m_path, &error), m_path, error);
        break;
    case DirectoryAsTemporary: // cp copies into it; the open for writing then fails
        QVERIFY(QDir().mkdir(temporaryPath));
        break;
    case DirectoryAsBackup: // can neither be removed nor overwritten by a copy
        QVERIFY(QDir().mkpath(backupPath + QStringLiteral("/inside")));
        break;
    case BusyTemporary: { // a mount point: it can be written, but not removed
        const QString scratch = m_dir + QStringLiteral("/scratch");
        QVERIFY(ZqlTest::writeBytes(temporaryPath, ""));
        QVERIFY(ZqlTest::writeBytes(scratch, ""));
        mountOrFail(ZqlTest::bindOver(scratch, temporaryPath, &error), temporaryPath, error);
        break;
    }
    case MissingCopyTool:
    case FullDisk:
        break;
    }

    RecordingHandler handler(QStringLiteral("^key"), replacement);
    QString errors;
    const QByteArray path = qgetenv("PATH");
    if (failure == MissingCopyTool)
        qputenv("PATH", "/nonexistent");
    const bool result = rewriteFileWithHandler(m_path, handler, errors, makeBackup);
    qputenv("PATH", path);

    QVERIFY(!result);
    QCOMPARE(errors, message.arg(m_path, CopyTool));
    verifyHeld(m_path, target, oldBytes, NewContent);
    verifyHeld(temporaryPath, temporary, oldBytes, NewContent);
    verifyHeld(backupPath, backup, oldBytes, NewContent);
}

// A file system with room for the target, its backup and its new copy, but not for a second
// copy of the new content: copying the new content over the target used to cut it off there
// (the backup then held the only whole copy, and the next rewrite replaced it by the cut one).
void ConfigFileEngineTest::nearlyFullDiskKeepsTheTarget()
{
    QString error;
    mountOrFail(ZqlTest::mountTmpfs(m_dir, QStringLiteral("size=36k"), &error), m_dir, error);
    // Two pages that become four: with the backup, eight of the nine pages are taken.
    const QByteArray oldBytes = "key = " + QByteArray(8 * 1024 - 7, 'x') + '\n';
    const QByteArray replacement = "key = " + QByteArray(16 * 1024 - 7, '2');
    QVERIFY(ZqlTest::writeBytes(m_path, oldBytes));
    RecordingHandler handler(QStringLiteral("^key"), replacement);
    QString errors;
    QVERIFY2(rewriteFileWithHandler(m_path, handler, errors, true), qPrintable(errors));
    QCOMPARE(errors, QString());
    const Survivors files(m_path);
    QCOMPARE(files.target, replacement + '\n');
    QCOMPARE(files.backup, oldBytes);
    QVERIFY(files.temporary.isNull());
}

// A copy left by a rewrite that was killed is overwritten and then gone.
void ConfigFileEngineTest::staleTemporaryIsReplaced()
{
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    QVERIFY(ZqlTest::writeBytes(
        m_path + QStringLiteral(".tmp"),
        QByteArray("key = stale and much longer than the new content\n").repeated(100)));
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, false));
    QCOMPARE(errors, QString());
    const Survivors files(m_path);
    QCOMPARE(files.target, NewContent);
    QVERIFY(files.temporary.isNull());
}

void ConfigFileEngineTest::rewriteFollowsSymbolicLink()
{
    const QString realDir = m_dir + QStringLiteral("/real");
    const QString realPath = realDir + QStringLiteral("/policy.conf");
    QVERIFY(QDir().mkdir(realDir));
    QVERIFY(ZqlTest::writeBytes(realPath, OldContent));
    QVERIFY(QFile::link(QStringLiteral("real/policy.conf"), m_path));
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, true));
    QCOMPARE(errors, QString());
    QVERIFY(QFileInfo(m_path).isSymLink());
    QCOMPARE(QFileInfo(m_path).symLinkTarget(), realPath);
    QCOMPARE(ZqlTest::readBytes(realPath), NewContent);
    QCOMPARE(ZqlTest::readBytes(m_path + QStringLiteral(".bak")), OldContent);
    QVERIFY(!QFileInfo::exists(m_path + QStringLiteral(".tmp")));
    QVERIFY(!QFileInfo::exists(realPath + QStringLiteral(".tmp")));
}

void ConfigFileEngineTest::rewriteKeepsExtendedAttributes()
{
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    const QByteArray file = QFile::encodeName(m_path);
    const QByteArray label = "system_u:object_r:etc_t:s0";
    QCOMPARE(::setxattr(file.constData(), "trusted.zql-label", label.constData(),
                        static_cast<size_t>(label.size()), 0),
             0);
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, false));
    QCOMPARE(errors, QString());
    QCOMPARE(ZqlTest::readBytes(m_path), NewContent);
    QByteArray value(64, '\0');
    const ssize_t length = ::getxattr(file.constData(), "trusted.zql-label", value.data(),
                                      static_cast<size_t>(value.size()));
    QVERIFY(length >= 0);
    QCOMPARE(value.left(static_cast<int>(length)), label);
}

void ConfigFileEngineTest::rewriteKeepsSetGroupIdMode()
{
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    QVERIFY(::chown(QFile::encodeName(m_path).constData(), 0, 42) == 0);
    QVERIFY(::chmod(QFile::encodeName(m_path).constData(), 02640) == 0);
    RecordingHandler handler(QStringLiteral("^key"), "key = 2");
    QString errors;
    QVERIFY(rewriteFileWithHandler(m_path, handler, errors, false));
    struct stat info = {};
    QCOMPARE(::stat(QFile::encodeName(m_path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 02640u);
    QCOMPARE(info.st_gid, 42u);
}

void ConfigFileEngineTest::copyFileMissingSource()
{
    const QString source = m_dir + QStringLiteral("/missing");
    QString errors;
    QVERIFY(!copyFile(source, m_path, errors));
    QCOMPARE(errors, QStringLiteral("Process: \"cp --force --preserve=mode,ownership %1 %2\". "
                                    "Exit code: 1.\n\"%3: cannot stat '%1': No such file or "
                                    "directory\n\"")
                         .arg(source, m_path, CopyTool));
    QVERIFY(!QFileInfo::exists(m_path));
}

void ConfigFileEngineTest::copyFileKeepsSourceModeAndOwner()
{
    const QString source = m_dir + QStringLiteral("/source");
    QVERIFY(ZqlTest::writeBytes(source, "content\n"));
    QVERIFY(::chmod(QFile::encodeName(source).constData(), 0600) == 0);
    QVERIFY(::chown(QFile::encodeName(source).constData(), 7, 8) == 0);
    QVERIFY(ZqlTest::writeBytes(m_path, "old\n"));
    QString errors;
    QVERIFY(copyFile(source, m_path, errors));
    QCOMPARE(errors, QString());
    QCOMPARE(ZqlTest::readBytes(m_path), QByteArray("content\n"));
    struct stat info = {};
    QCOMPARE(::stat(QFile::encodeName(m_path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 07777, 0600u);
    QCOMPARE(info.st_uid, 7u);
    QCOMPARE(info.st_gid, 8u);
}

// "cp" is run by its bare name, so the one first on the search path copies.
void ConfigFileEngineTest::copyFileFindsCpOnSearchPath()
{
    ZqlTest::SearchPathFront front;
    QString error;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    QVERIFY(front.addTool(QStringLiteral("cp"), "exec /bin/cp \"$@\""));
    QCOMPARE(QStandardPaths::findExecutable(QStringLiteral("cp")),
             front.directory() + QStringLiteral("/cp"));

    const QString target = m_dir + QStringLiteral("/copy.conf");
    QVERIFY(ZqlTest::writeBytes(m_path, OldContent));
    QString errors;
    QVERIFY(copyFile(m_path, target, errors));
    QCOMPARE(errors, QString());
    QCOMPARE(ZqlTest::readBytes(target), OldContent);
    QCOMPARE(
        front.runs(),
        QStringList{
            QStringLiteral("path cp --force --preserve=mode,ownership %1 %2").arg(m_path, target)});
}

ZQL_SANDBOXED_TEST_MAIN(ConfigFileEngineTest)
#include "configfileenginetest.moc"
