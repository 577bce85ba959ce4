// Reference implementation of the label library for stock Debian. The simulated kernel keeps
// its maximum integrity level and the level names in two files under /etc/zql-platform/mic/;
// a path's level is the extended attribute "trusted.tessel.ilev" of the file, read with
// getxattr(2). Every source that is missing or damaged gives a defined answer (-1 or NULL with
// errno set, never a partial result).

#include "kdx/kdx.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

struct kdx_label
{
    int ilev;
};

namespace {
const char MaxIlevFile[] = "/etc/zql-platform/mic/max-ilev";
const char IlevsFile[] = "/etc/zql-platform/mic/ilevs";
const char IlevAttribute[] = "trusted.tessel.ilev";

// Nothing longer is one of these files: a bigger file is refused rather than read in part.
constexpr size_t MaxIlevFileSize = 64;
constexpr size_t IlevsFileSize = size_t{64} * 1024;
// "255" and a line break.
constexpr size_t IlevAttributeSize = 4;
constexpr int HighestIlev = 255;

struct NamedIlev
{
    kdx_ilev_t ilev;
    std::string name;
};

// The whole file, or nothing (errno set) when it cannot be read or exceeds @p limit bytes.
std::optional<std::string> readSmallFile(const char *path, size_t limit)
{
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::string content;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            const int saved = errno;
            ::close(fd);
            errno = saved;
            return std::nullopt;
        }
        if (count == 0)
            break;
        content.append(buffer, static_cast<size_t>(count));
        if (content.size() > limit) {
            ::close(fd);
            errno = EFBIG;
            return std::nullopt;
        }
    }
    ::close(fd);
    return content;
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

std::string trimmed(const std::string &text)
{
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

// A level written in decimal, 0 to 255, nothing else.
std::optional<int> parseIlev(const std::string &word)
{
    if (word.empty() || word.size() > 3)
        return std::nullopt;
    int value = 0;
    for (const char c : word) {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + (c - '0');
    }
    if (value > HighestIlev)
        return std::nullopt;
    return value;
}

// The level list: one level a line, optionally followed by blanks and its name; blank lines and
// lines starting with "#" are skipped. A damaged line or a level given twice refuses the file.
std::optional<std::vector<NamedIlev>> readIlevs()
{
    const std::optional<std::string> content = readSmallFile(IlevsFile, IlevsFileSize);
    if (!content)
        return std::nullopt;
    std::vector<NamedIlev> ilevs;
    bool seen[HighestIlev + 1] = {};
    size_t start = 0;
    while (start < content->size()) {
        size_t end = content->find('\n', start);
        if (end == std::string::npos)
            end = content->size();
        const std::string line = trimmed(content->substr(start, end - start));
        start = end + 1;
        if (line.empty() || line[0] == '#')
            continue;
        size_t wordEnd = 0;
        while (wordEnd < line.size() && !isBlank(line[wordEnd]))
            ++wordEnd;
        const std::optional<int> ilev = parseIlev(line.substr(0, wordEnd));
        if (!ilev || seen[*ilev] || line.find('\0') != std::string::npos) {
            errno = EINVAL;
            return std::nullopt;
        }
        seen[*ilev] = true;
        ilevs.push_back({static_cast<kdx_ilev_t>(*ilev), trimmed(line.substr(wordEnd))});
    }
    return ilevs;
}
} // namespace

extern "C" {

int kdx_get_ilevs(kdx_ilev_t **ilevs)
{
    if (ilevs == nullptr) {
        errno = EINVAL;
        return -1;
    }
    *ilevs = nullptr;
    const std::optional<std::vector<NamedIlev>> known = readIlevs();
    if (!known)
        return -1;
    if (known->empty())
        return 0;
    auto *array = static_cast<kdx_ilev_t *>(std::malloc(known->size()));
    if (array == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    for (size_t i = 0; i < known->size(); ++i)
        array[i] = (*known)[i].ilev;
    *ilevs = array;
    return static_cast<int>(known->size());
}

int kdx_get_max_ilev(void)
{
    const std::optional<std::string> content = readSmallFile(MaxIlevFile, MaxIlevFileSize);
    if (!content)
        return -1;
    const std::string firstLine = trimmed(content->substr(0, content->find('\n')));
    const std::optional<int> ilev = parseIlev(firstLine);
    if (!ilev) {
        errno = EINVAL;
        return -1;
    }
    return *ilev;
}

char *kdx_ilev_get_text(kdx_ilev_t ilev, int flags)
{
    if (flags != 0) {
        errno = EINVAL;
        return nullptr;
    }
    const std::optional<std::vector<NamedIlev>> known = readIlevs();
    if (!known)
        return nullptr;
    for (const NamedIlev &entry : *known) {
        if (entry.ilev != ilev)
            continue;
        if (entry.name.empty())
            break;
        char *text = ::strdup(entry.name.c_str());
        if (text == nullptr)
            errno = ENOMEM;
        return text;
    }
    errno = ENOENT;
    return nullptr;
}

kdx_label *kdx_get_path(const char *path)
{
    if (path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    char value[IlevAttributeSize + 1];
    const ssize_t size = ::getxattr(path, IlevAttribute, value, IlevAttributeSize);
    int ilev = 0;
    if (size < 0) {
        // A file without the attribute has level 0; a value too long for a level is damaged;
        // anything else is no label at all.
        if (errno == ERANGE)
            errno = EINVAL;
        if (errno != ENODATA)
            return nullptr;
    } else {
        std::string word(value, static_cast<size_t>(size));
        if (!word.empty() && word.back() == '\n')
            word.pop_back();
        const std::optional<int> parsed = parseIlev(word);
        if (!parsed) {
            errno = EINVAL;
            return nullptr;
        }
        ilev = *parsed;
    }
    auto *label = static_cast<kdx_label *>(std::malloc(sizeof(kdx_label)));
    if (label == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    label->ilev = ilev;
    return label;
}

int kdxl_ilev(const kdx_label *label)
{
    return label == nullptr ? 0 : label->ilev;
}

void kdxl_put(kdx_label *label)
{
    std::free(label);
}
}
