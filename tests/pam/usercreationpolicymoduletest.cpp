#include "pamtestsupport.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
const QString AddUserConf = QStringLiteral("/etc/adduser.conf");
const QString Backup = QStringLiteral("/etc/adduser.conf.bak");
using Settings = QHash<QString, QVariant>;
} // namespace

class UserCreationPolicyModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void contract();
    void isParametersCorrect_data();
    void isParametersCorrect();
    void shippedFileReadsAsItIs();
    void read_data();
    void read();
    void readKeepsNothingFromAnEarlierRead();
    void rewrite_data();
    void rewrite();
    void roundTrip_data();
    void roundTrip();
    void missingFile();
    void readOnlyFile();
    void unreadableFile();

private:
    QByteArray m_shipped;
};

void UserCreationPolicyModuleTest::initTestCase()
{
    m_shipped = ZqlTest::readBytes(AddUserConf);
    QVERIFY2(!m_shipped.isNull(), "the machine has no /etc/adduser.conf (package adduser)");
}

void UserCreationPolicyModuleTest::cleanup()
{
    QString error;
    ZqlTest::unmount(AddUserConf, &error);
    QVERIFY(ZqlTest::writeBytes(AddUserConf, m_shipped));
    QFile::remove(Backup);
    QFile::remove(AddUserConf + QStringLiteral(".tmp"));
}

void UserCreationPolicyModuleTest::contract()
{
    UserCreationPolicyModule module;
    QCOMPARE(module.getName(), QStringLiteral("user-creation-policy"));
    QVERIFY(module.isAvailable());
    QVERIFY(module.checkRestrictions({}));
    QCOMPARE(module.formatOutput(QStringLiteral("x")),
             QStringLiteral("user-creation-policy : x\n"));
}

void UserCreationPolicyModuleTest::isParametersCorrect_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("unknown");
    QTest::newRow("empty") << QStringList() << QStringList();
    QTest::newRow("all five") << QStringList{QStringLiteral("DHOME"), QStringLiteral("SKEL"),
                                             QStringLiteral("DSHELL"), QStringLiteral("USERGROUPS"),
                                             QStringLiteral("USERS_GID")}
                              << QStringList();
    QTest::newRow("extra groups are no setting")
        << QStringList{QStringLiteral("DSHELL"), QStringLiteral("EXTRA_GROUPS")}
        << QStringList{QStringLiteral("EXTRA_GROUPS")};
    QTest::newRow("case matters") << QStringList{QStringLiteral("dhome")}
                                  << QStringList{QStringLiteral("dhome")};
}

void UserCreationPolicyModuleTest::isParametersCorrect()
{
    QFETCH(QStringList, keys);
    QFETCH(QStringList, unknown);
    UserCreationPolicyModule module;
    QCOMPARE(module.isParametersCorrect(QSet<QString>(keys.begin(), keys.end())), unknown);
}

// Debian 12's adduser.conf ships with every setting commented out: the tool's defaults apply
// and the module reports no key.
void UserCreationPolicyModuleTest::shippedFileReadsAsItIs()
{
    UserCreationPolicyModule module;
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second), QByteArray("{}"));
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
}

