#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"

namespace {

using test::EventSpec;
using test::Host;
using test::kAllHours;
using test::Strings;
using test::Sys;
using test::TraceRecord;

constexpr int64_t kBlock = 16384;

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));

std::string Format(const char *format, ...)
{
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// A file that is open in filedata, as in the middle of a pass.
class OpenWatch : public test::FileMonitorTest {
  protected:
    void Open(const std::string &text)
    {
        WriteLog("app.log", text);
        SetWatchedPath("/var/log/app.log");
        ASSERT_EQ(TRUE, InitFileMonObj());
        Host().ForgetRecords();
        Sys().ForgetCalls();
    }

    static bool BlockIsClear()
    {
        const std::string zero(sizeof filedata.data, '\0');
        return filedata.start == 0 && filedata.length == 0 && filedata.linepos == 0 &&
               filedata.isend == 0 && filedata.overlong == 0 &&
               zero == std::string(filedata.data, sizeof filedata.data);
    }
};

// ---- the block reader ----

class FileBlock : public OpenWatch {
  protected:
    static Strings Own() { return RecordsOf("GetFileBlock"); }

    // A block that differs from a cleared one in every field.
    static void SpoilBlock()
    {
        filedata.start = 11;
        filedata.length = 12;
        filedata.linepos = 13;
        filedata.isend = 1;
        filedata.overlong = 1;
        memset(filedata.data, 'z', sizeof filedata.data);
    }

    static bool BlockIsSpoilt()
    {
        return filedata.start == 11 && filedata.length == 12 && filedata.linepos == 13 &&
               filedata.isend == 1 && filedata.overlong == 1 && filedata.data[0] == 'z' &&
               filedata.data[sizeof filedata.data - 1] == 'z';
    }
};

TEST_F(FileBlock, HoldsTheBytesFromItsOffsetToTheEnd)
{
    Open("0123456789");
    SpoilBlock();
    EXPECT_EQ(7, GetFileBlock(3, kBlock));
    EXPECT_EQ(3, filedata.start);
    EXPECT_EQ(7, filedata.length);
    EXPECT_EQ(0, filedata.linepos);
    EXPECT_EQ(1U, filedata.isend);
    EXPECT_EQ(1, filedata.overlong); // it is the line's, not the block's
    EXPECT_EQ("3456789" + std::string(sizeof filedata.data - 7, '\0'),
              std::string(filedata.data, sizeof filedata.data));
    EXPECT_EQ(Strings{"0 GetFileBlock success, from 3 to 10."}, Own());
    EXPECT_EQ(1, Host().Traced(0, ">pos=3,leng=16384"));
}

TEST_F(FileBlock, HoldsABlockOfALongerFile)
{
    std::string text;
    for (int i = 0; text.size() < 40000; ++i)
        text += std::to_string(i) + ",";
    Open(text);
    EXPECT_EQ(kBlock, GetFileBlock(100, kBlock));
    EXPECT_EQ(0U, filedata.isend);
    EXPECT_EQ(text.substr(100, kBlock) + std::string(8, '\0'),
              std::string(filedata.data, sizeof filedata.data));
    EXPECT_EQ(kBlock, GetFileBlock(100, 1000000)); // never more than a block
    EXPECT_EQ(3329, GetFileBlock(100, 3329));
    EXPECT_EQ(0U, filedata.isend);
    EXPECT_EQ(text.substr(100, 3329), filedata.data);
}

TEST_F(FileBlock, ReachesTheEndWhenWhatIsLeftFits)
{
    Open(std::string(20000, 'x'));
    EXPECT_EQ(kBlock, GetFileBlock(20000 - kBlock - 1, kBlock));
    EXPECT_EQ(0U, filedata.isend);
    EXPECT_EQ(kBlock, GetFileBlock(20000 - kBlock, kBlock));
    EXPECT_EQ(1U, filedata.isend);
    EXPECT_EQ(kBlock - 1, GetFileBlock(20000 - kBlock + 1, kBlock));
    EXPECT_EQ(1U, filedata.isend);
    EXPECT_EQ(5000, GetFileBlock(15000, 5000));
    EXPECT_EQ(1U, filedata.isend);
    EXPECT_EQ(4999, GetFileBlock(15000, 4999));
    EXPECT_EQ(0U, filedata.isend);
}

TEST_F(FileBlock, AtTheEndOfTheFileIsNoneAndTheOldOneStays)
{
    Open("0123456789");
    SpoilBlock();
    EXPECT_EQ(0, GetFileBlock(10, kBlock));
    EXPECT_TRUE(BlockIsSpoilt());
    EXPECT_EQ(Strings{"0 <the end of the file, return 0."}, Own());
    EXPECT_EQ(0, Sys().Calls("fseek"));
}

TEST_F(FileBlock, OutsideTheFileIsAnError)
{
    Open("0123456789");
    SpoilBlock();
    EXPECT_EQ(-1, GetFileBlock(-1, kBlock));
    EXPECT_EQ(-1, GetFileBlock(11, kBlock));
    EXPECT_EQ(
        (Strings{"1 <parameter error, pos is -1, filedata.filestat.st_size is 10,return -1.",
                 "1 <parameter error, pos is 11, filedata.filestat.st_size is 10,return -1."}),
        Own());
    EXPECT_TRUE(BlockIsSpoilt());
}

TEST_F(FileBlock, WithoutAnOpenFileIsAnError)
{
    SpoilBlock();
    filedata.filestat.st_size = 5;
    EXPECT_EQ(-1, GetFileBlock(2, kBlock));
    EXPECT_EQ((Strings{"1  filefp is NULL",
                       "1 <parameter error, pos is 2, filedata.filestat.st_size is 5,return -1."}),
              Own());
    EXPECT_TRUE(BlockIsSpoilt());
}

TEST_F(FileBlock, SmallerThanALineIsAnError)
{
    Open("0123456789");
    SpoilBlock();
    for (const long length : {3328L, 0L, -1L, LONG_MIN}) {
        Host().ForgetRecords();
        EXPECT_EQ(-1, GetFileBlock(0, length));
        EXPECT_EQ(Strings{Format("1 <parameter error, length is %ld, return -1.", length)}, Own());
    }
    EXPECT_EQ(-1, GetFileBlock(10, 3328)); // looked at before the end of the file
    EXPECT_TRUE(BlockIsSpoilt());
}

TEST_F(FileBlock, ThatCannotBeSoughtIsASystemFailureAndLeavesItClear)
{
    Open("0123456789");
    SpoilBlock();
    Sys().FailCall("fseek", 1, EIO);
    EXPECT_EQ(-1, GetFileBlock(4, kBlock));
    EXPECT_EQ(Strings{"2 <fseek error, pos 4, error code is 5.return -1."}, Own());
    EXPECT_TRUE(BlockIsClear());
}

TEST_F(FileBlock, ThatCannotBeReadIsASystemFailure)
{
    Open(std::string(20000, 'x'));
    SpoilBlock();
    Sys().FailCall("fread", 1);
    EXPECT_EQ(-1, GetFileBlock(0, kBlock));
    EXPECT_EQ(Strings{"2 <read file ERROR,  0 BYTES readed, the error is 0.return -1."}, Own());
    EXPECT_TRUE(BlockIsClear());
    Host().ForgetRecords();
    SpoilBlock();
    Sys().FailCall("fread", 1);
    EXPECT_EQ(-1, GetFileBlock(10000, kBlock));
    EXPECT_EQ(Strings{"2 <read file ERROR,  0 BYTES readed. the error is 0.return -1."}, Own());
    EXPECT_TRUE(BlockIsClear());
}

// A folder can be opened for reading, but not read.
TEST_F(FileBlock, ThatCannotBeReadClearsTheErrorOfTheStream)
{
    filedata.filefp = fdopen(open("/", O_RDONLY | O_CLOEXEC), "r");
    ASSERT_NE(nullptr, filedata.filefp);
    filedata.filestat.st_size = 20000;
    EXPECT_EQ(-1, GetFileBlock(0, kBlock));
    EXPECT_EQ(0, ferror(filedata.filefp));
    EXPECT_EQ(-1, GetFileBlock(19000, kBlock));
    EXPECT_EQ(0, ferror(filedata.filefp));
    EXPECT_EQ((Strings{"2 <read file ERROR,  0 BYTES readed, the error is 1.return -1.",
                       "2 <read file ERROR,  0 BYTES readed. the error is 1.return -1."}),
              Own());
}

TEST_F(FileBlock, OfAFileThatShrankIsShorter)
{
    Open(std::string(40000, 'x'));
    WriteLog("app.log", std::string(10000, 'y'));
    EXPECT_EQ(9000, GetFileBlock(1000, kBlock)); // expected to be a whole one
    EXPECT_EQ(0U, filedata.isend);
    EXPECT_EQ(std::string(9000, 'y'), filedata.data);
    filedata.filestat.st_size = 12000;
    EXPECT_EQ(9000, GetFileBlock(1000, kBlock)); // expected to reach the end
    EXPECT_EQ(1U, filedata.isend);
    EXPECT_EQ(0, GetFileBlock(11000, kBlock)); // nothing is left
    EXPECT_EQ(0, filedata.length);
    EXPECT_EQ(11000, filedata.start);
    EXPECT_EQ(1, Host().Traced(0, "GetFileBlock success, from 11000 to 11000."));
}

// ---- the line splitter ----

class FileLine : public OpenWatch {
  protected:
    static Strings Own() { return RecordsOf("GetFileNextLine"); }

    // Steps to the next line and checks its count and its text, up to the text's end.
    void ExpectLine(long count, const std::string &text)
    {
        EXPECT_EQ(count, GetFileNextLine(line_, sizeof line_));
        EXPECT_EQ(text, std::string(line_, strnlen(line_, sizeof line_)));
        // The rest of the buffer is zero, whatever it held.
        EXPECT_EQ(std::string(sizeof line_ - text.size(), '\0'),
                  std::string(line_ + text.size(), line_ + sizeof line_));
        memset(line_, '?', sizeof line_);
    }

    void ExpectEnd(int64_t offset)
    {
        EXPECT_EQ(0, GetFileNextLine(line_, sizeof line_));
        EXPECT_EQ(offset, filedata.offset);
        EXPECT_EQ(offset, StoredOffset());
        EXPECT_EQ("0 <end of file, return 0.", Own().back());
    }

    char line_[kFileLineBufferSize] = {};
};

TEST_F(FileLine, IsDeliveredOneAfterTheOther)
{
    Open("abc\n\nde\n");
    ExpectLine(4, "abc");
    EXPECT_EQ(4, filedata.offset);
    EXPECT_EQ((Strings{"0 GetFileNextLine begin from offset 0!",
                       "0 <GetFileNextLine success, the linelength is 4!"}),
              Own());
    ExpectLine(1, "");
    EXPECT_EQ(5, filedata.offset);
    ExpectLine(3, "de");
    EXPECT_EQ(8, filedata.offset);
    EXPECT_EQ(1, Host().Traced(0, "GetFileNextLine begin from offset 5!"));
    EXPECT_TRUE(Host().calls.empty()); // the offset is stored at the end of the file only
    ExpectEnd(8);
}

TEST_F(FileLine, LeavesItsEntryMark)
{
    Open("abc\n");
    GetFileNextLine(line_, sizeof line_);
    EXPECT_EQ(1, Host().Traced(0, Format(">pcontent=%p,size=3330", static_cast<void *>(line_))));
}

TEST_F(FileLine, BeginsAtTheOffset)
{
    Open("abc\ndef\nghi\n");
    filedata.offset = 4;
    ExpectLine(4, "def");
    EXPECT_EQ(8, filedata.offset);
    ExpectLine(4, "ghi");
    ExpectEnd(12);
}

TEST_F(FileLine, ThatIsUnfinishedIsNotDelivered)
{
    Open("abc\nde");
    ExpectLine(4, "abc");
    ExpectEnd(4);
    EXPECT_EQ(Strings(2, "RegWrite"), Host().calls);
    ExpectEnd(4); // asked again
}

TEST_F(FileLine, KeepsItsCarriageReturn)
{
    Open("abc\r\n\r\n");
    ExpectLine(5, "abc\r");
    ExpectLine(2, "\r");
}

TEST_F(FileLine, IsCutAtAZeroByteButCountedWhole)
{
    Open(std::string("de\0fg\n\0\nhi\n", 11));
    ExpectLine(6, "de");
    ExpectLine(2, "");
    ExpectLine(3, "hi");
    ExpectEnd(11);
}

TEST_F(FileLine, AtTheEndOfTheFileStoresTheOffsetAlsoWhenNoBlockIsLoaded)
{
    Open("abc\n");
    filedata.offset = 4;
    ExpectEnd(4);
    EXPECT_EQ((Strings{"0 <end of file, return 0."}), Own());
    EXPECT_EQ(0, filedata.length);
}

TEST_F(FileLine, IgnoresWhetherTheOffsetCouldBeStored)
{
    Open("abc\n");
    Host().FailCall("RegWrite", 1);
    ExpectLine(4, "abc");
    EXPECT_EQ(0, GetFileNextLine(line_, sizeof line_));
    EXPECT_EQ(1, Host().Traced(1, "<Set low bits of offset to registry failed, return FALSE !"));
}

TEST_F(FileLine, NeedsAnOpenFileThatIsNotEmpty)
{
    filedata.filestat.st_size = 10;
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    EXPECT_EQ(Strings{Format("1 <params error, fp is %p, filesize is 10, pcontent is %p.return -1.",
                             static_cast<void *>(nullptr), static_cast<void *>(line_))},
              Own());
    Open("");
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    EXPECT_EQ(Strings{Format("1 <params error, fp is %p, filesize is 0, pcontent is %p.return -1.",
                             static_cast<void *>(filedata.filefp), static_cast<void *>(line_))},
              Own());
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(FileLine, NeedsABuffer)
{
    Open("abc\n");
    EXPECT_EQ(-1, GetFileNextLine(nullptr, sizeof line_));
    EXPECT_EQ(-1, GetFileNextLine(line_, 0));
    ExpectLine(4, "abc");
}

TEST_F(FileLine, IsCutToASmallerBuffer)
{
    Open("abcdef\nghi\n" + std::string(5000, 'x') + "\nend\n");
    char small[4];
    EXPECT_EQ(7, GetFileNextLine(small, sizeof small));
    EXPECT_STREQ("abc", small);
    EXPECT_EQ(4, GetFileNextLine(small, sizeof small));
    EXPECT_STREQ("ghi", small);
    EXPECT_EQ(3329, GetFileNextLine(small, sizeof small));
    EXPECT_STREQ("xxx", small);
    EXPECT_EQ(4, GetFileNextLine(small, 1));
    EXPECT_STREQ("", small);
}

TEST_F(FileLine, WhoseBlockCannotBeLoadedIsAnError)
{
    Open("abc\n");
    Sys().FailCall("fseek", 1);
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    EXPECT_EQ(Strings{"1 <GetFileBlock error.return -1."}, Own());
    filedata.offset = -5;
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    filedata.offset = 5;
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(FileLine, WhoseNextBlockCannotBeLoadedIsAnError)
{
    Open(std::string(kBlock - 10, 'x') + "\n" + std::string(20, 'y') + "\n");
    EXPECT_EQ(3329, GetFileNextLine(line_, sizeof line_));
    Sys().FailCall("fread", 1);
    Host().ForgetRecords();
    EXPECT_EQ(-1, GetFileNextLine(line_, sizeof line_));
    EXPECT_EQ("1 <GetFileNextBlock() failed.return -1.", Own().back());
    EXPECT_TRUE(BlockIsClear());
    EXPECT_EQ(kBlock - 9, filedata.offset);
}

// ---- long lines ----

TEST_F(FileLine, Of3328BytesIsWhole)
{
    const std::string line(3328, 'x');
    Open(line + "\nnext\n");
    ExpectLine(3329, line);
    EXPECT_EQ(1, Host().Traced(0, "<GetFileNextLine success, the linelength is 3329!"));
    EXPECT_EQ(0, Host().Traced("The current line is too long, will be truncated"));
    EXPECT_EQ(0, filedata.overlong);
    ExpectLine(5, "next");
}

TEST_F(FileLine, OfMoreBytesIsItsFirst3328)
{
    for (const size_t length : {3329U, 3330U, 3331U, 6000U, 16383U}) {
        StartOver();
        Open(std::string(3328, 'x') + std::string(length - 3328, 'y') + "\nnext\n");
        ExpectLine(3329, std::string(3328, 'x'));
        EXPECT_EQ((Strings{"0 GetFileNextLine begin from offset 0!",
                           "3 The current line is too long, will be truncated",
                           "3 <over-lengthed line is over, GetFileNextLine success!"}),
                  Own());
        EXPECT_EQ(static_cast<int64_t>(length) + 1, filedata.offset);
        EXPECT_EQ(0, filedata.overlong);
        ExpectLine(5, "next");
        ExpectEnd(static_cast<int64_t>(length) + 6);
    }
}

TEST_F(FileLine, LongerThanBlocksIsCutOnceAndTheRestIsSkipped)
{
    for (const size_t length : {16384U, 16385U, 20000U, 32767U, 32768U, 32769U, 60000U}) {
        StartOver();
        Open("first\n" + std::string(3328, 'x') + std::string(length - 3328, 'y') + "\nnext\n");
        ExpectLine(6, "first");
        ExpectLine(3329, std::string(3328, 'x'));
        EXPECT_EQ(1, Host().Traced(3, "The current line is too long, will be truncated"));
        ExpectLine(5, "next");
        ExpectEnd(static_cast<int64_t>(length) + 12);
    }
}

TEST_F(FileLine, ThatIsLongAndUnfinishedIsNotDelivered)
{
    for (const size_t length : {3330U, 16384U, 40000U}) {
        StartOver();
        Open("first\n" + std::string(length, 'x'));
        ExpectLine(6, "first");
        ExpectEnd(6);
        EXPECT_EQ(1, filedata.overlong);
    }
}

// An over-long line whose buffer copy was taken before a zero byte ends there.
TEST_F(FileLine, ThatIsLongEndsAtAZeroByteToo)
{
    Open("abc" + std::string(1, '\0') + std::string(5000, 'x') + "\nnext\n");
    ExpectLine(3329, "abc");
    ExpectLine(5, "next");
}

// ---- lines across blocks ----

// A line that straddles the edge of a block is counted for its bytes before the edge and again,
// whole, behind it.
TEST_F(FileLine, AcrossABlockEdgeIsCountedTwiceForItsFirstPart)
{
    Open(std::string(kBlock - 101, '.') + "\n" + std::string(200, 'x') + "\nnext\n");
    GetFileNextLine(line_, sizeof line_);
    memset(line_, '?', sizeof line_);
    ExpectLine(100 + 201, std::string(200, 'x'));
    EXPECT_EQ(1, Host().Traced(0, "<GetFileNextLine success, the linelength is 301!"));
    EXPECT_EQ(kBlock - 100 + 201, filedata.offset);
    EXPECT_EQ(kBlock - 100, filedata.start);
    ExpectLine(5, "next");
}

TEST_F(FileLine, AcrossABlockEdgeIsOverLongWhenTheSumIs)
{
    for (const int64_t before : {1, 2, 100, 1000, 1663, 1664}) {
        const auto longest = static_cast<size_t>(3328 - before); // so that the sum is 3329
        for (const size_t length : {longest, longest + 1}) {
            SCOPED_TRACE(std::to_string(before) + " " + std::to_string(length));
            StartOver();
            const std::string rest(4000, 'r');
            Open(std::string(static_cast<size_t>(kBlock - before - 1), '.') + "\n" +
                 std::string(length, 'x') + "\n" + rest + "\n");
            GetFileNextLine(line_, sizeof line_);
            memset(line_, '?', sizeof line_);
            if (length == longest) {
                ExpectLine(3329, std::string(length, 'x'));
            } else {
                // What is copied runs past the line feed, which is still there at that moment.
                const std::string behind = std::string(length, 'x') + "\n" + rest;
                ExpectLine(3329, behind.substr(0, 3328));
            }
            ExpectLine(3329, rest.substr(0, 3328)); // and is a line of its own afterwards
        }
    }
}

TEST_F(FileLine, ThatEndsOnTheEdgeOfABlockIsFollowedByTheNextBlock)
{
    for (const int64_t end : {kBlock - 2, kBlock - 1, kBlock, kBlock + 1, kBlock + 2}) {
        SCOPED_TRACE(end);
        StartOver();
        // Ten lines of 100 bytes behind one that fills up to them.
        std::string text = std::string(static_cast<size_t>(end - 1001), '.') + "\n";
        for (int i = 0; i < 10; ++i)
            text += std::string(99, static_cast<char>('a' + i)) + "\n";
        Open(text + "next\n");
        GetFileNextLine(line_, sizeof line_);
        memset(line_, '?', sizeof line_);
        for (int i = 0; i < 9; ++i)
            ExpectLine(100, std::string(99, static_cast<char>('a' + i)));
        // The last one lies across the edge in the last two cases: 99 or 98 bytes of it before.
        const long again = end > kBlock ? kBlock - (end - 100) : 0;
        ExpectLine(100 + again, std::string(99, 'j'));
        // Behind it, what the block holds of the next line is counted twice.
        const long part = end < kBlock ? kBlock - end : 0;
        ExpectLine(5 + part, "next");
        ExpectEnd(end + 5);
    }
}

// ---- files that change under the reader ----

TEST_F(FileLine, IsReadUpToTheSizeThatTheFileHadAtFirst)
{
    Open("abc\nde");
    AppendLog("app.log", "f\nghi\n");
    ExpectLine(4, "abc");
    ExpectEnd(4);
}

TEST_F(FileLine, OfAFileThatShrankEndsWithTheFile)
{
    Open(std::string(50000, 'x') + "\n");
    WriteLog("app.log", "abc\nunfinished");
    ExpectLine(4, "abc");
    ExpectEnd(4);
}

// ---- against the obvious splitter ----

// A file monitor that goes byte by byte, on a file in memory.
class ObviousSplitter {
  public:
    std::string file; // as it is now
    int64_t size = 0; // as it was when the pass began
    int64_t offset = 0;
    int64_t start = 0;
    int64_t length = 0;
    int64_t linepos = 0;
    uint32_t isend = 0;
    int32_t overlong = 0;
    std::string data = std::string(16392, '\0');
    std::string buffer = std::string(3330, '?'); // the caller's
    Strings records;

    long NextLine(const void *shown)
    {
        Record(0, Format(">pcontent=%p,size=%d", shown, 3330));
        if (length == 0) {
            const long got = Block(offset, kBlock);
            if (got < 0)
                return Fail("<GetFileBlock error.return -1.");
            if (got == 0)
                return End();
        }
        Record(0, Format("GetFileNextLine begin from offset %lld!",
                         static_cast<long long>(start + linepos)));
        buffer.assign(3330, '\0');
        long count = 0;
        for (;;) {
            for (int64_t i = linepos; i < length; ++i) {
                if (count == 3329) {
                    CopyString(3328);
                    overlong = 1;
                    Record(3, "The current line is too long, will be truncated");
                }
                ++count;
                if (data[static_cast<size_t>(i)] == '\n')
                    return Deliver(i, count);
            }
            if (isend != 0)
                return End();
            if (overlong != 0)
                linepos = length;
            const long got = Block(start + linepos, kBlock);
            if (got < 0)
                return Fail("<GetFileNextBlock() failed.return -1.");
            if (got == 0)
                return End();
        }
    }

  private:
    void Record(int level, const std::string &text)
    {
        records.push_back(std::to_string(level) + " " + text);
    }

    long Fail(const char *text)
    {
        Record(1, text);
        return -1;
    }

    long End()
    {
        Record(0, "<end of file, return 0.");
        return 0;
    }

    // Like strncpy from the pending line.
    void CopyString(size_t most)
    {
        const auto begin = static_cast<size_t>(linepos);
        bool ended = false;
        for (size_t i = 0; i < most; ++i) {
            ended = ended || data[begin + i] == '\0';
            buffer[i] = ended ? '\0' : data[begin + i];
        }
    }

    long Deliver(int64_t feed, long count)
    {
        data[static_cast<size_t>(feed)] = '\0';
        offset = start + feed + 1;
        if (overlong == 1) {
            linepos = feed + 1;
            overlong = 0;
            Record(3, "<over-lengthed line is over, GetFileNextLine success!");
            return 3329;
        }
        for (size_t i = 0;; ++i) {
            const char c = data[static_cast<size_t>(linepos) + i];
            buffer[i] = c;
            if (c == '\0')
                break;
        }
        linepos = feed + 1;
        Record(0, Format("<GetFileNextLine success, the linelength is %ld!", count));
        return count;
    }

    long Block(int64_t pos, long leng)
    {
        Record(0, Format(">pos=%lld,leng=%ld", static_cast<long long>(pos), leng));
        if (pos < 0 || pos > size) {
            return Fail(Format("<parameter error, pos is %lld, filedata.filestat.st_size is "
                               "%lld,return -1.",
                               static_cast<long long>(pos), static_cast<long long>(size))
                            .c_str());
        }
        if (pos == size) {
            Record(0, "<the end of the file, return 0.");
            return 0;
        }
        const int64_t want = std::min<int64_t>(leng, kBlock);
        isend = want < size - pos ? 0 : 1;
        const auto there = std::max<int64_t>(static_cast<int64_t>(file.size()) - pos, 0);
        length = std::min({want, size - pos, there});
        start = pos;
        linepos = 0;
        data.assign(16392, '\0');
        if (length > 0)
            data.replace(0, static_cast<size_t>(length), file, static_cast<size_t>(pos),
                         static_cast<size_t>(length));
        Record(0, Format("GetFileBlock success, from %lld to %lld.", static_cast<long long>(pos),
                         static_cast<long long>(pos + length)));
        return length;
    }
};

class FileLineModel : public OpenWatch {
  protected:
    static size_t RandomLength(std::mt19937 &random)
    {
        switch (random() % 10) {
        case 0:
            return 3326 + (random() % 7);
        case 1:
            return 16380 + (random() % 11);
        case 2:
            return random() % 4000;
        case 3:
            return 1660 + (random() % 10); // twice that is about the longest line
        case 4:
            return random() % 3 == 0 ? 16380 + (random() % 20000) : 0;
        default:
            return random() % 80;
        }
    }

    static std::string RandomFile(std::mt19937 &random)
    {
        std::string text;
        if (random() % 2 == 0) // something that brings the lines to the edge of a block
            text = std::string(kBlock - 1 - (random() % 7000), '.') + "\n";
        for (auto lines = random() % 12; lines > 0; --lines) {
            std::string line(RandomLength(random), ' ');
            for (size_t i = 0; i < line.size(); ++i)
                line[i] = static_cast<char>('a' + ((i * 7 + lines) % 26));
            if (!line.empty() && random() % 8 == 0)
                line[random() % line.size()] = '\0';
            if (random() % 16 == 0)
                line += '\r';
            text += line + "\n";
        }
        if (random() % 3 == 0) // an unfinished line
            text += std::string(RandomLength(random), 'u');
        return text;
    }

    static Strings SplitterRecords()
    {
        Strings list;
        for (const TraceRecord &record : Host().trace) {
            if (record.function == "GetFileNextLine" || record.function == "GetFileBlock")
                list.push_back(std::to_string(record.level) + " " + record.text);
        }
        return list;
    }

    // One step of both. False at the end of the file or after a failure.
    static bool StepBoth(ObviousSplitter *obvious, char *line)
    {
        Host().ForgetRecords();
        obvious->records.clear();
        const long expected = obvious->NextLine(line);
        const long count = GetFileNextLine(line, kFileLineBufferSize);
        EXPECT_EQ(expected, count);
        EXPECT_EQ(obvious->buffer, std::string(line, kFileLineBufferSize));
        EXPECT_EQ(obvious->records, SplitterRecords());
        EXPECT_EQ(obvious->offset, filedata.offset);
        EXPECT_EQ(obvious->start, filedata.start);
        EXPECT_EQ(obvious->length, filedata.length);
        EXPECT_EQ(obvious->linepos, filedata.linepos);
        EXPECT_EQ(obvious->isend, filedata.isend);
        EXPECT_EQ(obvious->overlong, filedata.overlong);
        EXPECT_TRUE(obvious->data == std::string(filedata.data, sizeof filedata.data));
        if (expected == 0) {
            EXPECT_EQ(obvious->offset, StoredOffset());
        }
        return expected > 0 && !HasFailure();
    }

    // Splits one file, which may have another length by now than when it was opened.
    void ExpectAsObvious(std::mt19937 &random)
    {
        ObviousSplitter obvious;
        const std::string text = RandomFile(random);
        Open(text);
        obvious.size = static_cast<int64_t>(text.size());
        obvious.file = text;
        if (random() % 10 == 0)
            obvious.file = text.substr(0, random() % (text.size() + 1)); // it shrank
        else if (random() % 10 == 0)
            obvious.file += "grown\n" + RandomFile(random);
        if (obvious.file != text)
            WriteLog("app.log", obvious.file);
        if (random() % 4 == 0)
            obvious.offset = static_cast<int64_t>(random() % (text.size() + 3)) - 1;
        filedata.offset = obvious.offset;
        if (text.empty())
            return;
        std::vector<char> line(kFileLineBufferSize, '?');
        while (StepBoth(&obvious, line.data())) {
        }
        StepBoth(&obvious, line.data()); // once more, at the end
    }
};

TEST_F(FileLineModel, AgreesWithTheObviousSplitterOnRandomFiles)
{
    for (uint32_t seed = 1; seed <= 2500; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        StartOver();
        ExpectAsObvious(random);
        ASSERT_FALSE(HasFailure());
    }
}

// Where a line of that length can begin before the edge of a block: every place at which its head
// or its end lies near the edge, every place at which the count does at the limit, and some
// between.
std::vector<int64_t> PlacesAround(int64_t length)
{
    std::vector<int64_t> places;
    for (int64_t before = -3; before <= length + 4; ++before) {
        const int64_t sum = before + length + 1;
        if (before < 8 || before > length - 8 || (sum > 3320 && sum < 3340) || before % 97 == 0)
            places.push_back(before);
    }
    return places;
}

// For lines around the lengths that matter.
TEST_F(FileLineModel, AgreesWithTheObviousSplitterAroundTheEdgeOfABlock)
{
    for (const int64_t length : {0, 1, 5, 1663, 1664, 1665, 3326, 3327, 3328, 3329, 3330, 3331}) {
        for (const int64_t before : PlacesAround(length)) {
            SCOPED_TRACE(std::to_string(length) + " " + std::to_string(before));
            StartOver();
            // The line begins `before` bytes before the edge.
            const std::string text = std::string(static_cast<size_t>(kBlock - before - 1), '.') +
                                     "\n" + std::string(static_cast<size_t>(length), 'x') +
                                     "\nsecond\n" + std::string(3400, 'y') + "\nlast\nunfinished";
            ObviousSplitter obvious;
            Open(text);
            obvious.file = text;
            obvious.size = static_cast<int64_t>(text.size());
            std::vector<char> line(kFileLineBufferSize, '?');
            while (StepBoth(&obvious, line.data())) {
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

// ---- the matcher ----

class FileMatch : public test::FileMonitorTest {
  protected:
    static VKVMon *Watch(const std::array<std::string, 3> &keywords, uint32_t report_count = 1)
    {
        EventSpec event;
        event.keywords = keywords;
        event.report_count = report_count;
        return AddEntry(event);
    }

    static bool Reports(const std::string &line)
    {
        Host().ForgetRecords();
        EXPECT_EQ(TRUE, CheckFileLine(line.c_str()));
        return !Host().reports.empty();
    }

    static Strings Own() { return RecordsOf("CheckFileLine"); }
};

TEST_F(FileMatch, AsksForNoStamp)
{
    Watch({"", "", ""});
    EXPECT_TRUE(Reports("no stamp"));
    EXPECT_TRUE(Reports(""));
    EXPECT_TRUE(Reports("Jan 99 of a month that is far away"));
}

TEST_F(FileMatch, TakesTheAgentsOwnLines)
{
    Watch({"", "", ""});
    EXPECT_TRUE(Reports("TARSKvkvmain: x"));
}

TEST_F(FileMatch, TracesALineWithoutAHit)
{
    Watch({"x", "", ""});
    const char *line = "100% other";
    EXPECT_EQ(TRUE, CheckFileLine(line));
    EXPECT_EQ((Strings{"0 line \"100% other\" is being checked\n", "0 <return 0."}), Own());
    EXPECT_EQ(1, Host().Traced(0, Format(">line=%p", static_cast<const void *>(line))));
}

TEST_F(FileMatch, TracesALineOfAnEmptyTable)
{
    EXPECT_EQ(TRUE, CheckFileLine("x"));
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n", "0 <return 0."}), Own());
    nCnt = -1;
    EXPECT_EQ(TRUE, CheckFileLine("x"));
    nCnt = 0;
}

TEST_F(FileMatch, NeedsAllKeywords)
{
    Watch({"alpha", "beta", "gamma"});
    EXPECT_TRUE(Reports("gamma beta alpha"));
    EXPECT_FALSE(Reports("alpha beta"));
    EXPECT_FALSE(Reports("alpha gamma"));
    EXPECT_FALSE(Reports("beta gamma"));
    EXPECT_FALSE(Reports("ALPHA beta gamma"));
    EXPECT_FALSE(Reports(""));
}

TEST_F(FileMatch, TakesAnEmptyLineForEntriesWithoutKeywordsOnly)
{
    Watch({"", "x", ""});
    EXPECT_FALSE(Reports(""));
    Watch({"", "", ""});
    EXPECT_TRUE(Reports(""));
    EXPECT_EQ(1U, Host().reports.size());
}

TEST_F(FileMatch, KnowsNoExpressionsWhateverTheServer)
{
    IsFTServer = 1;
    Watch({"err.r", "", ""});
    EXPECT_FALSE(Reports("error"));
    EXPECT_EQ((Strings{"0 line \"error\" is being checked\n", "0 <return 0."}), Own());
    EXPECT_TRUE(Reports("err.r"));
}

TEST_F(FileMatch, CountsEachLineOnce)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    std::vector<size_t> reports;
    for (int i = 0; i < 5; ++i) {
        CheckFileLine("x last message repeated 10 times");
        reports.push_back(Host().reports.size());
    }
    EXPECT_EQ((std::vector<size_t>{0, 1, 1, 2, 2}), reports);
    EXPECT_EQ(1, entry->CurrentCount);
}

TEST_F(FileMatch, IsAskedForTheHourAndTheReportCount)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    entry->WatchTime = kAllHours & ~(1U << 12U);
    EXPECT_FALSE(Reports("x"));
    EXPECT_EQ(0, entry->CurrentCount);
    entry->WatchTime = 1U << 12U;
    EXPECT_FALSE(Reports("x"));
    EXPECT_EQ(1, entry->CurrentCount);
    for (const int32_t count : {0, -1, INT_MIN}) {
        entry->ReportCount = count;
        EXPECT_FALSE(Reports("x"));
        EXPECT_EQ(1, entry->CurrentCount);
        EXPECT_EQ(0, Host().Traced("found a match!"));
        EXPECT_EQ(1, Host().Traced("<return 1")); // the hour is asked for first
    }
}

TEST_F(FileMatch, StopsCountingAtTheLimitOfTheCounter)
{
    VKVMon *entry = Watch({"x", "", ""}, INT_MAX);
    entry->CurrentCount = INT_MAX;
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1, Host().Traced(0, "curnum = 2147483647, repnum = 2147483647."));
}

TEST_F(FileMatch, TracesAHitThatIsKept)
{
    Watch({"x", "", ""}, 2);
    CheckFileLine("x");
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n", "0 found a match!",
                       "0 curnum = 1, repnum = 2.", "0 <return 0."}),
              Own());
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(FileMatch, TracesAHitThatIsReportedWithThePlaceOfTheNextLine)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "8000abcd";
    AddEntry(event);
    filedata.start = 0x100000000;
    filedata.linepos = 42;
    CheckFileLine("100% x");
    EXPECT_EQ((Strings{"0 line \"100% x\" is being checked\n", "0 found a match!",
                       "0 curnum = 1, repnum = 1.",
                       "3 Report 100% x, the next line's offset is 4294967338",
                       "3 REPORT: Source=SRC1, EventID=0x8000ABCD", "0 <return 0."}),
              Own());
}

TEST_F(FileMatch, ReportSaysWhatWasHit)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "12345678";
    const VKVMon *entry = AddEntry(event);
    bool looked = false;
    Host().on_report = [&](const ReportRequest &request) {
        looked = true;
        EXPECT_STREQ("Application", request.logName);
        EXPECT_EQ(entry->Source, request.source);
        EXPECT_EQ(0x12345678U, request.eventId);
        EXPECT_STREQ("the line", request.strings[0]);
        const std::string rest(request.strings[0] + 8, request.strings[0] + 3329);
        EXPECT_EQ(std::string(3329 - 8, '\0'), rest);
    };
    EXPECT_TRUE(Reports("the line"));
    EXPECT_TRUE(looked);
    EXPECT_TRUE(Host().reports.at(0).other_fields_are_zero);
}

