#include "micfixture.h"
#include "systemfixture.h"
#include "testmain.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>

using Mic::MicFs;
using Mic::MicItemHash;

namespace {
const QString SetFsIlev = QStringLiteral("set-fs-ilev");
const QString StatusRun = QStringLiteral("set-fs-ilev status");
// A short limit for the tools in tests where one hangs.
constexpr int ShortLimitMs = 300;

const QByteArray SampleConf = "# Integrity levels\n"
                              "max\t/etc\n"
                              "high /usr/\n"
                              "\n"
                              "exc /etc/ld.so.*\n"
                              "# exc /commented\n"
                              "0x3f\t/opt\n"
                              "exc /root/.config/*\n";

int count(const QStringList &lines, const QString &line)
{
    return static_cast<int>(lines.count(line));
}
} // namespace

class MicFsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void statusFromExitCode_data();
    void statusFromExitCode();
    void secondUpdateWhileRunningStartsNoOther();
    void hangingQueryIsStoppedWithTheModel();
    void modelGoesWhileTheQueryStarts();
    void crashingQuery();
    void missingTool();
    void readsTheConfiguration();
    void defaultConfiguration();
    void defaultConfigurationHangs();
    void exceptionUpdate_data();
    void exceptionUpdate();
    void itemUpdate_data();
    void itemUpdate();
    void droppedItemResetsLabels();
    void labelResetFails();
    void configurationMissing();
    void configurationReadOnly();
    void configurationOnFullDisk();
    void enableAndDisable();
    void enableFails_data();
    void enableFails();
    void enableWarns();
    void pathLevel();
    void missingSwitchAndLabelTools();
    void metaObjectOrder();

private:
    MicTest::MicFixture m_fixture;
};

void MicFsTest::initTestCase()
{
    QString error;
    QVERIFY2(m_fixture.snapshot(&error), qPrintable(error));
}

void MicFsTest::init()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicFsTest::cleanup()
{
    QString error;
    QVERIFY2(m_fixture.reset(&error), qPrintable(error));
}

void MicFsTest::statusFromExitCode_data()
{
    QTest::addColumn<QByteArray>("state");
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<MicFs::Status>("status");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("description");

    QTest::newRow("0: protected") << QByteArray("enabled") << QByteArray() << MicFs::Enabled << true
                                  << QStringLiteral("Filesystem is <b>protected</b>");
    QTest::newRow("2: partly protected")
        << QByteArray("partly") << QByteArray() << MicFs::EnabledPartly << true
        << QStringLiteral("Filesystem is <b>partly protected</b><br><br>Some files have lower "
                          "integrity than they should be.<br>Run \"set-fs-ilev status -v\" to "
                          "see the list of files.");
    QTest::newRow("1: not protected")
        << QByteArray("disabled") << QByteArray() << MicFs::Disabled << false
        << QStringLiteral("Filesystem is <b>not protected</b>");
    QTest::newRow("any other code: not protected")
        << QByteArray("enabled") << QByteArray("status exit 5") << MicFs::Disabled << false
        << QStringLiteral("Filesystem is <b>not protected</b>");
}

void MicFsTest::statusFromExitCode()
{
    QFETCH(QByteArray, state);
    QFETCH(QByteArray, fault);
    QFETCH(MicFs::Status, status);
    QFETCH(bool, enabled);
    QFETCH(QString, description);
    QVERIFY(MicTest::setFsState(state));
    if (!fault.isEmpty())
        QVERIFY(MicTest::setFault(SetFsIlev, fault));
    MicFs fs;
    QCOMPARE(fs.status(), MicFs::Loading);
    QCOMPARE(fs.statusDescription(), QStringLiteral("Loading filesystem status..."));
    QSignalSpy statusSpy(&fs, &MicFs::statusChanged);
    QSignalSpy enabledSpy(&fs, &MicFs::enabledChanged);
    QSignalSpy errors(&fs, &MicFs::error);
    QTRY_COMPARE(fs.status(), status);
    QCOMPARE(fs.isEnabled(), enabled);
    QCOMPARE(fs.statusDescription(), description);
    QCOMPARE(statusSpy.count(), 1);
    QCOMPARE(enabledSpy.count(), 1);
    QCOMPARE(enabledSpy.at(0).at(0).toBool(), enabled);
    QCOMPARE(errors.count(), 0);
    QCOMPARE(count(MicTest::toolCalls(), StatusRun), 1);
}

