// Loading blocks and cutting them.
#include <cerrno>
#include <unistd.h>

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::kBlock;
using test::kLogName;
using test::Sys;
using test::Texts;

using GetBlockAt = test::ReaderTest;
using GetNextBlock = test::ReaderTest;
using GetPreBlock = test::ReaderTest;
using TrimBlockRight = test::ReaderTest;
using TrimBlockLeft = test::ReaderTest;

std::string WithZeroLineEnds(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', '\0');
    return text;
}

// ---- GetBlockAt ----

// Loads from the open log, whose content is `text`, and compares every byte of the block with what
// a plain cut of the text gives.
void ExpectLoaded(const std::string &text, int64_t pos, int64_t leng)
{
    SCOPED_TRACE("pos " + std::to_string(pos) + ", leng " + std::to_string(leng));
    const auto count = static_cast<size_t>(std::clamp<int64_t>(leng, 0, kBlockSize));
    const std::string bytes =
        static_cast<size_t>(pos) < text.size() ? text.substr(static_cast<size_t>(pos), count) : "";
    LogBuf expected{};
    expected.start = pos;
    expected.length = static_cast<int64_t>(bytes.size());
    expected.linepos = -1;
    const int64_t end = pos + expected.length;
    expected.isend = end < filelen ? 0 : (end == filelen ? 1 : 2);
    memcpy(expected.data, WithZeroLineEnds(bytes).data(), bytes.size());

    LogBuf block;
    memset(static_cast<void *>(&block), 'Z', sizeof block);
    ASSERT_EQ(expected.length, ::GetBlockAt(pos, leng, &block));
    EXPECT_EQ(expected.start, block.start);
    EXPECT_EQ(expected.length, block.length);
    EXPECT_EQ(expected.linepos, block.linepos);
    EXPECT_EQ(expected.isend, block.isend);
    EXPECT_EQ(0, memcmp(expected.data, block.data, sizeof block.data));
    EXPECT_TRUE(BlockIsSound(block));
}

TEST_F(GetBlockAt, LoadsEveryPieceOfASmallFile)
{
    const std::string text = "one\ntwo\n\nfour, without an end";
    WriteOldLog(text);
    Open();
    const auto size = static_cast<int64_t>(text.size());
    for (int64_t pos = 0; pos < size; ++pos)
        for (int64_t leng = -1; leng <= size + 2; ++leng)
            ExpectLoaded(text, pos, leng);
}

TEST_F(GetBlockAt, LoadsEveryTruncationOfASmallFile)
{
    const std::string text = std::string("\none\n\0two\n\nfour\n\n", 17);
    for (size_t size = 1; size <= text.size(); ++size) {
        WriteOldLog(text.substr(0, size));
        Open();
        for (int64_t pos = 0; pos < filelen; ++pos)
            ExpectLoaded(text.substr(0, size), pos, kBlockSize);
    }
}

TEST_F(GetBlockAt, TellsWhereTheBlockEndsForEveryFileSizeAroundABlock)
{
    for (size_t size = kBlock - 2; size <= kBlock + 2; ++size) {
        const std::string text = std::string(size - 1, 'x') + "\n";
        WriteOldLog(text);
        Open();
        for (int64_t pos = 0; pos <= 3; ++pos)
            ExpectLoaded(text, pos, kBlockSize);
    }
}

TEST_F(GetBlockAt, NeverLoadsMoreThanABlock)
{
    const std::string text(2 * kBlock, 'x');
    WriteOldLog(text);
    Open();
    for (const int64_t leng : {kBlockSize - 1, kBlockSize, kBlockSize + 1, INT64_MAX})
        ExpectLoaded(text, 7, leng);
}

TEST_F(GetBlockAt, OfNoBytesOrFewerIsAnEmptyBlock)
{
    WriteOldLog("hello\n");
    Open();
    for (const int64_t leng : {int64_t{0}, int64_t{-1}, INT64_MIN})
        ExpectLoaded("hello\n", 2, leng);
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_TRUE(Complaints().empty());
}