void UserCreationPolicyModuleTest::read_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("settings");

    QTest::newRow("all five") << QByteArray("DHOME=/srv/home\nSKEL=/etc/skel2\nDSHELL=/bin/sh\n"
                                            "USERGROUPS=yes\nUSERS_GID=1000\n")
                              << QByteArray("{\"DHOME\":\"/srv/home\",\"DSHELL\":\"/bin/sh\","
                                            "\"SKEL\":\"/etc/skel2\",\"USERGROUPS\":true,"
                                            "\"USERS_GID\":1000}");
    QTest::newRow("quoted shell") << QByteArray("DSHELL=\"/bin/zsh\"\n")
                                  << QByteArray("{\"DSHELL\":\"/bin/zsh\"}");
    // The pattern leaves the blanks after "=" to the value when there are no quotes.
    QTest::newRow("blanks around the sign")
        << QByteArray("  DHOME =  /home/x  # note\n") << QByteArray("{\"DHOME\":\"  /home/x\"}");
    QTest::newRow("blanks before quotes")
        << QByteArray("DSHELL = \"/bin/zsh\"\n") << QByteArray("{\"DSHELL\":\"/bin/zsh\"}");
    QTest::newRow("Yes is not yes")
        << QByteArray("USERGROUPS=Yes\n") << QByteArray("{\"USERGROUPS\":false}");
    QTest::newRow("no") << QByteArray("USERGROUPS=no\n") << QByteArray("{\"USERGROUPS\":false}");
    QTest::newRow("group id that is no number")
        << QByteArray("USERS_GID=abc\nSKEL=/s\n") << QByteArray("{\"SKEL\":\"/s\"}");
    QTest::newRow("commented out")
        << QByteArray("#DHOME=/home\n# SKEL=/etc/skel\n") << QByteArray("{}");
    QTest::newRow("extra groups carry no setting")
        << QByteArray("ADD_EXTRA_GROUPS=1\nEXTRA_GROUPS=\"users video\"\n") << QByteArray("{}");
    QTest::newRow("later line wins") << QByteArray("DSHELL=/bin/sh\nDSHELL=/bin/dash\n")
                                     << QByteArray("{\"DSHELL\":\"/bin/dash\"}");
}

void UserCreationPolicyModuleTest::read()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, settings);
    QVERIFY(ZqlTest::writeBytes(AddUserConf, file));

    UserCreationPolicyModule module;
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second), settings);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
    QCOMPARE(ZqlTest::readBytes(AddUserConf), file);
}

void UserCreationPolicyModuleTest::readKeepsNothingFromAnEarlierRead()
{
    UserCreationPolicyModule module;
    QVERIFY(ZqlTest::writeBytes(AddUserConf, "DSHELL=/bin/sh\nUSERS_GID=100\n"));
    QCOMPARE(module.getSettings().second.size(), 2);
    QVERIFY(ZqlTest::writeBytes(AddUserConf, "USERS_GID=abc\n"));
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(ZqlTest::json(reply.second), QByteArray("{}"));
}