void MicFsTest::secondUpdateWhileRunningStartsNoOther()
{
    QVERIFY(MicTest::setFault(SetFsIlev, "status hang"));
    MicFs fs;
    QTRY_COMPARE(count(MicTest::toolCalls(), StatusRun), 1);
    QVERIFY(fs.isQueryRunning());
    QSignalSpy items(&fs, &MicFs::currentItemsChanged);
    fs.update();
    fs.update();
    QCOMPARE(items.count(), 2);
    QCOMPARE(fs.status(), MicFs::Loading);
    QCOMPARE(count(MicTest::toolCalls(), StatusRun), 1);
}

void MicFsTest::hangingQueryIsStoppedWithTheModel()
{
    QVERIFY(MicTest::setFault(SetFsIlev, "status hang"));
    QElapsedTimer timer;
    {
        MicFs fs;
        QTRY_COMPARE(count(MicTest::toolCalls(), StatusRun), 1);
        QVERIFY(fs.isQueryRunning());
        timer.start();
    }
    // Asked to terminate, the hanging tool ends well within its 3 s grace.
    QVERIFY(timer.elapsed() < 3000);
}

// Destroyed before its query has reported: the tool is stopped and nothing reaches the model.
void MicFsTest::modelGoesWhileTheQueryStarts()
{
    for (int i = 0; i < 3; ++i) {
        MicFs fs;
        QVERIFY(fs.isQueryRunning());
    }
    MicFs fs;
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
}

void MicFsTest::crashingQuery()
{
    QVERIFY(MicTest::setFault(SetFsIlev, "status crash"));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    QTRY_VERIFY(!fs.isQueryRunning() && errors.count() >= 1);
    QTRY_COMPARE(errors.count(), 2);
    for (const QList<QVariant> &arguments : qAsConst(errors))
        QCOMPARE(arguments.at(0).toString(),
                 QStringLiteral("The process crashed some time after starting successfully."));
    QCOMPARE(fs.status(), MicFs::Loading);
}

void MicFsTest::missingTool()
{
    QVERIFY(QFile::remove(QStringLiteral("/usr/sbin/set-fs-ilev")));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(errors.at(0).at(0).toString(),
             QStringLiteral("The process failed to start. Either the invoked program is missing, "
                            "or you may have insufficient permissions to invoke the program."));
    QCOMPARE(fs.status(), MicFs::Loading);
    QCOMPARE(fs.defaultItems().value(QStringLiteral("/srv")), QStringLiteral("max"));
    QCOMPARE(fs.defaultExceptions().size(), 6);
    // A second update tries again.
    fs.update();
    QTRY_COMPARE(errors.count(), 2);
}

void MicFsTest::readsTheConfiguration()
{
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, SampleConf));
    MicFs fs;
    const MicItemHash expected{{QStringLiteral("/etc"), QStringLiteral("max")},
                               {QStringLiteral("/usr"), QStringLiteral("high")},
                               {QStringLiteral("/opt"), QStringLiteral("0x3f")}};
    QCOMPARE(fs.currentItems(), expected);
    QCOMPARE(fs.exceptionList(),
             (QStringList{QStringLiteral("/etc/ld.so.*"), QStringLiteral("/root/.config/*")}));

    QSignalSpy items(&fs, &MicFs::currentItemsChanged);
    QSignalSpy exceptions(&fs, &MicFs::exceptionListChanged);
    QVERIFY(QFile::remove(MicTest::FsIlevConf));
    fs.update();
    QCOMPARE(items.count(), 1);
    QCOMPARE(items.at(0).at(0).value<MicItemHash>(), MicItemHash());
    QCOMPARE(exceptions.count(), 1);
    QVERIFY(fs.exceptionList().isEmpty());
}

