#include "searchpathfront.h"

#include "sandboxguard.h"
#include "systemfixture.h"

#include <QFile>

namespace ZqlTest {
namespace {
const QString LogName = QStringLiteral(".runs");
} // namespace

SearchPathFront::SearchPathFront()
    : m_savedPath(qgetenv("PATH"))
{
    // Tools written here would run in place of the system's: only inside the sandbox.
    if (!insideSandbox(&m_violation) || !m_directory.isValid())
        return;
    qputenv("PATH", QFile::encodeName(m_directory.path()) + ':' + m_savedPath);
}

SearchPathFront::~SearchPathFront()
{
    qputenv("PATH", m_savedPath);
}

bool SearchPathFront::isValid(QString *error) const
{
    if (!m_violation.isEmpty()) {
        *error = m_violation;
        return false;
    }
    if (!m_directory.isValid()) {
        *error = QStringLiteral("cannot create a directory for the search path: %1")
                     .arg(m_directory.errorString());
        return false;
    }
    return true;
}

QString SearchPathFront::directory() const
{
    return m_directory.path();
}

bool SearchPathFront::addTool(const QString &name, const QByteArray &then)
{
    if (!m_violation.isEmpty() || !m_directory.isValid())
        return false;
    const QString path = m_directory.filePath(name);
    const QByteArray log = QFile::encodeName(m_directory.filePath(LogName));
    const QByteArray script = "#!/bin/sh\necho \"path " + QFile::encodeName(name) + " $*\" >> '" +
                              log + "'\n" + then + '\n';
    return writeBytes(path, script) &&
           QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                           QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther |
                                           QFile::ExeOther);
}

QStringList SearchPathFront::runs() const
{
    const QByteArray log = readBytes(m_directory.filePath(LogName));
    return QString::fromLocal8Bit(log).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace ZqlTest
