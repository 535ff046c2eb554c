// Named events and mutexes shared by processes, and what becomes of them when one is killed.
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <set>
#include <sys/file.h>
#include <thread>

#include "agent/host/waitable.h"
#include "platform/sync.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using test::Child;
using test::Helper;
using test::RunToEnd;
using namespace std::chrono_literals;

class ProcessSync : public test::HostTest {
  protected:
    [[nodiscard]] test::Words Other(const test::Words &words) const
    {
        return Helper(Root(), words);
    }
    // What a wait in another process gives.
    [[nodiscard]] std::string WaitInOther(const char *event, int milliseconds) const
    {
        return RunToEnd(Other({"wait-event", event, std::to_string(milliseconds)})).out;
    }
};

// ---- events ----

TEST_F(ProcessSync, AnEventSetByAnotherProcessWakesAWaitHere)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    Child other(Other({"hold-event", "Event"}));
    ASSERT_EQ("open", other.ReadLine());
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
    other.Say("set it");
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 20000));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

TEST_F(ProcessSync, AnEventSetHereWakesAWaitInAnotherProcess)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    Child other(Other({"wait-event", "Event", "20000"}));
    ASSERT_EQ("open", other.ReadLine());
    SetEvent(event);
    EXPECT_EQ("2", other.ReadLine());
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

TEST_F(ProcessSync, ASignalIsKeptWhileAnyProcessHasTheEventOpen)
{
    HANDLE held = CreateEvent(nullptr, FALSE, FALSE, "Event");
    EXPECT_EQ(0, RunToEnd(Other({"set-event", "Event"})).status);
    EXPECT_EQ("open\n2\n", WaitInOther("Event", 0));
    EXPECT_EQ("open\n1\n", WaitInOther("Event", 0));
    CloseHandle(held);
}

TEST_F(ProcessSync, ASignalOutlivesItsKilledSetter)
{
    HANDLE held = CreateEvent(nullptr, FALSE, FALSE, "Event");
    Child setter(Other({"hold-event", "Event"}));
    ASSERT_EQ("open", setter.ReadLine());
    setter.Say("set it");
    ASSERT_EQ("set", setter.ReadLine());
    setter.Kill();
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(held, 0));
}

volatile sig_atomic_t interruptions = 0;

