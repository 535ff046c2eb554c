// The slow twin of the file monitor's line splitter: one byte after the other.
#include <algorithm>
#include <cstring>

#include "filemonitor/filemonitor.h"
#include "platform/trace.h"
#include "tests/support/twin/reader.h"

namespace test::twin {

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr int64_t kFullBlock = 16384;

using ll = long long;

} // namespace

long Splitter::GetFileBlock(int64_t pos, long leng)
{
    TRACE(0, ">pos=%lld,leng=%ld", ll{pos}, leng);
    if (pos < 0 || pos > size) {
        TRACE(1, "<parameter error, pos is %lld, filedata.filestat.st_size is %lld,return -1.",
              ll{pos}, ll{size});
        return -1;
    }
    if (pos == size) {
        TRACE(0, "<the end of the file, return 0.");
        return 0;
    }
    const int64_t want = std::min<int64_t>(leng, kFullBlock);
    const int64_t remaining = size - pos;
    start = pos;
    length = 0;
    linepos = 0;
    isend = want >= remaining;
    data.assign(kFileDataSize, '\0');
    for (int64_t i = pos;
         length < std::min(want, remaining) && i < static_cast<int64_t>(bytes.size()); ++i)
        data[static_cast<size_t>(length++)] = bytes[static_cast<size_t>(i)];
    TRACE(0, "GetFileBlock success, from %lld to %lld.", ll{pos}, ll{pos + length});
    return length;
}

long Splitter::EndOfFile()
{
    TRACE_FOR("GetFileNextLine", 0, "<end of file, return 0.");
    stored = offset;
    RegSetOffset(offset);
    return 0;
}

long Splitter::GetFileNextLine(char *pcontent, int buffer_size)
{
    TRACE(0, ">pcontent=%p,size=%d", static_cast<void *>(pcontent), buffer_size);
    if (length == 0) {
        const long loaded = GetFileBlock(offset, kFullBlock);
        if (loaded < 0) {
            TRACE(1, "<GetFileBlock error.return -1.");
            return -1;
        }
        if (loaded == 0)
            return EndOfFile();
    }
    TRACE(0, "GetFileNextLine begin from offset %lld!", ll{start + linepos});
    memset(pcontent, 0, static_cast<size_t>(buffer_size));
    long count = 0;
    for (;;) {
        for (int64_t i = linepos; i < length; ++i) {
            if (count == 3329) {
                strncpy(pcontent, data.c_str() + linepos, 3328);
                overlong = true;
                TRACE(3, "The current line is too long, will be truncated");
            }
            ++count;
            if (data[static_cast<size_t>(i)] != '\n')
                continue;
            data[static_cast<size_t>(i)] = '\0';
            offset = start + i + 1;
            if (overlong) {
                linepos = i + 1;
                overlong = false;
                TRACE(3, "<over-lengthed line is over, GetFileNextLine success!");
                return 3329;
            }
            strcpy(pcontent, data.c_str() + linepos);
            linepos = i + 1;
            TRACE(0, "<GetFileNextLine success, the linelength is %ld!", count);
            return count;
        }
        if (isend)
            return EndOfFile();
        if (overlong)
            linepos = length;
        const long loaded = GetFileBlock(start + linepos, kFullBlock);
        if (loaded < 0) {
            TRACE(1, "<GetFileNextBlock() failed.return -1.");
            return -1;
        }
        if (loaded == 0)
            return EndOfFile();
    }
}

} // namespace test::twin
