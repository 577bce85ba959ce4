#include "tesselconffile.h"

#include "configfileengine_p.h"
#include "filenotexistexception.h"
#include "openfileexception.h"
#include "savefile_p.h"
#include "tesselconffile_p.h"
#include "writefileexception.h"

#include <QFile>
#include <QRegularExpression>
#include <QTextStream>

namespace {
const QString ConfigurationPath = QStringLiteral("/etc/tessel/tessel.conf");
// The value word, then optionally a comment; a line whose comment group is empty is plain.
const QRegularExpression LoginLocalLine(
    QStringLiteral("^\\s*login_local\\s*(?P<value>all|admin|no)\\s*(?P<comment>#+.*)?$"));
const QString ValueGroup = QStringLiteral("value");
const QString CommentGroup = QStringLiteral("comment");
const QString AllWord = QStringLiteral("all");
const QString AdminWord = QStringLiteral("admin");
const QString NoWord = QStringLiteral("no");
const QString LineFormat = QStringLiteral("%1\n");
const QString DisabledLineFormat = QStringLiteral("#%1\n");
const QString LoginLocalFormat = QStringLiteral("login_local %1\n");

TesselConfFile::State stateOfWord(const QString &word)
{
    if (word == AllWord)
        return TesselConfFile::All;
    if (word == AdminWord)
        return TesselConfFile::Admin;
    if (word == NoWord)
        return TesselConfFile::No;
    return TesselConfFile::Unknown;
}

// Every state without a word of its own is written as "all", Unknown included.
QString wordOfState(TesselConfFile::State state)
{
    switch (state) {
    case TesselConfFile::Admin:
        return AdminWord;
    case TesselConfFile::No:
        return NoWord;
    default:
        return AllWord;
    }
}
} // namespace

TesselConfFile::Error::Error(const QString &message, const QString &detail)
    : m_message(message)
    , m_detail(detail)
{}

TesselConfFile::Error::~Error() = default;

QString TesselConfFile::Error::message() const
{
    return m_message;
}

QString TesselConfFile::Error::detail() const
{
    return m_detail;
}

TesselConfFile::OperationResult::OperationResult()
    : m_state(Unknown)
{}

TesselConfFile::OperationResult::~OperationResult() = default;

TesselConfFile::State TesselConfFile::OperationResult::state() const
{
    return m_state;
}

QList<TesselConfFile::Error> TesselConfFile::OperationResult::errors() const
{
    return m_errors;
}

void TesselConfFile::OperationResult::setState(State state)
{
    m_state = state;
}

void TesselConfFile::OperationResult::addError(const Error &error)
{
    m_errors.append(error);
}

TesselConfFile::TesselConfFile(QObject *parent)
    : QObject(parent)
{}

TesselConfFile::~TesselConfFile() = default;

TesselConfFile::OperationResult TesselConfFile::getLoginState()
{
    OperationResult result;
    try {
        result.setState(readState(ConfigurationPath));
    } catch (const FileNotExistException &e) {
        result.addError(Error(tr("File '%1' not exist").arg(e.fileName()), e.errorString()));
    } catch (const OpenFileException &e) {
        result.addError(Error(tr("Open file '%1' error").arg(e.fileName()), e.errorString()));
    }
    return result;
}

TesselConfFile::OperationResult TesselConfFile::setLoginState(State state)
{
    OperationResult result;
    try {
        writeState(ConfigurationPath, state);
    } catch (const FileNotExistException &e) {
        result.addError(Error(tr("File '%1' not exist").arg(e.fileName()), e.errorString()));
    } catch (const OpenFileException &e) {
        result.addError(Error(tr("Open file '%1' error").arg(e.fileName()), e.errorString()));
    } catch (const WriteFileException &e) {
        result.addError(Error(tr("Write file '%1' error").arg(e.fileName()), e.errorString()));
    }
    return result;
}

TesselConfFile::State TesselConfFile::readState(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        throw FileNotExistException(path);
    const QIODevice::OpenMode mode = QIODevice::ReadOnly | QIODevice::Text;
    if (!file.open(mode))
        throw OpenFileException(path, mode, file.errorString());

    const State state = loginStateIn(file);
    file.close();
    return state;
}

TesselConfFile::State loginStateIn(QIODevice &device)
{
    // The last valid line wins.
    TesselConfFile::State state = TesselConfFile::Unknown;
    QTextStream stream(&device);
    while (!stream.atEnd()) {
        const QString line = stream.readLine();
        if (line.trimmed().startsWith(QLatin1Char('#')))
            continue;
        const QRegularExpressionMatch match = LoginLocalLine.match(line);
        if (match.hasMatch())
            state = stateOfWord(match.captured(ValueGroup));
    }
    return state;
}

void TesselConfFile::writeState(const QString &path, State state)
{
    QFile input(path);
    if (!input.exists())
        throw FileNotExistException(path);
    const QIODevice::OpenMode readMode = QIODevice::ReadOnly | QIODevice::Text;
    if (!input.open(readMode))
        throw OpenFileException(path, readMode, input.errorString());
    SaveFile output(path);
    const QIODevice::OpenMode writeMode = QIODevice::WriteOnly | QIODevice::Text;
    if (!output.open(writeMode))
        throw OpenFileException(path, writeMode, output.errorString());

    // The first plain login_local line takes the new value; every other one is disabled, so
    // exactly one line is in force afterwards.
    const QString newLine = LoginLocalFormat.arg(wordOfState(state));
    bool written = false;
    QTextStream in(&input);
    QTextStream out(&output);
    while (!in.atEnd()) {
        const QString line = in.readLine();
        const QRegularExpressionMatch match = LoginLocalLine.match(line);
        if (!match.hasMatch()) {
            out << LineFormat.arg(line);
        } else if (!written && match.captured(CommentGroup).isEmpty()) {
            out << newLine;
            written = true;
        } else {
            out << DisabledLineFormat.arg(line);
        }
    }
    input.close();
    if (!written)
        out << newLine;

    out.flush();
    if (!output.commitChecked())
        throw WriteFileException(path, output.errorString());
}
