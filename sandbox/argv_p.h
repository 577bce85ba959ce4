// Argument and environment vectors for execve(), shared by the sandbox and the diff renderer.
#pragma once

#include <string>
#include <vector>

namespace ZqlSandbox {

// The C strings of strings, null-terminated, as execve() takes them. Build it before fork():
// the child must not allocate. The strings must outlive the result.
inline std::vector<char *> pointers(const std::vector<std::string> &strings)
{
    std::vector<char *> result;
    result.reserve(strings.size() + 1);
    for (const std::string &s : strings)
        result.push_back(const_cast<char *>(s.c_str()));
    result.push_back(nullptr);
    return result;
}

} // namespace ZqlSandbox
