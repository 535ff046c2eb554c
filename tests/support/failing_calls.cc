// A library that is loaded before a program and makes one of its calls to the C library fail: the n-th to which a kind of
// failure can happen. It counts the calls of each kind, so that a test can go through all of them.
//
//   LD_PRELOAD            this library
//   FAILING_CALLS         a file of the size of Board, in which it is written which call is to fail, and how many there were
//   FAILING_CALLS_IN      the name of the program that is meant; its children and whatever starts it are left alone
//
// What the C library does inside itself is not seen: a failing fopen is, its open is not.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The kinds of failures, in the order of the counts.
enum Kind : uint32_t { kIo, kNoSpace, kInterrupted, kNoFiles, kNoMemory, kShort, kKinds };
constexpr int kErrors[] = {EIO, ENOSPC, EINTR, EMFILE, ENOMEM, 0};

constexpr uint32_t Of(Kind kind)
{
    return 1U << kind;
}

// What a call on which kind of object can end with.
constexpr uint32_t kReads = Of(kIo) | Of(kInterrupted) | Of(kShort);
constexpr uint32_t kWrites = Of(kIo) | Of(kNoSpace) | Of(kInterrupted) | Of(kShort);
constexpr uint32_t kSyncs = Of(kIo) | Of(kNoSpace);
constexpr uint32_t kOpens = Of(kIo) | Of(kInterrupted) | Of(kNoFiles) | Of(kNoMemory);
constexpr uint32_t kMakes = Of(kIo) | Of(kNoSpace);
constexpr uint32_t kLooks = Of(kIo) | Of(kNoMemory);
constexpr uint32_t kOpensNoFile = Of(kNoFiles) | Of(kNoMemory);
constexpr uint32_t kWaits = Of(kInterrupted) | Of(kNoMemory);

// Shared with the test, which reads and writes it as it stands here.
struct Board {
    std::atomic<uint64_t> counts[kKinds];
    uint64_t number; // of the call that fails, from 1; 0: none
    uint32_t kind;
    std::atomic<uint32_t> has_failed;
    char call[32]; // its name
};

Board *board = nullptr;

// Memory is asked for before anything is set up, and while it is.
[[gnu::constructor(102)]] void SetUp()
{
    const char *path = getenv("FAILING_CALLS");
    const char *program = getenv("FAILING_CALLS_IN");
    if (path == nullptr || program == nullptr ||
        strcmp(program, program_invocation_short_name) != 0)
        return;
    // Only the one that was started: what it starts in turn is another program, or a copy of it.
    unsetenv("FAILING_CALLS");
    const auto real_open =
        reinterpret_cast<int (*)(const char *, int, ...)>(dlsym(RTLD_NEXT, "open"));
    const auto real_mmap = reinterpret_cast<decltype(&mmap)>(dlsym(RTLD_NEXT, "mmap"));
    const int fd = real_open(path, O_RDWR | O_CLOEXEC);
    void *mapped = real_mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped != MAP_FAILED)
        board = static_cast<Board *>(mapped);
}

// Counts a call, and says whether it is the one that fails; errno is set.
bool Fails(const char *call, uint32_t kinds)
{
    if (board == nullptr)
        return false;
    bool fails = false;
    for (uint32_t kind = 0; kind < kKinds; ++kind) {
        if ((kinds & (1U << kind)) == 0)
            continue;
        const uint64_t number = board->counts[kind].fetch_add(1) + 1;
        fails = fails || (kind == board->kind && number == board->number);
    }
    if (fails) {
        strncpy(board->call, call, sizeof board->call - 1);
        board->has_failed = 1;
        errno = kErrors[board->kind];
    }
    return fails;
}

bool IsShort()
{
    return board->kind == kShort;
}

// What can happen to a file does not happen to a pipe, an eventfd or a socket: there a signal comes in between.
uint32_t On(int fd, uint32_t kinds)
{
    static const auto look =
        reinterpret_cast<int (*)(int, struct stat *)>(dlsym(RTLD_NEXT, "fstat"));
    struct stat status {};
    return look(fd, &status) == 0 && S_ISREG(status.st_mode) ? kinds : kinds & Of(kInterrupted);
}

