// zql-policy: exports, checks, previews and applies a whole security policy through the modules
// of libzql-modules. docs/zql-policy.md describes the commands and docs/policy-format.md the
// policy document.
#include "dryrunpreview.h"
#include "messages.h"
#include "moduleregistry.h"
#include "policyinput.h"
#include "policytool.h"
#include "sandboxedrun.h"
#include "usage.h" // generated from usage.txt, as is the manual page

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

using ZqlPolicy::Messages;
using ZqlPolicy::PolicyTool;

namespace {

const QStringList ColourChoices = {QStringLiteral("auto"), QStringLiteral("always"),
                                   QStringLiteral("never")};

struct CommandLine
{
    QString command;
    QStringList positional;
    QStringList layers;
    QStringList only;
    QString output;
    QString sourceName;
    bool dryRun = false;
    bool stat = false;
    bool full = false;
    QString colour = QStringLiteral("auto");
    bool colourGiven = false;
    bool json = false;
    bool all = false;
    bool skipUnreadable = false;
    bool help = false;
    bool version = false;
};

int usageError(const QString &text)
{
    Messages::report(text);
    std::fputs("Try 'zql-policy --help'.\n", stderr);
    return PolicyTool::ExitUsage;
}

// Accepts "--name VALUE" and "--name=VALUE"; false if args[i] is not this option.
bool optionValue(const QStringList &args, int &i, const QStringList &names, QString *value,
                 bool *missing)
{
    const QString &arg = args.at(i);
    for (const QString &name : names) {
        if (arg == name) {
            *missing = i + 1 >= args.size();
            if (!*missing)
                *value = args.at(++i);
            return true;
        }
        if (name.startsWith(QLatin1String("--")) && arg.startsWith(name + QLatin1Char('='))) {
            *value = arg.mid(name.size() + 1);
            *missing = false;
            return true;
        }
    }
    return false;
}

// Returns -1 when the command line could be read, else the exit status.
int parse(const QStringList &args, CommandLine *line)
{
    bool optionsEnded = false;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        QString value;
        bool missing = false;
        if (optionsEnded || !arg.startsWith(QLatin1Char('-')) || arg == QLatin1String("-")) {
            if (line->command.isEmpty())
                line->command = arg;
            else
                line->positional.append(arg);
        } else if (arg == QLatin1String("--")) {
            optionsEnded = true;
        } else if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            line->help = true;
        } else if (arg == QLatin1String("--version")) {
            line->version = true;
        } else if (arg == QLatin1String("--dry-run")) {
            line->dryRun = true;
        } else if (arg == QLatin1String("--skip-unreadable")) {
            line->skipUnreadable = true;
        } else if (arg == QLatin1String("--all")) {
            line->all = true;
        } else if (arg == QLatin1String("--json")) {
            line->json = true;
        } else if (arg == QLatin1String("--stat")) {
            line->stat = true;
        } else if (arg == QLatin1String("--full")) {
            line->full = true;
        } else if (arg == QLatin1String("--color") || arg.startsWith(QLatin1String("--color="))) {
            line->colour = arg.contains(QLatin1Char('=')) ? arg.section(QLatin1Char('='), 1)
                                                          : QStringLiteral("always");
            if (!ColourChoices.contains(line->colour))
                return usageError(QStringLiteral("--color takes auto, always or never, not \"%1\"")
                                      .arg(line->colour));
            line->colourGiven = true;
        } else if (optionValue(args, i, {QStringLiteral("--root-layer")}, &value, &missing)) {
            if (missing || value.isEmpty())
                return usageError(QStringLiteral("--root-layer needs a directory"));
            line->layers.append(value);
        } else if (optionValue(args, i, {QStringLiteral("--only")}, &value, &missing)) {
            if (missing || value.isEmpty())
                return usageError(QStringLiteral("--only needs a module name"));
            // An empty name is refused: dropping it would turn "--only ," into every module.
            const QStringList names = value.split(QLatin1Char(','));
            if (names.contains(QString()))
                return usageError(
                    QStringLiteral("--only needs a module name between its commas, not \"%1\"")
                        .arg(value));
            line->only.append(names);
        } else if (optionValue(args, i, {QStringLiteral("-o"), QStringLiteral("--output")}, &value,
                               &missing)) {
            if (missing || value.isEmpty())
                return usageError(QStringLiteral("%1 needs a file name").arg(arg));
            line->output = value;
        } else if (optionValue(args, i, {QStringLiteral("--source-name")}, &value, &missing)) {
            // Used when this program runs itself in the sandbox: the policy's name in messages.
            if (missing)
                return usageError(QStringLiteral("--source-name needs a name"));
            line->sourceName = value;
        } else {
            return usageError(QStringLiteral("unknown option %1").arg(arg));
        }
    }
    return -1;
}

