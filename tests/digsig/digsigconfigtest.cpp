// DigSigConfig on the simulated system: reading and checking both signature files, writing
// them back, the mount table check, the remount of /boot and the initramfs rebuild with every
// ending of the simulated update-initramfs.
#include "digsigfixture.h"
#include "scratchmounts.h"
#include "searchpathfront.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QFileInfo>
#include <QTemporaryDir>

#include <csignal>
#include <stdexcept>
#include <thread>

using ZqlTest::DigSigFixture;

namespace {
const QByteArray FourOptions = "DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=2\n"
                               "DIGSIG_IGNORE_XATTR_KEYS=1\nDIGSIG_IGNORE_GOST2001=0\n";
const QString Conf = QStringLiteral("/etc/digsig/digsig_initramfs.conf");
const QString Xattr = QStringLiteral("/etc/digsig/xattr_control");
const QString Rebuild = QStringLiteral("Process: \"update-initramfs -u -k all\"");

// Runs the rebuild; @return its warnings, or "thrown: <message>".
QStringList runRebuild()
{
    try {
        return DigSig::runUpdateInitramfs();
    } catch (const std::runtime_error &e) {
        return {QStringLiteral("thrown: ") + QString::fromUtf8(e.what())};
    }
}

QString bootCheck()
{
    try {
        return DigSig::isBootReadOnly() ? QStringLiteral("ro") : QStringLiteral("rw");
    } catch (const std::runtime_error &e) {
        return QStringLiteral("thrown: ") + QString::fromUtf8(e.what());
    }
}
} // namespace

class DigSigConfigTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void newRecordIsEmpty();
    void modeNames();
    void shippedFilesRead();
    void readOptions_data();
    void readOptions();
    void missingOptionsFile();
    void missingXattrControl();
    void xattrControlReadWhole();
    void write_data();
    void write();
    void writeDropsComments();
    void lineLimit_data();
    void lineLimit();
    void writeFailures_data();
    void writeFailures();
    void mountTable_data();
    void mountTable();
    void bootNotSeparateMount();
    void bootReallyReadOnly();
    void mountTableUnreadable();
    void remountBoot();
    void remountOfNoMountFails();
    void rebuild_data();
    void rebuild();
    void rebuildWritesImage();
    void rebuildOnReadOnlyBootFails();
    void rebuildNotStarted();
    void rebuildCrashed();
    void rebuildKilledWhileHanging();

private:
    DigSigFixture m_fixture;
};

void DigSigConfigTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void DigSigConfigTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void DigSigConfigTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void DigSigConfigTest::newRecordIsEmpty()
{
    const DigSigConfig config;
    QCOMPARE(config.elfMode, 0);
    QCOMPARE(config.xattrMode, 0);
    QCOMPARE(config.ignoreXattrKeys, false);
    QCOMPARE(config.ignoreGost2001, false);
    QCOMPARE(config.xattrControl, QString());
    QCOMPARE(config.errors, QStringList());
}

void DigSigConfigTest::modeNames()
{
    QCOMPARE(DigSigConfig::modeName(1), QStringLiteral("On"));
    QCOMPARE(DigSigConfig::modeName(2), QStringLiteral("Off"));
    QCOMPARE(DigSigConfig::modeName(3), QStringLiteral("Debug"));
    QCOMPARE(DigSigConfig::modeName(0), QString());
    QCOMPARE(DigSigConfig::modeName(4), QString());
    QCOMPARE(DigSigConfig::modeOfName(QStringLiteral("Debug")), 3);
    QCOMPARE(DigSigConfig::modeOfName(QStringLiteral("on")), 0);
    QCOMPARE(DigSigConfig::modeOfName(QStringLiteral("Unknown")), 0);
}

void DigSigConfigTest::shippedFilesRead()
{
    const DigSigConfig config(DigSigConfig::ReadFiles);
    QCOMPARE(config.errors, QStringList());
    QCOMPARE(config.elfMode, int(DigSigConfig::On));
    QCOMPARE(config.xattrMode, int(DigSigConfig::Off));
    QCOMPARE(config.ignoreXattrKeys, false);
    QCOMPARE(config.ignoreGost2001, true);
    QCOMPARE(config.xattrControl, QString::fromUtf8(m_fixture.originalXattrControl()));
}

