// Runs a command on a throw-away copy-on-write view of the whole root file system.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ZqlSandbox {

// One entry of the list of files a sandboxed command changed.
struct Change
{
    char kind;        // 'A' added, 'M' modified, 'D' deleted
    std::string path; // absolute, as seen inside the sandbox

    bool operator==(const Change &other) const { return kind == other.kind && path == other.path; }
    bool operator!=(const Change &other) const { return !(*this == other); }
};

// One changed path with where its two versions can be read during the inspection.
struct ChangedFile
{
    Change change;
    std::string before; // what lay below (a lower layer or the real root); empty for 'A'
    std::string after;  // the new version in the upper layer; empty for 'D'
};

// Called by run() after the command ended and the change list was computed, while the
// namespace (and with it the upper layer and lower layers) still exists. Paths are reachable
// from the caller's process (through /proc/<sandbox pid>/root/...). Only called when the
// command ran and recordChanges() is on.
using Inspector = std::function<void(const std::vector<ChangedFile> &files)>;

// A private mount namespace in which "/" is an overlay of the real root (lowest), any extra
// layers, and an upper layer on a tmpfs that is thrown away afterwards. Nothing the command
// writes to the root file system reaches the real machine. Needs root.
//
// run() never runs the command anywhere else: if any step of the set-up fails, it returns
// ExitSetupFailed without running it and errorString() names the step.
class Sandbox
{
public:
    // Returned by run() when the sandbox could not be set up (the command did not run) or,
    // after it ran, the upper layer could not be kept or examined (see commandRan()).
    static constexpr int ExitSetupFailed = 125;

    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox &) = delete;
    Sandbox &operator=(const Sandbox &) = delete;

    // Adds a directory tree laid over the real root. Layers added later lie above earlier
    // ones. The tree is copied when run() starts; the directory itself is never changed.
    void addLayer(const std::string &dir);
    const std::vector<std::string> &layers() const;

    // Shows the host directory dir at the same path inside, above everything else, even where
    // the root overlay would not show it (under the sandbox's fresh /tmp, or on another file
    // system than the root). It is an overlay of its own: writes there are thrown away too,
    // and they are not part of changes(). Used for the source and build trees of tests.
    void addShare(const std::string &dir);
    const std::vector<std::string> &shares() const;

    // After the command, copies the upper layer (what it changed, overlayfs whiteouts
    // included) into dir with "cp -a". dir must be absent (it is created) or an empty
    // directory. An empty string turns this off (the default).
    void setKeepDir(const std::string &dir);
    const std::string &keepDir() const;

    // Size of each tmpfs (the one holding the layers and the sandbox's /tmp), as tmpfs's
    // "size=" option takes it: a number with an optional k, m, g or % suffix. Default "2g".
    void setTmpfsSize(const std::string &size);
    const std::string &tmpfsSize() const;

    // Whether run() computes changes(). On by default; off saves a walk of the upper layer.
    void setRecordChanges(bool on);
    bool recordChanges() const;

    // Lets the caller look at the changed files, before and after, while the sandbox still
    // exists (see Inspector). It runs in the caller's process and thread, inside run(); the
    // paths are gone once run() returns. It is not called when the command could not be
    // executed (status 127 with a "cannot run" message) or the upper layer could not be read.
    // An exception it throws is thrown again by run() once the sandbox is cleaned up (the
    // keep directory is then not written). An empty function turns this off (the default).
    void setInspector(Inspector inspector);

    // Runs command (argv[0] looked up in PATH inside the sandbox) with the caller's
    // environment, standard streams and working directory (or "/" if that directory does
    // not exist inside). Blocks until it ends. Returns its exit status, 128 + the signal
    // number if a signal killed it, or ExitSetupFailed with errorString() set.
    int run(const std::vector<std::string> &command);

    // Ends a running run() soon: the command and whatever it left running are killed
    // (SIGKILL), and run() returns as usual (137 once the command ran, else ExitSetupFailed).
    // Safe to call from a signal handler or another thread.
    void terminate();

    // Why the last run() returned ExitSetupFailed; empty otherwise.
    const std::string &errorString() const;

    // Whether the command of the last run() was started.
    bool commandRan() const;

    // Files the last run() added, modified or deleted, sorted by path.
    const std::vector<Change> &changes() const;

private:
    std::vector<std::string> m_layers;
    std::vector<std::string> m_shares;
    std::string m_keepDir;
    std::string m_tmpfsSize = "2g";
    bool m_recordChanges = true;
    Inspector m_inspector;
    std::string m_error;
    bool m_commandRan = false;
    std::vector<Change> m_changes;
    std::atomic<pid_t> m_sandboxPid{0};
    static_assert(std::atomic<pid_t>::is_always_lock_free, "terminate() must be signal-safe");
};

} // namespace ZqlSandbox
