// One pass over the watched file.
#include "filemonitor/filemonitor.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "platform/agent.h"
#include "platform/contract.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr const char *kInterface = "WatchFileMonObjMain";

using ll = long long;

// How a pass over the open file ended.
enum class PassEnd {
    kInodeNotStored,
    kOffsetNotStored,
    kNoNews,
    kEndOfFile,
    kNotRead,
    kNotChecked
};

// `lines`: out, those that were checked.
PassEnd ReadNewLines(int64_t *lines)
{
    char line[kFileLineBufferSize + kSearchPadding] = {};
    LocalMoment moment;
    FoundLiterals found{};
    DropIndex();
    for (*lines = 0;; ++*lines) {
        const long count = GetFileNextLine(line, kFileLineBufferSize);
        if (count < 0)
            return PassEnd::kNotRead;
        if (count == 0)
            return PassEnd::kEndOfFile;
        if (CheckFileLineOfPass(&moment, &found, line) == FALSE)
            return PassEnd::kNotChecked;
    }
}

// How far the file is done with. Told by passes without news, too: when a file was emptied and has grown to its old size
// again, they take it for the one that was read, and only the host can know better.
void TellPart(int64_t begin, int64_t lines)
{
    if (LogPartIsRead == nullptr)
        return;
    const LogPart part{.slot = kTargetSlot,
                       .is_afresh = 0,
                       .device = filedata.filestat.st_dev,
                       .inode = filedata.filestat.st_ino,
                       .first = lines > 0 ? begin : -1,
                       .last_read = -1,
                       .last = -1,
                       .end = filedata.offset,
                       .log = filedata.filemonpath};
    LogPartIsRead(&part);
}

PassEnd ReadNews()
{
    if (LogIsRead != nullptr)
        LogIsRead(filedata.filemonpath);
    const int64_t begin = filedata.offset;
    int64_t lines = 0;
    const PassEnd end = ReadNewLines(&lines);
    if (TargetLinesAreRead != nullptr && lines > 0)
        TargetLinesAreRead(filedata.filemonpath, lines, filedata.offset - begin);
    TellPart(begin, lines);
    return end;
}

PassEnd ScanOpenFile()
{
    TRACE_HELPER(TRACE_NOTABLE, "Check file: [%s]", filedata.filemonpath);
    if (UpdateInode() == FALSE)
        return PassEnd::kInodeNotStored;
    const int news = CheckFileMonObj();
    if (news < 0)
        return PassEnd::kOffsetNotStored;
    if (news == 0) {
        TellPart(filedata.offset, 0);
        return PassEnd::kNoNews;
    }
    TRACE_HELPER(TRACE_DETAIL, "<file monitoring object's content has been modified.");
    ClearFileBlock();
    return ReadNews();
}

int TraceEnd(PassEnd end)
{
    const char *path = filedata.filemonpath;
    switch (end) {
    case PassEnd::kInodeNotStored:
        TRACE_HELPER(TRACE_ERROR, "<Update %s's inode failed.", path);
        return FALSE;
    case PassEnd::kOffsetNotStored:
        TRACE_HELPER(TRACE_DETAIL, "<CheckFileMonObj failed.");
        return FALSE;
    case PassEnd::kNotRead:
        TRACE_HELPER(TRACE_ERROR, "<GetFileNextLine() failed.return FALSE.");
        return FALSE;
    case PassEnd::kNotChecked:
        TRACE_HELPER(TRACE_ERROR, "<CheckFileLine() failed.return FALSE.");
        return FALSE;
    case PassEnd::kNoNews:
        TRACE_HELPER(TRACE_DETAIL, "<file monitoring object's content has not been modified.");
        return TRUE;
    case PassEnd::kEndOfFile:
        break;
    }
    TRACE_HELPER(TRACE_DETAIL, "<Get end of file %s", path);
    return TRUE;
}

} // namespace

int CheckFileMonObj(void)
{
    TRACE(TRACE_DETAIL, ">");
    const int64_t size = filedata.filestat.st_size;
    if (filedata.lastsize == size)
        return 0;
    if (filedata.lastsize > size) {
        TRACE(TRACE_NOTABLE, "file monitoring object's content has been unexpectly modified.");
        filedata.lastsize = size;
        filedata.offset = size;
        if (RegSetOffset(size) == FALSE) {
            TRACE(TRACE_ERROR, "<Set file monitoring object's offset to registry failed.");
            return -1;
        }
        TRACE(TRACE_NOTABLE, "<Set offset to EOF(%lld).", ll{filedata.offset});
        return 0;
    }
    filedata.lastsize = size;
    TRACE(TRACE_DETAIL,
          "<file monitoring object's content has been modified, need to scan documents.");
    return 1;
}

int WatchFileMonObjMain(void)
{
    TRACE(TRACE_DETAIL, ">");
    if (filedata.filemonpath[0] == '\0') {
        TRACE(TRACE_DETAIL, "<file monitoring object is empty, ignore.");
        return TRUE;
    }
    if (InitFileMonObj() == FALSE) {
        TRACE(TRACE_ERROR, "<Init file %s failed.", filedata.filemonpath);
        return FALSE;
    }
    const PassEnd end = ScanOpenFile();
    FinishFileMonObj();
    return TraceEnd(end);
}