TEST_F(FileMatch, ConvertsTheMessageThenSetsTheCountBackThenReports)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    entry->CurrentCount = 1;
    std::vector<int> counts;
    Host().convert = [&](const std::string &text, int from, int to) {
        counts.push_back(entry->CurrentCount);
        EXPECT_EQ("x", text);
        EXPECT_EQ(1, from);
        EXPECT_EQ(0, to);
        return std::string(9000, 'u');
    };
    Host().on_report = [&](const ReportRequest &) { counts.push_back(entry->CurrentCount); };
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ((std::vector<int>{2, 0}), counts);
    EXPECT_EQ(std::string(3328, 'u'), Host().reports.at(0).message);
}

TEST_F(FileMatch, OfTheFaultTolerantSourceIsDroppedWhileItIsWithheld)
{
    EventSpec event;
    event.source = "FTREPORT";
    event.report_count = 2;
    VKVMon *entry = AddEntry(event);
    event.source = "FTREPORT2";
    event.report_count = 1;
    AddEntry(event);
    CheckFileLine("x");
    EXPECT_EQ(1, entry->CurrentCount);
    Host().ForgetRecords();
    CheckFileLine("x");
    EXPECT_EQ(0, entry->CurrentCount);
    ASSERT_EQ(1U, Host().reports.size());
    EXPECT_EQ("FTREPORT2", Host().reports[0].source);
    report_ft = 1;
    CheckFileLine("x");
    CheckFileLine("x");
    EXPECT_EQ(1, Host().Traced(3, "REPORT: Source=FTREPORT, EventID=0x1"));
}

