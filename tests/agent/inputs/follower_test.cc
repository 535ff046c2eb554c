// Files through all that rotation does to them. What other programs are known to fail at has the name of the
// failure.
#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/inputs/log_content.h"
#include "tests/agent/inputs/log_world.h"
#include "tests/agent/support/inotify_queue.h"

namespace {

using std::chrono::milliseconds;
using test::LogLine;

using Messages = std::vector<std::string>;

class FollowerTest : public testing::Test, protected test::LogWorld {
  protected:
    // Starts with this log, and nothing of it unread.
    void StartWith(const std::string &name, const std::string &bytes)
    {
        Write(name, bytes);
        Start();
        Settle();
        Take();
    }
    Messages Read()
    {
        Settle();
        return Take();
    }
    void Restart()
    {
        Stop();
        Start();
    }
    // It is rotated behind a line, and all of both files is read, also what came late to the rotated one.
    void ReadARotatedFile()
    {
        Append("a.log", LogLine("1"));
        Rename("a.log", "a.log.1");
        Append("a.log", LogLine("2"));
        EXPECT_EQ((Messages{"1", "2"}), Read());
        Wait(milliseconds(20000));
        Settle();
    }
};

TEST_F(FollowerTest, WhatIsThereAtTheBeginningIsPassedOver)
{
    Write("a.log", LogLine("old") + "half");
    Write("a.log.1", LogLine("older"));
    Write("b.log.1", LogLine("of no log"));
    Start();
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", " done\n" + LogLine("new"));
    EXPECT_EQ((Messages{"half done", "new"}), Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, FromTheStartItIsReadWhenThatIsWanted)
{
    options.from_start = true;
    Write("a.log", LogLine("new"));
    Write("a.log.1", LogLine("older"));
    Start();
    Messages read = Read();
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"new", "older"}), read);
}

// Ten thousand lines of a kilobyte and more than a batch holds.
std::string Backlog()
{
    std::string lines;
    const std::string text(1000, 'x');
    for (int i = 0; i < 10000; ++i)
        lines += LogLine(text);
    return lines;
}

TEST_F(FollowerTest, ALogWithALongBacklogHoldsUpNoOther)
{
    StartWith("a.log", LogLine("old"));
    Append("b.log", LogLine("old"));
    Append("c.log", LogLine("old"));
    Read();
    Append("a.log", Backlog());
    Append("b.log", LogLine("of b"));
    Append("c.log", Backlog() + LogLine("of c"));
    Step();
    const Messages first = Take();
    EXPECT_EQ(1, std::count(first.begin(), first.end(), "of b"));
    EXPECT_EQ(0, std::count(first.begin(), first.end(), "of c")) << "the batch is full before";
    for (int i = 0; i < 3; ++i)
        Step();
    EXPECT_EQ(20002U - first.size(), Take().size()) << "and all come";
}

TEST_F(FollowerTest, AllFilesAreOnTheirWayToTheDiskBeforeOneIsWaitedFor)
{
    StartWith("a.log", LogLine("old"));
    for (const char *name : {"a.log", "b.log", "c.log"})
        Append(name, LogLine("one"));
    Read();
    test::TakeSyncs();
    for (const char *name : {"a.log", "b.log", "c.log"})
        Append(name, LogLine("two"));
    EXPECT_EQ(3U, Read().size());
    EXPECT_EQ("bbbsss", test::TakeSyncs());
}

TEST_F(FollowerTest, ARotatedFileIsReadBeforeTheLiveOneThoughItTakesSeveralTurns)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", Backlog() + LogLine("last of the rotated"));
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("of the live"));
    Settle();
    Settle();
    const Messages read = Take();
    ASSERT_EQ(10002U, read.size());
    EXPECT_EQ("last of the rotated", read[10000]);
    EXPECT_EQ("of the live", read[10001]);
}

TEST_F(FollowerTest, ALineCountsWhenItIsWhole)
{
    StartWith("a.log", "");
    const std::string line = LogLine("one");
    Append("a.log", line.substr(0, 20));
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", line.substr(20) + LogLine("two"));
    EXPECT_EQ((Messages{"one", "two"}), Read());
}

TEST_F(FollowerTest, ALineThatIsHalfWrittenAtARestartCountsWhole)
{
    StartWith("a.log", LogLine("old"));
    const std::string line = LogLine("one");
    Append("a.log", line.substr(0, 20));
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", line.substr(20));
    EXPECT_EQ(Messages{"one"}, Read());
}

TEST_F(FollowerTest, ARecordThatMayGoOnAtARestartGoesOn)
{
    options.joining.by_indentation = true;
    StartWith("a.log", LogLine("old") + LogLine("older"));
    Read();
    Wait(milliseconds(2500));
    Read();
    Append("a.log", LogLine("one"));
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", "  goes on\n" + LogLine("two"));
    EXPECT_EQ(Messages{"one#012  goes on"}, Read());
    Restart();
    Settle();
    Wait(milliseconds(2500));
    EXPECT_EQ(Messages{"two"}, Read()) << "nothing comes behind it";
}

// What is not told of is found by the look at everything that comes now and then.
TEST_F(FollowerTest, ThatTheKernelHasNoWatchesLeftIsSaidAndNothingIsLost)
{
    StartWith("a.log", LogLine("old"));
    test::ExhaustWatches(true);
    Append("b.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Append("b.log", LogLine("2"));
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"2"}, Read());
    const Messages problems = follower().Problems();
    test::ExhaustWatches(false);
    ASSERT_EQ(1U, problems.size());
    EXPECT_EQ("the kernel has no watches left for 2 files and folders of this input: what changes "
              "there is found some "
              "seconds later; raise fs.inotify.max_user_watches with sysctl",
              problems[0]);
    Append("b.log", LogLine("3"));
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"3"}, Read());
    EXPECT_EQ(Messages{}, follower().Problems());
}

TEST_F(FollowerTest, ANewFileOfThePatternIsReadFromItsBeginning)
{
    StartWith("a.log", LogLine("old"));
    Append("b.log", LogLine("one"));
    EXPECT_EQ(Messages{"one"}, Read());
}

// Everything is looked at at once then, not with the next sweep.
TEST_F(FollowerTest, ALineOfWhichTheNewsWereDroppedIsReadAtOnce)
{
    StartWith("a.log", LogLine("old"));
    Append("b.log", LogLine("old"));
    Append("c.log", LogLine("old"));
    Read();
    // By turns, so that no two events are made one.
    for (int events = 0; events <= test::MostInotifyEvents(); events += 2) {
        Append("a.log", "\n");
        Append("b.log", "\n");
    }
    Append("c.log", LogLine("one"));
    EXPECT_EQ(Messages{"one"}, Read());
}

