#include "desktopentryfixture.h"
#include "systemfixture.h"
#include "testmain.h"

#include "velaui/velauidesktopentry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using ZqlTest::debianEntry;
using ZqlTest::ParsedEntry;
using ZqlTest::parseEntry;

namespace {
const QString Scratch = QStringLiteral("/tmp/desktop-entries");
const QString MainGroup = QStringLiteral("Desktop Entry");

QString scratchFile(const QString &name)
{
    return Scratch + QLatin1Char('/') + name;
}

// The main group of a file written from these lines.
QByteArray entryText(const QByteArray &lines)
{
    return "[Desktop Entry]\n" + lines;
}

// Everything but the names of the files left in the scratch folder.
QStringList scratchFiles()
{
    return QDir(Scratch).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}
} // namespace

class VelaUIDesktopEntryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void debianEntries_data();
    void debianEntries();
    void localGetters_data();
    void localGetters();
    void localeVariables_data();
    void localeVariables();
    void localSetters_data();
    void localSetters();
    void saveKeepsWhatItDidNotTouch_data();
    void saveKeepsWhatItDidNotTouch();
    void newEntryPassesValidation();
    void escapesAndLists();
    void emptyTextRemovesTheKey();
    void invalidKeyNames();
    void damagedFile_data();
    void damagedFile();
    void readOnlyDirectory();
    void readOnlyFile();
    void missingDirectory();
    void fullFileSystem();
    void changedBySomeoneElse();
    void loadDropsChanges();
    void copyFrom();

private:
    QByteArray m_locale;
};

void VelaUIDesktopEntryTest::init()
{
    m_locale = qgetenv("LC_ALL");
    QDir(Scratch).removeRecursively();
    QVERIFY(QDir().mkpath(Scratch));
}

void VelaUIDesktopEntryTest::cleanup()
{
    qputenv("LC_ALL", m_locale);
    qunsetenv("LC_MESSAGES");
    qunsetenv("LANG");
    QString error;
    ZqlTest::unmount(Scratch, &error);
    QDir(Scratch).removeRecursively();
}

void VelaUIDesktopEntryTest::debianEntries_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("comment");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<QStringList>("onlyShowIn");
    QTest::addColumn<QString>("exec");
    QTest::addColumn<QString>("url");

    QTest::newRow("nm-applet") << QStringLiteral("nm-applet.desktop")
                               << QStringLiteral("Application") << QStringLiteral("Network")
                               << QStringLiteral("Manage your network connections")
                               << QStringLiteral("nm-device-wireless") << QStringList()
                               << QStringLiteral("nm-applet") << QString();
    QTest::newRow("polkit agent")
        << QStringLiteral("polkit-gnome-authentication-agent-1.desktop")
        << QStringLiteral("Application") << QStringLiteral("PolicyKit Authentication Agent")
        << QStringLiteral("PolicyKit Authentication Agent") << QString()
        << QStringList{QStringLiteral("XFCE"), QStringLiteral("Unity"),
                       QStringLiteral("X-Cinnamon")}
        << QStringLiteral("/usr/lib/policykit-1-gnome/polkit-gnome-authentication-agent-1")
        << QString();
    QTest::newRow("gnome-terminal")
        << QStringLiteral("org.gnome.Terminal.desktop") << QStringLiteral("Application")
        << QStringLiteral("Terminal") << QStringLiteral("Use the command line")
        << QStringLiteral("org.gnome.Terminal")
        << QStringList{QStringLiteral("GNOME"), QStringLiteral("Unity")}
        << QStringLiteral("gnome-terminal") << QString();
    QTest::newRow("link") << QStringLiteral("debian-homepage.desktop") << QStringLiteral("Link")
                          << QStringLiteral("Debian Home Page")
                          << QStringLiteral("The official web site of the Debian Project")
                          << QStringLiteral("emblem-debian") << QStringList() << QString()
                          << QStringLiteral("https://www.debian.org");
}

void VelaUIDesktopEntryTest::debianEntries()
{
    QFETCH(QString, file);
    QFETCH(QString, type);
    QFETCH(QString, name);
    QFETCH(QString, comment);
    QFETCH(QString, icon);
    QFETCH(QStringList, onlyShowIn);
    QFETCH(QString, exec);
    QFETCH(QString, url);

    const VelaUIDesktopEntry entry(debianEntry(file));
    QCOMPARE(entry.errorString(), QString());
    QCOMPARE(entry.fileName(), debianEntry(file));
    QCOMPARE(entry.getType(), type);
    QCOMPARE(entry.getName(), name);
    QCOMPARE(entry.getComment(), comment);
    QCOMPARE(entry.getIcon(), icon);
    QCOMPARE(entry.getOnlyShowIn(), onlyShowIn);
    QCOMPARE(entry.getExec(), exec);
    QCOMPARE(entry.getURL(), url);
    // In the C locale the local values are the plain ones.
    QCOMPARE(entry.getLocalName(), name);
    QCOMPARE(entry.getLocalComment(), comment);
}

