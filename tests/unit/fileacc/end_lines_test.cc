// The first and the last line of a log, and walks through all of them.
#include <array>
#include <utility>

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::Failed;
using test::kBlock;
using test::kUntouchedPos;
using test::Refused;
using test::Repeat;
using test::Step;
using test::Sys;
using test::Texts;

using GetLineHead = test::ReaderTest;
using GetNextLine = test::ReaderTest;
using GetPreLine = test::ReaderTest;
using GetFirstLine = test::ReaderTest;
using GetLastLine = test::ReaderTest;
using LineWalk = test::ReaderTest;

// ---- GetFirstLine ----

Step FirstLine(const std::string &text)
{
    return {0, kUntouchedPos, text};
}

TEST_F(GetFirstLine, DeliversTheFirstLineOfTheFile)
{
    WriteOldLog("one\ntwo\n");
    Open();
    EXPECT_EQ(FirstLine("one"), First());
    EXPECT_EQ((Texts{"0 <return 0."}), Said("GetFirstLine"));
}

TEST_F(GetFirstLine, OfOtherFilesIsAsShortAsTheirs)
{
    const std::array<std::pair<std::string, const char *>, 5> cases = {{
        {"one", "one"},
        {"\n", ""},
        {"\none\n", ""},
        {std::string("on\0e\n", 5), "on"},
        {std::string("\0", 1), ""},
    }};
    for (const auto &[text, first] : cases) {
        WriteOldLog(text);
        Open();
        EXPECT_EQ(FirstLine(first), First());
    }
}

TEST_F(GetFirstLine, IsCutToTheBuffer)
{
    for (size_t length = 3326; length <= 3331; ++length) {
        WriteOldLog(Repeat(length, 'x') + "\nnext\n");
        Open();
        EXPECT_EQ(FirstLine(Repeat(std::min<size_t>(length, 3328), 'x')), First());
    }
    WriteOldLog(Repeat(2 * kBlock, 'x'));
    Open();
    EXPECT_EQ(FirstLine(Repeat(kBlock, 'x')), First(20000)); // never more than a block
}

// Seen by what it does not ask: whether the unfinished line at the end of the log has grown.
TEST_F(GetFirstLine, ReadsNoMoreOfTheLogThanItsBufferHolds)
{
    OpenFresh("first\nunfinished");
    EXPECT_EQ(FirstLine("first"), First(6));
    EXPECT_EQ(0, Looks());
}

TEST_F(GetFirstLine, FillsBuffersOfEverySize)
{
    WriteOldLog("abcd\nefgh\n");
    Open();
    for (int size = 1; size <= 12; ++size)
        EXPECT_EQ(FirstLine(std::string("abcd").substr(0, static_cast<size_t>(size) - 1)),
                  First(size));
}

TEST_F(GetFirstLine, DoesNotDisturbAWalk)
{
    OpenOldLog("one\ntwo\nthree\n");
    Next();
    Next();
    const LogBuf before = curblock;
    EXPECT_EQ(FirstLine("one"), First());
    EXPECT_TRUE(Same(before, curblock));
    ExpectNext(8, "three");
}

TEST_F(GetFirstLine, WithoutAnOpenLogFails)
{
    EXPECT_EQ(Refused(), First());
    EXPECT_EQ((Texts{"1 <parameters error.return -1."}), Said("GetFirstLine"));
}

TEST_F(GetFirstLine, OfAnEmptyFileFails)
{
    WriteOldLog("");
    Open();
    EXPECT_EQ(Refused(), First());
    EXPECT_EQ((Texts{"1 <parameters error.return -1."}), Said("GetFirstLine"));
}

TEST_F(GetFirstLine, WithABadArgumentFails)
{
    WriteOldLog("one\n");
    Open();
    char line[] = "ZZZ";
    EXPECT_EQ(-1, ::GetFirstLine(nullptr, sizeof line));
    EXPECT_EQ(-1, ::GetFirstLine(line, 0));
    EXPECT_EQ(-1, ::GetFirstLine(line, -1));
    EXPECT_STREQ("ZZZ", line);
    EXPECT_EQ(Texts(3, "1 <parameters error.return -1."), Said("GetFirstLine"));
}

TEST_F(GetFirstLine, WhenTheLoadFailsLeavesTheTextUntouched)
{
    WriteOldLog("one\n");
    Open();
    for (const char *call : {"fseek", "fread"}) {
        ForgetTrace();
        Sys().FailCall(call, 1);
        EXPECT_EQ(Refused(), First());
        EXPECT_EQ((Texts{"1 <GetBlockAt() failed.return -1."}), Said("GetFirstLine"));
    }
}