TEST_F(FileMatch, HitsEntriesInTableOrder)
{
    Strings sources;
    for (const char *source : {"C", "A", "B"}) {
        EventSpec event;
        event.source = source;
        AddEntry(event);
    }
    EXPECT_TRUE(Reports("x"));
    for (const auto &report : Host().reports)
        sources.push_back(report.source);
    EXPECT_EQ((Strings{"C", "A", "B"}), sources);
}

TEST_F(FileMatch, LooksAtTheSizeOfTheTableAfterEachEntry)
{
    Watch({"", "", ""});
    Watch({"", "", ""});
    Watch({"", "", ""});
    Host().on_report = [](const ReportRequest &) { nCnt = 1; };
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1U, Host().reports.size());
    nCnt = 3;
}

TEST_F(FileMatch, EndsAtAnEmptySlotOfTheTable)
{
    Watch({"", "", ""});
    Watch({"", "", ""});
    Watch({"", "", ""});
    VKVMon *second = lpVKVMon[1];
    lpVKVMon[1] = nullptr;
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1U, Host().reports.size());
    EXPECT_EQ("0 <return 0.", Own().back());
    lpVKVMon[1] = second;
}

TEST_F(FileMatch, WithoutAClockIsASystemFailure)
{
    const VKVMon *entry = Watch({"", "", ""});
    Sys().now = -1;
    errno = EOVERFLOW;
    EXPECT_EQ(FALSE, CheckFileLine("x"));
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n",
                       Format("2 <time() return -1, the error code is %d.", EOVERFLOW)}),
              Own());
    EXPECT_EQ(0, entry->CurrentCount);
}

