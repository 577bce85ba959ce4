#include "outputcapture.h"
#include "systemfixture.h"
#include "tesselfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFileInfo>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

using ZqlTest::TesselConfPath;

class TesselConfFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void metaObject();
    void freshResult();
    void readState_data();
    void readState();
    void writeState_data();
    void writeState();
    void writeThenRead_data();
    void writeThenRead();
    void failure_data();
    void failure();
    void writeKeepsOwnerGroupModeAndLabel();

private:
    ZqlTest::TesselFixture m_fixture;
};

void TesselConfFileTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void TesselConfFileTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void TesselConfFileTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void TesselConfFileTest::metaObject()
{
    TesselConfFile file;
    QCOMPARE(file.metaObject()->className(), "TesselConfFile");
    QObject parent;
    const TesselConfFile child(&parent);
    QCOMPARE(child.parent(), &parent);
    QCOMPARE(int(TesselConfFile::Unknown), 0);
    QCOMPARE(int(TesselConfFile::All), 1);
    QCOMPARE(int(TesselConfFile::Admin), 2);
    QCOMPARE(int(TesselConfFile::No), 3);
}

void TesselConfFileTest::freshResult()
{
    const TesselConfFile::OperationResult result;
    QCOMPARE(result.state(), TesselConfFile::Unknown);
    QVERIFY(result.errors().isEmpty());
    const TesselConfFile::Error error(QStringLiteral("message"), QStringLiteral("detail"));
    QCOMPARE(error.message(), QStringLiteral("message"));
    QCOMPARE(error.detail(), QStringLiteral("detail"));
}

void TesselConfFileTest::readState_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<TesselConfFile::State>("state");

    QTest::newRow("simulated system") << m_fixture.original() << TesselConfFile::Admin;
    QTest::newRow("only line, admin with a trailing comment")
        << QByteArray("login_local admin # administrators only\n") << TesselConfFile::Admin;
    QTest::newRow("all") << QByteArray("login_local all\n") << TesselConfFile::All;
    QTest::newRow("no, with blanks around")
        << QByteArray("  login_local \t no  \n") << TesselConfFile::No;
    QTest::newRow("commented line is ignored")
        << QByteArray("#login_local no\n") << TesselConfFile::Unknown;
    QTest::newRow("indented commented line is ignored")
        << QByteArray("   # login_local no\nlogin_local all\n") << TesselConfFile::All;
    QTest::newRow("unknown word") << QByteArray("login_local nobody\n") << TesselConfFile::Unknown;
    QTest::newRow("word in capitals")
        << QByteArray("login_local ADMIN\n") << TesselConfFile::Unknown;
    QTest::newRow("no line at all")
        << QByteArray("audit_log_size 1024\n") << TesselConfFile::Unknown;
    QTest::newRow("empty file") << QByteArray() << TesselConfFile::Unknown;
    QTest::newRow("last line without line break")
        << QByteArray("a 1\nlogin_local no") << TesselConfFile::No;
    QTest::newRow("the last valid line wins")
        << QByteArray("login_local no\nlogin_local all\nlogin_local bogus\n")
        << TesselConfFile::All;
}

void TesselConfFileTest::readState()
{
    QFETCH(QByteArray, content);
    QFETCH(TesselConfFile::State, state);

    QVERIFY(ZqlTest::writeBytes(TesselConfPath, content));
    ZqlTest::OutputCapture capture;
    TesselConfFile file;
    const TesselConfFile::OperationResult result = file.getLoginState();
    capture.finish();
    QCOMPARE(result.state(), state);
    QVERIFY(result.errors().isEmpty());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(ZqlTest::readBytes(TesselConfPath), content);
}

