// One pass over the watched file: its block reader, its line splitter, its matcher.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "filemonitor/filemonitor.h"
#include "match/hits.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/table_data.h"
#include "platform/trace.h"
#include "stamp/syslog_time.h"

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr char kNextLine[] = "GetFileNextLine";
constexpr char kCheckLine[] = "CheckFileLine";
constexpr TraceSite kSite = {kUnit, kCheckLine};

// A block must at least hold a line that is delivered whole, with its line feed.
constexpr long kSmallestBlock = 3329;

using ll = long long;

void ClearBlock()
{
    filedata.start = 0;
    filedata.length = 0;
    filedata.linepos = 0;
    filedata.isend = 0;
    filedata.overlong = 0;
    memset(filedata.data, 0, sizeof filedata.data);
}

// ---- the block reader ----

bool BlockArgumentsAreValid(int64_t pos, long leng)
{
    constexpr char kGetFileBlock[] = "GetFileBlock";
    if (filedata.filefp == nullptr)
        TRACE_FOR(kGetFileBlock, TRACE_ERROR, " filefp is NULL");
    if (filedata.filefp == nullptr || pos < 0 || pos > filedata.filestat.st_size) {
        TRACE_FOR(kGetFileBlock, TRACE_ERROR,
                  "<parameter error, pos is %lld, filedata.filestat.st_size is %lld,return -1.",
                  ll{pos}, ll{filedata.filestat.st_size});
        return false;
    }
    if (leng < kSmallestBlock) {
        TRACE_FOR(kGetFileBlock, TRACE_ERROR, "<parameter error, length is %ld, return -1.", leng);
        return false;
    }
    return true;
}

// Did a read deliver what it should? At the end of the stream it may deliver less: the file has
// shrunk.
bool ReadIsComplete(long count, long wanted)
{
    return count >= wanted || feof(filedata.filefp) != 0;
}

long ReadData(long wanted)
{
    return static_cast<long>(fread(filedata.data, 1, static_cast<size_t>(wanted), filedata.filefp));
}

} // namespace

long GetFileBlock(int64_t pos, long leng)
{
    TRACE(TRACE_DETAIL, ">pos=%lld,leng=%ld", ll{pos}, leng);
    if (!BlockArgumentsAreValid(pos, leng))
        return -1;
    const int64_t remaining = filedata.filestat.st_size - pos;
    if (remaining == 0) {
        TRACE(TRACE_DETAIL, "<the end of the file, return 0.");
        return 0;
    }
    const int32_t overlong = filedata.overlong;
    ClearBlock();
    if (fseeko64(filedata.filefp, pos, SEEK_SET) != 0) {
        TRACE(TRACE_SYSTEM, "<fseek error, pos %lld, error code is %d.return -1.", ll{pos}, errno);
        return -1;
    }
    const long want = std::min(leng, kFileBlockSize);
    long count = 0;
    if (want < remaining) {
        count = ReadData(want);
        if (!ReadIsComplete(count, want)) {
            TRACE(TRACE_SYSTEM, "<read file ERROR,  %ld BYTES readed, the error is %d.return -1.",
                  count, ferror(filedata.filefp));
            clearerr(filedata.filefp);
            return -1;
        }
    } else {
        count = ReadData(remaining);
        if (!ReadIsComplete(count, remaining)) {
            TRACE(TRACE_SYSTEM, "<read file ERROR,  %ld BYTES readed. the error is %d.return -1.",
                  count, ferror(filedata.filefp));
            clearerr(filedata.filefp);
            return -1;
        }
        filedata.isend = 1;
    }
    filedata.start = pos;
    filedata.length = count;
    filedata.linepos = 0;
    filedata.overlong = overlong;
    TRACE(TRACE_DETAIL, "GetFileBlock success, from %lld to %lld.", ll{pos}, ll{pos + count});
    return count;
}

// ---- the line splitter ----