void DigSigConfigTest::readOptions_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("elfMode");
    QTest::addColumn<int>("xattrMode");
    QTest::addColumn<bool>("ignoreKeys");
    QTest::addColumn<bool>("ignoreGost");
    QTest::addColumn<QStringList>("errors");

    const QString file = QStringLiteral("file /etc/digsig/digsig_initramfs.conf ");
    QTest::newRow("four options") << FourOptions << 1 << 3 << true << false << QStringList();
    QTest::newRow("comments and blank lines")
        << QByteArray("# x\n\n   \n\t# y = 1\n" + FourOptions + "  #z\n") << 1 << 3 << true << false
        << QStringList();
    QTest::newRow("blanks around a line")
        << QByteArray("  DIGSIG_ELF_MODE=0 \t\nDIGSIG_XATTR_MODE=1\n"
                      "DIGSIG_IGNORE_XATTR_KEYS=0\nDIGSIG_IGNORE_GOST2001=1")
        << 2 << 1 << false << true << QStringList();
    QTest::newRow("mode 3 is invalid")
        << QByteArray(FourOptions).replace("DIGSIG_ELF_MODE=1", "DIGSIG_ELF_MODE=3") << 0 << 3
        << true << false << QStringList{QStringLiteral("DIGSIG_ELF_MODE value \"3\" is invalid")};
    QTest::newRow("lower-case key is an invalid line")
        << QByteArray(FourOptions).replace("DIGSIG_ELF_MODE=1", "digsig_elf_mode=1") << 0 << 3
        << true << false
        << QStringList{file + QStringLiteral("has invalid line: digsig_elf_mode=1"),
                       file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_ELF_MODE"),
                       QStringLiteral("DIGSIG_ELF_MODE value \"\" is invalid")};
    QTest::newRow("unknown key") << QByteArray("FOO=1\n" + FourOptions) << 1 << 3 << true << false
                                 << QStringList{file + QStringLiteral("contains invalid key: FOO")};
    QTest::newRow("missing option")
        << QByteArray(FourOptions).replace("DIGSIG_IGNORE_GOST2001=0\n", "") << 1 << 3 << true
        << false
        << QStringList{file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_IGNORE_GOST2001"),
                       QStringLiteral("DIGSIG_IGNORE_GOST2001 value \"\" is invalid")};
    QTest::newRow("leading zeros are invalid")
        << QByteArray("DIGSIG_ELF_MODE=01\nDIGSIG_XATTR_MODE=00\n"
                      "DIGSIG_IGNORE_XATTR_KEYS=01\nDIGSIG_IGNORE_GOST2001=00\n")
        << 0 << 0 << false << false
        << QStringList{QStringLiteral("DIGSIG_ELF_MODE value \"01\" is invalid"),
                       QStringLiteral("DIGSIG_XATTR_MODE value \"00\" is invalid"),
                       QStringLiteral("DIGSIG_IGNORE_XATTR_KEYS value \"01\" is invalid"),
                       QStringLiteral("DIGSIG_IGNORE_GOST2001 value \"00\" is invalid")};
    QTest::newRow("flag 2 is invalid")
        << QByteArray(FourOptions).replace("KEYS=1", "KEYS=2") << 1 << 3 << false << false
        << QStringList{QStringLiteral("DIGSIG_IGNORE_XATTR_KEYS value \"2\" is invalid")};
    QTest::newRow("sign and blank inside the value")
        << QByteArray("DIGSIG_ELF_MODE=-1\nDIGSIG_ELF_MODE=1 2\nDIGSIG_ELF_MODE = 1\n" +
                      FourOptions)
        << 1 << 3 << true << false
        << QStringList{file + QStringLiteral("has invalid line: DIGSIG_ELF_MODE=-1"),
                       file + QStringLiteral("has invalid line: DIGSIG_ELF_MODE=1 2"),
                       file + QStringLiteral("has invalid line: DIGSIG_ELF_MODE = 1")};
    QTest::newRow("a later line wins") << QByteArray(FourOptions + "DIGSIG_ELF_MODE=2\n") << 3 << 3
                                       << true << false << QStringList();
    QTest::newRow("a later invalid value wins")
        << QByteArray(FourOptions + "DIGSIG_ELF_MODE=7\n") << 0 << 3 << true << false
        << QStringList{QStringLiteral("DIGSIG_ELF_MODE value \"7\" is invalid")};
    QTest::newRow("empty file")
        << QByteArray() << 0 << 0 << false << false
        << QStringList{file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_ELF_MODE"),
                       file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_XATTR_MODE"),
                       file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_IGNORE_XATTR_KEYS"),
                       file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_IGNORE_GOST2001"),
                       QStringLiteral("DIGSIG_ELF_MODE value \"\" is invalid"),
                       QStringLiteral("DIGSIG_XATTR_MODE value \"\" is invalid"),
                       QStringLiteral("DIGSIG_IGNORE_XATTR_KEYS value \"\" is invalid"),
                       QStringLiteral("DIGSIG_IGNORE_GOST2001 value \"\" is invalid")};
    QTest::newRow("errors in the order found")
        << QByteArray("BAR=1\nDIGSIG_ELF_MODE=9\nnot a line\nFOO=0\nDIGSIG_XATTR_MODE=1\n"
                      "DIGSIG_IGNORE_XATTR_KEYS=0\n")
        << 0 << 1 << false << false
        << QStringList{file + QStringLiteral("contains invalid key: BAR"),
                       file + QStringLiteral("has invalid line: not a line"),
                       file + QStringLiteral("contains invalid key: FOO"),
                       file + QStringLiteral("does not contain the required option "
                                             "DIGSIG_IGNORE_GOST2001"),
                       QStringLiteral("DIGSIG_ELF_MODE value \"9\" is invalid"),
                       QStringLiteral("DIGSIG_IGNORE_GOST2001 value \"\" is invalid")};
}