void VelaUIDesktopEntryTest::localGetters_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QString>("name");

    // Name[sr_RS@latin], Name[sr_RS], Name[sr@latin], Name[sr] and Name: the best match wins.
    QTest::newRow("lang_COUNTRY.ENCODING@MODIFIER")
        << QByteArray("sr_RS.UTF-8@latin") << QStringLiteral("sr_RS@latin");
    QTest::newRow("lang_COUNTRY") << QByteArray("sr_RS.UTF-8") << QStringLiteral("sr_RS");
    QTest::newRow("lang@MODIFIER") << QByteArray("sr@latin") << QStringLiteral("sr@latin");
    QTest::newRow("other country falls back to lang@MODIFIER")
        << QByteArray("sr_ME@latin") << QStringLiteral("sr@latin");
    QTest::newRow("other country falls back to lang")
        << QByteArray("sr_ME.UTF-8") << QStringLiteral("sr");
    QTest::newRow("lang") << QByteArray("sr") << QStringLiteral("sr");
    QTest::newRow("other language") << QByteArray("de_DE.UTF-8") << QStringLiteral("plain");
    QTest::newRow("C") << QByteArray("C") << QStringLiteral("plain");
    QTest::newRow("C.UTF-8") << QByteArray("C.UTF-8") << QStringLiteral("plain");
    QTest::newRow("POSIX") << QByteArray("POSIX") << QStringLiteral("plain");
    QTest::newRow("ru_RU finds ru") << QByteArray("ru_RU.UTF-8") << QStringLiteral("ru");
}

void VelaUIDesktopEntryTest::localGetters()
{
    QFETCH(QByteArray, locale);
    QFETCH(QString, name);

    QVERIFY(ZqlTest::writeBytes(scratchFile(QStringLiteral("l.desktop")),
                                entryText("Name=plain\n"
                                          "Name[sr]=sr\n"
                                          "Name[sr@latin]=sr@latin\n"
                                          "Name[sr_RS]=sr_RS\n"
                                          "Name[sr_RS@latin]=sr_RS@latin\n"
                                          "Name[ru]=ru\n"
                                          "Comment=comment\n"
                                          "Comment[ru]=комментарий\n"
                                          "GenericName=generic\n"
                                          "Icon=icon\n"
                                          "Icon[ru]=icon-ru\n")));
    qputenv("LC_ALL", locale);
    const VelaUIDesktopEntry entry(scratchFile(QStringLiteral("l.desktop")));
    QCOMPARE(entry.getLocalName(), name);
    QCOMPARE(entry.getName(), QStringLiteral("plain"));
    const bool russian = name == QLatin1String("ru");
    QCOMPARE(entry.getLocalComment(),
             russian ? QString::fromUtf8("комментарий") : QStringLiteral("comment"));
    QCOMPARE(entry.getLocalIcon(), russian ? QStringLiteral("icon-ru") : QStringLiteral("icon"));
    QCOMPARE(entry.getLocalGenericName(), QStringLiteral("generic"));
}

void VelaUIDesktopEntryTest::localeVariables_data()
{
    QTest::addColumn<QByteArray>("all");
    QTest::addColumn<QByteArray>("messages");
    QTest::addColumn<QByteArray>("lang");
    QTest::addColumn<QString>("name");

    QTest::newRow("LC_ALL first") << QByteArray("ru_RU.UTF-8") << QByteArray("de_DE.UTF-8")
                                  << QByteArray("de_DE.UTF-8") << QString::fromUtf8("Сеть");
    QTest::newRow("then LC_MESSAGES") << QByteArray() << QByteArray("ru_RU.UTF-8")
                                      << QByteArray("de_DE.UTF-8") << QString::fromUtf8("Сеть");
    QTest::newRow("then LANG") << QByteArray() << QByteArray() << QByteArray("ru_UA.UTF-8")
                               << QString::fromUtf8("Сеть");
    QTest::newRow("C in LC_ALL wins") << QByteArray("C.UTF-8") << QByteArray("ru_RU.UTF-8")
                                      << QByteArray("ru_RU.UTF-8") << QStringLiteral("Network");
    QTest::newRow("none") << QByteArray() << QByteArray() << QByteArray()
                          << QStringLiteral("Network");
}

