#ifndef ZQLMODULES_CONFIGFILEENGINE_H
#define ZQLMODULES_CONFIGFILEENGINE_H

#include "zqlmodules_export.h"

#include <QString>

class RegExpHandler;

/*
 * The configuration-file engine: line-oriented files are read through a RegExpHandler and
 * rewritten through a temporary copy ("<path>.tmp") and, when asked, a backup ("<path>.bak"),
 * so that a failure never leaves the file half-written. A line is offered to the handler when
 * the part before its first "#", trimmed, is not empty and matches the handler's pattern.
 *
 * Each routine appends its message to the caller's error text ("\n" in front of it when the
 * text is not empty), returns `false` on failure and never throws.
 */

/**
 * Offers every matching line of @p path to @p handler with a null line.
 * @return `false` when the file does not exist or cannot be opened or read.
 */
ZQLMODULES_EXPORT bool readFileWithHandler(const QString &path, RegExpHandler &handler,
                                           QString &errors);

/**
 * Rewrites @p path through @p handler: unmatched lines are copied byte for byte, matched ones
 * may be replaced (their comment is kept), and what RegExpHandler::appendMissing() gives is
 * added at the end. The new content is written to "<path>.tmp", the old one copied to
 * "<path>.bak" when @p makeBackup is set, and the temporary copy then copied over @p path
 * with its mode and owner.
 *
 * What survives a failure: a missing file leaves everything as it was (nothing is created); a
 * failed temporary copy, open or write leaves @p path untouched (a partial ".tmp" may remain);
 * a failed backup leaves @p path untouched and the ".tmp" in place; after a failed final copy
 * the ".bak" (when asked for) holds the old content and the ".tmp" the new one; a failed
 * removal of the ".tmp" leaves the new @p path and a stale ".tmp", and is reported as a
 * failure.
 */
ZQLMODULES_EXPORT bool rewriteFileWithHandler(const QString &path, RegExpHandler &handler,
                                              QString &errors, bool makeBackup);

/**
 * Copies @p source over @p target with "cp --force --preserve=mode,ownership", so that the
 * target keeps the mode and owner of the source. A missing source is reported by cp.
 */
ZQLMODULES_EXPORT bool copyFile(const QString &source, const QString &target, QString &errors);

#endif // ZQLMODULES_CONFIGFILEENGINE_H
