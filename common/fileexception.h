#ifndef ZQLMODULES_FILEEXCEPTION_H
#define ZQLMODULES_FILEEXCEPTION_H

#include "zqlmodules_export.h"

#include <QException>
#include <QString>

/**
 * A failed file operation inside a reader: the file's name and the system's reason.
 * Thrown by inner readers only; module operations catch it, so it never reaches a host.
 */
class ZQLMODULES_EXPORT FileException : public QException
{
public:
    FileException(const QString &fileName, const QString &errorString);
    ~FileException() override;

    /** The file that failed. */
    QString fileName() const;
    /** The system's reason, empty when there is none. */
    QString errorString() const;

private:
    QString m_fileName;
    QString m_errorString;
};

#endif // ZQLMODULES_FILEEXCEPTION_H