namespace {

// Copies the string at the head of the pending line, at most kFileLineMax bytes of it.
void CopyPendingLine(char *pcontent, int size)
{
    const auto room = static_cast<size_t>(std::min(size - 1, kFileLineMax));
    const char *line = filedata.data + filedata.linepos;
    memcpy(pcontent, line, strnlen(line, room));
}

// Looks for the end of the pending line in the block. Adds the bytes it passed to the count, and
// marks the line over-long when the count stood at the threshold before one of them: the start of
// the line is delivered then, with whatever follows it in the block at that moment. Returns the
// index of the line feed, or -1.
int64_t FindLineFeed(long *count, char *pcontent, int size)
{
    const char *begin = filedata.data + filedata.linepos;
    const auto left = static_cast<size_t>(filedata.length - filedata.linepos);
    const auto *feed = static_cast<const char *>(memchr(begin, '\n', left));
    const long passed = feed != nullptr ? feed - begin + 1 : static_cast<long>(left);
    if (*count <= kOverlongCount && *count + passed > kOverlongCount) {
        CopyPendingLine(pcontent, size);
        filedata.overlong = 1;
        TRACE_FOR(kNextLine, TRACE_NOTABLE, "The current line is too long, will be truncated");
    }
    *count += passed;
    return feed != nullptr ? feed - filedata.data : -1;
}

// Delivers the line that ends at the line feed at index `feed`.
long DeliverLine(int64_t feed, long count, char *pcontent, int size)
{
    filedata.data[feed] = '\0';
    filedata.offset = filedata.start + feed + 1;
    if (filedata.overlong == 1) {
        filedata.linepos = feed + 1;
        filedata.overlong = 0;
        TRACE_FOR(kNextLine, TRACE_NOTABLE,
                  "<over-lengthed line is over, GetFileNextLine success!");
        return kOverlongCount;
    }
    CopyPendingLine(pcontent, size);
    filedata.linepos = feed + 1;
    TRACE_FOR(kNextLine, TRACE_DETAIL, "<GetFileNextLine success, the linelength is %ld!", count);
    return count;
}

// Everything complete was delivered. The result of storing is not looked at: the lines would only
// be read again after a restart.
long EndOfFile()
{
    TRACE_FOR(kNextLine, TRACE_DETAIL, "<end of file, return 0.");
    RegSetOffset(filedata.offset);
    return 0;
}

} // namespace

long GetFileNextLine(char *pcontent, int size)
{
    TRACE(TRACE_DETAIL, ">pcontent=%p,size=%d", static_cast<void *>(pcontent), size);
    if (filedata.filefp == nullptr || filedata.filestat.st_size < 1 || pcontent == nullptr ||
        size < 1) {
        TRACE(TRACE_ERROR, "<params error, fp is %p, filesize is %lld, pcontent is %p.return -1.",
              static_cast<void *>(filedata.filefp), ll{filedata.filestat.st_size},
              static_cast<void *>(pcontent));
        return -1;
    }
    if (filedata.length == 0) {
        const long loaded = GetFileBlock(filedata.offset, kFileBlockSize);
        if (loaded < 0) {
            TRACE(TRACE_ERROR, "<GetFileBlock error.return -1.");
            return -1;
        }
        if (loaded == 0)
            return EndOfFile();
    }
    TRACE(TRACE_DETAIL, "GetFileNextLine begin from offset %lld!",
          ll{filedata.start + filedata.linepos});
    memset(pcontent, 0, static_cast<size_t>(size));
    // Set to 0 here only, not for the next block: see the header for the double count.
    long count = 0;
    for (;;) {
        const int64_t feed = FindLineFeed(&count, pcontent, size);
        if (feed >= 0)
            return DeliverLine(feed, count, pcontent, size);
        if (filedata.isend != 0)
            return EndOfFile(); // an unfinished line stays for the next pass
        if (filedata.overlong != 0)
            filedata.linepos = filedata.length; // what was seen of it is dropped
        const long loaded = GetFileBlock(filedata.start + filedata.linepos, kFileBlockSize);
        if (loaded < 0) {
            TRACE(TRACE_ERROR, "<GetFileNextBlock() failed.return -1.");
            return -1;
        }
        if (loaded == 0)
            return EndOfFile();
    }
}

// ---- the matcher ----

