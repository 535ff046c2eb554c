// Events, mutexes and waits inside one process.
#include <chrono>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <thread>

#include "platform/sync.h"
#include "tests/agent/support/host_test.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Handles = std::vector<HANDLE>;

// Long enough for anything that is to happen; it only matters when a test fails.
constexpr DWORD kLong = 20000;

DWORD WaitAny(const Handles &handles, DWORD milliseconds)
{
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE,
                                  milliseconds);
}

DWORD WaitAll(const Handles &handles, DWORD milliseconds)
{
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), TRUE,
                                  milliseconds);
}

// What a wait without patience for the handle gives on a thread of its own.
DWORD WaitElsewhere(HANDLE handle)
{
    return std::async(std::launch::async, [&] { return WaitForSingleObject(handle, 0); }).get();
}

BOOL ReleaseElsewhere(HANDLE mutex)
{
    return std::async(std::launch::async, [&] { return ReleaseMutex(mutex); }).get();
}

class Wait : public test::HostTest {};

// Everything that holds for named and unnamed objects alike.
class AnyEvent : public test::HostTest, public testing::WithParamInterface<const char *> {
  protected:
    static HANDLE Create(BOOL manual_reset, BOOL initial_state)
    {
        return CreateEvent(nullptr, manual_reset, initial_state, GetParam());
    }
};
INSTANTIATE_TEST_SUITE_P(Event, AnyEvent, testing::Values(nullptr, "", "Named_Event"),
                         [](const auto &parameter) {
                             return parameter.param == nullptr ? "WithoutName"
                                    : *parameter.param == '\0' ? "WithEmptyName"
                                                               : "WithName";
                         });

// ---- one event ----

TEST_P(AnyEvent, ThatIsNotSetLetsAWaitTimeOut)
{
    HANDLE event = Create(FALSE, FALSE);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
    const auto begin = Clock::now();
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 30));
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST_P(AnyEvent, ThatWasSetBeforeAnyoneWaitedEndsTheWait)
{
    HANDLE event = Create(FALSE, FALSE);
    EXPECT_NE(FALSE, SetEvent(event));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, INFINITE));
}

TEST_P(AnyEvent, ThatResetsItselfEndsOneWaitHoweverOftenItWasSet)
{
    HANDLE event = Create(FALSE, FALSE);
    for (const int times : {1, 10, 600, 9000}) {
        for (int i = 0; i < times; ++i)
            ASSERT_NE(FALSE, SetEvent(event));
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0)) << times;
        EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0)) << times;
    }
}

TEST_P(AnyEvent, WithManualResetStaysSet)
{
    HANDLE event = Create(TRUE, FALSE);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
    SetEvent(event);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitAll({event, event}, 0));
}

TEST_P(AnyEvent, CanBeSetFromTheBeginning)
{
    HANDLE event = Create(FALSE, TRUE);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

TEST_P(AnyEvent, ThatIsSetByAnotherThreadWakesTheWait)
{
    HANDLE event = Create(FALSE, FALSE);
    auto waiting =
        std::async(std::launch::async, [&] { return WaitForSingleObject(event, INFINITE); });
    SetEvent(event);
    ASSERT_EQ(std::future_status::ready, waiting.wait_for(20s));
    EXPECT_EQ(WAIT_RESULT_FIRST, waiting.get());
}

TEST_P(AnyEvent, ThatWasClosedGivesAFailedWaitAndCannotBeSet)
{
    HANDLE event = Create(FALSE, TRUE);
    EXPECT_NE(FALSE, CloseHandle(event));
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitForSingleObject(event, 0));
    EXPECT_EQ(FALSE, SetEvent(event));
    EXPECT_EQ(FALSE, CloseHandle(event));
}

TEST_P(AnyEvent, IsNoMutex)
{
    EXPECT_EQ(FALSE, ReleaseMutex(Create(FALSE, FALSE)));
}

// ---- names ----

TEST_F(Wait, EventsWithoutANameAreDifferentEvents)
{
    HANDLE one = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    HANDLE other = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    SetEvent(one);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(other, 0));
}

TEST_F(Wait, EventsOfOneNameAreOneEvent)
{
    HANDLE one = CreateEvent(nullptr, FALSE, FALSE, "Event");
    HANDLE other = CreateEvent(nullptr, FALSE, FALSE, "Event");
    SetEvent(one);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(other, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(one, 0));
}

TEST_F(Wait, AnEventThatExistsIsNotSetByOpeningItAsSet)
{
    HANDLE first = CreateEvent(nullptr, FALSE, FALSE, "Event");
    CreateEvent(nullptr, FALSE, TRUE, "Event");
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(first, 0));
}

TEST_F(Wait, ASignalOutlivesTheHandleThatSetIt)
{
    HANDLE held = CreateEvent(nullptr, FALSE, FALSE, "Event");
    HANDLE setter = CreateEvent(nullptr, FALSE, FALSE, "Event");
    SetEvent(setter);
    CloseHandle(setter);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(held, 0));
}