TEST_F(GetFirstLine, OfAFileThatShrankToNothingIsEmpty)
{
    WriteOldLog("one\n");
    Open();
    ShrinkTo(0);
    EXPECT_EQ(FirstLine(""), First());
}

// ---- GetLastLine ----

TEST_F(GetLastLine, DeliversTheLastLineOfTheFileAndItsOffset)
{
    WriteOldLog("one\ntwo\n");
    Open();
    EXPECT_EQ((Step{0, 4, "two"}), Last());
    EXPECT_EQ((Texts{"0 <return 0."}), Said("GetLastLine"));
}

TEST_F(GetLastLine, IsTheOneThatTheFinalNewlineEnds)
{
    const std::array<std::pair<const char *, Step>, 7> cases = {{
        {"one\ntwo", {0, 4, "two"}},
        {"one", {0, 0, "one"}},
        {"one\n", {0, 0, "one"}},
        {"\n", {0, 0, ""}},
        {"\n\n", {0, 1, ""}},
        {"one\n\n", {0, 4, ""}},
        {"x", {0, 0, "x"}},
    }};
    for (const auto &[text, last] : cases) {
        WriteOldLog(text);
        Open();
        EXPECT_EQ(last, Last());
    }
}

TEST_F(GetLastLine, OfALogLongerThanABlockIsFoundFromItsEnd)
{
    WriteOldLog(Repeat(3 * kBlock, 'x') + "\nlast\n");
    Open();
    EXPECT_EQ((Step{0, 3 * kBlockSize + 1, "last"}), Last());
}

TEST_F(GetLastLine, LongerThanABlockIsItsBeginning)
{
    WriteOldLog("one\n" + Repeat(3 * kBlock, 'x') + "y\n");
    Open();
    EXPECT_EQ((Step{0, 4, Repeat(3328, 'x')}), Last());
}

TEST_F(GetLastLine, IsCutToTheBuffer)
{
    WriteOldLog("one\nabcd\n");
    Open();
    for (int size = 1; size <= 6; ++size)
        EXPECT_EQ((Step{0, 4, std::string("abcd").substr(0, static_cast<size_t>(size) - 1)}),
                  Last(size));
}

TEST_F(GetLastLine, ReadsTheWholeLineAlsoForASmallBuffer)
{
    Step step;
    UntilLooked(2, [&] {
        OpenFresh("first\nunfi");
        WriteOnAtLook(2, "nished\n");
        step = Last(4);
    });
    EXPECT_EQ((Step{0, 6, "unf"}), step);
    EXPECT_EQ(2, Looks());
}

TEST_F(GetLastLine, DoesNotDisturbAWalk)
{
    OpenOldLog("one\ntwo\nthree\n");
    Next();
    const LogBuf before = curblock;
    EXPECT_EQ((Step{0, 8, "three"}), Last());
    EXPECT_TRUE(Same(before, curblock));
    ExpectNext(4, "two");
}

TEST_F(GetLastLine, DoesNotCountWhatCameAfterTheOpening)
{
    WriteOldLog("one\ntwo\n");
    Open();
    Grow("three\n");
    EXPECT_EQ((Step{0, 4, "two"}), Last());
}

TEST_F(GetLastLine, WithoutAnOpenLogFails)
{
    EXPECT_EQ(Refused(), Last());
    EXPECT_EQ((Texts{"1 <parameters error.return -1."}), Said("GetLastLine"));
}

TEST_F(GetLastLine, OfAnEmptyFileFails)
{
    WriteOldLog("");
    Open();
    EXPECT_EQ(Refused(), Last());
    EXPECT_EQ((Texts{"1 <parameters error.return -1."}), Said("GetLastLine"));
}

TEST_F(GetLastLine, WithABadArgumentFails)
{
    WriteOldLog("one\n");
    Open();
    int64_t pos = kUntouchedPos;
    char line[] = "ZZZ";
    EXPECT_EQ(-1, ::GetLastLine(nullptr, line, sizeof line));
    EXPECT_EQ(-1, ::GetLastLine(&pos, nullptr, sizeof line));
    EXPECT_EQ(-1, ::GetLastLine(&pos, line, 0));
    EXPECT_EQ(-1, ::GetLastLine(&pos, line, -1));
    EXPECT_STREQ("ZZZ", line);
    EXPECT_EQ(kUntouchedPos, pos);
    EXPECT_EQ(Texts(4, "1 <parameters error.return -1."), Said("GetLastLine"));
}

TEST_F(GetLastLine, WhenItsHeadCannotBeFoundFails)
{
    WriteOldLog("one\ntwo\n");
    Open();
    Sys().FailCall("fseek", 1);
    EXPECT_EQ(Refused(), Last());
    EXPECT_EQ((Texts{"2 GetLineHead: <fseek error, pos is 6.return -1.",
                     "1 GetLastLine: <GetLineHead() error.return -1."}),
              Complaints());
}

