#ifndef ZQLMODULES_WRITEFILEEXCEPTION_H
#define ZQLMODULES_WRITEFILEEXCEPTION_H

#include "fileexception.h"

/** Writing or committing the file failed; the error text is the system's reason. */
class ZQLMODULES_EXPORT WriteFileException : public FileException
{
public:
    WriteFileException(const QString &fileName, const QString &errorString);
};

#endif // ZQLMODULES_WRITEFILEEXCEPTION_H
