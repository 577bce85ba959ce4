#include "processesatonce.h"

#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace ZqlTest {

bool runProcessesAtOnce(int count, const std::function<bool(int)> &work)
{
    std::vector<pid_t> children;
    bool ok = true;
    for (int number = 0; number < count; ++number) {
        const pid_t child = ::fork();
        if (child < 0) {
            ok = false;
            break;
        }
        if (child == 0)
            ::_exit(work(number) ? 0 : 1);
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ok = ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
             WEXITSTATUS(status) == 0 && ok;
    }
    return ok;
}

} // namespace ZqlTest