void MicFsTest::defaultConfiguration()
{
    MicFs fs;
    QCOMPARE(count(MicTest::toolCalls(), QStringLiteral("set-fs-ilev defconfig")), 1);
    const MicItemHash defaults = fs.defaultItems();
    QCOMPARE(defaults.size(), 11);
    for (auto it = defaults.constBegin(); it != defaults.constEnd(); ++it)
        QCOMPARE(it.value(), QStringLiteral("max"));
    QCOMPARE(fs.defaultExceptions(),
             (QStringList{QStringLiteral("/etc/xdg/autostart/vboxclient.desktop"),
                          QStringLiteral("/etc/X11/Xsession.d/98vboxadd-xclient"),
                          QStringLiteral("/etc/ld.so.*"), QStringLiteral("/etc/resolv.conf"),
                          QStringLiteral("/root/.config/*"),
                          QStringLiteral("/root/.gnupg/gpg-agent.conf")}));
}

void MicFsTest::defaultConfigurationHangs()
{
    QVERIFY(MicTest::setFault(SetFsIlev, "defconfig hang"));
    QElapsedTimer timer;
    timer.start();
    MicFs fs(nullptr, ShortLimitMs);
    QVERIFY(timer.elapsed() < 5000);
    QCOMPARE(fs.defaultItems().size(), 11);
    QCOMPARE(fs.defaultExceptions().size(), 6);
    QCOMPARE(MicFs::DefaultDefconfigTimeoutMs, 30000);
}

void MicFsTest::exceptionUpdate_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QStringList>("exceptions");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("empty list removes every exc line, keeps comments")
        << SampleConf << QStringList()
        << QByteArray(
               "# Integrity levels\nmax\t/etc\nhigh /usr/\n\n# exc /commented\n0x3f\t/opt\n");
    QTest::newRow("new list appended in order")
        << SampleConf << QStringList{QStringLiteral("/b"), QStringLiteral("/a/*")}
        << QByteArray("# Integrity levels\nmax\t/etc\nhigh /usr/\n\n# exc /commented\n0x3f\t/opt\n"
                      "exc /b\nexc /a/*\n");
    QTest::newRow("file without final line feed")
        << QByteArray("exc /x\nmax /etc") << QStringList{QStringLiteral("/y")}
        << QByteArray("max /etc\nexc /y\n");
    QTest::newRow("empty file") << QByteArray() << QStringList{QStringLiteral("/y")}
                                << QByteArray("exc /y\n");
}

void MicFsTest::exceptionUpdate()
{
    QFETCH(QByteArray, before);
    QFETCH(QStringList, exceptions);
    QFETCH(QByteArray, after);
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, before));
    MicFs fs;
    QSignalSpy changed(&fs, &MicFs::exceptionListChanged);
    QSignalSpy errors(&fs, &MicFs::error);
    fs.updateConfig(exceptions);
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), after);
    QCOMPARE(errors.count(), 0);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).toStringList(), exceptions);
    QCOMPARE(fs.exceptionList(), exceptions);
    // Written again, the same list gives the same bytes.
    fs.updateConfig(exceptions);
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), after);
}

void MicFsTest::itemUpdate_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<MicItemHash>("update");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<MicItemHash>("items");

    const MicItemHash sampleItems{{QStringLiteral("/etc"), QStringLiteral("max")},
                                  {QStringLiteral("/usr"), QStringLiteral("high")},
                                  {QStringLiteral("/opt"), QStringLiteral("0x3f")}};
    MicItemHash usrLow = sampleItems;
    usrLow.insert(QStringLiteral("/usr"), QStringLiteral("low"));
    QTest::newRow("/usr/ in the file is matched by /usr")
        << SampleConf << MicItemHash{{QStringLiteral("/usr"), QStringLiteral("low")}}
        << QByteArray(SampleConf).replace("high /usr/\n", "low\t/usr\n") << usrLow;
    MicItemHash withSrv = sampleItems;
    withSrv.insert(QStringLiteral("/srv"), QStringLiteral("0b11"));
    QTest::newRow("a new path is appended, unmentioned lines stay")
        << SampleConf << MicItemHash{{QStringLiteral("/srv"), QStringLiteral("0b11")}}
        << SampleConf + "0b11\t/srv\n"
        << withSrv;
    MicItemHash withoutOpt = sampleItems;
    withoutOpt.remove(QStringLiteral("/opt"));
    QTest::newRow("an em dash takes the line away")
        << SampleConf << MicItemHash{{QStringLiteral("/opt"), QStringLiteral("\u2014")}}
        << QByteArray(SampleConf).replace("0x3f\t/opt\n", "") << withoutOpt;
    QTest::newRow("an em dash for a path the file does not name adds nothing")
        << SampleConf << MicItemHash{{QStringLiteral("/srv"), QStringLiteral("\u2014")}}
        << SampleConf << sampleItems;
    QTest::newRow("the same word rewrites the line in the model's layout")
        << SampleConf << MicItemHash{{QStringLiteral("/usr"), QStringLiteral("high")}}
        << QByteArray(SampleConf).replace("high /usr/\n", "high\t/usr\n") << sampleItems;
    QTest::newRow("empty update changes nothing")
        << SampleConf << MicItemHash() << SampleConf << sampleItems;
}

