// Line heads, and the steps to the next and the previous line.
#include <array>
#include <utility>

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::Failed;
using test::kBlock;
using test::kUntouchedPos;
using test::LineBuffer;
using test::Refused;
using test::Repeat;
using test::Step;
using test::Sys;
using test::Texts;

using GetLineHead = test::ReaderTest;
using GetNextLine = test::ReaderTest;
using GetPreLine = test::ReaderTest;

// ---- GetLineHead ----

TEST_F(GetLineHead, OfTheFirstByteIsZeroAndReadsNothing)
{
    WriteOldLog("one\ntwo\n");
    Open();
    EXPECT_EQ(0, ::GetLineHead(0));
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_EQ((Texts{"0 <get the head of file."}), Said("GetLineHead"));
}

TEST_F(GetLineHead, OfEveryByteIsTheHeadOfItsLineAndANewlineBelongsToTheLineItEnds)
{
    WriteOldLog("one\n\ntwo\nthree");
    Open();
    const std::array<int64_t, 14> heads = {0, 0, 0, 0, 4, 5, 5, 5, 5, 9, 9, 9, 9, 9};
    ASSERT_EQ(14, filelen);
    for (int64_t pos = 0; pos < filelen; ++pos)
        EXPECT_EQ(heads.at(static_cast<size_t>(pos)), ::GetLineHead(pos)) << pos;
}

TEST_F(GetLineHead, TracesTheOffsetItFound)
{
    WriteOldLog("one\ntwo\n");
    Open();
    ::GetLineHead(6);
    ::GetLineHead(2);
    EXPECT_EQ((Texts{"0 <return 4.", "0 <get the head of file."}), Said("GetLineHead"));
}

TEST_F(GetLineHead, OutsideTheRecordedLengthFails)
{
    WriteOldLog("hello\n");
    Open();
    Grow("what came later does not count\n");
    EXPECT_EQ(-1, ::GetLineHead(-1));
    EXPECT_EQ(-1, ::GetLineHead(6));
    EXPECT_EQ(-1, ::GetLineHead(7));
    EXPECT_EQ((Texts{"1 <parameter is invalided, pos/filelen is -1/6.return -1.",
                     "1 <parameter is invalided, pos/filelen is 6/6.return -1.",
                     "1 <parameter is invalided, pos/filelen is 7/6.return -1."}),
              Said("GetLineHead"));
}

TEST_F(GetLineHead, WithoutAnOpenLogFails)
{
    EXPECT_EQ(-1, ::GetLineHead(0));
    EXPECT_EQ((Texts{"1 <parameter is invalided, pos/filelen is 0/-1.return -1."}),
              Said("GetLineHead"));
}

TEST_F(GetLineHead, IsFoundAtAnyDistance)
{
    for (const size_t around : {size_t{0}, size_t{4096}, size_t{8192}, kBlock, 2 * kBlock}) {
        for (size_t distance = around > 3 ? around - 3 : 0; distance <= around + 3; ++distance) {
            WriteOldLog("first\n" + Repeat(distance, 'x') + "y\n");
            Open();
            EXPECT_EQ(6, ::GetLineHead(6 + static_cast<int64_t>(distance))) << distance;
            EXPECT_EQ(0, ::GetLineHead(5));
        }
    }
}

TEST_F(GetLineHead, OfALongFirstLineIsZero)
{
    WriteOldLog(Repeat(3 * kBlock, 'x'));
    Open();
    EXPECT_EQ(0, ::GetLineHead(filelen - 1));
}

TEST_F(GetLineHead, TakesZeroBytesForPartOfTheLine)
{
    WriteOldLog(std::string("one\ntw\0o\n", 9));
    Open();
    EXPECT_EQ(4, ::GetLineHead(8));
}

TEST_F(GetLineHead, LeavesTheBlockAlone)
{
    OpenOldLog("one\ntwo\nthree\n");
    Next();
    const LogBuf before = curblock;
    ::GetLineHead(10);
    EXPECT_TRUE(Same(before, curblock));
}

