// The waits of the host interface: events and mutexes behind handles, and the moments around a wait.
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <poll.h>
#include <thread>
#include <vector>

#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/sync.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

// Between two looks at something that no descriptor reports: a mutex. Short enough that nobody
// notices, long enough to cost nothing.
constexpr Milliseconds kLookAgain{10};

// Ten times a second a wait may fail: few enough for the trace log and the processor.
constexpr Milliseconds kPauseAfterFailure{100};

// Without a pulse. A sleep ends when something happens, so this is as good as no end.
constexpr Milliseconds kLongestSleep = std::chrono::hours(1);

// The most that one wait takes; the module has six.
constexpr DWORD kMaxHandles = 64;

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
        // Rounded up: a sleep of 0 ms before the end would turn in circles.
        const auto left = std::chrono::ceil<Milliseconds>(end_ - Clock::now());
        return std::clamp(left, Milliseconds(0), most);
    }

  private:
    bool endless_;
    Clock::time_point end_;
};

using Objects = std::vector<std::shared_ptr<Waitable>>;

// The first object that is ready, taken; or nothing. In the order of the handles, so the first one,
// which ends the module, comes before all others.
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
    // A look before anything is taken: one that is given back is, for a moment, not there for
    // others.
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
    // Its result does not matter: the caller looks at all objects itself, whatever ended the sleep.
    poll(descriptors.data(), descriptors.size(), static_cast<int>(longest.count()));
}

// `moments` is told of each sleep that has ended, unless it is null.
DWORD Wait(const Objects &objects, bool wait_all, DWORD milliseconds, Moments *moments)
{
    const DWORD pulse_ms = moments != nullptr ? moments->PulseMs() : 0;
    const Milliseconds slice = pulse_ms > 0 ? Milliseconds(pulse_ms) : kLongestSleep;
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
        if (moments != nullptr)
            moments->StillRests();
    }
}

bool Collect(DWORD count, const HANDLE *handles, Objects *objects)
{
    if (count == 0 || count > kMaxHandles || handles == nullptr)
        return false;
    for (DWORD i = 0; i < count; ++i) {
        // The objects live as long as the wait, also when another thread closes a handle meanwhile.
        objects->push_back(Current().waitables().Get(handles[i]));
        if (!objects->back())
            return false;
    }
    return true;
}

// The module waits for all that can wake it: around this wait, it is at rest. What the moments
// throw goes up to the boundary, and is a failed wait to the module.
DWORD Rest(const Objects &objects, bool wait_all, DWORD milliseconds, Moments *moments)
{
    if (moments != nullptr && !moments->ModuleRests())
        return WAIT_RESULT_FIRST;
    for (;;) {
        const DWORD result = Wait(objects, wait_all, milliseconds, moments);
        if (moments == nullptr)
            return result;
        const bool has_handle = result >= WAIT_RESULT_FIRST;
        const std::string name = has_handle ? objects[result - WAIT_RESULT_FIRST]->name() : "";
        // Without it, the cycle begins anew: whoever refuses an event has other work for the module.
        if (!name.empty() && !moments->MayEndRest(name))
            continue;
        moments->PassBegins(result, name);
        return result;
    }
}

} // namespace

} // namespace host

using namespace host;

extern "C" {

HANDLE CreateEvent(void * /*attributes*/, BOOL manualReset, BOOL initialState, const char *name)
{
    return AtBoundary<HANDLE>(__func__, nullptr, [&] {
        Host &host = Current();
        return host.waitables().Add(WakeEvent::Create(host.layout().run,
                                                      name != nullptr ? name : "",
                                                      manualReset != FALSE, initialState != FALSE));
    });
}

BOOL SetEvent(HANDLE event)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        Host &host = Current();
        const auto object = std::dynamic_pointer_cast<WakeEvent>(host.waitables().Get(event));
        if (!object)
            return FALSE;
        object->Set();
        if (host.moments() != nullptr && host.IsTableLoaded(event))
            host.moments()->TableLoaded();
        return TRUE;
    });
}

HANDLE CreateMutex(void * /*attributes*/, BOOL initialOwner, const char *name)
{
    return AtBoundary<HANDLE>(__func__, nullptr, [&] {
        Host &host = Current();
        return host.waitables().Add(
            Mutex::Create(host.layout().run, name != nullptr ? name : "", initialOwner != FALSE));
    });
}

BOOL ReleaseMutex(HANDLE mutex)
{
    return AtBoundary<BOOL>(__func__, FALSE, [&] {
        const auto object = std::dynamic_pointer_cast<Mutex>(Current().waitables().Get(mutex));
        return object && object->Release() ? TRUE : FALSE;
    });
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    return AtBoundary<DWORD>(__func__, WAIT_RESULT_FAILED, [&] {
        Objects objects;
        if (!Collect(1, &handle, &objects))
            return WAIT_RESULT_FAILED;
        // No rest, so nobody is told: the module waits for its mutex in this way, in the middle of
        // a pass.
        return Wait(objects, false, milliseconds, nullptr);
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
        return Rest(objects, waitAll != FALSE, milliseconds, Current().moments());
    });
}

BOOL CloseHandle(HANDLE handle)
{
    Host *host = CurrentIfAny(); // without one, all handles are closed
    return host != nullptr && host->waitables().Close(handle) ? TRUE : FALSE;
}

} // extern "C"
