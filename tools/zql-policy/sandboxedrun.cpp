#include "sandboxedrun.h"

#include "dryrunpreview.h"
#include "messages.h"
#include "sandbox.h"
#include "streamredirection.h"
#include "unifieddiff.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZqlPolicy {

namespace {

std::atomic<ZqlSandbox::Sandbox *> runningSandbox{nullptr};
std::atomic<int> caughtSignal{0};

// SIGTERM, SIGHUP and SIGINT end the sandboxed run (and everything it started); this process
// then says so instead of showing what the run had done until then.
extern "C" void onTerminate(int signal)
{
    int none = 0;
    caughtSignal.compare_exchange_strong(none, signal);
    if (ZqlSandbox::Sandbox *sandbox = runningSandbox.load())
        sandbox->terminate();
}

class SignalGuard
{
public:
    explicit SignalGuard(ZqlSandbox::Sandbox *sandbox)
    {
        runningSandbox.store(sandbox);
        struct sigaction action = {};
        action.sa_handler = onTerminate;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &action, &m_oldTerm);
        sigaction(SIGHUP, &action, &m_oldHup);
        sigaction(SIGINT, &action, &m_oldInt);
    }
    ~SignalGuard()
    {
        sigaction(SIGTERM, &m_oldTerm, nullptr);
        sigaction(SIGHUP, &m_oldHup, nullptr);
        sigaction(SIGINT, &m_oldInt, nullptr);
        runningSandbox.store(nullptr);
    }
    SignalGuard(const SignalGuard &) = delete;
    SignalGuard &operator=(const SignalGuard &) = delete;

private:
    struct sigaction m_oldTerm = {};
    struct sigaction m_oldHup = {};
    struct sigaction m_oldInt = {};
};

// Whether the sandbox would not show path: its /tmp and /dev/shm are fresh, and only the root
// file system is overlaid, not file systems mounted below it.
bool hiddenInSandbox(const QString &path)
{
    if (path.startsWith(QLatin1String("/tmp/")) || path.startsWith(QLatin1String("/dev/shm/")))
        return true;
    struct stat root = {};
    struct stat target = {};
    if (::stat("/", &root) != 0 || ::stat(QFile::encodeName(path).constData(), &target) != 0)
        return true;
    return root.st_dev != target.st_dev;
}

// The directory of the loaded libzql-modules, from the process's own mappings.
QString libraryDirectory()
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return QString();
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const int slash = line.indexOf('/');
        if (slash < 0)
            continue;
        const QString path = QFile::decodeName(line.mid(slash));
        if (QFileInfo(path).fileName().startsWith(QLatin1String("libzql-modules.so")))
            return QFileInfo(path).absolutePath();
    }
    return QString();
}

std::string local(const QString &text)
{
    return QFile::encodeName(text).toStdString();
}

// The unified diff of one changed file, through a memory file.
bool diffOf(const ZqlSandbox::ChangedFile &file, QByteArray *block, std::string *error)
{
    const int fd = ::memfd_create("zql-policy-diff", MFD_CLOEXEC);
    if (fd < 0) {
        *error = std::string("memfd_create: ") + std::strerror(errno);
        return false;
    }
    bool ok = ZqlSandbox::writeUnifiedDiff({file}, fd, error);
    if (ok && error->empty()) {
        QFile written;
        ok = ::lseek(fd, 0, SEEK_SET) == 0 &&
             written.open(fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle);
        if (ok)
            *block = written.readAll();
        else
            *error = "the diff could not be read back";
    } else if (error->empty()) {
        *error = "the diff could not be written";
    }
    ::close(fd);
    return ok;
}

} // namespace

SandboxedRun::SandboxedRun(const QStringList &layers)
    : m_layers(layers)
{}

void SandboxedRun::setInput(int fd)
{
    m_input = fd;
}

void SandboxedRun::setCaptureOutput(bool capture)
{
    m_captureOutput = capture;
}

void SandboxedRun::setDiff(bool diff)
{
    m_diff = diff;
}

QByteArray SandboxedRun::output() const
{
    return m_output;
}

QStringList SandboxedRun::changes() const
{
    return m_changes;
}

QVector<FileDiff> SandboxedRun::fileDiffs() const
{
    return m_fileDiffs;
}