TEST_F(GetLineHead, FailsWhenAnySeekFails)
{
    WriteOldLog(Repeat(10001, 'x'));
    Open();
    // One byte at a time as far back as lines go, then in pieces of 4096.
    const std::array<std::pair<int, int>, 7> places = {
        {{1, 9999}, {2, 9998}, {3, 9997}, {100, 9900}, {3329, 6671}, {3330, 6670}, {3331, 2574}}};
    for (const auto &[n, place] : places) {
        ForgetTrace();
        Sys().FailCall("fseek", n);
        EXPECT_EQ(-1, ::GetLineHead(10000));
        EXPECT_EQ((Texts{"2 <fseek error, pos is " + std::to_string(place) + ".return -1."}),
                  Said("GetLineHead"));
    }
    Sys().FailCall("fseek", 3332); // there is none
    EXPECT_EQ(0, ::GetLineHead(10000));
}

TEST_F(GetLineHead, SearchesOnBeforeWhatCannotBeRead)
{
    WriteOldLog("one\ntwo\n" + Repeat(5000, 'x') + "\nlast");
    Open();
    EXPECT_EQ(5009, ::GetLineHead(5012));
    Sys().FailCall("fread", 1);
    EXPECT_EQ(5009, ::GetLineHead(5012));
    Sys().FailCall("fread", 4); // the newline
    EXPECT_EQ(8, ::GetLineHead(5012));
    EXPECT_TRUE(Complaints().empty());
}

TEST_F(GetLineHead, TakesNothingFromAnEarlierSearchForWhatCannotBeRead)
{
    WriteOldLog(Repeat(4001, '\n'));
    Open();
    Sys().FailCall("fread", 2);
    const int64_t first = ::GetLineHead(4000);
    const int64_t second = ::GetLineHead(4000);
    EXPECT_EQ(4000, first);
    EXPECT_EQ(3999, second);
}

TEST_F(GetLineHead, OfAFileThatShrankIsThatOfTheLineWhereItEndsNow)
{
    const std::string text = "one\ntwo\nthree\nfour\n";
    for (size_t size = 0; size < text.size(); ++size) {
        WriteOldLog(text);
        Open();
        ShrinkTo(size);
        const size_t newline = text.substr(0, size).rfind('\n');
        EXPECT_EQ(newline == std::string::npos ? 0 : static_cast<int64_t>(newline) + 1,
                  ::GetLineHead(filelen - 1));
    }
}

// ---- GetNextLine ----

TEST_F(GetNextLine, DeliversTheFirstLineOfAFreshBlockAndThenTheOthers)
{
    OpenOldLog("one\ntwo\nthree");
    ForgetTrace();
    ExpectNext(0, "one");
    EXPECT_EQ(0, curblock.linepos);
    ExpectNext(4, "two");
    EXPECT_EQ(4, curblock.linepos);
    ExpectNext(8, "three");
    EXPECT_EQ(8, curblock.linepos);
    EXPECT_EQ(
        (Texts{"0 <*pos=0.pcontent=one,return 0.", "0 <*pos=4.return 0.", "0 <*pos=8.return 0."}),
        Said("GetNextLine"));
}

TEST_F(GetNextLine, CountsOffsetsFromTheHeadOfTheFile)
{
    WriteOldLog("one\ntwo\nthree\n");
    Open();
    LoadAt(4);
    ExpectNext(4, "two");
    ExpectNext(8, "three");
}

TEST_F(GetNextLine, OnTheLastLineFailsAndLeavesTheCursor)
{
    for (const int32_t isend : {kBlockAtEnd, kBlockBeyond}) {
        OpenOldLog("one\ntwo\n");
        curblock.isend = isend;
        Next();
        Next();
        ForgetTrace();
        EXPECT_EQ(Failed(), Next());
        EXPECT_EQ(Failed(), Next());
        EXPECT_EQ(4, curblock.linepos);
        EXPECT_EQ((Texts{"1 <end of file.return -1.", "1 <end of file.return -1."}),
                  Said("GetNextLine"));
    }
}

TEST_F(GetNextLine, BehindTheLastLineFails)
{
    OpenOldLog("one\ntwo\n");
    curblock.linepos = curblock.length;
    EXPECT_EQ(Failed(), Next());
    EXPECT_EQ((Texts{"1 <end of file.return -1."}), Said("GetNextLine"));
}

