// Many lines of the open log at a time, for a pass that has megabytes to read.
//
// A stretch is a run of whole lines behind the cursor of curblock, read at once. Its lines are those that
// GetNextLine would deliver, one after the other: a zero byte ends a line as a newline does, and a line longer than a
// block comes in pieces of the size of a block. The last line of the file is never in a stretch: growth, a half-written
// line and all that can fail are the business of the block.
//
// Calling order: BeginStretches; for each stretch ReadStretch, any number of lines by NextLineOfStretch, and LeaveStretch,
// which puts the cursor of curblock on the last one that was taken; ReturnToBlocks. In a stretch, curblock stays as it is.
#ifndef FILEACC_STRETCH_H
#define FILEACC_STRETCH_H

#include <cstddef>
#include <cstdint>

// Bytes of a stretch. It is searched while it is in the second-level cache.
constexpr size_t kStretchSize = size_t{64} * 1024;

// Bytes behind a stretch that may be read; they mean nothing.
constexpr size_t kStretchPadding = 64;

// Bytes at the end of the file that are left to blocks, at least 1: as many as a block may see of the end. Tests make
// it smaller, so that short files have stretches too.
extern int64_t bytes_left_to_blocks;

struct Stretch {
    int64_t start; // file offset of text[0]
    size_t length; // in bytes, of whole lines
    char text[kStretchSize + kStretchPadding];
};

// A line of a stretch, by its places in the text.
struct StretchLine {
    size_t head;
    size_t end;  // the line end, which is no part of the line
    size_t next; // the head of the next one
};

// Bytes behind the cursor of curblock that stretches can take. Needs a line delivered from it.
int64_t BytesForStretches();

// Does curblock end inside a line behind that of the cursor? A block that was loaded backwards can, at a line longer than a
// block. That line goes on where the block ends, and not in pieces from its head: it has to be read by blocks.
bool BlockEndsInsideALine();

// From curblock on, stretches are read.
void BeginStretches();

// Reads the stretch behind the cursor of curblock. False, with nothing changed, when there is none, or the file cannot
// be read or has shrunk: the block will find out how.
bool ReadStretch(Stretch *stretch);

// The line that begins at `head`, which is less than the length.
StretchLine NextLineOfStretch(const Stretch &stretch, size_t head);

// Puts the cursor of curblock on a line of the stretch. It is a block by itself then: enough for another stretch.
void LeaveStretch(const Stretch &stretch, const StretchLine &line);

// Makes curblock the block that it would be if all had been read by blocks, with the cursor on the same line. How far a log is
// read that grows meanwhile depends on where its blocks begin. When the file cannot be read, or the line is not there any
// more, curblock stays as it is: the next line is read from behind it.
void ReturnToBlocks();

#endif // FILEACC_STRETCH_H
