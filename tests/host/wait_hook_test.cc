// The hooks into the waits: how the daemon hears that the module is at rest.
#include <chrono>
#include <stdexcept>

#include "agent/host/sync.h"
#include "tests/host/host_test.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

class WaitHook : public test::HostTest {
  protected:
    ~WaitHook() override
    {
        host::SetWaitHooks({});
        host::SetEventHook(nullptr, nullptr);
    }

    // Writes down every call of a hook.
    void SetHooks(bool goes_on = true)
    {
        host::WaitHooks hooks;
        hooks.at_rest = [this, goes_on] {
            calls_.emplace_back("at rest");
            return goes_on;
        };
        hooks.woken = [this](DWORD result, const std::string &name) {
            calls_.push_back("woken " + std::to_string(result) + " '" + name + "'");
        };
        host::SetWaitHooks(std::move(hooks));
    }

    DWORD Wait(DWORD milliseconds) const
    {
        return WaitForMultipleObjects(2, handles_, FALSE, milliseconds);
    }

    HANDLE handles_[2] = {CreateEvent(nullptr, TRUE, FALSE, nullptr),
                          CreateEvent(nullptr, FALSE, FALSE, "Named")};
    std::vector<std::string> calls_;
};

TEST_F(WaitHook, AtRestComesBeforeTheWaitAndWokenBehindIt)
{
    SetHooks();
    SetEvent(handles_[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0));
    EXPECT_EQ((std::vector<std::string>{"at rest", "woken 3 'Named'"}), calls_);
}

TEST_F(WaitHook, WokenHasNoNameForATimeoutOrAnUnnamedHandle)
{
    SetHooks();
    Wait(0);
    SetEvent(handles_[0]);
    Wait(0);
    EXPECT_EQ((std::vector<std::string>{"at rest", "woken 1 ''", "at rest", "woken 2 ''"}), calls_);
}

TEST_F(WaitHook, ASignalThatComesWhileAtRestIsTakenByTheSameWait)
{
    host::WaitHooks hooks;
    hooks.at_rest = [this] { return SetEvent(handles_[1]) != FALSE; };
    host::SetWaitHooks(std::move(hooks));
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0));
}

TEST_F(WaitHook, AtRestThatSaysNoEndsTheWaitWithTheFirstHandle)
{
    SetHooks(false);
    SetEvent(handles_[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST, Wait(INFINITE));
    EXPECT_EQ(std::vector<std::string>{"at rest"}, calls_);
    host::SetWaitHooks({});
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0)) << "the signal must still be there";
}

TEST_F(WaitHook, AtRestThatThrowsGivesAFailedWait)
{
    host::WaitHooks hooks;
    hooks.at_rest = []() -> bool { throw std::runtime_error("no"); };
    host::SetWaitHooks(std::move(hooks));
    EXPECT_EQ(WAIT_RESULT_FAILED, Wait(0));
}

TEST_F(WaitHook, AWaitForOneObjectIsNoRest)
{
    SetHooks();
    WaitForSingleObject(handles_[0], 0);
    EXPECT_TRUE(calls_.empty());
}

TEST_F(WaitHook, AWaitWithABadHandleIsNoRestAndPausesBeforeItFails)
{
    SetHooks();
    CloseHandle(handles_[1]);
    const auto begin = Clock::now();
    EXPECT_EQ(WAIT_RESULT_FAILED, Wait(INFINITE));
    EXPECT_GE(Clock::now() - begin, 50ms) << "the module waits again at once";
    EXPECT_TRUE(calls_.empty());
}

TEST_F(WaitHook, ThePulseIsFeltDuringALongWait)
{
    int pulses = 0;
    host::WaitHooks hooks;
    hooks.pulse_ms = 5;
    hooks.pulse = [&] {
        if (++pulses == 4)
            SetEvent(handles_[0]);
    };
    host::SetWaitHooks(std::move(hooks));
    EXPECT_EQ(WAIT_RESULT_FIRST, Wait(INFINITE));
    EXPECT_GE(pulses, 4);
}

TEST_F(WaitHook, WithoutAPulseAWaitSleepsThrough)
{
    int pulses = 0;
    host::WaitHooks hooks;
    hooks.pulse = [&] { ++pulses; };
    host::SetWaitHooks(std::move(hooks));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, Wait(50));
    EXPECT_LE(pulses, 5); // only what ended the sleep
}

TEST_F(WaitHook, TheEventHookIsCalledWhenItsEventWasSet)
{
    int calls = 0;
    host::SetEventHook(handles_[0], [&] {
        ++calls;
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(handles_[0], 0));
    });
    SetEvent(handles_[1]);
    EXPECT_EQ(0, calls);
    SetEvent(handles_[0]);
    SetEvent(handles_[0]);
    EXPECT_EQ(2, calls);
    host::SetEventHook(nullptr, nullptr);
    SetEvent(handles_[0]);
    EXPECT_EQ(2, calls);
}

TEST_F(WaitHook, AnEventHookThatThrowsDoesNotReachTheCaller)
{
    host::SetEventHook(handles_[0], [] { throw std::runtime_error("no"); });
    EXPECT_EQ(FALSE, SetEvent(handles_[0]));
}

TEST_F(WaitHook, TheObjectBehindAHandleHasItsName)
{
    EXPECT_EQ("Named", host::WaitableOf(handles_[1])->name());
    EXPECT_EQ("", host::WaitableOf(handles_[0])->name());
    EXPECT_EQ(nullptr, host::WaitableOf(nullptr));
}

} // namespace