void VelaUIDesktopEntryTest::localeVariables()
{
    QFETCH(QByteArray, all);
    QFETCH(QByteArray, messages);
    QFETCH(QByteArray, lang);
    QFETCH(QString, name);

    const auto set = [](const char *variable, const QByteArray &value) {
        if (value.isEmpty())
            qunsetenv(variable);
        else
            qputenv(variable, value);
    };
    set("LC_ALL", all);
    set("LC_MESSAGES", messages);
    set("LANG", lang);
    // A Debian entry with Name[ru] and no Name[ru_RU].
    const VelaUIDesktopEntry entry(debianEntry(QStringLiteral("nm-applet.desktop")));
    QCOMPARE(entry.getLocalName(), name);
}

void VelaUIDesktopEntryTest::localSetters_data()
{
    QTest::addColumn<QByteArray>("locale");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("after");

    QTest::newRow("overwrites the key it reads from")
        << QByteArray("ru_RU.UTF-8") << QByteArray("Name=N\nName[ru]=old\n")
        << QStringLiteral("new") << QByteArray("Name=N\nName[ru]=new\n");
    QTest::newRow("no localized key: the full locale's")
        << QByteArray("ru_RU.UTF-8") << QByteArray("Name=N\n") << QStringLiteral("new")
        << QByteArray("Name=N\nName[ru_RU]=new\n");
    QTest::newRow("modifier kept, encoding dropped")
        << QByteArray("sr_RS.UTF-8@latin") << QByteArray("Name=N\n") << QStringLiteral("new")
        << QByteArray("Name=N\nName[sr_RS@latin]=new\n");
    QTest::newRow("the value it reads changes nothing")
        << QByteArray("ru_RU.UTF-8") << QByteArray("Name=N\n") << QStringLiteral("N")
        << QByteArray("Name=N\n");
    QTest::newRow("empty removes the localized key")
        << QByteArray("ru_RU.UTF-8") << QByteArray("Name=N\nName[ru]=old\n") << QString()
        << QByteArray("Name=N\n");
    QTest::newRow("empty without a localized key changes nothing")
        << QByteArray("ru_RU.UTF-8") << QByteArray("Name=N\n") << QString()
        << QByteArray("Name=N\n");
    QTest::newRow("the C locale has no localized key to write")
        << QByteArray("C.UTF-8") << QByteArray("Name=N\n") << QStringLiteral("new")
        << QByteArray("Name=N\n");
}

void VelaUIDesktopEntryTest::localSetters()
{
    QFETCH(QByteArray, locale);
    QFETCH(QByteArray, before);
    QFETCH(QString, value);
    QFETCH(QByteArray, after);

    const QString file = scratchFile(QStringLiteral("s.desktop"));
    QVERIFY(ZqlTest::writeBytes(file, entryText(before)));
    qputenv("LC_ALL", locale);
    VelaUIDesktopEntry entry(file);
    entry.setLocalName(value);
    QVERIFY2(entry.save(), qPrintable(entry.errorString()));
    QCOMPARE(ZqlTest::readBytes(file), entryText(after));
}

void VelaUIDesktopEntryTest::saveKeepsWhatItDidNotTouch_data()
{
    QTest::addColumn<QString>("file");
    const QDir fixtures(ZqlTest::debianEntriesDir());
    const QStringList files = fixtures.entryList({QStringLiteral("*.desktop")}, QDir::Files);
    QVERIFY(files.size() >= 6);
    for (const QString &file : files)
        QTest::newRow(qPrintable(file)) << file;
}