// Of which the library that unpacks it says nothing but that it is.
TEST(LogContentTest, ADamagedFileOfWhichNoReasonIsKnownIsRefusedByItsName)
{
    constexpr std::string_view kDamaged(
        "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xf3\xcb\x2f\x53\x30\x32\x54\x30\x34\xb0"
        "\x32\x00\x22\x43\x85\x8c\xfc\xe2\x12\x85\xc4\x82\x02\x2b\x85\xfc\xbc\x54\x2e\x3f"
        "\x14\x59\x23\x24\xd9\x53\x53\x53\x53\x53\x53\x53\x53\x53\x53\x53\x53\x92\xf2\x7c"
        "\x2e\x00\x56\xef\x36\xfb\x3c\x00\x00\x00",
        70);
    const std::string path = testing::TempDir() + "damaged.gz";
    std::ofstream(path, std::ios::binary).write(kDamaged.data(), kDamaged.size());
    inputs::LogContent content(path);
    char text[4096];
    try {
        while (content.Read(0, text, sizeof text) > 0)
            content.Read(sizeof text, text, sizeof text);
        FAIL() << "it was read";
    } catch (const host::Error &error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find(path));
    }
    std::filesystem::remove(path);
}

TEST_F(FollowerTest, AnExcludedFileIsNotRead)
{
    options.rules.excluded = {"b*"};
    StartWith("a.log", "");
    Append("b.log", LogLine("one"));
    Append("a.log", LogLine("two"));
    EXPECT_EQ(Messages{"two"}, Read());
}

// As the system log, beside an input of the whole folder.
class ExcludedLog : public FollowerTest {
  protected:
    ExcludedLog()
    {
        options.rules.paths = {Path("*")};
        options.rules.excluded = {Path("messages")};
        Write("messages", LogLine("of messages"));
        Write("messages-20261101.gz", "long ago");
    }
    void ExpectNothingButOther()
    {
        Append("other", LogLine("of the other"));
        EXPECT_EQ(Messages{"of the other"}, Read());
    }
};

TEST_F(ExcludedLog, IsNotReadUnderTheNamesThatRotationGivesIt)
{
    StartWith("other", "");
    for (const char *rotated :
         {"messages.1", "messages-20261123", "messages-20261124-1795255201", "messages.old"}) {
        Rename("messages", rotated); // and for a moment there is no log of that name
        ExpectNothingButOther();
        Write("messages", LogLine("of messages, anew"));
        Append(rotated, LogLine("of messages, written late"));
        ExpectNothingButOther();
        Pack(rotated, rotated + std::string(".gz"), "gzip");
        Remove(rotated);
        ExpectNothingButOther();
    }
    Copy("messages", "messages.2");
    Empty("messages");
    ExpectNothingButOther();
    Restart();
    ExpectNothingButOther();
    EXPECT_TRUE(TakeLosses().empty());
}

TEST_F(ExcludedLog, OfAWholeFolderLeavesLogsOfLongerNamesIn)
{
    StartWith("other", "");
    Write("messages.app", LogLine("of an app"));
    EXPECT_EQ(Messages{"of an app"}, Read());
    Rename("messages.app", "messages.app.1");
    Write("messages.app", LogLine("behind its rotation"));
    EXPECT_EQ(Messages{"behind its rotation"}, Read());
}

TEST_F(ExcludedLog, KeepsNoRotatedFileOfALogThatIsFollowed)
{
    options.rules.excluded = {"*.1"};
    StartWith("other", LogLine("old"));
    Append("other", LogLine("written just before"));
    Rename("other", "other.1");
    Pack("other.1", "other.1.gz", "gzip");
    Remove("other.1");
    EXPECT_EQ(Messages{"written just before"}, Read());
}

TEST_F(FollowerTest, ARenamedFileIsReadToItsEnd)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    Append("a.log.1", LogLine("2")); // the writer has it open still
    Messages read = Read();
    EXPECT_EQ((Messages{"1", "2", "3"}), read);
    Append("a.log.1", LogLine("4"));
    EXPECT_EQ(Messages{"4"}, Read());
}

TEST_F(FollowerTest, TwoHundredThousandOfAMillionLinesAfterARenaming)
{
    StartWith("a.log", "");
    std::string lines;
    Messages expected;
    for (int i = 0; i < 200000; ++i) {
        expected.push_back(std::to_string(i));
        lines += LogLine(expected.back());
    }
    Append("a.log", lines);
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("last"));
    expected.emplace_back("last");
    EXPECT_EQ(expected, Read());
}

TEST_F(FollowerTest, ARemovedFileThatIsOpenIsReadToItsEnd)
{
    StartWith("a.log", LogLine("old"));
    std::ofstream writer(Path("a.log"), std::ios::app);
    writer << LogLine("1") << std::flush;
    Remove("a.log");
    Append("a.log", LogLine("3"));
    EXPECT_EQ((Messages{"1", "3"}), Read());
    writer << LogLine("2") << std::flush;
    EXPECT_EQ(Messages{"2"}, Read());
    Wait(milliseconds(61000));
    Settle();
    EXPECT_EQ(1U, follower().OpenFiles()) << "a removed file is not held open for ever";
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, RotatedTwiceWhileNobodyLooked)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    Stop();
    Append("a.log", LogLine("2"));
    Rename("a.log", "a.log.2");
    Append("a.log.1", LogLine("3"));
    Append("a.log", LogLine("4"));
    Start();
    Messages read = Read();
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"1", "2", "3", "4"}), read);
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, NumbersWithGapsAndDatesAreFound)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Append("a.log", LogLine("1"));
    Rename("a.log", "a.log.7");
    Append("a.log-20261120", LogLine("2"));
    Append("a-20261121.log", LogLine("3"));
    Append("a.log", LogLine("4"));
    Start();
    Messages read = Read();
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"1", "2", "3", "4"}), read);
}

TEST_F(FollowerTest, DatedTwiceInOneDay)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    Rename("a.log", "a.log-20261121");
    Append("a.log", LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Rename("a.log-20261121", "a.log-20261121-1");
    Rename("a.log", "a.log-20261121");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
}

class CompressedTest : public FollowerTest, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Each, CompressedTest, testing::Values("gzip", "xz", "zstd", "bzip2"));

TEST_P(CompressedTest, AtOnceWhileNobodyLooked)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Append("a.log", LogLine("1"));
    Pack("a.log", "a.log.1.gz", GetParam());
    Remove("a.log");
    Append("a.log", LogLine("2"));
    Start();
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Wait(milliseconds(20000));
    Restart();
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_P(CompressedTest, LaterIsNotReadAgain)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    Rename("a.log", "a.log.1");
    EXPECT_EQ(Messages{"1"}, Read());
    Wait(milliseconds(20000));
    Settle();
    Pack("a.log.1", "a.log.1.gz", GetParam());
    EXPECT_EQ(Messages{}, Read()) << "while both are there";
    Remove("a.log.1");
    EXPECT_EQ(Messages{}, Read());
    Restart();
    Rename("a.log.1.gz", "a.log.2.gz");
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ACompressedFileThatIsBeingWrittenIsLeftAlone)
{
    StartWith("a.log", LogLine("old"));
    std::string lines;
    for (int i = 0; i < 5000; ++i)
        lines += LogLine(std::to_string(i * 7919));
    Append("a.log", lines);
    Rename("a.log", "a.log.1");
    EXPECT_EQ(5000U, Read().size());
    Pack("a.log.1", "whole", "gzip");
    Write("a.log.1.gz", Content("whole").substr(0, 9000));
    Remove("whole");
    EXPECT_EQ(Messages{}, Read());
    Write("a.log.1.gz", "");
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    EXPECT_EQ(Messages{}, Read());
}

