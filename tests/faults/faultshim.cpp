// An LD_PRELOAD shim that makes one system call fail: the Nth call of write, fsync, rename,
// close or open after the program arms it. ZQL_FAULT="write:3" makes the third write fail
// (ENOSPC for write, EIO for fsync and close, EACCES for open, EXDEV for rename). The program
// arms and disarms counting with zql_fault_arm()/zql_fault_disarm() (found with dlsym), so
// only the calls of the operation under test count. Child processes do not inherit it: the
// shim takes itself out of LD_PRELOAD when it is loaded.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

// The build hides symbols by default; these must be seen to interpose and to be found.
#define EXPORTED __attribute__((visibility("default")))

namespace {
char fault_function[16];
long fault_ordinal;
long calls;
int armed;
int injected;
} // namespace

extern "C" {

__attribute__((constructor)) void zql_fault_load()
{
    const char *fault = getenv("ZQL_FAULT");
    if (fault) {
        const char *colon = strchr(fault, ':');
        if (colon && static_cast<size_t>(colon - fault) < sizeof fault_function) {
            std::memcpy(fault_function, fault, static_cast<size_t>(colon - fault));
            fault_ordinal = strtol(colon + 1, nullptr, 10);
        }
    }
    unsetenv("LD_PRELOAD");
}

EXPORTED void zql_fault_arm()
{
    calls = 0;
    injected = 0;
    armed = 1;
}

// The number of calls of the chosen function while armed, and whether one was made to fail.
EXPORTED long zql_fault_disarm(int *was_injected)
{
    armed = 0;
    if (was_injected)
        *was_injected = injected;
    return calls;
}

// Whether this call of function fails.
static int fails(const char *function, int error)
{
    if (!armed || strcmp(function, fault_function) != 0)
        return 0;
    if (++calls != fault_ordinal)
        return 0;
    injected = 1;
    errno = error;
    return 1;
}

#define NEXT(name) (reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name)))

EXPORTED ssize_t write(int fd, const void *buffer, size_t size)
{
    // The program's own diagnostics are no file it saves.
    if (fd > 2 && fails("write", ENOSPC))
        return -1;
    return NEXT(write)(fd, buffer, size);
}

EXPORTED int fsync(int fd)
{
    if (fails("fsync", EIO))
        return -1;
    return NEXT(fsync)(fd);
}

EXPORTED int close(int fd)
{
    if (fd > 2 && fails("close", EIO)) {
        // As Linux does: the descriptor is gone even when close reports an error.
        NEXT(close)(fd);
        errno = EIO;
        return -1;
    }
    return NEXT(close)(fd);
}

EXPORTED int rename(const char *from, const char *to)
{
    if (fails("rename", EXDEV))
        return -1;
    return NEXT(rename)(from, to);
}

EXPORTED int renameat(int fromDir, const char *from, int toDir, const char *to)
{
    if (fails("rename", EXDEV))
        return -1;
    return NEXT(renameat)(fromDir, from, toDir, to);
}

EXPORTED int renameat2(int fromDir, const char *from, int toDir, const char *to, unsigned int flags)
{
    if (fails("rename", EXDEV))
        return -1;
    return NEXT(renameat2)(fromDir, from, toDir, to, flags);
}

#define OPEN_BODY(name, ...)                                                                       \
    mode_t mode = 0;                                                                               \
    if (flags & (O_CREAT | O_TMPFILE)) {                                                           \
        va_list args;                                                                              \
        va_start(args, flags);                                                                     \
        mode = static_cast<mode_t>(va_arg(args, int));                                             \
        va_end(args);                                                                              \
    }                                                                                              \
    if (fails("open", EACCES))                                                                     \
        return -1;                                                                                 \
    return NEXT(name)(__VA_ARGS__, flags, mode);

EXPORTED int open(const char *path, int flags, ...){OPEN_BODY(open, path)}

EXPORTED int open64(const char *path, int flags, ...){OPEN_BODY(open64, path)}

EXPORTED int openat(int dir, const char *path, int flags, ...){OPEN_BODY(openat, dir, path)}

EXPORTED int openat64(int dir, const char *path, int flags, ...)
{
    OPEN_BODY(openat64, dir, path)
}

} // extern "C"
