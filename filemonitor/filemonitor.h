// The file monitor: one log of any format, followed by inode and byte offset.
//
// It has a block reader and a line splitter of its own, apart from fileacc:
//
//                       fileacc                            filemonitor
//   lines               also an unfinished last one        complete lines only
//   direction           both                               forwards
//   resumes             by the text of a line              by inode and offset
//   ends                where the file ended at the read   at the size seen when the pass began
//   a long line         split where the block ends         cut once, the rest skipped
//
// Functions here return TRUE or FALSE unless they say otherwise, and trace every failure. The file
// is open only during a pass. Everything runs on the monitor thread.
#ifndef FILEMONITOR_FILEMONITOR_H
#define FILEMONITOR_FILEMONITOR_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sys/stat.h>

#include "match/literal_set.h"
#include "platform/contract.h"
#include "platform/types.h"
#include "stamp/syslog_time.h"

constexpr long kFileBlockSize = 16384;        // bytes that are read at most into the block
constexpr size_t kFileDataSize = 16392;       // at least 8 zero bytes always follow the data
constexpr long kOverlongCount = kLineMax + 1; // count at which a line is over-long
// A block must at least hold a line that is delivered whole, with its line feed.
constexpr long kSmallestBlock = kLineMax + 1;
constexpr size_t kMonitorPathSize = kFileNameMax + 1; // bytes, the zero byte included

// The watched file. The first six fields are the block; they are cleared together when a scan
// begins.
struct FileMonObj {
    int64_t start;    // file offset of data[0]
    int64_t length;   // bytes in data; 0: no block is loaded
    int64_t linepos;  // index in data of the next unread line
    uint32_t isend;   // 1: the block reaches the end of the file as measured when the pass began
    int32_t overlong; // 1: the rest of an over-long line is being skipped
    char data[kFileDataSize];
    struct stat64 filestat;             // taken when the pass began; st_ino and st_size are used
    int64_t lastsize;                   // bytes of the file up to which it has been scanned
    int64_t offset;                     // file offset of the first line not yet checked
    char filemonpath[kMonitorPathSize]; // empty: nothing is watched
    uint64_t inode;                     // the inode number that the registry holds for the file
    FILE *filefp;                       // open during a pass, otherwise null
};

// Module-wide state: the one watched file. Written by the functions below, on the monitor thread.
extern FileMonObj filedata;

#pragma GCC visibility push(default)
extern "C" {

// ---- the object and what the registry keeps of it ----

// Reads path, inode and offset from the registry. When the inode or the offset is missing, the path
// is kept all the same and the file is watched; what could not be read keeps its value.
int ChangeFileMonObj(void);

// The two steps of it that can fail after the path: they read `inode` and `offset`.
int RegGetInode(void);
int RegGetOffset(void);

// Store a value in the registry. filedata is not touched.
int RegSetInode(uint64_t inode);
int RegSetOffset(int64_t offset);

// Takes the file's status and opens it for a pass.
int InitFileMonObj(void);

// Closes the file, if it is open.
void FinishFileMonObj(void);

// Compares the stored inode with the file's. A new one is stored together with offset 0, before
// anything of the new file is read: the file is then read from its first byte. What was appended to
// the old file after the last pass is not read.
int UpdateInode(void);

// ---- the scan ----

// One pass: reads every complete line between the stored offset and the size of the file at this
// moment, matches it, and stores the new offset. TRUE also when there was nothing to do.
int WatchFileMonObjMain(void);

// Decides from the file's size whether there is something to read: 1 when it grew, 0 when it did
// not, -1 when a new offset could not be stored. A file that shrank is not read: its offset moves
// to the new end, whatever the file holds now.
int CheckFileMonObj(void);

// Loads a block from offset `pos`. `leng` is at least 3329 bytes; no more than kFileBlockSize are
// read. Returns the number of bytes in the block, 0 when `pos` is the end of the file (the block
// stays as it was), or -1.
long GetFileBlock(int64_t pos, long leng);

// Delivers the next complete line, without its line feed, in a buffer of kFileLineBufferSize bytes.
// Returns its count (length plus one; 3329 for an over-long line, of which the first 3328 bytes are
// delivered), 0 at the end of the file, with the offset stored, or -1.
// A line that straddles two blocks is counted once for its bytes in the first and again from its
// start in the second, and is over-long as soon as that sum reaches 3329; what is delivered can
// then run past its line feed. This double count is fixed by the interface.
long GetFileNextLine(char *pcontent, int size);

// Matches one line against the monitoring table and reports. FALSE: the clock could not be read.
int CheckFileLine(const char *line);

} // extern "C"
#pragma GCC visibility pop

// Makes the block empty: none is loaded.
void ClearFileBlock();

// CheckFileLine for the lines of a pass, with the index when there is one.
//   moment  the pass's own, see syslog_time.h
//   found   the pass's own, all zero at its beginning: what the index finds in the line
//   line    kSearchPadding bytes behind its zero byte can be read (literal_set.h)
int CheckFileLineOfPass(LocalMoment *moment, FoundLiterals *found, const char *line);

#endif // FILEMONITOR_FILEMONITOR_H
