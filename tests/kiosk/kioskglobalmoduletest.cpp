#include "desktopentryfixture.h"
#include "outputcapture.h"
#include "systemfixture.h"
#include "testmain.h"

#include "velaui/velauidesktopentry.h"

#include <zql-modules/modules.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

using ZqlTest::debianEntry;
using ZqlTest::ParsedEntry;
using ZqlTest::parseEntry;
using Settings = QHash<QString, QVariant>;

namespace {
const QString Autostart = QStringLiteral("/etc/xdg/autostart");
const QString LockerDir = QStringLiteral("/etc/vela-kiosk/.config/lockerrc");
const QString Locker = QStringLiteral("/etc/vela-kiosk/.config/lockerrc/lockerrc");
const QString LockerOn = QStringLiteral("/etc/vela-kiosk/.config/lockerrc/lockerrc.on");
const QString LockerOff = QStringLiteral("/etc/vela-kiosk/.config/lockerrc/lockerrc.off");
const QByteArray LockerOnText = "[Variables]\nScreenSaverDelay=300\n";
const QByteArray LockerOffText = "[Variables]\nScreenSaverDelay=0\n";
const QString UnwritableMessage =
    QStringLiteral("kiosk-global : Unable to write files to \"/etc/xdg/autostart\"\n");

QString autostartFile(const QString &name)
{
    return Autostart + QLatin1Char('/') + name;
}

QByteArray entryText(const QByteArray &lines)
{
    return "[Desktop Entry]\n" + lines;
}

bool writeEntry(const QString &name, const QByteArray &lines)
{
    return ZqlTest::writeBytes(autostartFile(name), entryText(lines));
}

// The names of the files in the autostart directory, sorted.
QStringList autostartNames()
{
    return QDir(Autostart).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

QStringList fileNames(const QList<QVariant> &entries)
{
    QStringList names;
    for (const QVariant &entry : entries)
        names << entry.toMap().value(QStringLiteral("desktopFileName")).toString();
    names.sort();
    return names;
}

QVariantMap entryNamed(const QList<QVariant> &entries, const QString &name)
{
    for (const QVariant &entry : entries) {
        if (entry.toMap().value(QStringLiteral("desktopFileName")).toString() == name)
            return entry.toMap();
    }
    return {};
}

// An entry map with every key, as the module reads one.
QVariantMap fullMap(const QString &fileName)
{
    return {{QStringLiteral("desktopFileName"), fileName},
            {QStringLiteral("Name"), QStringLiteral("Browser")},
            {QStringLiteral("LocalName"), QStringLiteral("Browser")},
            {QStringLiteral("GenericName"), QStringLiteral("Web browser")},
            {QStringLiteral("LocalGenericName"), QStringLiteral("Web browser")},
            {QStringLiteral("Icon"), QStringLiteral("web-browser")},
            {QStringLiteral("LocalIcon"), QStringLiteral("web-browser")},
            {QStringLiteral("Comment"), QStringLiteral("Browse the web")},
            {QStringLiteral("LocalComment"), QStringLiteral("Browse the web")},
            {QStringLiteral("OnlyShowIn"), QStringList{QStringLiteral("vela-kiosk")}},
            {QStringLiteral("Path"), QStringLiteral("/var/tmp")},
            {QStringLiteral("TryExec"), QStringLiteral("/usr/bin/firefox")},
            {QStringLiteral("X-GNOME-Autostart-Phase"), QStringLiteral("Desktop")},
            {QStringLiteral("X-VELA-Delay"), 10},
            {QStringLiteral("Exec"), QStringLiteral("/usr/bin/firefox --kiosk %u")},
            {QStringLiteral("sandbox"), true},
            {QStringLiteral("sandboxArgs"),
             QStringList{QStringLiteral("--private"), QStringLiteral("--net=none")}},
            {QStringLiteral("Type"), QStringLiteral("Application")}};
}

const QByteArray FullMapText = "[Desktop Entry]\n"
                               "Name=Browser\n"
                               "GenericName=Web browser\n"
                               "Icon=web-browser\n"
                               "Comment=Browse the web\n"
                               "Path=/var/tmp\n"
                               "TryExec=/usr/bin/firefox\n"
                               "OnlyShowIn=vela-kiosk;\n"
                               "X-GNOME-Autostart-Phase=Desktop\n"
                               "X-VELA-Delay=10\n"
                               "Exec=firejail --private --net=none /usr/bin/firefox --kiosk %u\n"
                               "Type=Application\n";

QVariantMap kioskMap(const QString &fileName, const QString &exec)
{
    return {{QStringLiteral("desktopFileName"), fileName},
            {QStringLiteral("Name"), fileName},
            {QStringLiteral("OnlyShowIn"), QStringList{QStringLiteral("vela-kiosk")}},
            {QStringLiteral("Exec"), exec}};
}

bool validates(const QString &path, QByteArray *output)
{
    const ZqlTest::Validation validation = ZqlTest::validateEntry(path);
    *output = validation.output;
    return validation.clean();
}
} // namespace

class KioskGlobalModuleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void identity();
    void sandboxPrefix_data();
    void sandboxPrefix();
    void autostartPhase();
    void delay_data();
    void delay();
    void writtenDelay_data();
    void writtenDelay();
    void listing();
    void readsEveryKey();
    void writesEveryKey();
    void missingKeysWriteEmptyValues();
    void mapAsHash();
    void fileNameStaysInTheDirectory_data();
    void fileNameStaysInTheDirectory();
    void linkEntries();
    void fileManagerUrl();
    void replaceKioskEntries();
    void emptyListRemovesKioskEntries();
    void failedSaveDoesNotStopTheOthers();
    void deletionErrorsAreIgnored();
    void damagedEntries();
    void debianEntriesAreLeftAlone();
    void debianEntryNamingTheKiosk_data();
    void debianEntryNamingTheKiosk();
    void screenLockState_data();
    void screenLockState();
    void setScreenLockState();
    void screenLockFailures();
    void getSettings();
    void setSettingsEmpty();
    void setSettings();
    void setSettingsUnwritableDirectory();
    void settingsRoundTrip();

private:
    QByteArray m_locale;
};

