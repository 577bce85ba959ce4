#include "changewalk.h"

#include "posixio_p.h"

#include <algorithm>
#include <cstring>
#include <set>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ZqlSandbox {

namespace {

bool isWhiteout(const struct stat &st)
{
    return S_ISCHR(st.st_mode) && st.st_rdev == makedev(0, 0);
}

bool isOpaque(const std::string &path)
{
    char value[4];
    ssize_t n = ::lgetxattr(path.c_str(), "trusted.overlay.opaque", value, sizeof value);
    return n == 1 && value[0] == 'y';
}

bool listDir(const std::string &path, std::vector<std::string> &names)
{
    DIR *dir = ::opendir(path.c_str());
    if (!dir)
        return false;
    while (struct dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    ::closedir(dir);
    return true;
}

bool sameContent(const std::string &a, const std::string &b)
{
    int fa = ::open(a.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    int fb = ::open(b.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    bool same = fa >= 0 && fb >= 0;
    std::vector<char> ba(65536), bb(65536);
    while (same) {
        size_t na = 0, nb = 0;
        if (!readFull(fa, ba.data(), ba.size(), na) || !readFull(fb, bb.data(), bb.size(), nb) ||
            na != nb || std::memcmp(ba.data(), bb.data(), na) != 0) {
            same = false;
        } else if (na == 0) {
            break;
        }
    }
    if (fa >= 0)
        ::close(fa);
    if (fb >= 0)
        ::close(fb);
    return same;
}

std::string linkTarget(const std::string &path)
{
    std::vector<char> buffer(4096);
    ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size());
    return n < 0 ? std::string() : std::string(buffer.data(), static_cast<size_t>(n));
}

// Whether a copied-up file is what lay below. Times and extended attributes are not
// compared: a "touch" only changes times.
bool sameFile(const std::string &upperPath, const struct stat &u, const std::string &lowerPath,
              const struct stat &l)
{
    if (u.st_mode != l.st_mode || u.st_uid != l.st_uid || u.st_gid != l.st_gid)
        return false;
    if (S_ISREG(u.st_mode))
        return u.st_size == l.st_size && sameContent(upperPath, lowerPath);
    if (S_ISLNK(u.st_mode))
        return linkTarget(upperPath) == linkTarget(lowerPath);
    if (S_ISCHR(u.st_mode) || S_ISBLK(u.st_mode))
        return u.st_rdev == l.st_rdev;
    return true;
}

} // namespace

ChangeWalk::ChangeWalk(std::string upper, std::vector<std::string> lowers)
    : m_upper(std::move(upper))
    , m_lowers(std::move(lowers))
{}

bool ChangeWalk::run(std::vector<ChangedFile> &files)
{
    m_files.clear();
    m_failedPath.clear();
    std::vector<size_t> all;
    for (size_t i = 0; i < m_lowers.size(); ++i)
        all.push_back(i);
    if (!walk(std::string(), all, false))
        return false;
    std::sort(m_files.begin(), m_files.end(), [](const ChangedFile &a, const ChangedFile &b) {
        return a.change.path < b.change.path;
    });
    files = std::move(m_files);
    m_files.clear();
    return true;
}

const std::string &ChangeWalk::failedPath() const
{
    return m_failedPath;
}

// What the merged view showed at rel before the command: the topmost entry among the layers
// that hold rel's directory; a whiteout there means nothing.
ChangeWalk::Lower ChangeWalk::lookup(const std::vector<size_t> &layers,
                                     const std::string &rel) const
{
    Lower result;
    for (size_t layer : layers) {
        std::string path = m_lowers[layer] + rel;
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0)
            continue;
        if (!isWhiteout(st)) {
            result.exists = true;
            result.path = path;
            result.st = st;
        }
        break;
    }
    return result;
}

// The layers whose directory rel overlayfs merges, given those merged for rel's parent.
std::vector<size_t> ChangeWalk::lowerDirs(const std::vector<size_t> &layers,
                                          const std::string &rel) const
{
    std::vector<size_t> result;
    for (size_t layer : layers) {
        std::string path = m_lowers[layer] + rel;
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0)
            continue;
        if (!S_ISDIR(st.st_mode))
            break;
        result.push_back(layer);
        if (isOpaque(path))
            break;
    }
    return result;
}

bool ChangeWalk::walk(const std::string &rel, const std::vector<size_t> &layers, bool opaque)
{
    std::vector<std::string> names;
    if (!listDir(m_upper + rel, names)) {
        m_failedPath = m_upper + rel;
        return false;
    }
    for (const std::string &name : names) {
        const std::string childRel = rel + '/' + name;
        const std::string upperPath = m_upper + childRel;
        struct stat st;
        if (::lstat(upperPath.c_str(), &st) != 0) {
            m_failedPath = upperPath;
            return false;
        }
        const Lower lower = lookup(layers, childRel);
        if (isWhiteout(st)) {
            if (lower.exists)
                m_files.push_back({{'D', childRel}, lower.path, std::string()});
        } else if (S_ISDIR(st.st_mode)) {
            if (!lower.exists) {
                std::vector<std::string> entries;
                if (listDir(upperPath, entries) && entries.empty())
                    m_files.push_back({{'A', childRel}, std::string(), upperPath});
            } else if (!S_ISDIR(lower.st.st_mode)) {
                m_files.push_back({{'M', childRel}, lower.path, upperPath});
            }
            if (!walk(childRel, lowerDirs(layers, childRel), isOpaque(upperPath)))
                return false;
        } else if (!lower.exists) {
            m_files.push_back({{'A', childRel}, std::string(), upperPath});
        } else if (!sameFile(upperPath, st, lower.path, lower.st)) {
            m_files.push_back({{'M', childRel}, lower.path, upperPath});
        }
    }
    if (opaque)
        listHidden(rel, layers, names);
    return true;
}

// An opaque upper directory hides everything below it without whiteouts.
void ChangeWalk::listHidden(const std::string &rel, const std::vector<size_t> &layers,
                            const std::vector<std::string> &upperNames)
{
    std::set<std::string> seen(upperNames.begin(), upperNames.end());
    for (size_t layer : layers) {
        std::vector<std::string> names;
        listDir(m_lowers[layer] + rel, names);
        for (const std::string &name : names) {
            if (!seen.insert(name).second)
                continue;
            struct stat st;
            const std::string path = m_lowers[layer] + rel + '/' + name;
            if (::lstat(path.c_str(), &st) == 0 && !isWhiteout(st))
                m_files.push_back({{'D', rel + '/' + name}, path, std::string()});
        }
    }
}

} // namespace ZqlSandbox