void DigSigConfigTest::readOptions()
{
    QFETCH(QByteArray, content);
    QFETCH(int, elfMode);
    QFETCH(int, xattrMode);
    QFETCH(bool, ignoreKeys);
    QFETCH(bool, ignoreGost);
    QFETCH(QStringList, errors);
    QVERIFY(ZqlTest::writeBytes(Conf, content));
    const DigSigConfig config(DigSigConfig::ReadFiles);
    QCOMPARE(config.errors, errors);
    QCOMPARE(config.elfMode, elfMode);
    QCOMPARE(config.xattrMode, xattrMode);
    QCOMPARE(config.ignoreXattrKeys, ignoreKeys);
    QCOMPARE(config.ignoreGost2001, ignoreGost);
}

void DigSigConfigTest::missingOptionsFile()
{
    QVERIFY(QFile::remove(Conf));
    const DigSigConfig config(DigSigConfig::ReadFiles);
    // Nothing more about that file; xattr_control is still read.
    QCOMPARE(config.errors,
             QStringList{QStringLiteral("Can't open file /etc/digsig/digsig_initramfs.conf")});
    QCOMPARE(config.xattrControl, QString::fromUtf8(m_fixture.originalXattrControl()));
}

void DigSigConfigTest::missingXattrControl()
{
    QVERIFY(QFile::remove(Xattr));
    const DigSigConfig config(DigSigConfig::ReadFiles);
    QCOMPARE(config.errors,
             QStringList{QStringLiteral("file /etc/digsig/xattr_control can not be opened")});
    QCOMPARE(config.elfMode, 1);
}

void DigSigConfigTest::xattrControlReadWhole()
{
    const QByteArray text = "  security.ima  \n\nпользователь.*\n# not a comment here\n\n";
    QVERIFY(ZqlTest::writeBytes(Xattr, text));
    const DigSigConfig config(DigSigConfig::ReadFiles);
    QCOMPARE(config.errors, QStringList());
    QCOMPARE(config.xattrControl, QString::fromUtf8(text));
}