int SandboxedRun::run(const QStringList &arguments)
{
    m_output.clear();
    m_changes.clear();
    m_fileDiffs.clear();
    const QString program = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    if (program.isEmpty()) {
        Messages::report(QStringLiteral("cannot find this program's own file"));
        return ExitSandboxFailed;
    }

    ZqlSandbox::Sandbox sandbox;
    for (const QString &layer : m_layers)
        sandbox.addLayer(local(QFileInfo(layer).absoluteFilePath()));
    QStringList shares;
    for (const QString &dir : {QFileInfo(program).absolutePath(), libraryDirectory()}) {
        if (!dir.isEmpty() && hiddenInSandbox(dir) && !shares.contains(dir))
            shares.append(dir);
    }
    for (const QString &dir : qAsConst(shares))
        sandbox.addShare(local(dir));
    sandbox.setRecordChanges(m_diff);

    int captureFd = -1;
    if (m_captureOutput) {
        captureFd = ::memfd_create("zql-policy-output", MFD_CLOEXEC);
        if (captureFd < 0) {
            Messages::report(QStringLiteral("cannot keep the output: %1")
                                 .arg(QString::fromLocal8Bit(std::strerror(errno))));
            return ExitSandboxFailed;
        }
    }

    // Each changed file's block of the diff, kept for the preview.
    std::string diffError;
    if (m_diff) {
        sandbox.setInspector([&](const std::vector<ZqlSandbox::ChangedFile> &files) {
            for (const ZqlSandbox::ChangedFile &file : files) {
                const QString path = QFile::decodeName(file.change.path.c_str());
                m_changes.append(QLatin1Char(file.change.kind) + QLatin1Char(' ') + path);
                QByteArray block;
                if (diffError.empty() && !diffOf(file, &block, &diffError))
                    continue;
                m_fileDiffs.append(DryRunPreview::fromBlock(path, block));
            }
        });
    }

    std::vector<std::string> command{local(program)};
    for (const QString &argument : arguments)
        command.push_back(local(argument));

    int status = ExitSandboxFailed;
    {
        StreamRedirection input(m_input >= 0 ? m_input : 0, 0);
        StreamRedirection output(captureFd >= 0 ? captureFd : (m_diff ? 2 : 1), 1);
        if (!input.ok() || !output.ok()) {
            Messages::report(QStringLiteral("cannot hand the streams to the sandbox: %1")
                                 .arg(QString::fromLocal8Bit(std::strerror(errno))));
        } else {
            SignalGuard signalGuard(&sandbox);
            status = sandbox.run(command);
        }
    }

    if (captureFd >= 0) {
        QFile captured;
        if (::lseek(captureFd, 0, SEEK_SET) == 0 &&
            captured.open(captureFd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
            m_output = captured.readAll();
        } else {
            ::close(captureFd);
        }
    }
    const int interruption = caughtSignal.load();
    if (interruption != 0) {
        // What the run did until then is half a picture: nothing of it is shown.
        m_output.clear();
        m_changes.clear();
        m_fileDiffs.clear();
        Messages::report(QStringLiteral("interrupted by %1; nothing was changed")
                             .arg(QString::fromLatin1(sigabbrev_np(interruption) != nullptr
                                                          ? sigabbrev_np(interruption)
                                                          : "a signal")
                                      .prepend(QStringLiteral("SIG"))));
        return 128 + interruption;
    }
    if (status == ZqlSandbox::Sandbox::ExitSetupFailed && !sandbox.errorString().empty()) {
        // The sandbox library words its errors for its own program ("zql-sandbox: ...").
        QString reason = QString::fromLocal8Bit(sandbox.errorString().c_str());
        if (reason.startsWith(QLatin1String("zql-sandbox: ")))
            reason.remove(0, int(std::strlen("zql-sandbox: ")));
        Messages::report(QStringLiteral("the sandbox failed: %1").arg(reason));
        return ExitSandboxFailed;
    }
    if (!diffError.empty()) {
        Messages::report(QStringLiteral("the diff of the dry run failed: %1")
                             .arg(QString::fromLocal8Bit(diffError.c_str())));
        return ExitSandboxFailed;
    }
    return status;
}

} // namespace ZqlPolicy