TEST_F(GetNextLine, DeliversEmptyLinesWithTheOffsetOfTheirNewline)
{
    OpenOldLog("\n\none\n\n\ntwo\n\n");
    ExpectNext(0, "");
    ExpectNext(1, "");
    ExpectNext(2, "one");
    ExpectNext(6, "");
    ExpectNext(7, "");
    ExpectNext(8, "two");
    ExpectNext(12, "");
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GetNextLine, TakesAZeroByteForALineEnd)
{
    OpenOldLog(std::string("\0one\0two\n\0\nthree\0", 17));
    ExpectNext(0, "");
    ExpectNext(1, "one");
    ExpectNext(5, "two");
    ExpectNext(9, "");
    ExpectNext(10, "");
    ExpectNext(11, "three");
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GetNextLine, KeepsEveryOtherByteOfALine)
{
    std::string line;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '\n')
            line += static_cast<char>(byte);
    }
    OpenOldLog(line + "\nnext\n");
    ExpectNext(0, line);
    ExpectNext(255, "next");
}

TEST_F(GetNextLine, CutsALineToTheBufferAndPassesOverItsRest)
{
    for (size_t length = 3326; length <= 3331; ++length) {
        SCOPED_TRACE(length);
        OpenOldLog(Repeat(length, 'x') + "\nnext\n");
        ExpectNext(0, Repeat(std::min<size_t>(length, 3328), 'x'));
        ExpectNext(static_cast<int64_t>(length) + 1, "next");
    }
}

TEST_F(GetNextLine, FillsBuffersOfEverySize)
{
    for (int size = 1; size <= 6; ++size) {
        OpenOldLog("abcd\nefgh\n");
        EXPECT_EQ((Step{0, 0, std::string("abcd").substr(0, static_cast<size_t>(size) - 1)}),
                  Next(size));
        EXPECT_EQ((Step{0, 5, std::string("efgh").substr(0, static_cast<size_t>(size) - 1)}),
                  Next(size));
    }
}

TEST_F(GetNextLine, AfterALineThatEndsOnTheBlockEdgeDeliversTheHeadOfTheNextBlock)
{
    OpenOldLog(Repeat(kBlock - 1, 'x') + "\nyyy\n");
    ExpectNext(0, Repeat(3328, 'x'));
    ForgetTrace();
    ExpectNext(kBlockSize, "yyy");
    EXPECT_EQ(1, ::FEof());
    EXPECT_EQ((Texts{"0 <*pos=16384.pcontent=yyy,return 0.", "0 <return 0"}), Said("GetNextLine"));
}

// One line end walks over the edge of the first block, byte by byte.
void ExpectThreeLinesAround(size_t edge)
{
    SCOPED_TRACE(edge);
    const std::string head = Repeat(edge - 8, 'x');
    const auto second = static_cast<int64_t>(edge) - 7;
    const int64_t third = second + 5;
    const std::array<Step, 3> lines = {Step{0, 0, head.substr(0, 3328)}, Step{0, second, "abcd"},
                                       Step{0, third, "efgh"}};
    for (const auto &expected : lines) {
        LineBuffer buffer(kLineBufferSize);
        int64_t pos = kUntouchedPos;
        const int result = ::GetNextLine(&pos, buffer.data(), kLineBufferSize);
        EXPECT_EQ(expected, (Step{result, pos, buffer.Text()}));
        EXPECT_TRUE(BlockIsSound(curblock));
    }
    EXPECT_EQ(1, ::FEof());
}

// Longer first lines come in pieces, which is another story.
TEST_F(GetNextLine, FindsTheLinesWhereverTheBlockEdgeCutsThem)
{
    for (size_t edge = kBlock - 6; edge <= kBlock + 7; ++edge) {
        OpenOldLog(Repeat(edge - 8, 'x') + "\nabcd\nefgh\n");
        ExpectThreeLinesAround(edge);
        OpenOldLog(Repeat(edge - 8, 'x') + "\nabcd\nefgh"); // and without a newline at the end
        ExpectThreeLinesAround(edge);
    }
}

