#ifndef ZQLPOLICY_POLICYINPUT_H
#define ZQLPOLICY_POLICYINPUT_H

#include <QByteArray>
#include <QString>

namespace ZqlPolicy {

/**
 * Where a policy document is read from, with the bounds every read keeps: a regular file or
 * standard input, at most MaximumSize bytes. A device such as /dev/zero or a FIFO given by
 * name is refused before anything is read from it, so a read neither runs for gigabytes nor
 * blocks for a writer that never comes.
 */
class PolicyInput
{
public:
    /** The largest document read: far above any policy, far below a mistake. */
    static constexpr qint64 MaximumSize = qint64(4) * 1024 * 1024;

    /**
     * Opens @p fileName for reading when it names a regular file, without blocking on
     * anything else. Returns the descriptor (close-on-exec), or -1 with the reason in
     * @p failure.
     */
    static int openRegularFile(const QString &fileName, QString *failure);

    /**
     * Reads the whole document from @p fileName, or from standard input when it is empty.
     * Returns false with the reason in @p failure: the system's, "not a regular file", "larger
     * than 4 MiB", "standard input is closed".
     */
    static bool read(const QString &fileName, QByteArray *text, QString *failure);

    /** Reads the whole of @p fd, at most MaximumSize bytes. */
    static bool readAll(int fd, QByteArray *text, QString *failure);
};

/**
 * The three standard streams. A program started with one of them closed would hand that
 * descriptor to the next file it opens, and its output or input would go there instead: the
 * streams found closed at start-up are held on /dev/null, and the commands refuse to use them.
 */
class StandardStreams
{
public:
    /** Holds every closed standard stream on /dev/null; call first thing in main(). */
    static void hold();

    /** Whether descriptor @p fd (0, 1 or 2) was closed when the program started. */
    static bool wasClosed(int fd);
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_POLICYINPUT_H
