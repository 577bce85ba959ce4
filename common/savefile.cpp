#include "savefile_p.h"

#include "fileattributes_p.h"

#include <cstring>

SaveFile::SaveFile(const QString &name)
    : QSaveFile(name)
{}

bool SaveFile::commitChecked()
{
    // On a failure here the object throws its temporary copy away when it is destroyed.
    if (!flush() || error() != QFileDevice::NoError)
        return false;
    // Symbolic links are followed: the attributes are those of the file that is replaced.
    const int failure = keepFileAttributes(handle(), fileName());
    if (failure != 0) {
        cancelWriting();
        commit(); // refused after the cancel: it only discards the temporary copy
        setErrorString(QString::fromLocal8Bit(std::strerror(failure)));
        return false;
    }
    return commit();
}

bool SaveFile::saveWhole(const QByteArray &bytes)
{
    return write(bytes) == bytes.size() && commitChecked();
}