TEST_F(GetNextLine, DeliversALineLongerThanABlockInPieces)
{
    OpenOldLog("head\n" + Repeat(2 * kBlock + 10, 'x') + "\ntail\n");
    ExpectNext(0, "head");
    ExpectNext(5, Repeat(3328, 'x'));
    ExpectNext(5 + kBlockSize, Repeat(3328, 'x'));
    ExpectNext(5 + 2 * kBlockSize, Repeat(10, 'x'));
    ExpectNext(5 + 2 * kBlockSize + 11, "tail");
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GetNextLine, OfALineWhoseNewlineIsTheFirstByteOfTheNextBlockLeavesAnEmptyLineThere)
{
    OpenOldLog(Repeat(kBlock, 'x') + "\nnext\n");
    ExpectNext(0, Repeat(3328, 'x'));
    ExpectNext(kBlockSize, "");
    ExpectNext(kBlockSize + 1, "next");
}

TEST_F(GetNextLine, WithoutAnOpenLogFails)
{
    curblock = Block("one|two|");
    EXPECT_EQ(Refused(), Next());
    EXPECT_EQ((Texts{"1 <params error.return -1."}), Said("GetNextLine"));
}

TEST_F(GetNextLine, OfAnEmptyFileFails)
{
    WriteOldLog("");
    Open();
    curblock = Block("one|two|");
    EXPECT_EQ(Refused(), Next());
    EXPECT_EQ((Texts{"1 <params error.return -1."}), Said("GetNextLine"));
}

TEST_F(GetNextLine, WithABadArgumentFailsAndMovesNothing)
{
    OpenOldLog("one\ntwo\n");
    Next();
    ForgetTrace();
    int64_t pos = kUntouchedPos;
    char line[] = "ZZZ";
    EXPECT_EQ(-1, ::GetNextLine(nullptr, line, sizeof line));
    EXPECT_EQ(-1, ::GetNextLine(&pos, nullptr, sizeof line));
    EXPECT_EQ(-1, ::GetNextLine(&pos, line, 0));
    EXPECT_EQ(-1, ::GetNextLine(&pos, line, -1));
    EXPECT_STREQ("ZZZ", line);
    EXPECT_EQ(kUntouchedPos, pos);
    EXPECT_EQ(0, curblock.linepos);
    EXPECT_EQ(Texts(4, "1 <params error.return -1."), Said("GetNextLine"));
}

TEST_F(GetNextLine, WithoutABlockFails)
{
    WriteOldLog("one\n");
    Open();
    EXPECT_EQ(Failed(), Next());
    EXPECT_EQ((Texts{"1 <curblock's length is 0.return -1."}), Said("GetNextLine"));
}

TEST_F(GetNextLine, WithABlockOfNegativeLengthFails)
{
    OpenOldLog("one\n");
    curblock.length = -5;
    LineBuffer line(8);
    int64_t pos = kUntouchedPos;
    EXPECT_EQ(-1, ::GetNextLine(&pos, line.data(), 8));
    EXPECT_EQ("", line.Text());
    EXPECT_EQ((Texts{"1 <curblock's length is -5.return -1."}), Said("GetNextLine"));
}

TEST_F(GetNextLine, WhenTheNextBlockCannotBeLoadedFailsAndCannotGoOn)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenOldLog(Repeat(kBlock - 1, 'x') + "\nyyy\n");
        Next();
        ForgetTrace();
        Sys().FailCall(call, 1);
        EXPECT_EQ(Failed(), Next());
        EXPECT_TRUE(IsCleared(curblock));
        EXPECT_EQ((Texts{"1 <GetNextBlock() failed.return -1."}), Said("GetNextLine"));
        ForgetTrace();
        EXPECT_EQ(Failed(), Next());
        EXPECT_EQ((Texts{"1 <curblock's length is 0.return -1."}), Said("GetNextLine"));
    }
}

TEST_F(GetNextLine, OfAFileThatShrankToTheBlockEdgeFails)
{
    OpenOldLog(Repeat(kBlock - 1, 'x') + "\nyyy\n");
    Next();
    ShrinkTo(kBlock);
    ForgetTrace();
    EXPECT_EQ(Failed(), Next());
    EXPECT_EQ((Texts{"1 <curblock's length is 0.return -1.", "0 <return -1"}), Said("GetNextLine"));
}