void UserCreationPolicyModuleTest::rewrite_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("quotes are dropped")
        << QByteArray("# defaults\nDSHELL=\"/bin/zsh\"\n")
        << Settings{{QStringLiteral("DSHELL"), QStringLiteral("/bin/zsh")}}
        << QByteArray("# defaults\nDSHELL=/bin/zsh\n");
    QTest::newRow("Yes written back as no")
        << QByteArray("USERGROUPS=Yes\n") << Settings{{QStringLiteral("USERGROUPS"), false}}
        << QByteArray("USERGROUPS=no\n");
    QTest::newRow("yes") << QByteArray("USERGROUPS=no\n")
                         << Settings{{QStringLiteral("USERGROUPS"), true}}
                         << QByteArray("USERGROUPS=yes\n");
    QTest::newRow("comment kept") << QByteArray("DHOME=/home # where homes go\n")
                                  << Settings{{QStringLiteral("DHOME"), QStringLiteral("/srv")}}
                                  << QByteArray("DHOME=/srv\t# where homes go\n");
    QTest::newRow("missing SKEL at its default adds nothing")
        << QByteArray("DHOME=/home\n")
        << Settings{{QStringLiteral("DHOME"), QStringLiteral("/home")},
                    {QStringLiteral("SKEL"), QStringLiteral("/etc/skel")}}
        << QByteArray("DHOME=/home\n");
    QTest::newRow("missing SKEL elsewhere is appended")
        << QByteArray("DHOME=/home\n")
        << Settings{{QStringLiteral("DHOME"), QStringLiteral("/home")},
                    {QStringLiteral("SKEL"), QStringLiteral("/etc/skel2")}}
        << QByteArray("DHOME=/home\nSKEL=/etc/skel2\n");
    QTest::newRow("every missing key away from its default, in order")
        << QByteArray("# nothing set\n")
        << Settings{{QStringLiteral("USERS_GID"), 1000},
                    {QStringLiteral("USERGROUPS"), false},
                    {QStringLiteral("DSHELL"), QStringLiteral("/bin/sh")},
                    {QStringLiteral("SKEL"), QStringLiteral("/etc/skel2")},
                    {QStringLiteral("DHOME"), QStringLiteral("/srv/home")}}
        << QByteArray("# nothing set\nDHOME=/srv/home\nSKEL=/etc/skel2\nDSHELL=/bin/sh\n"
                      "USERGROUPS=no\nUSERS_GID=1000\n");
    QTest::newRow("every missing key at its default")
        << QByteArray("# nothing set\n")
        << Settings{{QStringLiteral("USERS_GID"), 100},
                    {QStringLiteral("USERGROUPS"), true},
                    {QStringLiteral("DSHELL"), QStringLiteral("/bin/bash")},
                    {QStringLiteral("SKEL"), QStringLiteral("/etc/skel")},
                    {QStringLiteral("DHOME"), QStringLiteral("/home")}}
        << QByteArray("# nothing set\n");
    QTest::newRow("keys not given are not appended")
        << QByteArray("# nothing set\n") << Settings() << QByteArray("# nothing set\n");
    QTest::newRow("a line whose key is not given is emptied")
        << QByteArray("DSHELL=/bin/sh\nUSERS_GID=100\nUSERGROUPS=yes\n") << Settings()
        << QByteArray("DSHELL=\nUSERS_GID=0\nUSERGROUPS=no\n");
    QTest::newRow("extra group lines stay as they are")
        << QByteArray("ADD_EXTRA_GROUPS=1\n  EXTRA_GROUPS=\"users video\"  # groups\n")
        << Settings{{QStringLiteral("USERS_GID"), 100}}
        << QByteArray("ADD_EXTRA_GROUPS=1\n  EXTRA_GROUPS=\"users video\"  # groups\n");
    QTest::newRow("all seven keys present: nothing appended")
        << QByteArray("DHOME=/a\nSKEL=/b\nDSHELL=/c\nUSERGROUPS=yes\nUSERS_GID=5\n"
                      "ADD_EXTRA_GROUPS=0\nEXTRA_GROUPS=x\n")
        << Settings{{QStringLiteral("DHOME"), QStringLiteral("/a")},
                    {QStringLiteral("SKEL"), QStringLiteral("/b")},
                    {QStringLiteral("DSHELL"), QStringLiteral("/c")},
                    {QStringLiteral("USERGROUPS"), true},
                    {QStringLiteral("USERS_GID"), 5}}
        << QByteArray("DHOME=/a\nSKEL=/b\nDSHELL=/c\nUSERGROUPS=yes\nUSERS_GID=5\n"
                      "ADD_EXTRA_GROUPS=0\nEXTRA_GROUPS=x\n");
    QTest::newRow("any group id, unchecked")
        << QByteArray("USERS_GID=100\n") << Settings{{QStringLiteral("USERS_GID"), -7}}
        << QByteArray("USERS_GID=-7\n");
}

void UserCreationPolicyModuleTest::rewrite()
{
    QFETCH(QByteArray, before);
    QFETCH(Settings, settings);
    QFETCH(QByteArray, after);
    QVERIFY(ZqlTest::writeBytes(AddUserConf, before));

    UserCreationPolicyModule module;
    bool failed = true;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { failed = module.setSettings(settings); });
    QVERIFY(!failed);
    QCOMPARE(ZqlTest::readBytes(AddUserConf), after);
    QCOMPARE(ZqlTest::readBytes(Backup), before);
    QCOMPARE(streams.error, QByteArray());
    QCOMPARE(streams.output, QByteArray());
}

void UserCreationPolicyModuleTest::roundTrip_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("afterFirst");
    QTest::newRow("shipped file") << QByteArray() << QByteArray();
    QTest::newRow("values set")
        << QByteArray("DHOME=/home\nDSHELL=\"/bin/zsh\"   # login shell\nUSERGROUPS=Yes\n"
                      "USERS_GID=abc\nSKEL=/etc/skel\n")
        << QByteArray("DHOME=/home\nDSHELL=/bin/zsh\t# login shell\nUSERGROUPS=no\n"
                      "USERS_GID=0\nSKEL=/etc/skel\n");
}

