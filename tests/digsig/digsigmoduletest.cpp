// DigSigModule on the simulated system: the three settings read and written, the ignore flags
// carried over, and the rebuild of the initial RAM disks with /boot remounted around it, on a
// /boot that is really mounted read-only in the test's sandbox.
#include "digsigfixture.h"
#include "outputcapture.h"
#include "searchpathfront.h"
#include "settingsrun.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFile>

using ZqlTest::DigSigFixture;

using Settings = QHash<QString, QVariant>;

namespace {
const QString Conf = QStringLiteral("/etc/digsig/digsig_initramfs.conf");
const QString Xattr = QStringLiteral("/etc/digsig/xattr_control");
const QString ModeFile = QStringLiteral("/etc/zql-platform/security-mode");
const QString Files = QStringLiteral("Files");
const QString Attributes = QStringLiteral("Attributes");
const QString Templates = QStringLiteral("Templates");

ZqlTest::SettingsRun apply(const Settings &settings)
{
    DigSigModule module;
    return ZqlTest::runSetSettings(module, settings);
}

QHash<QString, QVariant> allThree(const QString &files, const QString &attributes,
                                  const QString &templates)
{
    return {{Files, files}, {Attributes, attributes}, {Templates, templates}};
}
} // namespace

class DigSigModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void name();
    void availability_data();
    void availability();
    void parameters_data();
    void parameters();
    void checkRestrictionsIsTheDefault();
    void getShipped();
    void getWithoutTemplates();
    void getDamaged();
    void getMissingFiles();
    void set_data();
    void set();
    void setKeepsIgnoreFlags();
    void setThenGetRoundTrip();
    void setOnWritableBootDoesNotRemount();
    void setOnReadOnlyBootRemountsAround();
    void setRemountFails();
    void failedRebuildLeavesBootWritable();
    void setPrintsWarningsOnStandardOutput();
    void setRebuildError();
    void writeFailureSkipsRebuild();
    void unreadableMountTable();

private:
    DigSigFixture m_fixture;
};

void DigSigModuleTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void DigSigModuleTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(ModeFile, "2\n"));
    QVERIFY(DigSigFixture::startCallLog());
}

void DigSigModuleTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
    QVERIFY(ZqlTest::writeBytes(ModeFile, "2\n"));
}

void DigSigModuleTest::name()
{
    DigSigModule module;
    QCOMPARE(module.getName(), QStringLiteral("digsig"));
    QCOMPARE(module.formatOutput(QStringLiteral("x")), QStringLiteral("digsig : x\n"));
}

void DigSigModuleTest::availability_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<bool>("available");
    QTest::newRow("0") << QByteArray("0\n") << false;
    QTest::newRow("1") << QByteArray("1\n") << true;
    QTest::newRow("2") << QByteArray("2\n") << true;
    QTest::newRow("3") << QByteArray("3\n") << false;
    QTest::newRow("-1") << QByteArray("-1\n") << false;
    QTest::newRow("largest negative") << QByteArray("-2147483648\n") << false;
}

void DigSigModuleTest::availability()
{
    QFETCH(QByteArray, mode);
    QFETCH(bool, available);
    QVERIFY(ZqlTest::writeBytes(ModeFile, mode));
    DigSigModule module;
    QCOMPARE(module.isAvailable(), available);
}

void DigSigModuleTest::parameters_data()
{
    QTest::addColumn<QStringList>("given");
    QTest::addColumn<QStringList>("unknown");
    QTest::newRow("empty") << QStringList() << QStringList();
    QTest::newRow("known") << QStringList{Files, Attributes, Templates} << QStringList();
    QTest::newRow("Files and Debug")
        << QStringList{Files, QStringLiteral("Debug")} << QStringList{QStringLiteral("Debug")};
    QTest::newRow("case matters") << QStringList{QStringLiteral("files")}
                                  << QStringList{QStringLiteral("files")};
}

void DigSigModuleTest::parameters()
{
    QFETCH(QStringList, given);
    QFETCH(QStringList, unknown);
    DigSigModule module;
    QStringList result =
        module.isParametersCorrect(QSet<QString>(given.constBegin(), given.constEnd()));
    result.sort();
    QCOMPARE(result, unknown);
}