TEST_F(GetNextLine, OfAFileThatShrankBeforeTheFirstLoadEndsWithAFailure)
{
    WriteOldLog("one\ntwo\nthree\n");
    Open();
    ShrinkTo(6);
    LoadAt(0);
    ExpectNext(0, "one");
    ExpectNext(4, "tw");
    EXPECT_EQ(0, ::FEof()); // the recorded length says that more follows
    EXPECT_EQ(Failed(), Next());
    EXPECT_EQ((Texts{"1 GetNextLine: <curblock's length is 0.return -1."}), Complaints());
}

// ---- GetPreLine ----

TEST_F(GetPreLine, StepsBackLineByLine)
{
    OpenOldLog("one\ntwo\nthree\n");
    Next();
    Next();
    Next();
    ForgetTrace();
    ExpectPrevious(4, "two");
    EXPECT_EQ(4, curblock.linepos);
    ExpectPrevious(0, "one");
    EXPECT_EQ(0, curblock.linepos);
    EXPECT_EQ((Texts{"0 <return 0.", "0 <return 0."}), Said("GetPreLine"));
}

TEST_F(GetPreLine, OnTheFirstLineFailsAndLeavesTheCursor)
{
    OpenOldLog("one\ntwo\n");
    Next();
    ForgetTrace();
    EXPECT_EQ(Failed(), Previous());
    EXPECT_EQ(0, curblock.linepos);
    EXPECT_EQ((Texts{"1 <head of file.return -1."}), Said("GetPreLine"));
}

TEST_F(GetPreLine, BeforeTheFirstLineCountsAsStandingOnIt)
{
    OpenOldLog("one\ntwo\n");
    EXPECT_EQ(Failed(), Previous());
    EXPECT_EQ(-1, curblock.linepos);

    LoadAt(4); // before "two": the line before it is "one"
    ExpectPrevious(0, "one");
}

TEST_F(GetPreLine, FromBehindTheLastLineDeliversTheLastLine)
{
    for (const int64_t beyond : {0, 1, 100}) {
        OpenOldLog("one\ntwo\n");
        curblock.linepos = curblock.length + beyond;
        ExpectPrevious(4, "two");
        ExpectPrevious(0, "one");
    }
}

TEST_F(GetPreLine, DeliversEmptyLinesWithTheOffsetOfTheirNewline)
{
    OpenOldLog("\n\none\n\n\ntwo\n\n");
    curblock.linepos = curblock.length;
    ExpectPrevious(12, "");
    ExpectPrevious(8, "two");
    ExpectPrevious(7, "");
    ExpectPrevious(6, "");
    ExpectPrevious(2, "one");
    ExpectPrevious(1, "");
    ExpectPrevious(0, "");
    EXPECT_EQ(1, ::FBegin());
}

TEST_F(GetPreLine, CutsALineToTheBuffer)
{
    for (size_t length = 3326; length <= 3331; ++length) {
        SCOPED_TRACE(length);
        OpenOldLog("head\n" + Repeat(length, 'x') + "\nnext\n");
        curblock.linepos = 5 + static_cast<int64_t>(length) + 1;
        ExpectPrevious(5, Repeat(std::min<size_t>(length, 3328), 'x'));
        ExpectPrevious(0, "head");
    }
}

TEST_F(GetPreLine, FillsBuffersOfEverySize)
{
    for (int size = 1; size <= 6; ++size) {
        OpenOldLog("abcd\nefgh\n");
        curblock.linepos = 5;
        EXPECT_EQ((Step{0, 0, std::string("abcd").substr(0, static_cast<size_t>(size) - 1)}),
                  Previous(size));
    }
}

TEST_F(GetPreLine, FromTheHeadOfABlockDeliversTheLastLineBeforeIt)
{
    const std::string text = Repeat(10000, 'a') + "\n" + Repeat(10000, 'b') + "\nccc\nddd\n";
    WriteOldLog(text);
    Open();
    LoadAt(20006); // "ddd"
    ForgetTrace();
    ExpectPrevious(20002, "ccc");
    EXPECT_EQ((Texts{"0 <return 0.", "0 <return 0."}),
              Said("GetPreLine")); // the step, then the whole
    ExpectPrevious(10001, Repeat(3328, 'b'));
    ExpectPrevious(0, Repeat(3328, 'a'));
    EXPECT_EQ(1, ::FBegin());
}

