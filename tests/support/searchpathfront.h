#ifndef ZQLTEST_SEARCHPATHFRONT_H
#define ZQLTEST_SEARCHPATHFRONT_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace ZqlTest {

/**
 * A directory put in front of the search path (PATH) for the lifetime of the object. Tools put
 * there shadow the system's tools of the same name for a program started by its bare name, and
 * never for one started by its absolute path, so a test sees which way a caller runs its tool.
 * Every tool put there logs its runs; PATH is restored when the object goes.
 */
class SearchPathFront
{
public:
    SearchPathFront();
    ~SearchPathFront();
    SearchPathFront(const SearchPathFront &) = delete;
    SearchPathFront &operator=(const SearchPathFront &) = delete;

    /** Whether the directory exists and leads PATH; false outside the sandbox. */
    bool isValid(QString *error) const;
    /** The directory in front of PATH. */
    QString directory() const;

    /**
     * Puts an executable @p name in the directory that appends "path NAME ARGUMENTS" (arguments
     * joined by blanks) to the log, then runs the shell text @p then ("exit 0" by default).
     */
    bool addTool(const QString &name, const QByteArray &then = "exit 0");

    /** One line "path NAME ARGUMENTS" per run of a tool of this directory, in order. */
    QStringList runs() const;

private:
    QTemporaryDir m_directory;
    QByteArray m_savedPath;
    QString m_violation;
};

} // namespace ZqlTest

#endif // ZQLTEST_SEARCHPATHFRONT_H
