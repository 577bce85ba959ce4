#include "digsigconfig.h"

#include "configfileengine_p.h"
#include "processrunner_p.h"
#include "savefile_p.h"

#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextStream>

#include <mntent.h>

#include <stdexcept>
#include <vector>

namespace {
const QString OptionsPath = QStringLiteral("/etc/digsig/digsig_initramfs.conf");
const QString XattrControlPath = QStringLiteral("/etc/digsig/xattr_control");
const char MountTablePath[] = "/etc/mtab";
const QString BootMountPoint = QStringLiteral("/boot");
const QString ReadOnlyOption = QStringLiteral("ro");

const QString ElfModeOption = QStringLiteral("DIGSIG_ELF_MODE");
const QString XattrModeOption = QStringLiteral("DIGSIG_XATTR_MODE");
const QString IgnoreXattrKeysOption = QStringLiteral("DIGSIG_IGNORE_XATTR_KEYS");
const QString IgnoreGost2001Option = QStringLiteral("DIGSIG_IGNORE_GOST2001");
// The required options, in the order of the written file.
const QStringList RequiredOptions{ElfModeOption, XattrModeOption, IgnoreXattrKeysOption,
                                  IgnoreGost2001Option};

// Every line is blank, a comment or KEY=digits; the option lines give their key and value.
const QRegularExpression LineShape(
    QStringLiteral("^([[:space:]]*|[[:space:]]*#.*|[[:space:]]*[_A-Z\\d]+=\\d+[[:space:]]*)$"));
const QRegularExpression
    OptionLine(QStringLiteral("^[[:space:]]*(?<key>[_A-Z\\d]+)=(?<value>\\d+)[[:space:]]*$"));
const QString KeyGroup = QStringLiteral("key");
const QString ValueGroup = QStringLiteral("value");

// update-initramfs output that is known to be harmless when the tool exits with 0.
const QRegularExpression HarmlessWarning(
    QStringLiteral("^ldconfig:\\s+input\\s+file\\s+.+?\\s+not\\s+found.*?$|"
                   "^cryptsetup:\\s+WARNING:.*?$"),
    QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);

const QString MountProgram = QStringLiteral("mount");
const QString UpdateInitramfsProgram = QStringLiteral("update-initramfs");
const QStringList UpdateInitramfsArguments{QStringLiteral("-u"), QStringLiteral("-k"),
                                           QStringLiteral("all")};
// The error codes the messages of a rebuild give: failed to start, crashed, timed out.
constexpr int ToolFailedToStart = 0;
constexpr int ToolCrashed = 1;
constexpr int ToolTimedOut = 2;

// One trimmed line of xattr_control with its line feed may take at most this many bytes.
constexpr int XattrControlLineLimit = 4095;
// Room for the longest line of the mount table (overlay options name many directories).
constexpr int MountEntryBufferSize = 64 * 1024;

const QString ModeOn = QStringLiteral("On");
const QString ModeOff = QStringLiteral("Off");
const QString ModeDebug = QStringLiteral("Debug");

const QString FileOff = QStringLiteral("0");
const QString FileOn = QStringLiteral("1");
const QString FileDebug = QStringLiteral("2");
const QString LineFormat = QStringLiteral("%1=%2\n");

// File value of a mode: 0 off, 1 on, 2 debug; every other mode is written as off.
QString fileValueOfMode(int mode)
{
    switch (mode) {
    case DigSigConfig::On:
        return FileOn;
    case DigSigConfig::Debug:
        return FileDebug;
    default:
        return FileOff;
    }
}

QString fileValueOfFlag(bool flag)
{
    return flag ? FileOn : FileOff;
}

[[noreturn]] void fail(const QString &message)
{
    throw std::runtime_error(message.toUtf8().toStdString());
}
} // namespace

DigSigConfig::DigSigConfig(Source source)
{
    if (source == ReadFiles) {
        readOptions();
        readXattrControl();
    }
}

QString DigSigConfig::modeName(int mode)
{
    switch (mode) {
    case On:
        return ModeOn;
    case Off:
        return ModeOff;
    case Debug:
        return ModeDebug;
    default:
        return {};
    }
}

