// The files of a monitored log: the live file and its rotated backups, and which of them holds the line where
// the last pass stopped.
#ifndef VKEVMON_FILE_SET_H
#define VKEVMON_FILE_SET_H

#include <cstdint>

#include "fileacc/fileacc.h"
#include "regacc/regacc.h"
#include "vkevmon/backup_list.h"

// The backups of one log. Entry 1 of the log's files is lpbakfilelist[0], the most recent one.
struct BakFileList {
    int ibakfilenum;           // names
    BackupName *lpbakfilelist; // from calloc; null when there are none
};

// Module-wide state of each slot, on the monitor thread. Written by CheckSyslog and the scan pass.
// Texts and position are read from the registry again at each CheckSyslog, so the registry is the
// reference.
extern char headline[MAX_MON_FILES][kLineBufferSize]; // first line of the file that is followed
extern char content[MAX_MON_FILES][kLineBufferSize];  // text of the last line checked
extern int64_t curpos[MAX_MON_FILES];                 // its offset; -1: no line
extern uint32_t logindex[MAX_MON_FILES]; // file that holds it: 0 live, k the k-th newest backup
extern BakFileList syslog_bakfilelist[MAX_MON_FILES]; // from CheckSyslog to the end of the pass

#pragma GCC visibility push(default)
extern "C" {

// Finds the file in which the last pass of a slot stopped.
// Returns 1 when it was found: logindex, curpos, content, headline and the backup list are then
// set. Returns 0 when there is nothing to go on from (first start, lost values, another customer
// file, head line in no file): the slot then starts afresh from the end of the live file, and lines
// already in it are never checked. Returns -1 when the live file cannot be read, or is empty.
// When a rotation comes in between and there are backups, the files are listed and looked at again, at most
// kMostLooksAgain times; what the last look finds holds.
int CheckSyslog(int monindex);

} // extern "C"
#pragma GCC visibility pop

// How often a rotation makes CheckSyslog, or the pass, begin its search again. A log that is rotated more often
// than that within the milliseconds of one search is no log that can be followed, and the search must end.
constexpr int kMostLooksAgain = 3;

// The path of file `index` of a slot. For a backup it is written into `buffer` of kBackupPathSize
// bytes.
const char *LogPath(int monindex, uint32_t index, char *buffer);

// Finds out whether the pass must ask CheckSyslog again before it reads the log that is open under the name of
// this file. It must when a rotation has come since CheckSyslog looked, so that the name belongs to another file
// by now, or the file has become shorter, and there are backups among which the one that was looked at can be
// found. Lists the backups again when there were none.
bool DetectRotation(int monindex, uint32_t index);

// Frees a slot's backup list.
void FreeBackupList(int monindex);

#endif // VKEVMON_FILE_SET_H