void DigSigConfigTest::write_data()
{
    QTest::addColumn<int>("elfMode");
    QTest::addColumn<int>("xattrMode");
    QTest::addColumn<bool>("ignoreKeys");
    QTest::addColumn<bool>("ignoreGost");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("options");
    QTest::addColumn<QByteArray>("xattr");

    QTest::newRow("on, off, flags") << 1 << 2 << true << false << QStringLiteral("a")
                                    << QByteArray("DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=0\n"
                                                  "DIGSIG_IGNORE_XATTR_KEYS=1\n"
                                                  "DIGSIG_IGNORE_GOST2001=0\n")
                                    << QByteArray("a\n");
    QTest::newRow("debug, unknown") << 3 << 0 << false << true << QString()
                                    << QByteArray("DIGSIG_ELF_MODE=2\nDIGSIG_XATTR_MODE=0\n"
                                                  "DIGSIG_IGNORE_XATTR_KEYS=0\n"
                                                  "DIGSIG_IGNORE_GOST2001=1\n")
                                    << QByteArray("\n");
    QTest::newRow("any other mode is off")
        << 7 << -1 << false << false << QStringLiteral("a\n  b  \n")
        << QByteArray("DIGSIG_ELF_MODE=0\nDIGSIG_XATTR_MODE=0\nDIGSIG_IGNORE_XATTR_KEYS=0\n"
                      "DIGSIG_IGNORE_GOST2001=0\n")
        << QByteArray("a\nb\n\n");
    QTest::newRow("pieces trimmed, empty ones kept")
        << 1 << 1 << false << false << QStringLiteral("\t x \n\n\r\ny\u00a0")
        << QByteArray("DIGSIG_ELF_MODE=1\nDIGSIG_XATTR_MODE=1\nDIGSIG_IGNORE_XATTR_KEYS=0\n"
                      "DIGSIG_IGNORE_GOST2001=0\n")
        << QByteArray("x\n\n\ny\n");
}

void DigSigConfigTest::write()
{
    QFETCH(int, elfMode);
    QFETCH(int, xattrMode);
    QFETCH(bool, ignoreKeys);
    QFETCH(bool, ignoreGost);
    QFETCH(QString, text);
    QFETCH(QByteArray, options);
    QFETCH(QByteArray, xattr);
    DigSigConfig config;
    config.elfMode = elfMode;
    config.xattrMode = xattrMode;
    config.ignoreXattrKeys = ignoreKeys;
    config.ignoreGost2001 = ignoreGost;
    config.xattrControl = text;
    QCOMPARE(DigSig::writeDigSigConfig(config), QStringList());
    QCOMPARE(ZqlTest::readBytes(Conf), options);
    QCOMPARE(ZqlTest::readBytes(Xattr), xattr);
}

void DigSigConfigTest::writeDropsComments()
{
    QVERIFY(ZqlTest::writeBytes(Conf, "# x\n" + FourOptions + "# y\n"));
    const DigSigConfig read(DigSigConfig::ReadFiles);
    QCOMPARE(read.errors, QStringList());
    QCOMPARE(DigSig::writeDigSigConfig(read), QStringList());
    QCOMPARE(ZqlTest::readBytes(Conf), FourOptions);
    // The shipped file's unknown key is not written back either.
    QVERIFY(ZqlTest::writeBytes(Conf, "FOO=1\n" + FourOptions));
    QCOMPARE(DigSig::writeDigSigConfig(DigSigConfig(DigSigConfig::ReadFiles)), QStringList());
    QCOMPARE(ZqlTest::readBytes(Conf), FourOptions);
}

