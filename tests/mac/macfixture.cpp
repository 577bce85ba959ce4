#include "macfixture.h"

#include "sandboxguard.h"
#include "systemfixture.h"

#include <QFile>

namespace {
bool inSandbox()
{
    QString error;
    return ZqlTest::insideSandbox(&error);
}

QStringList logLines(const QString &path)
{
    const QString text = QString::fromUtf8(ZqlTest::readBytes(path));
    QStringList lines = text.split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

bool writeOrRemove(const QString &path, const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return !QFile::exists(path) || QFile::remove(path);
    return ZqlTest::writeBytes(path, bytes);
}
} // namespace

namespace ZqlTest {

bool setMacControlState(bool activeNow, bool plannedOn)
{
    return inSandbox() &&
           writeBytes(MacControlDir + QStringLiteral("/active"),
                      activeNow ? QByteArray("yes\n") : QByteArray("no\n")) &&
           writeBytes(MacControlDir + QStringLiteral("/planned"),
                      plannedOn ? QByteArray("enabled\n") : QByteArray("disabled\n"));
}

bool setMacControlFault(const QByteArray &line)
{
    return inSandbox() && writeOrRemove(MacControlDir + QStringLiteral("/fault"),
                                        line.isEmpty() ? line : line + '\n');
}

bool setMacControlWarning(const QByteArray &text)
{
    return inSandbox() && writeOrRemove(MacControlDir + QStringLiteral("/warning"), text);
}

bool startMacControlLog()
{
    return inSandbox() && writeBytes(MacControlDir + QStringLiteral("/calls.log"), {});
}

QStringList macControlCalls()
{
    return logLines(MacControlDir + QStringLiteral("/calls.log"));
}

bool setUnitActive(const QString &unit, bool active)
{
    return inSandbox() &&
           writeBytes(SystemctlDir + QLatin1Char('/') + unit + QStringLiteral(".state"),
                      active ? QByteArray("active\n") : QByteArray("inactive\n"));
}

bool clearSystemctlLog()
{
    return inSandbox() && writeBytes(SystemctlDir + QStringLiteral("/calls.log"), {});
}

QStringList systemctlCalls()
{
    return logLines(SystemctlDir + QStringLiteral("/calls.log"));
}

bool setSecurityMode(int mode)
{
    return inSandbox() && writeBytes(ModeFile, QByteArray::number(mode) + '\n');
}

} // namespace ZqlTest
