// A reader for one large text log: forwards and backwards, line by line, through one block of 16
// KiB, without holding the file in memory and without allocating while it reads.
//
// Calling order: InitFile; then a load that positions (GotoPos, or GetBlockAt and TrimBlockRight on
// curblock); then any number of line steps, which load the neighbouring blocks by themselves; then
// FinishFile. One file is open at a time. Everything works on module-wide state and on one thread.
//
// A line is the run of bytes up to a newline, or up to the end of the file. In a block every
// newline is stored as a zero byte, so a line is the zero-terminated string at its head; a zero
// byte in the file ends a line in the same way. A line's position is the file offset of its head.
#ifndef FILEACC_FILEACC_H
#define FILEACC_FILEACC_H

#include <cstdint>
#include <cstdio>
#include <sys/types.h>

#include "platform/contract.h"

// Bytes of a block.
constexpr int64_t kBlockSize = 16384;

// Where the bytes of a block end, as seen from the file length recorded when the file was opened.
constexpr int32_t kBlockInside = 0; // before it: more blocks follow
constexpr int32_t kBlockAtEnd = 1;  // exactly at it: the block holds the end of the file
constexpr int32_t kBlockBeyond = 2; // after it: the file has grown since it was opened

// One block of the file, with a line cursor.
//
// Rules, which BlockIsSound checks:
//   R1  0 <= start, and 0 <= length <= kBlockSize.
//   R2  data holds no newline among its first `length` bytes, and data[length] ends the last line.
//   R3  linepos is -1 (before the first line), or the head of a line, or length (after the last one).
//   R4  After a forward load and its trim the last valid byte is a line end, unless the block reaches
//       the recorded end of the file (kBlockAtEnd) or holds no line end at all.
//   R5  A forward block starts where the one before it ended, and a backward block ends where the one
//       after it started (or where a file ends that has shrunk): no overlap and no gap.
struct LogBuf {
    int64_t start;   // file offset of data[0]
    int64_t length;  // valid bytes in data
    int64_t linepos; // index in data of the current line's head, or -1
    int32_t isend;   // kBlockInside, kBlockAtEnd or kBlockBeyond
    char data[kBlockSize + 1];
};

// Module-wide state. The monitor thread alone reads and writes it.
extern LogBuf curblock; // the block in which the cursor stands; written by every load and step
extern LogBuf bakblock; // the one saved copy of curblock; written by SaveFileEnv
extern FILE *gfp;       // the open log; null when none is open. Written by InitFile and FinishFile
// Its size in bytes just before it was opened, never refreshed; -1: none is open.
extern int64_t filelen;

// Which file it is, whatever its name: rotation moves names from file to file. Inode 0: not known.
struct FileIdentity {
    dev_t device;
    ino_t inode;
};
extern FileIdentity openfile; // of the open log; written by InitFile

