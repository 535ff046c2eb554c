#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "platform/registry.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"

namespace {

using test::Host;
using test::kFileMonitorKey;
using test::Strings;
using test::Sys;

using Watch = test::FileMonitorTest;

constexpr char kNoInodeLow[] = "1 <Get low bits of inode from registry failed, return FALSE!";
constexpr char kNoInodeHigh[] = "1 <Get high bits of inode from registry failed, return FALSE!";
constexpr char kNoOffsetLow[] = "1 <Get low bits of offset from registry failed, return FALSE !";
constexpr char kNoOffsetHigh[] = "1 <Get high bits of offset from registry failed, return FALSE !";

// Files that this process has open.
long OpenFiles()
{
    const auto files = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

TEST(WatchObject, HasItsFieldsInTheirOrder)
{
    EXPECT_EQ(0U, offsetof(FileMonObj, start));
    EXPECT_EQ(8U, offsetof(FileMonObj, length));
    EXPECT_EQ(16U, offsetof(FileMonObj, linepos));
    EXPECT_EQ(24U, offsetof(FileMonObj, isend));
    EXPECT_EQ(28U, offsetof(FileMonObj, overlong));
    EXPECT_EQ(32U, offsetof(FileMonObj, data));
    EXPECT_EQ(16392U, sizeof filedata.data);
    EXPECT_EQ(32U + 16392U, offsetof(FileMonObj, filestat));
    EXPECT_LT(offsetof(FileMonObj, filestat), offsetof(FileMonObj, lastsize));
    EXPECT_LT(offsetof(FileMonObj, lastsize), offsetof(FileMonObj, offset));
    EXPECT_LT(offsetof(FileMonObj, offset), offsetof(FileMonObj, filemonpath));
    EXPECT_EQ(256U, sizeof filedata.filemonpath);
    EXPECT_LT(offsetof(FileMonObj, filemonpath), offsetof(FileMonObj, inode));
    EXPECT_LT(offsetof(FileMonObj, inode), offsetof(FileMonObj, filefp));
}

// ---- loading ----

TEST_F(Watch, IsLoadedFromTheRegistry)
{
    SetPath("/var/log/app.log");
    StoreInode(0xABCDEF0123456789U);
    StoreOffset(0x123456789);
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_STREQ("/var/log/app.log", filedata.filemonpath);
    EXPECT_EQ(0xABCDEF0123456789U, filedata.inode);
    EXPECT_EQ(0x123456789, filedata.offset);
    EXPECT_EQ(0x123456789, filedata.lastsize);
    EXPECT_EQ(Strings{"0 <file monitoring object's path changed to /var/log/app.log"},
              RecordsOf("ChangeFileMonObj"));
    EXPECT_TRUE(NotableRecords().empty());
    EXPECT_EQ(Strings(5, "RegRead"), Host().calls);
}

TEST_F(Watch, MarksEveryEntryInTheTraceLog)
{
    ChangeFileMonObj();
    RegGetInode();
    RegGetOffset();
    RegSetInode(5);
    RegSetOffset(6);
    InitFileMonObj();
    UpdateInode();
    const std::pair<const char *, const char *> marks[] = {
        {"ChangeFileMonObj", ">"},   {"RegGetInode", ">"},          {"RegGetOffset", ">"},
        {"RegSetInode", ">inode=5"}, {"RegSetOffset", ">offset=6"}, {"InitFileMonObj", ">"},
        {"FinishFileMonObj", ">"},   {"UpdateInode", ">"}};
    for (const auto &[function, mark] : marks) {
        const auto found =
            std::find_if(Host().trace.begin(), Host().trace.end(),
                         [name = function](const auto &record) { return record.function == name; });
        ASSERT_NE(Host().trace.end(), found) << function;
        EXPECT_EQ(mark, found->text);
        EXPECT_EQ(0, found->level);
        EXPECT_EQ("filemonitor", found->unit);
    }
}

TEST_F(Watch, KeepsEveryBitOfItsNumbers)
{
    SetPath("/x");
    for (const int64_t value : {int64_t{0}, int64_t{1}, int64_t{-1}, int64_t{0x7FFFFFFF},
                                int64_t{0x80000000}, int64_t{0xFFFFFFFF}, int64_t{0x100000000},
                                int64_t{0x123456789}, INT64_MAX, INT64_MIN, int64_t{-5}}) {
        StoreInode(static_cast<uint64_t>(value));
        StoreOffset(value);
        EXPECT_EQ(TRUE, ChangeFileMonObj());
        EXPECT_EQ(static_cast<uint64_t>(value), filedata.inode);
        EXPECT_EQ(value, filedata.offset);
        EXPECT_EQ(value, filedata.lastsize);
    }
}

// Both halves are read into the same four bytes, the low one first.
TEST_F(Watch, HasWhatIsLeftOfTheLowHalfInAHighHalfThatIsTooShort)
{
    SetPath("/x");
    StoreInode(0x22222222);
    StoreOffset(0x33333333);
    Host().registry.SetBytes(kFileMonitorKey, "INODE_H", REG_DWORD, "\x01");
    Host().registry.SetBytes(kFileMonitorKey, "OFFSET_H", REG_DWORD, "\x01");
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(0x2222220122222222U, filedata.inode);
    EXPECT_EQ(0x3333330133333333, filedata.offset);
}

TEST_F(Watch, HasNoPathWhenThereIsNone)
{
    SetWatchedPath("/var/log/the/path/before");
    filedata.inode = 5;
    filedata.offset = 6;
    filedata.lastsize = 7;
    StoreInode(50);
    StoreOffset(60);
    EXPECT_EQ(FALSE, ChangeFileMonObj());
    for (const char c : filedata.filemonpath)
        EXPECT_EQ('\0', c);
    EXPECT_EQ(Strings{"1 <Get filemonpath failed!"}, RecordsOf("ChangeFileMonObj"));
    EXPECT_EQ(Strings{"RegRead"}, Host().calls);
    EXPECT_EQ(5U, filedata.inode);
    EXPECT_EQ(6, filedata.offset);
    EXPECT_EQ(7, filedata.lastsize);
}

TEST_F(Watch, ForgetsTheRestOfALongerPath)
{
    SetWatchedPath("/var/log/the/path/before");
    SetPath("/x");
    StoreInode(1);
    StoreOffset(2);
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ("/x" + std::string(254, '\0'),
              std::string(filedata.filemonpath, sizeof filedata.filemonpath));
}

TEST_F(Watch, TakesAPathOf255BytesWithItsZeroByte)
{
    StoreInode(1);
    StoreOffset(2);
    SetPath("/" + std::string(253, 'p')); // 255 bytes with the zero byte
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(254U, strlen(filedata.filemonpath));
    SetPath("/" + std::string(254, 'p'));
    EXPECT_EQ(FALSE, ChangeFileMonObj());
    EXPECT_STREQ("", filedata.filemonpath);
}

TEST_F(Watch, TerminatesAPathThatWasStoredWithoutItsZeroByte)
{
    StoreInode(1);
    StoreOffset(2);
    const std::string path = "/" + std::string(254, 'p');
    Host().registry.SetBytes(kFileMonitorKey, "FILENAME", REG_SZ, path);
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(path, filedata.filemonpath);
}

// What the loading leaves when one of its four numbers is missing.
struct Missing {
    const char *name;
    const char *step;
    Strings messages; // of the step, then of the loading
    uint64_t inode;
    int64_t offset;
};

TEST_F(Watch, KeepsItsPathWhenANumberIsMissing)
{
    const std::string no_inode = "1 <get file monitoring object's inode is failed.";
    const std::string no_offset = "1 <get file monitoring object's offset is failed.";
    const std::vector<Missing> cases = {
        {"INODE_L", "RegGetInode", {kNoInodeLow, no_inode}, 5, 6},
        {"INODE_H", "RegGetInode", {kNoInodeHigh, no_inode}, 0x22222222, 6},
        {"OFFSET_L", "RegGetOffset", {kNoOffsetLow, no_offset}, 0x1111111122222222, 6},
        {"OFFSET_H", "RegGetOffset", {kNoOffsetHigh, no_offset}, 0x1111111122222222, 0x44444444},
    };
    for (const Missing &missing : cases) {
        SCOPED_TRACE(missing.name);
        StartOver();
        SetPath("/var/log/app.log");
        StoreInode(0x1111111122222222);
        StoreOffset(0x3333333344444444);
        Host().registry.DeleteValue(kFileMonitorKey, missing.name);
        filedata.inode = 5;
        filedata.offset = 6;
        filedata.lastsize = 7;
        EXPECT_EQ(FALSE, ChangeFileMonObj());
        EXPECT_STREQ("/var/log/app.log", filedata.filemonpath);
        EXPECT_EQ(Strings{missing.messages[0]}, RecordsOf(missing.step));
        EXPECT_EQ(Strings{missing.messages[1]}, RecordsOf("ChangeFileMonObj"));
        EXPECT_EQ(missing.inode, filedata.inode);
        EXPECT_EQ(missing.offset, filedata.offset);
        EXPECT_EQ(7, filedata.lastsize);
    }
}

TEST_F(Watch, StepsOfTheLoadingGiveTheirOwnResults)
{
    EXPECT_EQ(FALSE, RegGetInode());
    EXPECT_EQ(FALSE, RegGetOffset());
    StoreInode(11);
    StoreOffset(12);
    filedata.lastsize = 7;
    Host().ForgetRecords();
    EXPECT_EQ(TRUE, RegGetInode());
    EXPECT_EQ(11U, filedata.inode);
    EXPECT_EQ(Strings{"0 <return TRUE."}, RecordsOf("RegGetInode"));
    EXPECT_EQ(TRUE, RegGetOffset());
    EXPECT_EQ(12, filedata.offset);
    EXPECT_EQ(Strings{"0 <return TRUE."}, RecordsOf("RegGetOffset"));
    EXPECT_EQ(7, filedata.lastsize);
}

// ---- storing ----

TEST_F(Watch, StoresAnOffsetInTwoHalves)
{
    filedata.offset = 1;
    filedata.lastsize = 2;
    EXPECT_EQ(TRUE, RegSetOffset(0x123456789));
    EXPECT_EQ(0x23456789U, Host().registry.Number(kFileMonitorKey, "OFFSET_L"));
    EXPECT_EQ(1U, Host().registry.Number(kFileMonitorKey, "OFFSET_H"));
    for (const char *name : {"OFFSET_L", "OFFSET_H"})
        EXPECT_EQ(REG_DWORD, Host().registry.Get(kFileMonitorKey, name)->type);
    EXPECT_EQ(Strings{"0 <Set offset to registry success, return TRUE !  "},
              RecordsOf("RegSetOffset"));
    EXPECT_EQ(1, filedata.offset);
    EXPECT_EQ(2, filedata.lastsize);
    EXPECT_EQ(Strings(2, "RegWrite"), Host().calls);
}

TEST_F(Watch, StoresAnOffsetOfMinusOneInFullHalves)
{
    EXPECT_EQ(TRUE, RegSetOffset(-1));
    EXPECT_EQ(0xFFFFFFFFU, Host().registry.Number(kFileMonitorKey, "OFFSET_L"));
    EXPECT_EQ(0xFFFFFFFFU, Host().registry.Number(kFileMonitorKey, "OFFSET_H"));
    EXPECT_EQ(-1, StoredOffset());
}

TEST_F(Watch, StoresAnInodeInTwoHalves)
{
    filedata.inode = 1;
    EXPECT_EQ(TRUE, RegSetInode(0xFEDCBA9876543210U));
    EXPECT_EQ(0x76543210U, Host().registry.Number(kFileMonitorKey, "INODE_L"));
    EXPECT_EQ(0xFEDCBA98U, Host().registry.Number(kFileMonitorKey, "INODE_H"));
    for (const char *name : {"INODE_L", "INODE_H"})
        EXPECT_EQ(REG_DWORD, Host().registry.Get(kFileMonitorKey, name)->type);
    EXPECT_EQ(Strings{"0 <Set inode to registry success, return TRUE! "}, RecordsOf("RegSetInode"));
    EXPECT_EQ(1U, filedata.inode);
}

TEST_F(Watch, StoresTheLowHalfFirst)
{
    StoreInode(0);
    StoreOffset(0);
    Host().FailCall("RegWrite", 2);
    EXPECT_EQ(FALSE, RegSetInode(0x100000002));
    EXPECT_EQ(2U, StoredInode());
    EXPECT_EQ(Strings{"1 <Set high bits of inode to registry failed, return FALSE !"},
              RecordsOf("RegSetInode"));
    Host().FailCall("RegWrite", 2);
    EXPECT_EQ(FALSE, RegSetOffset(0x300000004));
    EXPECT_EQ(4, StoredOffset());
    EXPECT_EQ(Strings{"1 <Set high bits of offset to registry failed, return FALSE !"},
              RecordsOf("RegSetOffset"));
}

TEST_F(Watch, StoresNothingMoreWhenTheLowHalfFails)
{
    StoreInode(0);
    StoreOffset(0);
    Host().FailCall("RegWrite", 1);
    EXPECT_EQ(FALSE, RegSetInode(0x100000002));
    EXPECT_EQ(Strings{"1 <Set low bits of inode to registry failed, return FALSE !"},
              RecordsOf("RegSetInode"));
    Host().FailCall("RegWrite", 1);
    EXPECT_EQ(FALSE, RegSetOffset(0x300000004));
    EXPECT_EQ(Strings{"1 <Set low bits of offset to registry failed, return FALSE !"},
              RecordsOf("RegSetOffset"));
    EXPECT_EQ(0U, StoredInode());
    EXPECT_EQ(0, StoredOffset());
}

TEST_F(Watch, ReadsBackWhatItStored)
{
    SetPath("/x");
    EXPECT_EQ(TRUE, RegSetInode(0x8000000180000002U));
    EXPECT_EQ(TRUE, RegSetOffset(0x123456789));
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(0x8000000180000002U, filedata.inode);
    EXPECT_EQ(0x123456789, filedata.offset);
}

// ---- opening and closing ----

using WatchFile = test::FileMonitorTest;

TEST_F(WatchFile, IsOpenedWithItsStatus)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    EXPECT_EQ(TRUE, InitFileMonObj());
    EXPECT_NE(nullptr, filedata.filefp);
    EXPECT_EQ(5, filedata.filestat.st_size);
    EXPECT_EQ(InodeOf("app.log"), filedata.filestat.st_ino);
    EXPECT_EQ(Strings{"0 <InitFileMonObj compete, return TRUE."}, RecordsOf("InitFileMonObj"));
    char read[6] = {};
    EXPECT_EQ(5U, fread(read, 1, 5, filedata.filefp));
    EXPECT_STREQ("12345", read);
}

TEST_F(WatchFile, ThatDoesNotExistIsASystemFailure)
{
    SetWatchedPath("/var/log/app.log");
    EXPECT_EQ(FALSE, InitFileMonObj());
    EXPECT_EQ(Strings{"2 <stat /var/log/app.log error, error code is 2. return FALSE."},
              RecordsOf("InitFileMonObj"));
    EXPECT_EQ(nullptr, filedata.filefp);
}

TEST_F(WatchFile, ThatCannotBeOpenedIsASystemFailure)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    const long files = OpenFiles();
    for (const auto &[name, n] :
         std::vector<std::pair<const char *, int>>{{"open", 1}, {"fdopen", 1}, {"fstat", 1}}) {
        Host().ForgetRecords();
        Sys().FailCall(name, n, EACCES);
        EXPECT_EQ(FALSE, InitFileMonObj());
        EXPECT_EQ(Strings{"2 <open file /var/log/app.log error, error code is 13, return FALSE."},
                  RecordsOf("InitFileMonObj"))
            << name;
        EXPECT_EQ(nullptr, filedata.filefp);
        EXPECT_EQ(files, OpenFiles());
    }
}

