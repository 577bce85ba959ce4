#include "sandboxprocess_p.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

bool readRecord(int fd, Record &record)
{
    size_t got = 0;
    return readFull(fd, &record, sizeof record, got) && got == sizeof record;
}

} // namespace

std::string SandboxProcess::start(Plan &plan)
{
    int report[2];
    int release[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return std::string("create a pipe: ") + std::strerror(errno);
    m_reports.reset(report[0]);
    Fd reportWrite(report[1]);
    if (::pipe2(release, O_CLOEXEC) != 0)
        return std::string("create a pipe: ") + std::strerror(errno);
    Fd releaseRead(release[0]);
    m_release.reset(release[1]);
    plan.reportFd = report[1];
    plan.releaseFd = release[0];

    const pid_t pid = ::fork();
    if (pid < 0)
        return std::string("fork: ") + std::strerror(errno);
    if (pid == 0) { // from here on only what sandboxchild.cpp allows
        ::close(report[0]);
        ::close(release[1]);
        sandboxMain(plan);
    }
    m_pid = pid;
    return {}; // the child's ends close here
}

pid_t SandboxProcess::pid() const
{
    return m_pid;
}

SandboxReport SandboxProcess::readReport()
{
    // A failure record may come from the command's process before the sandbox process reports
    // that the command ended; the first failure wins.
    SandboxReport report;
    Record record;
    while (!report.commandEnded && readRecord(m_reports.get(), record)) {
        if (record.type == RecordFailed && !report.setupFailed) {
            report.setupFailed = true;
            report.failure = record;
        } else if (record.type == RecordNotStarted) {
            report.execFailed = true;
        } else if (record.type == RecordDone) {
            report.commandEnded = true;
            report.commandStatus = record.status;
        }
    }
    return report;
}

void SandboxProcess::release()
{
    m_release.reset();
}

SandboxProcess::~SandboxProcess()
{
    if (m_pid <= 0)
        return;
    release();
    int status = 0;
    waitFor(m_pid, &status);
}

int SandboxProcess::reap(int *status)
{
    const pid_t pid = m_pid;
    m_pid = -1;
    return waitFor(pid, status) == pid ? 0 : errno;
}

} // namespace ZqlSandbox
