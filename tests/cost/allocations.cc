// The heap of this program: the C library's, with a counter before it. A definition in the program takes the
// place of the C library's own everywhere, also for calls from inside it.
#include "tests/cost/allocations.h"

#include <cerrno>
#include <cstddef>

namespace {

long allocations = 0;

} // namespace

namespace test {

long Allocations()
{
    return allocations;
}

} // namespace test

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *memory);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

void *malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *memory, size_t size)
{
    ++allocations;
    return __libc_realloc(memory, size);
}

void *memalign(size_t alignment, size_t size)
{
    ++allocations;
    return __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    ++allocations;
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **memory, size_t alignment, size_t size)
{
    ++allocations;
    *memory = __libc_memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

void free(void *memory)
{
    __libc_free(memory);
}

} // extern "C"
