#include "configfileengine.h"

#include "configfileengine_p.h"
#include "messages_p.h"
#include "processrunner.h"
#include "regexphandler.h"

#include "fileattributes_p.h"

#include <QFile>
#include <QFileInfo>
#include <QObject>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {
const QString CopyProgram = QStringLiteral("cp");
const QStringList CopyOptions = {QStringLiteral("--force"),
                                 QStringLiteral("--preserve=mode,ownership")};
const QString TemporaryNameFormat = QStringLiteral("%1.tmp");
const QString BackupNameFormat = QStringLiteral("%1.bak");
const char CommentSign = '#';
const int WriteBlockSize = 64 * 1024;

QString notExistsMessage(const QFile &file)
{
    return QObject::tr("\"%1\" not exists").arg(file.fileName());
}

// A line goes to the handler when the part before its first "#" holds anything after trimming
// and the handler's pattern finds a match there.
bool isOffered(const QByteArray &rawLine, const RegExpHandler &handler)
{
    QString content = QString::fromLocal8Bit(rawLine);
    const int comment = content.indexOf(QLatin1Char(CommentSign));
    if (comment >= 0)
        content.truncate(comment);
    content = content.trimmed();
    if (content.isEmpty())
        return false;
    return handler.regExp().indexIn(content) != -1;
}

// The comment of a replaced line is kept: a tab and the text from its "#" on, trimmed.
QByteArray keptComment(const QByteArray &rawLine)
{
    const int comment = rawLine.indexOf(CommentSign);
    if (comment < 0)
        return {};
    const QString text = QString::fromLocal8Bit(rawLine.mid(comment)).trimmed();
    if (text.isEmpty())
        return {};
    return '\t' + text.toLocal8Bit();
}

// Writes all of @p bytes to the unbuffered @p file. A short write (a disk that fills up midway)
// is retried for the rest, which then fails with the system's reason set on the device instead
// of passing unnoticed.
bool writeAll(QFile &file, const QByteArray &bytes)
{
    qint64 written = 0;
    while (written < bytes.size()) {
        const qint64 n = file.write(bytes.constData() + written, bytes.size() - written);
        if (n <= 0)
            return false;
        written += n;
    }
    return true;
}

QString systemErrorMessage(const QString &fileName, QFileDevice::FileError code, int errnum)
{
    return QObject::tr("\"%1\" error %2\n%3")
        .arg(fileName, QString::number(code), QString::fromLocal8Bit(std::strerror(errnum)));
}

// The rewrite's temporary copy. It is removed when the rewrite gives up, so that no partial or
// stale copy stays where a tool reads the whole directory.
class TemporaryCopy : public QFile
{
public:
    explicit TemporaryCopy(const QString &name)
        : QFile(name)
    {}
    TemporaryCopy(const TemporaryCopy &) = delete;
    TemporaryCopy &operator=(const TemporaryCopy &) = delete;
    TemporaryCopy(TemporaryCopy &&) = delete;
    TemporaryCopy &operator=(TemporaryCopy &&) = delete;
    ~TemporaryCopy() override
    {
        if (!m_replaced) {
            close();
            // Something that was in the way (a directory, say) is not ours to remove.
            if (QFileInfo(fileName()).isFile())
                remove();
        }
    }

    // Flushes the copy and makes it durable with the attributes of @p original (extended
    // attributes included, which cp leaves behind), then closes it.
    bool finish(const QString &original)
    {
        int failure = keepFileAttributes(handle(), original);
        if (failure == 0 && ::fsync(handle()) != 0)
            failure = errno;
        if (failure != 0) {
            m_failure = systemErrorMessage(fileName(), QFileDevice::WriteError, failure);
            return false;
        }
        close();
        if (error() != QFileDevice::NoError) {
            m_failure = fileErrorMessage(*this);
            return false;
        }
        return true;
    }

    // Renames the copy over @p target.
    bool replace(const QString &target)
    {
        if (::rename(QFile::encodeName(fileName()).constData(),
                     QFile::encodeName(target).constData()) != 0) {
            m_failure = systemErrorMessage(target, QFileDevice::RenameError, errno);
            return false;
        }
        m_replaced = true;
        syncDirectoryOf(target);
        return true;
    }