// As logrotate makes it of a log in which nothing was written.
TEST_F(FollowerTest, AnArchiveOfNothingIsWhole)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Write("nothing", "");
    int number = 0;
    for (const char *how : {"gzip", "xz", "zstd", "bzip2"})
        Pack("nothing", "a.log." + std::to_string(++number) + ".gz", how);
    Start();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Messages{}, Read());
        EXPECT_EQ(Messages{}, follower().Problems());
        EXPECT_TRUE(IsResting());
        Wait(std::chrono::minutes(10));
    }
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ADamagedArchiveIsNamedAndTheOthersGoOn)
{
    StartWith("a.log", LogLine("old"));
    Write("a.log.3.gz", "\x1f\x8b\x08 no archive at all");
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    ASSERT_EQ(1U, follower().Problems().size());
    EXPECT_NE(std::string::npos, follower().Problems()[0].find("a.log.3.gz: it is damaged"))
        << follower().Problems()[0];
}

TEST_F(FollowerTest, AnArchiveOfWhichNothingCanBeReadIsALossWhenNobodyWritesItAnyMore)
{
    StartWith("a.log", LogLine("old"));
    Write("a.log.3.gz", "\x1f\x8b\x08 no archive at all");
    Settle();
    Wait(inputs::kBrokenForGood - milliseconds(1000));
    Settle();
    EXPECT_EQ(Messages{}, TakeLosses()) << "it may be a compressing program that takes its time";
    Wait(milliseconds(11000));
    Settle();
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("a.log.3.gz is damaged")) << losses[0];
    EXPECT_NE(std::string::npos, losses[0].find("the file has 21 bytes")) << losses[0];
    for (int i = 0; i < 3; ++i) {
        Restart();
        Wait(inputs::kBrokenForGood + milliseconds(1000));
        Settle();
        EXPECT_EQ(Messages{}, TakeLosses()) << "it is told of once";
        EXPECT_EQ(1U, follower().Problems().size()) << "and stays a problem";
    }
    Write("restored", LogLine("1"));
    Pack("restored", "a.log.3.gz", "gzip");
    Remove("restored");
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"1"}, Read()) << "when it is restored, it counts";
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, OfAnArchiveThatIsCutOffTheRestIsALossWhenNobodyWritesItAnyMore)
{
    StartWith("a.log", LogLine("old"));
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += LogLine(std::to_string(i * 7919));
    Write("whole", text);
    Pack("whole", "packed", "gzip");
    Remove("whole");
    const std::string half = Content("packed").substr(0, Content("packed").size() / 2);
    Remove("packed");
    Write("a.log.1.gz", half);
    const size_t read = Read().size();
    ASSERT_LT(2U, read);
    Wait(inputs::kBrokenForGood + milliseconds(1000));
    Settle();
    Wait(inputs::kBrokenForGood + milliseconds(1000));
    Settle();
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("what it holds behind byte ")) << losses[0];
    Restart();
    Wait(inputs::kBrokenForGood + milliseconds(1000));
    EXPECT_EQ(Messages{}, Read());
    Remove("a.log.1.gz");
    Wait(milliseconds(11000));
    Settle();
    EXPECT_EQ(Messages{}, TakeLosses()) << "it is told of once";
}

// As a compressing program leaves it that was ended in the middle.
TEST_F(FollowerTest, ACutOffArchiveIsReadUpToTheDamageAndNamed)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += LogLine(std::to_string(i));
    Write("whole", text);
    Pack("whole", "packed", "gzip");
    Remove("whole");
    const std::string packed = Content("packed");
    Remove("packed");
    Write("a.log.1.gz", packed.substr(0, packed.size() / 2));
    Append("a.log", LogLine("behind"));
    Start();
    Messages read = Read();
    ASSERT_LT(2U, read.size());
    EXPECT_EQ(1, std::count(read.begin(), read.end(), "behind")) << "other files go on";
    std::erase(read, "behind");
    for (size_t i = 0; i < read.size(); ++i)
        ASSERT_EQ(std::to_string(i), read[i]) << "no part of a line counts";
    ASSERT_EQ(1U, follower().Problems().size());
    EXPECT_NE(std::string::npos, follower().Problems()[0].find("a.log.1.gz: it is damaged"))
        << follower().Problems()[0];
    // When it is whole, it goes on there; when it goes, that is a loss.
    const std::string number = std::to_string(read.size());
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{}, Read());
    Remove("a.log.1.gz");
    Wait(milliseconds(11000));
    Settle();
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("a.log.1.gz is gone")) << losses[0];
}

