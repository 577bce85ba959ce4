#include "micfixture.h"
#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>

using Mic::MicKernel;

namespace {
using Files = QMap<QString, QByteArray>;

const QByteArray DebianCmdline = "GRUB_CMDLINE_LINUX_DEFAULT=\"quiet\"";
const QString BootConf = QStringLiteral("/boot/boot.conf");
const QString BootConfBackup = QStringLiteral("/boot/boot.conf__backup");
const QString GrubBackup = QStringLiteral("/etc/default/grub_backup");
const QString SampleDir = QStringLiteral("/usr/share/zql-sim/boot/");

// Debian's GRUB defaults with @p line in place of its GRUB_CMDLINE_LINUX_DEFAULT line.
QByteArray debianGrubWith(const QByteArray &line)
{
    QByteArray grub = ZqlTest::readBytes(QStringLiteral("/usr/share/zql-sim/grub.debian"));
    grub.replace(DebianCmdline, line);
    return grub;
}

QByteArray sample(const QString &name)
{
    return ZqlTest::readBytes(SampleDir + name);
}
} // namespace

class MicKernelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void configuredLevel_data();
    void configuredLevel();
    void status_data();
    void status();
    void levelTexts();
    void missingLevelListGivesNumbers();
    void updateEmitsOnlyOnChange();
    void enableWritesTheLevel();
    void enableWhilePlannedRunsNoTool();
    void disableWhilePlannedRunsNoTool();
    void disableThenEnable();
    void toolFailures_data();
    void toolFailures();
    void missingToolIsAnError();
    void instanceIsOne();

    void grubWriter_data();
    void grubWriter();
    void grubWriterMissingFile();
    void grubWriterWithoutCmdlineRestores();
    void grubWriterUpdateGrubFailsRestores();
    void grubWriterFullDiskHalfwayRestores();
    void grubWriterWithoutUpdateGrub();
    void bootConfWriter_data();
    void bootConfWriter();

private:
    MicTest::MicFixture m_fixture;
};

void MicKernelTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void MicKernelTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicKernelTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicKernelTest::configuredLevel_data()
{
    QTest::addColumn<Files>("files");
    QTest::addColumn<int>("level");

    const QString grub = MicTest::GrubFile;
    QTest::newRow("no boot file at all") << Files{{grub, {}}} << 63;
    QTest::newRow("Debian's GRUB defaults as shipped")
        << Files{{grub, debianGrubWith(DebianCmdline)}} << 63;
    QTest::newRow("parameter once")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=5\"")}}
        << 5;
    QTest::newRow("parameter twice in the line: the first counts")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=5 quiet "
                                       "tessel.max_ilev=7\"")}}
        << 5;
    QTest::newRow("parameter with 0")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=0\"")}}
        << 0;
    QTest::newRow("two matching lines 5 and 7: the later wins")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=5\"\n"
                                       "GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=7\"")}}
        << 7;
    QTest::newRow("a later line without the parameter keeps the earlier level")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=5\"\n"
                                       "GRUB_CMDLINE_LINUX_DEFAULT=\"quiet\"")}}
        << 5;
    QTest::newRow("only GRUB_CMDLINE_LINUX_DEFAULT lines count")
        << Files{{grub,
                  debianGrubWith(DebianCmdline + "\nGRUB_CMDLINE_LINUX=\"tessel.max_ilev=9\"\n"
                                                 "# GRUB_CMDLINE_LINUX_DEFAULT=\"tessel."
                                                 "max_ilev=8\"")}}
        << 63;
    QTest::newRow("no 16-bit number")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=70000\"")}}
        << 63;
    QTest::newRow("16-bit number above 255 is read whole")
        << Files{{grub, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=300\"")}}
        << 300;
    QTest::newRow("pylon script wins over GRUB and cmdline.txt")
        << Files{{QStringLiteral("/boot/pylon/pylon.sh"),
                  sample(QStringLiteral("pylon.sh")).replace("max_ilev=63", "max_ilev=12")},
                 {QStringLiteral("/boot/cmdline.txt"), "tessel.max_ilev=4\n"}}
        << 12;
    QTest::newRow("pylon script without the parameter: no fallback")
        << Files{{QStringLiteral("/boot/pylon/pylon.sh"), "PARAMS=\"quiet\"\n"},
                 {QStringLiteral("/boot.scr"), "setenv bootargs tessel.max_ilev=4\n"}}
        << 63;
    QTest::newRow("cmdline.txt: every line counts")
        << Files{{QStringLiteral("/boot/cmdline.txt"),
                  sample(QStringLiteral("cmdline.txt")).replace("max_ilev=63", "max_ilev=21")}}
        << 21;
    QTest::newRow("cmdline.txt deep below /boot")
        << Files{{QStringLiteral("/boot/firmware/a/b/cmdline.txt"), "x tessel.max_ilev=33\n"}}
        << 33;
    QTest::newRow("cmdline.txt at several depths: the last in path order")
        << Files{{QStringLiteral("/boot/cmdline.txt"), "tessel.max_ilev=10\n"},
                 {QStringLiteral("/boot/a/cmdline.txt"), "tessel.max_ilev=20\n"},
                 {QStringLiteral("/boot/a/b/cmdline.txt"), "tessel.max_ilev=30\n"}}
        << 10;
    QTest::newRow("cmdline.txt at two depths below one folder")
        << Files{{QStringLiteral("/boot/a/cmdline.txt"), "tessel.max_ilev=20\n"},
                 {QStringLiteral("/boot/a/b/cmdline.txt"), "tessel.max_ilev=30\n"}}
        << 20;
    QTest::newRow("GRUB defaults exist without the parameter: boot.scr is not read")
        << Files{{QStringLiteral("/boot.scr"), "setenv bootargs tessel.max_ilev=4\n"}} << 63;
    QTest::newRow("no GRUB defaults: /boot.scr")
        << Files{{grub, {}},
                 {QStringLiteral("/boot.scr"),
                  sample(QStringLiteral("boot.scr")).replace("max_ilev=63", "max_ilev=44")},
                 {QStringLiteral("/boot/boot.scr"), "setenv bootargs tessel.max_ilev=45\n"}}
        << 44;
    QTest::newRow("no GRUB defaults: /boot/boot.scr when /boot.scr is missing")
        << Files{{grub, {}},
                 {QStringLiteral("/boot/boot.scr"),
                  sample(QStringLiteral("boot.scr")).replace("max_ilev=63", "max_ilev=46")}}
        << 46;
    QTest::newRow("boot.scr: only setenv bootargs lines, the later wins")
        << Files{{grub, {}},
                 {QStringLiteral("/boot/boot.scr"), "echo tessel.max_ilev=1\n"
                                                    "setenv bootargs tessel.max_ilev=2\n"
                                                    "  setenv bootargs tessel.max_ilev=3\n"
                                                    "setenv bootargs tessel.max_ilev=6 x\n"}}
        << 6;
}

// An empty text in the table removes the file.
void MicKernelTest::configuredLevel()
{
    QFETCH(Files, files);
    QFETCH(int, level);
    for (auto it = files.constBegin(); it != files.constEnd(); ++it) {
        if (it.value().isNull())
            QVERIFY(QFile::remove(it.key()));
        else
            QVERIFY(MicTest::writeFile(it.key(), it.value()));
    }
    QCOMPARE(MicKernel::configuredLevel(), level);
}

