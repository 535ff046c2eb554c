// A library that is loaded before a program and puts its clock forward or back: for hosts whose clocks differ.
//
//   LD_PRELOAD     this library
//   OTHER_CLOCK    the seconds by which it is ahead
//
// The kernel's clock stays what it is. So libraries that have the kernel wait until a moment of it see that one; only the
// program itself and the C++ library, by which it asks for the time, see the other.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>

namespace {

bool IsMeant(const void *caller)
{
    Dl_info where{};
    if (dladdr(caller, &where) == 0 || where.dli_fname == nullptr)
        return false;
    return strstr(where.dli_fname, "/bin/") != nullptr ||
           strstr(where.dli_fname, "libstdc++") != nullptr;
}

} // namespace

extern "C" int clock_gettime(clockid_t id, struct timespec *now)
{
    using Call = int (*)(clockid_t, struct timespec *);
    static const auto real = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "clock_gettime"));
    const int result = real(id, now);
    const char *seconds = getenv("OTHER_CLOCK");
    if (result == 0 && id == CLOCK_REALTIME && seconds != nullptr &&
        IsMeant(__builtin_return_address(0)))
        now->tv_sec += atoll(seconds);
    return result;
}
