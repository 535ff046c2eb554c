// Opening and closing a log.
#include <cerrno>
#include <stdio_ext.h>
#include <sys/stat.h>

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::Host;
using test::kLog;
using test::kLogName;
using test::Sys;
using test::Texts;

using InitFile = test::ReaderTest;
using FinishFile = test::ReaderTest;
using GetBlockAt = test::ReaderTest;
using FEof = test::ReaderTest;
using SaveFileEnv = test::ReaderTest;

// ---- InitFile ----

TEST_F(InitFile, OpensTheLogAndRecordsItsLength)
{
    WriteOldLog("hello\nworld\n");
    EXPECT_EQ(0, ::InitFile(kLog));
    EXPECT_NE(nullptr, gfp);
    EXPECT_EQ(12, filelen);
    EXPECT_EQ(1, Host().Traced(0, std::string(">name=") + kLog));
    EXPECT_EQ((Texts{"0 filelen is 12", "0 <return 0."}), Said("InitFile"));
}

TEST_F(InitFile, LeavesTheBlocksAlone)
{
    WriteOldLog("hello\n");
    curblock = Junk();
    bakblock = Junk();
    EXPECT_EQ(0, ::InitFile(kLog));
    EXPECT_TRUE(Same(Junk(), curblock));
    EXPECT_TRUE(Same(Junk(), bakblock));
    curblock = {};
}

TEST_F(InitFile, ClosesTheLogThatWasOpen)
{
    WriteOldLog("hello\n");
    WriteLog("other", "a longer one\n");
    Open();
    const int64_t descriptors = OpenDescriptors();
    EXPECT_EQ(0, ::InitFile("/var/log/other"));
    EXPECT_EQ(13, filelen);
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(InitFile, WithoutANameClosesTheLogAndFails)
{
    WriteOldLog("hello\n");
    Open();
    ForgetTrace();
    EXPECT_EQ(-1, ::InitFile(nullptr));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(-1, filelen);
    EXPECT_EQ(1, Host().Traced(0, ">name=NULL"));
    EXPECT_EQ((Texts{"1 <name==NULL.return -1."}), Said("InitFile"));
}

TEST_F(InitFile, OfAMissingFileFailsAndHasNoLength)
{
    WriteOldLog("hello\n");
    Open();
    ForgetTrace();
    EXPECT_EQ(-1, ::InitFile("/var/log/none"));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(-1, filelen);
    EXPECT_EQ((Texts{"2 <stat /var/log/none error.return -1."}), Said("InitFile"));
}

TEST_F(InitFile, OfAFileThatCannotBeOpenedKeepsItsLength)
{
    WriteOldLog("hello\n");
    Sys().FailCall("open", 1, EACCES);
    EXPECT_EQ(-1, ::InitFile(kLog));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(6, filelen);
    EXPECT_EQ((Texts{"0 filelen is 6", "2 <open file /var/log/messages error,return -1."}),
              Said("InitFile"));
}

TEST_F(InitFile, AfterAFailedOpenDoesNotForgetTheLengthUntilItKnowsABetterOne)
{
    WriteOldLog("hello\n");
    Sys().FailCall("open", 1);
    ::InitFile(kLog);
    EXPECT_EQ(-1, ::InitFile(nullptr));
    EXPECT_EQ(6, filelen);
    EXPECT_EQ(-1, ::InitFile("/var/log/none"));
    EXPECT_EQ(6, filelen);
}

// The calls of one opening, in order: stat for the length, open, fstat, fdopen.
struct FailingCall {
    const char *name;
    int n;
    int result;
    int64_t length;
    const char *complaint; // null: none
};

TEST_F(InitFile, WithAnyFailingCallFailsCleanlyOrDoesWithoutIt)
{
    const char *const open_error = "2 InitFile: <open file /var/log/messages error,return -1.";
    const FailingCall calls[] = {
        {"stat", 1, -1, -1, "2 InitFile: <stat /var/log/messages error.return -1."},
        {"open", 1, -1, 6, open_error},
        {"fstat", 1, -1, 6, open_error},
        {"fdopen", 1, -1, 6, open_error},
    };
    WriteOldLog("hello\n");
    const int64_t descriptors = OpenDescriptors();
    for (const auto &call : calls) {
        SCOPED_TRACE(std::string(call.name) + " " + std::to_string(call.n));
        test::ResetModule();
        ForgetTrace();
        Sys().FailCall(call.name, call.n);
        EXPECT_EQ(call.result, ::InitFile(kLog));
        Sys().FailCall(call.name, 0);
        EXPECT_EQ(call.length, filelen);
        EXPECT_EQ(call.result == 0, gfp != nullptr);
        EXPECT_EQ(call.complaint != nullptr ? Texts{call.complaint} : Texts{}, Complaints());
        EXPECT_EQ(descriptors + (call.result == 0 ? 1 : 0), OpenDescriptors());
    }
}

TEST_F(InitFile, MakesNoOtherCallsThanThoseTestedForFailure)
{
    WriteOldLog("hello\n");
    Open();
    EXPECT_EQ(1, Sys().Calls("stat"));
    EXPECT_EQ(1, Sys().Calls("open"));
    EXPECT_EQ(1, Sys().Calls("fstat"));
    EXPECT_EQ(1, Sys().Calls("fdopen"));
    EXPECT_EQ(0, Sys().Calls("fseek"));
    EXPECT_EQ(0, Sys().Calls("fread"));
}

TEST_F(InitFile, OfAnEmptyFileSucceedsButNothingCanBeLoaded)
{
    WriteOldLog("");
    EXPECT_EQ(0, ::InitFile(kLog));
    EXPECT_EQ(0, filelen);
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, &curblock));
    EXPECT_EQ((Texts{"1 <parameter error,return -1."}), Said("GetBlockAt"));
}