template <typename Function>
Function Next(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// The library's own function of that name.
#define REAL(name) static const auto real = Next<decltype(&name)>(#name)
// A call that fails or is made.
#define WRAP(name, kinds, parameters, arguments)                                                   \
    int name parameters                                                                            \
    {                                                                                              \
        REAL(name);                                                                                \
        return Fails(#name, kinds) ? -1 : real arguments;                                          \
    }
// One that passes on `size` bytes: a short one comes to half of them.
#define WRAP_TRANSFER(name, kinds, parameters, arguments, ...)                                     \
    ssize_t name parameters                                                                        \
    {                                                                                              \
        REAL(name);                                                                                \
        if (Fails(#name, size > 1 ? (kinds) : (kinds) & ~Of(kShort))) {                            \
            if (!IsShort())                                                                        \
                return -1;                                                                         \
            size /= 2;                                                                             \
        }                                                                                          \
        return real arguments;                                                                     \
    }

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);

void *malloc(size_t size)
{
    return Fails("malloc", Of(kNoMemory)) ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return Fails("calloc", Of(kNoMemory)) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *old, size_t size)
{
    return Fails("realloc", Of(kNoMemory)) ? nullptr : __libc_realloc(old, size);
}

WRAP_TRANSFER(read, On(fd, kReads), (int fd, void *data, size_t size), (fd, data, size))
WRAP_TRANSFER(pread, kReads, (int fd, void *data, size_t size, off_t at), (fd, data, size, at))
WRAP_TRANSFER(pread64, kReads, (int fd, void *data, size_t size, off64_t at), (fd, data, size, at))
WRAP_TRANSFER(write, On(fd, kWrites), (int fd, const void *data, size_t size), (fd, data, size))
WRAP_TRANSFER(pwrite, kWrites, (int fd, const void *data, size_t size, off_t at),
              (fd, data, size, at))
WRAP_TRANSFER(pwrite64, kWrites, (int fd, const void *data, size_t size, off64_t at),
              (fd, data, size, at))
WRAP_TRANSFER(send, Of(kIo) | Of(kInterrupted), (int fd, const void *data, size_t size, int flags),
              (fd, data, size, flags))
WRAP_TRANSFER(recv, Of(kIo) | Of(kInterrupted), (int fd, void *data, size_t size, int flags),
              (fd, data, size, flags))

// As the checks of buffer sizes make them.
ssize_t __read_chk(int fd, void *data, size_t size, size_t room);
ssize_t __pread_chk(int fd, void *data, size_t size, off_t at, size_t room);
ssize_t __pread64_chk(int fd, void *data, size_t size, off64_t at, size_t room);
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
int __poll_chk(pollfd *of, nfds_t count, int timeout, size_t room);
WRAP_TRANSFER(__read_chk, On(fd, kReads), (int fd, void *data, size_t size, size_t room),
              (fd, data, size, room))
WRAP_TRANSFER(__pread_chk, kReads, (int fd, void *data, size_t size, off_t at, size_t room),
              (fd, data, size, at, room))
WRAP_TRANSFER(__pread64_chk, kReads, (int fd, void *data, size_t size, off64_t at, size_t room),
              (fd, data, size, at, room))
WRAP(__open_2, kOpens, (const char *path, int flags), (path, flags))
WRAP(__open64_2, kOpens, (const char *path, int flags), (path, flags))
WRAP(__poll_chk, kWaits, (pollfd * of, nfds_t count, int timeout, size_t room),
     (of, count, timeout, room))

WRAP(fsync, kSyncs, (int fd), (fd))
WRAP(fdatasync, kSyncs, (int fd), (fd))
WRAP(ftruncate, kMakes, (int fd, off_t size), (fd, size))
WRAP(ftruncate64, kMakes, (int fd, off64_t size), (fd, size))
WRAP(rename, kMakes, (const char *from, const char *to), (from, to))
WRAP(unlink, Of(kIo), (const char *path), (path))
WRAP(mkdir, kMakes, (const char *path, mode_t mode), (path, mode))
WRAP(mkfifo, kMakes, (const char *path, mode_t mode), (path, mode))
WRAP(stat, kLooks, (const char *path, struct stat *status), (path, status))
WRAP(stat64, kLooks, (const char *path, struct stat64 *status), (path, status))
WRAP(lstat, kLooks, (const char *path, struct stat *status), (path, status))
WRAP(fstat, kLooks, (int fd, struct stat *status), (fd, status))
WRAP(fstat64, kLooks, (int fd, struct stat64 *status), (fd, status))
WRAP(fstatat, kLooks, (int fd, const char *path, struct stat *status, int flags),
     (fd, path, status, flags))
WRAP(poll, kWaits, (pollfd * of, nfds_t count, int timeout), (of, count, timeout))
WRAP(socket, kOpensNoFile, (int domain, int type, int protocol), (domain, type, protocol))
WRAP(connect, Of(kIo), (int fd, const sockaddr *to, socklen_t size), (fd, to, size))
WRAP(bind, Of(kIo), (int fd, const sockaddr *to, socklen_t size), (fd, to, size))
WRAP(pipe2, kOpensNoFile, (int *fds, int flags), (fds, flags))
WRAP(eventfd, kOpensNoFile, (unsigned value, int flags), (value, flags))
WRAP(inotify_init1, kOpensNoFile, (int flags), (flags))
WRAP(inotify_add_watch, Of(kNoSpace) | Of(kNoMemory), (int fd, const char *path, uint32_t events),
     (fd, path, events))
WRAP(dup, Of(kNoFiles), (int fd), (fd))
WRAP(flock, Of(kInterrupted), (int fd, int operation), (fd, operation))

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*function)(void *),
                   void *argument) noexcept
{
    REAL(pthread_create);
    return Fails("pthread_create", Of(kNoMemory)) ? EAGAIN
                                                  : real(thread, attributes, function, argument);
}