void MicKernelTest::status_data()
{
    QTest::addColumn<int>("running");
    QTest::addColumn<QByteArray>("cmdline");
    QTest::addColumn<MicKernel::Status>("status");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("description");

    QTest::newRow("on now, on after reboot")
        << 63 << QByteArray("quiet tessel.max_ilev=63") << MicKernel::Enabled << true
        << QStringLiteral("Subsystem is <b>enabled</b>");
    QTest::newRow("no parameter reads as 63")
        << 127 << QByteArray("quiet") << MicKernel::Enabled << true
        << QStringLiteral("Subsystem is <b>enabled</b>");
    QTest::newRow("on now, 0 for the next boot")
        << 63 << QByteArray("quiet tessel.max_ilev=0") << MicKernel::WillBeDisabled << false
        << QStringLiteral("Subsystem is enabled, but it will be <b>disabled after reboot</b>");
    QTest::newRow("off now, on after reboot")
        << 0 << QByteArray("quiet") << MicKernel::WillBeEnabled << true
        << QStringLiteral("Subsystem is disabled, but it will be <b>enabled after reboot</b>");
    QTest::newRow("off now, off after reboot")
        << 0 << QByteArray("tessel.max_ilev=0") << MicKernel::Disabled << false
        << QStringLiteral("Subsystem is <b>disabled</b>");
    QTest::newRow("256 is 0 in 8 bits")
        << 63 << QByteArray("tessel.max_ilev=256") << MicKernel::WillBeDisabled << false
        << QStringLiteral("Subsystem is enabled, but it will be <b>disabled after reboot</b>");
}

void MicKernelTest::status()
{
    QFETCH(int, running);
    QFETCH(QByteArray, cmdline);
    QFETCH(MicKernel::Status, status);
    QFETCH(bool, enabled);
    QFETCH(QString, description);
    QVERIFY(MicTest::setRunningLevel(running));
    QVERIFY(MicTest::writeFile(MicTest::GrubFile,
                               debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"" + cmdline + '"')));
    MicKernel kernel;
    QCOMPARE(kernel.status(), status);
    QCOMPARE(kernel.isEnabled(), enabled);
    QCOMPARE(kernel.statusDescription(), description);
    QCOMPARE(kernel.currentLevel().level, static_cast<quint8>(running));
}

void MicKernelTest::levelTexts()
{
    QVERIFY(MicTest::writeFile(MicTest::IlevsFile, "0 Low\n31\n63 Top\n127\n200 Admins\n"));
    MicKernel kernel;
    QList<MicLevel> expected;
    expected << MicLevel{0, QStringLiteral("0 - Low")}
             << MicLevel{31, QStringLiteral("31 - Custom")}
             << MicLevel{63, QStringLiteral("63 - High")}
             << MicLevel{127, QStringLiteral("127 - Quill")}
             << MicLevel{200, QStringLiteral("200 - Admins")};
    QCOMPARE(kernel.levels(), expected);
    QCOMPARE(kernel.levelFor(5), (MicLevel{5, QStringLiteral("5")}));
    QCOMPARE(kernel.defaultLevel(), (MicLevel{63, QStringLiteral("63 - High")}));
    QCOMPARE(kernel.currentLevel(), (MicLevel{63, QStringLiteral("63 - High")}));
    QCOMPARE(kernel.futureLevel(), (MicLevel{63, QStringLiteral("63 - High")}));
}

void MicKernelTest::missingLevelListGivesNumbers()
{
    QVERIFY(QFile::remove(MicTest::IlevsFile));
    QVERIFY(QFile::remove(MicTest::MaxIlevFile));
    MicKernel kernel;
    QVERIFY(kernel.levels().isEmpty());
    // An unreadable running level counts as 0: integrity control is off now.
    QCOMPARE(kernel.currentLevel(), (MicLevel{0, QStringLiteral("0")}));
    QCOMPARE(kernel.status(), MicKernel::WillBeEnabled);
    QCOMPARE(kernel.defaultLevel(), (MicLevel{63, QStringLiteral("63 - High")}));
    // Without a list every update reports the future level again.
    QSignalSpy future(&kernel, &MicKernel::futureLevelChanged);
    kernel.update();
    QCOMPARE(future.count(), 1);
}