TEST_F(GetPreLine, FindsTheLinesWhereverTheBlockEdgeCutsThem)
{
    for (size_t before = kBlock - 8; before <= kBlock + 8; ++before) {
        SCOPED_TRACE(before);
        const std::string rest = Repeat(before - 10, 'x') + "\n";
        const std::string text = "abcd\nefgh\n" + rest + "last\n";
        WriteOldLog(text);
        Open();
        LoadAt(static_cast<int64_t>(text.size()) - 5);
        ExpectPrevious(10, Repeat(3328, 'x'));
        ExpectPrevious(5, "efgh");
        ExpectPrevious(0, "abcd");
        EXPECT_EQ(1, ::FBegin());
    }
}

TEST_F(GetPreLine, DeliversALineLongerThanABlockInPieces)
{
    WriteOldLog("head\n" + Repeat(2 * kBlock + 10, 'x') + "\ntail\n");
    Open();
    LoadAt(5 + 2 * kBlockSize + 11);
    ExpectPrevious(5 + kBlockSize + 11, Repeat(3328, 'x'));
    ExpectPrevious(5 + 11, Repeat(3328, 'x'));
    ExpectPrevious(5, Repeat(11, 'x'));
    ExpectPrevious(0, "head");
}

TEST_F(GetPreLine, WithoutAnOpenLogFails)
{
    curblock = Block("one|two|");
    curblock.linepos = 4;
    EXPECT_EQ(Refused(), Previous());
    EXPECT_EQ(4, curblock.linepos);
    EXPECT_EQ((Texts{"1  gfp is NULL\n", "1 <parameter error.return -1."}), Said("GetPreLine"));
}

TEST_F(GetPreLine, OfAnEmptyFileFails)
{
    WriteOldLog("");
    Open();
    curblock = Block("one|two|");
    curblock.linepos = 4;
    EXPECT_EQ(Refused(), Previous());
    EXPECT_EQ((Texts{"1 <parameter error.return -1."}), Said("GetPreLine"));
}

TEST_F(GetPreLine, WithABadArgumentFailsAndMovesNothing)
{
    OpenOldLog("one\ntwo\n");
    Next();
    Next();
    ForgetTrace();
    int64_t pos = kUntouchedPos;
    char line[] = "ZZZ";
    EXPECT_EQ(-1, ::GetPreLine(nullptr, line, sizeof line));
    EXPECT_EQ(-1, ::GetPreLine(&pos, nullptr, sizeof line));
    EXPECT_EQ(-1, ::GetPreLine(&pos, line, 0));
    EXPECT_EQ(-1, ::GetPreLine(&pos, line, -1));
    EXPECT_STREQ("ZZZ", line);
    EXPECT_EQ(kUntouchedPos, pos);
    EXPECT_EQ(4, curblock.linepos);
    EXPECT_EQ(Texts(4, "1 <parameter error.return -1."), Said("GetPreLine"));
}

TEST_F(GetPreLine, WithoutABlockFails)
{
    WriteOldLog("one\n");
    Open();
    EXPECT_EQ(Failed(), Previous());
    EXPECT_EQ((Texts{"1 <curblock's length is 0.return -1."}), Said("GetPreLine"));
}

TEST_F(GetPreLine, WhenTheBlockBeforeCannotBeLoadedFailsAndTracesItAsDetail)
{
    for (const char *call : {"fseek", "fread"}) {
        WriteOldLog("one\ntwo\n");
        Open();
        LoadAt(4);
        ForgetTrace();
        Sys().FailCall(call, 1);
        EXPECT_EQ(Failed(), Previous());
        EXPECT_TRUE(IsCleared(curblock));
        EXPECT_EQ((Texts{"0 <GetPreBlock() failed.return -1."}), Said("GetPreLine"));
    }
}

TEST_F(GetPreLine, OfAFileThatShrankToNothingFails)
{
    WriteOldLog("one\ntwo\n");
    Open();
    LoadAt(4);
    ShrinkTo(0);
    ForgetTrace();
    EXPECT_EQ(Failed(), Previous());
    EXPECT_EQ((Texts{"1 <curblock's length is 0.return -1.", "0 <return -1."}), Said("GetPreLine"));
}

} // namespace
