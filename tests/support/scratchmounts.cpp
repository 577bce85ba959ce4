#include "scratchmounts.h"

#include "systemfixture.h"

#include <QFile>

namespace ZqlTest {

bool ScratchMounts::tmpfs(const QString &dir, const QString &options, QString *error)
{
    if (!mountTmpfs(dir, options, error))
        return false;
    m_mounts.append(dir);
    return true;
}

bool ScratchMounts::readOnly(const QString &path, QString *error)
{
    if (!bindReadOnly(path, error))
        return false;
    m_mounts.append(path);
    return true;
}

bool ScratchMounts::unmountAll(QString *error)
{
    bool ok = true;
    while (!m_mounts.isEmpty())
        ok = unmount(m_mounts.takeLast(), error) && ok;
    return ok;
}

void fillFileSystem(const QString &dir)
{
    QFile filler(dir + QStringLiteral("/filler"));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    const QByteArray block(4096, 'x');
    while (filler.write(block) == block.size() && filler.flush()) {
    }
}

} // namespace ZqlTest