void MicKernelTest::updateEmitsOnlyOnChange()
{
    MicKernel kernel;
    QSignalSpy status(&kernel, &MicKernel::statusChanged);
    QSignalSpy description(&kernel, &MicKernel::statusDescriptionChanged);
    QSignalSpy enabled(&kernel, &MicKernel::enabledChanged);
    QSignalSpy future(&kernel, &MicKernel::futureLevelChanged);
    QSignalSpy current(&kernel, &MicKernel::currentLevelChanged);
    kernel.update();
    kernel.update();
    QCOMPARE(status.count() + description.count() + enabled.count() + future.count(), 0);

    QVERIFY(MicTest::writeFile(MicTest::GrubFile,
                               debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=0\"")));
    kernel.update();
    kernel.update();
    QCOMPARE(future.count(), 1);
    QCOMPARE(future.at(0).at(0).value<MicLevel>(), (MicLevel{0, QStringLiteral("0 - Low")}));
    QCOMPARE(status.count(), 1);
    QCOMPARE(status.at(0).at(0).value<MicKernel::Status>(), MicKernel::WillBeDisabled);
    QCOMPARE(description.count(), 1);
    QCOMPARE(enabled.count(), 1);
    QCOMPARE(enabled.at(0).at(0).toBool(), false);

    // Back to a level: the refresh raises the flag at once, the status change reports it again.
    QVERIFY(MicTest::writeFile(
        MicTest::GrubFile, debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=15\"")));
    kernel.update();
    QCOMPARE(future.count(), 2);
    QCOMPARE(future.at(1).at(0).value<MicLevel>(),
             (MicLevel{15, QStringLiteral("15 - Operators")}));
    QCOMPARE(enabled.count(), 3);
    QCOMPARE(enabled.at(1).at(0).toBool(), true);
    QCOMPARE(enabled.at(2).at(0).toBool(), true);
    QCOMPARE(kernel.status(), MicKernel::Enabled);
    QCOMPARE(current.count(), 0);
}

void MicKernelTest::enableWritesTheLevel()
{
    MicKernel kernel;
    QSignalSpy errors(&kernel, &MicKernel::error);
    QSignalSpy future(&kernel, &MicKernel::futureLevelChanged);
    kernel.enable(MicLevel{127, QString()});
    QCOMPARE(MicTest::toolCalls(), (QStringList{QStringLiteral("lumo-mic-control enable -i 127"),
                                                QStringLiteral("update-grub ")}));
    QCOMPARE(errors.count(), 0);
    QCOMPARE(kernel.futureLevel(), (MicLevel{127, QStringLiteral("127 - Quill")}));
    QCOMPARE(future.count(), 1);
    QVERIFY(ZqlTest::readBytes(MicTest::GrubFile)
                .contains("GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=127\"\n"));
}

void MicKernelTest::enableWhilePlannedRunsNoTool()
{
    QVERIFY(MicTest::setRunningLevel(0));
    MicKernel kernel;
    QCOMPARE(kernel.status(), MicKernel::WillBeEnabled);
    QSignalSpy warnings(&kernel, &MicKernel::warning);
    kernel.enable(MicLevel{63, QString()});
    kernel.enable();
    QCOMPARE(warnings.count(), 2);
    QCOMPARE(warnings.at(0).at(0).toString(),
             QStringLiteral("MIC enabling already planned after reboot."));
    QVERIFY(MicTest::toolCalls().isEmpty());
}

void MicKernelTest::disableWhilePlannedRunsNoTool()
{
    QVERIFY(MicTest::writeFile(MicTest::GrubFile,
                               debianGrubWith("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=0\"")));
    MicKernel kernel;
    QCOMPARE(kernel.status(), MicKernel::WillBeDisabled);
    QSignalSpy warnings(&kernel, &MicKernel::warning);
    kernel.disable();
    QCOMPARE(warnings.count(), 1);
    QCOMPARE(warnings.at(0).at(0).toString(),
             QStringLiteral("MIC disabling already planned after reboot."));
    QVERIFY(MicTest::toolCalls().isEmpty());
}