// What the module reads it can write back, and a second round trip changes no byte.
void UserCreationPolicyModuleTest::roundTrip()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, afterFirst);
    if (file.isNull()) {
        file = m_shipped;
        afterFirst = m_shipped;
    }
    QVERIFY(ZqlTest::writeBytes(AddUserConf, file));

    UserCreationPolicyModule module;
    bool failed = true;
    const ZqlTest::Streams streams =
        ZqlTest::captured([&] { failed = module.setSettings(module.getSettings().second); });
    QVERIFY(!failed);
    QCOMPARE(ZqlTest::readBytes(AddUserConf), afterFirst);
    const SettingsReply first = module.getSettings();
    QVERIFY(!module.setSettings(first.second));
    QCOMPARE(ZqlTest::readBytes(AddUserConf), afterFirst);
    QCOMPARE(ZqlTest::json(module.getSettings().second), ZqlTest::json(first.second));
    QCOMPARE(streams.error, QByteArray());
}

void UserCreationPolicyModuleTest::missingFile()
{
    QVERIFY(QFile::remove(AddUserConf));
    UserCreationPolicyModule module;
    SettingsReply reply{0, {{QStringLiteral("x"), 1}}};
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        reply = module.getSettings();
        failed = module.setSettings({{QStringLiteral("DHOME"), QStringLiteral("/srv")}});
    });
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QVERIFY(failed);
    QCOMPARE(streams.error,
             QByteArray("user-creation-policy : \"/etc/adduser.conf\" not exists\n"
                        "user-creation-policy : \"/etc/adduser.conf\" not exists\n"));
    QCOMPARE(streams.output, QByteArray());
    QVERIFY(!QFile::exists(AddUserConf));
    QVERIFY(!QFile::exists(AddUserConf + QStringLiteral(".tmp")));
    QVERIFY(!QFile::exists(Backup));
}

void UserCreationPolicyModuleTest::readOnlyFile()
{
    const QByteArray before = "DSHELL=/bin/sh\n";
    QVERIFY(ZqlTest::writeBytes(AddUserConf, before));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(AddUserConf, &error), qPrintable(error));

    UserCreationPolicyModule module;
    bool failed = false;
    const ZqlTest::Streams streams = ZqlTest::captured([&] {
        failed = module.setSettings({{QStringLiteral("DSHELL"), QStringLiteral("/bin/zsh")}});
    });
    QVERIFY(failed);
    QCOMPARE(ZqlTest::readBytes(AddUserConf), before);
    // The backup was made; the rename over the mount point is what failed, and the temporary
    // copy is gone.
    QCOMPARE(ZqlTest::readBytes(Backup), before);
    QVERIFY(!QFileInfo::exists(AddUserConf + QStringLiteral(".tmp")));
    QCOMPARE(QString::fromUtf8(streams.error),
             QStringLiteral("user-creation-policy : \"/etc/adduser.conf\" error 10\n"
                            "Device or resource busy\n"));
    QCOMPARE(streams.output, QByteArray());
}

void UserCreationPolicyModuleTest::unreadableFile()
{
    // A directory in place of the file: it exists but cannot be read as one.
    QVERIFY(QFile::remove(AddUserConf));
    QVERIFY(QDir().mkdir(AddUserConf));
    UserCreationPolicyModule module;
    SettingsReply reply;
    const ZqlTest::Streams streams = ZqlTest::captured([&] { reply = module.getSettings(); });
    QVERIFY(QDir().rmdir(AddUserConf));
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(streams.error, QByteArray("user-creation-policy : \"/etc/adduser.conf\" error 5\n"
                                       "file to open is a directory\n"));
    QCOMPARE(streams.output, QByteArray());
}

ZQL_SANDBOXED_TEST_MAIN(UserCreationPolicyModuleTest)
#include "usercreationpolicymoduletest.moc"