#pragma GCC visibility push(default)
extern "C" {

// Opens a log for reading, after closing the one that was open. Leaves curblock alone: load a block
// before asking for lines.
// Returns 0, or -1: null name, no such file, or none that can be opened (a FIFO or a device never is).
// In the last case filelen already holds the size of what was found. A directory opens; its loads fail.
int InitFile(const char *name);

// Closes the open log, if any.
void FinishFile(void);

// Loads at most `leng` bytes (never more than kBlockSize) from offset `pos` into a block, its
// cursor before the first line. The block is not trimmed. Returns the number of bytes loaded (0
// when the file has shrunk below `pos`), or -1: no open file, null block or `pos` outside [0,
// filelen), with the block untouched; or a failed seek or read, with the block cleared.
int64_t GetBlockAt(int64_t pos, int64_t leng, LogBuf *plogbuf);

// Loads the block that follows `plogbuf` and cuts it at its last line end. Returns its length, or
// -1.
int64_t GetNextBlock(LogBuf *plogbuf);

// Loads the block that precedes `plogbuf` and cuts off its leading partial line. Returns its
// length, 0 when `plogbuf` starts at offset 0 (it is then unchanged), or -1 (it is then cleared).
int64_t GetPreBlock(LogBuf *plogbuf);

// Cuts the unfinished line off the end of a block. The last line of the file (kBlockAtEnd) is kept
// even without a newline, and a block that is one piece of a longer line is kept whole.
void TrimBlockRight(LogBuf *plogbuf);

// Cuts the first line off a block that does not begin at the head of the file: it may be the tail
// of a line of an earlier block, and is read again, whole, with that one.
void TrimBlockLeft(LogBuf *plogbuf);

// 1 when the cursor of curblock stands at the head of the file, else 0.
int FBegin(void);

// 1 when the cursor of curblock stands on the last line of the file, else 0. Test it before a
// GetNextLine: a step past the end is an error.
int FEof(void);

// Copies curblock aside and back. There is one place; a second save overwrites the first.
void SaveFileEnv(void);
void RecoverFileEnv(void);

// Prints a block on standard output, with its line ends made visible. For a debugger.
void printblock(LogBuf block);

// The offset of the head of the line that holds byte `pos`. The byte at `pos` itself is not looked
// at, so a newline belongs to the line that it ends. Leaves curblock alone. Returns -1 when `pos`
// is outside [0, filelen) or the file cannot be positioned.
int64_t GetLineHead(int64_t pos);

// Step to the next or to the previous line of the open log, and copy it out.
//   pos       out: offset of the line's head in the file. Unchanged on failure.
//   pcontent  out: the line without its newline, cut to size - 1 bytes; the rest of `size` is zero.
//             Empty on failure, unless an argument was bad.
//   size      of pcontent, in bytes, at least 1.
// Return 0, or -1: bad argument, no block loaded, read error, or no line left. The caller cannot
// tell these apart, so test FEof or FBegin first. Load at most one block. A cursor before the first
// line (-1) counts as standing on it for GetPreLine.
int GetNextLine(int64_t *pos, char *pcontent, int size);
int GetPreLine(int64_t *pos, char *pcontent, int size);

// Copy the first or the last line of the open log, with the same arguments. curblock
// stays as it is, so they can be called in the middle of a walk. pcontent is written on success
// only. Return 0, or -1: bad argument, empty file or read error.
int GetFirstLine(char *pcontent, int size);
int GetLastLine(int64_t *pos, char *pcontent, int size);

// Puts the cursor of curblock on the last line that was checked, so that the next GetNextLine
// delivers the first unchecked one.
//   pos       in: where that line was, negative for "no line yet". out: where the cursor stands; -1
//             for "before everything". Unchanged when the line was found where it was.
//   pcontent  in: its text, or as many of its first bytes as were kept. out: the text of the line on
//             which the cursor stands, empty when there is none; unchanged when the text was found.
//   size      of pcontent, in bytes: kLineBufferSize. A line that the search upwards has kept comes
//             back whole, whatever is given here.
// The offset is tried first. When another line is there, the line is looked for around it by the
// lines' time stamps; when it is gone, the last line not newer than it stands in for it. Returns 0,
// found or not; -1 when an argument was bad or the file could not be read, with pos and pcontent
// unchanged.
int GotoPos(int64_t *pos, char *pcontent, int size);

} // extern "C"
#pragma GCC visibility pop

// GetNextLine for a caller that reads millions of lines: gives the length of the line as well, and leaves
// what is behind the line's zero byte as it is.
int ReadNextLine(int64_t *pos, char *pcontent, int size, size_t *length);

// How a block was loaded, which tells the rules that it must keep.
enum class Loaded {
    kAt,       // from any offset: R1 to R3
    kForward,  // and trimmed: also R4, and R5 with the offset at which it has to start
    kBackward, // and trimmed: also R5 with the offset at which it has to end
};

// Does a block keep the rules above? For assertions and tests. `edge` is the offset for R5.
bool BlockIsSound(const LogBuf &block, Loaded loaded = Loaded::kAt, int64_t edge = 0);

#endif // FILEACC_FILEACC_H