// ---- a pass ----

class FilePass : public test::FileMonitorTest {
  protected:
    // Loads a target that was read up to this offset.
    void Follow(const std::string &text, int64_t offset) const
    {
        WriteLog("app.log", text);
        SetPath("/var/log/app.log");
        StoreInode(InodeOf("app.log"));
        StoreOffset(offset);
        EXPECT_EQ(TRUE, ChangeFileMonObj());
    }

    // The same, read up to its end.
    void Follow(const std::string &text) const { Follow(text, static_cast<int64_t>(text.size())); }

    void Append(const std::string &text) const { AppendLog("app.log", text); }

    // One pass with this result. Gives the lines that were tested.
    static Strings Run(int result = TRUE)
    {
        Host().ForgetRecords();
        Sys().ForgetCalls();
        EXPECT_EQ(result, WatchFileMonObjMain());
        EXPECT_EQ(nullptr, filedata.filefp);
        return TestedLines();
    }

    static Strings TestedLines()
    {
        const std::string begin = "line \"";
        const std::string end = "\" is being checked\n";
        Strings lines;
        for (const TraceRecord &record : Host().trace) {
            if (record.function == "CheckFileLine" && record.text.starts_with(begin))
                lines.push_back(record.text.substr(begin.size(),
                                                   record.text.size() - begin.size() - end.size()));
        }
        return lines;
    }