TEST_F(GetLastLine, WhenItCannotBeLoadedFails)
{
    WriteOldLog("one\ntwo\n");
    Open();
    for (const char *call : {"fseek", "fread"}) {
        ForgetTrace();
        Sys().FailCall(call, 5); // after the bytes of "two" and the newline before it
        EXPECT_EQ(Refused(), Last());
        EXPECT_EQ((Texts{"1 <GetBlockAt() failed.return -1."}), Said("GetLastLine"));
    }
}

// ---- walks ----

Texts SplitLines(const std::string &text)
{
    Texts lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find_first_of(std::string("\n\0", 2), begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

TEST_F(LineWalk, DeliversEveryTruncationOfASmallFileInBothDirections)
{
    const std::string text("one\n\ntwo\0three\n\n\nfour, and no more\n", 35);
    for (size_t size = 1; size <= text.size(); ++size) {
        SCOPED_TRACE(size);
        OpenOldLog(text.substr(0, size));
        Texts lines;
        while (::FEof() == 0)
            lines.push_back(Next().text);
        EXPECT_EQ(SplitLines(text.substr(0, size)), lines);

        Texts back = {lines.back()};
        while (::FBegin() == 0)
            back.insert(back.begin(), Previous().text);
        EXPECT_EQ(lines, back);
    }
}

TEST_F(LineWalk, ToAndFroOverABlockEdgeComesBackToTheSameLines)
{
    OpenOldLog(Repeat(kBlock - 5, 'x') + "\nab\ncd\n" + Repeat(kBlock, 'y') + "\nef\n");
    for (int round = 0; round < 3; ++round) {
        ExpectNext(round == 0 ? 0 : kBlockSize - 4, round == 0 ? Repeat(3328, 'x') : "ab");
        if (round == 0)
            ExpectNext(kBlockSize - 4, "ab");
        ExpectNext(kBlockSize - 1, "cd");
        ExpectPrevious(kBlockSize - 4, "ab");
        ExpectPrevious(0, Repeat(3328, 'x'));
    }
}

TEST_F(LineWalk, OverALogThatGrowsMeanwhileEndsInTheBlockThatReachesBeyondTheOldEnd)
{
    OpenOldLog(Repeat(kBlock - 1, 'x') + "\nold\n");
    Next();
    Grow("new\n" + Repeat(3 * kBlock, 'y') + "\n");
    ExpectNext(kBlockSize, "old");
    EXPECT_EQ(0, ::FEof());
    ExpectNext(kBlockSize + 4, "new");
    EXPECT_EQ(1, ::FEof()); // the rest waits for the next opening
    EXPECT_EQ(Failed(), Next());
}

// Walks a log of several blocks to its end and back to its head, until a step fails.
class FailingWalk : public test::ReaderTest {
  protected:
    void SetUp() override
    {
        std::string text;
        for (int i = 0; i < 50; ++i)
            text += Repeat(999, 'x') + "\n";
        WriteOldLog(text);
    }

    static bool StepSucceeds(const Step &step, int n)
    {
        if (step.result == 0)
            return true;
        EXPECT_EQ(Failed(), step) << "call " << n;
        EXPECT_TRUE(IsCleared(curblock)) << "call " << n;
        return false;
    }

    // Which direction failed: "", "forwards" or "backwards".
    static std::string Walk(int n)
    {
        while (::FEof() == 0) {
            if (!StepSucceeds(Next(), n))
                return "forwards";
        }
        while (::FBegin() == 0) {
            if (!StepSucceeds(Previous(), n))
                return "backwards";
        }
        return "";
    }
};

TEST_F(FailingWalk, StopsAtWhateverCallFails)
{
    for (const char *call : {"fseek", "fread"}) {
        int forwards = 0;
        int backwards = 0;
        for (int n = 1; n < 100; ++n) {
            OpenAtHead();
            ForgetTrace();
            Sys().FailCall(call, n);
            const std::string failed = Walk(n);
            Sys().FailCall(call, 0);
            if (failed.empty())
                break;
            if (failed == "forwards") {
                ++forwards;
                EXPECT_EQ((Texts{"1 <GetNextBlock() failed.return -1."}),
                          Texts{Said("GetNextLine").back()});
            } else {
                ++backwards;
                EXPECT_EQ((Texts{"0 <GetPreBlock() failed.return -1."}),
                          Texts{Said("GetPreLine").back()});
            }
        }
        EXPECT_EQ(3, forwards) << call; // 50,000 bytes are four blocks
        EXPECT_LE(3, backwards) << call;
        EXPECT_GE(6, backwards) << call;
    }
}

} // namespace