TEST_F(GetBlockAt, StoresEveryNewlineAsZeroAndKeepsAllOtherBytes)
{
    std::string text;
    for (int byte = 0; byte < 256; ++byte)
        text += static_cast<char>(byte);
    WriteOldLog(text);
    Open();
    ExpectLoaded(text, 0, kBlockSize);
}

TEST_F(GetBlockAt, TracesItsResult)
{
    WriteOldLog("hello\n");
    Open();
    EXPECT_EQ(6, ::GetBlockAt(0, kBlockSize, &curblock));
    EXPECT_EQ((Texts{"0 <return 6."}), Said("GetBlockAt"));
}

TEST_F(GetBlockAt, ReachesOffsetsBeyondFourGibibytes)
{
    constexpr int64_t far = (int64_t{5} << 30) + 3;
    WriteOldLog("");
    std::filesystem::resize_file(LogFile(kLogName), far); // a hole: takes no room
    Grow("far\n");
    Open();
    EXPECT_EQ(far + 4, filelen);
    EXPECT_EQ(4, ::GetBlockAt(far, kBlockSize, &curblock));
    EXPECT_EQ(far, curblock.start);
    EXPECT_EQ("far|", Shown(curblock));
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
}

TEST_F(GetBlockAt, WithoutAnOpenLogSaysSoAndLeavesTheBlockUntouched)
{
    filelen = 100; // as after an open that failed
    LogBuf block = Junk();
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, &block));
    EXPECT_TRUE(Same(Junk(), block));
    EXPECT_EQ((Texts{"1  gfp is NULL", "1 <parameter error,return -1."}), Said("GetBlockAt"));
}

TEST_F(GetBlockAt, OutsideTheRecordedLengthFailsAndLeavesTheBlockUntouched)
{
    WriteOldLog("hello\n");
    Open();
    Grow("what came later does not count\n");
    for (const int64_t pos : {int64_t{-1}, INT64_MIN, int64_t{6}, int64_t{7}, INT64_MAX}) {
        SCOPED_TRACE(pos);
        ForgetTrace();
        LogBuf block = Junk();
        EXPECT_EQ(-1, ::GetBlockAt(pos, kBlockSize, &block));
        EXPECT_TRUE(Same(Junk(), block));
        EXPECT_EQ((Texts{"1 <parameter error,return -1."}), Said("GetBlockAt"));
    }
    EXPECT_EQ(0, Sys().Calls("fseek"));
}

TEST_F(GetBlockAt, WithoutABlockFails)
{
    WriteOldLog("hello\n");
    Open();
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, nullptr));
    EXPECT_EQ((Texts{"1 <parameter error,return -1."}), Said("GetBlockAt"));
}

TEST_F(GetBlockAt, WhenTheSeekFailsLeavesTheBlockCleared)
{
    WriteOldLog("hello\n");
    Open();
    LogBuf block = Junk();
    Sys().FailCall("fseek", 1);
    EXPECT_EQ(-1, ::GetBlockAt(3, kBlockSize, &block));
    EXPECT_TRUE(IsCleared(block));
    EXPECT_EQ((Texts{"2 <fseek error, pos 3.return -1."}), Said("GetBlockAt"));
}

TEST_F(GetBlockAt, WhenTheReadFailsLeavesTheBlockCleared)
{
    WriteOldLog("hello\n");
    Open();
    LogBuf block = Junk();
    Sys().FailCall("fread", 1);
    EXPECT_EQ(-1, ::GetBlockAt(3, kBlockSize, &block));
    EXPECT_TRUE(IsCleared(block));
    EXPECT_EQ((Texts{"2 <read file ERROR,  0 BYTES readed.return -1."}), Said("GetBlockAt"));
}

// Delivers five bytes and then a read error.
ssize_t ReadFiveBytesThenFail(void *cookie, char *data, size_t /*size*/)
{
    auto *delivered = static_cast<bool *>(cookie);
    if (*delivered) {
        errno = EIO;
        return -1;
    }
    *delivered = true;
    memset(data, 'x', 5);
    return 5;
}