void TesselConfFileTest::writeState_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<TesselConfFile::State>("state");
    QTest::addColumn<QByteArray>("after");

    QByteArray fixtureAfter = m_fixture.original();
    fixtureAfter.replace("\nlogin_local admin\n", "\nlogin_local no\n");
    QTest::newRow("simulated system, comments and settings kept")
        << m_fixture.original() << TesselConfFile::No << fixtureAfter;
    QTest::newRow("plain line replaced")
        << QByteArray("login_local all\n") << TesselConfFile::No << QByteArray("login_local no\n");
    QTest::newRow("line with comment disabled, new line appended")
        << QByteArray("login_local all # everybody\nmax_ilev 63\n") << TesselConfFile::No
        << QByteArray("#login_local all # everybody\nmax_ilev 63\nlogin_local no\n");
    QTest::newRow("second plain line disabled")
        << QByteArray("login_local all\nlogin_local no\n") << TesselConfFile::Admin
        << QByteArray("login_local admin\n#login_local no\n");
    QTest::newRow("line with comment after the replacement disabled")
        << QByteArray("login_local all\nlogin_local no # x\n") << TesselConfFile::Admin
        << QByteArray("login_local admin\n#login_local no # x\n");
    QTest::newRow("unknown word kept, new line appended")
        << QByteArray("login_local nobody\n") << TesselConfFile::Admin
        << QByteArray("login_local nobody\nlogin_local admin\n");
    QTest::newRow("commented line kept as it is")
        << QByteArray("# login_local no\nlogin_local admin\n") << TesselConfFile::No
        << QByteArray("# login_local no\nlogin_local no\n");
    QTest::newRow("no line: appended")
        << QByteArray("audit_log_size 1024\n") << TesselConfFile::Admin
        << QByteArray("audit_log_size 1024\nlogin_local admin\n");
    QTest::newRow("empty file") << QByteArray() << TesselConfFile::All
                                << QByteArray("login_local all\n");
    QTest::newRow("unknown state writes all")
        << QByteArray("login_local no\n") << TesselConfFile::Unknown
        << QByteArray("login_local all\n");
    QTest::newRow("out-of-range state writes all")
        << QByteArray("login_local no\n") << TesselConfFile::State(7)
        << QByteArray("login_local all\n");
    QTest::newRow("last line gets a line break") << QByteArray("max_ilev 63") << TesselConfFile::No
                                                 << QByteArray("max_ilev 63\nlogin_local no\n");
    QTest::newRow("same value rewrites the same bytes")
        << QByteArray("a 1\n\nlogin_local admin\n") << TesselConfFile::Admin
        << QByteArray("a 1\n\nlogin_local admin\n");
}

void TesselConfFileTest::writeState()
{
    QFETCH(QByteArray, before);
    QFETCH(TesselConfFile::State, state);
    QFETCH(QByteArray, after);

    QVERIFY(ZqlTest::writeBytes(TesselConfPath, before));
    ZqlTest::OutputCapture capture;
    TesselConfFile file;
    const TesselConfFile::OperationResult result = file.setLoginState(state);
    capture.finish();
    QVERIFY(result.errors().isEmpty());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(ZqlTest::readBytes(TesselConfPath), after);
}

void TesselConfFileTest::writeThenRead_data()
{
    QTest::addColumn<TesselConfFile::State>("state");
    QTest::addColumn<TesselConfFile::State>("read");

    QTest::newRow("all") << TesselConfFile::All << TesselConfFile::All;
    QTest::newRow("admin") << TesselConfFile::Admin << TesselConfFile::Admin;
    QTest::newRow("no") << TesselConfFile::No << TesselConfFile::No;
    QTest::newRow("unknown reads back as all") << TesselConfFile::Unknown << TesselConfFile::All;
}

void TesselConfFileTest::writeThenRead()
{
    QFETCH(TesselConfFile::State, state);
    QFETCH(TesselConfFile::State, read);

    TesselConfFile file;
    QVERIFY(file.setLoginState(state).errors().isEmpty());
    const TesselConfFile::OperationResult result = file.getLoginState();
    QVERIFY(result.errors().isEmpty());
    QCOMPARE(result.state(), read);
}