void DigSigModuleTest::checkRestrictionsIsTheDefault()
{
    DigSigModule module;
    QVERIFY(module.checkRestrictions({}));
    QVERIFY(module.checkRestrictions(allThree(QStringLiteral("x"), {}, {})));
}

void DigSigModuleTest::getShipped()
{
    DigSigModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    QCOMPARE(reply.second, allThree(QStringLiteral("On"), QStringLiteral("Off"),
                                    QString::fromUtf8(m_fixture.originalXattrControl())));
    QCOMPARE(DigSigFixture::calls(), QStringList()); // reading rebuilds nothing
}

void DigSigModuleTest::getWithoutTemplates()
{
    QVERIFY(ZqlTest::writeBytes(Xattr, {}));
    QVERIFY(ZqlTest::writeBytes(Conf, "DIGSIG_ELF_MODE=2\nDIGSIG_XATTR_MODE=1\n"
                                      "DIGSIG_IGNORE_XATTR_KEYS=0\nDIGSIG_IGNORE_GOST2001=0\n"));
    DigSigModule module;
    const SettingsReply reply = module.getSettings();
    QCOMPARE(reply.first, 0);
    const QHash<QString, QVariant> expected{{Files, QStringLiteral("Debug")},
                                            {Attributes, QStringLiteral("On")}};
    QCOMPARE(reply.second, expected);
}

void DigSigModuleTest::getDamaged()
{
    QVERIFY(ZqlTest::writeBytes(Conf, "FOO=1\nDIGSIG_ELF_MODE=5\nDIGSIG_XATTR_MODE=1\n"
                                      "DIGSIG_IGNORE_XATTR_KEYS=0\nDIGSIG_IGNORE_GOST2001=0\n"));
    DigSigModule module;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 1);
    QVERIFY(reply.second.isEmpty());
    QCOMPARE(capture.standardError(),
             QByteArray("digsig : file /etc/digsig/digsig_initramfs.conf contains invalid key: "
                        "FOO\nDIGSIG_ELF_MODE value \"5\" is invalid\n"));
    QCOMPARE(capture.standardOutput(), QByteArray());
}

void DigSigModuleTest::getMissingFiles()
{
    QVERIFY(QFile::remove(Conf));
    QVERIFY(QFile::remove(Xattr));
    DigSigModule module;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(reply.first, 1);
    QCOMPARE(capture.standardError(),
             QByteArray("digsig : Can't open file /etc/digsig/digsig_initramfs.conf\n"
                        "file /etc/digsig/xattr_control can not be opened\n"));
}

void DigSigModuleTest::set_data()
{
    QTest::addColumn<Settings>("settings");
    QTest::addColumn<QByteArray>("modes");
    QTest::addColumn<QByteArray>("xattr");

    // The shipped flags: keys 0, GOST 1.
    const QByteArray flags = "DIGSIG_IGNORE_XATTR_KEYS=0\nDIGSIG_IGNORE_GOST2001=1\n";
    QTest::newRow("on, debug") << allThree(QStringLiteral("On"), QStringLiteral("Debug"),
                                           QStringLiteral("a\nb"))
                               << QByteArray("DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=2\n" + flags)
                               << QByteArray("a\nb\n");
    QTest::newRow("off, off") << allThree(QStringLiteral("Off"), QStringLiteral("Off"),
                                          QStringLiteral("x"))
                              << QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=0\n" + flags)
                              << QByteArray("x\n");
    QTest::newRow("lower-case on is off")
        << allThree(QStringLiteral("on"), QStringLiteral("On"), QStringLiteral("x"))
        << QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=1\n" + flags) << QByteArray("x\n");
    QTest::newRow("Unknown is off")
        << allThree(QStringLiteral("Unknown"), QStringLiteral("Unknown"), QStringLiteral("x"))
        << QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=0\n" + flags) << QByteArray("x\n");
    QTest::newRow("absent keys: off and one empty line")
        << QHash<QString, QVariant>()
        << QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=0\n" + flags) << QByteArray("\n");
    QTest::newRow("unknown keys are ignored")
        << QHash<QString, QVariant>{{QStringLiteral("DIGSIG_IGNORE_GOST2001"), QStringLiteral("0")},
                                    {Files, QStringLiteral("Debug")}}
        << QByteArray("DIGSIG_ELF_MODE=2\nDIGSIG_XATTR_MODE=0\n" + flags) << QByteArray("\n");
    QTest::newRow("text ending in a line feed gains an empty line")
        << allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("a\n  b  \n"))
        << QByteArray("DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=1\n" + flags) << QByteArray("a\nb\n\n");
}

