// The block: open and close, load at an offset, forwards and backwards, cut at line ends.
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/stat.h>

#include "fileacc/fileacc.h"
#include "fileacc/open_log.h"
#include "platform/trace.h"

LogBuf curblock;
LogBuf bakblock;
FILE *gfp = nullptr;
int64_t filelen = -1;
FileIdentity openfile{};

namespace {

constexpr char kUnit[] = "fileacc";

// A syslog daemon flushes in blocks, so a log can end in the middle of a line until the next flush.
// A file written as recently as this may be in that state; an older one really ends without a
// newline.
constexpr time_t kFreshSeconds = 2;

// How long a load waits for the rest of such a line. Daemons write the next block within
// microseconds; 50 ms bridges one that lost the processor for a few time slices.
constexpr long kRestOfLineMs = 50;
constexpr long kNsPerMs = 1000L * 1000L;

// The stream's buffer, of the usual size: the search for the head of a line reads single bytes.
constexpr size_t kStreamBufferSize = 4096;
char stream_buffer[kStreamBufferSize];

using ll = long long;

int64_t ReadBytes(int64_t count, char *data)
{
    return count > 0 ? static_cast<int64_t>(fread(data, 1, static_cast<size_t>(count), gfp)) : 0;
}

void NoteBlock(int64_t pos, int64_t length, LogBuf *block)
{
    block->start = pos;
    block->length = length;
    block->linepos = -1;
    if (pos + length == filelen)
        block->isend = kBlockAtEnd;
    else if (pos + length > filelen)
        block->isend = kBlockBeyond;
    else
        block->isend = kBlockInside;
}

bool EndsInsideALine(const LogBuf &block)
{
    return block.isend == kBlockAtEnd && block.data[block.length - 1] != '\n';
}

bool WasJustWritten(struct stat *status)
{
    return fstat(fileno(gfp), status) == 0 &&
           std::llabs(ll{time(nullptr)} - ll{status->st_mtime}) <= ll{kFreshSeconds};
}

int64_t MillisecondsSince(const timespec &begin)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return ((now.tv_sec - begin.tv_sec) * 1000) + ((now.tv_nsec - begin.tv_nsec) / kNsPerMs);
}

// Reads on behind the bytes that the block holds, up to `count` bytes in all. Those before stay as they
// are: read again, they could be those of a file that was truncated and written anew. True when the line
// at the end of the block needs no more looking: it has ended, or cannot be read to its end.
bool ReadOn(int64_t count, LogBuf *block)
{
    const int64_t seen = block->length;
    if (fseeko(gfp, block->start + seen, SEEK_SET) == -1)
        return true;
    const int64_t added = ReadBytes(count - seen, block->data + seen);
    if (added == 0)
        return true;
    block->length += added;
    block->isend = kBlockBeyond;
    return block->length == count ||
           memchr(block->data + seen, '\n', static_cast<size_t>(added)) != nullptr;
}

// A block that ends exactly at the recorded end of the file, inside a line that may still be being
// written: waits a moment for the rest and reads on. When it has come, the block reaches beyond the
// recorded length, so the trim cuts it at its last line end and nothing half-written is delivered. When
// it has not come, nothing has changed: the file ends there, and the line counts as a line. So it does at
// the end of a full block, which has no room for a rest.
void AwaitRestOfLine(int64_t count, LogBuf *block)
{
    struct stat status {};
    if (block->length == count || !EndsInsideALine(*block) || !WasJustWritten(&status))
        return;
    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    while (MillisecondsSince(begin) < kRestOfLineMs) {
        if (fstat(fileno(gfp), &status) != 0)
            return;
        if (status.st_size > block->start + block->length && ReadOn(count, block))
            return;
        const timespec step{0, kNsPerMs};
        nanosleep(&step, nullptr);
    }
}

bool CursorIsOnLastLine()
{
    if (curblock.isend == kBlockInside)
        return false;
    if (curblock.linepos >= curblock.length || curblock.length == 0)
        return true;
    if (curblock.linepos < 0)
        return false;
    const auto line = static_cast<int64_t>(strlen(curblock.data + curblock.linepos));
    return curblock.linepos + line + 1 >= curblock.length;
}

// ---- the rules of a block, by their numbers in the header ----

bool IsWithinBounds(const LogBuf &block) // R1
{
    return block.start >= 0 && block.length >= 0 && block.length <= kBlockSize;
}

// A trimmed block is ended by the line end that it keeps, any other by the byte after it.
bool HoldsWholeStrings(const LogBuf &block) // R2
{
    if (memchr(block.data, '\n', static_cast<size_t>(block.length)) != nullptr)
        return false;
    return block.length == 0 || block.data[block.length - 1] == '\0' ||
           block.data[block.length] == '\0';
}

bool CursorIsAtALine(const LogBuf &block) // R3
{
    if (block.linepos < -1 || block.linepos > block.length)
        return false;
    return block.linepos <= 0 || block.linepos == block.length ||
           block.data[block.linepos - 1] == '\0';
}

