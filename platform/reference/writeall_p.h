#ifndef ZQLMODULES_PLATFORM_REFERENCE_WRITEALL_P_H
#define ZQLMODULES_PLATFORM_REFERENCE_WRITEALL_P_H

// Private to the reference implementation: writing a whole buffer to a file descriptor.

#include <cerrno>
#include <string>

#include <unistd.h>

namespace ZqlPlatformReference {

// Writes all of @p bytes to @p fd, again after an interruption. @return false with errno set
// when a write fails (a full file system: ENOSPC); part of the bytes may have been written.
inline bool writeAll(int fd, const std::string &bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        if (written == 0) {
            errno = EIO; // no progress: never loop for ever
            return false;
        }
        done += static_cast<size_t>(written);
    }
    return true;
}

} // namespace ZqlPlatformReference

#endif // ZQLMODULES_PLATFORM_REFERENCE_WRITEALL_P_H
