// Reference implementation of VelaAdmin::Mode for stock Debian: the mode is the decimal number
// on the first line of one file. A missing, unreadable or malformed file means mode 0.

#include "velaadmin/mode.h"

#include <QFile>
#include <QString>

namespace {
const QString ModeFile = QStringLiteral("/etc/zql-platform/security-mode");
// The file holds one short number; more than this is not a mode file.
constexpr qint64 MaximumModeFileSize = 64;
} // namespace

namespace VelaAdmin {

int Mode::getCurrentMode()
{
    QFile file(ModeFile);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray content = file.read(MaximumModeFileSize + 1);
    if (content.size() > MaximumModeFileSize)
        return 0;
    const QByteArray firstLine = content.split('\n').value(0).trimmed();
    bool ok = false;
    const int mode = firstLine.toInt(&ok, 10);
    return ok ? mode : 0;
}

} // namespace VelaAdmin
