// The watched file: its path, inode and offset, in memory and in the registry.
#include <cerrno>
#include <cstring>

#include "fileacc/open_log.h"
#include "filemonitor/filemonitor.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/split64.h"
#include "platform/trace.h"

FileMonObj filedata;

namespace {

constexpr char kUnit[] = "filemonitor";

static_assert(kFileNameMax < kMonitorPathSize, "the path must stay terminated");

using ll = long long;

// Both halves of a number are read into the same four bytes, low one first. So of a high half that is stored with fewer
// bytes, the others are those of the low one: the interface has it so.
bool ReadHalf(const char *name, uint32_t *half)
{
    DWORD size = sizeof *half;
    return RegRead(HKEY_LOCAL_MACHINE, kFileMonitorKey, name, nullptr, half, &size) != 0;
}

bool WriteHalf(const char *name, uint32_t half)
{
    return RegWrite(HKEY_LOCAL_MACHINE, kFileMonitorKey, name, REG_DWORD, &half, sizeof half) != 0;
}

} // namespace

int RegGetInode(void)
{
    TRACE(TRACE_DETAIL, ">");
    uint32_t half = 0;
    if (!ReadHalf(kInodeLowValue, &half)) {
        TRACE(TRACE_ERROR, "<Get low bits of inode from registry failed, return FALSE!");
        return FALSE;
    }
    filedata.inode = half;
    if (!ReadHalf(kInodeHighValue, &half)) {
        TRACE(TRACE_ERROR, "<Get high bits of inode from registry failed, return FALSE!");
        return FALSE;
    }
    filedata.inode |= static_cast<uint64_t>(JoinHalves(0, half));
    TRACE(TRACE_DETAIL, "<return TRUE.");
    return TRUE;
}

int RegGetOffset(void)
{
    TRACE(TRACE_DETAIL, ">");
    uint32_t half = 0;
    if (!ReadHalf(kOffsetLowValue, &half)) {
        TRACE(TRACE_ERROR, "<Get low bits of offset from registry failed, return FALSE !");
        return FALSE;
    }
    filedata.offset = JoinHalves(half, 0);
    if (!ReadHalf(kOffsetHighValue, &half)) {
        TRACE(TRACE_ERROR, "<Get high bits of offset from registry failed, return FALSE !");
        return FALSE;
    }
    filedata.offset |= JoinHalves(0, half);
    TRACE(TRACE_DETAIL, "<return TRUE.");
    return TRUE;
}

int ChangeFileMonObj(void)
{
    TRACE(TRACE_DETAIL, ">");
    memset(filedata.filemonpath, 0, sizeof filedata.filemonpath);
    DWORD type = REG_SZ;
    DWORD size = kFileNameMax; // the name is set outside the module and only read here
    if (RegRead(HKEY_LOCAL_MACHINE, kFileMonitorKey, kFileNameValue, &type, filedata.filemonpath,
                &size) == 0) {
        memset(filedata.filemonpath, 0, sizeof filedata.filemonpath);
        TRACE(TRACE_ERROR, "<Get filemonpath failed!");
        return FALSE;
    }
    filedata.filemonpath[kMonitorPathSize - 1] = '\0';
    if (RegGetInode() == FALSE) {
        TRACE(TRACE_ERROR, "<get file monitoring object's inode is failed.");
        return FALSE;
    }
    if (RegGetOffset() == FALSE) {
        TRACE(TRACE_ERROR, "<get file monitoring object's offset is failed.");
        return FALSE;
    }
    filedata.lastsize = filedata.offset;
    TRACE(TRACE_DETAIL, "<file monitoring object's path changed to %s", filedata.filemonpath);
    return TRUE;
}

int RegSetInode(uint64_t inode)
{
    const auto value = static_cast<int64_t>(inode);
    TRACE(TRACE_DETAIL, ">inode=%lld", ll{value});
    if (!WriteHalf(kInodeLowValue, LowHalf(value))) {
        TRACE(TRACE_ERROR, "<Set low bits of inode to registry failed, return FALSE !");
        return FALSE;
    }
    if (!WriteHalf(kInodeHighValue, HighHalf(value))) {
        TRACE(TRACE_ERROR, "<Set high bits of inode to registry failed, return FALSE !");
        return FALSE;
    }
    TRACE(TRACE_DETAIL, "<Set inode to registry success, return TRUE! ");
    return TRUE;
}

int RegSetOffset(int64_t offset)
{
    TRACE(TRACE_DETAIL, ">offset=%lld", ll{offset});
    if (!WriteHalf(kOffsetLowValue, LowHalf(offset))) {
        TRACE(TRACE_ERROR, "<Set low bits of offset to registry failed, return FALSE !");
        return FALSE;
    }
    if (!WriteHalf(kOffsetHighValue, HighHalf(offset))) {
        TRACE(TRACE_ERROR, "<Set high bits of offset to registry failed, return FALSE !");
        return FALSE;
    }
    TRACE(TRACE_DETAIL, "<Set offset to registry success, return TRUE !  ");
    return TRUE;
}

int InitFileMonObj(void)
{
    TRACE(TRACE_DETAIL, ">");
    FinishFileMonObj();
    const char *path = filedata.filemonpath;
    if (stat64(path, &filedata.filestat) != 0) {
        TRACE(TRACE_SYSTEM, "<stat %s error, error code is %d. return FALSE.", path, errno);
        return FALSE;
    }
    filedata.filefp = OpenLog(path, &filedata.filestat);
    if (filedata.filefp == nullptr) {
        TRACE(TRACE_SYSTEM, "<open file %s error, error code is %d, return FALSE.", path, errno);
        return FALSE;
    }
    // Whole blocks are read, straight into filedata.
    setvbuf(filedata.filefp, nullptr, _IONBF, 0);
    TRACE(TRACE_DETAIL, "<InitFileMonObj compete, return TRUE.");
    return TRUE;
}

void FinishFileMonObj(void)
{
    TRACE(TRACE_DETAIL, ">");
    if (filedata.filefp != nullptr) {
        // Only its first byte, which is all that the interface promises to clear.
        memset(static_cast<void *>(&filedata.filestat), 0, 1);
        fclose(filedata.filefp);
        filedata.filefp = nullptr;
    }
    TRACE(TRACE_DETAIL, "<");
}

int UpdateInode(void)
{
    TRACE(TRACE_DETAIL, ">");
    const uint64_t current = filedata.filestat.st_ino;
    if (filedata.inode == current) {
        TRACE(TRACE_DETAIL, "<File monitoring object's inode isn't changed.");
        return TRUE;
    }
    TRACE(
        TRACE_NOTABLE,
        "File monitoring object's inode is changed, update inode from %lld to %lld, filepath is %s",
        static_cast<ll>(filedata.inode), static_cast<ll>(current), filedata.filemonpath);
    if (RegSetInode(current) == FALSE) {
        TRACE(TRACE_ERROR, "<Set file monitoring object's inode to registry failed.");
        return FALSE;
    }
    if (RegSetOffset(0) == FALSE) {
        TRACE(TRACE_ERROR, "<Set file monitoring object's offset to registry failed.");
        return FALSE;
    }
    if (ChangeFileMonObj() == FALSE) {
        TRACE(TRACE_ERROR, "<ChangeFileMonObj failed.return FALSE.");
        return FALSE;
    }
    TRACE(TRACE_DETAIL, "<UpdateInode success, return TRUE! ");
    return TRUE;
}
