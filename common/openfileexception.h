#ifndef ZQLMODULES_OPENFILEEXCEPTION_H
#define ZQLMODULES_OPENFILEEXCEPTION_H

#include "fileexception.h"

#include <QIODevice>

/** The file could not be opened in the given mode; the error text is the QFile error string. */
class ZQLMODULES_EXPORT OpenFileException : public FileException
{
public:
    OpenFileException(const QString &fileName, QIODevice::OpenMode openMode,
                      const QString &errorString);

    /** The open mode that failed, as QIODevice::OpenMode flags. */
    int openMode() const;

private:
    int m_openMode;
};

#endif // ZQLMODULES_OPENFILEEXCEPTION_H