TEST_F(FollowerTest, CopiedAndTruncated)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Append("a.log", LogLine("2"));
    Copy("a.log", "a.log.1");
    Empty("a.log");
    Append("a.log", LogLine("3"));
    EXPECT_EQ((Messages{"2", "3"}), Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

// It is put to the disk before the log is emptied, which can take seconds.
TEST_F(FollowerTest, ACopyThatEndsBeforeWhatWasReadOfTheLogIsNotReadAgain)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Append("a.log", LogLine("2"));
    EXPECT_EQ(Messages{"2"}, Read());
    Copy("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Empty("a.log");
    Append("a.log", LogLine("4"));
    EXPECT_EQ(Messages{"4"}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, AFileThatOnlyBeginsLikeAnEmptiedLogIsNoCopyOfIt)
{
    StartWith("a.log", LogLine("old"));
    for (const char *line : {"1", "2"}) {
        Append("a.log", LogLine(line));
        EXPECT_EQ(Messages{line}, Read());
    }
    Write("a.log.1", LogLine("old") + LogLine("x"));
    Empty("a.log");
    Append("a.log", LogLine("4"));
    EXPECT_EQ((Messages{"4", "old", "x"}), Read());
    EXPECT_EQ(1U, TakeLosses().size());
}

TEST_F(FollowerTest, ALogThatLiesInAnotherFileThanBeforeIsReadOnWhereItWas)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    for (const bool is_stopped : {false, true}) {
        if (is_stopped)
            Stop();
        Copy("a.log", "copy");
        Remove("a.log");
        Rename("copy", "a.log");
        Append("a.log", LogLine("2"));
        if (is_stopped)
            Start();
        EXPECT_EQ(Messages{"2"}, Read());
        EXPECT_EQ(Messages{}, TakeLosses());
    }
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

// Whoever writes the first line of a log chooses its first bytes.
TEST_F(FollowerTest, ALogIsReadAsItIsWhateverItBeginsWith)
{
    StartWith("a.log", "");
    Append("a.log", "BZh9 of a stranger\n" + LogLine("1"));
    EXPECT_EQ((Messages{"BZh9 of a stranger", "1"}), Read());
    EXPECT_TRUE(follower().Problems().empty());
}

TEST_F(FollowerTest, OfALogOfWideCharactersWhatComesBehindTheBeginningIsRead)
{
    const auto wide = [](const std::string &text) {
        std::string bytes;
        for (const char c : text)
            bytes += std::string{c, '\0'};
        return bytes;
    };
    options.encoding = "UTF-16LE";
    StartWith("a.log", wide(LogLine("old") + "an open "));
    Append("a.log", wide("line\n" + LogLine("1")));
    EXPECT_EQ((Messages{"an open line", "1"}), Read());
}

TEST_F(FollowerTest, NoLinkLeadsIntoAFolderThatIsLeftOut)
{
    std::filesystem::create_directory(Path("own"));
    Append("own/spool", LogLine("old"));
    std::filesystem::create_symlink(Path("own/spool"), Path("link.log"));
    std::filesystem::create_hard_link(Path("own/spool"), Path("hard.log"));
    options.not_in = {Path("own")};
    StartWith("a.log", "");
    Append("own/spool", LogLine("of the monitor"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
}

TEST_F(FollowerTest, ACopyThatIsNotTruncatedYetIsNotReadTwice)
{
    StartWith("a.log", "");
    Append("a.log", LogLine("1") + LogLine("2"));
    Copy("a.log", "a.log.1");
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Write("a.log.1", Content("a.log"));
    Empty("a.log");
    Append("a.log", LogLine("4"));
    EXPECT_EQ(Messages{"4"}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
}

TEST_F(FollowerTest, CopiedAndTruncatedAndRefilledWhileStopped)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Stop();
    Append("a.log", LogLine("2"));
    Copy("a.log", "a.log.1");
    Empty("a.log");
    for (int i = 0; i < 20; ++i)
        Append("a.log", LogLine("after " + std::to_string(i)));
    Start();
    const Messages read = Read();
    ASSERT_EQ(21U, read.size());
    EXPECT_EQ("2", read[0]);
    EXPECT_EQ("after 0", read[1]);
}

TEST_F(FollowerTest, CopiedAndTruncatedAndCompressedAtOnceWhileStopped)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Append("a.log", LogLine("1"));
    Pack("a.log", "a.log-20261121.xz", "xz");
    Empty("a.log");
    Append("a.log", LogLine("2"));
    Start();
    EXPECT_EQ((Messages{"1", "2"}), Read());
}

// ---- copies that somebody keeps ----

TEST_F(FollowerTest, ACopyOfALogIsNotReadWhatsoeverBecomesOfTheLog)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Copy("a.log", "a.log.bak");
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", LogLine("2"));
    EXPECT_EQ(Messages{"2"}, Read());
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    Remove("a.log.1.gz");
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ACopyOfALogThatIsThereForMinutesIsKnownWhenTheLogHasGoneWhileNobodyLooked)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    Copy("a.log", "a.log.bak");
    EXPECT_EQ(Messages{"1"}, Read());
    Wait(std::chrono::minutes(11));
    Append("a.log", LogLine("2"));
    EXPECT_EQ(Messages{"2"}, Read());
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    Wait(milliseconds(20000));
    EXPECT_EQ(Messages{}, Read());
    Stop();
    Remove("a.log.1.gz");
    Start();
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ACopyOfARotatedFileIsNotRead)
{
    StartWith("a.log", "");
    Append("a.log", LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Copy("a.log.1", "a.log.9");
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read());
}

// Of a program without stamps, which says the same every day.
TEST_F(FollowerTest, ARotatedFileThatSaysTheSameAsAnotherOneIsNoCopyOfItWhenItWasNotWrittenInOneGo)
{
    const std::string same = "begin\nend\n";
    StartWith("a.log", "");
    if (inputs::LookAt(Path("a.log"))->identity.birth_ns == 0)
        GTEST_SKIP() << "this file system keeps no births";
    Append("a.log", same);
    EXPECT_EQ((Messages{"begin", "end"}), Read());
    Rename("a.log", "a.log.3");
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Stop();
    Write("a.log.1", same);
    Age("a.log.1", std::chrono::seconds(60));
    Write("whole", same);
    Pack("whole", "a.log.2.gz", "gzip");
    Age("a.log.2.gz", std::chrono::seconds(-60)); // the time of what was compressed
    Start();
    EXPECT_EQ((Messages{"begin", "end", "begin", "end"}), Read());
}

TEST_F(FollowerTest, AFileThatMayBeACopyOfOneThatCannotBeReadKeepsNobodyBusy)
{
    StartWith("a.log", "");
    Append("a.log", LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Rename("a.log", "a.log.1");
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    std::filesystem::resize_file(Path("a.log.1.gz"),
                                 std::filesystem::file_size(Path("a.log.1.gz")) / 2);
    Write("a.log.9", LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    EXPECT_TRUE(IsResting());
}

// By its name, the one that was kept comes first.
TEST_F(FollowerTest, ALogThatWasCopiedAndEmptiedIsReadOnInTheNewestCopy)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Copy("a.log", "a.log-old");
    Age("a.log-old", std::chrono::seconds(-60));
    EXPECT_EQ(Messages{}, Read());
    Stop();
    Append("a.log", LogLine("2"));
    Copy("a.log", "a.log.1");
    Empty("a.log");
    Append("a.log", LogLine("3"));
    Start();
    EXPECT_EQ((Messages{"2", "3"}), Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ARotatedFileThatIsPutInThePlaceOfTheLogIsReadOn)
{
    Write("a.log.2", LogLine("older") + LogLine("old"));
    StartWith("a.log", "");
    ReadARotatedFile();
    for (const char *name : {"a.log.2", "a.log.1"}) {
        Rename("a.log", std::string(name) + "1");
        Rename(name, "a.log");
        EXPECT_EQ(Messages{}, Read());
        Append("a.log", LogLine(name));
        EXPECT_EQ(Messages{name}, Read());
    }
    // What it holds when it goes is not known, as of any log.
    Stop();
    Remove("a.log");
    Start();
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(1U, TakeLosses().size());
}

TEST_F(FollowerTest, AnOffsetBeyondTheEnd)
{
    StartWith("a.log", LogLine("old") + LogLine("old 2"));
    Stop();
    Write("a.log", LogLine("1"));
    Start();
    EXPECT_EQ(Messages{"1"}, Read());
    ASSERT_EQ(1U, TakeLosses().size()) << "nobody can know what it had held before";
}

TEST_F(FollowerTest, EqualHeadsOfTwoLogs)
{
    const std::string head = LogLine("begin") + LogLine(std::string(3000, 'x'));
    Write("messages.log", head);
    Write("syslog.log", head);
    Start();
    Append("messages.log", LogLine("1"));
    Append("syslog.log", LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Rename("messages.log", "messages.log.1");
    Append("messages.log", head + LogLine("3"));
    Append("syslog.log", LogLine("4"));
    EXPECT_EQ(4U, Read().size());
}

TEST_F(FollowerTest, RemovedAndMadeAnewWithAnEqualFirstLine)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1"));
    EXPECT_EQ((Messages{"begin", "1"}), Read());
    Remove("a.log");
    Append("a.log", "begin\n" + LogLine("2"));
    EXPECT_EQ((Messages{"begin", "2"}), Read());
}

TEST_F(FollowerTest, RemovedUnreadWhileNobodyLookedIsTold)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Append("a.log", LogLine("1"));
    Remove("a.log");
    Append("a.log", LogLine("2"));
    Start();
    EXPECT_EQ(Messages{"2"}, Read());
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("a.log is gone")) << losses[0];
    EXPECT_NE(std::string::npos, losses[0].find("behind byte")) << losses[0];
}

TEST_F(FollowerTest, OfWhatIsGoneUnreadTheSizeIsTold)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", Backlog());
    Step(); // a batch, which is less than that
    const uintmax_t size = std::filesystem::file_size(Path("a.log"));
    Stop();
    Remove("a.log");
    Start();
    Settle();
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    size_t missing = 0;
    size_t read = 0;
    ASSERT_EQ(2, sscanf(losses[0].substr(losses[0].find("held: ") + 6).c_str(),
                        "%zu bytes behind byte %zu are missing", &missing, &read))
        << losses[0];
    EXPECT_LT(0U, read);
    EXPECT_EQ(size, missing + read);
}

