// The file monitor's line splitter.
#include <algorithm>
#include <cstring>

#include "filemonitor/filemonitor.h"
#include "platform/contract.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr const char *kInterface = "GetFileNextLine";

using ll = long long;

// Copies the string at the head of the pending line, at most kLineMax bytes of it.
void CopyPendingLine(char *pcontent, int size)
{
    const auto room = static_cast<size_t>(std::min(size - 1, kLineMax));
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
        TRACE_HELPER(TRACE_NOTABLE, "The current line is too long, will be truncated");
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
        TRACE_HELPER(TRACE_NOTABLE, "<over-lengthed line is over, GetFileNextLine success!");
        return kOverlongCount;
    }
    CopyPendingLine(pcontent, size);
    filedata.linepos = feed + 1;
    TRACE_HELPER(TRACE_DETAIL, "<GetFileNextLine success, the linelength is %ld!", count);
    return count;
}

// Everything complete was delivered. The result of storing is not looked at: the lines would only
// be read again after a restart.
long EndOfFile()
{
    TRACE_HELPER(TRACE_DETAIL, "<end of file, return 0.");
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
