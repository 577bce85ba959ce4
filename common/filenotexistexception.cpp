#include "filenotexistexception.h"

FileNotExistException::FileNotExistException(const QString &fileName)
    : FileException(fileName, QString())
{}