void DigSigConfigTest::lineLimit_data()
{
    QTest::addColumn<QString>("piece");
    QTest::addColumn<bool>("fits");
    const QString a4094(4094, QLatin1Char('a'));
    QTest::newRow("4094 bytes") << a4094 << true;
    QTest::newRow("4095 bytes") << a4094 + QLatin1Char('a') << false;
    QTest::newRow("4094 bytes and blanks around")
        << QStringLiteral("  ") + a4094 + QStringLiteral(" \t") << true;
    // A two-byte letter that ends at byte 4094, and one that ends at byte 4095.
    QTest::newRow("two-byte letter at 4094")
        << QString(4092, QLatin1Char('a')) + QChar(0x00e9) << true;
    QTest::newRow("two-byte letter at 4095")
        << QString(4093, QLatin1Char('a')) + QChar(0x00e9) << false;
    QTest::newRow("three-byte letter at 4094")
        << QString(4091, QLatin1Char('a')) + QChar(0x20ac) << true;
    QTest::newRow("three-byte letter at 4095")
        << QString(4092, QLatin1Char('a')) + QChar(0x20ac) << false;
    // 1364 letters of three bytes: 4092 bytes; with two ASCII letters 4094.
    QTest::newRow("only multi-byte letters, 4094 bytes")
        << QString(1364, QChar(0x0436 + 0x2000)) + QStringLiteral("aa") << true;
    QTest::newRow("four-byte letter at 4095")
        << QString(4091, QLatin1Char('a')) + QString::fromUtf8("\xf0\x9f\x94\x91") << false;
    QTest::newRow("four-byte letter at 4094")
        << QString(4090, QLatin1Char('a')) + QString::fromUtf8("\xf0\x9f\x94\x91") << true;
}

void DigSigConfigTest::lineLimit()
{
    QFETCH(QString, piece);
    QFETCH(bool, fits);
    const QByteArray before = ZqlTest::readBytes(Xattr);
    DigSigConfig config;
    config.xattrControl = QStringLiteral("first\n") + piece + QStringLiteral("\nlast");
    const QStringList errors = DigSig::writeDigSigConfig(config);
    if (fits) {
        QCOMPARE(errors, QStringList());
        QCOMPARE(ZqlTest::readBytes(Xattr),
                 QByteArray("first\n" + piece.trimmed().toUtf8() + "\nlast\n"));
    } else {
        QCOMPARE(errors, QStringList{QStringLiteral("Line %1 exceeds the size limit.").arg(piece)});
        QCOMPARE(ZqlTest::readBytes(Xattr), before);
    }
}

void DigSigConfigTest::writeFailures_data()
{
    QTest::addColumn<QString>("shape");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<bool>("optionsKept");
    QTest::addColumn<bool>("xattrKept");
    QTest::newRow("read-only directory")
        << QStringLiteral("ro-dir")
        << QStringList{QStringLiteral("file /etc/digsig/digsig_initramfs.conf can not be opened")}
        << true << true;
    QTest::newRow("no directory")
        << QStringLiteral("no-dir")
        << QStringList{QStringLiteral("file /etc/digsig/digsig_initramfs.conf can not be opened")}
        << true << true;
    QTest::newRow("full file system")
        << QStringLiteral("full")
        << QStringList{QStringLiteral("file /etc/digsig/digsig_initramfs.conf can not be saved")}
        << true << true;
    QTest::newRow("xattr_control is a directory")
        << QStringLiteral("xattr-dir")
        << QStringList{QStringLiteral("file /etc/digsig/xattr_control can not be opened")} << false
        << true;
}

