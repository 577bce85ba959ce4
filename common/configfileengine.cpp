#include "configfileengine.h"

#include "configfileengine_p.h"
#include "messages_p.h"
#include "processrunner.h"
#include "regexphandler.h"

#include <QFile>
#include <QObject>

namespace {
const QString CopyProgram = QStringLiteral("cp");
const QStringList CopyOptions = {QStringLiteral("--force"),
                                 QStringLiteral("--preserve=mode,ownership")};
const QString TemporaryNameFormat = QStringLiteral("%1.tmp");
const QString BackupNameFormat = QStringLiteral("%1.bak");
const char CommentSign = '#';

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

// Writes all of @p bytes. The file is unbuffered, so a short write (a disk that fills up
// midway) is retried once for the rest, which then fails with the system's reason set on the
// device instead of passing unnoticed.
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

    // The temporary copy starts as a copy of the target so that it carries its mode and owner.
    const QString temporaryPath = TemporaryNameFormat.arg(path);
    if (!copyFile(path, temporaryPath, errors))
        return false;

    QFile temporary(temporaryPath);
    if (!target.open(QIODevice::ReadOnly)) {
        appendMessage(errors, fileErrorMessage(target));
        return false;
    }
    if (!temporary.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        appendMessage(errors, fileErrorMessage(temporary));
        return false;
    }

    // A read error or a full disk must not reach the target: a short temporary copy would
    // replace the whole file.
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
        written = writeAll(temporary, line);
    }
    QByteArray tail;
    if (written && handler.appendMissing(&tail))
        written = writeAll(temporary, tail);
    if (!written) {
        appendMessage(errors, fileErrorMessage(temporary));
        return false;
    }
    target.close();
    temporary.close();

    if (makeBackup) {
        const QString backupPath = BackupNameFormat.arg(path);
        if (QFile::exists(backupPath))
            QFile::remove(backupPath);
        if (!target.copy(backupPath)) {
            appendMessage(errors, fileErrorMessage(target));
            return false;
        }
    }

    if (!copyFile(temporaryPath, path, errors))
        return false;

    if (!temporary.remove()) {
        appendMessage(errors, fileErrorMessage(temporary));
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

bool commitChecked(QSaveFile &file)
{
    // Without a commit the save file throws its temporary copy away when it is destroyed.
    return file.flush() && file.error() == QFileDevice::NoError && file.commit();
}

bool saveWhole(QSaveFile &file, const QByteArray &bytes)
{
    return file.write(bytes) == bytes.size() && commitChecked(file);
}
