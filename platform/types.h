// The scalar and handle types of the host interface.
//
// Conventions of every header in this folder:
//   1. Declarations only. The host process supplies the definitions; the module links to none of
//      them and resolves them when it is loaded.
//   2. LP64 Linux, C linkage, global scope. No call throws.
//   3. Handles are opaque. Null is "none"; whoever got a handle closes it, once.
//   4. Sizes are in bytes. A size that is passed by address holds the buffer's size on entry and the
//      value's size on return.
//   5. Text is zero-terminated. Stored text includes its zero byte.
//   6. All calls are made on the one thread that the host gave to StartThread.
#ifndef PLATFORM_TYPES_H
#define PLATFORM_TYPES_H

#include <cstdint>

using BOOL = int; // TRUE or FALSE; results are tested for non-zero
using DWORD = uint32_t;
using LONG = int32_t;
using HANDLE = void *;  // event, mutex
using HMODULE = void *; // loaded library

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#endif // PLATFORM_TYPES_H
