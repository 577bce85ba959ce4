#ifndef ZQLPOLICY_MESSAGES_H
#define ZQLPOLICY_MESSAGES_H

#include <QString>

namespace ZqlPolicy {

/**
 * zql-policy's own lines on a terminal or in a log. Each line goes out whole, after a line of
 * the library's diagnostics left open was ended (DiagnosticRelay), whichever thread writes it.
 */
class Messages
{
public:
    /** Writes @p line and a line feed to @p fd. */
    static void writeLine(int fd, const QString &line);

    /** "zql-policy: <text>" on standard error, after what was written to standard output. */
    static void report(const QString &text);
};

} // namespace ZqlPolicy

#endif // ZQLPOLICY_MESSAGES_H
