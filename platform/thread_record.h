// The record that the host passes to StartThread. Opaque, but for two handles at fixed byte
// offsets.
#ifndef PLATFORM_THREAD_RECORD_H
#define PLATFORM_THREAD_RECORD_H

#include <cstddef>

#include "platform/types.h"

constexpr size_t kThreadRecordSize = 4144;         // bytes, at least
constexpr size_t kThreadStopHandleOffset = 16;     // signalled by the host to end the monitor
constexpr size_t kThreadStartupEventOffset = 4136; // set by the module once the table has loaded
static_assert(kThreadStartupEventOffset + sizeof(HANDLE) <= kThreadRecordSize);

#endif // PLATFORM_THREAD_RECORD_H
