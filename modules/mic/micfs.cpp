#include "micfs.h"

#include "configfileengine_p.h"
#include "kdx/kdx.h"
#include "mictools_p.h"
#include "savefile_p.h"

#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>

namespace {
const QString ConfigFile = QStringLiteral("/etc/tessel/fs-ilev.conf");
const QString SetFsIlev = QStringLiteral("/usr/sbin/set-fs-ilev");
const QString UnsetFsIlev = QStringLiteral("/usr/sbin/unset-fs-ilev");
const QString KdxlFile = QStringLiteral("/usr/sbin/kdxl-file");
const QString StatusArgument = QStringLiteral("status");
const QString DefconfigArgument = QStringLiteral("defconfig");
const QStringList ResetArguments{QStringLiteral("--recursive"), QStringLiteral("--reverse"),
                                 QStringLiteral(":0")};

const QRegularExpression ExceptionLine(QStringLiteral("^(?!#)exc\\s+(\\S+.*)$"));
const QRegularExpression ItemLine(QStringLiteral("^(?!#|exc)(\\S+)\\s+(\\S+.*)$"));
const QString ExceptionFormat = QStringLiteral("exc %1");
const QString ItemFormat = QStringLiteral("%1\t%2");
const QString TemporarySuffix = QStringLiteral(".XXXXXX");
const QChar LineFeed = QLatin1Char('\n');
const QChar Slash = QLatin1Char('/');

const QString MaxWord = QStringLiteral("max");
const QStringList BuiltInDirectories{
    QStringLiteral("/etc"),   QStringLiteral("/lib"),  QStringLiteral("/lib64"),
    QStringLiteral("/lib32"), QStringLiteral("/bin"),  QStringLiteral("/sbin"),
    QStringLiteral("/boot"),  QStringLiteral("/root"), QStringLiteral("/opt"),
    QStringLiteral("/srv"),   QStringLiteral("/usr")};
const QStringList BuiltInExceptions{QStringLiteral("/etc/xdg/autostart/vboxclient.desktop"),
                                    QStringLiteral("/etc/X11/Xsession.d/98vboxadd-xclient"),
                                    QStringLiteral("/etc/ld.so.*"),
                                    QStringLiteral("/etc/resolv.conf"),
                                    QStringLiteral("/root/.config/*"),
                                    QStringLiteral("/root/.gnupg/gpg-agent.conf")};

// One process-wide barrier that every slot passes at its start.
QMutex slotBarrier;

void passBarrier()
{
    const QMutexLocker lock(&slotBarrier);
}

// A path as the file writes it, with its trailing "/" dropped ("/" itself stays).
QString itemPath(const QString &path)
{
    if (path.size() > 1 && path.endsWith(Slash))
        return path.chopped(1);
    return path;
}

// The lines of a text; the line feed that ends the last line makes no empty line of its own.
QStringList textLines(const QString &text)
{
    QStringList lines = text.split(LineFeed);
    if (!lines.isEmpty() && lines.constLast().isEmpty())
        lines.removeLast();
    return lines;
}

// Items and exceptions of configuration lines.
void parseConfigLines(const QStringList &lines, Mic::MicItemHash &items, QStringList &exceptions)
{
    for (const QString &line : lines) {
        const QRegularExpressionMatch exception = ExceptionLine.match(line);
        if (exception.hasMatch()) {
            exceptions << exception.captured(1);
            continue;
        }
        const QRegularExpressionMatch item = ItemLine.match(line);
        if (item.hasMatch())
            items.insert(itemPath(item.captured(2)), item.captured(1));
    }
}

QString queryFailureText(BackgroundTool::Failure failure)
{
    switch (failure) {
    case BackgroundTool::Failure::FailedToStart:
        return QObject::tr("The process failed to start. Either the invoked program is missing, "
                           "or you may have insufficient permissions to invoke the program.");
    case BackgroundTool::Failure::Crashed:
        return QObject::tr("The process crashed some time after starting successfully.");
    case BackgroundTool::Failure::TimedOut:
        return QObject::tr("The last waitFor...() function timed out.");
    case BackgroundTool::Failure::ReadError:
        return QObject::tr("An error occurred when attempting to read from the process. For "
                           "example, the process may not be running.");
    case BackgroundTool::Failure::WriteError:
        return QObject::tr("An error occurred when attempting to write to the process. For "
                           "example, the process may not be running, or it may have closed its "
                           "input channel.");
    case BackgroundTool::Failure::Unknown:
        break;
    }
    return QObject::tr("An unknown error occurred.");
}
} // namespace