void DigSigModuleTest::set()
{
    QFETCH(Settings, settings);
    QFETCH(QByteArray, modes);
    QFETCH(QByteArray, xattr);
    const ZqlTest::SettingsRun result = apply(settings);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.failed, false);
    QCOMPARE(ZqlTest::readBytes(Conf), modes);
    QCOMPARE(ZqlTest::readBytes(Xattr), xattr);
    QCOMPARE(DigSigFixture::calls(), QStringList{QStringLiteral("-u -k all (boot rw)")});
    // The RAM disk holds the new files.
    const QByteArray image = ZqlTest::readBytes(ZqlTest::InitramfsImage);
    QVERIFY(image.contains(modes));
    QVERIFY(image.contains(xattr));
}

void DigSigModuleTest::setKeepsIgnoreFlags()
{
    QVERIFY(ZqlTest::writeBytes(Conf, "DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=0\n"
                                      "DIGSIG_IGNORE_XATTR_KEYS=1\nDIGSIG_IGNORE_GOST2001=0\n"));
    QCOMPARE(apply(allThree(QStringLiteral("On"), QStringLiteral("On"), {})).failed, false);
    QCOMPARE(ZqlTest::readBytes(Conf),
             QByteArray("DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=1\nDIGSIG_IGNORE_XATTR_KEYS=1\n"
                        "DIGSIG_IGNORE_GOST2001=0\n"));
    // A damaged file: its valid flag is carried over, the invalid one reads as false.
    QVERIFY(ZqlTest::writeBytes(Conf, "DIGSIG_IGNORE_XATTR_KEYS=5\nDIGSIG_IGNORE_GOST2001=1\n"));
    QCOMPARE(apply(allThree(QStringLiteral("Off"), QStringLiteral("On"), {})).failed, false);
    QCOMPARE(ZqlTest::readBytes(Conf),
             QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=1\nDIGSIG_IGNORE_XATTR_KEYS=0\n"
                        "DIGSIG_IGNORE_GOST2001=1\n"));
}

void DigSigModuleTest::setThenGetRoundTrip()
{
    DigSigModule module;
    const SettingsReply before = module.getSettings();
    QCOMPARE(before.first, 0);
    QCOMPARE(apply(before.second).failed, false);
    const SettingsReply after = module.getSettings();
    QCOMPARE(after.first, 0);
    QCOMPARE(after.second.value(Files), before.second.value(Files));
    QCOMPARE(after.second.value(Attributes), before.second.value(Attributes));
    // Every write ends the text with one more empty line.
    QCOMPARE(after.second.value(Templates).toString(),
             before.second.value(Templates).toString() + QLatin1Char('\n'));
}

void DigSigModuleTest::setOnWritableBootDoesNotRemount()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(false, &error), qPrintable(error));
    ZqlTest::SearchPathFront front;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    QVERIFY(front.addTool(QStringLiteral("mount"), "exec /bin/mount \"$@\""));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.failed, false);
    QCOMPARE(front.runs(), QStringList());
    QCOMPARE(DigSigFixture::calls(), QStringList{QStringLiteral("-u -k all (boot rw)")});
    QVERIFY(QFile::exists(ZqlTest::InitramfsImage));
}

