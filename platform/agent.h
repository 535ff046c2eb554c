// Small services of the host agent.
#ifndef PLATFORM_AGENT_H
#define PLATFORM_AGENT_H

#include <cstdint>

// Character sets that TarskCodeConvert knows.
constexpr int CODE_REGISTRY = 0; // the registry's: UTF-8
constexpr int CODE_LOG = 1;      // the log's, a setting of the host

// What has become of a line that a pass has checked.
constexpr int LINE_COMPARED = 0;     // with the table, whether an entry has matched or not
constexpr int LINE_WITHOUT_TIME = 1; // its time stamp cannot be read, so nothing matches it
constexpr int LINE_OF_AGENT = 2;     // it is the agent's own, so nothing matches it
constexpr int LINE_FAILED = 3;       // the clock could not be read

// How far a pass has come in a file. The record dies when the call returns.
struct PassPlace {
    int slot;         // whose file it is
    int64_t lines;    // of the file that were read so far, repeats included
    int64_t repeats;  // how many of them are repeats of another line
    const char *text; // of the line that was checked last; null: only repeats have been read
    int64_t pos;      // its offset in the file
    int64_t
        number; // its place among the lines that were read, from 1; 0: an earlier pass has read it
    int32_t times;   // occurrences that it stands for
    int32_t outcome; // a LINE_ value
};

// A part of a log that a pass has read, or found read to its end. The record dies when the call returns.
struct LogPart {
    int slot; // whose log it is: 0 the system log, 1 the customer file, 2 the file monitor's target
    int is_afresh;   // 1: the slot starts afresh behind `last`, whatever it had read before
    uint64_t device; // of the file that was open, whatever its name; inode 0: not known
    uint64_t inode;
    int64_t first;             // offset of the first line that was read; -1: none was
    int64_t last_read;         // of the last one; -1 likewise
    int64_t last;              // of the line behind which the next pass goes on; -1: from the head
    int64_t end = -1;          // where it goes on, when that is known better than by a line
    const char *log = nullptr; // the path that programs write to; not null
};

// Is told of it by the pass, behind the reports of the line. Returns 0, or another number to give the pass up: what it
// has checked of the file is not stored.
using FollowPassFn = int (*)(const PassPlace *place);

extern "C" {

// Copies the install root, an absolute path without a trailing slash. The sibling libraries are
// below its "lib" folder.
int GetTarskRootPath(char *buffer, int size);

// Is this machine a fault-tolerant server? 1 or more: yes; 0: no; -1: it cannot be told.
int call_tarsk_is_ft(void);

// Converts text between the character sets. A source length of -1 means up to the zero byte. What
// cannot be converted keeps its bytes. The destination is always terminated inside its size, and
// never cut in the middle of a character.
int TarskCodeConvert(const char *source, int sourceLength, char *destination, int destinationSize,
                     int sourceCode, int destinationCode);

// Do the report functions of this host leave the monitoring table alone? Returns 1 or 0. A host need not have it: then
// the table is looked at after each report.
int ReportsKeepTable(void) __attribute__((weak));

// Is told of the log that is read from now on, by the path that programs write to. What is reported from here on is of
// that log. The path dies when the call returns. A host need not have it.
void LogIsRead(const char *path) __attribute__((weak));

// Is told of each part of the logs of the slots, in the order in which they are read. A host need not have it.
void LogPartIsRead(const LogPart *part) __attribute__((weak));

// Is told how many lines of the file monitor's target a pass has checked, and how many bytes they have in the file. The
// path dies when the call returns. A host need not have it.
void TargetLinesAreRead(const char *path, int64_t lines, int64_t bytes) __attribute__((weak));

// Who follows the pass that begins; null: nobody. It is told of each line that can match or whose time cannot be read,
// and of some of the others, at least of one in 64 KiB; in the numbers all are counted. A host need not have it.
FollowPassFn PassFollower(void) __attribute__((weak));

} // extern "C"

#endif // PLATFORM_AGENT_H
