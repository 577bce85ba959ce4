// The plan of one Sandbox::run(): its settings checked, and every path, mount option, argument
// list and environment the forked processes use, prepared before fork().
#pragma once

#include "posixio_p.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace ZqlSandbox {

// Starts every message of Sandbox::errorString() and of the forked processes.
inline constexpr char ErrorPrefix[] = "zql-sandbox: ";

class Sandbox;

// Everything the forked processes need, prepared before fork() so that they allocate nothing,
// and what the caller needs afterwards to describe a failure and keep the upper layer. Owns
// the directory base: it is created by prepare() and removed again when the plan goes away
// (it is empty then: its tmpfs was mounted only in the sandbox's namespace). Filled in place
// and never copied, so that the pointers in argv, envp and copyArgv stay valid.
struct Plan
{
    Plan() = default;
    ~Plan();
    Plan(const Plan &) = delete;
    Plan &operator=(const Plan &) = delete;

    // Checks sandbox's settings and the machine (root, the layers and shared directories, the
    // keep directory), creates base and fills in the rest for command. Returns what is wrong,
    // without ErrorPrefix, or an empty text.
    std::string prepare(const Sandbox &sandbox, const std::vector<std::string> &command);

    // Removes the bases that killed sandboxes left in /tmp, then creates and locks base.
    std::string makeBase();

    pid_t caller = 0;
    int reportFd = -1;  // write end: records to the caller; set by SandboxProcess
    int releaseFd = -1; // read end: EOF when the caller has looked at the upper layer; likewise

    std::vector<std::string> layers; // the sandbox's layers, resolved
    std::string keep;                // the keep directory, absolute; empty: none
    bool createKeep = false;         // keep does not exist yet

    std::string base; // the tmpfs holding everything below
    Fd baseLock;      // held while the sandbox lives: a base nobody holds was left by a kill
    std::string baseOptions;
    std::vector<std::string> dirs;                  // created on the tmpfs, in this order
    std::vector<std::string> layerDirs;             // copies of the layers on the tmpfs
    std::vector<std::vector<std::string>> copyArgs; // one cp command per layer
    std::string upper;
    std::string work;
    std::string merged;
    std::string host; // read-only bind of the real root file system, for comparisons
    std::string overlayOptions;
    std::vector<std::string> systemDirs;    // /proc, /sys, /dev
    std::vector<std::string> systemTargets; // the same under merged
    std::string mergedProc;                 // a fresh /proc of the command's own PID namespace
    std::string mergedTmp;
    std::string mergedShm;
    std::string tmpOptions;
    std::vector<std::string> shareSources; // host directories shown copy-on-write inside
    std::vector<std::string> shareTargets; // the same under merged
    std::vector<std::string> shareOptions; // each share's own overlay
    std::vector<std::string> shareDirs;    // created under merged first, parents before children

    uid_t rootUid = 0;
    gid_t rootGid = 0;
    mode_t rootMode = 0755;
    dev_t hostRootDev = 0;

    std::string cwd;
    std::vector<std::string> args;
    std::vector<std::string> env;
    std::string execFailure; // message prefix when the command cannot be started

    // args, env and copyArgs as execve() takes them.
    std::vector<char *> argv;
    std::vector<char *> envp;
    std::vector<std::vector<char *>> copyArgv;

private:
    std::string checkKeepDir(const std::string &dir);
    void layOut(const std::vector<std::string> &shares, const std::string &tmpfsSize);
    void prepareCommand(const std::vector<std::string> &command, ino_t hostMountNamespace);
};

} // namespace ZqlSandbox
