#include "kioskglobalmodule.h"

#include "commandline.h"
#include "diagnosticstreams_p.h"
#include "velaui/velauidesktopentry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStringList>
#include <QUrl>

namespace {
const QString ModuleName = QStringLiteral("kiosk-global");
const QString AutostartAppsKey = QStringLiteral("autostartApps");
const QString ScreenLockKey = QStringLiteral("screenLock");

const QString AutostartDirectory = QStringLiteral("/etc/xdg/autostart");
const QString DesktopFilePattern = QStringLiteral("*.desktop");
const QString KioskDesktop = QStringLiteral("vela-kiosk");
const QString HomePrefix = QStringLiteral("/home");

// The keys of an entry map.
const QString DesktopFileNameKey = QStringLiteral("desktopFileName");
const QString NameKey = QStringLiteral("Name");
const QString LocalNameKey = QStringLiteral("LocalName");
const QString GenericNameKey = QStringLiteral("GenericName");
const QString LocalGenericNameKey = QStringLiteral("LocalGenericName");
const QString IconKey = QStringLiteral("Icon");
const QString LocalIconKey = QStringLiteral("LocalIcon");
const QString CommentKey = QStringLiteral("Comment");
const QString LocalCommentKey = QStringLiteral("LocalComment");
const QString OnlyShowInKey = QStringLiteral("OnlyShowIn");
const QString PathKey = QStringLiteral("Path");
const QString TryExecKey = QStringLiteral("TryExec");
const QString AutostartPhaseKey = QStringLiteral("X-GNOME-Autostart-Phase");
const QString DelayKey = QStringLiteral("X-VELA-Delay");
const QString ExecKey = QStringLiteral("Exec");
const QString SandboxKey = QStringLiteral("sandbox");
const QString SandboxArgsKey = QStringLiteral("sandboxArgs");
const QString TypeKey = QStringLiteral("Type");

const QString DefaultAutostartPhase = QStringLiteral("Applications");
const QString ApplicationType = QStringLiteral("Application");
const QString LinkType = QStringLiteral("Link");
const QString SandboxProgram = QStringLiteral("firejail");
const QString SandboxOptionPrefix = QStringLiteral("--");
const QString FileManagerUrlPrefix = QStringLiteral("vela-fm");
const QString FileManagerCommand = QStringLiteral("vela-fm");
const QString FileUrlScheme = QStringLiteral("file://");
const QChar WordSeparator = QLatin1Char(' ');

const QString LockerFile = QStringLiteral("/etc/vela-kiosk/.config/lockerrc/lockerrc");
const QString LockerOnSuffix = QStringLiteral(".on");
const QString LockerOffSuffix = QStringLiteral(".off");
const QString ScreenSaverDelayKey = QStringLiteral("Variables/ScreenSaverDelay");
constexpr int MissingScreenSaverDelay = -1;

// The text fields that map one to one onto the entry's getters and setters.
struct TextField
{
    const QString &key;
    QString (VelaUIDesktopEntry::*get)() const;
    void (VelaUIDesktopEntry::*set)(const QString &);
};

const TextField TextFields[] = {
    {NameKey, &VelaUIDesktopEntry::getName, &VelaUIDesktopEntry::setName},
    {LocalNameKey, &VelaUIDesktopEntry::getLocalName, &VelaUIDesktopEntry::setLocalName},
    {GenericNameKey, &VelaUIDesktopEntry::getGenericName, &VelaUIDesktopEntry::setGenericName},
    {LocalGenericNameKey, &VelaUIDesktopEntry::getLocalGenericName,
     &VelaUIDesktopEntry::setLocalGenericName},
    {IconKey, &VelaUIDesktopEntry::getIcon, &VelaUIDesktopEntry::setIcon},
    {LocalIconKey, &VelaUIDesktopEntry::getLocalIcon, &VelaUIDesktopEntry::setLocalIcon},
    {CommentKey, &VelaUIDesktopEntry::getComment, &VelaUIDesktopEntry::setComment},
    {LocalCommentKey, &VelaUIDesktopEntry::getLocalComment, &VelaUIDesktopEntry::setLocalComment},
    {PathKey, &VelaUIDesktopEntry::getPath, &VelaUIDesktopEntry::setPath},
    {TryExecKey, &VelaUIDesktopEntry::getTryExec, &VelaUIDesktopEntry::setTryExec},
};

// The autostart entries: regular files (hidden ones too) named *.desktop, unsorted.
QFileInfoList autostartFiles()
{
    const QDir directory(AutostartDirectory);
    return directory.entryInfoList(
        {DesktopFilePattern}, QDir::Files | QDir::Hidden | QDir::CaseSensitive, QDir::Unsorted);
}

// The file a Link entry names: an absolute path or a file:// URL.
QString linkTarget(const QString &url)
{
    QString path = url;
    if (path.startsWith(FileUrlScheme))
        path = QUrl(url).toLocalFile();
    return QFileInfo(path).isAbsolute() ? path : QString();
}

QVariantMap entryMap(const QFileInfo &file, bool kioskOnly, bool *keep)
{
    VelaUIDesktopEntry entry(file.absoluteFilePath());
    entry.load();
    if (entry.getType() == LinkType) {
        const QString target = linkTarget(entry.getURL());
        if (!target.isEmpty() && QFileInfo::exists(target)) {
            VelaUIDesktopEntry targetEntry(target);
            targetEntry.load();
            entry.copyFrom(targetEntry);
        }
    }

    QVariantMap map;
    for (const TextField &field : TextFields)
        map.insert(field.key, (entry.*field.get)());
    map.insert(OnlyShowInKey, entry.getOnlyShowIn());
    const QString phase = entry.getEntry(AutostartPhaseKey);
    map.insert(AutostartPhaseKey, phase.isEmpty() ? DefaultAutostartPhase : phase);
    bool isNumber = false;
    const int delay = entry.getEntry(DelayKey).toInt(&isNumber, 10);
    map.insert(DelayKey, isNumber ? delay : 0);

    const QString exec = entry.getExec();
    QString command;
    QStringList sandboxArgs;
    const bool sandbox = exec.startsWith(SandboxProgram);
    if (sandbox) {
        QStringList words = exec.split(WordSeparator, Qt::SkipEmptyParts);
        words.removeFirst();
        while (!words.isEmpty() && words.first().startsWith(SandboxOptionPrefix))
            sandboxArgs << words.takeFirst();
        command = words.join(WordSeparator);
    } else {
        command = exec;
        if (command.isEmpty() && entry.getURL().startsWith(FileManagerUrlPrefix))
            command = FileManagerCommand;
    }
    // Programs are resolved for entries under a home directory only; the system's autostart
    // directory keeps its commands as written.
    if (AutostartDirectory.startsWith(HomePrefix) && !command.isEmpty())
        command = CommandLine(command).command();

    map.insert(SandboxKey, sandbox);
    map.insert(SandboxArgsKey, sandboxArgs);
    map.insert(ExecKey, command);
    map.insert(TypeKey, ApplicationType);
    map.insert(DesktopFileNameKey, file.fileName());
    *keep = !kioskOnly || entry.getOnlyShowIn().contains(KioskDesktop);
    return map;
}

// A file name of the autostart directory itself: no path, no "." or "..".
bool isPlainFileName(const QString &name)
{
    return !name.isEmpty() && name != QLatin1String(".") && name != QLatin1String("..") &&
           !name.contains(QLatin1Char('/'));
}
} // namespace

