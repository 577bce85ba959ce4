#include "progressreporter.h"

#include "diagnosticrelay.h"
#include "messages.h"

#include <QByteArray>

#include <cstdlib>
#include <unistd.h>

namespace ZqlPolicy {

namespace {

QString seconds(std::chrono::steady_clock::duration elapsed)
{
    const double value = std::chrono::duration<double>(elapsed).count();
    return QString::number(value, 'f', value < 10 ? 1 : 0);
}

} // namespace

std::chrono::milliseconds ProgressReporter::defaultInterval()
{
    const QByteArray setting = qgetenv("ZQL_POLICY_PROGRESS_INTERVAL_MS");
    bool ok = false;
    const int value = setting.toInt(&ok);
    return std::chrono::milliseconds(ok && value > 0 ? value : 5000);
}

ProgressReporter::ProgressReporter(int fd, std::chrono::milliseconds interval)
    : m_fd(fd)
    , m_interval(interval)
    , m_enabled(::isatty(DiagnosticRelay::realFd(fd)) == 1)
{}

ProgressReporter::~ProgressReporter()
{
    finish();
}

void ProgressReporter::start(const QString &step)
{
    finish();
    if (!m_enabled)
        return;
    m_stop = false;
    m_thread = std::thread(&ProgressReporter::run, this, step, std::chrono::steady_clock::now());
}

void ProgressReporter::finish()
{
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void ProgressReporter::run(const QString &step, std::chrono::steady_clock::time_point begin)
{
    bool reported = false;
    std::unique_lock<std::mutex> lock(m_mutex);
    auto next = begin + m_interval;
    while (!m_wake.wait_until(lock, next, [this] { return m_stop; })) {
        Messages::writeLine(m_fd,
                            QStringLiteral("zql-policy: %1: %2 s")
                                .arg(step, seconds(std::chrono::steady_clock::now() - begin)));
        reported = true;
        next += m_interval;
    }
    if (reported) {
        Messages::writeLine(m_fd,
                            QStringLiteral("zql-policy: %1: done after %2 s")
                                .arg(step, seconds(std::chrono::steady_clock::now() - begin)));
    }
}

} // namespace ZqlPolicy