void KioskGlobalModuleTest::init()
{
    m_locale = qgetenv("LC_ALL");
    // Every test starts from an empty autostart directory and the locker's two variants.
    QDir(Autostart).removeRecursively();
    QVERIFY(QDir().mkpath(Autostart));
    QDir(LockerDir).removeRecursively();
    QVERIFY(QDir().mkpath(LockerDir));
    QVERIFY(ZqlTest::writeBytes(LockerOn, LockerOnText));
    QVERIFY(ZqlTest::writeBytes(LockerOff, LockerOffText));
}

void KioskGlobalModuleTest::cleanup()
{
    qputenv("LC_ALL", m_locale);
    QString error;
    ZqlTest::unmount(Autostart, &error);
    ZqlTest::unmount(LockerDir, &error);
}

void KioskGlobalModuleTest::identity()
{
    KioskGlobalModule module;
    QCOMPARE(module.getName(), QStringLiteral("kiosk-global"));
    QVERIFY(module.isAvailable());
    QCOMPARE(module.isParametersCorrect({}), QStringList());
    QCOMPARE(module.isParametersCorrect({QStringLiteral("autostartApps"),
                                         QStringLiteral("screenLock"), QStringLiteral("x")}),
             QStringList());
    QVERIFY(module.checkRestrictions({}));
    QVERIFY(module.checkRestrictions({{QStringLiteral("screenLock"), true}}));
    QCOMPARE(module.formatOutput(QStringLiteral("m")), QStringLiteral("kiosk-global : m\n"));
}

void KioskGlobalModuleTest::sandboxPrefix_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("sandbox");
    QTest::addColumn<QStringList>("sandboxArgs");
    QTest::addColumn<QString>("written");

    const QString net = QStringLiteral("--net=none");
    const QString priv = QStringLiteral("--private");
    QTest::newRow("options and arguments")
        << QStringLiteral("firejail --net=none --private app -x") << QStringLiteral("app -x")
        << true << QStringList{net, priv} << QStringLiteral("firejail --net=none --private app -x");
    QTest::newRow("no options") << QStringLiteral("firejail app") << QStringLiteral("app") << true
                                << QStringList() << QStringLiteral("firejail app");
    QTest::newRow("firejailx counts as sandboxed")
        << QStringLiteral("firejailx") << QString() << true << QStringList()
        << QStringLiteral("firejail ");
    QTest::newRow("options only") << QStringLiteral("firejail --private") << QString() << true
                                  << QStringList{priv} << QStringLiteral("firejail --private ");
    QTest::newRow("runs of blanks")
        << QStringLiteral("firejail  --private   app  -x") << QStringLiteral("app -x") << true
        << QStringList{priv} << QStringLiteral("firejail --private app -x");
    QTest::newRow("options after the command stay in it")
        << QStringLiteral("firejail --private app --full") << QStringLiteral("app --full") << true
        << QStringList{priv} << QStringLiteral("firejail --private app --full");
    QTest::newRow("a single dash is no option")
        << QStringLiteral("firejail -x app") << QStringLiteral("-x app") << true << QStringList()
        << QStringLiteral("firejail -x app");
    QTest::newRow("no sandbox") << QStringLiteral("app --x %U") << QStringLiteral("app --x %U")
                                << false << QStringList() << QStringLiteral("app --x %U");
    QTest::newRow("the prefix test is case-sensitive")
        << QStringLiteral("Firejail app") << QStringLiteral("Firejail app") << false
        << QStringList() << QStringLiteral("Firejail app");
    QTest::newRow("an absolute firejail is no prefix")
        << QStringLiteral("/usr/bin/firejail app") << QStringLiteral("/usr/bin/firejail app")
        << false << QStringList() << QStringLiteral("/usr/bin/firejail app");
    QTest::newRow("relative programs are not resolved")
        << QStringLiteral("sh -c true") << QStringLiteral("sh -c true") << false << QStringList()
        << QStringLiteral("sh -c true");
    QTest::newRow("no command") << QString() << QString() << false << QStringList() << QString();
}

void KioskGlobalModuleTest::sandboxPrefix()
{
    QFETCH(QString, exec);
    QFETCH(QString, command);
    QFETCH(bool, sandbox);
    QFETCH(QStringList, sandboxArgs);
    QFETCH(QString, written);

    QByteArray lines = "Name=App\nOnlyShowIn=vela-kiosk;\n";
    if (!exec.isEmpty())
        lines += "Exec=" + exec.toUtf8() + "\n";
    QVERIFY(writeEntry(QStringLiteral("app.desktop"), lines));
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entries.size(), 1);
    const QVariantMap map = entries.first().toMap();
    QCOMPARE(map.value(QStringLiteral("Exec")).toString(), command);
    QCOMPARE(map.value(QStringLiteral("sandbox")), QVariant(sandbox));
    QCOMPARE(map.value(QStringLiteral("sandboxArgs")), QVariant(sandboxArgs));

    // Written back into a new file, the command comes out as the table says.
    QVERIFY(module.setDesktopEntries(entries));
    const VelaUIDesktopEntry entry(autostartFile(QStringLiteral("app.desktop")));
    QCOMPARE(entry.getExec(), written);
    QCOMPARE(module.getDesktopEntries(true), entries);
}