    static Strings Own() { return RecordsOf("WatchFileMonObjMain"); }

    static void ExpectOffset(int64_t offset)
    {
        EXPECT_EQ(offset, filedata.offset);
        EXPECT_EQ(offset, StoredOffset());
    }

    // Is the file closed before the pass gives its last record?
    static bool ClosedBeforeTheEnd()
    {
        const auto &trace = Host().trace;
        return trace.size() > 2 && trace.back().function == "WatchFileMonObjMain" &&
               trace[trace.size() - 2].function == "FinishFileMonObj";
    }
};

constexpr char kNoNews[] = "0 <file monitoring object's content has not been modified.";
constexpr char kNews[] = "0 <file monitoring object's content has been modified.";
constexpr char kCheck[] = "3 Check file: [/var/log/app.log]";
constexpr char kEnd[] = "0 <Get end of file /var/log/app.log";

TEST_F(FilePass, WithoutATargetIsNothing)
{
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ(Strings{"0 <file monitoring object is empty, ignore."}, Own());
    ASSERT_EQ(2U, Host().trace.size());
    EXPECT_EQ("WatchFileMonObjMain", Host().trace[0].function);
    EXPECT_EQ(">", Host().trace[0].text);
    EXPECT_EQ(0, Host().trace[0].level);
    EXPECT_EQ(0, Sys().Calls("stat"));
}

