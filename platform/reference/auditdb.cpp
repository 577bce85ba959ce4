// Reference implementation of the audit database for stock Debian: one text file, read whole
// when the database is opened and replaced whole on every store (temporary file in the same
// directory, written and synced, then renamed over the old one). An exclusive lock on a lock
// file beside it is held from open to close, so that the read-modify-write of one process never
// interleaves with another's. The format is in docs/platform.md.

#include "tessel/auditdb.h"

#include "reference/writeall_p.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
using ZqlPlatformReference::writeAll;

const char DatabaseDirectory[] = "/etc/zql-platform";
const char DatabasePath[] = "/etc/zql-platform/auddb";
const char LockPath[] = "/etc/zql-platform/auddb.lock";
const char TemporaryPattern[] = "/etc/zql-platform/.auddb.XXXXXX";
const std::string Header = "zql-platform-auddb 1\n";
// A database is a few lines; anything larger is not one.
constexpr off_t MaximumSize = 1 << 20;
constexpr mode_t NewFileMode = 0644;
constexpr int MaskDigits = 8;

struct Entry
{
    int32_t type = 0;
    std::string name;
    uint32_t success = 0;
    uint32_t fail = 0;
};

// Closes @p fd without changing errno.
void closeKeepingErrno(int fd)
{
    const int saved = errno;
    ::close(fd);
    errno = saved;
}

bool parseType(const std::string &text, int32_t *type)
{
    if (text.empty() || text.size() > 11)
        return false;
    size_t start = text[0] == '-' ? 1 : 0;
    if (start == text.size())
        return false;
    for (size_t i = start; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
    }
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    if (value < INT32_MIN || value > INT32_MAX)
        return false;
    *type = static_cast<int32_t>(value);
    return true;
}

// "0x" and exactly eight hexadecimal digits.
bool parseMask(const std::string &text, uint32_t *mask)
{
    if (text.size() != 2 + MaskDigits || text[0] != '0' || text[1] != 'x')
        return false;
    uint32_t value = 0;
    for (size_t i = 2; i < text.size(); ++i) {
        const char c = text[i];
        uint32_t digit = 0;
        if (c >= '0' && c <= '9')
            digit = static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<uint32_t>(c - 'a' + 10);
        else
            return false;
        value = (value << 4U) | digit;
    }
    *mask = value;
    return true;
}

// One line without its line feed: "TYPE:NAME:SUCCESS:FAIL".
bool parseLine(const std::string &line, Entry *entry)
{
    std::vector<std::string> fields;
    size_t start = 0;
    for (;;) {
        const size_t colon = line.find(':', start);
        fields.push_back(line.substr(start, colon == std::string::npos ? colon : colon - start));
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    if (fields.size() != 4 || !parseType(fields[0], &entry->type) ||
        !parseMask(fields[2], &entry->success) || !parseMask(fields[3], &entry->fail))
        return false;
    entry->name = fields[1];
    return true;
}

bool sameKey(const Entry &entry, int32_t type, const std::string &name)
{
    return entry.type == type && entry.name == name;
}

// Parses the whole file. Anything but the exact format is a damaged database (EBADMSG).
bool parseDatabase(const std::string &content, std::vector<Entry> *entries)
{
    if (content.size() < Header.size() || content.compare(0, Header.size(), Header) != 0 ||
        content.back() != '\n') {
        errno = EBADMSG;
        return false;
    }
    size_t start = Header.size();
    while (start < content.size()) {
        const size_t end = content.find('\n', start);
        Entry entry;
        if (!parseLine(content.substr(start, end - start), &entry)) {
            errno = EBADMSG;
            return false;
        }
        for (const Entry &known : *entries) {
            if (sameKey(known, entry.type, entry.name)) {
                errno = EBADMSG; // one entry per type and name
                return false;
            }
        }
        entries->push_back(entry);
        start = end + 1;
    }
    return true;
}

bool readDatabase(std::vector<Entry> *entries)
{
    const int fd = ::open(DatabasePath, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status = {};
    if (::fstat(fd, &status) != 0) {
        closeKeepingErrno(fd);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        ::close(fd);
        errno = EBADMSG;
        return false;
    }
    if (status.st_size > MaximumSize) {
        ::close(fd);
        errno = EFBIG;
        return false;
    }
    std::string content;
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            closeKeepingErrno(fd);
            return false;
        }
        if (got == 0)
            break;
        content.append(buffer, static_cast<size_t>(got));
        if (content.size() > static_cast<size_t>(MaximumSize)) {
            ::close(fd);
            errno = EFBIG;
            return false;
        }
    }
    ::close(fd);
    return parseDatabase(content, entries);
}