int DigSigConfig::modeOfName(const QString &name)
{
    if (name == ModeOn)
        return On;
    if (name == ModeOff)
        return Off;
    if (name == ModeDebug)
        return Debug;
    return Unknown;
}

void DigSigConfig::readOptions()
{
    QFile file(OptionsPath);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        errors << tr("Can't open file %1").arg(OptionsPath);
        return;
    }
    QHash<QString, QString> values;
    QTextStream stream(&file);
    QString line;
    while (stream.readLineInto(&line)) {
        if (!LineShape.match(line).hasMatch()) {
            errors << tr("file %1 has invalid line: %2").arg(OptionsPath, line);
            continue;
        }
        const QRegularExpressionMatch option = OptionLine.match(line);
        if (!option.hasMatch())
            continue;
        const QString key = option.captured(KeyGroup);
        if (!RequiredOptions.contains(key)) {
            errors << tr("file %1 contains invalid key: %2").arg(OptionsPath, key);
            continue;
        }
        values.insert(key, option.captured(ValueGroup)); // a later line wins
    }
    for (const QString &option : RequiredOptions) {
        if (!values.contains(option)) {
            errors
                << tr("file %1 does not contain the required option %2").arg(OptionsPath, option);
        }
    }

    const auto readMode = [&values](const QString &option, int *mode) {
        const QString value = values.value(option);
        if (value == FileOff)
            *mode = Off;
        else if (value == FileOn)
            *mode = On;
        else if (value == FileDebug)
            *mode = Debug;
        else
            *mode = Unknown;
        return *mode != Unknown;
    };
    const auto readFlag = [&values](const QString &option, bool *flag) {
        const QString value = values.value(option);
        *flag = value == FileOn;
        return value == FileOn || value == FileOff;
    };
    if (!readMode(ElfModeOption, &elfMode))
        errors << tr("DIGSIG_ELF_MODE value \"%1\" is invalid").arg(values.value(ElfModeOption));
    if (!readMode(XattrModeOption, &xattrMode))
        errors
            << tr("DIGSIG_XATTR_MODE value \"%1\" is invalid").arg(values.value(XattrModeOption));
    if (!readFlag(IgnoreXattrKeysOption, &ignoreXattrKeys))
        errors << tr("DIGSIG_IGNORE_XATTR_KEYS value \"%1\" is invalid")
                      .arg(values.value(IgnoreXattrKeysOption));
    if (!readFlag(IgnoreGost2001Option, &ignoreGost2001))
        errors << tr("DIGSIG_IGNORE_GOST2001 value \"%1\" is invalid")
                      .arg(values.value(IgnoreGost2001Option));
}

void DigSigConfig::readXattrControl()
{
    QFile file(XattrControlPath);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        errors << tr("file %1 can not be opened").arg(XattrControlPath);
        return;
    }
    xattrControl = QString::fromUtf8(file.readAll());
}