TEST_F(FilePass, OverAFileThatDoesNotExistFails)
{
    SetPath("/var/log/app.log");
    StoreInode(1);
    StoreOffset(7);
    ChangeFileMonObj();
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ((Strings{"2 <stat /var/log/app.log error, error code is 2. return FALSE.",
                       "1 <Init file /var/log/app.log failed."}),
              NotableRecords());
    EXPECT_EQ(1U, StoredInode());
    ExpectOffset(7);
}

TEST_F(FilePass, OverAnUnchangedFileReadsNothing)
{
    Follow("abc\n");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    EXPECT_EQ(Strings{}, RecordsOf("CheckFileMonObj"));
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_EQ(0, Sys().Calls("fseek"));
    EXPECT_EQ(1, Sys().Calls("open"));
    EXPECT_TRUE(Host().calls.empty());
    EXPECT_TRUE(ClosedBeforeTheEnd());
}

TEST_F(FilePass, TestsTheLinesThatWereAppended)
{
    Follow("abc\n");
    Append("def\n");
    EXPECT_EQ(Strings{"def"}, Run());
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    EXPECT_EQ(
        Strings{"0 <file monitoring object's content has been modified, need to scan documents."},
        RecordsOf("CheckFileMonObj"));
    ExpectOffset(8);
    EXPECT_EQ(8, filedata.lastsize);
    EXPECT_TRUE(ClosedBeforeTheEnd());
    EXPECT_EQ(Strings{}, Run());
    Append("\n\nx\r\n");
    EXPECT_EQ((Strings{"", "", "x\r"}), Run());
    ExpectOffset(13);
}

TEST_F(FilePass, LeavesAnUnfinishedLineUntilItIsComplete)
{
    Follow("abc\n");
    Append("def");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    ExpectOffset(4);
    EXPECT_EQ(7, filedata.lastsize);
    EXPECT_EQ(Strings{}, Run()); // not changed meanwhile
    Append("gh");
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(4);
    Append("i\nj");
    EXPECT_EQ(Strings{"defghi"}, Run());
    ExpectOffset(11);
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{}, Run());
    Append("\n");
    EXPECT_EQ(Strings{"j"}, Run());
}

TEST_F(FilePass, GoesOnAfterARestart)
{
    Follow("abc\n");
    Append("def\n");
    Run();
    Append("ghi\n");
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{"ghi"}, Run());
    ExpectOffset(12);
}

TEST_F(FilePass, CutsALineAt3328Bytes)
{
    for (const size_t length : {3327U, 3328U, 3329U, 3330U, 16384U, 20000U}) {
        StartOver();
        Follow("abc\n");
        Append(std::string(length, 'x') + "\nnext\n");
        EXPECT_EQ((Strings{std::string(std::min<size_t>(length, 3328), 'x'), "next"}), Run());
        ExpectOffset(static_cast<int64_t>(length) + 10);
    }
}

TEST_F(FilePass, ReadsAnOverLongLineAgainThatWasNotFinished)
{
    Follow("abc\n");
    Append(std::string(20000, 'x'));
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(4);
    Append("\nnext\n");
    EXPECT_EQ((Strings{std::string(3328, 'x'), "next"}), Run());
}

TEST_F(FilePass, LeavesWhatIsWrittenDuringItForTheNextOne)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\n");
    Host().on_report = [this](const ReportRequest &) {
        if (Host().reports.size() == 1)
            Append("ghi\n");
    };
    EXPECT_EQ(Strings{"def"}, Run());
    ExpectOffset(8);
    EXPECT_EQ(Strings{"ghi"}, Run());
}