void MicFsTest::itemUpdate()
{
    QFETCH(QByteArray, before);
    QFETCH(MicItemHash, update);
    QFETCH(QByteArray, after);
    QFETCH(MicItemHash, items);
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, before));
    MicFs fs;
    QSignalSpy changed(&fs, &MicFs::currentItemsChanged);
    QSignalSpy errors(&fs, &MicFs::error);
    fs.updateConfig(update);
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), after);
    QCOMPARE(errors.count(), 0);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed.at(0).at(0).value<MicItemHash>(), items);
    QCOMPARE(fs.currentItems(), items);
}

void MicFsTest::droppedItemResetsLabels()
{
    QVERIFY(QDir().mkpath(QStringLiteral("/srv/labelled/inner")));
    QVERIFY(MicTest::writeFile(QStringLiteral("/srv/labelled/inner/file"), "x"));
    for (const QString &path :
         {QStringLiteral("/srv/labelled"), QStringLiteral("/srv/labelled/inner"),
          QStringLiteral("/srv/labelled/inner/file")})
        QVERIFY(MicTest::setPathLevel(path, 63));
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/srv/labelled/inner/file")), 63);
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, "max\t/srv/labelled/\n"));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    fs.updateConfig(MicItemHash{{QStringLiteral("/srv/labelled"), QStringLiteral("\u2014")}});
    QCOMPARE(errors.count(), 0);
    QVERIFY(fs.currentItems().isEmpty());
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), QByteArray());
    QCOMPARE(count(MicTest::toolCalls(),
                   QStringLiteral("kdxl-file --recursive --reverse :0 /srv/labelled")),
             1);
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/srv/labelled")), 0);
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/srv/labelled/inner/file")), 0);
    QVERIFY(QDir(QStringLiteral("/srv/labelled")).removeRecursively());
}

void MicFsTest::labelResetFails()
{
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, "max\t/nonexistent\n"));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    fs.updateConfig(MicItemHash{{QStringLiteral("/nonexistent"), QStringLiteral("\u2014")}});
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors.at(0).at(0).toString(),
             QStringLiteral("/usr/sbin/kdxl-file --recursive --reverse :0 /nonexistent:\n"
                            "kdxl-file: /nonexistent: No such file or directory\n"));
    // The file no longer names the path all the same.
    QVERIFY(fs.currentItems().isEmpty());

    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, "max\t/srv\n"));
    QVERIFY(MicTest::setFault(QStringLiteral("kdxl-file"), "label hang"));
    fs.setToolTimeoutMs(ShortLimitMs);
    fs.update();
    fs.updateConfig(MicItemHash{{QStringLiteral("/srv"), QStringLiteral("\u2014")}});
    QCOMPARE(errors.count(), 2);
    QCOMPARE(errors.at(1).at(0).toString(),
             QStringLiteral("/usr/sbin/kdxl-file --recursive --reverse :0 /srv:\n"));
}

void MicFsTest::configurationMissing()
{
    QFile::remove(MicTest::FsIlevConf);
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    fs.updateConfig(QStringList{QStringLiteral("/x")});
    fs.updateConfig(MicItemHash{{QStringLiteral("/x"), QStringLiteral("max")}});
    QCOMPARE(errors.count(), 2);
    QCOMPARE(errors.at(0).at(0).toString(),
             QStringLiteral("Can't read file /etc/tessel/fs-ilev.conf\nNo such file or directory"));
    QCOMPARE(errors.at(1).at(0).toString(), errors.at(0).at(0).toString());
    QVERIFY(!QFile::exists(MicTest::FsIlevConf));
}