KioskGlobalModule::KioskGlobalModule() = default;

KioskGlobalModule::~KioskGlobalModule() = default;

SettingsReply KioskGlobalModule::getSettings()
{
    return {StatusSuccess,
            {{AutostartAppsKey, getDesktopEntries(true)}, {ScreenLockKey, getScreenLockState()}}};
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the settings by value
bool KioskGlobalModule::setSettings(QHash<QString, QVariant> settings)
{
    if (!setDesktopEntries(settings.value(AutostartAppsKey).toList())) {
        const QString message =
            QCoreApplication::translate("KioskGlobalModule", "Unable to write files to \"%1\"")
                .arg(AutostartDirectory);
        writeDiagnostic(errorStream, formatOutput(message));
        return true;
    }
    setScreenLockState(settings.value(ScreenLockKey).toBool());
    return false;
}

QString KioskGlobalModule::getName()
{
    return ModuleName;
}

bool KioskGlobalModule::isAvailable()
{
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the contract takes the set by value
QStringList KioskGlobalModule::isParametersCorrect(QSet<QString> /*parameters*/)
{
    return {};
}

QList<QVariant> KioskGlobalModule::getDesktopEntries(bool kioskOnly)
{
    QList<QVariant> entries;
    const QFileInfoList files = autostartFiles();
    for (const QFileInfo &file : files) {
        bool keep = false;
        const QVariantMap map = entryMap(file, kioskOnly, &keep);
        if (keep)
            entries.append(map);
    }
    return entries;
}

bool KioskGlobalModule::setDesktopEntry(const QMap<QString, QVariant> &entry)
{
    // Only a file of the autostart directory: a name with a path would write elsewhere.
    const QString fileName = entry.value(DesktopFileNameKey).toString();
    if (!isPlainFileName(fileName))
        return false;
    VelaUIDesktopEntry desktopEntry(QDir(AutostartDirectory).filePath(fileName));

    for (const TextField &field : TextFields)
        (desktopEntry.*field.set)(entry.value(field.key).toString());
    desktopEntry.setOnlyShowIn(entry.value(OnlyShowInKey).toStringList());
    const QString phase = entry.value(AutostartPhaseKey, DefaultAutostartPhase).toString();
    if (phase != DefaultAutostartPhase)
        desktopEntry.setEntry(AutostartPhaseKey, phase);
    const QVariant delay = entry.value(DelayKey);
    if (delay.toInt() != 0)
        desktopEntry.setEntry(DelayKey, delay.toString());

    const QString command = entry.value(ExecKey).toString();
    const QStringList sandboxArgs = entry.value(SandboxArgsKey).toStringList();
    QString exec = command;
    if (entry.value(SandboxKey).toBool()) {
        exec = sandboxArgs.isEmpty()
                   ? QStringLiteral("%1 %2").arg(SandboxProgram, command)
                   : QStringLiteral("%1 %2 %3")
                         .arg(SandboxProgram, sandboxArgs.join(WordSeparator), command);
    }
    desktopEntry.setExec(exec);
    desktopEntry.setType(ApplicationType);
    return desktopEntry.save();
}

bool KioskGlobalModule::setDesktopEntries(const QList<QVariant> &entries)
{
    removeDesktopEntries();
    bool saved = true;
    for (const QVariant &entry : entries)
        saved = setDesktopEntry(entry.toMap()) && saved;
    return saved;
}

void KioskGlobalModule::removeDesktopEntries()
{
    const QFileInfoList files = autostartFiles();
    for (const QFileInfo &file : files) {
        const VelaUIDesktopEntry entry(file.absoluteFilePath());
        if (entry.getOnlyShowIn().contains(KioskDesktop))
            QFile::remove(file.absoluteFilePath()); // a failure leaves the entry; not reported
    }
}

bool KioskGlobalModule::getScreenLockState()
{
    const QSettings locker(LockerFile, QSettings::IniFormat);
    return locker.value(ScreenSaverDelayKey, MissingScreenSaverDelay).toInt() != 0;
}

void KioskGlobalModule::setScreenLockState(bool on)
{
    // Neither step is checked: without its variant the locker is left without a file.
    QFile::remove(LockerFile);
    QFile::copy(LockerFile + (on ? LockerOnSuffix : LockerOffSuffix), LockerFile);
}