void KioskGlobalModuleTest::autostartPhase()
{
    QVERIFY(writeEntry(QStringLiteral("a.desktop"), "Name=A\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("b.desktop"), "Name=B\nOnlyShowIn=vela-kiosk;\n"
                                                    "X-GNOME-Autostart-Phase=Initialization\n"));
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    const QString phase = QStringLiteral("X-GNOME-Autostart-Phase");
    QCOMPARE(entryNamed(entries, QStringLiteral("a.desktop")).value(phase),
             QVariant(QStringLiteral("Applications")));
    QCOMPARE(entryNamed(entries, QStringLiteral("b.desktop")).value(phase),
             QVariant(QStringLiteral("Initialization")));

    // "Applications" is left out of the file; another phase is written.
    QVERIFY(module.setDesktopEntries(entries));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("a.desktop"))),
             entryText("Name=A\nOnlyShowIn=vela-kiosk;\nType=Application\n"));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("b.desktop"))),
             entryText("Name=B\nOnlyShowIn=vela-kiosk;\nX-GNOME-Autostart-Phase=Initialization\n"
                       "Type=Application\n"));
}

void KioskGlobalModuleTest::delay_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<int>("delay");

    QTest::newRow("missing") << QByteArray() << 0;
    QTest::newRow("5") << QByteArray("X-VELA-Delay=5\n") << 5;
    QTest::newRow("negative") << QByteArray("X-VELA-Delay=-3\n") << -3;
    QTest::newRow("abc") << QByteArray("X-VELA-Delay=abc\n") << 0;
    QTest::newRow("hexadecimal") << QByteArray("X-VELA-Delay=0x10\n") << 0;
    QTest::newRow("too large for an int") << QByteArray("X-VELA-Delay=99999999999\n") << 0;
    QTest::newRow("fraction") << QByteArray("X-VELA-Delay=1.5\n") << 0;
    QTest::newRow("empty") << QByteArray("X-VELA-Delay=\n") << 0;
}

void KioskGlobalModuleTest::delay()
{
    QFETCH(QByteArray, line);
    QFETCH(int, delay);

    QVERIFY(writeEntry(QStringLiteral("d.desktop"), "Name=D\nOnlyShowIn=vela-kiosk;\n" + line));
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entries.size(), 1);
    const QVariant value = entries.first().toMap().value(QStringLiteral("X-VELA-Delay"));
    QCOMPARE(value.userType(), int(QMetaType::Int));
    QCOMPARE(value.toInt(), delay);
}

void KioskGlobalModuleTest::writtenDelay_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("written");

    QTest::newRow("0 is left out") << QVariant(0) << QString();
    QTest::newRow("5") << QVariant(5) << QStringLiteral("5");
    QTest::newRow("-2") << QVariant(-2) << QStringLiteral("-2");
    QTest::newRow("text of a number keeps its text")
        << QVariant(QStringLiteral("07")) << QStringLiteral("07");
    QTest::newRow("text that is no number is left out")
        << QVariant(QStringLiteral("abc")) << QString();
    QTest::newRow("absent") << QVariant() << QString();
}

void KioskGlobalModuleTest::writtenDelay()
{
    QFETCH(QVariant, value);
    QFETCH(QString, written);

    QVariantMap map = kioskMap(QStringLiteral("d.desktop"), QStringLiteral("app"));
    if (value.isValid())
        map.insert(QStringLiteral("X-VELA-Delay"), value);
    KioskGlobalModule module;
    QVERIFY(module.setDesktopEntry(map));
    const VelaUIDesktopEntry entry(autostartFile(QStringLiteral("d.desktop")));
    QCOMPARE(entry.getEntry(QStringLiteral("X-VELA-Delay")), written);
}

void KioskGlobalModuleTest::listing()
{
    QVERIFY(writeEntry(QStringLiteral("kiosk.desktop"), "Name=K\nOnlyShowIn=GNOME;vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral(".hidden.desktop"), "Name=H\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("capitals.desktop"), "Name=C\nOnlyShowIn=VELA-KIOSK;\n"));
    QVERIFY(writeEntry(QStringLiteral("plain.desktop"), "Name=P\n"));
    QVERIFY(writeEntry(QStringLiteral("not.desktop"), "Name=N\nNotShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("suffix.DESKTOP"), "Name=S\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("backup.desktop~"), "Name=B\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(QDir().mkpath(autostartFile(QStringLiteral("folder.desktop"))));
    QVERIFY(QFile::link(QStringLiteral("/nonexistent"),
                        autostartFile(QStringLiteral("dangling.desktop"))));

    KioskGlobalModule module;
    QCOMPARE(fileNames(module.getDesktopEntries(true)),
             (QStringList{QStringLiteral(".hidden.desktop"), QStringLiteral("kiosk.desktop")}));
    QCOMPARE(fileNames(module.getDesktopEntries(false)),
             (QStringList{QStringLiteral(".hidden.desktop"), QStringLiteral("capitals.desktop"),
                          QStringLiteral("kiosk.desktop"), QStringLiteral("not.desktop"),
                          QStringLiteral("plain.desktop")}));
}

void KioskGlobalModuleTest::readsEveryKey()
{
    qputenv("LC_ALL", "ru_RU.UTF-8");
    QVERIFY(writeEntry(QStringLiteral("full.desktop"),
                       "Type=Application\n"
                       "Name=Browser\n"
                       "Name[ru]=Браузер\n"
                       "GenericName=Web browser\n"
                       "GenericName[ru_RU]=Веб-браузер\n"
                       "Icon=web-browser\n"
                       "Comment=Browse the web\n"
                       "Comment[ru]=Просмотр страниц\n"
                       "Comment[de]=Im Netz surfen\n"
                       "OnlyShowIn=vela-kiosk;GNOME;\n"
                       "Path=/var/tmp\n"
                       "TryExec=firefox\n"
                       "X-GNOME-Autostart-Phase=Desktop\n"
                       "X-VELA-Delay=10\n"
                       "Exec=firejail --private --net=none firefox --kiosk %u\n"));
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entries.size(), 1);
    // The map of a complete entry, with the Russian values and the entry's own lists.
    QVariantMap expected = fullMap(QStringLiteral("full.desktop"));
    expected.insert(QStringLiteral("LocalName"), QString::fromUtf8("Браузер"));
    expected.insert(QStringLiteral("LocalGenericName"), QString::fromUtf8("Веб-браузер"));
    expected.insert(QStringLiteral("LocalComment"), QString::fromUtf8("Просмотр страниц"));
    expected.insert(QStringLiteral("OnlyShowIn"),
                    QStringList{QStringLiteral("vela-kiosk"), QStringLiteral("GNOME")});
    expected.insert(QStringLiteral("TryExec"), QStringLiteral("firefox"));
    expected.insert(QStringLiteral("Exec"), QStringLiteral("firefox --kiosk %u"));
    QCOMPARE(entries.first().toMap().keys(), expected.keys());
    QCOMPARE(entries.first().toMap(), expected);
}

void KioskGlobalModuleTest::writesEveryKey()
{
    KioskGlobalModule module;
    QVERIFY(module.setDesktopEntry(fullMap(QStringLiteral("browser.desktop"))));
    const QString path = autostartFile(QStringLiteral("browser.desktop"));
    QCOMPARE(ZqlTest::readBytes(path), FullMapText);
    QByteArray output;
    QVERIFY2(validates(path, &output), output.constData());
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entries, QList<QVariant>{fullMap(QStringLiteral("browser.desktop"))});

    // Under a Russian locale the local values get their own keys.
    qputenv("LC_ALL", "ru_RU.UTF-8");
    QVariantMap russian = fullMap(QStringLiteral("ru.desktop"));
    russian.insert(QStringLiteral("LocalName"), QString::fromUtf8("Браузер"));
    russian.insert(QStringLiteral("LocalComment"), QString::fromUtf8("Просмотр страниц"));
    QVERIFY(module.setDesktopEntry(russian));
    const QString ruPath = autostartFile(QStringLiteral("ru.desktop"));
    QVERIFY2(validates(ruPath, &output), output.constData());
    const ParsedEntry parsed = parseEntry(ruPath);
    QCOMPARE(
        parsed.values.value(QStringLiteral("Desktop Entry")).value(QStringLiteral("Name[ru_RU]")),
        QString::fromUtf8("Браузер"));
    QCOMPARE(entryNamed(module.getDesktopEntries(true), QStringLiteral("ru.desktop")), russian);
}

