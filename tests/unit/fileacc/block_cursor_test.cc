// Where a block's cursor stands, and the rules of a block.

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::kBlock;
using test::Texts;

using FBegin = test::ReaderTest;
using FEof = test::ReaderTest;
using SaveFileEnv = test::ReaderTest;
using PrintBlock = test::ReaderTest;
using BlockRules = test::ReaderTest;

// ---- FBegin and FEof ----

TEST_F(FBegin, IsTrueAtTheHeadOfTheFileOnly)
{
    struct {
        const char *data;
        int64_t start;
        int64_t linepos;
        int expected;
    } const cases[] = {
        // clang-format off
        {"ab|cd|", 0, -1, 1}, {"ab|cd|", 0, 0, 1}, {"ab|cd|", 0, 3, 0}, {"ab|cd|", 0, 6, 0},
        {"", 0, -1, 1},       {"", 0, 0, 1},       {"", 0, 5, 1},
        {"ab|cd|", 1, -1, 0}, {"ab|cd|", 1, 0, 0}, {"", 1, -1, 0},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + " " + std::to_string(c.linepos));
        ForgetTrace();
        curblock = Block(c.data, c.start);
        curblock.linepos = c.linepos;
        EXPECT_EQ(c.expected, ::FBegin());
        EXPECT_EQ((Texts{"0 <return " + std::to_string(c.expected)}), Said("FBegin"));
    }
}

TEST_F(FEof, IsTrueOnTheLastLineOfTheLastBlockOnly)
{
    struct {
        const char *data;
        int64_t linepos;
        int32_t isend;
        int expected;
    } const cases[] = {
        // clang-format off
        {"ab|cd|", 3, kBlockInside, 0}, {"ab|cd|", 6, kBlockInside, 0}, {"", -1, kBlockInside, 0},
        {"ab|cd|", -1, kBlockAtEnd, 0}, {"ab|cd|", 0, kBlockAtEnd, 0},  {"ab|cd|", 3, kBlockAtEnd, 1},
        {"ab|cd|", 6, kBlockAtEnd, 1},  {"ab|cd|", 7, kBlockAtEnd, 1},  {"ab|cd", 3, kBlockAtEnd, 1},
        {"ab|cd||", 3, kBlockAtEnd, 0}, {"ab|cd||", 6, kBlockAtEnd, 1}, {"ab|c", 0, kBlockAtEnd, 0},
        {"ab", 0, kBlockAtEnd, 1},      {"|", 0, kBlockAtEnd, 1},
        {"", -1, kBlockAtEnd, 1},       {"", 0, kBlockAtEnd, 1},        {"", -1, kBlockBeyond, 1},
        {"ab|cd|", -1, kBlockBeyond, 0}, {"ab|cd|", 0, kBlockBeyond, 0}, {"ab|cd|", 3, kBlockBeyond, 1},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.data) + " " + std::to_string(c.linepos) + " " +
                     std::to_string(c.isend));
        ForgetTrace();
        curblock = Block(c.data, 0, c.isend);
        curblock.linepos = c.linepos;
        EXPECT_EQ(c.expected, ::FEof());
        EXPECT_EQ((Texts{"0 <return " + std::to_string(c.expected)}), Said("FEof"));
    }
    curblock = {};
}

TEST_F(FEof, OfAFileThatGrewComesAtTheEndOfTheBlockThatReachesBeyondTheOldEnd)
{
    WriteOldLog("one\n");
    Open();
    Grow("two\nthr");
    LoadAt(0);
    EXPECT_EQ("one|two|", Shown(curblock));
    ExpectNext(0, "one");
    EXPECT_EQ(0, ::FEof());
    ExpectNext(4, "two");
    EXPECT_EQ(1, ::FEof());
}

// ---- SaveFileEnv and RecoverFileEnv ----

TEST_F(SaveFileEnv, KeepsTheWholeBlockUntilItIsRecovered)
{
    const LogBuf saved = Junk();
    curblock = saved;
    ::SaveFileEnv();
    curblock = {};
    RecoverFileEnv();
    EXPECT_TRUE(Same(saved, curblock));
    RecoverFileEnv(); // as often as wanted
    EXPECT_TRUE(Same(saved, curblock));
    curblock = {};
}

TEST_F(SaveFileEnv, ASecondTimeReplacesWhatWasSaved)
{
    curblock = Block("first|");
    ::SaveFileEnv();
    curblock = Block("second|", 100, kBlockBeyond);
    ::SaveFileEnv();
    curblock = Block("third|");
    RecoverFileEnv();
    EXPECT_TRUE(Same(Block("second|", 100, kBlockBeyond), curblock));
}