void MicKernelTest::disableThenEnable()
{
    MicKernel kernel;
    QSignalSpy status(&kernel, &MicKernel::statusChanged);
    kernel.disable();
    QCOMPARE(kernel.status(), MicKernel::WillBeDisabled);
    QVERIFY(ZqlTest::readBytes(MicTest::GrubFile)
                .contains("GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=0\"\n"));
    kernel.enable();
    QCOMPARE(kernel.status(), MicKernel::Enabled);
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
    QCOMPARE(status.count(), 2);
    QCOMPARE(MicTest::toolCalls(), (QStringList{QStringLiteral("lumo-mic-control disable"),
                                                QStringLiteral("update-grub "),
                                                QStringLiteral("lumo-mic-control enable -i 63"),
                                                QStringLiteral("update-grub ")}));
}

void MicKernelTest::toolFailures_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<QByteArray>("stderrText");
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QStringList>("warnings");

    QTest::newRow("warning on standard error")
        << QByteArray() << QByteArray("careful\n") << QStringList()
        << QStringList{QStringLiteral("careful\n")};
    QTest::newRow("exit code 3 is no error")
        << QByteArray("disable exit 3") << QByteArray("bad\n") << QStringList()
        << QStringList{QStringLiteral("bad\n")};
    QTest::newRow("crash") << QByteArray("disable crash") << QByteArray("dying\n")
                           << QStringList{QStringLiteral(
                                  "lumo-mic-control disable returned -1:\n\ndying\n")}
                           << QStringList();
    QTest::newRow("hang past the limit")
        << QByteArray("any hang") << QByteArray()
        << QStringList{QStringLiteral("lumo-mic-control disable returned -1:\n\n")}
        << QStringList();
}

void MicKernelTest::toolFailures()
{
    QFETCH(QByteArray, fault);
    QFETCH(QByteArray, stderrText);
    QFETCH(QStringList, errors);
    QFETCH(QStringList, warnings);
    if (!fault.isEmpty())
        QVERIFY(MicTest::setFault(QStringLiteral("lumo-mic-control"), fault));
    if (!stderrText.isEmpty())
        QVERIFY(MicTest::setToolStderr(QStringLiteral("lumo-mic-control"), stderrText));
    MicKernel kernel;
    // Only a hanging tool meets the short limit; the others run without one, as by default.
    if (fault.endsWith("hang"))
        kernel.setToolTimeoutMs(300);
    QCOMPARE(MicKernel().toolTimeoutMs(), -1);
    QSignalSpy errorSpy(&kernel, &MicKernel::error);
    QSignalSpy warningSpy(&kernel, &MicKernel::warning);
    QElapsedTimer timer;
    timer.start();
    kernel.disable();
    QVERIFY(timer.elapsed() < 10000);
    QStringList gotErrors;
    for (const QList<QVariant> &arguments : qAsConst(errorSpy))
        gotErrors << arguments.at(0).toString();
    QStringList gotWarnings;
    for (const QList<QVariant> &arguments : qAsConst(warningSpy))
        gotWarnings << arguments.at(0).toString();
    QCOMPARE(gotErrors, errors);
    QCOMPARE(gotWarnings, warnings);
}

void MicKernelTest::missingToolIsAnError()
{
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", "/nonexistent");
    MicKernel kernel;
    QSignalSpy errors(&kernel, &MicKernel::error);
    kernel.disable();
    qputenv("PATH", path);
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors.at(0).at(0).toString(),
             QStringLiteral("lumo-mic-control disable returned -1:\n\n"));
    QCOMPARE(kernel.status(), MicKernel::Enabled);
}

void MicKernelTest::instanceIsOne()
{
    QCOMPARE(MicKernel::instance(), MicKernel::instance());
    QCOMPARE(MicKernel::instance()->status(), MicKernel::Enabled);
    QCOMPARE(QMetaType::type("MicLevel"), qMetaTypeId<MicLevel>());
    // Signals and slots in their order.
    const QMetaObject &meta = MicKernel::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(methods,
             (QStringList{QStringLiteral("error(QString)"), QStringLiteral("warning(QString)"),
                          QStringLiteral("statusChanged(Mic::MicKernel::Status)"),
                          QStringLiteral("statusDescriptionChanged(QString)"),
                          QStringLiteral("enabledChanged(bool)"),
                          QStringLiteral("currentLevelChanged(MicLevel)"),
                          QStringLiteral("futureLevelChanged(MicLevel)"),
                          QStringLiteral("update()"), QStringLiteral("enable(MicLevel)"),
                          QStringLiteral("enable()"), QStringLiteral("disable()")}));
}