bool takesPolicyFile(const QString &command)
{
    return command == QLatin1String("check") || command == QLatin1String("apply") ||
           command == QLatin1String("diff");
}

// Whether the options given fit the command; reports the first one that does not.
int validate(const CommandLine &line, const PolicyTool &tool)
{
    const QString &command = line.command;
    const bool takesFile = takesPolicyFile(command);
    const bool takesModules = command == QLatin1String("get") || command == QLatin1String("export");
    if (command.isEmpty())
        return usageError(QStringLiteral("no command given"));
    if (!takesFile && !takesModules && command != QLatin1String("list") &&
        command != QLatin1String("schema"))
        return usageError(QStringLiteral("unknown command \"%1\"").arg(command));
    if (!line.only.isEmpty() && !takesFile)
        return usageError(QStringLiteral("--only is for check, apply and diff"));
    if (line.skipUnreadable && command != QLatin1String("export"))
        return usageError(QStringLiteral("--skip-unreadable is for export"));
    if (line.all && command != QLatin1String("apply"))
        return usageError(QStringLiteral("--all is for apply"));
    if (line.json && command != QLatin1String("diff"))
        return usageError(QStringLiteral("--json is for diff"));
    if (line.dryRun && command != QLatin1String("apply"))
        return usageError(QStringLiteral("--dry-run is for apply"));
    if ((line.stat || line.full || line.colourGiven) && !line.dryRun) {
        const QString option =
            line.stat ? QStringLiteral("--stat")
                      : (line.full ? QStringLiteral("--full") : QStringLiteral("--color"));
        return usageError(QStringLiteral("%1 is for apply --dry-run").arg(option));
    }
    if (line.stat && line.full)
        return usageError(QStringLiteral("--stat and --full exclude each other"));
    if (!line.output.isEmpty() && command != QLatin1String("export"))
        return usageError(QStringLiteral("--output is for export"));
    if ((command == QLatin1String("list") || command == QLatin1String("schema")) &&
        !line.positional.isEmpty())
        return usageError(QStringLiteral("%1 takes no arguments").arg(command));
    if (takesFile && line.positional.size() != 1)
        return usageError(QStringLiteral("%1 takes one policy file").arg(command));
    const QStringList unknown = tool.unknownModules(takesModules ? line.positional : line.only);
    if (!unknown.isEmpty()) {
        return usageError(QStringLiteral("unknown module \"%1\" (the modules: %2)")
                              .arg(unknown.first(), tool.moduleNames().join(QStringLiteral(", "))));
    }
    return -1;
}

// Colour as git decides it: auto means a terminal that is not "dumb".
bool useColour(const QString &choice)
{
    if (choice == QLatin1String("always"))
        return true;
    if (choice == QLatin1String("never"))
        return false;
    return ::isatty(STDOUT_FILENO) == 1 && qgetenv("TERM") != "dumb";
}

// The dry run's preview on standard output.
bool writePreview(const CommandLine &line, const QVector<ZqlPolicy::FileDiff> &files)
{
    using ZqlPolicy::DryRunPreview;
    const DryRunPreview::Detail detail =
        line.stat
            ? DryRunPreview::Detail::Summary
            : (line.full ? DryRunPreview::Detail::Full : DryRunPreview::Detail::Configuration);
    const QByteArray text = DryRunPreview::render(files, detail, useColour(line.colour));
    if (ZqlPolicy::StandardStreams::wasClosed(STDOUT_FILENO)) {
        Messages::report(QStringLiteral("cannot write the preview: standard output is closed"));
        return false;
    }
    const size_t size = static_cast<size_t>(text.size());
    if (std::fwrite(text.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0)
        return true;
    Messages::report(QStringLiteral("cannot write the preview: %1")
                         .arg(QString::fromLocal8Bit(std::strerror(errno))));
    return false;
}

// Holds back SIGTERM, SIGHUP and SIGINT while it lives; one that came meanwhile is delivered
// afterwards.
class SignalsHeld
{
public:
    SignalsHeld()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        sigaddset(&set, SIGHUP);
        sigaddset(&set, SIGINT);
        ::sigprocmask(SIG_BLOCK, &set, &m_old);
    }
    ~SignalsHeld() { ::sigprocmask(SIG_SETMASK, &m_old, nullptr); }
    SignalsHeld(const SignalsHeld &) = delete;
    SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
    sigset_t m_old = {};
};