// Each candidate stands for one of them.
TEST_F(FollowerTest, OfTwoLogsThatAreGoneUnreadOneIsToldWhenOnlyOneOtherFileCanHoldWhatItHeld)
{
    StartWith("a.log", "");
    Rename("a.log", "a.log.1");
    Write("a.log", "");
    EXPECT_EQ(Messages{}, Read());
    Stop();
    Append("a.log.1", LogLine("1"));
    Append("a.log", LogLine("2"));
    Pack("a.log.1", "a.log.1.gz", "gzip");
    Remove("a.log.1");
    Remove("a.log");
    Start();
    EXPECT_EQ(Messages{"1"}, Read());
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("is gone, and no other file holds")) << losses[0];
}

// Of an archive that was there before the input nothing is read; of a log that has its inode by now, everything.
TEST_F(FollowerTest, ANewLogIsReadThoughItHasTheInodeOfAnArchiveThatWasPassedOver)
{
    Write("whole", LogLine("older"));
    Pack("whole", "a.log.2.gz", "gzip");
    Remove("whole");
    StartWith("a.log", LogLine("old"));
    Stop();
    Remove("a.log.2.gz");
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("1"));
    Start();
    EXPECT_EQ(Messages{"1"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ARotatedFileThatWasReadMayGo)
{
    StartWith("a.log", LogLine("old"));
    ReadARotatedFile();
    Stop();
    Remove("a.log.1");
    Start();
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, TheLastLineOfARotatedFileNeedsNoEndAfterAWhile)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", "no end");
    Rename("a.log", "a.log.1");
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"no end"}, Read());
    Wait(milliseconds(11000));
    Restart();
    EXPECT_EQ(Messages{}, Read());
}

TEST_F(FollowerTest, TheLastLineOfARemovedLogNeedsNoEndAfterAWhile)
{
    StartWith("a.log", "");
    const std::string line = LogLine("2");
    Append("a.log", LogLine("1") + line.substr(0, line.size() - 1));
    EXPECT_EQ(Messages{"1"}, Read());
    Remove("a.log");
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"2"}, Read());
    Wait(std::chrono::minutes(2));
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, EmptyAndUnreadableNeighboursDoNoHarm)
{
    StartWith("a.log", LogLine("old"));
    Write("a.log.1", "");
    Write("a.log.2.gz", "");
    ASSERT_EQ(0, mkfifo(Path("a.log.3").c_str(), 0600));
    ASSERT_EQ(0, mkfifo(Path("b.log").c_str(), 0600));
    std::filesystem::create_directory(Path("c.log"));
    std::filesystem::create_symlink("nowhere", Path("d.log"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Rename("a.log", "a.log.4");
    Append("a.log", LogLine("2"));
    EXPECT_EQ(Messages{"2"}, Read());
    ASSERT_EQ(1U, follower().Problems().size());
    EXPECT_NE(std::string::npos, follower().Problems()[0].find("b.log: it is not a regular file"));
}

TEST_F(FollowerTest, APatternWithoutAFileIsToldUntilThereIsOne)
{
    options.rules.paths = {Path("later*.log")};
    Start();
    Settle();
    EXPECT_EQ(std::vector<std::string>{inputs::kNothingMatches}, follower().Problems());
    Write("later1.log", LogLine("one"));
    Settle();
    EXPECT_EQ(std::vector<std::string>{"one"}, Take());
    EXPECT_EQ(std::vector<std::string>{}, follower().Problems());
}

TEST_F(FollowerTest, OfMoreLogsThanABatchHasTurnsForTheOthersHaveTheirsInTheNext)
{
    StartWith("a.log", "");
    for (char log = 'a'; log <= 'l'; ++log) {
        const std::string line = LogLine(log + std::string(1000, 'x'));
        std::string lines;
        while (lines.size() < size_t{4} * 1024 * 1024)
            lines += line;
        Append(std::string{log} + ".log", lines);
    }
    std::set<char> read;
    for (int i = 0; i < 3; ++i) {
        Wait(std::chrono::seconds(1));
        Step();
        for (const std::string &message : Take())
            read.insert(message[0]);
    }
    EXPECT_EQ(12U, read.size());
}

// One that has taken the name of a log since the folder was looked at.
TEST_F(FollowerTest, APipeIsNotWaitedForWhenItIsOpened)
{
    ASSERT_EQ(0, mkfifo(Path("pipe.log").c_str(), 0600));
    EXPECT_THROW(inputs::LogContent(Path("pipe.log")), host::Error);
}

TEST_F(FollowerTest, APipeAmongTheFilesIsNamedAndNotWaitedFor)
{
    Write("a.log", "");
    Start();
    ASSERT_EQ(0, mkfifo(Path("pipe.log").c_str(), 0600));
    Append("a.log", LogLine("one"));
    Settle();
    EXPECT_EQ(std::vector<std::string>{"one"}, Take());
    EXPECT_EQ((std::vector<std::string>{"cannot read " + Path("pipe.log") +
                                        ": it is not a regular file"}),
              follower().Problems());
}

TEST_F(FollowerTest, BinaryDataIsOneEntryAndTheNextLineIsWhole)
{
    Write("a.log", LogLine("first"));
    Start();
    std::string bytes(4096, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i % 256 == '\n' ? 'x' : i % 256);
    Append("a.log", LogLine("before") + bytes + "\n" + LogLine("behind"));
    Settle();
    const auto messages = Take();
    ASSERT_EQ(3U, messages.size());
    EXPECT_EQ("before", messages.front());
    EXPECT_EQ("behind", messages.back());
}

TEST_F(FollowerTest, AClockThatJumpsLosesNothingAndDoublesNothing)
{
    Write("a.log", "");
    Start();
    int number = 0;
    for (const int64_t jump :
         {int64_t{0}, int64_t{-400} * 86400, int64_t{400} * 86400, int64_t{-3600}}) {
        wall_seconds += jump;
        Append("a.log", LogLine(std::to_string(number)));
        Settle();
        EXPECT_EQ(std::vector<std::string>{std::to_string(number)}, Take());
        ++number;
    }
}

TEST_F(FollowerTest, AFolderThatVanishesIsNamedAndFoundAgain)
{
    options.rules.paths = {Path("sub/*.log")};
    std::filesystem::create_directory(Path("sub"));
    Append("sub/a.log", LogLine("old"));
    Start();
    Settle();
    Rename("sub", "elsewhere");
    Wait(milliseconds(11000));
    Settle();
    ASSERT_FALSE(follower().Problems().empty());
    EXPECT_NE(std::string::npos, follower().Problems()[0].find("cannot list the folder"));
    Rename("elsewhere", "sub");
    Append("sub/a.log", LogLine("1"));
    Wait(milliseconds(11000));
    EXPECT_EQ(Messages{"1"}, Read());
}

TEST_F(FollowerTest, ARecordOfSeveralLinesIsWholeWhenTheNextOneBegins)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", "Error\n at a\n");
    EXPECT_EQ(Messages{}, Read());
    Append("a.log", " at b\nnext\n");
    EXPECT_EQ(Messages{"Error#012 at a#012 at b"}, Read());
}

TEST_F(FollowerTest, ALogThatWasEmptiedIsKnownByTheEntryThatCouldHaveGoneOn)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1"));
    EXPECT_EQ(Messages{"begin"}, Read());
    Copy("a.log", "a.log.1");
    EXPECT_EQ(Messages{}, Read()) << "a copy in the making";
    Empty("a.log");
    Append("a.log", "begin\n" + LogLine("2") + LogLine("3"));
    EXPECT_EQ((Messages{"begin", "2"}), Read()) << "up to the place, both logs are the same";
    Wait(milliseconds(20000));
    EXPECT_EQ((Messages{"1", "3"}), Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ACopyOfALogThatWasEmptiedIsReadFromTheEntryThatCouldHaveGoneOn)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1"));
    EXPECT_EQ(Messages{"begin"}, Read());
    Pack("a.log", "a.log.1.gz", "gzip");
    Empty("a.log");
    Append("a.log", "begin\n" + LogLine("2"));
    Messages read = Read();
    Wait(milliseconds(20000));
    for (const std::string &message : Read())
        read.push_back(message);
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"1", "2", "begin"}), read);
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, TheLastRecordIsNotWithheldForEver)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", "Error\n at a\n");
    EXPECT_EQ(Messages{}, Read());
    Restart();
    EXPECT_EQ(Messages{}, Read()) << "a restart loses nothing of it";
    Wait(milliseconds(3000));
    EXPECT_EQ(Messages{"Error#012 at a"}, Read());
}

