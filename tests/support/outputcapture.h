#ifndef ZQLTEST_OUTPUTCAPTURE_H
#define ZQLTEST_OUTPUTCAPTURE_H

#include <QByteArray>

namespace ZqlTest {

/**
 * Captures what the process writes to its standard output and standard error (the file
 * descriptors, so the library's own streams are caught too) between construction and
 * finish(). Ends by itself when destroyed.
 */
class OutputCapture
{
public:
    enum Channels {
        SeparateChannels, // standardOutput() and standardError() apart
        MergedChannels    // both into standardOutput(), in the order they were written
    };

    explicit OutputCapture(Channels channels = SeparateChannels);
    ~OutputCapture();
    OutputCapture(const OutputCapture &) = delete;
    OutputCapture &operator=(const OutputCapture &) = delete;

    /** Restores the two descriptors and keeps what was written. */
    void finish();

    QByteArray standardOutput() const { return m_output; }
    QByteArray standardError() const { return m_error; }

private:
    int m_savedOutput = -1;
    int m_savedError = -1;
    int m_outputFile = -1;
    int m_errorFile = -1;
    QByteArray m_output;
    QByteArray m_error;
};

} // namespace ZqlTest

#endif // ZQLTEST_OUTPUTCAPTURE_H