TEST_F(WatchFile, ThatIsADirectoryOpensAndCannotBeRead)
{
    std::filesystem::create_directory(LogFile("folder"));
    SetWatchedPath("/var/log/folder");
    EXPECT_EQ(TRUE, InitFileMonObj());
    filedata.filestat.st_size = 100; // some file systems tell no size of a directory
    EXPECT_EQ(-1, GetFileBlock(0, kFileBlockSize));
    const Strings records = RecordsOf("GetFileBlock");
    ASSERT_EQ(1U, records.size());
    EXPECT_TRUE(records[0].starts_with("2 <read file ERROR,  0 BYTES readed. the error is "));
}

TEST_F(WatchFile, ThatIsASocketGivesItsOwnError)
{
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", LogFile("socket").c_str());
    ASSERT_EQ(0, bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof address));
    SetWatchedPath("/var/log/socket");
    EXPECT_EQ(FALSE, InitFileMonObj());
    EXPECT_EQ(Strings{"2 <open file /var/log/socket error, error code is " + std::to_string(ENXIO) +
                      ", return FALSE."},
              RecordsOf("InitFileMonObj"));
    close(socket_fd);
}

TEST_F(WatchFile, ThatMakesItsReadersWaitIsRefused)
{
    ASSERT_EQ(0, mkfifo(LogFile("fifo").c_str(), 0600));
    SetWatchedPath("/var/log/fifo");
    EXPECT_EQ(FALSE, InitFileMonObj());
    EXPECT_EQ(Strings{"2 <open file /var/log/fifo error, error code is 22, return FALSE."},
              RecordsOf("InitFileMonObj"));
}

