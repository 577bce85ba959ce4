#include "mickernel.h"

#include "configfileengine.h"
#include "kdx/kdx.h"
#include "mictools_p.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace {
const QString ControlTool = QStringLiteral("lumo-mic-control");
const QString EnableArgument = QStringLiteral("enable");
const QString LevelOption = QStringLiteral("-i");
const QString DisableArgument = QStringLiteral("disable");

const QString GrubFile = QStringLiteral("/etc/default/grub");
const QString GrubBackupFile = QStringLiteral("/etc/default/grub_backup");
const QString PylonFile = QStringLiteral("/boot/pylon/pylon.sh");
const QString BootDirectory = QStringLiteral("/boot");
const QString CmdlineFileName = QStringLiteral("cmdline.txt");
const QString RootBootScript = QStringLiteral("/boot.scr");
const QString BootScript = QStringLiteral("/boot/boot.scr");
const QString BootConfFile = QStringLiteral("/boot/boot.conf");
const QString BootConfBackupFile = QStringLiteral("/boot/boot.conf__backup");

const QByteArray GrubCmdlineKey = QByteArrayLiteral("GRUB_CMDLINE_LINUX_DEFAULT");
const QByteArray PylonParamsKey = QByteArrayLiteral("PARAMS");
const QByteArray BootArgsKey = QByteArrayLiteral("setenv bootargs");
const QString DefaultImageKey = QStringLiteral("default=");
const QString LabelKey = QStringLiteral("label=");
const QString CmdlineKey = QStringLiteral("cmdline=");

const QRegularExpression LevelPattern(QStringLiteral("tessel\\.max_ilev=(?<ilev>\\d+)"));
const QRegularExpression OldParameterPattern(QStringLiteral("\\s*tessel\\.max_ilev=\\d+"));
const QString ParameterFormat = QStringLiteral(" tessel.max_ilev=%1");
const QChar Quote = QLatin1Char('"');
const QChar LineFeed = QLatin1Char('\n');

const QString UpdateGrubShell = QStringLiteral("bash");
const QStringList UpdateGrubArguments{QStringLiteral("-c"), QStringLiteral("update-grub")};

constexpr quint8 HighLevel = 63;
constexpr quint8 QuillLevel = 127;
const QString LevelTextFormat = QStringLiteral("%1 - %2");

using LineFilter = bool (*)(const QByteArray &line);

// The level named by the lines of @p content that @p accepts; a later match overrides an
// earlier one. Only the first parameter of a line counts.
std::optional<int> levelInLines(const QByteArray &content, LineFilter accepts)
{
    std::optional<int> level;
    const QList<QByteArray> lines = content.split('\n');
    for (const QByteArray &line : lines) {
        if (!accepts(line))
            continue;
        const QRegularExpressionMatch match = LevelPattern.match(QString::fromUtf8(line));
        if (!match.hasMatch())
            continue;
        bool ok = false;
        const ushort value = match.captured(QStringLiteral("ilev")).toUShort(&ok, 10);
        if (ok)
            level = value;
    }
    return level;
}

bool isBootLoaderParamsLine(const QByteArray &line)
{
    return line.startsWith(GrubCmdlineKey) || line.startsWith(PylonParamsKey);
}

bool isAnyLine(const QByteArray & /*line*/)
{
    return true;
}

bool isBootArgsLine(const QByteArray &line)
{
    return line.startsWith(BootArgsKey);
}

// The last "cmdline.txt" under /boot in path order, so the choice does not depend on the order
// in which the file system lists a directory.
QString lastCmdlineFile()
{
    QStringList found;
    QDirIterator walk(BootDirectory, {CmdlineFileName}, QDir::Files | QDir::Hidden,
                      QDirIterator::Subdirectories);
    while (walk.hasNext())
        found << walk.next();
    if (found.isEmpty())
        return {};
    std::sort(found.begin(), found.end());
    return found.constLast();
}

