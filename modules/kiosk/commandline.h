#ifndef ZQLMODULES_COMMANDLINE_H
#define ZQLMODULES_COMMANDLINE_H

#include "zqlmodules_export.h"

#include <QString>
#include <QStringList>

/**
 * A command of a desktop entry, split into its program and arguments at blanks.
 *
 * A relative program is looked up in "/usr/local/bin/", "/usr/bin/", "/bin/",
 * "/usr/local/games/" and "/usr/games/", in this order, and made absolute at the first
 * directory that has it. Quoting is not understood: every blank separates two words.
 */
class ZQLMODULES_EXPORT CommandLine
{
public:
    /** An empty command: no program, no arguments. */
    CommandLine();

    /** Splits @p text at blanks, dropping empty words, and resolves the program. */
    explicit CommandLine(const QString &text);

    /** @return the whole command: the program and the arguments joined by single blanks. */
    QString command() const;

    /** @return the first word, absolute when it was found in a search directory. */
    QString program() const;

    /** @return the words after the program. */
    QStringList arguments() const;

    /**
     * Whether the command may be run as it is. False for an empty program and for a word that
     * holds ";", ":", "&", "?" or "<>" followed by any commas (a single "<", ">" or "|" is
     * let through). An absolute program must be an existing executable regular file; a
     * relative one must hold no "/" and at least one character outside ASCII.
     */
    bool isValid() const;

private:
    QString m_command;
    QString m_program;
    QStringList m_arguments;
};

#endif // ZQLMODULES_COMMANDLINE_H