// A signal of the system may come while a process that opens an event waits for another one that opens it as well.
TEST_F(ProcessSync, AnInterruptedOpeningCountsAsUserAllTheSame)
{
    CloseHandle(CreateEvent(nullptr, FALSE, FALSE, "Event"));
    const host::Fd fifo(open((Layout().run / "Event.event").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(0, flock(fifo.get(), LOCK_EX));
    struct sigaction counts {};
    counts.sa_handler = [](int) { interruptions = interruptions + 1; };
    struct sigaction before {};
    sigaction(SIGUSR1, &counts, &before);

    std::atomic<HANDLE> event = nullptr;
    std::thread opens([&] { event = CreateEvent(nullptr, FALSE, FALSE, "Event"); });
    for (const int seen = interruptions; event == nullptr && interruptions < seen + 20;) {
        pthread_kill(opens.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    flock(fifo.get(), LOCK_UN);
    opens.join();
    sigaction(SIGUSR1, &before, nullptr);

    EXPECT_NE(0, flock(fifo.get(), LOCK_EX | LOCK_NB)) << "nobody has it open";
    CloseHandle(event);
    EXPECT_EQ(0, flock(fifo.get(), LOCK_EX | LOCK_NB));
}

TEST_F(ProcessSync, ASignalIsLostWhenNobodyHasTheEventOpen)
{
    EXPECT_EQ(0, RunToEnd(Other({"set-event", "Event"})).status);
    EXPECT_EQ("open\n1\n", WaitInOther("Event", 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT,
              WaitForSingleObject(CreateEvent(nullptr, FALSE, FALSE, "Event"), 0));
}

TEST_F(ProcessSync, AnEventThatNobodyElseHasOpenTakesItsInitialState)
{
    RunToEnd(Other({"set-event", "Event"}));
    EXPECT_EQ(WAIT_RESULT_FIRST,
              WaitForSingleObject(CreateEvent(nullptr, FALSE, TRUE, "Event"), 0));
}

TEST_F(ProcessSync, TenSignalsFromTenProcessesAreOneWakeUp)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(0, RunToEnd(Other({"set-event", "Event"})).status);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(event, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

TEST_F(ProcessSync, OneSignalWakesOneOfTwoProcesses)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    Child one(Other({"wait-event", "Event", "700"}));
    Child two(Other({"wait-event", "Event", "700"}));
    ASSERT_EQ("open", one.ReadLine());
    ASSERT_EQ("open", two.ReadLine());
    SetEvent(event);
    EXPECT_EQ((std::multiset<std::string>{"1", "2"}),
              (std::multiset<std::string>{one.ReadLine(), two.ReadLine()}));
}

TEST_F(ProcessSync, EventsOfDifferentRootsAreDifferentEvents)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, "Event");
    const test::TempFolder elsewhere;
    EXPECT_EQ(0, RunToEnd(Helper(elsewhere.path(), {"set-event", "Event"})).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

// ---- mutexes ----

TEST_F(ProcessSync, AMutexOwnedByAnotherProcessIsNotFree)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    Child owner(Other({"own-mutex", "Mutex", "1"}));
    ASSERT_EQ("owned", owner.ReadLine());
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(mutex, 0));
    EXPECT_EQ(FALSE, ReleaseMutex(mutex));
    owner.Say("release it");
    ASSERT_EQ("released", owner.ReadLine());
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
}

TEST_F(ProcessSync, AMutexOwnedHereIsNeitherFreeNorReleasedInAnotherProcess)
{
    HANDLE mutex = CreateMutex(nullptr, TRUE, "Mutex");
    EXPECT_EQ("1\nrefused\n", RunToEnd(Other({"try-mutex", "Mutex", "0"})).out);
    EXPECT_NE(FALSE, ReleaseMutex(mutex));
    EXPECT_EQ("2\nreleased\n", RunToEnd(Other({"try-mutex", "Mutex", "0"})).out);
}

TEST_F(ProcessSync, AMutexTakenTwiceIsFreeAfterTheSecondRelease)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    Child owner(Other({"own-mutex", "Mutex", "2"}));
    ASSERT_EQ("owned", owner.ReadLine());
    owner.Say("release it");
    ASSERT_EQ("released", owner.ReadLine());
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(mutex, 0));
    owner.Say("release it again");
    ASSERT_EQ("released", owner.ReadLine());
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
    owner.Say("once too often");
    EXPECT_EQ("refused", owner.ReadLine());
}

TEST_F(ProcessSync, AMutexWhoseOwnerIsKilledIsFreeAtOnce)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    for (const char *depth : {"1", "3"}) {
        Child owner(Other({"own-mutex", "Mutex", depth}));
        ASSERT_EQ("owned", owner.ReadLine());
        ASSERT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(mutex, 0));
        owner.Kill();
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
        ReleaseMutex(mutex);
    }
}

TEST_F(ProcessSync, AWaitForAMutexEndsSoonAfterItsOwnerIsKilled)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    Child owner(Other({"own-mutex", "Mutex", "1"}));
    ASSERT_EQ("owned", owner.ReadLine());
    Child waiter(Other({"try-mutex", "Mutex", "20000"}));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(mutex, 50));
    const auto killed = std::chrono::steady_clock::now();
    owner.Kill();
    EXPECT_EQ("2", waiter.ReadLine());
    EXPECT_LT(std::chrono::steady_clock::now() - killed, 5s);
}

TEST_F(ProcessSync, AMutexWhoseOwnerEndsWithoutReleasingItIsFree)
{
    HANDLE mutex = CreateMutex(nullptr, FALSE, "Mutex");
    Child owner(Other({"own-mutex", "Mutex", "1"}));
    ASSERT_EQ("owned", owner.ReadLine());
    owner.Signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, owner.Wait());
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(mutex, 0));
}

TEST_F(ProcessSync, ProcessesThatRaiseANumberUnderAMutexLoseNoRaise)
{
    constexpr int kProcesses = 4;
    constexpr int kRaises = 150;
    test::WriteFile(File("count"), "0");
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < kProcesses; ++i)
        children.push_back(std::make_unique<Child>(
            Other({"count", "Mutex", File("count").string(), std::to_string(kRaises)})));
    for (const auto &child : children)
        child->Say("go");
    for (const auto &child : children)
        EXPECT_EQ(0, child->Wait());
    EXPECT_EQ(std::to_string(kProcesses * kRaises), test::ReadFile(File("count")));
}

} // namespace