int SeekAnywhere(void * /*cookie*/, off64_t * /*offset*/, int /*whence*/)
{
    return 0;
}

TEST_F(GetBlockAt, WhenTheReadFailsHalfWayTellsHowFarItCameAndLeavesTheBlockCleared)
{
    bool delivered = false;
    gfp = fopencookie(&delivered, "r", {ReadFiveBytesThenFail, nullptr, SeekAnywhere, nullptr});
    filelen = 100;
    LogBuf block = Junk();
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, &block));
    EXPECT_TRUE(IsCleared(block));
    EXPECT_EQ((Texts{"2 <read file ERROR,  5 BYTES readed.return -1."}), Said("GetBlockAt"));
}

TEST_F(GetBlockAt, OfAFileThatShrankIsShorterAndNotAtTheEnd)
{
    const std::string text = "one\ntwo\nthree\n";
    for (size_t size = 0; size < text.size(); ++size) {
        SCOPED_TRACE(size);
        WriteOldLog(text);
        Open();
        ShrinkTo(size);
        for (int64_t pos = 0; pos < filelen; ++pos)
            ExpectLoaded(text.substr(0, size), pos, kBlockSize);
    }
    EXPECT_TRUE(Complaints().empty());
}

TEST_F(GetBlockAt, OfAFileThatGrewReachesBeyondTheRecordedLength)
{
    WriteOldLog("one\ntwo\n");
    Open();
    Grow("three\nfou");
    ExpectLoaded("one\ntwo\nthree\nfou", 0, kBlockSize);
    ExpectLoaded("one\ntwo\nthree\nfou", 0, 8);  // exactly at it: the end
    ExpectLoaded("one\ntwo\nthree\nfou", 0, 7);  // before it
    ExpectLoaded("one\ntwo\nthree\nfou", 4, 10); // beyond it
    EXPECT_EQ(8, filelen);
}

// ---- GetNextBlock ----

TEST_F(GetNextBlock, WithoutABlockFails)
{
    EXPECT_EQ(-1, ::GetNextBlock(nullptr));
    EXPECT_EQ((Texts{"1 <plogbuf==NULL.return -1."}), Said("GetNextBlock"));
}

TEST_F(GetNextBlock, StartsWhereTheTrimmedBlockEnded)
{
    OpenOldLog(std::string(kBlock - 3, 'x') + "\nabcde\nlast\n");
    EXPECT_EQ(kBlockSize - 2, curblock.length);
    ForgetTrace();
    EXPECT_EQ(11, ::GetNextBlock(&curblock));
    EXPECT_EQ(kBlockSize - 2, curblock.start);
    EXPECT_EQ(-1, curblock.linepos);
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
    EXPECT_EQ("abcde|last|", Shown(curblock));
    EXPECT_EQ((Texts{"0 <return 11."}), Said("GetNextBlock"));
}

TEST_F(GetNextBlock, IsCutAtItsLastLineEnd)
{
    OpenOldLog(std::string(kBlock - 1, 'x') + "\n" + std::string(100, 'y') + "\n" +
               std::string(kBlock, 'z') + "\n");
    EXPECT_EQ(101, ::GetNextBlock(&curblock));
    EXPECT_EQ(std::string(100, 'y') + "|", Shown(curblock));
    EXPECT_EQ(kBlockInside, curblock.isend);
}

TEST_F(GetNextBlock, OfALineLongerThanABlockStartsInTheMiddleOfIt)
{
    OpenOldLog(std::string(2 * kBlock + 5, 'x') + "\nnext\n");
    EXPECT_EQ(kBlockSize, curblock.length);
    EXPECT_EQ(kBlockSize, ::GetNextBlock(&curblock));
    EXPECT_EQ(kBlockSize, curblock.start);
    EXPECT_EQ(11, ::GetNextBlock(&curblock));
    EXPECT_EQ(2 * kBlockSize, curblock.start);
    EXPECT_EQ("xxxxx|next|", Shown(curblock));
}