TEST_F(FilePass, StoresTheOffsetAtTheEndOnly)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\nghi\n");
    std::vector<std::pair<int64_t, int64_t>> offsets; // in memory, stored
    Host().on_report = [&](const ReportRequest &) {
        offsets.emplace_back(filedata.offset, StoredOffset());
    };
    Run();
    EXPECT_EQ((std::vector<std::pair<int64_t, int64_t>>{{8, 4}, {12, 4}}), offsets);
    EXPECT_EQ((Strings{"TarskCodeConvert", "VKMonitorCall", "TarskCodeConvert", "VKMonitorCall",
                       "RegWrite", "RegWrite"}),
              Host().calls);
    ExpectOffset(12);
    EXPECT_EQ(1, Host().Traced(3, "Report def, the next line's offset is 8"));
    EXPECT_EQ(1, Host().Traced(3, "Report ghi, the next line's offset is 12"));
}

TEST_F(FilePass, KeepsThePathThatWasLoaded)
{
    Follow("abc\n");
    WriteLog("other.log", "other\n");
    SetPath("/var/log/other.log");
    Append("def\n");
    EXPECT_EQ(Strings{"def"}, Run());
    EXPECT_EQ(Strings{}, Run());
}

TEST_F(FilePass, TakesAnEqualSizeForUnchangedContent)
{
    Follow("abc\n");
    WriteLog("app.log", "xyz\n");
    EXPECT_EQ(Strings{}, Run());
    WriteLog("app.log", "1\n2\n3\n4\n"); // rewritten, and longer: read on from the old offset
    EXPECT_EQ((Strings{"3", "4"}), Run());
}

// ---- a file that shrank ----

TEST_F(FilePass, OverAFileThatShrankMovesToItsEnd)
{
    Follow("abc\ndef\nghi\n");
    WriteLog("app.log", "new\n");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    EXPECT_EQ((Strings{"3 file monitoring object's content has been unexpectly modified.",
                       "3 <Set offset to EOF(4)."}),
              RecordsOf("CheckFileMonObj"));
    ExpectOffset(4);
    EXPECT_EQ(4, filedata.lastsize);
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_TRUE(ClosedBeforeTheEnd());
    Append("next\n");
    EXPECT_EQ(Strings{"next"}, Run());
}

TEST_F(FilePass, OverAFileThatWasEmptiedMovesToItsHead)
{
    Follow("abc\n");
    WriteLog("app.log", "");
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(0);
    Append("new\n");
    EXPECT_EQ(Strings{"new"}, Run());
}

TEST_F(FilePass, FailsWhenTheNewEndCannotBeStored)
{
    for (const int n : {1, 2}) {
        StartOver();
        Follow("abc\ndef\nghi\n");
        WriteLog("app.log", "new\n");
        Host().FailCall("RegWrite", n);
        EXPECT_EQ(Strings{}, Run(FALSE));
        EXPECT_EQ((Strings{kCheck, "0 <CheckFileMonObj failed."}), Own());
        EXPECT_EQ((Strings{"3 file monitoring object's content has been unexpectly modified.",
                           "1 <Set file monitoring object's offset to registry failed."}),
                  RecordsOf("CheckFileMonObj"));
        EXPECT_EQ(4, filedata.offset);
        EXPECT_EQ(4, filedata.lastsize);
        EXPECT_EQ(n == 1 ? 12 : 4, StoredOffset());
        EXPECT_TRUE(ClosedBeforeTheEnd());
    }
}

TEST_F(FilePass, DecidesByTheSizeAlone)
{
    filedata.filestat.st_size = 10;
    filedata.lastsize = 10;
    EXPECT_EQ(0, CheckFileMonObj());
    EXPECT_EQ(1, Host().Traced(0, ">"));
    filedata.lastsize = 11;
    EXPECT_EQ(0, CheckFileMonObj());
    EXPECT_EQ(10, filedata.lastsize);
    filedata.lastsize = 9;
    filedata.offset = 3;
    EXPECT_EQ(1, CheckFileMonObj());
    EXPECT_EQ(10, filedata.lastsize);
    EXPECT_EQ(3, filedata.offset);
    filedata.lastsize = -1;
    EXPECT_EQ(1, CheckFileMonObj());
    filedata.lastsize = 11;
    Host().FailCall("RegWrite", 1);
    EXPECT_EQ(-1, CheckFileMonObj());
}

// ---- a file that was replaced ----

