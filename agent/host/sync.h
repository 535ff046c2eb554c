// Hooks into the waits of the monitor thread, for the daemon. The wait for several handles is the
// moment at which the module is at rest: the table may be read, and what the pass has written is
// stored.
#ifndef AGENT_HOST_SYNC_H
#define AGENT_HOST_SYNC_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "agent/host/waitable.h"
#include "platform/sync.h"

namespace host {

struct WaitHooks {
    // On entry of WaitForMultipleObjects. False: the wait reports handle 0, which ends the module.
    std::function<bool()> at_rest;
    // About this often while waiting, in milliseconds; 0: not at all.
    DWORD pulse_ms = 0;
    std::function<void()> pulse;
    // On return: the result, and the name of the handle that was taken (empty for others).
    std::function<void(DWORD result, const std::string &name)> woken;
};

// Sets the hooks; an empty WaitHooks takes them away. Not while a wait is under way.
void SetWaitHooks(WaitHooks hooks);

// Called when the event behind this handle was set by SetEvent, on the thread that set it.
void SetEventHook(HANDLE event, std::function<void()> hook);

// The object behind a handle of platform/sync.h, or null.
std::shared_ptr<Waitable> WaitableOf(HANDLE handle);

} // namespace host

#endif // AGENT_HOST_SYNC_H