void KioskGlobalModuleTest::missingKeysWriteEmptyValues()
{
    KioskGlobalModule module;
    QVERIFY(
        module.setDesktopEntry({{QStringLiteral("desktopFileName"), QStringLiteral("e.desktop")}}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("e.desktop"))),
             entryText("Type=Application\n"));
    // Sandboxed without a command.
    QVERIFY(
        module.setDesktopEntry({{QStringLiteral("desktopFileName"), QStringLiteral("s.desktop")},
                                {QStringLiteral("sandbox"), true}}));
    QCOMPARE(VelaUIDesktopEntry(autostartFile(QStringLiteral("s.desktop"))).getExec(),
             QStringLiteral("firejail "));
}

void KioskGlobalModuleTest::mapAsHash()
{
    // A host may build its entries as hashes; they are taken as maps.
    QVariantHash hash;
    const QVariantMap map = kioskMap(QStringLiteral("h.desktop"), QStringLiteral("app"));
    for (auto member = map.begin(); member != map.end(); ++member)
        hash.insert(member.key(), member.value());
    KioskGlobalModule module;
    QVERIFY(module.setDesktopEntries({hash}));
    QCOMPARE(autostartNames(), QStringList{QStringLiteral("h.desktop")});
    QCOMPARE(VelaUIDesktopEntry(autostartFile(QStringLiteral("h.desktop"))).getExec(),
             QStringLiteral("app"));
}

void KioskGlobalModuleTest::fileNameStaysInTheDirectory_data()
{
    QTest::addColumn<QString>("fileName");

    QTest::newRow("empty") << QString();
    QTest::newRow("dot") << QStringLiteral(".");
    QTest::newRow("dot dot") << QStringLiteral("..");
    QTest::newRow("parent") << QStringLiteral("../evil.desktop");
    QTest::newRow("absolute") << QStringLiteral("/etc/evil.desktop");
    QTest::newRow("subfolder") << QStringLiteral("sub/evil.desktop");
}

void KioskGlobalModuleTest::fileNameStaysInTheDirectory()
{
    QFETCH(QString, fileName);

    QVERIFY(QDir().mkpath(autostartFile(QStringLiteral("sub"))));
    KioskGlobalModule module;
    QVERIFY(!module.setDesktopEntry(kioskMap(fileName, QStringLiteral("app"))));
    QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/xdg/evil.desktop")));
    QVERIFY(!QFileInfo::exists(QStringLiteral("/etc/evil.desktop")));
    QVERIFY(!QFileInfo::exists(autostartFile(QStringLiteral("sub/evil.desktop"))));
    QCOMPARE(autostartNames(), QStringList());
}