TEST_F(WatchFile, ThatWasLeftOpenIsClosedFirst)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    const long files = OpenFiles();
    EXPECT_EQ(TRUE, InitFileMonObj());
    EXPECT_EQ(TRUE, InitFileMonObj());
    EXPECT_EQ(files + 1, OpenFiles());
    SetWatchedPath("/var/log/nothing");
    EXPECT_EQ(FALSE, InitFileMonObj());
    EXPECT_EQ(nullptr, filedata.filefp);
    EXPECT_EQ(files, OpenFiles());
}

TEST_F(WatchFile, HasTheStatusOfWhatWasOpened)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    Sys().BeforeCall("open", 1, [this] {
        RenameLog("app.log", "app.log.1");
        WriteLog("app.log", "1234567");
    });
    EXPECT_EQ(TRUE, InitFileMonObj());
    EXPECT_EQ(7, filedata.filestat.st_size);
    EXPECT_EQ(InodeOf("app.log"), filedata.filestat.st_ino);
}

TEST_F(WatchFile, ThatGrowsWhileItIsOpenedKeepsTheSizeThatWasSeenFirst)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    Sys().BeforeCall("open", 1, [this] { AppendLog("app.log", "67"); });
    EXPECT_EQ(TRUE, InitFileMonObj());
    EXPECT_EQ(5, filedata.filestat.st_size);
}