// Removes every "tessel.max_ilev=N" of a kernel command line and appends @p level: inside the
// double quotes when the line has a quoted value, else at the end of the line.
QString withLevel(const QString &line, quint8 level)
{
    QString cleaned = line;
    cleaned.remove(OldParameterPattern);
    const QString parameter = ParameterFormat.arg(level);
    const int open = cleaned.indexOf(Quote);
    if (open < 0)
        return cleaned + parameter;
    const int close = cleaned.indexOf(Quote, open + 1);
    if (close < 0)
        return cleaned + parameter + Quote;
    return cleaned.left(close) + parameter + cleaned.mid(close);
}

// Reads @p path whole into lines, with the wording of @p missing and @p unreadable.
std::optional<QStringList> readLines(const QString &path, const QString &missing,
                                     const QString &unreadable, QString &errors)
{
    QFile file(path);
    if (!file.exists()) {
        errors = missing.arg(path);
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        errors = unreadable.arg(path);
        return std::nullopt;
    }
    return QString::fromUtf8(file.readAll()).split(LineFeed);
}

bool writeLines(const QString &path, const QStringList &lines)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray bytes = lines.join(LineFeed).toUtf8();
    return file.write(bytes) == bytes.size() && file.flush();
}

QString runUpdateGrub()
{
    const ProcessOutcome outcome = Mic::runControlTool(UpdateGrubShell, UpdateGrubArguments, -1);
    if (outcome.exitedWithZero())
        return {};
    return Mic::toolReturnedMessage(UpdateGrubShell, UpdateGrubArguments, outcome);
}

void appendText(QString &texts, const QString &text)
{
    if (text.isEmpty())
        return;
    if (!texts.isEmpty())
        texts += LineFeed;
    texts += text;
}

QString editGrubFile(quint8 level)
{
    QString errors;
    const std::optional<QStringList> read =
        readLines(GrubFile, QObject::tr("Can't find grub file: %1"),
                  QObject::tr("Can't open grub file: %1"), errors);
    if (!read)
        return errors;
    QStringList lines = *read;
    bool edited = false;
    for (QString &line : lines) {
        if (!line.startsWith(QLatin1String(GrubCmdlineKey)))
            continue;
        line = withLevel(line, level);
        edited = true;
    }
    if (!edited)
        return QObject::tr("Can't find 'GRUB_CMDLINE_LINUX_DEFAULT' in grub: %1").arg(GrubFile);
    if (!writeLines(GrubFile, lines))
        return QObject::tr("Can't open grub file: %1").arg(GrubFile);
    return runUpdateGrub();
}

QString editBootConfFile(quint8 level)
{
    QString errors;
    const std::optional<QStringList> read =
        readLines(BootConfFile, QObject::tr("Can't find boot file: %1"),
                  QObject::tr("Can't open boot file: %1"), errors);
    if (!read)
        return errors;
    QStringList lines = *read;
    QString defaultImage;
    bool haveDefault = false;
    for (const QString &line : qAsConst(lines)) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(DefaultImageKey)) {
            defaultImage = trimmed.mid(DefaultImageKey.size());
            haveDefault = true;
            break;
        }
    }
    if (!haveDefault)
        return QObject::tr("Can't find default image (default=<image label>) in boot file: %1")
            .arg(BootConfFile);
    bool inDefaultImage = false;
    bool edited = false;
    for (QString &line : lines) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith(LabelKey)) {
            inDefaultImage = trimmed.mid(LabelKey.size()) == defaultImage;
            continue;
        }
        if (inDefaultImage && trimmed.startsWith(CmdlineKey)) {
            line = withLevel(line, level);
            edited = true;
            break;
        }
    }
    if (!edited)
        return QObject::tr("Can't find 'cmdline=' in default image in boot file: %1")
            .arg(BootConfFile);
    if (!writeLines(BootConfFile, lines))
        return QObject::tr("Can't open boot file: %1").arg(BootConfFile);
    return {};
}

