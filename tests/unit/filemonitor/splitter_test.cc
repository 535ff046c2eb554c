// The lines of the watched file, one after the other.
#include <cstdint>
#include <cstring>
#include <string>

#include "filemonitor/filemonitor.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"
#include "tests/unit/filemonitor/scan_fixture.h"

namespace {

using test::Format;
using test::Host;
using test::kBlock;
using test::OpenWatch;
using test::Strings;
using test::Sys;

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

} // namespace