// The command once more, in the sandbox: over the layers given, or for a dry run.
int runSandboxed(const CommandLine &line)
{
    ZqlPolicy::SandboxedRun run(line.layers);
    QStringList arguments{line.command};
    int policyFd = -1;
    if (takesPolicyFile(line.command)) {
        // The policy is handed over open: the sandbox need not see the caller's path.
        const QString &fileName = line.positional.first();
        if (fileName != QLatin1String("-")) {
            QString failure;
            policyFd = ZqlPolicy::PolicyInput::openRegularFile(fileName, &failure);
            if (policyFd < 0) {
                Messages::report(QStringLiteral("cannot read \"%1\": %2").arg(fileName, failure));
                return PolicyTool::ExitFileError;
            }
            run.setInput(policyFd);
        }
        arguments << QStringLiteral("-") << QStringLiteral("--source-name")
                  << (line.sourceName.isEmpty() ? PolicyTool::displayName(fileName)
                                                : line.sourceName);
        for (const QString &module : line.only)
            arguments << QStringLiteral("--only") << module;
        if (line.json)
            arguments << QStringLiteral("--json");
        if (line.all)
            arguments << QStringLiteral("--all");
    } else {
        arguments << line.positional;
        if (line.skipUnreadable)
            arguments << QStringLiteral("--skip-unreadable");
    }
    const bool toFile = !line.output.isEmpty() && line.output != QLatin1String("-");
    run.setCaptureOutput(toFile);
    run.setDiff(line.dryRun);

    const int status = run.run(arguments);
    if (policyFd >= 0)
        ::close(policyFd);
    if (toFile && status == PolicyTool::ExitSuccess &&
        !PolicyTool::saveFile(line.output, run.output()))
        return PolicyTool::ExitFileError;
    if (line.dryRun &&
        (status == PolicyTool::ExitSuccess || status == PolicyTool::ExitModuleFailed)) {
        // The preview goes out whole: a termination signal waits until it is written.
        SignalsHeld held;
        if (!writePreview(line, run.fileDiffs()))
            return PolicyTool::ExitFileError;
        const QStringList changes = run.changes();
        if (changes.isEmpty()) {
            Messages::report(QStringLiteral("dry run: no file would change; nothing was changed"));
        } else {
            Messages::report(
                QStringLiteral("dry run: nothing was changed; the apply would change:\n  %1")
                    .arg(changes.join(QStringLiteral("\n  "))));
        }
    }
    return status;
}

int runHere(const CommandLine &line, PolicyTool &tool)
{
    if (!line.sourceName.isEmpty())
        tool.setSourceName(line.sourceName);
    if (line.command == QLatin1String("list"))
        return tool.list();
    if (line.command == QLatin1String("schema"))
        return tool.schema();
    if (line.command == QLatin1String("get"))
        return tool.get(line.positional);
    if (line.command == QLatin1String("export"))
        return tool.exportPolicy(line.positional, line.output, line.skipUnreadable);
    if (line.command == QLatin1String("check"))
        return tool.check(line.positional.first(), line.only);
    if (line.command == QLatin1String("diff"))
        return tool.drift(line.positional.first(), line.only, line.json);
    return tool.apply(line.positional.first(), line.only, line.all);
}

} // namespace

int main(int argc, char *argv[])
{
    ZqlPolicy::StandardStreams::hold();
    QCoreApplication app(argc, argv);
    try {
        QStringList args = QCoreApplication::arguments();
        args.removeFirst();
        CommandLine line;
        const int parsed = parse(args, &line);
        if (parsed >= 0)
            return parsed;
        if (line.help) {
            std::fputs(Usage, stdout);
            return PolicyTool::ExitSuccess;
        }
        if (line.version) {
            std::fputs("zql-policy " ZQL_VERSION "\n", stdout);
            return PolicyTool::ExitSuccess;
        }
        const ZqlPolicy::ModuleRegistry registry = ZqlPolicy::ModuleRegistry::libraryModules();
        PolicyTool tool(registry);
        const int invalid = validate(line, tool);
        if (invalid >= 0)
            return invalid;
        if (line.dryRun || !line.layers.isEmpty())
            return runSandboxed(line);
        return runHere(line, tool);
    } catch (const std::exception &failure) {
        Messages::report(
            QStringLiteral("internal error: %1").arg(QString::fromLocal8Bit(failure.what())));
        return PolicyTool::ExitModuleFailed;
    }
}