TEST_F(Wait, ANameThatCannotBeAFileNameGivesNoHandle)
{
    for (const std::string &name :
         {std::string("a/b"), std::string("../b"), std::string(201, 'n')}) {
        EXPECT_EQ(nullptr, CreateEvent(nullptr, FALSE, FALSE, name.c_str())) << name;
        EXPECT_EQ(nullptr, CreateMutex(nullptr, FALSE, name.c_str())) << name;
    }
    EXPECT_NE(nullptr, CreateEvent(nullptr, FALSE, FALSE, std::string(200, 'n').c_str()));
}

TEST_F(Wait, AnEventIsNotMadeOfAFileThatIsNoFifo)
{
    test::WriteFile(Layout().run / "Taken.event", "text");
    std::filesystem::create_symlink(File("elsewhere"), Layout().run / "Link.event");
    EXPECT_EQ(nullptr, CreateEvent(nullptr, FALSE, FALSE, "Taken"));
    EXPECT_EQ(nullptr, CreateEvent(nullptr, FALSE, FALSE, "Link"));
    EXPECT_FALSE(std::filesystem::exists(File("elsewhere")));
}

TEST_F(Wait, NothingCanBeCreatedWithoutAHost)
{
    test::StopHost();
    EXPECT_EQ(nullptr, CreateEvent(nullptr, FALSE, FALSE, "Event"));
    EXPECT_EQ(nullptr, CreateMutex(nullptr, FALSE, "Mutex"));
}

// ---- many handles ----

TEST_F(Wait, GivesTheLowestIndexFirstAndTheOthersOneByOne)
{
    Handles events;
    for (const char *name : {"A", "B", "", "D", "E"})
        events.push_back(CreateEvent(nullptr, FALSE, FALSE, name));
    for (const size_t i : {4U, 1U, 2U})
        SetEvent(events[i]);
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, WaitAny(events, 0));
    EXPECT_EQ(WAIT_RESULT_FIRST + 2, WaitAny(events, 0));
    EXPECT_EQ(WAIT_RESULT_FIRST + 4, WaitAny(events, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAny(events, 0));
}

TEST_F(Wait, ForOneOfManyTimesOut)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    const auto begin = Clock::now();
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAny({event, event}, 30));
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST_F(Wait, TakesAMutexAmongEvents)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    EXPECT_EQ(WAIT_RESULT_FIRST + 1, WaitAny({event, mutex}, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(mutex));
}

TEST_F(Wait, TakesUpTo64Handles)
{
    Handles events;
    for (int i = 0; i < 64; ++i)
        events.push_back(CreateEvent(nullptr, FALSE, FALSE, nullptr));
    SetEvent(events.back());
    EXPECT_EQ(WAIT_RESULT_FIRST + 63, WaitAny(events, 0));
    events.push_back(CreateEvent(nullptr, FALSE, TRUE, nullptr));
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitAny(events, 0));
}

TEST_F(Wait, WithoutHandlesFails)
{
    HANDLE event = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitForMultipleObjects(0, &event, FALSE, 0));
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitForMultipleObjects(1, nullptr, FALSE, 0));
}

TEST_F(Wait, WithOneBadHandleFailsAndTakesNothing)
{
    HANDLE event = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    HANDLE closed = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    CloseHandle(closed);
    int local = 0;
    for (HANDLE bad : {closed, HANDLE{nullptr}, HANDLE{&local}, HKEY_LOCAL_MACHINE}) {
        EXPECT_EQ(WAIT_RESULT_FAILED, WaitAny({event, bad}, 0));
        EXPECT_EQ(WAIT_RESULT_FAILED, WaitForSingleObject(bad, 0));
        EXPECT_EQ(FALSE, SetEvent(bad));
        EXPECT_EQ(FALSE, ReleaseMutex(bad));
        EXPECT_EQ(FALSE, CloseHandle(bad));
    }
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
}

TEST_F(Wait, ForAllEndsWhenAllAreSet)
{
    Handles events = {CreateEvent(nullptr, FALSE, FALSE, "A"),
                      CreateEvent(nullptr, FALSE, FALSE, nullptr)};
    SetEvent(events[0]);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAll(events, 20));
    SetEvent(events[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitAll(events, kLong));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAny(events, 0));
}

TEST_F(Wait, ForAllThatTimesOutTakesNothing)
{
    HANDLE event = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    HANDLE never = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAll({event, mutex, never}, 20));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitElsewhere(mutex));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
}

// As if somebody else took it between the look at both and the taking: it is there once, and is waited for twice.
TEST_F(Wait, ForAllPutsBackWhatItHasTakenWhenAnotherOneIsGoneByThen)
{
    HANDLE event = CreateEvent(nullptr, FALSE, TRUE, nullptr);
    HANDLE other = CreateEvent(nullptr, FALSE, TRUE, "Named");
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitAll({other, event, event}, 20));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(other, 0));
}

