#include "fileattributes_p.h"

#include <QByteArray>
#include <QFile>

#include <cerrno>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {
// Copies every extended attribute of @p source onto @p fd. Security labels and ACLs are
// extended attributes too, so they travel with the rest.
int keepExtendedAttributes(int fd, const QByteArray &source)
{
    ssize_t size = ::listxattr(source.constData(), nullptr, 0);
    if (size < 0)
        return errno == ENOTSUP ? 0 : errno;
    QByteArray names;
    // The list can grow between the two calls; ERANGE then asks for a new size.
    for (int attempt = 0; attempt < 4; ++attempt) {
        names.resize(static_cast<int>(size));
        size = ::listxattr(source.constData(), names.data(), static_cast<size_t>(names.size()));
        if (size >= 0 || errno != ERANGE)
            break;
        size = ::listxattr(source.constData(), nullptr, 0);
        if (size < 0)
            return errno;
    }
    if (size < 0)
        return errno;
    names.truncate(static_cast<int>(size));

    for (const QByteArray &name : names.split('\0')) {
        if (name.isEmpty())
            continue;
        const ssize_t length = ::getxattr(source.constData(), name.constData(), nullptr, 0);
        if (length < 0) {
            if (errno == ENODATA) // removed in the meantime
                continue;
            return errno;
        }
        QByteArray value(static_cast<int>(length), '\0');
        const ssize_t read =
            ::getxattr(source.constData(), name.constData(), value.data(), value.size());
        if (read < 0)
            return errno;
        if (::fsetxattr(fd, name.constData(), value.constData(), static_cast<size_t>(read), 0) != 0)
            return errno;
    }
    return 0;
}
} // namespace

int keepFileAttributes(int fd, const QString &path)
{
    const QByteArray source = QFile::encodeName(path);
    struct stat original = {};
    if (::stat(source.constData(), &original) != 0)
        return errno == ENOENT ? 0 : errno;
    struct stat current = {};
    if (::fstat(fd, &current) != 0)
        return errno;
    // The owner first: a change of owner clears the set-id bits that the mode then restores.
    if ((current.st_uid != original.st_uid || current.st_gid != original.st_gid) &&
        ::fchown(fd, original.st_uid, original.st_gid) != 0)
        return errno;
    if (::fchmod(fd, original.st_mode & 07777) != 0)
        return errno;
    return keepExtendedAttributes(fd, source);
}
