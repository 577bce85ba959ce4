#ifndef ZQLMODULES_REGEXPHANDLER_H
#define ZQLMODULES_REGEXPHANDLER_H

#include "zqlmodules_export.h"

#include <QByteArray>
#include <QRegExp>
#include <QString>

/**
 * A line handler of the configuration-file engine: one pattern, and what to do with each line
 * that the pattern matches.
 *
 * readFileWithHandler() offers matching lines with a null line (a reader fills its results
 * from the captures); rewriteFileWithHandler() offers the raw line, which the handler may
 * replace. The captures of the match are available from regExp() while handleLine() runs.
 */
class ZQLMODULES_EXPORT RegExpHandler
{
public:
    /** @param pattern case-sensitive, Perl-like regular expression for the lines to handle. */
    explicit RegExpHandler(const QString &pattern);
    virtual ~RegExpHandler();

    /**
     * Handles one matching line.
     * @param line null when reading; when rewriting, the raw line with its line break.
     * @return `true` when the handler replaced @p line by new content without line break
     *         (the engine then adds the old comment and the line break); `false` when it left
     *         the line whole.
     */
    virtual bool handleLine(QByteArray *line) = 0;

    /**
     * Called once at the end of a rewrite to add lines that no existing line carried.
     * @return `true` when @p tail holds bytes to append. The base adds nothing.
     */
    virtual bool appendMissing(QByteArray *tail);

    /** Replaces the line pattern. */
    void setRegExp(const QRegExp &regExp);

    /** The line pattern, with the captures of the last match. */
    const QRegExp &regExp() const;

private:
    QRegExp m_regExp;
};

#endif // ZQLMODULES_REGEXPHANDLER_H
