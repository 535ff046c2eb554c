// Line steps over the block: next, previous, head of a line, first and last line of the file.
#include <algorithm>
#include <cstring>

#include "fileacc/fileacc.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "fileacc";

// GetLineHead looks at single bytes as far back as lines go, and then takes pieces of this size: a log
// without line ends must not hold up the monitor.
constexpr int64_t kHeadSearchPiece = 4096;

using ll = long long;

// Copies a line, cut to the buffer. Returns its length.
size_t CutLine(const char *line, char *pcontent, int size)
{
    const size_t length = strnlen(line, static_cast<size_t>(size) - 1);
    memcpy(pcontent, line, length);
    pcontent[length] = '\0';
    return length;
}

// Copies a line as every exported step hands it over: the rest of the buffer is zero.
void CopyLine(const char *line, char *pcontent, int size)
{
    const size_t length = CutLine(line, pcontent, size);
    memset(pcontent + length, 0, static_cast<size_t>(size) - length);
}

// The head of the line that ends with the line end at index `end` - 1 of the block.
int64_t HeadBefore(const LogBuf &block, int64_t end)
{
    const void *before =
        end > 1 ? memrchr(block.data, '\0', static_cast<size_t>(end - 1)) : nullptr;
    return before != nullptr ? static_cast<const char *>(before) - block.data + 1 : 0;
}

void DeliverLineAt(int64_t index, int64_t *pos, char *pcontent, int size)
{
    CopyLine(curblock.data + index, pcontent, size);
    curblock.linepos = index;
    *pos = curblock.start + index;
}

bool CanRead(const int64_t *pos, const char *pcontent, int size)
{
    return gfp != nullptr && filelen > 0 && pos != nullptr && pcontent != nullptr && size > 0;
}

// The index of the line behind the cursor, or -1 when it is not in the block.
int64_t NextInBlock()
{
    if (curblock.linepos < 0)
        return 0;
    if (curblock.linepos >= curblock.length)
        return -1;
    const char *const line = curblock.data + curblock.linepos;
    const int64_t next = curblock.linepos + static_cast<int64_t>(strlen(line)) + 1;
    return next < curblock.length ? next : -1;
}

} // namespace

int64_t GetLineHead(int64_t pos)
{
    TRACE(TRACE_DETAIL, ">pos=%lld", ll{pos});
    if (pos < 0 || pos >= filelen) {
        TRACE(TRACE_ERROR, "<parameter is invalided, pos/filelen is %lld/%lld.return -1.", ll{pos},
              ll{filelen});
        return -1;
    }
    char piece[kHeadSearchPiece];
    for (int64_t end = pos; end > 0;) {
        const int64_t size = pos - end < kLineBufferSize ? 1 : kHeadSearchPiece;
        const int64_t begin = std::max<int64_t>(end - size, 0);
        if (fseeko(gfp, begin, SEEK_SET) == -1) {
            TRACE(TRACE_SYSTEM, "<fseek error, pos is %lld.return -1.", ll{end - 1});
            return -1;
        }
        // What cannot be read (the file has shrunk) holds no newline, and the search goes on before
        // it.
        const size_t got = fread(piece, 1, static_cast<size_t>(end - begin), gfp);
        const void *newline = memrchr(piece, '\n', got);
        if (newline != nullptr) {
            const int64_t head = begin + (static_cast<const char *>(newline) - piece) + 1;
            TRACE(TRACE_DETAIL, "<return %lld.", ll{head});
            return head;
        }
        end = begin;
    }
    TRACE(TRACE_DETAIL, "<get the head of file.");
    return 0;
}