void KioskGlobalModuleTest::linkEntries()
{
    const QString target = QStringLiteral("/usr/share/applications/kiosk-target.desktop");
    QVERIFY(QDir().mkpath(QStringLiteral("/usr/share/applications")));
    QVERIFY(ZqlTest::writeBytes(target, entryText("Type=Application\nName=Target\n"
                                                  "Exec=firejail --private target-app\n"
                                                  "OnlyShowIn=vela-kiosk;\n")));
    QVERIFY(writeEntry(QStringLiteral("link.desktop"),
                       "Type=Link\nName=Link\nURL=" + target.toUtf8() + "\n"));
    QVERIFY(writeEntry(QStringLiteral("file-url.desktop"),
                       "Type=Link\nName=File URL\nURL=file://" + target.toUtf8() + "\n"));
    QVERIFY(writeEntry(QStringLiteral("missing.desktop"),
                       "Type=Link\nName=Missing\nURL=/usr/share/applications/none.desktop\n"
                       "OnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("relative.desktop"),
                       "Type=Link\nName=Relative\nURL=kiosk-target.desktop\n"));
    QVERIFY(ZqlTest::copyFile(debianEntry(QStringLiteral("debian-homepage.desktop")),
                              autostartFile(QStringLiteral("debian-homepage.desktop"))));

    KioskGlobalModule module;
    const QList<QVariant> all = module.getDesktopEntries(false);
    // The target supplies the fields, also whether the entry belongs to the kiosk.
    for (const QString &name :
         {QStringLiteral("link.desktop"), QStringLiteral("file-url.desktop")}) {
        const QVariantMap map = entryNamed(all, name);
        QCOMPARE(map.value(QStringLiteral("Name")).toString(), QStringLiteral("Target"));
        QCOMPARE(map.value(QStringLiteral("Exec")).toString(), QStringLiteral("target-app"));
        QCOMPARE(map.value(QStringLiteral("sandbox")).toBool(), true);
        QCOMPARE(map.value(QStringLiteral("Type")).toString(), QStringLiteral("Application"));
    }
    // A target that is missing or not absolute: the link's own fields.
    QCOMPARE(entryNamed(all, QStringLiteral("missing.desktop")).value(QStringLiteral("Name")),
             QVariant(QStringLiteral("Missing")));
    QCOMPARE(entryNamed(all, QStringLiteral("relative.desktop")).value(QStringLiteral("Name")),
             QVariant(QStringLiteral("Relative")));
    const QVariantMap web = entryNamed(all, QStringLiteral("debian-homepage.desktop"));
    QCOMPARE(web.value(QStringLiteral("Name")).toString(), QStringLiteral("Debian Home Page"));
    QCOMPARE(web.value(QStringLiteral("Exec")).toString(), QString());
    QCOMPARE(web.value(QStringLiteral("sandbox")).toBool(), false);
    QCOMPARE(web.value(QStringLiteral("Type")).toString(), QStringLiteral("Application"));

    QCOMPARE(fileNames(module.getDesktopEntries(true)),
             (QStringList{QStringLiteral("file-url.desktop"), QStringLiteral("link.desktop"),
                          QStringLiteral("missing.desktop")}));
    // Removal looks at the link file itself: only the one naming the kiosk goes.
    const QByteArray linkBytes = ZqlTest::readBytes(autostartFile(QStringLiteral("link.desktop")));
    module.removeDesktopEntries();
    QCOMPARE(
        autostartNames(),
        (QStringList{QStringLiteral("debian-homepage.desktop"), QStringLiteral("file-url.desktop"),
                     QStringLiteral("link.desktop"), QStringLiteral("relative.desktop")}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("link.desktop"))), linkBytes);
    QVERIFY(QFileInfo::exists(target));
}

void KioskGlobalModuleTest::fileManagerUrl()
{
    QVERIFY(writeEntry(QStringLiteral("fm.desktop"),
                       "Type=Link\nName=Files\nURL=vela-fm:///home\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(
        writeEntry(QStringLiteral("other.desktop"),
                   "Type=Link\nName=Web\nURL=https://vela-fm.example\nOnlyShowIn=vela-kiosk;\n"));
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entryNamed(entries, QStringLiteral("fm.desktop")).value(QStringLiteral("Exec")),
             QVariant(QStringLiteral("vela-fm")));
    QCOMPARE(entryNamed(entries, QStringLiteral("other.desktop")).value(QStringLiteral("Exec")),
             QVariant(QString()));
}

void KioskGlobalModuleTest::replaceKioskEntries()
{
    QVERIFY(writeEntry(QStringLiteral("old.desktop"), "Name=Old\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("other.desktop"), "Name=Other\nOnlyShowIn=GNOME;\n"));
    const QByteArray otherBytes =
        ZqlTest::readBytes(autostartFile(QStringLiteral("other.desktop")));
    KioskGlobalModule module;
    QVERIFY(module.setDesktopEntries(
        {kioskMap(QStringLiteral("one.desktop"), QStringLiteral("one")),
         kioskMap(QStringLiteral("two.desktop"), QStringLiteral("two --flag"))}));
    QCOMPARE(autostartNames(),
             (QStringList{QStringLiteral("one.desktop"), QStringLiteral("other.desktop"),
                          QStringLiteral("two.desktop")}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("other.desktop"))), otherBytes);
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("two.desktop"))),
             entryText("Name=two.desktop\nOnlyShowIn=vela-kiosk;\nExec=two --flag\n"
                       "Type=Application\n"));
    QByteArray output;
    for (const QString &name : {QStringLiteral("one.desktop"), QStringLiteral("two.desktop")})
        QVERIFY2(validates(autostartFile(name), &output), output.constData());
}

void KioskGlobalModuleTest::emptyListRemovesKioskEntries()
{
    QVERIFY(writeEntry(QStringLiteral("a.desktop"), "Name=A\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral(".b.desktop"), "Name=B\nOnlyShowIn=GNOME;vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("c.desktop"), "Name=C\nOnlyShowIn=VELA-KIOSK;\n"));
    QVERIFY(writeEntry(QStringLiteral("d.desktop"), "Name=D\nNotShowIn=vela-kiosk;\n"));
    KioskGlobalModule module;
    QVERIFY(module.setDesktopEntries({}));
    QCOMPARE(autostartNames(),
             (QStringList{QStringLiteral("c.desktop"), QStringLiteral("d.desktop")}));
}