TEST_F(FilePass, ReadsAReplacedFileFromItsFirstByte)
{
    Follow("abc\ndef\nghi\n");
    Append("not read any more\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "new\nfile\n");
    EXPECT_EQ((Strings{"new", "file"}), Run());
    EXPECT_EQ(InodeOf("app.log"), StoredInode());
    ExpectOffset(9);
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    EXPECT_EQ(Strings{}, Run());
}

TEST_F(FilePass, ReadsAFileWithoutAStoredInodeWhole)
{
    WriteLog("app.log", "abc\ndef\n");
    SetPath("/var/log/app.log");
    EXPECT_EQ(FALSE, ChangeFileMonObj());
    EXPECT_EQ((Strings{"abc", "def"}), Run());
    EXPECT_EQ(InodeOf("app.log"), StoredInode());
    ExpectOffset(8);
}

TEST_F(FilePass, StoresANewInodeBeforeItReads)
{
    AddEntry({});
    Follow("abc\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "new\n");
    uint64_t inode = 0;
    int64_t offset = 77;
    Host().on_report = [&](const ReportRequest &) {
        inode = StoredInode();
        offset = StoredOffset();
    };
    Run();
    EXPECT_EQ(InodeOf("app.log"), inode);
    EXPECT_EQ(0, offset);
}

TEST_F(FilePass, TakesAnEmptyReplacementForUnchanged)
{
    Follow("abc\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    ExpectOffset(0);
    Append("new\n");
    EXPECT_EQ(Strings{"new"}, Run());
}

TEST_F(FilePass, FollowsANewPath)
{
    Follow("abc\n");
    WriteLog("other.log", "other\n");
    SetPath("/var/log/other.log");
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{"other"}, Run()); // its inode is another
    ExpectOffset(6);
}

// ---- offsets that make no sense ----

TEST_F(FilePass, OverAnEmptyFileWithANegativeOffsetFails)
{
    Follow("", -1);
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <GetFileNextLine() failed.return FALSE."}), Own());
    ASSERT_EQ(1U, RecordsOf("GetFileNextLine").size());
    EXPECT_EQ(0U, RecordsOf("GetFileNextLine")[0].find("1 <params error, fp is 0x"));
    EXPECT_NE(std::string::npos, RecordsOf("GetFileNextLine")[0].find(", filesize is 0, pcontent"));
    EXPECT_TRUE(ClosedBeforeTheEnd());
}

TEST_F(FilePass, WithANegativeOffsetFails)
{
    Follow("abc\n", -5);
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ(
        (Strings{kCheck, "1 <parameter error, pos is -5, filedata.filestat.st_size is 4,return -1.",
                 "1 <GetFileBlock error.return -1.", "1 <GetFileNextLine() failed.return FALSE."}),
        NotableRecords());
    EXPECT_EQ(-5, StoredOffset());
}

TEST_F(FilePass, FromTheMiddleOfALineBeginsThere)
{
    Follow("abc\ndef\n", 2);
    EXPECT_EQ((Strings{"c", "def"}), Run());
}

// ---- failures in the middle ----

TEST_F(FilePass, ThatFailsGoesOnFromMemoryAndAfterARestartFromTheRegistry)
{
    const std::string dots(3328, '.');
    const std::string x(2000, 'x');
    const std::string y(2000, 'y');
    const std::string z(2000, 'z');
    const std::string w(2000, 'w'); // begins in the first block and ends in the second
    const std::string text =
        std::string(10000, '.') + "\n" + x + "\n" + y + "\n" + z + "\n" + w + "\n";
    Follow("abc\n");
    Append(text);
    Sys().FailCall("fseek", 2);
    EXPECT_EQ((Strings{dots, x, y, z}), Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <GetFileNextLine() failed.return FALSE."}), Own());
    EXPECT_EQ(4 + 10001 + 3 * 2001, filedata.offset);
    EXPECT_EQ(4, StoredOffset());

    EXPECT_EQ(Strings{}, Run()); // the size is the one it has seen
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    Append("last\n");
    EXPECT_EQ((Strings{w, "last"}), Run());
    ExpectOffset(4 + static_cast<int64_t>(text.size()) + 5);

    StoreOffset(4); // as if it had been stopped after the failure
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ((Strings{dots, x, y, z, w, "last"}), Run());
}

TEST_F(FilePass, LosesTheLineForWhichThereWasNoClock)
{
    Follow("abc\n");
    Append("def\nghi\n");
    Sys().now = -1;
    EXPECT_EQ(Strings{"def"}, Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <CheckFileLine() failed.return FALSE."}), Own());
    EXPECT_TRUE(ClosedBeforeTheEnd());
    EXPECT_EQ(8, filedata.offset);
    EXPECT_EQ(4, StoredOffset());
    SetClock(2024, 3, 10, 12, 0, 0);
    Append("jkl\n");
    EXPECT_EQ((Strings{"ghi", "jkl"}), Run());
}

TEST_F(FilePass, TakesNothingFromTheHeap)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\nghi\n");
    Host().record_trace = false;
    Sys().ForgetCalls();
    Sys().count_memory = true;
    EXPECT_EQ(TRUE, WatchFileMonObjMain());
    Sys().count_memory = false;
    EXPECT_EQ(2U, Host().reports.size());
    EXPECT_EQ(0, Sys().Calls("malloc"));
    EXPECT_EQ(0, Sys().Calls("calloc"));
}

// ---- every call fails once ----

class FilePassFailure : public FilePass {
  protected:
    // A replaced file of two blocks: a pass with every kind of call.
    void Arrange()
    {
        StartOver();
        AddEntry({});
        Follow("abc\n");
        RenameLog("app.log", "app.log.1");
        lines_.clear();
        for (int i = 10; i < 30; ++i)
            lines_.push_back(std::to_string(i) + std::string(1000, 'x'));
        std::string text;
        for (const auto &line : lines_)
            text += line + "\n";
        WriteLog("app.log", text);
        size_ = static_cast<int64_t>(text.size());
        ASSERT_LT(kBlock, size_);
        Host().ForgetRecords();
        Sys().ForgetCalls();
    }

    // The pass went through.
    void ExpectAllTested() const
    {
        EXPECT_EQ(lines_, TestedLines());
        EXPECT_EQ(size_, filedata.offset);
        EXPECT_EQ(kEnd, Own().back());
    }

    Strings lines_;
    int64_t size_ = 0;
};

TEST_F(FilePassFailure, OfAHostCallIsTracedAndEndsThePassOrDoesNoHarm)
{
    const std::string no_inode = "1 <Update /var/log/app.log's inode failed.";
    const std::string no_path = "1 <Update 's inode failed.";
    // The calls of the pass in order: the inode and the offset are stored, path, inode and offset
    // loaded again.
    const Strings renewing = {no_inode, no_inode, no_inode, no_inode, no_path,
                              no_inode, no_inode, no_inode, no_inode};
    for (size_t i = 0; i < renewing.size(); ++i) {
        SCOPED_TRACE(i + 1);
        Arrange();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        EXPECT_EQ(FALSE, WatchFileMonObjMain());
        EXPECT_EQ(nullptr, filedata.filefp);
        EXPECT_EQ((Strings{kCheck, renewing[i]}), Own());
        EXPECT_EQ(Strings{}, TestedLines());
        EXPECT_EQ(i + 1, Host().calls.size());
    }
    // Then a conversion and a report for each line, and at last the offset is stored.
    const size_t reporting = renewing.size() + 2 * lines_.size();
    for (size_t i = renewing.size(); i < reporting + 2; ++i) {
        SCOPED_TRACE(i + 1);
        Arrange();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        EXPECT_EQ(TRUE, WatchFileMonObjMain());
        EXPECT_TRUE(Host().AnyFailureWasUsed());
        EXPECT_EQ(nullptr, filedata.filefp);
        ExpectAllTested();
        EXPECT_EQ(i >= reporting ? 1U : 0U, Host().Texts(1).size());
        // What is stored: nothing, or the low half; the file is shorter than the high half counts.
        EXPECT_EQ(i == reporting ? 0 : size_, StoredOffset());
    }
    Arrange();
    EXPECT_EQ(TRUE, WatchFileMonObjMain());
    EXPECT_EQ(reporting + 2, Host().calls.size());
}

TEST_F(FilePassFailure, OfASystemCallLosesNothingOnceTheFileGrows)
{
    int failures = 0;
    for (const char *name :
         {"stat", "fstat", "open", "fdopen", "fseek", "fread", "calloc", "malloc"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            Arrange();
            Sys().FailCall(name, n);
            const int result = WatchFileMonObjMain();
            Sys().count_memory = false;
            EXPECT_EQ(nullptr, filedata.filefp);
            if (Sys().Calls(name) < n) {
                ExpectAllTested();
                break;
            }
            ++failures;
            Strings tested = TestedLines();
            if (result == TRUE) {
                ExpectAllTested(); // the second look at the status is not needed
            } else {
                EXPECT_EQ(1U, Host().Texts(2).size());
                const bool opened = Host().Traced("Check file: [/var/log/app.log]") != 0;
                const auto done = static_cast<int64_t>(1003 * tested.size());
                EXPECT_EQ(opened ? done : 4, filedata.offset);
                EXPECT_EQ(opened ? 0 : 4, StoredOffset());
            }
            Append("last\n");
            const Strings rest = Run();
            tested.insert(tested.end(), rest.begin(), rest.end());
            Strings expected = lines_;
            expected.emplace_back("last");
            EXPECT_EQ(expected, tested);
            ExpectOffset(size_ + 5);
        }
    }
    EXPECT_LT(7, failures);
}

TEST_F(FilePassFailure, HasAMessageForEachSystemCall)
{
    const std::string no_open =
        "2 <open file /var/log/app.log error, error code is 5, return FALSE.";
    const std::string no_init = "1 <Init file /var/log/app.log failed.";
    const std::string no_line = "1 <GetFileNextLine() failed.return FALSE.";
    const std::vector<std::pair<std::pair<const char *, int>, Strings>> cases = {
        {{"stat", 1}, {"2 <stat /var/log/app.log error, error code is 5. return FALSE.", no_init}},
        {{"open", 1}, {no_open, no_init}},
        {{"fdopen", 1}, {no_open, no_init}},
        {{"fseek", 1},
         {"2 <fseek error, pos 0, error code is 5.return -1.", "1 <GetFileBlock error.return -1.",
          no_line}},
        {{"fseek", 2},
         {"2 <fseek error, pos 16048, error code is 5.return -1.",
          "1 <GetFileNextBlock() failed.return -1.", no_line}},
        {{"fread", 1},
         {"2 <read file ERROR,  0 BYTES readed, the error is 0.return -1.",
          "1 <GetFileBlock error.return -1.", no_line}},
        {{"fread", 2},
         {"2 <read file ERROR,  0 BYTES readed. the error is 0.return -1.",
          "1 <GetFileNextBlock() failed.return -1.", no_line}},
    };
    for (const auto &[call, messages] : cases) {
        SCOPED_TRACE(std::string(call.first) + " " + std::to_string(call.second));
        Arrange();
        FreeTableEntries(); // no reports between the messages
        nCnt = 0;
        Sys().FailCall(call.first, call.second, EIO);
        EXPECT_EQ(FALSE, WatchFileMonObjMain());
        const Strings all = NotableRecords();
        ASSERT_LE(messages.size(), all.size());
        EXPECT_EQ(messages,
                  Strings(all.end() - static_cast<std::ptrdiff_t>(messages.size()), all.end()));
    }
}

} // namespace
