#include "tests/agent/host/faults.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace test {

namespace {

struct State {
    bool is_counting = false;
    int64_t calls = 0;
    int64_t broken = 0; // the number of the call with the fault; 0: none
    Fault fault = Fault::kError;
    const char *name = "";
};
thread_local State state;

// What a call needs.
enum class Need { kNothing, kRoom, kLock };

// What the caller is to do: the call itself, half of it, or nothing but fail with errno set.
enum class Turn { kCall, kHalf, kFail };

bool IsReached()
{
    const bool goes_on = state.fault == Fault::kStaysBroken || state.fault == Fault::kDiskIsFull;
    return state.broken > 0 &&
           (goes_on ? state.calls >= state.broken : state.calls == state.broken);
}

Turn Fail(const char *name, int error_number)
{
    if (state.name[0] == '\0')
        state.name = name;
    errno = error_number;
    return Turn::kFail;
}

Turn NextCall(const char *name, Need need, int error_number = EIO)
{
    if (!state.is_counting)
        return Turn::kCall;
    ++state.calls;
    if (!IsReached())
        return Turn::kCall;
    switch (state.fault) {
    case Fault::kError:
        return Fail(name, error_number);
    case Fault::kStaysBroken:
        // Locks are the kernel's, not the disk's. SQLite waits for one that it does not get.
        return need == Need::kLock ? Turn::kCall : Fail(name, error_number);
    case Fault::kDiskIsFull:
        return need == Need::kRoom ? Fail(name, ENOSPC) : Turn::kCall;
    case Fault::kShortWrite:
        return Turn::kHalf;
    case Fault::kDeath:
        kill(getpid(), SIGKILL);
        break;
    }
    return Turn::kCall;
}

// The call of this name that stands behind this program's.
template <typename Function>
Function *Real(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

void Start(int64_t number, Fault fault)
{
    state = {};
    state.broken = number;
    state.fault = fault;
    state.is_counting = true;
}

} // namespace

void BreakCall(int64_t number, Fault fault)
{
    Start(number, fault);
}

void CountCalls()
{
    Start(0, Fault::kError);
}

int64_t StopBreaking()
{
    state.is_counting = false;
    return state.calls;
}

std::string BrokenCall()
{
    return state.name;
}

} // namespace test

using test::Need;
using test::NextCall;
using test::Real;
using test::Turn;

// Each of these is counted, and does what the C library's does unless its turn has come.
extern "C" {

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static auto *const real = Real<int(const char *, int, ...)>("open");
    const Need need = (flags & O_CREAT) != 0 ? Need::kRoom : Need::kNothing;
    return NextCall("open", need) == Turn::kFail ? -1 : real(path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static auto *const real = Real<int(const char *, int, ...)>("open64");
    const Need need = (flags & O_CREAT) != 0 ? Need::kRoom : Need::kNothing;
    return NextCall("open64", need) == Turn::kFail ? -1 : real(path, flags, mode);
}

int access(const char *path, int mode) noexcept
{
    static auto *const real = Real<int(const char *, int)>("access");
    return NextCall("access", Need::kNothing) == Turn::kFail ? -1 : real(path, mode);
}

int stat(const char *path, struct stat *status) noexcept
{
    static auto *const real = Real<int(const char *, struct stat *)>("stat");
    return NextCall("stat", Need::kNothing) == Turn::kFail ? -1 : real(path, status);
}

int stat64(const char *path, struct stat64 *status) noexcept
{
    static auto *const real = Real<int(const char *, struct stat64 *)>("stat64");
    return NextCall("stat64", Need::kNothing) == Turn::kFail ? -1 : real(path, status);
}

int fstat64(int fd, struct stat64 *status) noexcept
{
    static auto *const real = Real<int(int, struct stat64 *)>("fstat64");
    return NextCall("fstat64", Need::kNothing) == Turn::kFail ? -1 : real(fd, status);
}

int lstat64(const char *path, struct stat64 *status) noexcept
{
    static auto *const real = Real<int(const char *, struct stat64 *)>("lstat64");
    return NextCall("lstat64", Need::kNothing) == Turn::kFail ? -1 : real(path, status);
}

int fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    static auto *const real = Real<int(int, int, ...)>("fcntl64");
    // Giving a lock back cannot fail, and SQLite counts on that.
    if (command == F_SETLK && static_cast<const struct flock *>(argument)->l_type == F_UNLCK)
        return real(fd, command, argument);
    return NextCall("fcntl64", Need::kLock) == Turn::kFail ? -1 : real(fd, command, argument);
}