void VelaUIDesktopEntryTest::saveKeepsWhatItDidNotTouch()
{
    QFETCH(QString, file);

    const QString path = scratchFile(file);
    QVERIFY(ZqlTest::copyFile(debianEntry(file), path));
    const ParsedEntry before = parseEntry(path);
    QVERIFY2(before.parsed, qPrintable(before.error));
    const bool validBefore = ZqlTest::validateEntry(path).passes();

    // Unchanged: the same groups, keys, values and comments.
    {
        VelaUIDesktopEntry entry(path);
        QVERIFY2(entry.save(), qPrintable(entry.errorString()));
    }
    ParsedEntry after = parseEntry(path);
    QCOMPARE(after.groups, before.groups);
    QCOMPARE(after.values, before.values);
    QCOMPARE(after.comments, before.comments);
    QCOMPARE(ZqlTest::validateEntry(path).passes(), validBefore);

    // One key changed and one added: only they differ.
    {
        VelaUIDesktopEntry entry(path);
        entry.setComment(QStringLiteral("changed"));
        entry.setEntry(QStringLiteral("X-VELA-Delay"), QStringLiteral("5"));
        QVERIFY2(entry.save(), qPrintable(entry.errorString()));
    }
    after = parseEntry(path);
    QCOMPARE(after.groups, before.groups);
    QMap<QString, QMap<QString, QString>> expected = before.values;
    expected[MainGroup][QStringLiteral("Comment")] = QStringLiteral("changed");
    expected[MainGroup][QStringLiteral("X-VELA-Delay")] = QStringLiteral("5");
    QCOMPARE(after.values, expected);
    QCOMPARE(after.comments, before.comments);
    QCOMPARE(ZqlTest::validateEntry(path).passes(), validBefore);
    // Nothing but the entry is left in the folder (no temporary or lock file).
    QCOMPARE(scratchFiles(), QStringList{file});
}

void VelaUIDesktopEntryTest::newEntryPassesValidation()
{
    const QString path = scratchFile(QStringLiteral("new.desktop"));
    VelaUIDesktopEntry entry(path);
    QVERIFY(!entry.errorString().isEmpty()); // no file yet
    QCOMPARE(entry.getName(), QString());
    entry.setType(QStringLiteral("Application"));
    entry.setName(QStringLiteral("Browser"));
    entry.setGenericName(QStringLiteral("Web browser"));
    entry.setComment(QString::fromUtf8("Просмотр веб-страниц"));
    entry.setIcon(QStringLiteral("web-browser"));
    entry.setOnlyShowIn({QStringLiteral("vela-kiosk")});
    entry.setPath(QStringLiteral("/var/tmp"));
    entry.setTryExec(QStringLiteral("/usr/bin/firefox"));
    entry.setExec(QStringLiteral("firejail --private /usr/bin/firefox %u"));
    entry.setEntry(QStringLiteral("X-GNOME-Autostart-Phase"), QStringLiteral("Desktop"));
    QVERIFY2(entry.save(), qPrintable(entry.errorString()));
    QCOMPARE(entry.errorString(), QString());

    QCOMPARE(ZqlTest::readBytes(path), entryText("Type=Application\n"
                                                 "Name=Browser\n"
                                                 "GenericName=Web browser\n"
                                                 "Comment=Просмотр веб-страниц\n"
                                                 "Icon=web-browser\n"
                                                 "OnlyShowIn=vela-kiosk;\n"
                                                 "Path=/var/tmp\n"
                                                 "TryExec=/usr/bin/firefox\n"
                                                 "Exec=firejail --private /usr/bin/firefox %u\n"
                                                 "X-GNOME-Autostart-Phase=Desktop\n"));
    const ZqlTest::Validation validation = ZqlTest::validateEntry(path);
    QVERIFY2(validation.clean(), validation.output.constData());
    // Readable by the desktop sessions: 0644 under the usual umask 022.
    const QFile::Permissions permissions = QFileInfo(path).permissions();
    QVERIFY(permissions.testFlag(QFile::ReadGroup));
    QVERIFY(permissions.testFlag(QFile::ReadOther));
    QVERIFY(!permissions.testFlag(QFile::WriteOther));

    const VelaUIDesktopEntry read(path);
    QCOMPARE(read.getOnlyShowIn(), QStringList{QStringLiteral("vela-kiosk")});
    QCOMPARE(read.getComment(), QString::fromUtf8("Просмотр веб-страниц"));
}

void VelaUIDesktopEntryTest::escapesAndLists()
{
    const QString path = scratchFile(QStringLiteral("e.desktop"));
    const QString comment = QStringLiteral("  two lines\nwith a\ttab and a \\ backslash");
    const QStringList desktops{QStringLiteral("a;b"), QStringLiteral("vela-kiosk"),
                               QStringLiteral("c\\d")};
    {
        VelaUIDesktopEntry entry(path);
        entry.setComment(comment);
        entry.setOnlyShowIn(desktops);
        QVERIFY(entry.save());
    }
    const QByteArray text = ZqlTest::readBytes(path);
    // One line per key: the line feed is escaped.
    QCOMPARE(text.count('\n'), 3);
    const VelaUIDesktopEntry entry(path);
    QCOMPARE(entry.getComment(), comment);
    QCOMPARE(entry.getOnlyShowIn(), desktops);
}