// ---- printblock ----

std::string Printed(const LogBuf &block)
{
    testing::internal::CaptureStdout();
    printblock(block);
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST_F(PrintBlock, ShowsEveryLineWithAVisibleEnd)
{
    EXPECT_EQ("***********************************\n"
              "block info: start = 12, length = 8, isend = 1\n"
              "ab\\0\n"
              "\\0\n"
              "cde\\0\n",
              Printed(Block("ab||cde|", 12, kBlockAtEnd)));
    EXPECT_EQ(1, test::Host().Traced(0, ">start=12,length=8"));
    EXPECT_EQ(1, test::Host().Traced(0, "<"));
}

TEST_F(PrintBlock, OfAnEmptyBlockShowsItsNumbersOnly)
{
    EXPECT_EQ(std::string(35, '*') + "\nblock info: start = 0, length = 0, isend = 0\n",
              Printed(LogBuf{}));
}

TEST_F(PrintBlock, ShowsALastLineWithoutAnEnd)
{
    EXPECT_EQ(std::string(35, '*') +
                  "\nblock info: start = 0, length = 4, isend = 1\nab\\0\nc\\0\n",
              Printed(Block("ab|c", 0, kBlockAtEnd)));
}

// ---- the rules ----

TEST_F(BlockRules, HoldForWhatALoadLeaves)
{
    EXPECT_TRUE(BlockIsSound(LogBuf{}));
    EXPECT_TRUE(BlockIsSound(Block("ab|cd|")));
    EXPECT_TRUE(BlockIsSound(Block("ab|cd", 0, kBlockAtEnd)));
    EXPECT_TRUE(BlockIsSound(Block(std::string(kBlock, 'x'))));
}

TEST_F(BlockRules, RefuseABlockOfImpossibleSizeOrPlace)
{
    LogBuf block = Block("ab|");
    block.start = -1;
    EXPECT_FALSE(BlockIsSound(block));
    block = Block("ab|");
    block.length = -1;
    EXPECT_FALSE(BlockIsSound(block));
    block.length = kBlockSize + 1;
    EXPECT_FALSE(BlockIsSound(block));
}

TEST_F(BlockRules, RefuseANewlineAndALastLineWithoutAnEnd)
{
    EXPECT_FALSE(BlockIsSound(Block("ab\ncd|")));
    LogBuf block = Block("ab|cdef");
    block.length = 5; // "ab|cd", and the line goes on
    EXPECT_FALSE(BlockIsSound(block));
}

TEST_F(BlockRules, RefuseACursorThatStandsOnNoLine)
{
    LogBuf block = Block("ab|cd|");
    for (int64_t linepos = -3; linepos <= 8; ++linepos) {
        block.linepos = linepos;
        const bool allowed = linepos == -1 || linepos == 0 || linepos == 3 || linepos == 6;
        EXPECT_EQ(allowed, BlockIsSound(block)) << linepos;
    }

    block = Block("ab|cd", 0, kBlockAtEnd); // behind a last line without an end is a place, too
    block.linepos = 5;
    EXPECT_TRUE(BlockIsSound(block));
}

TEST_F(BlockRules, AskForALineEndAtTheEndOfATrimmedBlock)
{
    EXPECT_TRUE(BlockIsSound(Block("ab|cd|"), Loaded::kForward, 0));
    EXPECT_FALSE(BlockIsSound(Block("ab|cd"), Loaded::kForward, 0));
    EXPECT_TRUE(BlockIsSound(Block("ab|cd"), Loaded::kAt)); // not trimmed yet
    EXPECT_TRUE(BlockIsSound(Block("ab|cd", 0, kBlockAtEnd), Loaded::kForward, 0));
    EXPECT_TRUE(BlockIsSound(Block("abcd"), Loaded::kForward, 0)); // a piece of a longer line
}

TEST_F(BlockRules, AskForBlocksWithoutOverlapAndGap)
{
    EXPECT_TRUE(BlockIsSound(Block("ab|cd|", 100), Loaded::kForward, 100));
    EXPECT_FALSE(BlockIsSound(Block("ab|cd|", 100), Loaded::kForward, 99));
    EXPECT_FALSE(BlockIsSound(Block("ab|cd|", 100), Loaded::kForward, 101));
    EXPECT_TRUE(BlockIsSound(Block("ab|cd|", 100), Loaded::kBackward, 106));
    EXPECT_FALSE(BlockIsSound(Block("ab|cd|", 100), Loaded::kBackward, 105));
    EXPECT_FALSE(BlockIsSound(Block("ab|cd|", 100), Loaded::kBackward, 107));
}

} // namespace