TEST_F(WatchFile, IsClosedOnce)
{
    WriteLog("app.log", "12345");
    SetWatchedPath("/var/log/app.log");
    const long files = OpenFiles();
    EXPECT_EQ(TRUE, InitFileMonObj());
    auto *status = reinterpret_cast<unsigned char *>(&filedata.filestat);
    status[0] = 0xAB;
    status[1] = 0xCD;
    FinishFileMonObj();
    EXPECT_EQ(nullptr, filedata.filefp);
    EXPECT_EQ(files, OpenFiles());
    EXPECT_EQ(0, status[0]); // the first byte, and no more
    EXPECT_EQ(0xCD, status[1]);
    EXPECT_EQ(5, filedata.filestat.st_size);
    status[0] = 0xAB;
    FinishFileMonObj();
    EXPECT_EQ(0xAB, status[0]);
}

// ---- a new inode ----

class WatchInode : public test::FileMonitorTest {
  protected:
    // A loaded object whose file has another inode by now.
    void Arrange()
    {
        StartOver();
        SetPath("/var/log/app.log");
        StoreInode(4000);
        StoreOffset(500);
        ASSERT_EQ(TRUE, ChangeFileMonObj());
        filedata.filestat.st_ino = 4001;
        Host().ForgetRecords();
    }
};