TEST_F(Wait, ForAllIsWokenByTheLastOfThem)
{
    Handles events = {CreateEvent(nullptr, FALSE, TRUE, nullptr),
                      CreateEvent(nullptr, FALSE, FALSE, "Last")};
    auto waiting = std::async(std::launch::async, [&] { return WaitAll(events, kLong); });
    SetEvent(events[1]);
    EXPECT_EQ(WAIT_RESULT_FIRST, waiting.get());
}

// ---- mutexes ----

class AnyMutex : public test::HostTest, public testing::WithParamInterface<const char *> {
  protected:
    static HANDLE Create(BOOL initial_owner = FALSE)
    {
        return CreateMutex(nullptr, initial_owner, GetParam());
    }
};
INSTANTIATE_TEST_SUITE_P(Mutex, AnyMutex, testing::Values(nullptr, "Named_Mutex"),
                         [](const auto &parameter) {
                             return parameter.param == nullptr ? "WithoutName" : "WithName";
                         });

TEST_P(AnyMutex, IsOwnedByTheThreadThatWaitedForIt)
{
    HANDLE mutex = Create();
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(mutex));
    EXPECT_NE(FALSE, ReleaseMutex(mutex));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitElsewhere(mutex));
}

TEST_P(AnyMutex, CanBeOwnedFromTheBeginning)
{
    HANDLE mutex = Create(TRUE);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(mutex));
    EXPECT_NE(FALSE, ReleaseMutex(mutex));
    EXPECT_EQ(FALSE, ReleaseMutex(mutex));
}

TEST_P(AnyMutex, IsReleasedAsOftenAsItWasTaken)
{
    HANDLE mutex = Create();
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(mutex));
        EXPECT_NE(FALSE, ReleaseMutex(mutex));
    }
    EXPECT_EQ(FALSE, ReleaseMutex(mutex));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitElsewhere(mutex));
}

TEST_P(AnyMutex, IsNotReleasedByAThreadThatDoesNotOwnIt)
{
    HANDLE mutex = Create(TRUE);
    EXPECT_EQ(FALSE, ReleaseElsewhere(mutex));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(mutex));
    EXPECT_NE(FALSE, ReleaseMutex(mutex));
}

TEST_P(AnyMutex, ThatNobodyOwnsCannotBeReleased)
{
    EXPECT_EQ(FALSE, ReleaseMutex(Create()));
}

TEST_P(AnyMutex, IsNoEvent)
{
    EXPECT_EQ(FALSE, SetEvent(Create()));
}

TEST_P(AnyMutex, IsTakenByAWaitingThreadOnceItIsReleased)
{
    HANDLE mutex = Create(TRUE);
    auto waiting =
        std::async(std::launch::async, [&] { return WaitForSingleObject(mutex, INFINITE); });
    EXPECT_EQ(std::future_status::timeout, waiting.wait_for(30ms));
    ReleaseMutex(mutex);
    ASSERT_EQ(std::future_status::ready, waiting.wait_for(20s));
    EXPECT_EQ(WAIT_RESULT_FIRST, waiting.get());
}

TEST_P(AnyMutex, ThatWasClosedGivesAFailedWait)
{
    HANDLE mutex = Create(TRUE);
    EXPECT_NE(FALSE, CloseHandle(mutex));
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitForSingleObject(mutex, 0));
    EXPECT_EQ(FALSE, ReleaseMutex(mutex));
}

TEST_F(Wait, MutexesOfOneNameAreOneMutex)
{
    HANDLE one = CreateMutex(nullptr, TRUE, "Mutex");
    HANDLE other = CreateMutex(nullptr, FALSE, "Mutex");
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(other));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(other, 0)); // recursion through either handle
    EXPECT_NE(FALSE, ReleaseMutex(one));
    EXPECT_NE(FALSE, ReleaseMutex(one));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitElsewhere(one));
}

TEST_F(Wait, AMutexStaysOwnedWhenOneOfItsHandlesIsClosed)
{
    HANDLE one = CreateMutex(nullptr, TRUE, "Mutex");
    HANDLE other = CreateMutex(nullptr, FALSE, "Mutex");
    CloseHandle(one);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitElsewhere(other));
    EXPECT_NE(FALSE, ReleaseMutex(other));
}

TEST_F(Wait, AMutexWithoutANameIsNoOtherMutexWithoutAName)
{
    CreateMutex(nullptr, TRUE, nullptr);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitElsewhere(CreateMutex(nullptr, FALSE, nullptr)));
}

TEST_F(Wait, ThreadsThatRaiseANumberUnderAMutexLoseNoRaise)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, nullptr);
    int count = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                WaitForSingleObject(mutex, INFINITE);
                ++count;
                ReleaseMutex(mutex);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(800, count);
}

} // namespace