    QString failureMessage() const { return m_failure; }

private:
    static void syncDirectoryOf(const QString &path)
    {
        const int directory = ::open(QFile::encodeName(QFileInfo(path).absolutePath()).constData(),
                                     O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (directory < 0)
            return;
        ::fsync(directory); // the rename is done; this only makes it durable sooner
        ::close(directory);
    }

    QString m_failure;
    bool m_replaced = false;
};
} // namespace

bool readFileWithHandler(const QString &path, RegExpHandler &handler, QString &errors)
{
    QFile file(path);
    if (!file.exists()) {
        appendMessage(errors, notExistsMessage(file));
        return false;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        appendMessage(errors, fileErrorMessage(file));
        return false;
    }
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        if (file.error() != QFileDevice::NoError)
            break;
        if (isOffered(line, handler))
            handler.handleLine(nullptr);
    }
    if (file.error() != QFileDevice::NoError) {
        appendMessage(errors, fileErrorMessage(file));
        return false;
    }
    file.close();
    return true;
}

bool rewriteFileWithHandler(const QString &path, RegExpHandler &handler, QString &errors,
                            bool makeBackup)
{
    QFile target(path);
    if (!target.exists()) {
        appendMessage(errors, notExistsMessage(target));
        return false;
    }

    // A symbolic link stays a link: the file it points to is the one rewritten, and its
    // temporary copy lies beside it so that the final rename stays in one directory.
    const QString realPath =
        QFileInfo(path).isSymLink() ? QFileInfo(path).canonicalFilePath() : path;
    // The temporary copy starts as a copy of the target so that it carries its mode and owner.
    // Whatever the rewrite leaves of it on a failure is removed: tools such as pam-auth-update
    // read every file of their directory.
    TemporaryCopy temporary(TemporaryNameFormat.arg(realPath));
    if (!copyFile(realPath, temporary.fileName(), errors))
        return false;

    if (!target.open(QIODevice::ReadOnly)) {
        appendMessage(errors, fileErrorMessage(target));
        return false;
    }
    if (!temporary.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        appendMessage(errors, fileErrorMessage(temporary));
        return false;
    }

    // The copy is written in large blocks rather than a system call per line; every block is
    // written whole or the rewrite stops, leaving the target as it was.
    QByteArray pending;
    bool written = true;
    while (written && !target.atEnd()) {
        QByteArray line = target.readLine();
        if (target.error() != QFileDevice::NoError) {
            appendMessage(errors, fileErrorMessage(target));
            return false;
        }
        if (isOffered(line, handler)) {
            const QByteArray original = line;
            if (handler.handleLine(&line)) {
                line += keptComment(original);
                line += '\n';
            }
        }
        pending += line;
        if (pending.size() >= WriteBlockSize) {
            written = writeAll(temporary, pending);
            pending.clear();
        }
    }
    QByteArray tail;
    if (written && handler.appendMissing(&tail))
        pending += tail;
    if (written)
        written = writeAll(temporary, pending);
    if (!written) {
        appendMessage(errors, fileErrorMessage(temporary));
        return false;
    }
    if (!temporary.finish(realPath)) {
        appendMessage(errors, temporary.failureMessage());
        return false;
    }
    target.close();

    if (makeBackup) {
        const QString backupPath = BackupNameFormat.arg(path);
        if (QFile::exists(backupPath))
            QFile::remove(backupPath);
        if (!target.copy(backupPath)) {
            appendMessage(errors, fileErrorMessage(target));
            return false;
        }
    }

    // The new content takes the target's place in one step: the target holds either all of its
    // old bytes or all of its new ones, whatever happens meanwhile.
    if (!temporary.replace(realPath)) {
        appendMessage(errors, temporary.failureMessage());
        return false;
    }
    return true;
}

bool copyFile(const QString &source, const QString &target, QString &errors)
{
    return runProcess(CopyProgram, CopyOptions + QStringList{source, target}, errors);
}

QString fileErrorMessage(const QFileDevice &file)
{
    return QObject::tr("\"%1\" error %2\n%3")
        .arg(file.fileName(), QString::number(file.error()), file.errorString());
}