TEST_F(InitFile, FollowsASymbolicLinkToARegularFile)
{
    WriteLog("elsewhere", "hello\n");
    std::filesystem::create_symlink(LogFile("elsewhere"), LogFile(kLogName));
    OpenAtHead();
    EXPECT_EQ(6, filelen);
    EXPECT_EQ("hello|", Shown(curblock));
}

TEST_F(InitFile, OfADirectorySucceedsAndItsLoadsFail)
{
    std::filesystem::create_directory(LogFile(kLogName));
    EXPECT_EQ(0, ::InitFile(kLog));
    filelen = 100; // some file systems tell no size of a directory
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, &curblock));
    EXPECT_EQ((Texts{"2 GetBlockAt: <read file ERROR,  0 BYTES readed.return -1."}), Complaints());
    EXPECT_TRUE(Same(LogBuf{}, curblock));
}

TEST_F(InitFile, GivesTheStreamABuffer)
{
    OpenOldLog("hello\n");
    EXPECT_LT(1U, __fbufsize(gfp));
}

TEST_F(InitFile, OfAFifoFailsWithoutOpeningIt)
{
    ASSERT_EQ(0, mkfifo(LogFile(kLogName).c_str(), 0600));
    EXPECT_EQ(-1, ::InitFile(kLog));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(0, filelen);
    EXPECT_EQ(0, Sys().Calls("open"));
    EXPECT_EQ((Texts{"2 InitFile: <open file /var/log/messages error,return -1."}), Complaints());
}

TEST_F(InitFile, OfALinkToADeviceFailsWithoutOpeningIt)
{
    std::filesystem::create_symlink("/dev/null", LogFile(kLogName));
    EXPECT_EQ(-1, ::InitFile(kLog));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(0, Sys().Calls("open"));
    EXPECT_EQ((Texts{"2 InitFile: <open file /var/log/messages error,return -1."}), Complaints());
}

TEST_F(InitFile, OfANameThatBecomesAFifoAtTheLastMomentDoesNotWaitForAWriter)
{
    WriteOldLog("hello\n");
    Sys().BeforeCall("open", 1, [this] {
        RemoveLog(kLogName);
        mkfifo(LogFile(kLogName).c_str(), 0600);
    });
    const int64_t descriptors = OpenDescriptors();
    EXPECT_EQ(-1, ::InitFile(kLog));
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(6, filelen);
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(InitFile, OfANameThatBecomesADirectoryAtTheLastMomentOpensThat)
{
    WriteOldLog("hello\n");
    Sys().BeforeCall("open", 1, [this] {
        RemoveLog(kLogName);
        std::filesystem::create_directory(LogFile(kLogName));
    });
    EXPECT_EQ(0, ::InitFile(kLog));
    filelen = 100;
    EXPECT_EQ(-1, ::GetBlockAt(0, kBlockSize, &curblock));
}

TEST_F(InitFile, OfANameThatVanishesAtAnyMomentFails)
{
    for (const char *call : {"stat", "open"}) {
        SCOPED_TRACE(call);
        WriteOldLog("hello\n");
        Sys().BeforeCall(call, 1, [this] { RemoveLog(kLogName); });
        EXPECT_EQ(-1, ::InitFile(kLog));
        EXPECT_EQ(nullptr, gfp);
    }
}

TEST_F(InitFile, OfANameThatWasRotatedMeanwhileHasTheLengthOfTheFileThatWasOpened)
{
    WriteOldLog("the old one, of 29 bytes size");
    Sys().BeforeCall("open", 1, [this] {
        RenameLog(kLogName, "messages.1");
        WriteOldLog("new\n");
    });
    OpenAtHead();
    EXPECT_EQ(4, filelen);
    EXPECT_EQ("new|", Shown(curblock));
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
    EXPECT_EQ((Texts{"0 filelen is 29", "0 filelen is 4", "0 <return 0."}), Said("InitFile"));
}

// What is behind the length that was seen first may be half a line.
TEST_F(InitFile, OfALogThatGrowsMeanwhileKeepsTheLengthThatWasSeenFirst)
{
    WriteOldLog("first\n");
    Sys().BeforeCall("open", 1, [this] { Grow("second\nthi"); });
    OpenAtHead();
    EXPECT_EQ(6, filelen);
    EXPECT_EQ((Texts{"0 filelen is 6", "0 <return 0."}), Said("InitFile"));
    EXPECT_EQ("first|second|", Shown(curblock));
    EXPECT_EQ(kBlockBeyond, curblock.isend);
    ExpectNext(0, "first");
    ExpectNext(6, "second");
    EXPECT_EQ(1, ::FEof());
}

// ---- FinishFile ----

TEST_F(FinishFile, ClosesTheLogAndForgetsItsLength)
{
    WriteOldLog("hello\n");
    const int64_t descriptors = OpenDescriptors();
    Open();
    EXPECT_EQ(descriptors + 1, OpenDescriptors());
    ::FinishFile();
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(-1, filelen);
    EXPECT_EQ(descriptors, OpenDescriptors());
}

TEST_F(FinishFile, KeepsTheBlocks)
{
    OpenOldLog("hello\n");
    ::SaveFileEnv();
    ::FinishFile();
    EXPECT_EQ("hello|", Shown(curblock));
    EXPECT_EQ("hello|", Shown(bakblock));
}

TEST_F(FinishFile, WithoutAnOpenLogChangesNothing)
{
    filelen = 42;
    ::FinishFile();
    EXPECT_EQ(nullptr, gfp);
    EXPECT_EQ(42, filelen);
    EXPECT_EQ((Texts{"0 <"}), Said("FinishFile"));
}

} // namespace