TEST_F(FollowerTest, AnUnfinishedLineBehindTheLastRecordLeavesTheFollowerAtRest)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", LogLine("one") + " and a par");
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(2500));
    EXPECT_EQ(Messages{"one"}, Read());
    Wait(milliseconds(1000));
    EXPECT_TRUE(IsResting());
    Append("a.log", "t\n" + LogLine("two") + LogLine("three"));
    EXPECT_EQ(2U, Read().size())
        << "the rest of the line is an entry, for what it belonged to counted";
}

TEST_F(FollowerTest, IsCaughtUpWhenAllThatWasThereIsRead)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1") + "half a li");
    follower().BeginCatchUp();
    EXPECT_FALSE(IsCaughtUp()) << "nothing was looked at yet";
    EXPECT_EQ(Messages{"1"}, Read());
    EXPECT_TRUE(IsCaughtUp());
}

// A new log waits until it is known what became of the one before.
TEST_F(FollowerTest, IsNotCaughtUpWhileItIsOpenWhatANewNameMeans)
{
    StartWith("a.log", LogLine("old") + LogLine("older"));
    Remove("a.log");
    Append("a.log", LogLine("1"));
    follower().BeginCatchUp();
    Step();
    EXPECT_FALSE(IsCaughtUp());
    EXPECT_EQ(Messages{"1"}, Read());
    EXPECT_TRUE(IsCaughtUp());
}

TEST_F(FollowerTest, IsCaughtUpWithTheLastRecordOfALogThatGoesOn)
{
    options.joining.by_indentation = true;
    StartWith("a.log", "");
    Append("a.log", LogLine("1"));
    follower().BeginCatchUp();
    Settle();
    EXPECT_FALSE(IsCaughtUp()) << "it may go on";
    Append("a.log", LogLine("2"));
    EXPECT_EQ(Messages{"1"}, Read());
    EXPECT_TRUE(IsCaughtUp()) << "the second one came later";
    follower().BeginCatchUp();
    Settle();
    EXPECT_FALSE(IsCaughtUp());
    Wait(milliseconds(2500));
    EXPECT_EQ(Messages{"2"}, Read());
    EXPECT_TRUE(IsCaughtUp());
}

TEST_F(FollowerTest, ALineOfManyMegabytesTakesNoMemory)
{
    StartWith("a.log", "");
    const std::string block(size_t{1} << 20U, 'x');
    for (int i = 0; i < 40; ++i) {
        Append("a.log", block);
        if (i % 10 == 0)
            Settle();
        if (i == 20)
            Restart();
    }
    Append("a.log", "\n" + LogLine("next"));
    const Messages read = Read();
    ASSERT_EQ(2U, read.size());
    EXPECT_EQ("next", read[1]);
}

TEST_F(FollowerTest, ALineOfTenGigabytesTakesNoMemoryAndHoldsUpNoOtherFile)
{
    constexpr uintmax_t megabytes = 10240;
    StartWith("a.log", "");
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    std::filesystem::resize_file(Path("a.log"), megabytes << 20U); // a hole: takes no room
    Append("a.log", "\n" + LogLine("next"));
    Append("b.log", LogLine("other"));
    Step();
    EXPECT_EQ("other", Take().back()) << "the long line is not read to its end by then";
    for (uintmax_t read = 0; read < megabytes; read += 64)
        Step();
    EXPECT_EQ(Messages{"next"}, Read());
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "kilobytes";
}

// No zeros, which would end it. What was read of it takes no room any more.
TEST_F(FollowerTest, ALineOfGigabytesOfTextTakesNoMemoryAndIsNamed)
{
    constexpr int kBlocks = 70;
    const std::string block(size_t{32} << 20U, 'x');
    StartWith("a.log", "");
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const int file = open(Path("a.log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    for (int i = 0; i < kBlocks; ++i) {
        ASSERT_EQ(static_cast<ssize_t>(block.size()), write(file, block.data(), block.size()));
        do
            Step();
        while (follower().BytesBehind() > 0);
        const off_t kept = 1 << 20;
        fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, kept,
                  static_cast<off_t>(block.size()) * (i + 1) - 2 * kept);
    }
    const Messages problems = follower().Problems();
    close(file);
    ASSERT_EQ(1U, problems.size());
    EXPECT_NE(std::string::npos, problems[0].find("a.log that has no end up to byte 2348810240"))
        << problems[0];
    Append("a.log", "\n" + LogLine("next"));
    const Messages read = Read();
    ASSERT_EQ(2U, read.size());
    EXPECT_EQ("next", read[1]);
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "kilobytes";
}

