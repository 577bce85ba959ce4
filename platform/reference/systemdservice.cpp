// Reference implementation of VelaAdmin::SystemdService for stock Debian: it runs
// "systemctl is-active --quiet UNIT" and "systemctl restart UNIT" and goes by the exit code.
// systemctl needs no library beyond the C library, says "not active" (a non-zero exit) where no
// service manager runs (a container, a chroot, a sandbox), and is the command an administrator
// would type; D-Bus would need a bus library and a running bus for the same answer. The
// tool's output goes to the null device; a run that overstays its limit is killed.

#include "velaadmin/systemdservice.h"

#include <QByteArray>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ; // NOLINT(readability-redundant-declaration): POSIX leaves it undeclared

namespace {
const char SystemctlProgram[] = "systemctl";
const char NullDevice[] = "/dev/null";
// A restart waits for the unit's own stop and start; is-active answers at once.
constexpr int QueryLimitMs = 30000;
constexpr int RestartLimitMs = 300000;
constexpr long PollIntervalNs = 2000000; // 2 ms
constexpr long NanosecondsPerMillisecond = 1000000;

// Runs systemctl with @p arguments. @return its exit code, or -1 when it could not be run,
// was killed, or did not finish within @p limitMs.
int runSystemctl(const std::vector<QByteArray> &arguments, int limitMs)
{
    std::vector<char *> argv;
    QByteArray program(SystemctlProgram);
    argv.push_back(program.data());
    std::vector<QByteArray> copies = arguments;
    for (QByteArray &argument : copies)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, NullDevice, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, NullDevice, O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, NullDevice, O_WRONLY, 0);
    pid_t child = -1;
    const int spawned =
        posix_spawnp(&child, SystemctlProgram, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return -1;

    long waitedNs = 0;
    const long limitNs = static_cast<long>(limitMs) * NanosecondsPerMillisecond;
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (done < 0 && errno != EINTR)
            return -1;
        if (waitedNs >= limitNs) {
            ::kill(child, SIGKILL);
            while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
            }
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::nanoseconds(PollIntervalNs));
        waitedNs += PollIntervalNs;
    }
}
} // namespace

namespace VelaAdmin {

SystemdService::SystemdService(const QString &unitName)
    : m_unitName(unitName)
{}

bool SystemdService::isActive()
{
    return runSystemctl({QByteArray("is-active"), QByteArray("--quiet"), m_unitName.toLocal8Bit()},
                        QueryLimitMs) == 0;
}

bool SystemdService::restart()
{
    return runSystemctl({QByteArray("restart"), m_unitName.toLocal8Bit()}, RestartLimitMs) == 0;
}

} // namespace VelaAdmin
