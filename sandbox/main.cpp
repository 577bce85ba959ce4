// zql-sandbox: runs a command on a throw-away copy-on-write view of the root file system.
#include "sandbox.h"
#include "unifieddiff.h"

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

const char Usage[] =
    "Usage: zql-sandbox [--layer DIR]... [--share DIR]... [--changes] [--diff]\n"
    "                   [--keep DIR] [--tmpfs-size SIZE] [--] COMMAND [ARG]...\n"
    "Run COMMAND on a throw-away copy-on-write view of the whole root file system, in a\n"
    "private mount namespace. Nothing it writes reaches the real root. Needs root.\n"
    "\n"
    "  --layer DIR        lay the tree DIR over the real root; may be repeated, later layers\n"
    "                     lie above earlier ones (DIR is copied, never changed)\n"
    "  --share DIR        show the host directory DIR at the same path inside, copy-on-write,\n"
    "                     even under the sandbox's own /tmp (for example the build tree); may\n"
    "                     be repeated\n"
    "  --changes          after the command, list on standard error the files it added,\n"
    "                     modified or deleted, one per line: \"A /path\", \"M /path\", \"D "
    "/path\"\n"
    "  --diff             after the command, write a unified diff of those files (git-like,\n"
    "                     for \"patch -p1\" from /) to standard output, after the\n"
    "                     command's own output\n"
    "  --keep DIR         after the command, copy its upper layer (overlayfs whiteouts\n"
    "                     included) into DIR, which must be absent or empty\n"
    "  --tmpfs-size SIZE  size of the sandbox's tmpfs file systems (default 2g)\n"
    "  --help             show this help\n"
    "\n"
    "Exit status: the command's; 128+N if signal N killed it; 127 if it could not be\n"
    "started; 125 if the sandbox could not be set up (the command did not run), or if its\n"
    "changes could not be examined, kept or shown (the message then says how it exited).\n";

ZqlSandbox::Sandbox *runningSandbox = nullptr;
volatile std::sig_atomic_t caughtSignal = 0;

// SIGTERM and SIGHUP end the sandbox and then this process, by the same signal, once the
// temporary directory is gone. SIGINT and SIGQUIT from a terminal reach the command as well:
// wait for it, like a shell, and report how it ended.
extern "C" void onSignal(int sig)
{
    if (sig == SIGTERM || sig == SIGHUP) {
        caughtSignal = sig;
        if (runningSandbox)
            runningSandbox->terminate();
    }
}

void handleSignals()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int sig : {SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        struct sigaction old = {};
        // An ignored SIGINT (a background job) must stay ignored for the command.
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
            sigaction(sig, &action, nullptr);
    }
}

int usageError(const std::string &message)
{
    std::fprintf(stderr, "zql-sandbox: %s\n%s", message.c_str(), Usage);
    return ZqlSandbox::Sandbox::ExitSetupFailed;
}

// Accepts "--name VALUE" and "--name=VALUE".
bool optionValue(const std::vector<std::string> &args, size_t &i, const std::string &name,
                 std::string &value, bool &missing)
{
    const std::string &arg = args[i];
    if (arg == name) {
        if (i + 1 >= args.size()) {
            missing = true;
            return true;
        }
        value = args[++i];
        return true;
    }
    if (arg.compare(0, name.size() + 1, name + '=') == 0) {
        value = arg.substr(name.size() + 1);
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    ZqlSandbox::Sandbox sandbox;
    bool listChanges = false;
    bool showDiff = false;
    size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string &arg = args[i];
        std::string value;
        bool missing = false;
        if (arg == "--") {
            ++i;
            break;
        }
        if (arg == "--help" || arg == "-h") {
            std::fputs(Usage, stdout);
            return 0;
        }
        if (arg == "--changes") {
            listChanges = true;
        } else if (arg == "--diff") {
            showDiff = true;
        } else if (optionValue(args, i, "--layer", value, missing)) {
            if (missing || value.empty())
                return usageError("--layer needs a directory");
            sandbox.addLayer(value);
        } else if (optionValue(args, i, "--share", value, missing)) {
            if (missing || value.empty())
                return usageError("--share needs a directory");
            sandbox.addShare(value);
        } else if (optionValue(args, i, "--keep", value, missing)) {
            if (missing || value.empty())
                return usageError("--keep needs a directory");
            sandbox.setKeepDir(value);
        } else if (optionValue(args, i, "--tmpfs-size", value, missing)) {
            if (missing || value.empty())
                return usageError("--tmpfs-size needs a size");
            sandbox.setTmpfsSize(value);
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usageError("unknown option " + arg);
        } else {
            break;
        }
    }
    if (i >= args.size())
        return usageError("no command given");

    sandbox.setRecordChanges(listChanges || showDiff);
    // The diff reads the files while the sandbox still exists: during run(), not after it.
    std::string diffError;
    if (showDiff) {
        sandbox.setInspector([&diffError](const std::vector<ZqlSandbox::ChangedFile> &files) {
            if (caughtSignal)
                return; // ending: do not hold the clean-up up
            if (!ZqlSandbox::writeUnifiedDiff(files, STDOUT_FILENO, &diffError) &&
                diffError.empty())
                diffError = "failed";
        });
    }
    const std::vector<std::string> command(args.begin() + static_cast<std::ptrdiff_t>(i),
                                           args.end());
    std::fflush(nullptr); // nothing buffered may be written twice or out of order
    runningSandbox = &sandbox;
    handleSignals();
    const int status = sandbox.run(command);
    if (caughtSignal) {
        std::signal(caughtSignal, SIG_DFL);
        std::raise(caughtSignal);
    }
    if (!sandbox.errorString().empty())
        std::fprintf(stderr, "%s\n", sandbox.errorString().c_str());
    if (listChanges) {
        for (const ZqlSandbox::Change &change : sandbox.changes())
            std::fprintf(stderr, "%c %s\n", change.kind, change.path.c_str());
    }
    if (!diffError.empty()) {
        // After a failure of its own, run() returned 125 and its message told the status.
        if (sandbox.errorString().empty())
            std::fprintf(stderr,
                         "zql-sandbox: write the diff: %s (the command ran and exited with "
                         "status %d)\n",
                         diffError.c_str(), status);
        else
            std::fprintf(stderr, "zql-sandbox: write the diff: %s\n", diffError.c_str());
        return ZqlSandbox::Sandbox::ExitSetupFailed;
    }
    return status;
}