void MicFsTest::configurationReadOnly()
{
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, SampleConf));
    QString error;
    QVERIFY2(m_fixture.bindReadOnly(QStringLiteral("/etc/tessel"), &error), qPrintable(error));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    QSignalSpy changed(&fs, &MicFs::exceptionListChanged);
    fs.updateConfig(QStringList{QStringLiteral("/x")});
    QCOMPARE(errors.count(), 1);
    const QString text = errors.at(0).at(0).toString();
    QVERIFY2(text.startsWith(
                 QStringLiteral("Can't create temporary file /etc/tessel/fs-ilev.conf.XXXXXX\n")),
             qPrintable(text));
    QVERIFY2(text.count(QLatin1Char('\n')) == 1 && !text.endsWith(QLatin1Char('\n')),
             qPrintable(text));
    QCOMPARE(changed.count(), 0);
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), SampleConf);
}

void MicFsTest::configurationOnFullDisk()
{
    QString error;
    QVERIFY2(m_fixture.mountTmpfs(QStringLiteral("/etc/tessel"), QStringLiteral("size=8k"), &error),
             qPrintable(error));
    // The file takes one page; the copy being saved does not fit beside the filler.
    QByteArray conf = SampleConf;
    conf += '#' + QByteArray(4000 - conf.size() - 2, 'c') + '\n';
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, conf));
    QVERIFY(MicTest::writeFile(QStringLiteral("/etc/tessel/filler"), QByteArray(4096, 'f')));
    MicFs fs;
    QSignalSpy errors(&fs, &MicFs::error);
    QSignalSpy changed(&fs, &MicFs::currentItemsChanged);
    fs.updateConfig(MicItemHash{{QStringLiteral("/srv"), QStringLiteral("max")}});
    QCOMPARE(errors.count(), 1);
    const QString text = errors.at(0).at(0).toString();
    QVERIFY2(text.startsWith(QStringLiteral("Can't write to file /etc/tessel/fs-ilev.conf\n")),
             qPrintable(text));
    QCOMPARE(changed.count(), 0);
    QCOMPARE(ZqlTest::readBytes(MicTest::FsIlevConf), conf);
    QVERIFY(!fs.currentItems().contains(QStringLiteral("/srv")));
}

void MicFsTest::enableAndDisable()
{
    MicFs fs;
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
    QSignalSpy status(&fs, &MicFs::statusChanged);
    QSignalSpy errors(&fs, &MicFs::error);
    QSignalSpy warnings(&fs, &MicFs::warning);
    fs.enable();
    QCOMPARE(status.count(), 2); // Enabled, then Loading for the measurement
    QCOMPARE(status.at(0).at(0).value<MicFs::Status>(), MicFs::Enabled);
    QCOMPARE(status.at(1).at(0).value<MicFs::Status>(), MicFs::Loading);
    QTRY_COMPARE(fs.status(), MicFs::Enabled);
    fs.disable();
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
    QCOMPARE(errors.count() + warnings.count(), 0);
    QVERIFY(MicTest::toolCalls().contains(QStringLiteral("set-fs-ilev ")));
    QVERIFY(MicTest::toolCalls().contains(QStringLiteral("unset-fs-ilev ")));
}

void MicFsTest::enableFails_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<QString>("message");
    QTest::newRow("exit code") << QByteArray("apply exit 1")
                               << QStringLiteral(
                                      "/usr/sbin/set-fs-ilev  returned 1:\n\nlabels left\n");
    QTest::newRow("crash") << QByteArray("apply crash")
                           << QStringLiteral(
                                  "/usr/sbin/set-fs-ilev  returned -1:\n\nlabels left\n");
    QTest::newRow("hang past the limit")
        << QByteArray("apply hang") << QStringLiteral("/usr/sbin/set-fs-ilev  returned -1:\n\n");
}

