#include "writefileexception.h"

WriteFileException::WriteFileException(const QString &fileName, const QString &errorString)
    : FileException(fileName, errorString)
{}
