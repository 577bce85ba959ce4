// Lists what an overlayfs upper layer changed compared with its lower layers.
#pragma once

#include "sandbox.h"

#include <string>
#include <sys/stat.h>
#include <vector>

namespace ZqlSandbox {

// Compares the upper layer with the lower stack the way overlayfs merges it: per directory,
// the lower layers (top first) holding that directory, down to the first one that stops the
// merge (an opaque directory, a whiteout or a non-directory).
//
// Whiteouts are 'D' (if something lay below); files, symbolic links and other non-directories
// are 'A' if nothing lay below, 'M' if they differ from what did in type, mode, owner,
// content, link target or device number (times and extended attributes are ignored, so a
// copy-up without a real change is not listed); new directories are 'A' only when empty
// (otherwise their contents are listed); a directory that replaced a non-directory is 'M';
// entries hidden by an opaque upper directory are 'D'.
class ChangeWalk
{
public:
    // lowers: the lower layers, topmost first.
    ChangeWalk(std::string upper, std::vector<std::string> lowers);

    // Fills files, sorted by path ("/etc/foo" for upper/etc/foo), each with the upper path
    // and the lower path it was compared with. False if the upper layer could not be read;
    // failedPath() then says where.
    bool run(std::vector<ChangedFile> &files);
    const std::string &failedPath() const;

private:
    struct Lower
    {
        bool exists = false;
        std::string path;
        struct stat st;
    };

    Lower lookup(const std::vector<size_t> &layers, const std::string &rel) const;
    std::vector<size_t> lowerDirs(const std::vector<size_t> &layers, const std::string &rel) const;
    bool walk(const std::string &rel, const std::vector<size_t> &layers, bool opaque);
    void listHidden(const std::string &rel, const std::vector<size_t> &layers,
                    const std::vector<std::string> &upperNames);

    std::string m_upper;
    std::vector<std::string> m_lowers;
    std::vector<ChangedFile> m_files;
    std::string m_failedPath;
};

} // namespace ZqlSandbox