void MicFsTest::enableFails()
{
    QFETCH(QByteArray, fault);
    QFETCH(QString, message);
    QVERIFY(MicTest::setFault(SetFsIlev, fault));
    QVERIFY(MicTest::setToolStderr(SetFsIlev, "labels left\n"));
    MicFs fs;
    // Only the hanging tool meets the short limit; the others run without one, as by default.
    if (fault.endsWith("hang"))
        fs.setToolTimeoutMs(ShortLimitMs);
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
    QSignalSpy errors(&fs, &MicFs::error);
    QSignalSpy status(&fs, &MicFs::statusChanged);
    fs.enable();
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), message);
    QCOMPARE(status.count(), 0);
    QCOMPARE(fs.status(), MicFs::Disabled);
}

void MicFsTest::enableWarns()
{
    MicFs fs;
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
    QVERIFY(MicTest::setToolStderr(QStringLiteral("unset-fs-ilev"), "slow disk\n"));
    QVERIFY(MicTest::setToolStderr(SetFsIlev, "applied\n"));
    QSignalSpy warnings(&fs, &MicFs::warning);
    QSignalSpy errors(&fs, &MicFs::error);
    fs.enable();
    QTRY_COMPARE(fs.status(), MicFs::Enabled);
    fs.disable();
    QTRY_COMPARE(fs.status(), MicFs::Disabled);
    QCOMPARE(errors.count(), 0);
    QCOMPARE(warnings.count(), 2);
    QCOMPARE(warnings.at(0).at(0).toString(), QStringLiteral("applied\n"));
    QCOMPARE(warnings.at(1).at(0).toString(), QStringLiteral("slow disk\n"));
}

void MicFsTest::pathLevel()
{
    QVERIFY(MicTest::writeFile(QStringLiteral("/srv/levelled"), "x"));
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/srv/levelled")), 0);
    QVERIFY(MicTest::setPathLevel(QStringLiteral("/srv/levelled"), 127));
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/srv/levelled")), 127);
    QCOMPARE(MicFs::pathLevel(QStringLiteral("/nonexistent/path")), 0);
    QVERIFY(QFile::remove(QStringLiteral("/srv/levelled")));
}

void MicFsTest::missingSwitchAndLabelTools()
{
    QVERIFY(MicTest::setFsState("enabled"));
    QVERIFY(MicTest::writeFile(MicTest::FsIlevConf, "max\t/srv\n"));
    MicFs fs;
    QTRY_COMPARE(fs.status(), MicFs::Enabled);
    QVERIFY(QFile::remove(QStringLiteral("/usr/sbin/unset-fs-ilev")));
    QVERIFY(QFile::remove(QStringLiteral("/usr/sbin/kdxl-file")));
    QSignalSpy errors(&fs, &MicFs::error);
    fs.disable();
    fs.updateConfig(MicItemHash{{QStringLiteral("/srv"), QStringLiteral("\u2014")}});
    QCOMPARE(errors.count(), 2);
    QCOMPARE(errors.at(0).at(0).toString(),
             QStringLiteral("/usr/sbin/unset-fs-ilev  returned -1:\n\n"));
    QCOMPARE(errors.at(1).at(0).toString(),
             QStringLiteral("/usr/sbin/kdxl-file --recursive --reverse :0 /srv:\n"));
    QCOMPARE(fs.status(), MicFs::Enabled);
}

void MicFsTest::metaObjectOrder()
{
    QCOMPARE(MicFs::instance(), MicFs::instance());
    const QMetaObject &meta = MicFs::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(
        methods,
        (QStringList{QStringLiteral("error(QString)"), QStringLiteral("warning(QString)"),
                     QStringLiteral("statusChanged(Mic::MicFs::Status)"),
                     QStringLiteral("statusDescriptionChanged(QString)"),
                     QStringLiteral("enabledChanged(bool)"),
                     QStringLiteral("currentItemsChanged(Mic::MicItemHash)"),
                     QStringLiteral("exceptionListChanged(QStringList)"),
                     QStringLiteral("update()"), QStringLiteral("enable()"),
                     QStringLiteral("disable()"), QStringLiteral("updateConfig(Mic::MicItemHash)"),
                     QStringLiteral("updateConfig(QStringList)")}));
}

ZQL_SANDBOXED_TEST_MAIN(MicFsTest)
#include "micfstest.moc"