namespace Mic {

const QString MicFs::NoLevelWord = QStringLiteral("\u2014");

struct MicFsPrivate
{
    MicFs::Status status = MicFs::Loading;
    QString statusDescription;
    bool lastKnownEnabled = false;
    std::unique_ptr<BackgroundTool> query;
    MicItemHash currentItems;
    QStringList exceptionList;
    MicItemHash defaultItems;
    QStringList defaultExceptions;
    int toolTimeoutMs = -1;
};

MicFs *MicFs::instance()
{
    static MicFs model;
    return &model;
}

MicFs::MicFs(QObject *parent, int defconfigTimeoutMs)
    : QObject(parent)
    , d(std::make_unique<MicFsPrivate>())
{
    qRegisterMetaType<Mic::MicFs::Status>("Mic::MicFs::Status");
    qRegisterMetaType<Mic::MicItemHash>("Mic::MicItemHash");
    qRegisterMetaType<Mic::MicItemHash>("MicItemHash");
    d->statusDescription = tr("Loading filesystem status...");
    readDefaultConfig(defconfigTimeoutMs);
    update();
}

// The query tool, if still running, is asked to terminate and given its grace by the
// BackgroundTool.
MicFs::~MicFs() = default;

MicFs::Status MicFs::status() const
{
    return d->status;
}

QString MicFs::statusDescription() const
{
    return d->statusDescription;
}

bool MicFs::isEnabled() const
{
    // Enabled or EnabledPartly: the status with its bit 1 cleared.
    return (static_cast<int>(d->status) & ~2) == Enabled;
}

bool MicFs::lastKnownEnabled() const
{
    return d->lastKnownEnabled;
}

bool MicFs::isQueryRunning() const
{
    return d->query && d->query->isRunning();
}

MicItemHash MicFs::currentItems() const
{
    return d->currentItems;
}

QStringList MicFs::exceptionList() const
{
    return d->exceptionList;
}

MicItemHash MicFs::defaultItems() const
{
    return d->defaultItems;
}

QStringList MicFs::defaultExceptions() const
{
    return d->defaultExceptions;
}

int MicFs::toolTimeoutMs() const
{
    return d->toolTimeoutMs;
}

void MicFs::setToolTimeoutMs(int timeoutMs)
{
    d->toolTimeoutMs = timeoutMs;
}

int MicFs::pathLevel(const QString &path)
{
    kdx_label *label = kdx_get_path(path.toUtf8().constData());
    if (label == nullptr)
        return 0;
    const int level = kdxl_ilev(label);
    kdxl_put(label);
    return level;
}

void MicFs::update()
{
    passBarrier();
    readConfig();
    startStatusQuery();
}

void MicFs::enable()
{
    passBarrier();
    switchProtection(SetFsIlev, Enabled);
}

void MicFs::disable()
{
    passBarrier();
    switchProtection(UnsetFsIlev, Disabled);
}

void MicFs::updateConfig(QStringList exceptionList)
{
    passBarrier();
    QFile file(ConfigFile);
    if (!file.open(QIODevice::ReadOnly)) {
        Q_EMIT error(tr("Can't read file %1\n%2").arg(ConfigFile, file.errorString()));
        return;
    }
    QStringList lines;
    const QStringList oldLines = textLines(QString::fromUtf8(file.readAll()));
    for (const QString &line : oldLines) {
        if (!ExceptionLine.match(line).hasMatch())
            lines << line;
    }
    for (const QString &exception : qAsConst(exceptionList))
        lines << ExceptionFormat.arg(exception);
    lines << QString();
    if (!saveConfigLines(lines))
        return;
    d->exceptionList = exceptionList;
    Q_EMIT exceptionListChanged(d->exceptionList);
}

void MicFs::updateConfig(MicItemHash itemHash)
{
    passBarrier();
    QFile file(ConfigFile);
    if (!file.open(QIODevice::ReadOnly)) {
        Q_EMIT error(tr("Can't read file %1\n%2").arg(ConfigFile, file.errorString()));
        return;
    }
    MicItemHash items = d->currentItems;
    QStringList dropped;
    QStringList lines;
    const QStringList oldLines = textLines(QString::fromUtf8(file.readAll()));
    for (const QString &line : oldLines) {
        const QRegularExpressionMatch item = ItemLine.match(line);
        const QString path = item.hasMatch() ? itemPath(item.captured(2)) : QString();
        if (!item.hasMatch() || !itemHash.contains(path)) {
            lines << line;
            continue;
        }
        const QString word = itemHash.take(path);
        if (word == NoLevelWord) {
            // The line goes: the path no longer carries a level.
            items.remove(path);
            dropped << path;
            continue;
        }
        items.insert(path, word);
        lines << ItemFormat.arg(word, path);
    }
    for (auto it = itemHash.constBegin(); it != itemHash.constEnd(); ++it) {
        if (it.value() == NoLevelWord) {
            items.remove(it.key());
            continue;
        }
        items.insert(it.key(), it.value());
        lines << ItemFormat.arg(it.value(), it.key());
    }
    lines << QString();
    if (!saveConfigLines(lines))
        return;
    d->currentItems = items;
    // Labels are reset once the file no longer names the path, so a failed save resets nothing.
    for (const QString &path : qAsConst(dropped))
        resetLabels(path);
    Q_EMIT currentItemsChanged(d->currentItems);
}

void MicFs::setStatus(Status status)
{
    if (status == d->status)
        return;
    d->status = status;
    Q_EMIT statusChanged(status);
    switch (status) {
    case Loading:
        d->statusDescription = tr("Loading filesystem status...");
        break;
    case Enabled:
        d->statusDescription = tr("Filesystem is <b>protected</b>");
        break;
    case Disabled:
        d->statusDescription = tr("Filesystem is <b>not protected</b>");
        break;
    case EnabledPartly:
        d->statusDescription =
            tr("Filesystem is <b>partly protected</b><br><br>Some files have lower integrity "
               "than they should be.<br>Run \"set-fs-ilev status -v\" to see the list of files.");
        break;
    }
    Q_EMIT statusDescriptionChanged(d->statusDescription);
    if (status != Loading)
        d->lastKnownEnabled = isEnabled();
    Q_EMIT enabledChanged(isEnabled());
}

void MicFs::startStatusQuery()
{
    if (!d->query) {
        d->query = std::make_unique<BackgroundTool>(
            this,
            [this](int exitCode, bool crashed) {
                if (crashed) {
                    Q_EMIT error(queryFailureText(BackgroundTool::Failure::Crashed));
                    return;
                }
                if (exitCode == 0)
                    setStatus(Enabled);
                else if (exitCode == 2)
                    setStatus(EnabledPartly);
                else
                    setStatus(Disabled);
            },
            [this](BackgroundTool::Failure failure) { Q_EMIT error(queryFailureText(failure)); });
    }
    if (d->query->isRunning() || !d->query->onOwnThread())
        return;
    setStatus(Loading);
    d->query->start(SetFsIlev, {StatusArgument});
}

void MicFs::readConfig()
{
    MicItemHash items;
    QStringList exceptions;
    QFile file(ConfigFile);
    if (file.open(QIODevice::ReadOnly))
        parseConfigLines(textLines(QString::fromUtf8(file.readAll())), items, exceptions);
    d->currentItems = items;
    d->exceptionList = exceptions;
    Q_EMIT currentItemsChanged(d->currentItems);
    Q_EMIT exceptionListChanged(d->exceptionList);
}

// The built-in directories at "max" and the built-in exceptions, with what the tool prints
// on top: its word wins for a directory both name, its exceptions follow the built-in ones.
void MicFs::readDefaultConfig(int timeoutMs)
{
    for (const QString &directory : BuiltInDirectories)
        d->defaultItems.insert(directory, MaxWord);
    d->defaultExceptions = BuiltInExceptions;

    const QStringList arguments{DefconfigArgument};
    const ProcessOutcome outcome = runControlTool(SetFsIlev, arguments, timeoutMs);
    if (!outcome.exitedWithZero())
        return;
    MicItemHash items;
    QStringList exceptions;
    parseConfigLines(textLines(QString::fromUtf8(outcome.standardOutput)), items, exceptions);
    for (auto it = items.constBegin(); it != items.constEnd(); ++it)
        d->defaultItems.insert(it.key(), it.value());
    for (const QString &exception : qAsConst(exceptions)) {
        if (!d->defaultExceptions.contains(exception))
            d->defaultExceptions << exception;
    }
}

bool MicFs::switchProtection(const QString &program, Status success)
{
    const ProcessOutcome outcome = runControlTool(program, {}, d->toolTimeoutMs);
    if (!outcome.exitedWithZero()) {
        Q_EMIT error(toolReturnedMessage(program, {}, outcome));
        return false;
    }
    setStatus(success);
    startStatusQuery();
    if (!outcome.standardError.isEmpty())
        Q_EMIT warning(QString::fromUtf8(outcome.standardError));
    return true;
}

bool MicFs::saveConfigLines(const QStringList &lines)
{
    SaveFile file(ConfigFile);
    if (!file.open(QIODevice::WriteOnly)) {
        Q_EMIT error(tr("Can't create temporary file %1\n%2")
                         .arg(ConfigFile + TemporarySuffix, file.errorString()));
        return false;
    }
    if (!file.saveWhole(lines.join(LineFeed).toUtf8())) {
        Q_EMIT error(tr("Can't write to file %1\n%2").arg(ConfigFile, file.errorString()));
        return false;
    }
    return true;
}

void MicFs::resetLabels(const QString &path)
{
    const QStringList arguments = ResetArguments + QStringList{path};
    const ProcessOutcome outcome = runControlTool(KdxlFile, arguments, d->toolTimeoutMs);
    if (outcome.exitedWithZero())
        return;
    Q_EMIT error(KdxlFile + QLatin1Char(' ') + arguments.join(QLatin1Char(' ')) +
                 QStringLiteral(":\n") + QString::fromUtf8(outcome.standardError));
}

} // namespace Mic