void MicKernelTest::grubWriter_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<quint8>("level");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("Debian's line gets the parameter")
        << DebianCmdline << quint8(127)
        << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=\"quiet tessel.max_ilev=127\"");
    QTest::newRow("old occurrences go")
        << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=\"tessel.max_ilev=5 quiet tessel.max_ilev=7\"")
        << quint8(63) << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=\" quiet tessel.max_ilev=63\"");
    QTest::newRow("empty value") << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=\"\"") << quint8(0)
                                 << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=\" tessel.max_ilev=0\"");
    QTest::newRow("value without quotes")
        << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=quiet") << quint8(1)
        << QByteArray("GRUB_CMDLINE_LINUX_DEFAULT=quiet tessel.max_ilev=1");
}

void MicKernelTest::grubWriter()
{
    QFETCH(QByteArray, before);
    QFETCH(quint8, level);
    QFETCH(QByteArray, after);
    const QByteArray original = debianGrubWith(before);
    QVERIFY(MicTest::writeFile(MicTest::GrubFile, original));
    QCOMPARE(MicKernel::setGrubMaxLevel(level), QString());
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), debianGrubWith(after));
    QCOMPARE(ZqlTest::readBytes(GrubBackup), original);
    QCOMPARE(MicTest::toolCalls(), QStringList{QStringLiteral("update-grub ")});
}

void MicKernelTest::grubWriterMissingFile()
{
    QVERIFY(QFile::remove(MicTest::GrubFile));
    QCOMPARE(MicKernel::setGrubMaxLevel(63),
             QStringLiteral("Can't copy /etc/default/grub to /etc/default/grub_backup"));
    QVERIFY(!QFile::exists(MicTest::GrubFile));
    QVERIFY(MicTest::toolCalls().isEmpty());
}

void MicKernelTest::grubWriterWithoutCmdlineRestores()
{
    const QByteArray original = debianGrubWith("#GRUB_CMDLINE_LINUX_DEFAULT=\"quiet\"");
    QVERIFY(MicTest::writeFile(MicTest::GrubFile, original));
    QCOMPARE(MicKernel::setGrubMaxLevel(63),
             QStringLiteral("Can't find 'GRUB_CMDLINE_LINUX_DEFAULT' in grub: /etc/default/grub"));
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), original);
    QVERIFY(!QFile::exists(GrubBackup));
    QCOMPARE(MicTest::toolCalls(), QStringList{QStringLiteral("update-grub ")});
}

void MicKernelTest::grubWriterUpdateGrubFailsRestores()
{
    QVERIFY(MicTest::setFault(QStringLiteral("update-grub"), "run exit 4"));
    QVERIFY(MicTest::setToolStderr(QStringLiteral("update-grub"), "no grub.cfg\n"));
    const QByteArray original = m_fixture.original(MicTest::GrubFile);
    const QString failure = QStringLiteral("bash -c update-grub returned 4:\n\nno grub.cfg\n");
    QCOMPARE(MicKernel::setGrubMaxLevel(127), failure + QLatin1Char('\n') + failure);
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), original);
    QCOMPARE(MicTest::toolCalls(),
             (QStringList{QStringLiteral("update-grub "), QStringLiteral("update-grub ")}));
}

