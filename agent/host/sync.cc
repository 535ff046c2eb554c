#include "agent/host/sync.h"

#include <algorithm>
#include <chrono>
#include <poll.h>
#include <thread>
#include <vector>

#include "agent/host/c_boundary.h"
#include "agent/host/handle_table.h"
#include "agent/host/host.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Between two looks at something that no descriptor reports: a mutex. Short enough that nobody
// notices, long enough to cost nothing.
constexpr Milliseconds kLookAgain{10};

constexpr Milliseconds kPauseAfterFailure{100};

constexpr DWORD kMaxHandles = 64;

HandleTable<Waitable> &Handles()
{
    static HandleTable<Waitable> table(0x10000);
    return table;
}

struct Hooks {
    WaitHooks wait;
    HANDLE event = nullptr;
    std::function<void()> on_set;
};
Hooks hooks;

// When a wait ends at the latest.
class Deadline {
  public:
    explicit Deadline(DWORD milliseconds)
        : endless_(milliseconds == INFINITE), end_(Clock::now() + Milliseconds(milliseconds))
    {
    }
    [[nodiscard]] bool IsOver() const { return !endless_ && Clock::now() >= end_; }
    // Time left, but no more than `most`.
    [[nodiscard]] Milliseconds Left(Milliseconds most) const
    {
        if (endless_)
            return most;
        const auto left = std::chrono::ceil<Milliseconds>(end_ - Clock::now());
        return std::clamp(left, Milliseconds(0), most);
    }

  private:
    bool endless_;
    Clock::time_point end_;
};

using Objects = std::vector<std::shared_ptr<Waitable>>;

// The first object that is ready, taken; or nothing.
std::optional<DWORD> TakeAny(const Objects &objects)
{
    for (size_t i = 0; i < objects.size(); ++i) {
        if (objects[i]->TryTake())
            return static_cast<DWORD>(i);
    }
    return std::nullopt;
}

// All objects, or none of them.
bool TakeAll(const Objects &objects)
{
    for (const auto &object : objects) {
        if (!object->IsReady())
            return false;
    }
    for (size_t i = 0; i < objects.size(); ++i) {
        if (!objects[i]->TryTake()) {
            for (size_t j = 0; j < i; ++j)
                objects[j]->PutBack(); // somebody was faster with this one
            return false;
        }
    }
    return true;
}

// Sleeps until one of the objects may be ready, at most `longest`.
void Sleep(const Objects &objects, Milliseconds longest)
{
    std::vector<pollfd> descriptors;
    for (const auto &object : objects) {
        if (object->PollFd() < 0)
            longest = std::min(longest, kLookAgain);
        else
            descriptors.push_back({object->PollFd(), POLLIN, 0});
    }
    poll(descriptors.data(), descriptors.size(), static_cast<int>(longest.count()));
}

DWORD Wait(const Objects &objects, bool wait_all, DWORD milliseconds, const WaitHooks &wait_hooks)
{
    constexpr Milliseconds kLongest = std::chrono::hours(1);
    const Milliseconds slice =
        wait_hooks.pulse_ms > 0 ? Milliseconds(wait_hooks.pulse_ms) : kLongest;
    const Deadline deadline(milliseconds);
    for (;;) {
        if (wait_all) {
            if (TakeAll(objects))
                return WAIT_RESULT_FIRST;
        } else if (const auto taken = TakeAny(objects)) {
            return WAIT_RESULT_FIRST + *taken;
        }
        if (deadline.IsOver())
            return WAIT_RESULT_TIMEOUT;
        // Waiting for all: the ready ones would end every poll at once, so look again after a
        // while.
        Sleep(wait_all ? Objects{} : objects, deadline.Left(wait_all ? kLookAgain : slice));
        if (wait_hooks.pulse)
            wait_hooks.pulse();
    }
}

bool Collect(DWORD count, const HANDLE *handles, Objects *objects)
{
    if (count == 0 || count > kMaxHandles || handles == nullptr)
        return false;
    for (DWORD i = 0; i < count; ++i) {
        objects->push_back(Handles().Get(handles[i]));
        if (!objects->back())
            return false;
    }
    return true;
}

} // namespace

void SetWaitHooks(WaitHooks wait_hooks)
{
    hooks.wait = std::move(wait_hooks);
}

void SetEventHook(HANDLE event, std::function<void()> hook)
{
    hooks.event = event;
    hooks.on_set = std::move(hook);
}

std::shared_ptr<Waitable> WaitableOf(HANDLE handle)
{
    return Handles().Get(handle);
}

} // namespace host

using namespace host;

extern "C" {

HANDLE CreateEvent(void * /*attributes*/, BOOL manualReset, BOOL initialState, const char *name)
{
    return AtBoundary<HANDLE>(__func__, nullptr, [&] {
        return Handles().Add(WakeEvent::Create(HostLayout().run, name != nullptr ? name : "",
                                               manualReset != FALSE, initialState != FALSE));
    });
}

BOOL SetEvent(HANDLE event)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        const auto object = std::dynamic_pointer_cast<WakeEvent>(Handles().Get(event));
        if (!object)
            return FALSE;
        object->Set();
        if (hooks.on_set && event == hooks.event)
            hooks.on_set();
        return TRUE;
    });
}

HANDLE CreateMutex(void * /*attributes*/, BOOL initialOwner, const char *name)
{
    return AtBoundary<HANDLE>(__func__, nullptr, [&] {
        return Handles().Add(
            Mutex::Create(HostLayout().run, name != nullptr ? name : "", initialOwner != FALSE));
    });
}

BOOL ReleaseMutex(HANDLE mutex)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        const auto object = std::dynamic_pointer_cast<Mutex>(Handles().Get(mutex));
        return object && object->Release() ? TRUE : FALSE;
    });
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    return AtBoundary<DWORD>(__func__, WAIT_RESULT_FAILED, [&] {
        Objects objects;
        if (!Collect(1, &handle, &objects))
            return WAIT_RESULT_FAILED;
        return Wait(objects, false, milliseconds, {});
    });
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE *handles, BOOL waitAll, DWORD milliseconds)
{
    return AtBoundary<DWORD>(__func__, WAIT_RESULT_FAILED, [&] {
        Objects objects;
        if (!Collect(count, handles, &objects)) {
            // The module waits again at once after a failure; it must not turn in circles at full
            // speed.
            std::this_thread::sleep_for(kPauseAfterFailure);
            return WAIT_RESULT_FAILED;
        }
        if (hooks.wait.at_rest && !hooks.wait.at_rest())
            return WAIT_RESULT_FIRST;
        const DWORD result = Wait(objects, waitAll != FALSE, milliseconds, hooks.wait);
        if (hooks.wait.woken) {
            const bool has_handle = result >= WAIT_RESULT_FIRST;
            hooks.wait.woken(result, has_handle ? objects[result - WAIT_RESULT_FIRST]->name() : "");
        }
        return result;
    });
}

BOOL CloseHandle(HANDLE handle)
{
    return Handles().Close(handle) ? TRUE : FALSE;
}

} // extern "C"
