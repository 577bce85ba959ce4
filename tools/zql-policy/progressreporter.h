#ifndef ZQLPOLICY_PROGRESSREPORTER_H
#define ZQLPOLICY_PROGRESSREPORTER_H

#include <QString>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace ZqlPolicy {

/**
 * Shows how long a step has been running, for steps that can take minutes (an initramfs
 * rebuild, a switch change), so that an administrator at a terminal can tell a slow step from
 * a hung one.
 *
 * Only when the file descriptor is a terminal: once per interval it writes one whole line,
 * "zql-policy: <step>: <seconds> s", and when the step ends after such a line, one more,
 * "zql-policy: <step>: done after <seconds> s". Each line is one write, so it never splits a
 * line of the library's diagnostics. Steps shorter than the interval print nothing.
 */
class ProgressReporter
{
public:
    /** The interval: ZQL_POLICY_PROGRESS_INTERVAL_MS when set to a positive number, else 5 s. */
    static std::chrono::milliseconds defaultInterval();

    explicit ProgressReporter(int fd = 2, std::chrono::milliseconds interval = defaultInterval());
    ~ProgressReporter();
    ProgressReporter(const ProgressReporter &) = delete;
    ProgressReporter &operator=(const ProgressReporter &) = delete;

    /** Starts timing @p step; ends the one before, if any. */
    void start(const QString &step);

    /** Ends the current step. */
    void finish();

private:
    void run(const QString &step, std::chrono::steady_clock::time_point begin);

    const int m_fd;
    const std::chrono::milliseconds m_interval;
    const bool m_enabled;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stop = false;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_PROGRESSREPORTER_H
