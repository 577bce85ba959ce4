#ifndef ZQLMODULES_FILENOTEXISTEXCEPTION_H
#define ZQLMODULES_FILENOTEXISTEXCEPTION_H

#include "fileexception.h"

/** The file to read does not exist; the error text is empty. */
class ZQLMODULES_EXPORT FileNotExistException : public FileException
{
public:
    explicit FileNotExistException(const QString &fileName);
};

#endif // ZQLMODULES_FILENOTEXISTEXCEPTION_H