FILE *fopen(const char *path, const char *mode)
{
    REAL(fopen);
    return Fails("fopen", kOpens) ? nullptr : real(path, mode);
}

FILE *fdopen(int fd, const char *mode) noexcept
{
    REAL(fdopen);
    return Fails("fdopen", Of(kNoMemory)) ? nullptr : real(fd, mode);
}

size_t fread(void *data, size_t size, size_t count, FILE *stream)
{
    REAL(fread);
    return Fails("fread", Of(kIo)) ? 0 : real(data, size, count, stream);
}

DIR *opendir(const char *path)
{
    REAL(opendir);
    return Fails("opendir", kOpens) ? nullptr : real(path);
}

int scandir(const char *path, dirent ***names, int (*filter)(const dirent *),
            int (*order)(const dirent **, const dirent **))
{
    REAL(scandir);
    return Fails("scandir", kOpens) ? -1 : real(path, names, filter, order);
}

void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    REAL(mmap);
    return Fails("mmap", Of(kNoMemory)) ? MAP_FAILED
                                        : real(at, size, protection, flags, fd, offset);
}

void *mmap64(void *at, size_t size, int protection, int flags, int fd, off64_t offset) noexcept
{
    REAL(mmap64);
    return Fails("mmap64", Of(kNoMemory)) ? MAP_FAILED
                                          : real(at, size, protection, flags, fd, offset);
}

// Of a variable number of arguments.
#define WRAP_OPEN(name, parameters, ...)                                                           \
    int name parameters                                                                            \
    {                                                                                              \
        REAL(name);                                                                                \
        va_list rest;                                                                              \
        va_start(rest, flags);                                                                     \
        const auto mode = va_arg(rest, mode_t);                                                    \
        va_end(rest);                                                                              \
        const uint32_t kinds = (flags & O_CREAT) != 0 ? kOpens | Of(kNoSpace) : kOpens;            \
        return Fails(#name, kinds) ? -1 : real(__VA_ARGS__, flags, mode);                          \
    }
WRAP_OPEN(open, (const char *path, int flags, ...), path)
WRAP_OPEN(open64, (const char *path, int flags, ...), path)
WRAP_OPEN(openat, (int folder, const char *path, int flags, ...), folder, path)
WRAP_OPEN(openat64, (int folder, const char *path, int flags, ...), folder, path)

} // extern "C"