// Runs @p edit on @p path with a backup beside it; when the edit fails, the backup is put back
// and @p afterRestore runs (when given). @return every failure text.
QString editWithBackup(const QString &path, const QString &backup, QString (*edit)(quint8),
                       quint8 level, QString (*afterRestore)())
{
    QString copyErrors;
    if (!copyFile(path, backup, copyErrors))
        return QObject::tr("Can't copy %1 to %2").arg(path, backup);
    QString errors = edit(level);
    if (errors.isEmpty())
        return errors;
    if (QFile::exists(path) && !QFile::remove(path)) {
        appendText(errors, QObject::tr("Can't remove %1").arg(path));
        return errors;
    }
    if (!QFile::rename(backup, path))
        appendText(errors, QObject::tr("Can't rename %1 to %2").arg(backup, path));
    if (afterRestore != nullptr)
        appendText(errors, afterRestore());
    return errors;
}
} // namespace

namespace Mic {

struct MicKernelPrivate
{
    MicKernel::Status status = MicKernel::Loading;
    QString statusDescription;
    bool enabled = false;
    MicLevel currentLevel;
    MicLevel futureLevel;
    MicLevel defaultLevel;
    QList<MicLevel> levels;
    int toolTimeoutMs = -1;
};

MicKernel *MicKernel::instance()
{
    static MicKernel model;
    return &model;
}

MicKernel::MicKernel(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<MicKernelPrivate>())
{
    qRegisterMetaType<MicLevel>("MicLevel");
    qRegisterMetaType<Mic::MicKernel::Status>("Mic::MicKernel::Status");
    d->statusDescription = tr("Loading...");

    kdx_ilev_t *known = nullptr;
    const int count = kdx_get_ilevs(&known);
    for (int i = 0; i < count; ++i) {
        MicLevel entry;
        entry.level = known[i];
        char *name = kdx_ilev_get_text(known[i], 0);
        if (entry.level == HighLevel)
            entry.text = LevelTextFormat.arg(entry.level).arg(tr("High"));
        else if (entry.level == QuillLevel)
            entry.text = LevelTextFormat.arg(entry.level).arg(tr("Quill"));
        else if (name != nullptr && name[0] != '\0')
            entry.text = LevelTextFormat.arg(entry.level).arg(QString::fromUtf8(name));
        else
            entry.text = LevelTextFormat.arg(entry.level).arg(tr("Custom"));
        std::free(name);
        d->levels << entry;
    }
    std::free(known);

    const int running = kdx_get_max_ilev();
    d->currentLevel = levelFor(running > 0 ? static_cast<quint8>(running) : 0);
    d->defaultLevel = levelFor(DefaultLevel);
    if (d->defaultLevel.text == QString::number(DefaultLevel))
        d->defaultLevel.text = LevelTextFormat.arg(DefaultLevel).arg(tr("High"));
    update();
}

MicKernel::~MicKernel() = default;

MicKernel::Status MicKernel::status() const
{
    return d->status;
}

QString MicKernel::statusDescription() const
{
    return d->statusDescription;
}

bool MicKernel::isEnabled() const
{
    return d->enabled;
}

MicLevel MicKernel::currentLevel() const
{
    return d->currentLevel;
}

MicLevel MicKernel::futureLevel() const
{
    return d->futureLevel;
}

MicLevel MicKernel::defaultLevel() const
{
    return d->defaultLevel;
}

QList<MicLevel> MicKernel::levels() const
{
    return d->levels;
}

MicLevel MicKernel::levelFor(quint8 level) const
{
    for (const MicLevel &entry : qAsConst(d->levels)) {
        if (entry.level == level)
            return entry;
    }
    MicLevel unknown;
    unknown.level = level;
    unknown.text = QString::number(level);
    return unknown;
}

int MicKernel::toolTimeoutMs() const
{
    return d->toolTimeoutMs;
}

void MicKernel::setToolTimeoutMs(int timeoutMs)
{
    d->toolTimeoutMs = timeoutMs;
}

int MicKernel::configuredLevel()
{
    QString candidate = GrubFile;
    LineFilter accepts = isBootLoaderParamsLine;
    if (QFileInfo::exists(PylonFile)) {
        candidate = PylonFile;
    } else {
        const QString cmdline = lastCmdlineFile();
        if (!cmdline.isEmpty()) {
            candidate = cmdline;
            accepts = isAnyLine;
        }
    }

    QFile file(candidate);
    if (file.exists()) {
        if (!file.open(QIODevice::ReadOnly))
            return UnconfiguredLevel;
        return levelInLines(file.readAll(), accepts).value_or(UnconfiguredLevel);
    }

    QFile script(QFileInfo::exists(RootBootScript) ? RootBootScript : BootScript);
    if (!script.exists() || !script.open(QIODevice::ReadOnly))
        return UnconfiguredLevel;
    return levelInLines(script.readAll(), isBootArgsLine).value_or(UnconfiguredLevel);
}

QString MicKernel::setGrubMaxLevel(quint8 level)
{
    return editWithBackup(GrubFile, GrubBackupFile, editGrubFile, level, runUpdateGrub);
}

QString MicKernel::setBootConfMaxLevel(quint8 level)
{
    return editWithBackup(BootConfFile, BootConfBackupFile, editBootConfFile, level, nullptr);
}

void MicKernel::update()
{
    refreshFutureLevel();
    recomputeStatus();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the slot takes the level by value
void MicKernel::enable(MicLevel level)
{
    if (d->status == WillBeEnabled) {
        Q_EMIT warning(tr("MIC enabling already planned after reboot."));
        return;
    }
    runControl({EnableArgument, LevelOption, QString::number(level.level)});
    update();
}

void MicKernel::enable()
{
    enable(d->defaultLevel);
}

void MicKernel::disable()
{
    if (d->status == WillBeDisabled) {
        Q_EMIT warning(tr("MIC disabling already planned after reboot."));
        return;
    }
    runControl({DisableArgument});
    update();
}

// A crash, a failed start or an unfinished run is an error; text on standard error of a run
// that exited (whatever its code) is a warning.
QString MicKernel::runControl(const QStringList &arguments)
{
    const ProcessOutcome outcome = runControlTool(ControlTool, arguments, d->toolTimeoutMs);
    if (!outcome.exited())
        Q_EMIT error(toolReturnedMessage(ControlTool, arguments, outcome));
    else if (!outcome.standardError.isEmpty())
        Q_EMIT warning(QString::fromUtf8(outcome.standardError));
    return QString::fromUtf8(outcome.standardOutput);
}

void MicKernel::refreshFutureLevel()
{
    const auto level = static_cast<quint8>(configuredLevel());
    if (d->levels.isEmpty() || level != d->futureLevel.level) {
        d->futureLevel = levelFor(level);
        Q_EMIT futureLevelChanged(d->futureLevel);
    }
    if (level != 0 && !d->enabled) {
        d->enabled = true;
        Q_EMIT enabledChanged(true);
    }
}

void MicKernel::recomputeStatus()
{
    const bool activeNow = d->currentLevel.level != 0;
    const bool activeNext = d->futureLevel.level != 0;
    Status next = Disabled;
    if (activeNow)
        next = activeNext ? Enabled : WillBeDisabled;
    else if (activeNext)
        next = WillBeEnabled;
    if (next == d->status)
        return;
    d->status = next;
    Q_EMIT statusChanged(next);
    switch (next) {
    case Loading:
        d->statusDescription = tr("Loading...");
        break;
    case Enabled:
        d->statusDescription = tr("Subsystem is <b>enabled</b>");
        break;
    case Disabled:
        d->statusDescription = tr("Subsystem is <b>disabled</b>");
        break;
    case WillBeEnabled:
        d->statusDescription =
            tr("Subsystem is disabled, but it will be <b>enabled after reboot</b>");
        break;
    case WillBeDisabled:
        d->statusDescription =
            tr("Subsystem is enabled, but it will be <b>disabled after reboot</b>");
        break;
    }
    Q_EMIT statusDescriptionChanged(d->statusDescription);
    d->enabled = next == Enabled || next == WillBeEnabled;
    Q_EMIT enabledChanged(d->enabled);
}

} // namespace Mic