TEST_F(GetNextBlock, AfterTheLastOneFailsAndLeavesTheBlockUntouched)
{
    OpenOldLog("hello\n");
    const LogBuf before = curblock;
    ForgetTrace();
    EXPECT_EQ(-1, ::GetNextBlock(&curblock));
    EXPECT_TRUE(Same(before, curblock));
    EXPECT_EQ((Texts{"1 GetBlockAt: <parameter error,return -1."}), Complaints());
}

TEST_F(GetNextBlock, WhenTheLoadFailsLeavesTheBlockCleared)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenOldLog(std::string(kBlock - 1, 'x') + "\nmore\n");
        Sys().FailCall(call, 1);
        EXPECT_EQ(-1, ::GetNextBlock(&curblock));
        EXPECT_TRUE(IsCleared(curblock));
    }
}

TEST_F(GetNextBlock, OfAFileThatShrankIsEmpty)
{
    OpenOldLog(std::string(kBlock - 1, 'x') + "\nmore\n");
    ShrinkTo(kBlock);
    EXPECT_EQ(0, ::GetNextBlock(&curblock));
    EXPECT_EQ(kBlockInside, curblock.isend);
    EXPECT_TRUE(BlockIsSound(curblock));
}

// ---- TrimBlockRight ----

struct TrimCase {
    const char *data; // '|' is a zero byte
    int32_t isend;
    const char *kept;
    const char *said;
};

TEST_F(TrimBlockRight, CutsTheUnfinishedLine)
{
    const char *const cut = "0 <";
    const char *const whole = "0 <there is no 0 in block.";
    const char *const ended = "0 <get last 0.";
    const char *const at_end = "0 <plogbuf->isend == 1";
    // clang-format off
    const TrimCase cases[] = {
        {"", kBlockInside, "", whole},           {"x", kBlockInside, "x", whole},
        {"|", kBlockInside, "|", ended},         {"xy", kBlockInside, "xy", whole},
        {"|x", kBlockInside, "|", cut},          {"x|", kBlockInside, "x|", ended},
        {"||", kBlockInside, "||", ended},       {"ab|cd|ef", kBlockInside, "ab|cd|", cut},
        {"ab|c", kBlockInside, "ab|", cut},      {"ab||c", kBlockInside, "ab||", cut},
        {"|abc", kBlockInside, "|", cut},        {"ab|cd|", kBlockInside, "ab|cd|", ended},
        {"ab|cd", kBlockAtEnd, "ab|cd", at_end}, {"ab|", kBlockAtEnd, "ab|", at_end},
        {"", kBlockAtEnd, "", at_end},           {"ab|cd", kBlockBeyond, "ab|", cut},
        {"abcd", kBlockBeyond, "abcd", whole},   {"ab|", kBlockBeyond, "ab|", ended},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.data) + " " + std::to_string(c.isend));
        ForgetTrace();
        LogBuf block = Block(c.data, 7, c.isend);
        ::TrimBlockRight(&block);
        EXPECT_EQ(c.kept, Shown(block));
        EXPECT_EQ(7, block.start);
        EXPECT_EQ(c.isend, block.isend);
        EXPECT_EQ(-1, block.linepos);
        EXPECT_EQ((Texts{c.said}), Said("TrimBlockRight"));
        EXPECT_TRUE(BlockIsSound(block));
    }
}

TEST_F(TrimBlockRight, FindsTheLastLineEndWhereverItStandsInAFullBlock)
{
    for (const size_t end :
         {size_t{0}, size_t{1}, kBlock / 2, kBlock - 3, kBlock - 2, kBlock - 1}) {
        SCOPED_TRACE(end);
        std::string shown(kBlock, 'x');
        shown[end] = '|';
        LogBuf block = Block(shown);
        ::TrimBlockRight(&block);
        EXPECT_EQ(static_cast<int64_t>(end) + 1, block.length);
    }
}

TEST_F(TrimBlockRight, WithoutABlockOnlySaysSo)
{
    ::TrimBlockRight(nullptr);
    EXPECT_EQ((Texts{"1 <plogbuf==NULL"}), Said("TrimBlockRight"));
}