constexpr char kInodeChanged[] = "3 File monitoring object's inode is changed, update inode from "
                                 "4000 to 4001, filepath is /var/log/app.log";

TEST_F(WatchInode, ThatIsTheSameIsLeftAlone)
{
    Arrange();
    filedata.filestat.st_ino = 4000;
    EXPECT_EQ(TRUE, UpdateInode());
    EXPECT_EQ(Strings{"0 <File monitoring object's inode isn't changed."},
              RecordsOf("UpdateInode"));
    EXPECT_TRUE(Host().calls.empty());
    EXPECT_EQ(500, filedata.offset);
}

TEST_F(WatchInode, ThatIsNewIsStoredAndStartsAtTheFirstByte)
{
    Arrange();
    EXPECT_EQ(TRUE, UpdateInode());
    EXPECT_EQ((Strings{kInodeChanged, "0 <UpdateInode success, return TRUE! "}),
              RecordsOf("UpdateInode"));
    EXPECT_EQ(4001U, StoredInode());
    EXPECT_EQ(0, StoredOffset());
    EXPECT_EQ(4001U, filedata.inode);
    EXPECT_EQ(0, filedata.offset);
    EXPECT_EQ(0, filedata.lastsize);
    EXPECT_EQ((Strings{"RegWrite", "RegWrite", "RegWrite", "RegWrite", "RegRead", "RegRead",
                       "RegRead", "RegRead", "RegRead"}),
              Host().calls);
}

