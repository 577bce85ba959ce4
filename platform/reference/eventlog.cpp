// Reference implementation of the security event log for stock Debian: one text file, one line
// per event, only ever appended to. A writer holds an exclusive lock on the file while it
// appends, so records of two processes never mix; a record that cannot be written whole (a full
// file system) is cut off again and the event is refused. The format is in docs/platform.md.

#include "tessel/eventlog.h"

#include "reference/writeall_p.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
using ZqlPlatformReference::writeAll;

const char LogDirectory[] = "/var/log/zql-platform";
const char LogPath[] = "/var/log/zql-platform/events.log";
constexpr mode_t LogDirectoryMode = 0750;
constexpr mode_t LogFileMode = 0640;

// Appends @p length bytes of @p text with the separators and control bytes escaped, so that a
// record stays one line of tab-separated fields whatever the texts hold.
void appendEscaped(std::string &record, const char *text, size_t length)
{
    static const char Hex[] = "0123456789abcdef";
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\\') {
            record += "\\\\";
        } else if (byte == '\t') {
            record += "\\t";
        } else if (byte == '\n') {
            record += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            record += "\\x";
            record += Hex[byte >> 4U];
            record += Hex[byte & 0xfU];
        } else {
            record += static_cast<char>(byte);
        }
    }
}

// "2026-11-25T11:20:03.123Z": the time of the event in UTC, to the millisecond.
std::string timestamp()
{
    struct timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    struct tm parts = {};
    ::gmtime_r(&now.tv_sec, &parts);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  now.tv_nsec / 1000000L);
    return text;
}

// Appends @p record whole or not at all. The caller holds the file's lock, so the bytes after
// @p before are this record's own and cutting them off touches no other record.
bool appendRecord(int fd, const std::string &record)
{
    struct stat status = {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    if (writeAll(fd, record) && ::fdatasync(fd) == 0)
        return true;
    const int saved = errno;
    if (::ftruncate(fd, status.st_size) == 0)
        ::fdatasync(fd);
    errno = saved;
    return false;
}

bool recordEvent(const std::string &record)
{
    if (::mkdir(LogDirectory, LogDirectoryMode) != 0 && errno != EEXIST)
        return false;
    const int fd =
        ::open(LogPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, LogFileMode);
    if (fd < 0)
        return false;
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            ::close(fd);
            return false;
        }
    }
    const bool recorded = appendRecord(fd, record);
    ::close(fd); // releases the lock
    return recorded;
}
} // namespace

extern "C" {

int tessel_log_send(int code, int success, const char *text, size_t text_len, const char *subject,
                    size_t subject_len, const char *object, size_t object_len)
{
    if ((text == nullptr && text_len != 0) || (subject == nullptr && subject_len != 0) ||
        (object == nullptr && object_len != 0)) {
        errno = EINVAL;
        return 0;
    }
    try {
        // TIME, PID, CODE, OUTCOME, TEXT, SUBJECT, OBJECT: one line, fields split by tabs.
        std::string record = timestamp();
        record += '\t' + std::to_string(::getpid()) + '\t' + std::to_string(code) + '\t';
        record += success != 0 ? "success" : "failure";
        record += '\t';
        appendEscaped(record, text, text_len);
        record += '\t';
        appendEscaped(record, subject, subject_len);
        record += '\t';
        appendEscaped(record, object, object_len);
        record += '\n';
        return recordEvent(record) ? 1 : 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return 0;
    }
}
}