TEST_F(TrimBlockRight, KeepsTheLastLineOfAFileWithoutANewline)
{
    OpenOldLog("one\ntwo");
    EXPECT_EQ("one|two", Shown(curblock));
}

TEST_F(TrimBlockRight, KeepsABlockThatEndsExactlyAtTheEndOfTheFile)
{
    OpenOldLog("one\n" + std::string(kBlock - 4, 'x'));
    EXPECT_EQ(kBlockSize, curblock.length);
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
}

// ---- GetPreBlock ----

TEST_F(GetPreBlock, WithoutABlockFails)
{
    EXPECT_EQ(-1, ::GetPreBlock(nullptr));
    EXPECT_EQ((Texts{"1 <plogbuf== NULL.return -1."}), Said("GetPreBlock"));
}

TEST_F(GetPreBlock, OfTheFirstBlockChangesNothing)
{
    OpenOldLog("one\ntwo\n");
    Next();
    const LogBuf before = curblock;
    EXPECT_EQ(0, ::GetPreBlock(&curblock));
    EXPECT_TRUE(Same(before, curblock));
    EXPECT_EQ((Texts{"0 <plogbuf->start == 0"}), Said("GetPreBlock"));
}

TEST_F(GetPreBlock, WithinTheFirstBlockSizeReadsFromTheHeadOfTheFileAndCutsNothing)
{
    WriteOldLog("one\ntwo\nthree\n");
    Open();
    LoadAt(8);
    ForgetTrace();
    EXPECT_EQ(8, ::GetPreBlock(&curblock));
    EXPECT_EQ(0, curblock.start);
    EXPECT_EQ("one|two|", Shown(curblock));
    EXPECT_EQ(kBlockInside, curblock.isend);
    EXPECT_EQ((Texts{"0 <return 8."}), Said("GetPreBlock"));
    EXPECT_EQ((Texts{"1 <no need to trim this block."}), Said("TrimBlockLeft"));
}

// Lines of 10 bytes, "line10000\n" and so on.
std::string TenByteLines(size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += "line" + std::to_string(10000 + i) + "\n";
    return text;
}

TEST_F(GetPreBlock, EndsWhereTheBlockStartedAndBeginsAtALineHead)
{
    const std::string text = TenByteLines(6000);
    WriteOldLog(text);
    Open();
    for (const int64_t start : {int64_t{16380}, int64_t{16390}, int64_t{16400}, int64_t{32770}}) {
        SCOPED_TRACE(start);
        LoadAt(start);
        const int64_t from = std::max<int64_t>(start - kBlockSize, 0);
        const int64_t head = (from / 10 + (from > 0 ? 1 : 0)) * 10;
        EXPECT_EQ(start - head, ::GetPreBlock(&curblock));
        EXPECT_EQ(head, curblock.start);
        EXPECT_EQ(start, curblock.start + curblock.length);
        EXPECT_EQ(WithZeroLineEnds(
                      text.substr(static_cast<size_t>(head), static_cast<size_t>(start - head))),
                  std::string(curblock.data, static_cast<size_t>(curblock.length)));
        EXPECT_TRUE(BlockIsSound(curblock));
    }
}

// Byte 16384 is the first at which a block before it does not begin at the head of the file.
TEST_F(GetPreBlock, JustBehindTheFirstBlockSizeCutsTheFirstLine)
{
    const std::string text = "a\nb\n" + std::string(kBlock - 5, 'x') + "\n0123456789";
    WriteOldLog(text);
    Open();

    LoadAt(kBlockSize);
    EXPECT_EQ(kBlockSize, ::GetPreBlock(&curblock));
    EXPECT_EQ(0, curblock.start);

    LoadAt(kBlockSize + 1); // from offset 1: "\nb\nxxx"
    EXPECT_EQ(kBlockSize - 1, ::GetPreBlock(&curblock));
    EXPECT_EQ(2, curblock.start);

    LoadAt(kBlockSize + 2); // from offset 2, a line head, which it cannot know: "b" is cut as well
    EXPECT_EQ(kBlockSize - 2, ::GetPreBlock(&curblock));
    EXPECT_EQ(4, curblock.start);
}