bool EndsAsTrimmed(const LogBuf &block) // R4
{
    return block.isend == kBlockAtEnd || block.length == 0 ||
           block.data[block.length - 1] == '\0' ||
           memchr(block.data, '\0', static_cast<size_t>(block.length)) == nullptr;
}

} // namespace

int InitFile(const char *name)
{
    TRACE(TRACE_DETAIL, ">name=%s", name != nullptr ? name : "NULL");
    FinishFile();
    if (name == nullptr) {
        TRACE(TRACE_ERROR, "<name==NULL.return -1.");
        return -1;
    }
    struct stat64 status {};
    if (stat64(name, &status) != 0) {
        TRACE(TRACE_SYSTEM, "<stat %s error.return -1.", name);
        return -1;
    }
    filelen = status.st_size;
    TRACE(TRACE_DETAIL, "filelen is %lld", ll{filelen});
    gfp = OpenLog(name, &status);
    if (gfp == nullptr) {
        TRACE(TRACE_SYSTEM, "<open file %s error,return -1.", name);
        return -1;
    }
    setvbuf(gfp, stream_buffer, _IOFBF, sizeof stream_buffer);
    openfile = {status.st_dev, status.st_ino};
    // The name has changed hands: what counts is the file that was opened. What the same file has grown
    // by stays out of the length, for its last line may be half-written.
    if (status.st_size != filelen) {
        filelen = status.st_size;
        TRACE(TRACE_DETAIL, "filelen is %lld", ll{filelen});
    }
    TRACE(TRACE_DETAIL, "<return 0.");
    return 0;
}

void FinishFile(void)
{
    TRACE(TRACE_DETAIL, ">");
    if (gfp != nullptr) {
        fclose(gfp);
        gfp = nullptr;
        filelen = -1;
    }
    TRACE(TRACE_DETAIL, "<");
}

int64_t GetBlockAt(int64_t pos, int64_t leng, LogBuf *plogbuf)
{
    TRACE(TRACE_DETAIL, ">pos=%lld,leng=%lld,plogbuf=%p", ll{pos}, ll{leng},
          static_cast<void *>(plogbuf));
    if (gfp == nullptr)
        TRACE(TRACE_ERROR, " gfp is NULL");
    if (gfp == nullptr || pos < 0 || pos >= filelen || plogbuf == nullptr) {
        TRACE(TRACE_ERROR, "<parameter error,return -1.");
        return -1;
    }
    if (fseeko(gfp, pos, SEEK_SET) == -1) {
        memset(plogbuf, 0, sizeof *plogbuf);
        TRACE(TRACE_SYSTEM, "<fseek error, pos %lld.return -1.", ll{pos});
        return -1;
    }
    const int64_t count = leng <= kBlockSize ? leng : kBlockSize;
    const int64_t got = ReadBytes(count, plogbuf->data);
    if (got < count && feof(gfp) == 0) {
        memset(plogbuf, 0, sizeof *plogbuf);
        TRACE(TRACE_SYSTEM, "<read file ERROR,  %ld BYTES readed.return -1.", got);
        return -1;
    }
    // Every time: the byte after the last one read must be zero, even after a full block.
    memset(plogbuf->data + got, 0, sizeof plogbuf->data - static_cast<size_t>(got));
    NoteBlock(pos, got, plogbuf);
    AwaitRestOfLine(count, plogbuf);

    char *const end = plogbuf->data + plogbuf->length;
    for (char *p = plogbuf->data;
         (p = static_cast<char *>(memchr(p, '\n', static_cast<size_t>(end - p)))) != nullptr;)
        *p++ = '\0';
    assert(BlockIsSound(*plogbuf));
    TRACE(TRACE_DETAIL, "<return %ld.", plogbuf->length);
    return plogbuf->length;
}

int64_t GetNextBlock(LogBuf *plogbuf)
{
    TRACE(TRACE_DETAIL, ">plogbuf=%p", static_cast<void *>(plogbuf));
    if (plogbuf == nullptr) {
        TRACE(TRACE_ERROR, "<plogbuf==NULL.return -1.");
        return -1;
    }
    // The block before was cut at a line end, so this one starts at a line head. A line longer than
    // a block is not joined: its next piece starts here.
    const int64_t from = plogbuf->start + plogbuf->length;
    const int64_t got = GetBlockAt(from, kBlockSize, plogbuf);
    if (got < 0)
        return got;
    TrimBlockRight(plogbuf);
    assert(BlockIsSound(*plogbuf, Loaded::kForward, from));
    TRACE(TRACE_DETAIL, "<return %ld.", plogbuf->length);
    return plogbuf->length;
}

