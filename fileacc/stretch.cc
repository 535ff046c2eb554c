#include "fileacc/stretch.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>

#include "fileacc/fileacc.h"

int64_t bytes_left_to_blocks = kBlockSize;

namespace {

constexpr size_t kPiece = kBlockSize; // of a line longer than a block
static_assert(kStretchSize >= 2 * kPiece, "a stretch holds a line of any length, or a piece of it");

// The block from which stretches have begun, and where the one begins in which the line lies that was left last: the first
// behind it, when that line is in it still. Written on the monitor thread.
int64_t first_start;
int64_t first_end;
int64_t block_start;

bool CursorIsOnALine()
{
    return gfp != nullptr && curblock.linepos >= 0 && curblock.linepos < curblock.length;
}

// The offset of the line behind the cursor.
int64_t BehindCursor()
{
    const char *const line = curblock.data + curblock.linepos;
    const int64_t behind = curblock.linepos + static_cast<int64_t>(strlen(line)) + 1;
    // A piece of a longer line has no line end.
    return curblock.start + std::min(behind, curblock.length);
}

// A zero byte ends a line like a newline.
void TurnZerosToNewlines(char *text, size_t length)
{
    char *const end = text + length;
    for (char *p = text;
         (p = static_cast<char *>(memchr(p, '\0', static_cast<size_t>(end - p)))) != nullptr;)
        *p++ = '\n';
}

// How much of a text is whole lines and whole pieces.
size_t WholeLines(const char *text, size_t length)
{
    const void *last = memrchr(text, '\n', length);
    if (last != nullptr)
        return static_cast<size_t>(static_cast<const char *>(last) - text) + 1;
    return length / kPiece * kPiece;
}

// Where a block ends that begins in the stretch or before it, and of which no byte lies behind it: at its last line end.
int64_t EndOfBlock(const Stretch &stretch, int64_t start)
{
    const int64_t from = std::max(start, stretch.start);
    const int64_t end = start + kBlockSize;
    const void *last =
        memrchr(stretch.text + (from - stretch.start), '\n', static_cast<size_t>(end - from));
    if (last != nullptr)
        return stretch.start + (static_cast<const char *>(last) - stretch.text) + 1;
    return start < stretch.start ? stretch.start : end; // a stretch begins behind a line end
}

void FollowBlocks(const Stretch &stretch, int64_t line)
{
    const int64_t end = stretch.start + static_cast<int64_t>(stretch.length);
    while (block_start + kBlockSize <= end) {
        const int64_t next = EndOfBlock(stretch, block_start);
        if (next > line)
            return;
        block_start = next;
    }
}

// Is the line of the other block, which is all of it, at the cursor of this one?
bool HoldsLineOf(const LogBuf &block, const LogBuf &line)
{
    return block.linepos + line.length <= block.length &&
           (block.linepos == 0 || block.data[block.linepos - 1] == '\0') &&
           memcmp(block.data + block.linepos, line.data, static_cast<size_t>(line.length)) == 0;
}

} // namespace

int64_t BytesForStretches()
{
    return CursorIsOnALine() ? std::max<int64_t>(filelen - bytes_left_to_blocks - BehindCursor(), 0)
                             : 0;
}

bool BlockEndsInsideALine()
{
    return CursorIsOnALine() && curblock.data[curblock.length - 1] != '\0' &&
           BehindCursor() < curblock.start + curblock.length;
}

void BeginStretches()
{
    first_start = curblock.start;
    first_end = block_start = curblock.start + curblock.length;
}

bool ReadStretch(Stretch *stretch)
{
    const auto count = std::min<size_t>(static_cast<size_t>(BytesForStretches()), kStretchSize);
    if (count == 0)
        return false;
    const int64_t start = BehindCursor();
    if (pread(fileno(gfp), stretch->text, count, start) != static_cast<ssize_t>(count))
        return false;
    TurnZerosToNewlines(stretch->text, count);
    stretch->start = start;
    stretch->length = WholeLines(stretch->text, count);
    return stretch->length > 0;
}

StretchLine NextLineOfStretch(const Stretch &stretch, size_t head)
{
    const size_t most = std::min(stretch.length - head, kPiece);
    const void *newline = memchr(stretch.text + head, '\n', most);
    if (newline == nullptr)
        return {head, head + most, head + most};
    const auto end = static_cast<size_t>(static_cast<const char *>(newline) - stretch.text);
    return {head, end, end + 1};
}

void LeaveStretch(const Stretch &stretch, const StretchLine &line)
{
    const size_t length = line.end - line.head;
    memcpy(curblock.data, stretch.text + line.head, length);
    memset(curblock.data + length, 0, sizeof curblock.data - length);
    curblock.start = stretch.start + static_cast<int64_t>(line.head);
    curblock.length = static_cast<int64_t>(line.next - line.head);
    curblock.linepos = 0;
    curblock.isend = kBlockInside;
    FollowBlocks(stretch, curblock.start);
}

void ReturnToBlocks()
{
    LogBuf block;
    if (curblock.start < first_end) {
        if (GetBlockAt(first_start, first_end - first_start, &block) < 0)
            return;
    } else {
        if (GetBlockAt(block_start, kBlockSize, &block) < 0)
            return;
        TrimBlockRight(&block);
    }
    block.linepos = curblock.start - block.start;
    if (HoldsLineOf(block, curblock))
        curblock = block;
}