TEST_F(GetPreBlock, OfOnePieceOfALongLineIsKeptWhole)
{
    WriteOldLog("head\n" + std::string(3 * kBlock, 'x') + "\nend\n");
    Open();
    const int64_t start = 2 * kBlockSize + 100;
    LoadAt(start);
    EXPECT_EQ(kBlockSize, ::GetPreBlock(&curblock));
    EXPECT_EQ(start - kBlockSize, curblock.start);
    EXPECT_EQ(std::string(kBlock, 'x'), Shown(curblock));
}

TEST_F(GetPreBlock, WhoseOnlyLineEndIsItsLastByteIsKeptWhole)
{
    WriteOldLog("head\n" + std::string(kBlock, 'x') + "\nend\n");
    Open();
    const int64_t start = 5 + kBlockSize + 1;
    LoadAt(start);
    EXPECT_EQ(kBlockSize, ::GetPreBlock(&curblock));
    EXPECT_EQ(6, curblock.start);
    EXPECT_EQ(std::string(kBlock - 1, 'x') + "|", Shown(curblock));
}

TEST_F(GetPreBlock, WhenTheLoadFailsLosesTheBlock)
{
    const std::string text = TenByteLines(4000);
    const std::string message =
        "1 GetPreBlock: <GetBlockAt from 3616 length 16384 error,return -1.";
    const std::pair<const char *, Texts> failures[] = {
        {"fseek", {"2 GetBlockAt: <fseek error, pos 3616.return -1.", message}},
        {"fread", {"2 GetBlockAt: <read file ERROR,  0 BYTES readed.return -1.", message}},
    };
    for (const auto &[call, complaints] : failures) {
        WriteOldLog(text);
        Open();
        LoadAt(20000);
        ForgetTrace();
        Sys().FailCall(call, 1);
        EXPECT_EQ(-1, ::GetPreBlock(&curblock));
        EXPECT_TRUE(IsCleared(curblock));
        EXPECT_EQ(complaints, Complaints());
    }
}

TEST_F(GetPreBlock, WithoutAnOpenLogLosesTheBlock)
{
    curblock = Block("abc|", 300);
    EXPECT_EQ(-1, ::GetPreBlock(&curblock));
    EXPECT_TRUE(IsCleared(curblock));
    EXPECT_EQ((Texts{"1 GetBlockAt:  gfp is NULL", "1 GetBlockAt: <parameter error,return -1.",
                     "1 GetPreBlock: <GetBlockAt from 0 length 300 error,return -1."}),
              Complaints());
}

TEST_F(GetPreBlock, OfAFileThatShrankIsShorter)
{
    WriteOldLog(TenByteLines(4000));
    Open();
    LoadAt(20000);
    ShrinkTo(3636);
    EXPECT_EQ(16, ::GetPreBlock(&curblock)); // "10361\n" is cut
    EXPECT_EQ(3620, curblock.start);
    EXPECT_EQ("line10362|line10", Shown(curblock));
    EXPECT_EQ(kBlockInside, curblock.isend);
}

// ---- TrimBlockLeft ----

struct LeftTrimCase {
    const char *data;
    int64_t start;
    const char *kept;
    int64_t new_start;
    const char *said;
};