void DigSigModuleTest::setOnReadOnlyBootRemountsAround()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    ZqlTest::SearchPathFront front;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    QVERIFY(front.addTool(QStringLiteral("mount"), "exec /bin/mount \"$@\""));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("Debug"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.failed, false);
    QCOMPARE(front.runs(), (QStringList{QStringLiteral("path mount -o remount,rw /boot"),
                                        QStringLiteral("path mount -o remount,ro /boot")}));
    // The rebuild ran while /boot was writable, and /boot is read-only again.
    QCOMPARE(DigSigFixture::calls(), QStringList{QStringLiteral("-u -k all (boot rw)")});
    QVERIFY(DigSigFixture::bootMountedReadOnly());
    QVERIFY(ZqlTest::readBytes(ZqlTest::InitramfsImage).contains("DIGSIG_ELF_MODE=2\n"));
}

void DigSigModuleTest::setRemountFails()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    ZqlTest::SearchPathFront front;
    QVERIFY2(front.isValid(&error), qPrintable(error));
    QVERIFY(front.addTool(QStringLiteral("mount"), "echo 'mount: permission denied' >&2; exit 32"));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, true);
    // mount's own message reaches the host's standard error before the module's.
    QCOMPARE(result.standardError,
             QByteArray("mount: permission denied\ndigsig : Can't remount /boot read write\n"));
    QCOMPARE(front.runs(), QStringList{QStringLiteral("path mount -o remount,rw /boot")});
    QCOMPARE(DigSigFixture::calls(), QStringList());        // no rebuild
    QCOMPARE(ZqlTest::readBytes(Xattr), QByteArray("x\n")); // the files were written
    QVERIFY(DigSigFixture::bootMountedReadOnly());
}

void DigSigModuleTest::failedRebuildLeavesBootWritable()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    QVERIFY(DigSigFixture::setToolBehaviour("exit 2"));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError,
             QByteArray("digsig : Process: \"update-initramfs -u -k all\" finished with errors:\n"
                        "E: /usr/share/initramfs-tools/hooks/digsig failed with return 2.\n\n"
                        "Exit code: 2\n"));
    QCOMPARE(DigSigFixture::calls(), QStringList{QStringLiteral("-u -k all (boot rw)")});
    // The read-only remount is skipped after a failed rebuild.
    QVERIFY(!DigSigFixture::bootMountedReadOnly());
}

void DigSigModuleTest::setPrintsWarningsOnStandardOutput()
{
    QVERIFY(DigSigFixture::setToolBehaviour("warn-ldconfig"));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, false);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.standardOutput,
             QByteArray("digsig : Process: \"update-initramfs -u -k all\" finished with "
                        "warnings:\nldconfig: input file /var/tmp/mkinitramfs_Zq1x/etc/"
                        "ld.so.cache not found\n\n"));
}

void DigSigModuleTest::setRebuildError()
{
    QVERIFY(DigSigFixture::setToolBehaviour("ok"));
    QVERIFY(DigSigFixture::setToolStandardError("E: y\n"));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.standardError,
             QByteArray("digsig : Process: \"update-initramfs -u -k all\" finished "
                        "with errors:\nE: y\n\n"));
}

void DigSigModuleTest::writeFailureSkipsRebuild()
{
    QString error;
    QVERIFY2(m_fixture.bindReadOnly(ZqlTest::DigSigDir, &error), qPrintable(error));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError,
             QByteArray("digsig : file /etc/digsig/digsig_initramfs.conf can not be opened\n"));
    QCOMPARE(DigSigFixture::calls(), QStringList());
    QCOMPARE(ZqlTest::readBytes(Conf), m_fixture.originalOptions());
    QCOMPARE(ZqlTest::readBytes(Xattr), m_fixture.originalXattrControl());
}

void DigSigModuleTest::unreadableMountTable()
{
    QVERIFY(QFile::remove(QStringLiteral("/etc/mtab")));
    const ZqlTest::SettingsRun result =
        apply(allThree(QStringLiteral("On"), QStringLiteral("On"), QStringLiteral("x")));
    QCOMPARE(result.failed, true);
    QCOMPARE(result.standardError, QByteArray("digsig : Can't parse /etc/mtab\n"));
    QCOMPARE(DigSigFixture::calls(), QStringList());
}

ZQL_SANDBOXED_TEST_MAIN(DigSigModuleTest)
#include "digsigmoduletest.moc"