void DigSigConfigTest::writeFailures()
{
    QFETCH(QString, shape);
    QFETCH(QStringList, errors);
    QFETCH(bool, optionsKept);
    QFETCH(bool, xattrKept);
    QString error;
    if (shape == QLatin1String("ro-dir")) {
        QVERIFY2(m_fixture.bindReadOnly(ZqlTest::DigSigDir, &error), qPrintable(error));
    } else if (shape == QLatin1String("no-dir")) {
        QVERIFY(QDir(ZqlTest::DigSigDir).removeRecursively());
    } else if (shape == QLatin1String("full")) {
        QVERIFY2(m_fixture.mountDigSigDir(QStringLiteral("size=8k"), &error), qPrintable(error));
        // Fill the rest; the next file's data has no room.
        ZqlTest::fillFileSystem(ZqlTest::DigSigDir);
    } else {
        QVERIFY(QFile::remove(Xattr));
        QVERIFY(QDir().mkdir(Xattr));
    }
    const QByteArray optionsBefore = ZqlTest::readBytes(Conf);
    const QByteArray xattrBefore = ZqlTest::readBytes(Xattr);
    DigSigConfig config;
    config.elfMode = DigSigConfig::Debug;
    config.xattrControl = QStringLiteral("new");
    QCOMPARE(DigSig::writeDigSigConfig(config), errors);
    QCOMPARE(ZqlTest::readBytes(Conf) == optionsBefore, optionsKept);
    QCOMPARE(ZqlTest::readBytes(Xattr) == xattrBefore, xattrKept);
    if (shape == QLatin1String("xattr-dir"))
        QVERIFY(QDir().rmdir(Xattr));
}

void DigSigConfigTest::mountTable_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<QString>("answer");
    const QByteArray root = "overlay / overlay rw,relatime 0 0\n";
    QTest::newRow("ro") << root + "/dev/sda1 /boot ext4 ro,relatime 0 0\n" << QStringLiteral("ro");
    QTest::newRow("ro not first") << root + "/dev/sda1 /boot ext4 nodev,ro 0 0\n"
                                  << QStringLiteral("ro");
    QTest::newRow("rw,relatime") << root + "/dev/sda1 /boot ext4 rw,relatime 0 0\n"
                                 << QStringLiteral("rw");
    QTest::newRow("option that only starts with ro")
        << root + "/dev/sda1 /boot ext4 rootcontext=x,rox 0 0\n"
        << QStringLiteral("rw");
    QTest::newRow("another mount point") << root + "/dev/sda2 /boot/efi vfat ro 0 0\n"
                                         << QStringLiteral("rw");
    QTest::newRow("read-only mount of /boot2") << root + "/dev/sda2 /boot2 ext4 ro 0 0\n"
                                               << QStringLiteral("rw");
    QTest::newRow("any /boot entry with ro")
        << root + "/dev/sda1 /boot ext4 rw 0 0\n/dev/sda3 /boot ext4 ro 0 0\n"
        << QStringLiteral("ro");
    QTest::newRow("no /boot") << root << QStringLiteral("rw");
    QTest::newRow("empty table") << QByteArray() << QStringLiteral("rw");
}

void DigSigConfigTest::mountTable()
{
    QFETCH(QByteArray, table);
    QFETCH(QString, answer);
    QVERIFY(DigSigFixture::writeMountTable(table));
    QCOMPARE(bootCheck(), answer);
}

void DigSigConfigTest::bootNotSeparateMount()
{
    QVERIFY(!DigSigFixture::bootMountedReadOnly());
    QCOMPARE(bootCheck(), QStringLiteral("rw"));
}

void DigSigConfigTest::bootReallyReadOnly()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    QVERIFY(DigSigFixture::bootMountedReadOnly());
    QCOMPARE(bootCheck(), QStringLiteral("ro"));
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
    QVERIFY2(m_fixture.mountBoot(false, &error), qPrintable(error));
    QCOMPARE(bootCheck(), QStringLiteral("rw"));
}

void DigSigConfigTest::mountTableUnreadable()
{
    QVERIFY(QFile::remove(QStringLiteral("/etc/mtab")));
    QCOMPARE(bootCheck(), QStringLiteral("thrown: Can't parse /etc/mtab"));
}

void DigSigConfigTest::remountBoot()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    QVERIFY(DigSig::remountBoot(true));
    QVERIFY(!DigSigFixture::bootMountedReadOnly());
    QVERIFY(ZqlTest::writeBytes(QStringLiteral("/boot/probe"), "x"));
    QVERIFY(DigSig::remountBoot(false));
    QVERIFY(DigSigFixture::bootMountedReadOnly());
    QVERIFY(!ZqlTest::writeBytes(QStringLiteral("/boot/probe2"), "x"));
}