void KioskGlobalModuleTest::failedSaveDoesNotStopTheOthers()
{
    // A read-only file of the same name cannot be replaced; the entries after it are written.
    QVERIFY(writeEntry(QStringLiteral("locked.desktop"), "Name=Locked\n"));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(autostartFile(QStringLiteral("locked.desktop")), &error),
             qPrintable(error));
    KioskGlobalModule module;
    QVERIFY(!module.setDesktopEntries(
        {kioskMap(QStringLiteral("first.desktop"), QStringLiteral("first")),
         kioskMap(QStringLiteral("locked.desktop"), QStringLiteral("locked")),
         kioskMap(QStringLiteral("../outside.desktop"), QStringLiteral("outside")),
         kioskMap(QStringLiteral("last.desktop"), QStringLiteral("last"))}));
    QVERIFY(ZqlTest::unmount(autostartFile(QStringLiteral("locked.desktop")), &error));
    QCOMPARE(autostartNames(),
             (QStringList{QStringLiteral("first.desktop"), QStringLiteral("last.desktop"),
                          QStringLiteral("locked.desktop")}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("locked.desktop"))),
             entryText("Name=Locked\n"));
}

void KioskGlobalModuleTest::deletionErrorsAreIgnored()
{
    // A kiosk entry that cannot be removed stays; the call still succeeds.
    QVERIFY(writeEntry(QStringLiteral("stuck.desktop"), "Name=Stuck\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(ZqlTest::writeBytes(QStringLiteral("/tmp/stuck.desktop"),
                                entryText("Name=Stuck\nOnlyShowIn=vela-kiosk;\n")));
    QString error;
    QVERIFY2(ZqlTest::bindOver(QStringLiteral("/tmp/stuck.desktop"),
                               autostartFile(QStringLiteral("stuck.desktop")), &error),
             qPrintable(error));
    KioskGlobalModule module;
    QVERIFY(
        module.setDesktopEntries({kioskMap(QStringLiteral("new.desktop"), QStringLiteral("new"))}));
    QCOMPARE(autostartNames(),
             (QStringList{QStringLiteral("new.desktop"), QStringLiteral("stuck.desktop")}));
    module.removeDesktopEntries();
    QCOMPARE(autostartNames(), QStringList{QStringLiteral("stuck.desktop")});
    QVERIFY(ZqlTest::unmount(autostartFile(QStringLiteral("stuck.desktop")), &error));
}

void KioskGlobalModuleTest::damagedEntries()
{
    const QByteArray noGroup = "Name=A\nOnlyShowIn=vela-kiosk;\n";
    const QByteArray badUtf8 = "[Desktop Entry]\nName=\xff\nOnlyShowIn=vela-kiosk;\n";
    QVERIFY(ZqlTest::writeBytes(autostartFile(QStringLiteral("nogroup.desktop")), noGroup));
    QVERIFY(ZqlTest::writeBytes(autostartFile(QStringLiteral("badutf8.desktop")), badUtf8));
    QVERIFY(ZqlTest::writeBytes(autostartFile(QStringLiteral("empty.desktop")), QByteArray("")));
    KioskGlobalModule module;
    // Listed with empty fields, never as kiosk entries, never removed.
    const QList<QVariant> all = module.getDesktopEntries(false);
    QCOMPARE(fileNames(all),
             (QStringList{QStringLiteral("badutf8.desktop"), QStringLiteral("empty.desktop"),
                          QStringLiteral("nogroup.desktop")}));
    for (const QVariant &entry : all) {
        const QVariantMap map = entry.toMap();
        QCOMPARE(map.value(QStringLiteral("Name")).toString(), QString());
        QCOMPARE(map.value(QStringLiteral("OnlyShowIn")).toStringList(), QStringList());
        QCOMPARE(map.value(QStringLiteral("Exec")).toString(), QString());
        QCOMPARE(map.value(QStringLiteral("X-GNOME-Autostart-Phase")).toString(),
                 QStringLiteral("Applications"));
    }
    QCOMPARE(module.getDesktopEntries(true), QList<QVariant>());
    QVERIFY(module.setDesktopEntries({}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("nogroup.desktop"))), noGroup);
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("badutf8.desktop"))), badUtf8);
}

void KioskGlobalModuleTest::debianEntriesAreLeftAlone()
{
    const QStringList files =
        QDir(ZqlTest::debianEntriesDir())
            .entryList({QStringLiteral("*.desktop")}, QDir::Files, QDir::Name);
    for (const QString &file : files)
        QVERIFY(ZqlTest::copyFile(debianEntry(file), autostartFile(file)));
    qputenv("LC_ALL", "ru_RU.UTF-8");
    KioskGlobalModule module;
    const QList<QVariant> all = module.getDesktopEntries(false);
    QCOMPARE(fileNames(all), files);
    const QVariantMap network = entryNamed(all, QStringLiteral("nm-applet.desktop"));
    QCOMPARE(network.value(QStringLiteral("Name")).toString(), QStringLiteral("Network"));
    QCOMPARE(network.value(QStringLiteral("LocalName")).toString(), QString::fromUtf8("Сеть"));
    QCOMPARE(network.value(QStringLiteral("LocalComment")).toString(),
             QString::fromUtf8("Управление сетевыми соединениями"));
    QCOMPARE(network.value(QStringLiteral("OnlyShowIn")).toStringList(), QStringList());
    QCOMPARE(network.value(QStringLiteral("Exec")).toString(), QStringLiteral("nm-applet"));
    const QVariantMap polkit =
        entryNamed(all, QStringLiteral("polkit-gnome-authentication-agent-1.desktop"));
    QCOMPARE(polkit.value(QStringLiteral("OnlyShowIn")).toStringList(),
             (QStringList{QStringLiteral("XFCE"), QStringLiteral("Unity"),
                          QStringLiteral("X-Cinnamon")}));
    QCOMPARE(
        entryNamed(all, QStringLiteral("light-locker.desktop")).value(QStringLiteral("LocalName")),
        QVariant(QString::fromUtf8("Блокировщик экрана")));

    QCOMPARE(module.getDesktopEntries(true), QList<QVariant>());
    QVERIFY(module.setDesktopEntries(
        {kioskMap(QStringLiteral("kiosk.desktop"), QStringLiteral("app"))}));
    QVERIFY(module.setDesktopEntries({}));
    module.removeDesktopEntries();
    QCOMPARE(autostartNames(), files);
    for (const QString &file : files)
        QCOMPARE(ZqlTest::readBytes(autostartFile(file)), ZqlTest::readBytes(debianEntry(file)));
}

