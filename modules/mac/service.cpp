#include "service.h"

#include "savefile_p.h"
#include "velaadmin/systemdservice.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

namespace {
const char TranslationContext[] = "Mac::Service";
const QString OnWord = QStringLiteral("on");
const QString OffWord = QStringLiteral("off");
// The directive is put into the patterns as it is, not escaped.
const QString ReadPattern = QStringLiteral("^\\s*%1\\s+(on|off)(\\s|$)");
// Commented copies match too. The blanks are kept within one line, so that the blank lines
// before a directive line survive the rewrite.
const QString WritePattern = QStringLiteral("^[^\\S\\n]*#*[^\\S\\n]*%1[^\\S\\n]+(on|off)");
const QString DirectiveLine = QStringLiteral("%1 %2");

QString openError(const QString &path)
{
    return QCoreApplication::translate(TranslationContext, "Can't open file %1!").arg(path);
}

QString writeError(const QString &path, const QString &reason)
{
    return QCoreApplication::translate(TranslationContext, "Can't write file %1: %2")
        .arg(path, reason);
}
} // namespace

namespace Mac {

Service::Service(const QString &name)
    : m_name(name)
{}

Service::~Service() = default;

QString Service::name() const
{
    return m_name;
}

bool Service::hasError() const
{
    return m_hasError;
}

QString Service::errorString() const
{
    return m_errorString;
}

QString Service::detailString() const
{
    return {};
}

void Service::clearError()
{
    m_hasError = false;
    m_errorString.clear();
}

void Service::recordError(const QString &text)
{
    m_hasError = true;
    m_errorString = text;
}

bool Service::readDirective(const QString &path, const QString &directive)
{
    clearError();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        recordError(openError(path));
        return false;
    }
    const QRegularExpression pattern(ReadPattern.arg(directive));
    while (!file.atEnd()) {
        // Latin-1 maps every byte to one character, so no byte of the file is lost to decoding.
        QString line = QString::fromLatin1(file.readLine());
        if (line.endsWith(QLatin1Char('\n')))
            line.chop(1);
        const QRegularExpressionMatch match = pattern.match(line);
        if (match.hasMatch())
            return match.captured(1) == OnWord;
    }
    return false;
}

void Service::writeDirective(const QString &path, const QString &directive, bool on)
{
    clearError();
    QByteArray bytes;
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            recordError(openError(path));
            return;
        }
        bytes = file.readAll();
    }
    QString text = QString::fromLatin1(bytes);
    const QString line = DirectiveLine.arg(directive, on ? OnWord : OffWord);
    const QRegularExpression pattern(WritePattern.arg(directive),
                                     QRegularExpression::MultilineOption);
    if (pattern.match(text).hasMatch())
        text.replace(pattern, line);
    else
        text += QLatin1Char('\n') + line + QLatin1Char('\n');

    // Replaced as a whole, so that a failed write leaves the old file in place; the new file
    // keeps the old one's owner, group and mode.
    SaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.saveWhole(text.toLatin1()))
        recordError(writeError(path, file.errorString()));
}

Service::State Service::state()
{
    State state;
    state.name = name();
    state.enabled = isEnabled();
    state.hasError = hasError();
    state.text = state.hasError ? errorString() : detailString();
    return state;
}

void Service::applyAndRestart(const QString &path, const QString &directive, const QString &unit,
                              bool on)
{
    writeDirective(path, directive, on);
    // The restart does not depend on the write: a running service picks up whatever is there.
    VelaAdmin::SystemdService service(unit);
    if (service.isActive())
        service.restart();
}

} // namespace Mac
