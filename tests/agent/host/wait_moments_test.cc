// The moments around a wait: how the daemon hears that the module is at rest.
#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>

#include "agent/host/moments.h"
#include "tests/agent/support/host_test.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// What a test does at each moment.
class TestMoments : public host::Moments {
  public:
    std::function<void()> table_loaded = [] {};
    std::function<bool()> rests = [] { return true; };
    std::function<void()> still_rests = [] {};
    DWORD pulse_ms = 0;
    std::function<bool(const std::string &)> may_end = [](const std::string &) { return true; };
    std::function<void(DWORD, const std::string &)> pass_begins = [](DWORD, const std::string &) {};

    void TableLoaded() override { table_loaded(); }
    bool ModuleRests() override { return rests(); }
    void StillRests() override { still_rests(); }
    [[nodiscard]] DWORD PulseMs() const override { return pulse_ms; }
    bool MayEndRest(const std::string &name) override { return may_end(name); }
    void PassBegins(DWORD result, const std::string &name) override { pass_begins(result, name); }
};

class WaitMoments : public test::HostTest {
  protected:
    ~WaitMoments() override { TellNobody(); }

    // Writes down every call.
    void WriteDown(bool goes_on = true)
    {
        moments_.rests = [this, goes_on] {
            calls_.emplace_back("rests");
            return goes_on;
        };
        moments_.pass_begins = [this](DWORD result, const std::string &name) {
            calls_.push_back("pass begins " + std::to_string(result) + " '" + name + "'");
        };
        Tell();
    }
    void Tell(HANDLE table_loaded = nullptr)
    {
        test::TheHost().TellMoments(&moments_, table_loaded);
    }
    static void TellNobody() { test::TheHost().TellMoments(nullptr, nullptr); }

    TestMoments moments_;

    DWORD Wait(DWORD milliseconds) const
    {
        return WaitForMultipleObjects(2, handles_, FALSE, milliseconds);
    }

    HANDLE handles_[2] = {CreateEvent(nullptr, TRUE, FALSE, nullptr),
                          CreateEvent(nullptr, FALSE, FALSE, "Named")};
    std::vector<std::string> calls_;
};

TEST_F(WaitMoments, RestComesBeforeTheWaitAndThePassBeginsBehindIt)
{
    WriteDown();
    SetEvent(handles_[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0));
    EXPECT_EQ((std::vector<std::string>{"rests", "pass begins 3 'Named'"}), calls_);
}

TEST_F(WaitMoments, APassHasNoNameForATimeoutOrAnUnnamedHandle)
{
    WriteDown();
    Wait(0);
    SetEvent(handles_[0]);
    Wait(0);
    EXPECT_EQ((std::vector<std::string>{"rests", "pass begins 1 ''", "rests", "pass begins 2 ''"}),
              calls_);
}

TEST_F(WaitMoments, AnEventThatMayNotEndTheRestIsTakenAndTheRestGoesOn)
{
    std::vector<std::string> asked;
    moments_.may_end = [&](const std::string &name) {
        asked.push_back(name);
        return false;
    };
    WriteDown();
    SetEvent(handles_[1]);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, Wait(0));
    EXPECT_EQ(std::vector<std::string>{"Named"}, asked);
    EXPECT_EQ((std::vector<std::string>{"rests", "pass begins 1 ''"}), calls_);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, Wait(0)) << "it was taken";
    SetEvent(handles_[0]);
    EXPECT_EQ(WAIT_RESULT_FIRST, Wait(0)) << "nobody is asked about one without a name";
}

TEST_F(WaitMoments, ASignalThatComesWhileAtRestIsTakenByTheSameWait)
{
    moments_.rests = [this] { return SetEvent(handles_[1]) != FALSE; };
    Tell();
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0));
}

TEST_F(WaitMoments, ARestThatSaysNoEndsTheWaitWithTheFirstHandle)
{
    WriteDown(false);
    SetEvent(handles_[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST, Wait(INFINITE));
    EXPECT_EQ(std::vector<std::string>{"rests"}, calls_);
    TellNobody();
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, Wait(0)) << "the signal must still be there";
}

TEST_F(WaitMoments, ARestThatThrowsGivesAFailedWait)
{
    moments_.rests = []() -> bool { throw std::runtime_error("no"); };
    Tell();
    EXPECT_EQ(WAIT_RESULT_FAILED, Wait(0));
}

TEST_F(WaitMoments, AWaitForOneObjectIsNoRest)
{
    WriteDown();
    WaitForSingleObject(handles_[0], 0);
    EXPECT_TRUE(calls_.empty());
}

TEST_F(WaitMoments, AWaitWithABadHandleIsNoRestAndPausesBeforeItFails)
{
    WriteDown();
    CloseHandle(handles_[1]);
    const auto begin = Clock::now();
    EXPECT_EQ(WAIT_RESULT_FAILED, Wait(INFINITE));
    EXPECT_GE(Clock::now() - begin, 50ms) << "the module waits again at once";
    EXPECT_TRUE(calls_.empty());
}

TEST_F(WaitMoments, ThePulseIsFeltDuringALongWait)
{
    int pulses = 0;
    moments_.pulse_ms = 5;
    moments_.still_rests = [&] {
        if (++pulses == 4)
            SetEvent(handles_[0]);
    };
    Tell();
    EXPECT_EQ(WAIT_RESULT_FIRST, Wait(INFINITE));
    EXPECT_GE(pulses, 4);
}

TEST_F(WaitMoments, WithoutAPulseAWaitSleepsThrough)
{
    int pulses = 0;
    moments_.still_rests = [&] { ++pulses; };
    Tell();
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, Wait(50));
    EXPECT_LE(pulses, 5); // only what ended the sleep
}

TEST_F(WaitMoments, TheTableIsLoadedWhenItsEventWasSet)
{
    int calls = 0;
    moments_.table_loaded = [&] {
        ++calls;
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(handles_[0], 0));
    };
    Tell(handles_[0]);
    SetEvent(handles_[1]);
    EXPECT_EQ(0, calls);
    SetEvent(handles_[0]);
    SetEvent(handles_[0]);
    EXPECT_EQ(2, calls);
    TellNobody();
    SetEvent(handles_[0]);
    EXPECT_EQ(2, calls);
}

TEST_F(WaitMoments, WhatIsThrownWhenTheTableIsLoadedDoesNotReachTheCaller)
{
    moments_.table_loaded = [] { throw std::runtime_error("no"); };
    Tell(handles_[0]);
    EXPECT_EQ(FALSE, SetEvent(handles_[0]));
}

TEST_F(WaitMoments, TheObjectBehindAHandleHasItsName)
{
    EXPECT_EQ("Named", test::TheHost().waitables().Get(handles_[1])->name());
    EXPECT_EQ("", test::TheHost().waitables().Get(handles_[0])->name());
    EXPECT_EQ(nullptr, test::TheHost().waitables().Get(nullptr));
}

} // namespace
