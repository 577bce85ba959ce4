#ifndef ZQLPOLICY_DIAGNOSTICRELAY_H
#define ZQLPOLICY_DIAGNOSTICRELAY_H

#include <QByteArray>

#include <mutex>
#include <thread>

namespace ZqlPolicy {

/**
 * Keeps every line that reaches the terminal whole while the modules run. For its life,
 * standard output and standard error are pipes that a thread passes on to the real streams
 * byte for byte, as they come. A diagnostic of the library that does not end with a line
 * feed is ended before anything else is written: zql-policy's own lines (writeLine()), the
 * next module's diagnostics (endLines() between modules) and what follows the relay.
 *
 * One relay at a time; it owns the two descriptors and never touches the library's streams.
 */
class DiagnosticRelay
{
public:
    /** Where the library's standard output goes. */
    enum class Notes {
        ToStandardOutput,
        ToStandardError ///< standard output carries a document of ours (get, export)
    };

    explicit DiagnosticRelay(Notes notes = Notes::ToStandardOutput);
    ~DiagnosticRelay();
    DiagnosticRelay(const DiagnosticRelay &) = delete;
    DiagnosticRelay &operator=(const DiagnosticRelay &) = delete;

    /** Whether the streams are relayed; if not, they were left as they were. */
    bool ok() const { return m_ok; }

    /** Passes on what was written so far and ends a line left open (no relay: nothing). */
    static void endLines();

    /**
     * Writes @p bytes whole to the real stream @p fd (1 or 2), after what was written before
     * and with any open line ended first. Works with and without a relay.
     */
    static void write(int fd, const QByteArray &bytes);

    /** The descriptor of the real stream @p fd (1 or 2): the saved one while a relay runs. */
    static int realFd(int fd);

private:
    struct Channel
    {
        int readEnd = -1;
        int destination = -1; // a saved real stream
        bool lineOpen = false;
    };

    void relay();
    bool drain(Channel &channel);
    void endOpenLines();
    // Passes on what every channel holds and ends open lines; m_mutex is held.
    void passOn();
    void stop();

    Channel m_channels[2];
    int m_channelCount = 0;
    int m_savedOutput = -1;
    int m_savedError = -1;
    int m_wake[2] = {-1, -1};
    bool m_ok = false;
    std::mutex m_mutex;
    std::thread m_thread;
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_DIAGNOSTICRELAY_H