void KioskGlobalModuleTest::debianEntryNamingTheKiosk_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("locale");

    for (const char *file : {"nm-applet.desktop", "light-locker.desktop",
                             "polkit-gnome-authentication-agent-1.desktop",
                             "user-dirs-update-gtk.desktop", "org.gnome.Terminal.desktop"}) {
        for (const char *locale : {"C.UTF-8", "ru_RU.UTF-8", "de_DE.UTF-8"}) {
            QTest::addRow("%s %s", file, locale) << QString::fromLatin1(file) << QByteArray(locale);
        }
    }
}

void KioskGlobalModuleTest::debianEntryNamingTheKiosk()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, locale);

    // The Debian entry with the kiosk added to its OnlyShowIn (or given one).
    QList<QByteArray> lines = ZqlTest::readBytes(debianEntry(file)).split('\n');
    bool named = false;
    for (QByteArray &line : lines) {
        if (line.startsWith("OnlyShowIn=")) {
            line += "vela-kiosk;";
            named = true;
        }
    }
    if (!named)
        lines.insert(1, "OnlyShowIn=vela-kiosk;");
    const QString path = autostartFile(file);
    QVERIFY(ZqlTest::writeBytes(path, lines.join('\n')));
    const ParsedEntry before = parseEntry(path);
    QVERIFY2(before.parsed, qPrintable(before.error));
    const bool validBefore = ZqlTest::validateEntry(path).passes();

    qputenv("LC_ALL", locale);
    KioskGlobalModule module;
    const QList<QVariant> entries = module.getDesktopEntries(true);
    QCOMPARE(entries.size(), 1);
    // Written back unchanged into its file, the entry keeps every group, key, value and comment.
    QVERIFY(module.setDesktopEntry(entries.first().toMap()));
    const ParsedEntry after = parseEntry(path);
    QCOMPARE(after.groups, before.groups);
    QCOMPARE(after.keys(QStringLiteral("Desktop Entry")),
             before.keys(QStringLiteral("Desktop Entry")));
    QCOMPARE(after.values, before.values);
    QCOMPARE(after.comments, before.comments);
    QCOMPARE(ZqlTest::validateEntry(path).passes(), validBefore);
    QCOMPARE(module.getDesktopEntries(true), entries);
}

void KioskGlobalModuleTest::screenLockState_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("on");

    QTest::newRow("0 is off") << QByteArray("[Variables]\nScreenSaverDelay=0\n") << false;
    QTest::newRow("300 is on") << QByteArray("[Variables]\nScreenSaverDelay=300\n") << true;
    QTest::newRow("-5 is on") << QByteArray("[Variables]\nScreenSaverDelay=-5\n") << true;
    QTest::newRow("missing key is on") << QByteArray("[Variables]\nOther=0\n") << true;
    QTest::newRow("another group is on") << QByteArray("[Other]\nScreenSaverDelay=0\n") << true;
    QTest::newRow("empty file is on") << QByteArray("") << true;
    QTest::newRow("among other keys")
        << QByteArray("[General]\nTheme=dark\n\n[Variables]\nLockGrace=5\nScreenSaverDelay=0\n")
        << false;
    QTest::newRow("text that is no number reads as 0")
        << QByteArray("[Variables]\nScreenSaverDelay=abc\n") << false;
    QTest::newRow("blanks around") << QByteArray("[Variables]\nScreenSaverDelay = 0 \n") << false;
}

void KioskGlobalModuleTest::screenLockState()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, on);

    QVERIFY(ZqlTest::writeBytes(Locker, content));
    KioskGlobalModule module;
    QCOMPARE(module.getScreenLockState(), on);
}

void KioskGlobalModuleTest::setScreenLockState()
{
    KioskGlobalModule module;
    QVERIFY(!QFileInfo::exists(Locker));
    QVERIFY(module.getScreenLockState()); // a missing file reads as on
    module.setScreenLockState(false);
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOffText);
    QVERIFY(!module.getScreenLockState());
    module.setScreenLockState(true);
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOnText);
    QVERIFY(module.getScreenLockState());
    module.setScreenLockState(true);
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOnText);
    // The variants stay.
    QCOMPARE(ZqlTest::readBytes(LockerOn), LockerOnText);
    QCOMPARE(ZqlTest::readBytes(LockerOff), LockerOffText);

    // Without its variant the locker is left without a file.
    QVERIFY(QFile::remove(LockerOff));
    module.setScreenLockState(false);
    QVERIFY(!QFileInfo::exists(Locker));
    QVERIFY(module.getScreenLockState());
}

void KioskGlobalModuleTest::screenLockFailures()
{
    KioskGlobalModule module;
    module.setScreenLockState(true);
    // A read-only folder: nothing changes, nothing is reported.
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(LockerDir, &error), qPrintable(error));
    ZqlTest::OutputCapture capture;
    module.setScreenLockState(false);
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(capture.standardOutput(), QByteArray());
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOnText);
    QVERIFY(module.getScreenLockState());
    QVERIFY(ZqlTest::unmount(LockerDir, &error));

    // No folder at all.
    QVERIFY(QDir(QStringLiteral("/etc/vela-kiosk")).removeRecursively());
    module.setScreenLockState(false);
    QVERIFY(module.getScreenLockState());
    QVERIFY(!QFileInfo::exists(LockerDir));
}