void VelaUIDesktopEntryTest::emptyTextRemovesTheKey()
{
    const QString path = scratchFile(QStringLiteral("r.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\nIcon=i\nOnlyShowIn=a;\nX-A=1\n")));
    VelaUIDesktopEntry entry(path);
    entry.setIcon(QString());
    entry.setOnlyShowIn({});
    entry.setEntry(QStringLiteral("X-A"), QString());
    QVERIFY(entry.save());
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=N\n"));
}

void VelaUIDesktopEntryTest::invalidKeyNames()
{
    const QString path = scratchFile(QStringLiteral("k.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\nName[ru]=R\n")));
    VelaUIDesktopEntry entry(path);
    QCOMPARE(entry.getEntry(QStringLiteral("Name[ru]")), QStringLiteral("R"));
    for (const QString &key :
         {QString(), QStringLiteral("a=b"), QStringLiteral("a b"), QStringLiteral("[ru]"),
          QStringLiteral("a[ru"), QStringLiteral("a[]"), QStringLiteral("a\nb"),
          QString::fromUtf8("ключ"), QStringLiteral("a[r]u]")}) {
        entry.setEntry(key, QStringLiteral("x"));
        QCOMPARE(entry.getEntry(key), QString());
    }
    QVERIFY(entry.save());
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=N\nName[ru]=R\n"));
}

void VelaUIDesktopEntryTest::damagedFile_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("no group header") << QByteArray("Name=N\nExec=app\n");
    QTest::newRow("invalid UTF-8 in a value")
        << QByteArray("[Desktop Entry]\nName=\xff\xfe\nOnlyShowIn=vela-kiosk;\n");
    QTest::newRow("invalid UTF-8 in a key")
        << QByteArray("[Desktop Entry]\nNa\xc3me=N\nOnlyShowIn=vela-kiosk;\n");
    QTest::newRow("a line that is no key") << QByteArray("[Desktop Entry]\nName\n");
    QTest::newRow("unterminated group") << QByteArray("[Desktop Entry\nName=N\n");
    QTest::newRow("binary") << QByteArray("\x7f"
                                          "ELF\x02\x01\x01\0\0\0",
                                          10);
    QTest::newRow("too large") << QByteArray("[Desktop Entry]\nName=N\n") +
                                      QByteArray(5 * 1024 * 1024, '#');
}

void VelaUIDesktopEntryTest::damagedFile()
{
    QFETCH(QByteArray, content);

    const QString path = scratchFile(QStringLiteral("d.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, content));
    VelaUIDesktopEntry entry(path);
    QVERIFY(!entry.errorString().isEmpty());
    QVERIFY(entry.errorString().contains(path));
    QVERIFY(!entry.load());
    QCOMPARE(entry.getName(), QString());
    QCOMPARE(entry.getLocalName(), QString());
    QCOMPARE(entry.getType(), QString());
    QCOMPARE(entry.getOnlyShowIn(), QStringList());
    QCOMPARE(entry.getExec(), QString());
    // The file stays as it was until the entry is saved.
    QCOMPARE(ZqlTest::readBytes(path), content);
    entry.setName(QStringLiteral("repaired"));
    QVERIFY(entry.save());
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=repaired\n"));
}

void VelaUIDesktopEntryTest::readOnlyDirectory()
{
    const QString path = scratchFile(QStringLiteral("ro.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\n")));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(Scratch, &error), qPrintable(error));
    VelaUIDesktopEntry entry(path);
    entry.setName(QStringLiteral("changed"));
    QVERIFY(!entry.save());
    QVERIFY2(entry.errorString().contains(path), qPrintable(entry.errorString()));
    VelaUIDesktopEntry added(scratchFile(QStringLiteral("new.desktop")));
    added.setName(QStringLiteral("new"));
    QVERIFY(!added.save());
    QVERIFY(ZqlTest::unmount(Scratch, &error));
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=N\n"));
    QCOMPARE(scratchFiles(), QStringList{QStringLiteral("ro.desktop")});
}

void VelaUIDesktopEntryTest::readOnlyFile()
{
    const QString path = scratchFile(QStringLiteral("ro.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\n")));
    QString error;
    QVERIFY2(ZqlTest::bindReadOnly(path, &error), qPrintable(error));
    VelaUIDesktopEntry entry(path);
    QCOMPARE(entry.getName(), QStringLiteral("N"));
    entry.setName(QStringLiteral("changed"));
    QVERIFY(!entry.save());
    QVERIFY(!entry.errorString().isEmpty());
    QVERIFY(ZqlTest::unmount(path, &error));
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=N\n"));
    QCOMPARE(scratchFiles(), QStringList{QStringLiteral("ro.desktop")});
}

