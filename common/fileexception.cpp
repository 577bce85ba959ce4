#include "fileexception.h"

FileException::FileException(const QString &fileName, const QString &errorString)
    : m_fileName(fileName)
    , m_errorString(errorString)
{}

FileException::~FileException() = default;

QString FileException::fileName() const
{
    return m_fileName;
}

QString FileException::errorString() const
{
    return m_errorString;
}
