#include "openfileexception.h"

OpenFileException::OpenFileException(const QString &fileName, QIODevice::OpenMode openMode,
                                     const QString &errorString)
    : FileException(fileName, errorString)
    , m_openMode(static_cast<int>(openMode))
{}

int OpenFileException::openMode() const
{
    return m_openMode;
}