void DigSigConfigTest::remountOfNoMountFails()
{
    // /boot is no mount point of its own here: mount refuses the remount.
    QVERIFY(!DigSig::remountBoot(true));
    QVERIFY(!DigSig::remountBoot(false));
}

void DigSigConfigTest::rebuild_data()
{
    QTest::addColumn<QByteArray>("behaviour");
    QTest::addColumn<QByteArray>("standardError");
    QTest::addColumn<QStringList>("result");

    const QString warnings = Rebuild + QStringLiteral(" finished with warnings:\n");
    const QString errors = Rebuild + QStringLiteral(" finished with errors:\n");
    const QString ldconfig = QStringLiteral(
        "ldconfig: input file /var/tmp/mkinitramfs_Zq1x/etc/ld.so.cache not found\n");
    const QString cryptsetup = QStringLiteral(
        "cryptsetup: WARNING: The initramfs image may not contain cryptsetup binaries\n"
        "    nor crypto modules. If that's on purpose, you may want to uninstall the\n"
        "    'cryptsetup-initramfs' package in order to disable the cryptsetup initramfs\n"
        "    integration and avoid this warning.\n");
    const QString eLine =
        QStringLiteral("E: /usr/share/initramfs-tools/hooks/digsig failed with return 1.\n");

    QTest::newRow("quiet") << QByteArray("ok") << QByteArray() << QStringList();
    QTest::newRow("ldconfig warning")
        << QByteArray("warn-ldconfig") << QByteArray() << QStringList{warnings + ldconfig};
    QTest::newRow("cryptsetup warning")
        << QByteArray("warn-cryptsetup") << QByteArray() << QStringList{warnings + cryptsetup};
    QTest::newRow("short cryptsetup warning")
        << QByteArray("ok") << QByteArray("cryptsetup: WARNING: x\n")
        << QStringList{warnings + QStringLiteral("cryptsetup: WARNING: x\n")};
    QTest::newRow("warnings in any case")
        << QByteArray("ok") << QByteArray("LDCONFIG:  Input\tFILE x y NOT FOUND at all")
        << QStringList{warnings + QStringLiteral("LDCONFIG:  Input\tFILE x y NOT FOUND at all")};
    QTest::newRow("a warning anywhere makes the whole text a warning")
        << QByteArray("warn-ldconfig") << QByteArray("W: something else\n")
        << QStringList{warnings + ldconfig + QStringLiteral("W: something else\n")};
    QTest::newRow("E: line with exit 0 is an error")
        << QByteArray("error-line") << QByteArray()
        << QStringList{QStringLiteral("thrown: ") + errors + eLine};
    QTest::newRow("E: y") << QByteArray("ok") << QByteArray("E: y\n")
                          << QStringList{QStringLiteral("thrown: ") + errors +
                                         QStringLiteral("E: y\n")};
    QTest::newRow("other remark with exit 0 is an error")
        << QByteArray("ok") << QByteArray("update-initramfs: note\n")
        << QStringList{QStringLiteral("thrown: ") + errors +
                       QStringLiteral("update-initramfs: note\n")};
    QTest::newRow("a line feed alone is an error")
        << QByteArray("ok") << QByteArray("\n")
        << QStringList{QStringLiteral("thrown: ") + errors + QStringLiteral("\n")};
    QTest::newRow("warning text not at a line start")
        << QByteArray("ok") << QByteArray("note: ldconfig: input file x not found\n")
        << QStringList{QStringLiteral("thrown: ") + errors +
                       QStringLiteral("note: ldconfig: input file x not found\n")};
    QTest::newRow("exit code 3")
        << QByteArray("exit 3") << QByteArray()
        << QStringList{QStringLiteral("thrown: ") + errors +
                       QStringLiteral("E: /usr/share/initramfs-tools/hooks/digsig failed with "
                                      "return 3.\n\nExit code: 3")};
    QTest::newRow("exit code with a warning is still an error")
        << QByteArray("exit 1") << QByteArray("cryptsetup: WARNING: x\n")
        << QStringList{QStringLiteral("thrown: ") + errors +
                       QStringLiteral("E: /usr/share/initramfs-tools/hooks/digsig failed with "
                                      "return 1.\ncryptsetup: WARNING: x\n\nExit code: 1")};
    QTest::newRow("UTF-8 output") << QByteArray("ok") << QByteArray("E: файл не найден\n")
                                  << QStringList{QStringLiteral("thrown: ") + errors +
                                                 QString::fromUtf8("E: файл не найден\n")};
    QTest::newRow("percent signs are kept")
        << QByteArray("ok") << QByteArray("E: %1 %2\n")
        << QStringList{QStringLiteral("thrown: ") + errors + QStringLiteral("E: %1 %2\n")};
}

