#include "streamredirection.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace ZqlPolicy {

StreamRedirection::StreamRedirection(int from, int target)
    : m_target(target)
{
    std::fflush(nullptr);
    m_saved = ::fcntl(target, F_DUPFD_CLOEXEC, 3);
    if (m_saved >= 0)
        m_ok = from == target || ::dup2(from, target) == target;
}

StreamRedirection::~StreamRedirection()
{
    if (m_saved < 0)
        return;
    std::fflush(nullptr);
    ::dup2(m_saved, m_target);
    ::close(m_saved);
}

} // namespace ZqlPolicy