void TesselConfFileTest::failure_data()
{
    QTest::addColumn<ZqlTest::TesselFailure>("failure");
    QTest::addColumn<bool>("writing");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("detail");

    const QString notExist = QStringLiteral("File '/etc/tessel/tessel.conf' not exist");
    const QString openError = QStringLiteral("Open file '/etc/tessel/tessel.conf' error");
    const QString writeError = QStringLiteral("Write file '/etc/tessel/tessel.conf' error");
    QTest::newRow("read missing file") << ZqlTest::MissingFile << false << notExist << QString();
    QTest::newRow("write missing file") << ZqlTest::MissingFile << true << notExist << QString();
    QTest::newRow("read directory") << ZqlTest::DirectoryAsFile << false << openError
                                    << QStringLiteral("file to open is a directory");
    QTest::newRow("write directory") << ZqlTest::DirectoryAsFile << true << openError
                                     << QStringLiteral("file to open is a directory");
    QTest::newRow("write read-only file")
        << ZqlTest::ReadOnlyFile << true << openError
        << QStringLiteral("Existing file /etc/tessel/tessel.conf is not writable");
    QTest::newRow("write in read-only directory")
        << ZqlTest::ReadOnlyDirectory << true << openError
        << QStringLiteral("Existing file /etc/tessel/tessel.conf is not writable");
    QTest::newRow("write on a full file system")
        << ZqlTest::FullDisk << true << writeError << QStringLiteral("No space left on device");
}

void TesselConfFileTest::failure()
{
    QFETCH(ZqlTest::TesselFailure, failure);
    QFETCH(bool, writing);
    QFETCH(QString, message);
    QFETCH(QString, detail);

    const QByteArray content = "# kept\nlogin_local all\nmax_ilev 63\n";
    QString error;
    QVERIFY2(m_fixture.shape(failure, content, &error), qPrintable(error));

    ZqlTest::OutputCapture capture;
    TesselConfFile file;
    const TesselConfFile::OperationResult result =
        writing ? file.setLoginState(TesselConfFile::No) : file.getLoginState();
    capture.finish();

    QCOMPARE(result.state(), TesselConfFile::Unknown);
    QCOMPARE(result.errors().size(), 1);
    QCOMPARE(result.errors().first().message(), message);
    QCOMPARE(result.errors().first().detail(), detail);
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(capture.standardError(), QByteArray());

    // Whatever failed, the file is as it was, and a missing one was not created.
    const QFileInfo info(TesselConfPath);
    switch (failure) {
    case ZqlTest::MissingFile:
        QVERIFY(!info.exists());
        break;
    case ZqlTest::DirectoryAsFile:
        QVERIFY(info.isDir());
        break;
    default:
        QCOMPARE(ZqlTest::readBytes(TesselConfPath), content);
        break;
    }
    // No save file is left behind beside it.
    QStringList left = QDir(ZqlTest::TesselConfDir).entryList(QDir::Files | QDir::Hidden);
    left.removeAll(QStringLiteral("filler"));
    left.removeAll(QStringLiteral("tessel.conf"));
    QCOMPARE(left, QStringList());
}

// The file belongs to the group shadow on the target system; a save must not hand it to root.
void TesselConfFileTest::writeKeepsOwnerGroupModeAndLabel()
{
    QVERIFY(ZqlTest::writeBytes(TesselConfPath, "login_local all\n"));
    const QByteArray path = QFile::encodeName(TesselConfPath);
    QCOMPARE(::chown(path.constData(), 7, 42), 0);
    QCOMPARE(::chmod(path.constData(), 02640), 0);
    const QByteArray label = "system_u:object_r:etc_t:s0";
    QCOMPARE(::setxattr(path.constData(), "trusted.zql-label", label.constData(),
                        static_cast<size_t>(label.size()), 0),
             0);

    TesselConfFile file;
    QVERIFY(file.setLoginState(TesselConfFile::No).errors().isEmpty());

    QCOMPARE(ZqlTest::readBytes(TesselConfPath), QByteArray("login_local no\n"));
    struct stat info = {};
    QCOMPARE(::stat(path.constData(), &info), 0);
    QCOMPARE(info.st_uid, 7u);
    QCOMPARE(info.st_gid, 42u);
    QCOMPARE(info.st_mode & 07777, 02640u);
    QByteArray value(64, '\0');
    const ssize_t length = ::getxattr(path.constData(), "trusted.zql-label", value.data(),
                                      static_cast<size_t>(value.size()));
    QVERIFY(length >= 0);
    QCOMPARE(value.left(static_cast<int>(length)), label);
}

ZQL_SANDBOXED_TEST_MAIN(TesselConfFileTest)
#include "tesselconffiletest.moc"
