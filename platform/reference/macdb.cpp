// Reference implementation of the MAC naming databases for stock Debian: three text files under
// /etc/zql-platform/mac/, one record per line, the numbers first and the name last (see
// docs/platform.md for the exact format). Reading works on a snapshot taken by open and rewind;
// storing takes an exclusive flock on the database directory, reads the file afresh,
// replaces or appends the record and puts a new file in place by rename, so that readers see
// either the old or the new file and two writers never lose each other's records.

#include "tessel/macdb.h"

#include <cerrno>
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
const char DatabaseDirectory[] = "/etc/zql-platform/mac";
const char CategoryFile[] = "categories";
const char LevelFile[] = "levels";
const char LabelFile[] = "labels";
// A database larger than this is not one of ours; refused instead of read into memory.
constexpr off_t MaximumDatabaseSize = off_t(16) * 1024 * 1024;
constexpr mode_t NewDatabaseMode = 0644;
constexpr int HexDigitsPerByte = 2;
constexpr int BitsPerHexDigit = 4;
constexpr int MaximumMaskDigits = 16;
constexpr unsigned MaximumLevel = 255;
constexpr unsigned char FirstPrintable = 0x20;
constexpr unsigned char Delete = 0x7f;
const char HexDigits[] = "0123456789abcdef";

} // namespace

namespace ZqlReference {
// One open database: where it lives and the lines of the snapshot being walked.
struct Database
{
    std::string path;
    std::string directory;
    std::string baseName;
    std::vector<std::string> lines;
    std::size_t next = 0;
};
} // namespace ZqlReference

struct tessel_catdb : ZqlReference::Database
{
};
struct tessel_levdb : ZqlReference::Database
{
};
struct tessel_macdb : ZqlReference::Database
{
};

namespace {
using ZqlReference::Database;

void setUpDatabase(Database *database, const char *baseName)
{
    database->directory = DatabaseDirectory;
    database->baseName = baseName;
    database->path = database->directory + '/' + baseName;
}

bool readWholeFile(const std::string &path, std::string &content)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info = {};
    if (::fstat(fd, &info) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return false;
    }
    if (S_ISDIR(info.st_mode) || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    if (info.st_size > MaximumDatabaseSize) {
        ::close(fd);
        errno = EFBIG;
        return false;
    }
    content.clear();
    char buffer[8192];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            const int saved = errno;
            ::close(fd);
            errno = saved;
            return false;
        }
        if (got == 0)
            break;
        content.append(buffer, static_cast<std::size_t>(got));
        if (content.size() > static_cast<std::size_t>(MaximumDatabaseSize)) {
            ::close(fd);
            errno = EFBIG;
            return false;
        }
    }
    ::close(fd);
    return true;
}

std::vector<std::string> splitLines(const std::string &content)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos)
            end = content.size();
        lines.push_back(content.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

bool loadSnapshot(Database *database)
{
    std::string content;
    // A failed rewind leaves nothing to walk.
    database->lines.clear();
    database->next = 0;
    if (!readWholeFile(database->path, content))
        return false;
    database->lines = splitLines(content);
    database->next = 0;
    return true;
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Names are stored byte for byte except '%', line breaks and other control bytes, which are
// written as '%' and two hexadecimal digits.
std::string escapeName(const char *name)
{
    std::string escaped;
    for (const char *p = name; *p; ++p) {
        const auto byte = static_cast<unsigned char>(*p);
        if (byte == '%' || byte < FirstPrintable || byte == Delete) {
            escaped += '%';
            escaped += HexDigits[byte >> BitsPerHexDigit];
            escaped += HexDigits[byte & 0xfU];
        } else {
            escaped += static_cast<char>(byte);
        }
    }
    return escaped;
}

bool unescapeName(const std::string &text, std::string &name)
{
    name.clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '%') {
            name += c;
            continue;
        }
        if (i + 2 >= text.size())
            return false;
        const int high = hexValue(text[i + 1]);
        const int low = hexValue(text[i + 2]);
        if (high < 0 || low < 0)
            return false;
        const char byte = static_cast<char>((high << BitsPerHexDigit) | low);
        if (byte == '\0')
            return false;
        name += byte;
        i += 2;
    }
    return !name.empty();
}

