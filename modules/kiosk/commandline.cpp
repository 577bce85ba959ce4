#include "commandline.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace {
const QStringList SearchDirectories{QStringLiteral("/usr/local/bin/"), QStringLiteral("/usr/bin/"),
                                    QStringLiteral("/bin/"), QStringLiteral("/usr/local/games/"),
                                    QStringLiteral("/usr/games/")};
const QChar WordSeparator = QLatin1Char(' ');
const QChar PathSeparator = QLatin1Char('/');
// Words with shell punctuation. "<>" only counts as a pair; a lone "<", ">" or "|" is
// deliberately let through.
const QRegularExpression ForbiddenWord(QStringLiteral("[;:&?]|<>,*"));
const QRegularExpression NonAscii(QStringLiteral("[^\\x{0000}-\\x{007F}]"));

QString joinWords(const QString &program, const QStringList &arguments)
{
    QStringList words{program};
    words << arguments;
    return words.join(WordSeparator);
}
} // namespace

CommandLine::CommandLine() = default;

CommandLine::CommandLine(const QString &text)
{
    QStringList words = text.split(WordSeparator, Qt::SkipEmptyParts);
    if (words.isEmpty())
        return;
    m_program = words.takeFirst();
    m_arguments = words;
    m_command = joinWords(m_program, m_arguments);
    if (m_program.startsWith(PathSeparator))
        return;
    for (const QString &directory : SearchDirectories) {
        if (QFileInfo::exists(directory + m_program)) {
            m_program.prepend(directory);
            m_command = joinWords(m_program, m_arguments);
            return;
        }
    }
}

QString CommandLine::command() const
{
    return m_command;
}

QString CommandLine::program() const
{
    return m_program;
}

QStringList CommandLine::arguments() const
{
    return m_arguments;
}

bool CommandLine::isValid() const
{
    if (m_program.isEmpty())
        return false;
    const QStringList words = m_command.split(WordSeparator, Qt::SkipEmptyParts);
    for (const QString &word : words) {
        if (ForbiddenWord.match(word).hasMatch())
            return false;
    }
    if (m_program.startsWith(PathSeparator)) {
        const QFileInfo program(m_program);
        return program.exists() && program.isFile() && program.isExecutable();
    }
    return !m_program.contains(PathSeparator) && NonAscii.match(m_program).hasMatch();
}