std::string formatDatabase(const std::vector<Entry> &entries)
{
    std::string text = Header;
    for (const Entry &entry : entries) {
        char masks[64];
        std::snprintf(masks, sizeof masks, ":0x%08" PRIx32 ":0x%08" PRIx32 "\n", entry.success,
                      entry.fail);
        text += std::to_string(entry.type) + ':' + entry.name + masks;
    }
    return text;
}

// Replaces the database file with @p entries: written to a temporary file beside it, synced,
// given the old file's mode and owner, then renamed over it, so a reader sees the old or the
// new database and never a part of one.
bool writeDatabase(const std::vector<Entry> &entries)
{
    const std::string text = formatDatabase(entries);
    std::vector<char> temporary(TemporaryPattern, TemporaryPattern + sizeof TemporaryPattern);
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat old = {};
    const bool haveOld = ::stat(DatabasePath, &old) == 0;
    const bool ok = writeAll(fd, text) &&
                    ::fchmod(fd, haveOld ? (old.st_mode & 07777) : NewFileMode) == 0 &&
                    (!haveOld || ::fchown(fd, old.st_uid, old.st_gid) == 0) && ::fsync(fd) == 0;
    if (!ok) {
        closeKeepingErrno(fd);
        const int saved = errno;
        ::unlink(temporary.data());
        errno = saved;
        return false;
    }
    if (::close(fd) != 0 || ::rename(temporary.data(), DatabasePath) != 0) {
        const int saved = errno;
        ::unlink(temporary.data());
        errno = saved;
        return false;
    }
    // The rename itself reaches the disk with the directory.
    const int directory = ::open(DatabaseDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

int lockDatabase()
{
    const int fd = ::open(LockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            closeKeepingErrno(fd);
            return -1;
        }
    }
    return fd;
}
} // namespace

struct auddb
{
    int lockFd = -1;
    std::vector<Entry> entries;
};

extern "C" {

struct auddb *openauddb_r(void)
{
    try {
        auto *db = new auddb;
        db->lockFd = lockDatabase();
        if (db->lockFd < 0 || !readDatabase(&db->entries)) {
            const int saved = errno;
            if (db->lockFd >= 0)
                ::close(db->lockFd);
            delete db;
            errno = saved;
            return nullptr;
        }
        return db;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

struct audent *getaudtype_r(struct auddb *db, int32_t type, const char *name)
{
    if (db == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        const std::string wanted = name != nullptr ? name : "";
        for (const Entry &entry : db->entries) {
            if (!sameKey(entry, type, wanted))
                continue;
            auto *result = static_cast<audent *>(std::calloc(1, sizeof(audent)));
            char *copy = ::strdup(entry.name.c_str());
            if (result == nullptr || copy == nullptr) {
                std::free(result);
                std::free(copy);
                errno = ENOMEM;
                return nullptr;
            }
            result->ae_type = entry.type;
            result->ae_name = copy;
            result->ae_success = entry.success;
            result->ae_fail = entry.fail;
            return result;
        }
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
    errno = ENOENT;
    return nullptr;
}

void freeaudent_r(struct audent *entry)
{
    if (entry == nullptr)
        return;
    std::free(entry->ae_name);
    std::free(entry);
}

int putaudent_r(struct auddb *db, const struct audent *entry)
{
    if (db == nullptr || entry == nullptr) {
        errno = EINVAL;
        return -1;
    }
    try {
        Entry stored;
        stored.type = entry->ae_type;
        stored.name = entry->ae_name != nullptr ? entry->ae_name : "";
        stored.success = entry->ae_success;
        stored.fail = entry->ae_fail;
        // The format has no escapes: a name holds neither the separator nor a line break.
        if (stored.name.find_first_of(":\n") != std::string::npos) {
            errno = EINVAL;
            return -1;
        }
        std::vector<Entry> entries = db->entries;
        bool replaced = false;
        for (Entry &known : entries) {
            if (sameKey(known, stored.type, stored.name)) {
                known = stored;
                replaced = true;
            }
        }
        if (!replaced)
            entries.push_back(stored);
        if (!writeDatabase(entries))
            return -1;
        db->entries.swap(entries);
        return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

void closeauddb_r(struct auddb *db)
{
    if (db == nullptr)
        return;
    if (db->lockFd >= 0)
        ::close(db->lockFd); // releases the lock
    delete db;
}
}
