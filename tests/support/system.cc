#include "tests/support/system.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <regex.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace test {

namespace {

constexpr char kLogDir[] = "/var/log";
constexpr size_t kLogDirLength = sizeof kLogDir - 1;

// stat64 is entered as stat, too, and counts once.
bool IsFileCall(std::string_view name)
{
    return name != "stat64" && name != "malloc" && name != "calloc" && name != "regcomp" &&
           name != System::kAnyFileCall;
}

} // namespace

System &Sys()
{
    static System system;
    return system;
}

void System::FailCall(const std::string &name, int n, int error_number)
{
    failures_[name] = {n, 0, error_number};
    if (name == "malloc" || name == "calloc")
        count_memory = true;
}

void System::BeforeCall(const std::string &name, int n, std::function<void()> action)
{
    actions_[name] = {n, 0, std::move(action)};
}

int System::Calls(const std::string &name) const
{
    const auto found = std::ranges::find(counts_, name, &std::pair<std::string, int>::first);
    return found != counts_.end() ? found->second : 0;
}

int &System::CountOf(std::string_view name)
{
    for (auto &[counted, calls] : counts_) {
        if (counted == name)
            return calls;
    }
    return counts_.emplace_back(name, 0).second;
}

bool System::Enter(const char *name)
{
    const bool is_plain = actions_.empty() && failures_.empty();
    if (!is_plain && actions_.contains(kAnyFileCall) && IsFileCall(name))
        Enter(kAnyFileCall);
    ++CountOf(name);
    if (is_plain)
        return false;
    const auto action = actions_.find(name);
    if (action != actions_.end() && ++action->second.seen == action->second.n) {
        const auto run = std::move(action->second.run);
        actions_.erase(action);
        run();
    }
    const auto failure = failures_.find(name);
    if (failure == failures_.end() || ++failure->second.seen != failure->second.n)
        return false;
    errno = failure->second.error_number;
    return true;
}

std::string System::Translate(const char *path) const
{
    if (log_dir.empty() || strncmp(path, kLogDir, kLogDirLength) != 0 ||
        (path[kLogDirLength] != '/' && path[kLogDirLength] != '\0'))
        return path;
    return log_dir + (path + kLogDirLength);
}

namespace {

// Memory calls come also from the test's own code and from this file; only a test that asked for it
// sees them, and never from inside the counting itself.
bool inside_memory_call = false;

bool EnterMemory(const char *name)
{
    if (inside_memory_call || !Sys().count_memory)
        return false;
    inside_memory_call = true;
    const bool fails = Sys().Enter(name);
    inside_memory_call = false;
    return fails;
}

} // namespace

} // namespace test

using test::Sys;

extern "C" {

// The linker names these: __wrap_x is called for x, __real_x is the library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
time_t __real_time(time_t *t);
int __real_stat(const char *path, struct stat *status);
int __real_stat64(const char *path, struct stat64 *status);
int __real_fstat(int fd, struct stat *status);
int __real_fstat64(int fd, struct stat64 *status);
int __real_open(const char *path, int flags, ...);
FILE *__real_fdopen(int fd, const char *mode);
int __real_fseeko(FILE *stream, off_t offset, int whence);
int __real_fseeko64(FILE *stream, off64_t offset, int whence);
size_t __real_fread(void *data, size_t size, size_t count, FILE *stream);
ssize_t __real_pread(int fd, void *data, size_t size, off_t offset);
int __real_scandir(const char *dir, struct dirent ***names, int (*filter)(const struct dirent *),
                   int (*order)(const struct dirent **, const struct dirent **));
int __real_regcomp(regex_t *expression, const char *pattern, int flags);

void *__wrap_malloc(size_t size)
{
    return test::EnterMemory("malloc") ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return test::EnterMemory("calloc") ? nullptr : __real_calloc(count, size);
}

time_t __wrap_time(time_t *t)
{
    if (!Sys().now)
        return __real_time(t);
    if (t != nullptr)
        *t = *Sys().now;
    return *Sys().now;
}

int __wrap_stat(const char *path, struct stat *status)
{
    return Sys().Enter("stat") ? -1 : __real_stat(Sys().Translate(path).c_str(), status);
}

int __wrap_stat64(const char *path, struct stat64 *status)
{
    const bool fails = Sys().Enter("stat64") || Sys().Enter("stat");
    return fails ? -1 : __real_stat64(Sys().Translate(path).c_str(), status);
}

int __wrap_fstat(int fd, struct stat *status)
{
    return Sys().Enter("fstat") ? -1 : __real_fstat(fd, status);
}

int __wrap_fstat64(int fd, struct stat64 *status)
{
    return Sys().Enter("fstat") ? -1 : __real_fstat64(fd, status);
}

int __wrap_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return Sys().Enter("open") ? -1 : __real_open(Sys().Translate(path).c_str(), flags, mode);
}

FILE *__wrap_fdopen(int fd, const char *mode)
{
    return Sys().Enter("fdopen") ? nullptr : __real_fdopen(fd, mode);
}

int __wrap_fseeko(FILE *stream, off_t offset, int whence)
{
    return Sys().Enter("fseek") ? -1 : __real_fseeko(stream, offset, whence);
}

int __wrap_fseeko64(FILE *stream, off64_t offset, int whence)
{
    return Sys().Enter("fseek") ? -1 : __real_fseeko64(stream, offset, whence);
}

// A failing read delivers nothing, and no end of file.
size_t __wrap_fread(void *data, size_t size, size_t count, FILE *stream)
{
    return Sys().Enter("fread") ? 0 : __real_fread(data, size, count, stream);
}

ssize_t __wrap_pread(int fd, void *data, size_t size, off_t offset)
{
    return Sys().Enter("pread") ? -1 : __real_pread(fd, data, size, offset);
}

int __wrap_scandir(const char *dir, struct dirent ***names, int (*filter)(const struct dirent *),
                   int (*order)(const struct dirent **, const struct dirent **))
{
    return Sys().Enter("scandir")
               ? -1
               : __real_scandir(Sys().Translate(dir).c_str(), names, filter, order);
}

int __wrap_regcomp(regex_t *expression, const char *pattern, int flags)
{
    return Sys().Enter("regcomp") ? REG_ESPACE : __real_regcomp(expression, pattern, flags);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

} // extern "C"