TEST_F(WatchInode, DiffersAlsoInItsHighHalf)
{
    Arrange();
    filedata.filestat.st_ino = 4000 + 0x100000000;
    EXPECT_EQ(TRUE, UpdateInode());
    EXPECT_EQ(4000 + 0x100000000U, StoredInode());
}

TEST_F(WatchInode, IsShownAsASignedNumber)
{
    Arrange();
    filedata.inode = UINT64_MAX;
    EXPECT_EQ(TRUE, UpdateInode());
    EXPECT_EQ(1, Host().Traced(3, "File monitoring object's inode is changed, update inode from -1 "
                                  "to 4001, filepath is /var/log/app.log"));
}

// What a failure of each of the nine registry calls leaves.
struct Failure {
    std::string message;
    uint64_t stored_inode;
    int64_t stored_offset;
    uint64_t inode;
    int64_t offset;
    const char *path;
};

TEST_F(WatchInode, ThatCannotBeRenewedIsAnError)
{
    const std::string no_inode = "1 <Set file monitoring object's inode to registry failed.";
    const std::string no_offset = "1 <Set file monitoring object's offset to registry failed.";
    const std::string no_load = "1 <ChangeFileMonObj failed.return FALSE.";
    const char *path = "/var/log/app.log";
    const std::vector<Failure> failures = {
        {no_inode, 4000, 500, 4000, 500, path},  {no_inode, 4001, 500, 4000, 500, path},
        {no_offset, 4001, 500, 4000, 500, path}, {no_offset, 4001, 0, 4000, 500, path},
        {no_load, 4001, 0, 4000, 500, ""},       {no_load, 4001, 0, 4000, 500, path},
        {no_load, 4001, 0, 4001, 500, path},     {no_load, 4001, 0, 4001, 500, path},
        {no_load, 4001, 0, 4001, 0, path},
    };
    for (size_t i = 0; i < failures.size(); ++i) {
        SCOPED_TRACE(i + 1);
        Arrange();
        const Failure &failure = failures[i];
        Host().FailAnyCall(static_cast<int>(i) + 1);
        EXPECT_EQ(FALSE, UpdateInode());
        EXPECT_EQ((Strings{kInodeChanged, failure.message}), RecordsOf("UpdateInode"));
        EXPECT_EQ(i + 1, Host().calls.size());
        EXPECT_EQ(failure.stored_inode, StoredInode());
        EXPECT_EQ(failure.stored_offset, StoredOffset());
        EXPECT_EQ(failure.inode, filedata.inode);
        EXPECT_EQ(failure.offset, filedata.offset);
        EXPECT_EQ(500, filedata.lastsize);
        EXPECT_STREQ(failure.path, filedata.filemonpath);
    }
}

} // namespace