TEST_F(TrimBlockLeft, CutsTheFirstLineUnlessItIsTheHeadOfTheFile)
{
    const char *const cut = "0 <";
    const char *const head = "1 <no need to trim this block.";
    // clang-format off
    const LeftTrimCase cases[] = {
        {"ab|cd|", 0, "ab|cd|", 0, head}, {"", 0, "", 0, head},
        {"ab|cd|", 7, "cd|", 10, cut},    {"|ab|", 7, "ab|", 8, cut},
        {"||", 7, "|", 8, cut},           {"|x", 7, "x", 8, cut},
        {"ab|c", 7, "c", 10, cut},        {"ab||cd", 1, "|cd", 4, cut},
        {"abc|", 7, "abc|", 7, cut},      {"abc", 7, "abc", 7, cut},
        {"|", 7, "|", 7, cut},            {"x", 7, "x", 7, cut},
        {"", 7, "", 7, cut},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.data) + " " + std::to_string(c.start));
        ForgetTrace();
        LogBuf block = Block(c.data, c.start);
        ::TrimBlockLeft(&block);
        EXPECT_EQ(c.kept, Shown(block));
        EXPECT_EQ(c.new_start, block.start);
        EXPECT_EQ((Texts{c.said}), Said("TrimBlockLeft"));
        EXPECT_TRUE(BlockIsSound(block));
    }
}

TEST_F(TrimBlockLeft, MovesTheEndOfAFullBlockWithItsLastLine)
{
    LogBuf block = Block("a|" + std::string(kBlock - 2, 'x'), 5);
    ::TrimBlockLeft(&block);
    EXPECT_EQ(kBlockSize - 2, block.length);
    EXPECT_EQ(kBlock - 2, strlen(block.data)); // the zero behind the block came with it
}

TEST_F(TrimBlockLeft, WithoutABlockOnlySaysSo)
{
    ::TrimBlockLeft(nullptr);
    EXPECT_EQ((Texts{"1 <plogbuf==NULL"}), Said("TrimBlockLeft"));
}

// ---- walks over all blocks ----

// A file of random lines, most of them short, a few longer than a block.
std::string RandomText(std::mt19937 *random, size_t lines)
{
    std::string text;
    for (size_t i = 0; i < lines; ++i) {
        const bool is_long = (*random)() % 200 == 0;
        const size_t length = (*random)() % (is_long ? 50000 : 300);
        text += std::string(length, static_cast<char>('a' + i % 26)) + "\n";
    }
    if ((*random)() % 2 == 0)
        text.pop_back();
    return text;
}

TEST_F(GetNextBlock, OverAWholeFileLeavesNoGapAndNoOverlap)
{
    std::mt19937 random = Random(401);
    for (int round = 0; round < 10; ++round) {
        const std::string text = RandomText(&random, 400);
        OpenOldLog(text);
        std::string read(curblock.data, static_cast<size_t>(curblock.length));
        while (curblock.isend == kBlockInside) {
            const int64_t end = curblock.start + curblock.length;
            ASSERT_LT(0, ::GetNextBlock(&curblock));
            ASSERT_EQ(end, curblock.start);
            ASSERT_TRUE(BlockIsSound(curblock));
            const std::string piece(curblock.data, static_cast<size_t>(curblock.length));
            EXPECT_TRUE(curblock.isend == kBlockAtEnd || piece.back() == '\0' ||
                        piece.find('\0') == std::string::npos);
            read += piece;
        }
        EXPECT_EQ(WithZeroLineEnds(text), read);
    }
}

TEST_F(GetPreBlock, OverAWholeFileLeavesNoGapAndNoOverlap)
{
    std::mt19937 random = Random(402);
    for (int round = 0; round < 10; ++round) {
        const std::string text = WithZeroLineEnds(RandomText(&random, 400));
        WriteOldLog(text);
        Open();
        LoadAt(filelen - 1);
        std::string read = text.substr(text.size() - 1);
        while (curblock.start > 0) {
            const int64_t end = curblock.start;
            ASSERT_LT(0, ::GetPreBlock(&curblock));
            ASSERT_EQ(end, curblock.start + curblock.length);
            ASSERT_TRUE(BlockIsSound(curblock));
            const std::string piece(curblock.data, static_cast<size_t>(curblock.length));
            EXPECT_TRUE(curblock.start == 0 ||
                        text[static_cast<size_t>(curblock.start) - 1] == '\0' ||
                        piece.find('\0') >= piece.size() - 1);
            read.insert(0, piece);
        }
        EXPECT_EQ(text, read);
    }
}

} // namespace