int64_t GetPreBlock(LogBuf *plogbuf)
{
    TRACE(TRACE_DETAIL, ">plogbuf=%p", static_cast<void *>(plogbuf));
    if (plogbuf == nullptr) {
        TRACE(TRACE_ERROR, "<plogbuf== NULL.return -1.");
        return -1;
    }
    const int64_t end = plogbuf->start;
    if (end == 0) {
        TRACE(TRACE_DETAIL, "<plogbuf->start == 0");
        return 0;
    }
    const int64_t from = end > kBlockSize ? end - kBlockSize : 0;
    const int64_t count = end - from;
    memset(plogbuf, 0, sizeof *plogbuf);
    const int64_t got = GetBlockAt(from, count, plogbuf);
    if (got < 0) {
        TRACE(TRACE_ERROR, "<GetBlockAt from %lld length %ld error,return -1.", ll{from}, count);
        return -1;
    }
    TrimBlockLeft(plogbuf);
    assert(BlockIsSound(*plogbuf, Loaded::kBackward,
                        from + got)); // that is `end`, or the file has shrunk
    TRACE(TRACE_DETAIL, "<return %ld.", plogbuf->length);
    return plogbuf->length;
}

void TrimBlockRight(LogBuf *plogbuf)
{
    TRACE(TRACE_DETAIL, ">plogbuf=%p", static_cast<void *>(plogbuf));
    if (plogbuf == nullptr) {
        TRACE(TRACE_ERROR, "<plogbuf==NULL");
        return;
    }
    if (plogbuf->isend == kBlockAtEnd) {
        TRACE(TRACE_DETAIL, "<plogbuf->isend == 1");
        return;
    }
    const int64_t length = plogbuf->length;
    if (length > 0 && plogbuf->data[length - 1] == '\0') {
        TRACE(TRACE_DETAIL, "<get last 0.");
        return;
    }
    const void *end =
        length > 1 ? memrchr(plogbuf->data, '\0', static_cast<size_t>(length - 1)) : nullptr;
    if (end == nullptr) {
        // One piece of a line longer than a block: it is delivered as a line.
        TRACE(TRACE_DETAIL, "<there is no 0 in block.");
        return;
    }
    plogbuf->length = static_cast<const char *>(end) - plogbuf->data + 1;
    TRACE(TRACE_DETAIL, "<");
}

void TrimBlockLeft(LogBuf *plogbuf)
{
    TRACE(TRACE_DETAIL, ">plogbuf=%p", static_cast<void *>(plogbuf));
    if (plogbuf == nullptr) {
        TRACE(TRACE_ERROR, "<plogbuf==NULL");
        return;
    }
    if (plogbuf->start == 0) {
        // A normal case that is reported as an error: the interface fixes the level.
        TRACE(TRACE_ERROR, "<no need to trim this block.");
        return;
    }
    const int64_t length = plogbuf->length;
    const void *first =
        length > 1 ? memchr(plogbuf->data, '\0', static_cast<size_t>(length - 1)) : nullptr;
    if (first != nullptr) {
        // Cut even when the block happens to begin at a line head: that cannot be known here, and
        // the line is delivered with the block before.
        const int64_t cut = static_cast<const char *>(first) - plogbuf->data + 1;
        plogbuf->start += cut;
        plogbuf->length -= cut;
        memmove(plogbuf->data, plogbuf->data + cut, static_cast<size_t>(plogbuf->length + 1));
    }
    TRACE(TRACE_DETAIL, "<");
}

int FBegin(void)
{
    const int begin =
        curblock.start == 0 && (curblock.linepos <= 0 || curblock.length == 0) ? 1 : 0;
    TRACE(TRACE_DETAIL, "<return %d", begin);
    return begin;
}

int FEof(void)
{
    const int eof = CursorIsOnLastLine() ? 1 : 0;
    TRACE(TRACE_DETAIL, "<return %d", eof);
    return eof;
}

void SaveFileEnv(void)
{
    TRACE(TRACE_DETAIL, ">");
    bakblock = curblock;
    TRACE(TRACE_DETAIL, "<");
}

void RecoverFileEnv(void)
{
    TRACE(TRACE_DETAIL, ">");
    curblock = bakblock;
    TRACE(TRACE_DETAIL, "<");
}

void printblock(LogBuf block)
{
    TRACE(TRACE_DETAIL, ">start=%lld,length=%ld", ll{block.start}, block.length);
    printf("***********************************\n");
    printf("block info: start = %lld, length = %ld, isend = %d\n", ll{block.start}, block.length,
           block.isend);
    for (int64_t i = 0; i < block.length;) {
        printf("%s\\0\n", block.data + i);
        i += static_cast<int64_t>(strlen(block.data + i)) + 1;
    }
    TRACE(TRACE_DETAIL, "<");
}

bool BlockIsSound(const LogBuf &block, Loaded loaded, int64_t edge)
{
    if (!IsWithinBounds(block) || !HoldsWholeStrings(block) || !CursorIsAtALine(block))
        return false;
    switch (loaded) {
    case Loaded::kForward:
        return EndsAsTrimmed(block) && block.start == edge;
    case Loaded::kBackward:
        return block.start + block.length == edge;
    case Loaded::kAt:
        break;
    }
    return true;
}