namespace DigSig {

QStringList writeDigSigConfig(const DigSigConfig &config)
{
    QStringList errors;
    {
        SaveFile file(OptionsPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
            errors << DigSigConfig::tr("file %1 can not be opened").arg(OptionsPath);
            return errors;
        }
        const QString text =
            LineFormat.arg(ElfModeOption, fileValueOfMode(config.elfMode)) +
            LineFormat.arg(XattrModeOption, fileValueOfMode(config.xattrMode)) +
            LineFormat.arg(IgnoreXattrKeysOption, fileValueOfFlag(config.ignoreXattrKeys)) +
            LineFormat.arg(IgnoreGost2001Option, fileValueOfFlag(config.ignoreGost2001));
        // The old file's comments and other lines are not kept. A failed options file leaves
        // xattr_control alone, so that the two never mix an old and a new configuration.
        if (!file.saveWhole(text.toUtf8())) {
            errors << DigSigConfig::tr("file %1 can not be saved").arg(OptionsPath);
            return errors;
        }
    }

    SaveFile file(XattrControlPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        errors << DigSigConfig::tr("file %1 can not be opened").arg(XattrControlPath);
        return errors;
    }
    QByteArray bytes;
    const QStringList pieces = config.xattrControl.split(QLatin1Char('\n'));
    for (const QString &piece : pieces) {
        const QByteArray line = piece.trimmed().toUtf8() + '\n';
        if (line.size() > XattrControlLineLimit) {
            errors << DigSigConfig::tr("Line %1 exceeds the size limit.").arg(piece);
            file.cancelWriting();
            return errors;
        }
        bytes += line;
    }
    if (!file.saveWhole(bytes))
        errors << DigSigConfig::tr("file %1 can not be saved").arg(XattrControlPath);
    return errors;
}

bool isBootReadOnly()
{
    FILE *table = ::setmntent(MountTablePath, "r");
    if (table == nullptr)
        fail(DigSigConfig::tr("Can't parse /etc/mtab"));
    std::vector<char> buffer(MountEntryBufferSize);
    struct mntent entry = {};
    bool readOnly = false;
    while (!readOnly && ::getmntent_r(table, &entry, buffer.data(),
                                      static_cast<int>(buffer.size())) != nullptr) {
        if (QString::fromLocal8Bit(entry.mnt_dir) != BootMountPoint)
            continue;
        const QStringList options = QString::fromLocal8Bit(entry.mnt_opts).split(QLatin1Char(','));
        readOnly = options.contains(ReadOnlyOption);
    }
    ::endmntent(table);
    return readOnly;
}

bool remountBoot(bool writable)
{
    // Waits as long as mount takes; its own messages reach the host's streams.
    ProcessRunOptions options;
    options.startTimeoutMs.reset();
    options.finishTimeoutMs = -1;
    options.forwardOutput = true;
    const QStringList arguments{
        QStringLiteral("-o"),
        writable ? QStringLiteral("remount,rw") : QStringLiteral("remount,ro"), BootMountPoint};
    return runTool(MountProgram, arguments, options).exitedWithZero();
}

QStringList runUpdateInitramfs()
{
    // A rebuild of every RAM disk can take many minutes on a slow machine: no limit at all.
    ProcessRunOptions options;
    options.mode = QIODevice::ReadWrite;
    options.startTimeoutMs = -1;
    options.finishTimeoutMs = -1;
    const ProcessOutcome outcome =
        runTool(UpdateInitramfsProgram, UpdateInitramfsArguments, options);
    const QString joined = UpdateInitramfsArguments.join(QLatin1Char(' '));

    switch (outcome.ending) {
    case ProcessOutcome::Ending::NotStarted:
        fail(DigSigConfig::tr("Process: \"%1 %2\". Error: %3.\n\"Not started\"")
                 .arg(UpdateInitramfsProgram, joined, QString::number(ToolFailedToStart)));
    case ProcessOutcome::Ending::NotFinished:
    case ProcessOutcome::Ending::Crashed:
        fail(DigSigConfig::tr("Process: \"%1 %2\". Error: %3.\n\"Not finished\"")
                 .arg(UpdateInitramfsProgram, joined,
                      QString::number(outcome.ending == ProcessOutcome::Ending::Crashed
                                          ? ToolCrashed
                                          : ToolTimedOut)));
    case ProcessOutcome::Ending::Exited:
        break;
    }

    const QString standardError = QString::fromUtf8(outcome.standardError);
    if (outcome.exitCode != 0) {
        fail(DigSigConfig::tr("Process: \"%1 %2\" finished with errors:\n%3\nExit code: %4")
                 .arg(UpdateInitramfsProgram, joined, standardError,
                      QString::number(outcome.exitCode)));
    }
    if (standardError.isEmpty())
        return {};
    // Any other remark of the tool counts as an error although it exited with 0.
    if (!HarmlessWarning.match(standardError).hasMatch()) {
        fail(DigSigConfig::tr("Process: \"%1 %2\" finished with errors:\n%3")
                 .arg(UpdateInitramfsProgram, joined, standardError));
    }
    return {DigSigConfig::tr("Process: \"%1 %2\" finished with warnings:\n%3")
                .arg(UpdateInitramfsProgram, joined, standardError)};
}

} // namespace DigSig