bool parseHex(const std::string &text, int maximumDigits, std::uint64_t &value)
{
    if (text.empty() || text.size() > static_cast<std::size_t>(maximumDigits))
        return false;
    value = 0;
    for (const char c : text) {
        const int digit = hexValue(c);
        if (digit < 0)
            return false;
        value = (value << BitsPerHexDigit) | static_cast<std::uint64_t>(digit);
    }
    return true;
}

bool parseMask(const std::string &text, std::uint64_t &mask)
{
    if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return false;
    return parseHex(text.substr(2), MaximumMaskDigits, mask);
}

bool parseLevel(const std::string &text, unsigned char &level)
{
    if (text.empty() || text.size() > 3)
        return false;
    unsigned value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    if (value > MaximumLevel)
        return false;
    level = static_cast<unsigned char>(value);
    return true;
}

bool parseLabelPart(const std::string &text, unsigned char (&part)[TESSEL_MACLABEL_PART_SIZE])
{
    if (text.size() != TESSEL_MACLABEL_PART_SIZE * HexDigitsPerByte)
        return false;
    for (std::size_t i = 0; i < TESSEL_MACLABEL_PART_SIZE; ++i) {
        const int high = hexValue(text[i * 2]);
        const int low = hexValue(text[i * 2 + 1]);
        if (high < 0 || low < 0)
            return false;
        part[i] = static_cast<unsigned char>((high << BitsPerHexDigit) | low);
    }
    return true;
}

// Lines that carry no record: empty ones and comments.
bool isRecordLine(const std::string &line)
{
    return !line.empty() && line[0] != '#';
}

// Splits "FIELD:FIELD:...:NAME" into @p count leading fields and the rest.
bool splitFields(const std::string &line, std::size_t count, std::vector<std::string> &fields,
                 std::string &rest)
{
    fields.clear();
    std::size_t start = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t colon = line.find(':', start);
        if (colon == std::string::npos)
            return false;
        fields.push_back(line.substr(start, colon - start));
        start = colon + 1;
    }
    rest = line.substr(start);
    return true;
}

struct CategoryLine
{
    std::uint64_t mask = 0;
    std::string name;
};

struct LevelLine
{
    unsigned char level = 0;
    std::string name;
};

bool parseCategory(const std::string &line, CategoryLine &record)
{
    std::vector<std::string> fields;
    std::string rest;
    return splitFields(line, 1, fields, rest) && parseMask(fields[0], record.mask) &&
           unescapeName(rest, record.name);
}

bool parseLevelLine(const std::string &line, LevelLine &record)
{
    std::vector<std::string> fields;
    std::string rest;
    return splitFields(line, 1, fields, rest) && parseLevel(fields[0], record.level) &&
           unescapeName(rest, record.name);
}

bool parseLabel(const std::string &line, tessel_macent &record, std::string &name)
{
    std::vector<std::string> fields;
    std::string rest;
    return splitFields(line, 2, fields, rest) && parseLabelPart(fields[0], record.mac_label[0]) &&
           parseLabelPart(fields[1], record.mac_label[1]) && unescapeName(rest, name);
}

void reportDamagedLine(const Database &database, std::size_t index)
{
    std::fprintf(stderr, "%s:%zu: damaged record skipped\n", database.path.c_str(), index + 1);
}

std::string formatMask(std::uint64_t mask)
{
    std::string text = "0x";
    for (int shift = MaximumMaskDigits - 1; shift >= 0; --shift)
        text += HexDigits[(mask >> (shift * BitsPerHexDigit)) & 0xfU];
    return text;
}

char *duplicate(const std::string &text)
{
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy)
        std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

bool writeAll(int fd, const std::string &content)
{
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t written = ::write(fd, content.data() + done, content.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        done += static_cast<std::size_t>(written);
    }
    return true;
}

