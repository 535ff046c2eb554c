// Loading a block of the watched file.
#include <climits>
#include <cstring>
#include <fcntl.h>
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

} // namespace