void DigSigConfigTest::rebuild()
{
    QFETCH(QByteArray, behaviour);
    QFETCH(QByteArray, standardError);
    QFETCH(QStringList, result);
    QVERIFY(DigSigFixture::setToolBehaviour(behaviour));
    if (!standardError.isNull())
        QVERIFY(DigSigFixture::setToolStandardError(standardError));
    QVERIFY(DigSigFixture::startCallLog());
    QCOMPARE(runRebuild(), result);
    QCOMPARE(DigSigFixture::calls(), QStringList{QStringLiteral("-u -k all (boot rw)")});
}

void DigSigConfigTest::rebuildWritesImage()
{
    QCOMPARE(runRebuild(), QStringList());
    const QByteArray image = ZqlTest::readBytes(ZqlTest::InitramfsImage);
    QVERIFY(image.contains(m_fixture.originalOptions()));
    QVERIFY(image.contains(m_fixture.originalXattrControl()));
}

void DigSigConfigTest::rebuildOnReadOnlyBootFails()
{
    QString error;
    QVERIFY2(m_fixture.mountBoot(true, &error), qPrintable(error));
    QCOMPARE(runRebuild(), QStringList{QStringLiteral("thrown: ") + Rebuild +
                                       QStringLiteral(" finished with errors:\nupdate-initramfs: "
                                                      "failed for /boot/initrd.img-6.1.0-sim-amd64 "
                                                      "with 1.\n\nExit code: 1")});
}

void DigSigConfigTest::rebuildNotStarted()
{
    // A search path without update-initramfs.
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", empty.path().toLocal8Bit());
    const QStringList result = runRebuild();
    qputenv("PATH", path);
    QCOMPARE(result, QStringList{QStringLiteral("thrown: Process: \"update-initramfs -u -k "
                                                "all\". Error: 0.\n\"Not started\"")});
}

void DigSigConfigTest::rebuildCrashed()
{
    QVERIFY(DigSigFixture::setToolBehaviour("crash"));
    QCOMPARE(runRebuild(), QStringList{QStringLiteral("thrown: Process: \"update-initramfs -u -k "
                                                      "all\". Error: 1.\n\"Not finished\"")});
}

void DigSigConfigTest::rebuildKilledWhileHanging()
{
    // The rebuild waits without a limit; someone else ends the hung tool.
    QVERIFY(DigSigFixture::setToolBehaviour("hang"));
    const QString pidFile = ZqlTest::InitramfsStateDir + QStringLiteral("/hang.pid");
    std::thread killer([&pidFile] {
        for (int i = 0; i < 1000; ++i) {
            const QByteArray pid = ZqlTest::readBytes(pidFile).trimmed();
            if (!pid.isEmpty()) {
                ::kill(pid.toInt(), SIGKILL);
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const QStringList result = runRebuild();
    killer.join();
    QCOMPARE(result, QStringList{QStringLiteral("thrown: Process: \"update-initramfs -u -k "
                                                "all\". Error: 1.\n\"Not finished\"")});
}

ZQL_SANDBOXED_TEST_MAIN(DigSigConfigTest)
#include "digsigconfigtest.moc"