// Puts @p content in place of the database: a temporary file in the same directory, written,
// synced and closed with every result checked, then renamed over the old file.
bool replaceFile(const Database &database, const std::string &content)
{
    std::string templatePath = database.directory + "/." + database.baseName + ".XXXXXX";
    std::vector<char> name(templatePath.begin(), templatePath.end());
    name.push_back('\0');
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat old = {};
    const mode_t mode =
        ::stat(database.path.c_str(), &old) == 0 ? (old.st_mode & 07777) : NewDatabaseMode;
    bool ok = ::fchmod(fd, mode) == 0 && writeAll(fd, content) && ::fsync(fd) == 0;
    int saved = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    if (ok && ::rename(name.data(), database.path.c_str()) != 0) {
        ok = false;
        saved = errno;
    }
    if (!ok) {
        ::unlink(name.data());
        errno = saved;
        return false;
    }
    // The rename itself reaches the disk with the directory.
    const int directory = ::open(database.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

// Holds the databases' exclusive lock for as long as it lives: a flock on the directory, shared
// by the three databases, so that two writers never interleave their read and rename.
class WriteLock
{
public:
    explicit WriteLock(const Database &database)
    {
        // The lock is the database directory itself: it always exists, leaves no file behind
        // and can be taken on a read-only file system (where the store then fails).
        m_fd = ::open(database.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_fd < 0)
            return;
        while (::flock(m_fd, LOCK_EX) != 0) {
            if (errno != EINTR) {
                const int saved = errno;
                ::close(m_fd);
                m_fd = -1;
                errno = saved;
                return;
            }
        }
    }
    ~WriteLock()
    {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    WriteLock(const WriteLock &) = delete;
    WriteLock &operator=(const WriteLock &) = delete;

    bool held() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// Stores one record: under the lock, the first record with the same key is replaced in place
// and later ones with that key are dropped; without one the record is appended. Lines this code
// cannot read (damaged records, comments) are kept as they are.
template<typename SameKey>
int storeLine(Database *database, const std::string &newLine, SameKey sameKey)
{
    const WriteLock lock(*database);
    if (!lock.held())
        return -1;
    std::string content;
    if (!readWholeFile(database->path, content)) {
        if (errno != ENOENT)
            return -1;
        content.clear();
    }
    std::vector<std::string> lines = splitLines(content);
    bool replaced = false;
    std::string result;
    for (const std::string &line : lines) {
        if (isRecordLine(line) && sameKey(line)) {
            if (replaced)
                continue;
            result += newLine;
            replaced = true;
        } else {
            result += line;
        }
        result += '\n';
    }
    if (!replaced)
        result += newLine + '\n';
    return replaceFile(*database, result) ? 0 : -1;
}

template<typename Handle> Handle *openDatabase(const char *baseName)
{
    auto *database = new (std::nothrow) Handle;
    if (!database) {
        errno = ENOMEM;
        return nullptr;
    }
    setUpDatabase(database, baseName);
    if (!loadSnapshot(database)) {
        const int saved = errno;
        delete database;
        errno = saved;
        return nullptr;
    }
    return database;
}

int rewind(Database *database)
{
    if (!database) {
        errno = EINVAL;
        return -1;
    }
    return loadSnapshot(database) ? 0 : -1;
}

void endWalk(Database *database)
{
    if (!database)
        return;
    database->lines.clear();
    database->next = 0;
}
// What the category and level databases differ in: the record, how a line reads and how a
// record is written.
struct CategoryFormat
{
    using Record = tessel_catent;
    using Parsed = CategoryLine;
    static constexpr char *Record::*Name = &tessel_catent::cat_name;
    static bool parse(const std::string &line, Parsed &parsed)
    {
        return parseCategory(line, parsed);
    }
    static void fill(Record &record, const Parsed &parsed) { record.cat_mask = parsed.mask; }
    static std::string key(const Record &record) { return formatMask(record.cat_mask); }
    static bool sameKey(const Parsed &parsed, const Record &record)
    {
        return parsed.mask == record.cat_mask;
    }
};

struct LevelFormat
{
    using Record = tessel_levent;
    using Parsed = LevelLine;
    static constexpr char *Record::*Name = &tessel_levent::lev_name;
    static bool parse(const std::string &line, Parsed &parsed)
    {
        return parseLevelLine(line, parsed);
    }
    static void fill(Record &record, const Parsed &parsed) { record.lev_level = parsed.level; }
    static std::string key(const Record &record) { return std::to_string(record.lev_level); }
    static bool sameKey(const Parsed &parsed, const Record &record)
    {
        return parsed.level == record.lev_level;
    }
};

// The next readable record of the walk, damaged lines reported and passed over.
template<typename Format> typename Format::Record *nextRecord(Database *database)
{
    using Record = typename Format::Record;
    if (!database)
        return nullptr;
    while (database->next < database->lines.size()) {
        const std::size_t index = database->next++;
        const std::string &line = database->lines[index];
        if (!isRecordLine(line))
            continue;
        typename Format::Parsed parsed;
        if (!Format::parse(line, parsed)) {
            reportDamagedLine(*database, index);
            continue;
        }
        auto *record = static_cast<Record *>(std::calloc(1, sizeof(Record)));
        if (!record)
            return nullptr;
        record->*Format::Name = duplicate(parsed.name);
        if (!(record->*Format::Name)) {
            std::free(record);
            return nullptr;
        }
        Format::fill(*record, parsed);
        return record;
    }
    return nullptr;
}

template<typename Format> void freeRecord(typename Format::Record *record)
{
    if (!record)
        return;
    std::free(record->*Format::Name);
    std::free(record);
}

template<typename Format> int storeRecord(Database *database, const typename Format::Record *record)
{
    const char *name = record ? record->*Format::Name : nullptr;
    if (!database || !name || !*name) {
        errno = EINVAL;
        return -1;
    }
    return storeLine(database, Format::key(*record) + ':' + escapeName(name),
                     [record](const std::string &line) {
                         typename Format::Parsed parsed;
                         return Format::parse(line, parsed) && Format::sameKey(parsed, *record);
                     });
}
} // namespace

extern "C" {

tessel_catdb *opencatdb_r()
{
    return openDatabase<tessel_catdb>(CategoryFile);
}

int setcatent_r(tessel_catdb *handle)
{
    return rewind(handle);
}

tessel_catent *getcatent_r(tessel_catdb *handle)
{
    return nextRecord<CategoryFormat>(handle);
}

void freecatent_r(tessel_catent *record)
{
    freeRecord<CategoryFormat>(record);
}

void endcatent_r(tessel_catdb *handle)
{
    endWalk(handle);
}

int putcatent_r(tessel_catdb *handle, const tessel_catent *record)
{
    return storeRecord<CategoryFormat>(handle, record);
}

void closecatdb_r(tessel_catdb *handle)
{
    delete handle;
}

tessel_levdb *openlevdb_r()
{
    return openDatabase<tessel_levdb>(LevelFile);
}

int setlevent_r(tessel_levdb *handle)
{
    return rewind(handle);
}

tessel_levent *getlevent_r(tessel_levdb *handle)
{
    return nextRecord<LevelFormat>(handle);
}

void freelevent_r(tessel_levent *record)
{
    freeRecord<LevelFormat>(record);
}

void endlevent_r(tessel_levdb *handle)
{
    endWalk(handle);
}

int putlevent_r(tessel_levdb *handle, const tessel_levent *record)
{
    return storeRecord<LevelFormat>(handle, record);
}

void closelevdb_r(tessel_levdb *handle)
{
    delete handle;
}

tessel_macdb *openmacdb_r()
{
    return openDatabase<tessel_macdb>(LabelFile);
}

tessel_macent *getmacnam_r(tessel_macdb *handle, const char *name)
{
    Database *database = handle;
    if (!database || !name) {
        errno = EINVAL;
        return nullptr;
    }
    for (std::size_t index = 0; index < database->lines.size(); ++index) {
        const std::string &line = database->lines[index];
        if (!isRecordLine(line))
            continue;
        tessel_macent parsed = {};
        std::string recordName;
        if (!parseLabel(line, parsed, recordName)) {
            reportDamagedLine(*database, index);
            continue;
        }
        if (recordName != name)
            continue;
        auto *record = static_cast<tessel_macent *>(std::calloc(1, sizeof(tessel_macent)));
        if (!record)
            return nullptr;
        std::memcpy(record->mac_label, parsed.mac_label, sizeof parsed.mac_label);
        record->mac_name = duplicate(recordName);
        if (!record->mac_name) {
            std::free(record);
            return nullptr;
        }
        return record;
    }
    errno = ENOENT;
    return nullptr;
}

void freemacent_r(tessel_macent *record)
{
    if (!record)
        return;
    std::free(record->mac_name);
    std::free(record);
}

void closemacdb_r(tessel_macdb *handle)
{
    delete handle;
}
}