namespace {

// A line under test, and now.
struct Occurrence {
    const char *line;
    time_t now;
    LocalMoment *moment;
};

// Returns true when a report was sent.
bool TestEntry(const Occurrence &occurrence, VKVMon *entry)
{
    const char *line = occurrence.line;
    if (!AllKeywordsFound(line, *entry, FindPlain) ||
        !IsWatched(*entry, occurrence.now, occurrence.moment) || !CountHits(kSite, entry, 1))
        return false;
    Report report;
    BuildReport(line, entry, &report);
    if (IsWithheld(*entry))
        return false;
    TRACE_FOR(kCheckLine, TRACE_NOTABLE, "Report %s, the next line's offset is %lld", line,
              ll{filedata.start + filedata.linepos});
    SendReport(kSite, &report);
    return true;
}

// Entry `first` and those behind it. Count and slot are looked at before each entry: a report function may
// change them.
void TestEntriesFrom(int first, const Occurrence &occurrence)
{
    for (int i = first; i < nCnt && lpVKVMon[i] != nullptr; ++i)
        TestEntry(occurrence, lpVKVMon[i]);
}

// Only those that the index lets through: the others cannot match.
void TestCandidates(const Occurrence &occurrence, const FoundLiterals &found)
{
    Candidates candidates; // its entries are filled as far as it counts
    FindCandidates(found, &candidates);
    for (int i = 0; i < candidates.count; ++i) {
        const int entry = candidates.entries[i];
        if (TestEntry(occurrence, lpVKVMon[entry]) && !IndexHolds()) {
            DropIndex();
            TestEntriesFrom(entry + 1, occurrence);
            return;
        }
    }
}

// By the plain rule when nothing is known of what is in the line (`found` is null).
int CheckFileLineAt(LocalMoment *moment, const FoundLiterals *found, const char *line)
{
    TRACE_FOR(kCheckLine, TRACE_DETAIL, ">line=%p", static_cast<const void *>(line));
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "line \"%s\" is being checked\n", line);
    const time_t now = time(nullptr);
    if (now == -1) {
        TRACE_FOR(kCheckLine, TRACE_SYSTEM, "<time() return -1, the error code is %d.", errno);
        return FALSE;
    }
    if (found != nullptr)
        TestCandidates({line, now, moment}, *found);
    else
        TestEntriesFrom(0, {line, now, moment});
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "<return 0.");
    return TRUE;
}

} // namespace

// By the plain rule: the caller may have filled the table by hand just now.
int CheckFileLine(const char *line)
{
    LocalMoment moment;
    return CheckFileLineAt(&moment, nullptr, line);
}

// ---- the pass ----

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

namespace {

constexpr char kPass[] = "WatchFileMonObjMain";

// How a pass over the open file ended.
enum class PassEnd {
    kInodeNotStored,
    kOffsetNotStored,
    kNoNews,
    kEndOfFile,
    kNotRead,
    kNotChecked
};

// With the index when there is one.
int CheckFileLineOfPass(LocalMoment *moment, FoundLiterals *found, const char *line)
{
    CountLineOfPass();
    if (!IndexIsReady())
        return CheckFileLineAt(moment, nullptr, line);
    SearchLine(line, strlen(line), found);
    return CheckFileLineAt(moment, found, line);
}

PassEnd ReadNewLines()
{
    char line[kFileLineBufferSize + kSearchPadding] = {};
    LocalMoment moment;
    FoundLiterals found{};
    DropIndex();
    for (;;) {
        const long count = GetFileNextLine(line, kFileLineBufferSize);
        if (count < 0)
            return PassEnd::kNotRead;
        if (count == 0)
            return PassEnd::kEndOfFile;
        if (CheckFileLineOfPass(&moment, &found, line) == FALSE)
            return PassEnd::kNotChecked;
    }
}

PassEnd ScanOpenFile()
{
    TRACE_FOR(kPass, TRACE_NOTABLE, "Check file: [%s]", filedata.filemonpath);
    if (UpdateInode() == FALSE)
        return PassEnd::kInodeNotStored;
    const int news = CheckFileMonObj();
    if (news < 0)
        return PassEnd::kOffsetNotStored;
    if (news == 0)
        return PassEnd::kNoNews;
    TRACE_FOR(kPass, TRACE_DETAIL, "<file monitoring object's content has been modified.");
    ClearBlock();
    return ReadNewLines();
}

int TraceEnd(PassEnd end)
{
    const char *path = filedata.filemonpath;
    switch (end) {
    case PassEnd::kInodeNotStored:
        TRACE_FOR(kPass, TRACE_ERROR, "<Update %s's inode failed.", path);
        return FALSE;
    case PassEnd::kOffsetNotStored:
        TRACE_FOR(kPass, TRACE_DETAIL, "<CheckFileMonObj failed.");
        return FALSE;
    case PassEnd::kNotRead:
        TRACE_FOR(kPass, TRACE_ERROR, "<GetFileNextLine() failed.return FALSE.");
        return FALSE;
    case PassEnd::kNotChecked:
        TRACE_FOR(kPass, TRACE_ERROR, "<CheckFileLine() failed.return FALSE.");
        return FALSE;
    case PassEnd::kNoNews:
        TRACE_FOR(kPass, TRACE_DETAIL, "<file monitoring object's content has not been modified.");
        return TRUE;
    case PassEnd::kEndOfFile:
        break;
    }
    TRACE_FOR(kPass, TRACE_DETAIL, "<Get end of file %s", path);
    return TRUE;
}

} // namespace

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
