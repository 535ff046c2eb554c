// Named events and mutexes, and waiting for them.
#ifndef PLATFORM_SYNC_H
#define PLATFORM_SYNC_H

#include "platform/types.h"

// No time limit for a wait, in milliseconds.
constexpr DWORD INFINITE = 0xFFFFFFFFU;

// What a wait returns. WAIT_RESULT_FIRST + i means that handle i was signalled (or, for a mutex, is
// now owned by the caller).
constexpr DWORD WAIT_RESULT_FAILED = 0;
constexpr DWORD WAIT_RESULT_TIMEOUT = 1;
constexpr DWORD WAIT_RESULT_FIRST = 2;

extern "C" {

// Creates an event, or opens the existing one of that name. An auto-reset event (manualReset FALSE)
// wakes one wait and is then no longer signalled; a signal that nobody waits for yet is kept.
// Returns null on failure.
HANDLE CreateEvent(void *attributes, BOOL manualReset, BOOL initialState, const char *name);

// Signals an event. Returns zero on failure.
BOOL SetEvent(HANDLE event);

// Creates a mutex, or opens the existing one of that name. The holder's death releases it.
// Returns null on failure.
HANDLE CreateMutex(void *attributes, BOOL initialOwner, const char *name);

// Gives up a mutex that the calling thread owns. Returns zero on failure.
BOOL ReleaseMutex(HANDLE mutex);

// Wait for one handle, or for any (waitAll FALSE) or all of `count` handles, at most `milliseconds`
// long. Return a WAIT_RESULT_ value.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds);

// Closes an event or mutex handle. Returns zero when it is no open handle.
BOOL CloseHandle(HANDLE handle);

} // extern "C"

#endif // PLATFORM_SYNC_H
