// A store whose system calls fail: each of them in turn, in each way that matters. Nothing that was
// stored is lost, a pass is stored whole or not at all, the registry is never taken for empty, and
// the message names the thing, the cause and the next step.
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/registry.h"
#include "tests/agent/host/faults.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/line_counter.h"
#include "tests/agent/support/process.h"

namespace {

using test::Child;
using test::CountedLines;
using test::CountLines;
using test::EachLineOnce;
using test::ErrorOf;
using test::Fault;
using test::Finished;
using test::Helper;

namespace fs = std::filesystem;

constexpr uint32_t kLines = 7;

// What a child process of a test exits with.
constexpr int kWentWell = 0;
constexpr int kFailedWell = 10; // with a message that is complete
constexpr int kFailedBadly = 11;

// Runs an action in a process of its own, in which nothing has happened yet. Returns its exit status,
// or 128 + the signal that ended it.
template <typename Action>
int InChild(const Action &action)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(action());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class StoreFault : public test::RootTest {
  protected:
    ~StoreFault() override
    {
        test::StopBreaking();
        test::StopHost();
    }

    // Thing, cause and next step, of which the thing is a file or folder of this root.
    [[nodiscard]] bool IsComplete(const std::string &error) const
    {
        const size_t cause = error.find(": ");
        const size_t next_step = error.find("; ");
        return error.find(Root().string()) < cause && cause < next_step &&
               next_step != std::string::npos;
    }
    [[nodiscard]] int Judge(const std::string &error) const
    {
        if (error.empty())
            return kWentWell;
        if (IsComplete(error))
            return kFailedWell;
        fprintf(stderr, "after %s failed: %s\n", test::BrokenCall().c_str(), error.c_str());
        return kFailedBadly;
    }
    static std::string WithoutLines(const std::string &line, std::string text)
    {
        while (text.find(line) == 0)
            text.erase(0, line.size());
        return text;
    }
    void Empty(const fs::path &folder) const
    {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }

    // ---- a monitor in small, from an empty folder to its last line ----

    // Lives once with the n-th call broken, for every n; then once without a fault.
    void CountLinesWithEachCallBroken(Fault fault, int expected_status)
    {
        CountLines(Layout(), 1); // what is set up once in a process does not count
        int64_t call = 1;
        for (bool was_reached = true; was_reached && !HasFailure(); ++call) {
            Empty(Layout().state);
            const int status = InChild([&] {
                test::BreakCall(call, fault);
                const std::string error = CountLines(Layout(), kLines);
                const bool reached = test::StopBreaking() >= call;
                return reached ? Judge(error) : kNotReached;
            });
            was_reached = status != kNotReached;
            if (was_reached && status != kWentWell) {
                EXPECT_EQ(expected_status, status) << "at call " << call;
            }
            EXPECT_EQ("", CountLines(Layout(), kLines)) << "behind call " << call;
            EXPECT_EQ(EachLineOnce(kLines), CountedLines(Layout())) << "behind call " << call;
        }
        EXPECT_GT(call, 100) << "so few calls cannot be all of them";
    }

    // ---- a command on a store that has a journal ----

    void MakeTemplate() const
    {
        fs::create_directories(template_);
        test::StartHost(Layout(), host::Role::kCommand);
        for (int i = 0; i < kValues; ++i)
            test::SetTreeText("Kept\\Key" + std::to_string(i), "value", Text(i));
        // The journal as a killed process leaves it.
        for (const char *suffix : {"", "-wal"})
            fs::copy_file(Layout().Store().string() + suffix,
                          template_ / (std::string("agent.db") + suffix));
        test::StopHost();
    }
    void UseTemplate() const
    {
        Empty(Layout().state);
        for (const char *name : {"agent.db", "agent.db-wal"})
            fs::copy_file(template_ / name, Layout().state / name);
    }
    static std::string Text(int number) { return "text " + std::to_string(number); }

    // Every value is there, or cannot be read; none is missing, in a host that has started.
    static bool NothingIsMissing()
    {
        for (int i = 0; i < kValues; ++i) {
            const std::string key = "Kept\\Key" + std::to_string(i);
            HKEY open = nullptr;
            const LONG result = RegOpenKeyEx(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &open);
            if (result == ERROR_FILE_NOT_FOUND)
                return false;
            char data[100] = {};
            DWORD size = sizeof data;
            if (result == ERROR_SUCCESS) {
                const LONG got = RegQueryValueEx(open, "value", nullptr, nullptr, data, &size);
                if (got == ERROR_FILE_NOT_FOUND || (got == ERROR_SUCCESS && data != Text(i)))
                    return false;
            }
        }
        return true;
    }
    // Reads everything, and changes two values as one.
    std::string Change() const
    {
        const std::string error = ErrorOf([&] {
            test::StartHost(Layout(), host::Role::kCommand);
            if (!NothingIsMissing())
                throw host::Error("stored values are not there"); // is no complete message
            host::Transaction transaction(test::Store());
            test::SetTreeText("Changed", "one", "new");
            test::SetTreeText("Changed", "two", std::string(20000, 'n'));
            transaction.Commit();
        });
        test::StopHost();
        return error == "no error" ? "" : error;
    }
    // What has become of that change: "whole", "none" or "half".
    std::string WhatWasChanged() const
    {
        test::StartHost(Layout(), host::Role::kDaemon);
        EXPECT_TRUE(NothingIsMissing());
        const bool one = test::TreeValue("Changed", "one").has_value();
        const bool two = test::TreeValue("Changed", "two").has_value();
        test::StopHost();
        if (one != two)
            return "half";
        return one ? "whole" : "none";
    }
    void ChangeWithEachCallBroken(Fault fault, int expected_status)
    {
        MakeTemplate();
        int64_t call = 1;
        for (bool was_reached = true; was_reached && !HasFailure(); ++call) {
            UseTemplate();
            const int status = InChild([&] {
                test::BreakCall(call, fault);
                const std::string error = Change();
                const bool reached = test::StopBreaking() >= call;
                return reached ? Judge(error) : kNotReached;
            });
            was_reached = status != kNotReached;
            const std::string changed = WhatWasChanged();
            if (!was_reached || status == kWentWell) {
                EXPECT_EQ("whole", changed) << "at call " << call;
            } else {
                EXPECT_EQ(expected_status, status) << "at call " << call;
                EXPECT_NE("half", changed) << "at call " << call;
            }
        }
        EXPECT_GT(call, 50) << "so few calls cannot be all of them";
    }

    static constexpr int kNotReached = 20; // there are fewer calls: the exit status of a child

  private:
    static constexpr int kValues = 20;
    fs::path template_ = File("template");
};

// ---- each line counts once ----

TEST_F(StoreFault, EachLineCountsOnceWhateverCallFails)
{
    CountLinesWithEachCallBroken(Fault::kError, kFailedWell);
}

TEST_F(StoreFault, EachLineCountsOnceWheneverTheDiskBreaks)
{
    CountLinesWithEachCallBroken(Fault::kStaysBroken, kFailedWell);
}

TEST_F(StoreFault, EachLineCountsOnceWheneverTheDiskIsFull)
{
    CountLinesWithEachCallBroken(Fault::kDiskIsFull, kFailedWell);
}

TEST_F(StoreFault, EachLineCountsOnceWhicheverWriteIsShort)
{
    CountLinesWithEachCallBroken(Fault::kShortWrite, kFailedWell);
}

TEST_F(StoreFault, EachLineCountsOnceWhereverTheDaemonIsKilled)
{
    CountLinesWithEachCallBroken(Fault::kDeath, 128 + SIGKILL);
}

// ---- a change is whole or none, and nothing is lost ----

TEST_F(StoreFault, AChangeIsWholeOrNoneWhateverCallFails)
{
    ChangeWithEachCallBroken(Fault::kError, kFailedWell);
}

TEST_F(StoreFault, AChangeIsWholeOrNoneWheneverTheDiskBreaks)
{
    ChangeWithEachCallBroken(Fault::kStaysBroken, kFailedWell);
}

TEST_F(StoreFault, AChangeIsWholeOrNoneWheneverTheDiskIsFull)
{
    ChangeWithEachCallBroken(Fault::kDiskIsFull, kFailedWell);
}

TEST_F(StoreFault, AChangeIsWholeOrNoneWhereverTheCommandIsKilled)
{
    ChangeWithEachCallBroken(Fault::kDeath, 128 + SIGKILL);
}

// ---- in this process: what the next call meets ----

TEST_F(StoreFault, AMonitorThatGoesOnAfterAFailedCallCountsEachLineOnce)
{
    // The daemon does not end when its monitor does: the same process starts it again.
    int64_t call = 1;
    for (bool was_reached = true; was_reached && !HasFailure(); call += 5) {
        Empty(Layout().state);
        test::BreakCall(call, Fault::kError);
        CountLines(Layout(), kLines);
        was_reached = test::StopBreaking() >= call;
        EXPECT_EQ("", CountLines(Layout(), kLines)) << "behind call " << call;
        EXPECT_EQ(EachLineOnce(kLines), CountedLines(Layout())) << "behind call " << call;
    }
}

// More than the page cache keeps, so that a look at one of these reads the disk.
void MakeStoreWithManyPages()
{
    test::SetTreeText("Key", "value", "stored");
    for (int i = 0; i < 500; ++i)
        test::SetTreeText("Key" + std::to_string(i), "value", std::string(8000, 'v'));
    test::Store().CommitPass();
    test::Store().database().Execute("PRAGMA shrink_memory");
}

// Reads a value while the disk is broken, as the monitor does.
void ReadWithoutADisk()
{
    test::Store().database().Execute("PRAGMA shrink_memory");
    test::BreakCall(1, Fault::kStaysBroken);
    HKEY key = nullptr;
    LONG result = RegOpenKeyEx(HKEY_LOCAL_MACHINE, "Key250", 0, KEY_READ, &key);
    DWORD size = 0;
    if (result == ERROR_SUCCESS)
        result = RegQueryValueEx(key, "value", nullptr, nullptr, nullptr, &size);
    test::StopBreaking();
    ASSERT_NE("", test::BrokenCall()) << "nothing was read from the disk";
    EXPECT_NE(ERROR_SUCCESS, result);
    EXPECT_NE(ERROR_FILE_NOT_FOUND, result) << "a value that cannot be read is not a missing one";
}

void ExpectBrokenPass()
{
    auto &store = test::Store();
    EXPECT_NE("no error", ErrorOf([] { test::SetTreeText("Key", "other", "alone"); }));
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
    EXPECT_EQ(std::string("stored\0", 7), test::TreeValue("Key", "value")->data);
    EXPECT_FALSE(test::TreeValue("Key", "other"));
    test::SetTreeText("Key", "other", "next pass");
    store.CommitPass();
    EXPECT_TRUE(test::TreeValue("Key", "other"));
}

TEST_F(StoreFault, AReadThatFailsBehindAWriteBreaksThePass)
{
    test::StartHost(Layout(), host::Role::kDaemon);
    MakeStoreWithManyPages();
    test::SetTreeText("Key", "value", "changed");
    ReadWithoutADisk();
    ExpectBrokenPass();
}

TEST_F(StoreFault, AReadThatFailsBeforeTheFirstWriteBreaksThePass)
{
    // The monitor takes what it cannot read for missing, and would begin at the head of the log.
    test::StartHost(Layout(), host::Role::kDaemon);
    MakeStoreWithManyPages();
    ReadWithoutADisk();
    ExpectBrokenPass();
}

TEST_F(StoreFault, AReadThatFailsOutsideAPassBreaksNothing)
{
    test::StartHost(Layout(), host::Role::kCommand);
    MakeStoreWithManyPages();
    ReadWithoutADisk();
    test::SetTreeText("Key", "other", "stored");
    EXPECT_TRUE(test::TreeValue("Key", "other"));
}

// ---- a real disk of every size ----

TEST_F(StoreFault, EachLineCountsOnceWhateverFitsOnTheDisk)
{
    Layout().CreateFolders();
    bool had_room = false;
    for (int pages = 2; pages < 120 && !had_room && !HasFailure(); ++pages) {
        const std::string size = std::to_string(4 * pages) + "k";
        const Finished finished =
            test::RunToEnd(Helper(Root(), {"with-small-disk", Layout().state.string(), size,
                                           HOST_HELPER, Root().string(), "count-lines", "40"}));
        ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
        ASSERT_EQ(0, finished.status) << size << ": " << finished.err;
        const std::string said = WithoutLines("stored\n", finished.out);
        const size_t end = said.find('\n');
        const std::string failure = said.substr(0, end);
        had_room = failure.empty();
        if (!had_room) {
            EXPECT_TRUE(IsComplete(failure)) << size << ": " << failure;
            EXPECT_NE(std::string::npos, failure.find("free some space on its disk"))
                << size << ": " << failure;
        }
        // What it says after a failure is what fitted: some passes, each whole.
        const std::string counted = said.substr(end + 1);
        bool is_whole = counted == "no store\n";
        for (uint32_t at = 0; at <= 40; ++at)
            is_whole = is_whole || counted == EachLineOnce(at) + "\n";
        EXPECT_TRUE(is_whole) << size << ": " << counted;
    }
    EXPECT_TRUE(had_room);
}

// ---- a real SIGKILL at any moment ----

TEST_F(StoreFault, EachLineCountsOnceHoweverOftenTheDaemonIsKilled)
{
    Layout().CreateFolders();
    uint32_t at = 0;
    for (int kills = 0; kills < 25; ++kills) {
        Child daemon(Helper(Root(), {"count-lines", "1000000"}));
        for (int pass = 0; pass < kills % 4; ++pass)
            ASSERT_EQ("stored", daemon.ReadLine());
        usleep(static_cast<useconds_t>(kills * 130));
        daemon.Kill();
        const std::string counted = CountedLines(Layout());
        sscanf(counted.c_str() + counted.find("; at "), "; at %u", &at);
        ASSERT_EQ(EachLineOnce(at), counted) << "behind kill " << kills;
    }
    EXPECT_EQ("", CountLines(Layout(), at + kLines));
    EXPECT_EQ(EachLineOnce(at + kLines), CountedLines(Layout()));
}

} // namespace