TEST_F(FollowerTest, ALineThatIsTooLongIsNamedWhileItGoesOnAndItsRestIsALossThatIsToldOnce)
{
    StartWith("a.log", "");
    const std::string block(size_t{1} << 20U, 'x');
    for (int i = 0; i < 5; ++i) {
        Append("a.log", block);
        Settle();
    }
    ASSERT_EQ(1U, follower().Problems().size());
    EXPECT_NE(std::string::npos,
              follower().Problems()[0].find("that has no end up to byte 5242880"))
        << follower().Problems()[0];
    Append("a.log", "\n" + LogLine("next") + block + "\n");
    Settle();
    EXPECT_EQ(3U, Take().size());
    EXPECT_EQ(Messages{}, follower().Problems());
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size()) << "not one for each: who writes them could fill the alerts";
    EXPECT_NE(std::string::npos, losses[0].find("a.log at byte 0 has more than 65536 bytes"))
        << losses[0];
    Wait(milliseconds(3'600'000));
    Append("a.log", block + "\n");
    Settle();
    EXPECT_EQ(1U, TakeLosses().size());
}

// Who has no rights beyond those of the files' owner: root without its capabilities.
TEST_F(FollowerTest, AFileThatMayNotBeReadIsNamedAndTheOthersGoOn)
{
    StartWith("a.log", "");
    Append("secret.log", LogLine("secret"));
    ASSERT_EQ(0, chmod(Path("secret.log").c_str(), 0));
    Append("a.log", LogLine("1"));
    int channel[2];
    ASSERT_EQ(0, pipe(channel));
    const pid_t child = fork();
    if (child == 0) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct none[2]{};
        syscall(SYS_capset, &header, none);
        std::string found;
        for (const std::string &message : Read())
            found += message + "\n";
        for (const std::string &problem : follower().Problems())
            found += problem + "\n";
        _exit(write(channel[1], found.data(), found.size()) > 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_EQ(0, status);
    std::string found(1000, '\0');
    found.resize(static_cast<size_t>(std::max<ssize_t>(0, read(channel[0], found.data(), 1000))));
    EXPECT_EQ("1\ncannot read " + Path("secret.log") +
                  ": Permission denied; make it readable for the monitor, or exclude it\n",
              found);
    close(channel[0]);
    close(channel[1]);
    ASSERT_EQ(0, chmod(Path("secret.log").c_str(), 0600));
    Wait(milliseconds(11000));
    EXPECT_EQ((Messages{"1", "secret"}), Read()) << "nothing of it is lost";
}

// With hundreds of megabytes to read, the copies would cost as much as everything else.
TEST_F(FollowerTest, TheBatchOfALongLogIsNotCopiedAsItGrows)
{
    const size_t full = size_t{8} * 1024 * 1024;
    StartWith("a.log", "");
    for (const size_t lines : {1U, 20000U}) {
        std::string text;
        for (size_t i = 0; i < lines; ++i)
            text += LogLine("one");
        Append("a.log", text);
        inputs::Batch batch;
        follower().TakeChanges();
        follower().Read(wall_seconds, inputs::SteadyTime(std::chrono::hours(1001)), &batch);
        EXPECT_EQ(text.size(), batch.text.size());
        EXPECT_EQ(lines > 1, batch.text.capacity() >= full) << "a line or two take no megabytes";
    }
}

TEST_F(FollowerTest, HundredsOfFilesAreFollowed)
{
    for (int i = 0; i < 500; ++i)
        Write("log" + std::to_string(i) + ".log", LogLine("old"));
    Start();
    Settle();
    for (int i = 0; i < 500; ++i)
        Append("log" + std::to_string(i) + ".log", LogLine(std::to_string(i)));
    EXPECT_EQ(500U, Read().size());
    EXPECT_EQ(500U, follower().OpenFiles());
}

TEST_F(FollowerTest, ANewDeviceNumberAfterARebootChangesNothing)
{
    StartWith("a.log", LogLine("old"));
    const auto look = inputs::LookAt(Path("a.log"));
    ASSERT_TRUE(look);
    EXPECT_TRUE(!look->identity.IsUnique() || look->identity.device == 0);
}

// On most file systems the next file has another number; tests/agent/inputs/reused_inodes has one where it has not.
TEST_F(FollowerTest, AFileThatIsMadeInThePlaceOfARemovedOneIsAnother)
{
    Write("a.log", LogLine("1"));
    const auto removed = inputs::LookAt(Path("a.log"));
    Remove("a.log");
    Write("a.log", LogLine("1"));
    const auto made = inputs::LookAt(Path("a.log"));
    ASSERT_TRUE(removed && made);
    EXPECT_NE(removed->identity, made->identity);
    Rename("a.log", "b.log");
    EXPECT_EQ(made->identity, inputs::LookAt(Path("b.log"))->identity);
}

TEST_F(FollowerTest, AFileIsKnownStillWhenItsPlaceIsOfAVersionThatKnewLessOfFiles)
{
    StartWith("a.log", LogLine("old"));
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Stop();
    ForgetGenerations();
    Append("a.log", LogLine("2"));
    Start();
    EXPECT_EQ(Messages{"2"}, Read());
    Stop();
    Rename("a.log", "a.log.1");
    Write("a.log", LogLine("3"));
    Start();
    EXPECT_EQ(Messages{"3"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

// ---- which file is which ----

TEST_F(FollowerTest, ARotatedFileOfAnotherFirstLineIsAnotherThoughItEndsLikeTheOneThatIsGone)
{
    const std::string same = LogLine(std::string(400, 'x'));
    StartWith("a.log", "");
    Append("a.log", "first\n" + same);
    EXPECT_EQ(2U, Read().size());
    Stop();
    Remove("a.log");
    Write("a.log.1", "other\n" + same + LogLine("behind"));
    Start();
    EXPECT_EQ((Messages{"other", std::string(400, 'x'), "behind"}), Read());
    EXPECT_EQ(1U, TakeLosses().size());
}

TEST_F(FollowerTest, ARotatedFileOfAnEqualFirstLineIsAnotherThatHasOtherBytesBeforeThePlace)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1"));
    EXPECT_EQ((Messages{"begin", "1"}), Read());
    Stop();
    Remove("a.log");
    Write("a.log.1", "begin\n" + LogLine("2") + LogLine("3"));
    Start();
    EXPECT_EQ((Messages{"begin", "2", "3"}), Read());
    const Messages losses = TakeLosses();
    ASSERT_EQ(1U, losses.size());
    EXPECT_NE(std::string::npos, losses[0].find("a.log is gone")) << losses[0];
}

TEST_F(FollowerTest, ALogOfWhichOneLineWasReadIsNotTakenForAnyOtherThatBeginsWithIt)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n");
    EXPECT_EQ(Messages{"begin"}, Read());
    Stop();
    Remove("a.log");
    Write("a.log.1", "begin\n" + LogLine("1"));
    Start();
    EXPECT_EQ((Messages{"begin", "1"}), Read());
    EXPECT_EQ(1U, TakeLosses().size());
}

TEST_F(FollowerTest, AnArchiveOfOneLineIsNoCopyOfEachRotatedFileOfThatLine)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n");
    EXPECT_EQ(Messages{"begin"}, Read());
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Write("whole", "begin\n");
    Pack("whole", "a.log.3.gz", "gzip");
    EXPECT_EQ(Messages{"begin"}, Read());
}

TEST_F(FollowerTest, AnArchiveThatEndsBeforeARotatedFileIsNoCopyOfIt)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"begin", "1", "2"}), Read());
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    Write("whole", "begin\n" + LogLine("1"));
    Pack("whole", "a.log.2.gz", "gzip");
    EXPECT_EQ((Messages{"begin", "1"}), Read());
}