int ReadNextLine(int64_t *pos, char *pcontent, int size, size_t *length)
{
    constexpr const char *kInterface = "GetNextLine";
    TRACE_HELPER(TRACE_DETAIL, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos),
                 static_cast<void *>(pcontent), size);
    if (!CanRead(pos, pcontent, size)) {
        TRACE_HELPER(TRACE_ERROR, "<params error.return -1.");
        return -1;
    }
    *length = 0;
    if (curblock.length <= 0) {
        pcontent[0] = '\0';
        TRACE_HELPER(TRACE_ERROR, "<curblock's length is %ld.return -1.", curblock.length);
        return -1;
    }
    const int64_t next = NextInBlock();
    if (next >= 0) {
        const bool is_first = curblock.linepos < 0;
        *length = CutLine(curblock.data + next, pcontent, size);
        curblock.linepos = next;
        *pos = curblock.start + next;
        if (is_first)
            TRACE_HELPER(TRACE_DETAIL, "<*pos=%lld.pcontent=%s,return 0.", ll{*pos}, pcontent);
        else
            TRACE_HELPER(TRACE_DETAIL, "<*pos=%lld.return 0.", ll{*pos});
        return 0;
    }
    pcontent[0] = '\0';
    if (curblock.isend != kBlockInside) {
        TRACE_HELPER(TRACE_ERROR, "<end of file.return -1.");
        return -1;
    }
    if (GetNextBlock(&curblock) < 0) {
        TRACE_HELPER(TRACE_ERROR, "<GetNextBlock() failed.return -1.");
        return -1;
    }
    curblock.linepos = -1;
    const int result = ReadNextLine(pos, pcontent, size, length);
    TRACE_HELPER(TRACE_DETAIL, "<return %d", result);
    return result;
}

int GetNextLine(int64_t *pos, char *pcontent, int size)
{
    const bool can_read = CanRead(pos, pcontent, size);
    size_t length = 0;
    const int result = ReadNextLine(pos, pcontent, size, &length);
    if (can_read)
        memset(pcontent + length, 0, static_cast<size_t>(size) - length);
    return result;
}

int GetPreLine(int64_t *pos, char *pcontent, int size)
{
    TRACE(TRACE_DETAIL, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos),
          static_cast<void *>(pcontent), size);
    if (gfp == nullptr)
        TRACE(TRACE_ERROR, " gfp is NULL\n");
    if (!CanRead(pos, pcontent, size)) {
        TRACE(TRACE_ERROR, "<parameter error.return -1.");
        return -1;
    }
    memset(pcontent, 0, static_cast<size_t>(size));
    if (curblock.length <= 0) {
        TRACE(TRACE_ERROR, "<curblock's length is %ld.return -1.", curblock.length);
        return -1;
    }
    if (curblock.linepos > 0) {
        const int64_t end = std::min(curblock.linepos, curblock.length);
        DeliverLineAt(HeadBefore(curblock, end), pos, pcontent, size);
        TRACE(TRACE_DETAIL, "<return 0.");
        return 0;
    }
    if (curblock.start == 0) {
        TRACE(TRACE_ERROR, "<head of file.return -1.");
        return -1;
    }
    if (GetPreBlock(&curblock) < 0) {
        // The one failure that is traced as detail: the interface fixes the level.
        TRACE(TRACE_DETAIL, "<GetPreBlock() failed.return -1.");
        return -1;
    }
    curblock.linepos = curblock.length; // after the last line of the new block
    const int result = GetPreLine(pos, pcontent, size);
    TRACE(TRACE_DETAIL, "<return %d.", result);
    return result;
}

int GetFirstLine(char *pcontent, int size)
{
    TRACE(TRACE_DETAIL, ">pcontent=%p,size=%d", static_cast<void *>(pcontent), size);
    if (gfp == nullptr || filelen <= 0 || pcontent == nullptr || size <= 0) {
        TRACE(TRACE_ERROR, "<parameters error.return -1.");
        return -1;
    }
    LogBuf block; // GetBlockAt clears it
    if (GetBlockAt(0, size - 1, &block) < 0) {
        TRACE(TRACE_ERROR, "<GetBlockAt() failed.return -1.");
        return -1;
    }
    CopyLine(block.data, pcontent, size);
    TRACE(TRACE_DETAIL, "<return 0.");
    return 0;
}

int GetLastLine(int64_t *pos, char *pcontent, int size)
{
    TRACE(TRACE_DETAIL, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos),
          static_cast<void *>(pcontent), size);
    if (!CanRead(pos, pcontent, size)) {
        TRACE(TRACE_ERROR, "<parameters error.return -1.");
        return -1;
    }
    const int64_t head = GetLineHead(filelen - 1);
    if (head < 0) {
        TRACE(TRACE_ERROR, "<GetLineHead() error.return -1.");
        return -1;
    }
    LogBuf block; // GetBlockAt clears it
    if (GetBlockAt(head, kBlockSize, &block) < 0) {
        TRACE(TRACE_ERROR, "<GetBlockAt() failed.return -1.");
        return -1;
    }
    CopyLine(block.data, pcontent, size);
    *pos = head;
    TRACE(TRACE_DETAIL, "<return 0.");
    return 0;
}