// The file is truncated and then cannot be written whole: the backup comes back and
// update-grub runs for the restored file.
void MicKernelTest::grubWriterFullDiskHalfwayRestores()
{
    // One page for the file (just under 4 KiB, the edit pushes it over), one for its backup,
    // one taken: the edited file finds no second page.
    QByteArray original = debianGrubWith(DebianCmdline);
    original += '#' + QByteArray(4090 - original.size() - 2, 'x') + '\n';
    QCOMPARE(original.size(), 4090);
    QString error;
    QVERIFY2(
        m_fixture.mountTmpfs(QStringLiteral("/etc/default"), QStringLiteral("size=12k"), &error),
        qPrintable(error));
    QVERIFY(MicTest::writeFile(QStringLiteral("/etc/default/filler"), QByteArray(4096, 'f')));
    QVERIFY(MicTest::writeFile(MicTest::GrubFile, original));
    QCOMPARE(MicKernel::setGrubMaxLevel(127),
             QStringLiteral("Can't open grub file: /etc/default/grub"));
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), original);
    QVERIFY(!QFile::exists(GrubBackup));
    QCOMPARE(MicTest::toolCalls(), QStringList{QStringLiteral("update-grub ")});
}

// No update-grub on the search path: bash says so, the backup comes back, and the second run
// fails the same way.
void MicKernelTest::grubWriterWithoutUpdateGrub()
{
    QVERIFY(QFile::remove(QStringLiteral("/usr/sbin/update-grub")));
    const QString failure = MicKernel::setGrubMaxLevel(127);
    const QStringList parts = failure.split(QStringLiteral("\n\n"));
    // Two messages, each the command line and bash's complaint.
    QCOMPARE(parts.size(), 4);
    QCOMPARE(parts.at(0), QStringLiteral("bash -c update-grub returned 127:"));
    QCOMPARE(parts.at(2), parts.at(0));
    QVERIFY2(parts.at(1).contains(QStringLiteral("update-grub: command not found")),
             qPrintable(failure));
    QCOMPARE(ZqlTest::readBytes(MicTest::GrubFile), m_fixture.original(MicTest::GrubFile));
    QVERIFY(!QFile::exists(GrubBackup));
}

void MicKernelTest::bootConfWriter_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QString>("failure");

    const QByteArray shipped = sample(QStringLiteral("boot.conf"));
    QTest::newRow("default image among several")
        << shipped
        << QByteArray(shipped).replace("quiet tessel.max_ilev=63\"", "quiet tessel.max_ilev=127\"")
        << QString();
    QTest::newRow("other default image, cmdline without quotes")
        << QByteArray("default=b\nlabel=a\ncmdline=\"x\"\nlabel=b\n  cmdline=root=/dev/sda1 "
                      "tessel.max_ilev=2\n  cmdline=second\n")
        << QByteArray("default=b\nlabel=a\ncmdline=\"x\"\nlabel=b\n  cmdline=root=/dev/sda1 "
                      "tessel.max_ilev=127\n  cmdline=second\n")
        << QString();
    QTest::newRow("no default image")
        << QByteArray("label=a\ncmdline=\"x\"\n") << QByteArray("label=a\ncmdline=\"x\"\n")
        << QStringLiteral("Can't find default image (default=<image label>) in boot file: "
                          "/boot/boot.conf");
    QTest::newRow("default image without cmdline")
        << QByteArray("default=b\nlabel=a\ncmdline=\"x\"\nlabel=b\nkernel=/k\n")
        << QByteArray("default=b\nlabel=a\ncmdline=\"x\"\nlabel=b\nkernel=/k\n")
        << QStringLiteral("Can't find 'cmdline=' in default image in boot file: /boot/boot.conf");
}

void MicKernelTest::bootConfWriter()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    QFETCH(QString, failure);
    QVERIFY(MicTest::writeFile(BootConf, before));
    QCOMPARE(MicKernel::setBootConfMaxLevel(127), failure);
    QCOMPARE(ZqlTest::readBytes(BootConf), after);
    QCOMPARE(QFile::exists(BootConfBackup), failure.isEmpty());
    QVERIFY(MicTest::toolCalls().isEmpty());
}

ZQL_SANDBOXED_TEST_MAIN(MicKernelTest)
#include "mickerneltest.moc"