TEST_F(FollowerTest, AFileThatIsOlderThanALogIsNoCopyOfIt)
{
    StartWith("a.log", "");
    Append("a.log", LogLine("1"));
    EXPECT_EQ(Messages{"1"}, Read());
    Stop();
    Rename("a.log", "a.log.2");
    Write("a.log", "begin\n");
    Rename("a.log", "a.log.1");
    const auto older = inputs::LookAt(Path("a.log.1"));
    if (older->identity.birth_ns == 0)
        GTEST_SKIP() << "this file system keeps no births";
    // Its clock may go in steps.
    for (Write("a.log", "begin\n" + LogLine("2"));
         inputs::LookAt(Path("a.log"))->identity.birth_ns == older->identity.birth_ns;
         Write("a.log", "begin\n" + LogLine("2")))
        Remove("a.log");
    Start();
    Messages read = Read();
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"2", "begin", "begin"}), read);
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, OfSeveralThatAreGoneTheOneOfWhichMostIsKnownIsLookedForFirst)
{
    StartWith("a.log", "");
    Append("a.log", "begin\n" + LogLine("1"));
    EXPECT_EQ((Messages{"begin", "1"}), Read());
    Rename("a.log", "a.log.1");
    Append("a.log", "begin\n" + LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"begin", "1", "2"}), Read());
    Stop();
    Append("a.log.1", LogLine("3"));
    Append("a.log", LogLine("4"));
    Pack("a.log.1", "a.log.2.gz", "gzip");
    Remove("a.log.1");
    Pack("a.log", "a.log.1.gz", "gzip"); // which begins like the other one
    Remove("a.log");
    Start();
    Messages read = Read();
    std::sort(read.begin(), read.end());
    EXPECT_EQ((Messages{"3", "4"}), read);
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ARotatedFileThatWasReadToItsEndMayBeEmptied)
{
    StartWith("a.log", "");
    ReadARotatedFile();
    Empty("a.log.1");
    Wait(milliseconds(20000));
    EXPECT_EQ(Messages{}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ALogThatIsEmptiedJustWhenItsCopyIsComparedIsNotReadAgain)
{
    StartWith("a.log", "");
    Append("a.log", LogLine("1") + LogLine("2"));
    EXPECT_EQ((Messages{"1", "2"}), Read());
    Write("a.log.1", LogLine("1"));
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(11000)); // the next look comes before the next reading
    Write("a.log.1", LogLine("1") + LogLine("2"));
    Empty("a.log");
    Append("a.log", LogLine("3"));
    EXPECT_EQ(Messages{"3"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ACopyIsReadWhenTheLogIsGoneOfWhichNothingCouldBeRead)
{
    StartWith("a.log", "");
    Append("a.log", "no end");
    Copy("a.log", "a.log.1");
    EXPECT_EQ(Messages{}, Read());
    Remove("a.log");
    for (int i = 0; i < 10; ++i) {
        Settle();
        Wait(milliseconds(20000));
    }
    EXPECT_EQ(Messages{"no end"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

// As of a log on whose disk there was a power cut.
TEST_F(FollowerTest, ZerosAtTheEndOfALogMayBeWrittenOver)
{
    StartWith("a.log", LogLine("old"));
    const std::string before = Content("a.log");
    Append("a.log", "half" + std::string(20, '\0'));
    EXPECT_EQ(Messages{}, Read());
    Write("a.log", before + "half of it, and then the rest of it\n");
    EXPECT_EQ(Messages{"half of it, and then the rest of it"}, Read());
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, ALogThatIsRotatedBetweenALookAndItsOpeningIsNotTakenForTheNextOne)
{
    StartWith("a.log", LogLine("old"));
    Stop();
    Append("a.log", LogLine("1"));
    test::ExhaustWatches(true); // nothing is told, so the next reading comes without a look
    Start();
    follower().Look(inputs::SteadyTime(std::chrono::hours(2000)));
    Rename("a.log", "a.log.1");
    Append("a.log", LogLine("old") + LogLine("2"));
    Step();
    test::ExhaustWatches(false);
    Messages read = Read();
    EXPECT_EQ((Messages{"1", "old", "2"}), read);
    EXPECT_EQ(Messages{}, TakeLosses());
}

TEST_F(FollowerTest, OfSeveralNamesOfAFileTheOneCountsThatIsWrittenTo)
{
    std::filesystem::create_directory(Path("0old"));
    options.rules.paths = {Path("a.log"), Path("0old/*")};
    StartWith("a.log", LogLine("old"));
    std::filesystem::create_hard_link(Path("a.log"), Path("0old/a.log.1"));
    Append("a.log", "half");
    EXPECT_EQ(Messages{}, Read());
    Wait(milliseconds(20000));
    EXPECT_EQ(Messages{}, Read()) << "of a rotated file it would be the last line";
    Append("a.log", " and half\n");
    EXPECT_EQ(Messages{"half and half"}, Read());
}

// Else a power cut could take a part of it, and the rest would look like another file.
TEST_F(FollowerTest, WhatIsPassedOverIsOnTheDiskWhenThatIsStored)
{
    // Larger than the files of other tests: where numbers of files are given out again, it has that of one of them.
    const std::string old = LogLine(std::string(3000, 'o'));
    Write("a.log", old);
    ASSERT_NE(old.size(), SyncedSize("a.log"));
    Start();
    EXPECT_EQ(old.size(), SyncedSize("a.log"));
}

TEST_F(FollowerTest, AFileIsKnownByItsBirthWhereTheFileSystemKeepsIt)
{
    Write("a.log", LogLine("1"));
    struct statx status {};
    ASSERT_EQ(0, statx(AT_FDCWD, Path("a.log").c_str(), 0, STATX_BTIME, &status));
    if ((status.stx_mask & STATX_BTIME) == 0)
        GTEST_SKIP() << "this file system keeps no births";
    const auto look = inputs::LookAt(Path("a.log"));
    ASSERT_TRUE(look);
    EXPECT_EQ(status.stx_btime.tv_sec * 1000000000 + status.stx_btime.tv_nsec,
              look->identity.birth_ns);
    EXPECT_TRUE(look->identity.IsUnique());
}

TEST_F(FollowerTest, ChangesAreToldByTheKernel)
{
    StartWith("a.log", LogLine("old"));
    follower().TakeChanges();
    EXPECT_FALSE(follower().WantsLook(inputs::SteadyTime::min()));
    Append("a.log", LogLine("1"));
    // No look is due by time: what is read is read because it was told of.
    Step();
    EXPECT_EQ(Messages{"1"}, Take());
    Append("b.log", LogLine("2"));
    Step();
    EXPECT_EQ(Messages{"2"}, Take());
}

} // namespace