int flock(int fd, int operation) noexcept
{
    static auto *const real = Real<int(int, int)>("flock");
    return NextCall("flock", Need::kLock, ENOLCK) == Turn::kFail ? -1 : real(fd, operation);
}

int fsync(int fd)
{
    static auto *const real = Real<int(int)>("fsync");
    return NextCall("fsync", Need::kRoom) == Turn::kFail ? -1 : real(fd);
}

int fdatasync(int fd)
{
    static auto *const real = Real<int(int)>("fdatasync");
    return NextCall("fdatasync", Need::kRoom) == Turn::kFail ? -1 : real(fd);
}

int ftruncate64(int fd, off64_t length) noexcept
{
    static auto *const real = Real<int(int, off64_t)>("ftruncate64");
    return NextCall("ftruncate64", Need::kNothing) == Turn::kFail ? -1 : real(fd, length);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    static auto *const real = Real<ssize_t(int, void *, size_t)>("read");
    return NextCall("read", Need::kNothing) == Turn::kFail ? -1 : real(fd, buffer, size);
}

ssize_t pread64(int fd, void *buffer, size_t size, off64_t offset)
{
    static auto *const real = Real<ssize_t(int, void *, size_t, off64_t)>("pread64");
    return NextCall("pread64", Need::kNothing) == Turn::kFail ? -1 : real(fd, buffer, size, offset);
}

ssize_t write(int fd, const void *buffer, size_t size)
{
    static auto *const real = Real<ssize_t(int, const void *, size_t)>("write");
    const Turn turn = NextCall("write", Need::kRoom);
    return turn == Turn::kFail ? -1 : real(fd, buffer, turn == Turn::kHalf ? size / 2 : size);
}

ssize_t pwrite64(int fd, const void *buffer, size_t size, off64_t offset)
{
    static auto *const real = Real<ssize_t(int, const void *, size_t, off64_t)>("pwrite64");
    const Turn turn = NextCall("pwrite64", Need::kRoom);
    return turn == Turn::kFail ? -1
                               : real(fd, buffer, turn == Turn::kHalf ? size / 2 : size, offset);
}

void *mmap64(void *address, size_t length, int protection, int flags, int fd,
             off64_t offset) noexcept
{
    using Function = void *(void *, size_t, int, int, int, off64_t);
    static auto *const real = Real<Function>("mmap64");
    return NextCall("mmap64", Need::kNothing, ENOMEM) == Turn::kFail
               ? MAP_FAILED
               : real(address, length, protection, flags, fd, offset);
}

int mkdir(const char *path, mode_t mode) noexcept
{
    static auto *const real = Real<int(const char *, mode_t)>("mkdir");
    return NextCall("mkdir", Need::kRoom) == Turn::kFail ? -1 : real(path, mode);
}

int unlink(const char *path) noexcept
{
    static auto *const real = Real<int(const char *)>("unlink");
    return NextCall("unlink", Need::kNothing) == Turn::kFail ? -1 : real(path);
}

int remove(const char *path) noexcept
{
    static auto *const real = Real<int(const char *)>("remove");
    return NextCall("remove", Need::kNothing) == Turn::kFail ? -1 : real(path);
}

int rename(const char *from, const char *to) noexcept
{
    static auto *const real = Real<int(const char *, const char *)>("rename");
    return NextCall("rename", Need::kRoom) == Turn::kFail ? -1 : real(from, to);
}

ssize_t readlink(const char *path, char *buffer, size_t size) noexcept
{
    static auto *const real = Real<ssize_t(const char *, char *, size_t)>("readlink");
    return NextCall("readlink", Need::kNothing) == Turn::kFail ? -1 : real(path, buffer, size);
}

ssize_t getrandom(void *buffer, size_t size, unsigned flags)
{
    static auto *const real = Real<ssize_t(void *, size_t, unsigned)>("getrandom");
    return NextCall("getrandom", Need::kNothing) == Turn::kFail ? -1 : real(buffer, size, flags);
}

int fchmod(int fd, mode_t mode) noexcept
{
    static auto *const real = Real<int(int, mode_t)>("fchmod");
    return NextCall("fchmod", Need::kNothing) == Turn::kFail ? -1 : real(fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) noexcept
{
    static auto *const real = Real<int(int, uid_t, gid_t)>("fchown");
    return NextCall("fchown", Need::kNothing) == Turn::kFail ? -1 : real(fd, owner, group);
}

} // extern "C"
