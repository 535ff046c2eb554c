// The file monitor's block reader.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "filemonitor/filemonitor.h"
#include "platform/contract.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr const char *kInterface = "GetFileBlock";

using ll = long long;

bool BlockArgumentsAreValid(int64_t pos, long leng)
{
    if (filedata.filefp == nullptr)
        TRACE_HELPER(TRACE_ERROR, " filefp is NULL");
    if (filedata.filefp == nullptr || pos < 0 || pos > filedata.filestat.st_size) {
        TRACE_HELPER(TRACE_ERROR,
                     "<parameter error, pos is %lld, filedata.filestat.st_size is %lld,return -1.",
                     ll{pos}, ll{filedata.filestat.st_size});
        return false;
    }
    if (leng < kSmallestBlock) {
        TRACE_HELPER(TRACE_ERROR, "<parameter error, length is %ld, return -1.", leng);
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

void ClearFileBlock()
{
    filedata.start = 0;
    filedata.length = 0;
    filedata.linepos = 0;
    filedata.isend = 0;
    filedata.overlong = 0;
    memset(filedata.data, 0, sizeof filedata.data);
}

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
    ClearFileBlock();
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