void KioskGlobalModuleTest::getSettings()
{
    QVERIFY(writeEntry(QStringLiteral("k.desktop"), "Name=K\nOnlyShowIn=vela-kiosk;\nExec=app\n"));
    QVERIFY(writeEntry(QStringLiteral("o.desktop"), "Name=O\nExec=other\n"));
    QVERIFY(ZqlTest::writeBytes(Locker, LockerOffText));
    KioskGlobalModule module;
    ZqlTest::OutputCapture capture;
    const SettingsReply reply = module.getSettings();
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(reply.first, ModuleInterface::StatusSuccess);
    QCOMPARE(reply.second.keys().size(), 2);
    QCOMPARE(reply.second.value(QStringLiteral("screenLock")), QVariant(false));
    const QList<QVariant> apps = reply.second.value(QStringLiteral("autostartApps")).toList();
    QCOMPARE(fileNames(apps), QStringList{QStringLiteral("k.desktop")});
    QCOMPARE(reply.second.value(QStringLiteral("autostartApps")).userType(),
             int(QMetaType::QVariantList));

    // Nothing to read is no failure either.
    QDir(Autostart).removeRecursively();
    QVERIFY(QFile::remove(Locker));
    const SettingsReply empty = module.getSettings();
    QCOMPARE(empty.first, ModuleInterface::StatusSuccess);
    QCOMPARE(empty.second.value(QStringLiteral("autostartApps")).toList(), QList<QVariant>());
    QCOMPARE(empty.second.value(QStringLiteral("screenLock")), QVariant(true));
}

void KioskGlobalModuleTest::setSettingsEmpty()
{
    QVERIFY(writeEntry(QStringLiteral("k.desktop"), "Name=K\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(writeEntry(QStringLiteral("o.desktop"), "Name=O\n"));
    QVERIFY(ZqlTest::writeBytes(Locker, LockerOnText));
    KioskGlobalModule module;
    ZqlTest::OutputCapture capture;
    QVERIFY(!module.setSettings({}));
    capture.finish();
    QCOMPARE(capture.standardError(), QByteArray());
    QCOMPARE(autostartNames(), QStringList{QStringLiteral("o.desktop")});
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOffText);
}

void KioskGlobalModuleTest::setSettings()
{
    KioskGlobalModule module;
    const QVariantList apps{fullMap(QStringLiteral("browser.desktop")),
                            kioskMap(QStringLiteral("viewer.desktop"), QStringLiteral("atril"))};
    QVERIFY(!module.setSettings({{QStringLiteral("autostartApps"), apps},
                                 {QStringLiteral("screenLock"), true},
                                 {QStringLiteral("unknown"), 1}}));
    QCOMPARE(autostartNames(),
             (QStringList{QStringLiteral("browser.desktop"), QStringLiteral("viewer.desktop")}));
    QCOMPARE(ZqlTest::readBytes(autostartFile(QStringLiteral("browser.desktop"))), FullMapText);
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOnText);
    QByteArray output;
    for (const QString &name : autostartNames())
        QVERIFY2(validates(autostartFile(name), &output), output.constData());
}

void KioskGlobalModuleTest::setSettingsUnwritableDirectory()
{
    QVERIFY(writeEntry(QStringLiteral("k.desktop"), "Name=K\nOnlyShowIn=vela-kiosk;\n"));
    QVERIFY(ZqlTest::writeBytes(Locker, LockerOffText));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(Autostart, &error), qPrintable(error));
    KioskGlobalModule module;
    ZqlTest::OutputCapture capture;
    QVERIFY(module.setSettings(
        {{QStringLiteral("autostartApps"),
          QVariantList{kioskMap(QStringLiteral("new.desktop"), QStringLiteral("app"))}},
         {QStringLiteral("screenLock"), true}}));
    capture.finish();
    QCOMPARE(capture.standardError(), UnwritableMessage.toUtf8());
    QCOMPARE(capture.standardOutput(), QByteArray());
    // The lock state is left as it was; the kiosk entry could not be removed either.
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOffText);
    QCOMPARE(autostartNames(), QStringList{QStringLiteral("k.desktop")});

    // Removing alone cannot fail: the result is success although nothing was removed.
    ZqlTest::OutputCapture quiet;
    QVERIFY(!module.setSettings({{QStringLiteral("screenLock"), true}}));
    quiet.finish();
    QCOMPARE(quiet.standardError(), QByteArray());
    QCOMPARE(autostartNames(), QStringList{QStringLiteral("k.desktop")});
    QCOMPARE(ZqlTest::readBytes(Locker), LockerOnText);
    QVERIFY(ZqlTest::unmount(Autostart, &error));
}

void KioskGlobalModuleTest::settingsRoundTrip()
{
    KioskGlobalModule module;
    QVERIFY(!module.setSettings(
        {{QStringLiteral("autostartApps"),
          QVariantList{fullMap(QStringLiteral("browser.desktop")),
                       kioskMap(QStringLiteral("viewer.desktop"), QStringLiteral("atril"))}},
         {QStringLiteral("screenLock"), true}}));
    const SettingsReply first = module.getSettings();
    QMap<QString, QByteArray> bytes;
    for (const QString &name : autostartNames())
        bytes.insert(name, ZqlTest::readBytes(autostartFile(name)));
    QVERIFY(!module.setSettings(first.second));
    // The same entries; the directory's order may differ once the files are new.
    const SettingsReply second = module.getSettings();
    QCOMPARE(second.second.value(QStringLiteral("screenLock")), QVariant(true));
    const QList<QVariant> apps = first.second.value(QStringLiteral("autostartApps")).toList();
    const QList<QVariant> again = second.second.value(QStringLiteral("autostartApps")).toList();
    QCOMPARE(fileNames(again), fileNames(apps));
    for (const QVariant &entry : apps) {
        const QString name = entry.toMap().value(QStringLiteral("desktopFileName")).toString();
        QCOMPARE(entryNamed(again, name), entry.toMap());
    }
    for (const QString &name : autostartNames())
        QCOMPARE(ZqlTest::readBytes(autostartFile(name)), bytes.value(name));
    QCOMPARE(autostartNames(), bytes.keys());
}

ZQL_SANDBOXED_TEST_MAIN(KioskGlobalModuleTest)
#include "kioskglobalmoduletest.moc"