void VelaUIDesktopEntryTest::missingDirectory()
{
    VelaUIDesktopEntry entry(QStringLiteral("/tmp/desktop-entries/none/x.desktop"));
    entry.setName(QStringLiteral("N"));
    QVERIFY(!entry.save());
    QVERIFY(!entry.errorString().isEmpty());
    QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/desktop-entries/none")));
}

void VelaUIDesktopEntryTest::fullFileSystem()
{
    QString error;
    QVERIFY2(ZqlTest::mountTmpfs(Scratch, QStringLiteral("size=8k"), &error), qPrintable(error));
    const QString path = scratchFile(QStringLiteral("full.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\n")));
    VelaUIDesktopEntry entry(path);
    entry.setComment(QString(64 * 1024, QLatin1Char('x')));
    QVERIFY(!entry.save());
    QVERIFY(!entry.errorString().isEmpty());
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=N\n"));
    QCOMPARE(scratchFiles(), QStringList{QStringLiteral("full.desktop")});
}

void VelaUIDesktopEntryTest::changedBySomeoneElse()
{
    const QString path = scratchFile(QStringLiteral("c.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\n")));
    VelaUIDesktopEntry entry(path);
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=other\n")));
    entry.setComment(QStringLiteral("mine"));
    QVERIFY(!entry.save());
    QVERIFY(entry.errorString().contains(QLatin1String("changed")));
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=other\n"));
    // Read again, the entry can be saved.
    QVERIFY(entry.load());
    entry.setComment(QStringLiteral("mine"));
    QVERIFY(entry.save());
    QCOMPARE(ZqlTest::readBytes(path), entryText("Name=other\nComment=mine\n"));

    // A file that appeared after a missing one was read, or went away, is a change too.
    const QString appearing = scratchFile(QStringLiteral("a.desktop"));
    VelaUIDesktopEntry fresh(appearing);
    QVERIFY(ZqlTest::writeBytes(appearing, entryText("Name=first\n")));
    fresh.setName(QStringLiteral("second"));
    QVERIFY(!fresh.save());
    QCOMPARE(ZqlTest::readBytes(appearing), entryText("Name=first\n"));
    QVERIFY(QFile::remove(path));
    QVERIFY(!entry.save());
    QVERIFY(!QFileInfo::exists(path));
}

void VelaUIDesktopEntryTest::loadDropsChanges()
{
    const QString path = scratchFile(QStringLiteral("l.desktop"));
    QVERIFY(ZqlTest::writeBytes(path, entryText("Name=N\n")));
    VelaUIDesktopEntry entry(path);
    entry.setName(QStringLiteral("changed"));
    QCOMPARE(entry.getName(), QStringLiteral("changed"));
    QVERIFY(entry.load());
    QCOMPARE(entry.getName(), QStringLiteral("N"));
    QVERIFY(QFile::remove(path));
    QVERIFY(!entry.load());
    QCOMPARE(entry.getName(), QString());
}

void VelaUIDesktopEntryTest::copyFrom()
{
    const QString link = scratchFile(QStringLiteral("link.desktop"));
    QVERIFY(ZqlTest::copyFile(debianEntry(QStringLiteral("debian-homepage.desktop")), link));
    const QString target = debianEntry(QStringLiteral("org.gnome.Terminal.desktop"));
    VelaUIDesktopEntry entry(link);
    const VelaUIDesktopEntry source(target);
    entry.copyFrom(source);
    entry.copyFrom(entry);
    QCOMPARE(entry.fileName(), link);
    QCOMPARE(entry.getType(), QStringLiteral("Application"));
    QCOMPARE(entry.getExec(), QStringLiteral("gnome-terminal"));
    QCOMPARE(entry.getURL(), QString());
    QVERIFY(entry.save());
    const ParsedEntry copied = parseEntry(link);
    const ParsedEntry original = parseEntry(target);
    QCOMPARE(copied.groups, original.groups);
    QCOMPARE(copied.values, original.values);
    // The source is untouched.
    QCOMPARE(source.getType(), QStringLiteral("Application"));
}

ZQL_SANDBOXED_TEST_MAIN(VelaUIDesktopEntryTest)
#include "velauidesktopentrytest.moc"
