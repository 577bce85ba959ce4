#include "sandbox.h"

#include "sandboxplan_p.h"
#include "sandboxprocess_p.h"
#include "sandboxresults_p.h"

#include <csignal>
#include <cstring>
#include <exception>

namespace ZqlSandbox {

Sandbox::Sandbox() = default;
Sandbox::~Sandbox() = default;

void Sandbox::addLayer(const std::string &dir)
{
    m_layers.push_back(dir);
}

const std::vector<std::string> &Sandbox::layers() const
{
    return m_layers;
}

void Sandbox::addShare(const std::string &dir)
{
    m_shares.push_back(dir);
}

const std::vector<std::string> &Sandbox::shares() const
{
    return m_shares;
}

void Sandbox::setKeepDir(const std::string &dir)
{
    m_keepDir = dir;
}

const std::string &Sandbox::keepDir() const
{
    return m_keepDir;
}

void Sandbox::setTmpfsSize(const std::string &size)
{
    m_tmpfsSize = size;
}

const std::string &Sandbox::tmpfsSize() const
{
    return m_tmpfsSize;
}

void Sandbox::setRecordChanges(bool on)
{
    m_recordChanges = on;
}

bool Sandbox::recordChanges() const
{
    return m_recordChanges;
}

void Sandbox::setInspector(Inspector inspector)
{
    m_inspector = std::move(inspector);
}

const std::string &Sandbox::errorString() const
{
    return m_error;
}

bool Sandbox::commandRan() const
{
    return m_commandRan;
}

const std::vector<Change> &Sandbox::changes() const
{
    return m_changes;
}

void Sandbox::terminate()
{
    const pid_t pid = m_sandboxPid.load();
    if (pid > 0)
        ::kill(pid, SIGTERM); // see onStop() in sandboxchild.cpp
}

int Sandbox::run(const std::vector<std::string> &command)
{
    m_error.clear();
    m_changes.clear();
    m_commandRan = false;
    auto failed = [this](const std::string &message) {
        m_error = ErrorPrefix + message;
        return ExitSetupFailed;
    };

    Plan plan; // removes its temporary directory on every way out
    std::string problem = plan.prepare(*this, command);
    if (!problem.empty())
        return failed(problem);

    SandboxProcess process;
    problem = process.start(plan);
    if (!problem.empty())
        return failed(problem);
    m_sandboxPid.store(process.pid());
    const SandboxReport report = process.readReport();

    UpperLayerResult upperLayer;
    if (report.commandRan()) {
        m_commandRan = true;
        upperLayer = examineUpperLayer(plan, process.pid(), m_recordChanges ? &m_changes : nullptr,
                                       m_inspector && !report.execFailed ? &m_inspector : nullptr);
    }

    process.release();
    m_sandboxPid.store(0); // it is ending now; its pid stays reserved until reaped below
    int sandboxStatus = 0;
    const int waitError = process.reap(&sandboxStatus);
    if (upperLayer.callbackFailure)
        std::rethrow_exception(upperLayer.callbackFailure);

    if (report.setupFailed) {
        m_error = describeFailure(plan, report.failure);
        return ExitSetupFailed;
    }
    if (!report.commandEnded) {
        if (waitError != 0)
            return failed(std::string("wait for the sandbox process: ") + std::strerror(waitError));
        return failed(describeWaitStatus("the sandbox process", sandboxStatus) +
                      " before the command ended");
    }
    const int result = commandExitStatus(report.commandStatus);
    if (!upperLayer.error.empty()) {
        m_changes.clear();
        return failed(upperLayer.error + " (the command ran and exited with status " +
                      std::to_string(result) + ")");
    }
    return result;
}

} // namespace ZqlSandbox
