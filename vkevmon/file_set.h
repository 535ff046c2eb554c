// The files of a monitored log: the live file and its rotated backups in /var/log, and which of
// them holds the line where the last pass stopped.
//
// Backups are numbered (messages.1 is the newest) or dated (messages-20240105); the two schemes are
// never mixed. The customer file has backups only when it is /var/log/vmkernel: vmkernel.1 to
// vmkernel.4.
#ifndef VKEVMON_FILE_SET_H
#define VKEVMON_FILE_SET_H

#include <cstdint>
#include <dirent.h>

#include "fileacc/fileacc.h"
#include "regacc/regacc.h"

constexpr int kBackupNameSize =
    32; // bytes of a backup's name below /var/log, its zero byte included

using BackupName = char[kBackupNameSize];

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
extern int gMonIndex; // the slot for which the directory filters work; -1 before the first pass

#pragma GCC visibility push(default)
extern "C" {

// Lists the backups of a slot, newest first.
//   lpbakfilelist  out: a fresh array that the caller frees; null when the result is 0
// Returns the number of names, 0 also on any failure, which is traced.
int GetSyslogBakFilelist(char (**lpbakfilelist)[kBackupNameSize], int monindex);

// scandir filters for numbered and for dated backups of the slot gMonIndex. Non-zero keeps the
// entry.
int check_message_i(const struct dirent *d);
int check_message_time(const struct dirent *d);

// Finds the file in which the last pass of a slot stopped.
// Returns 1 when it was found: logindex, curpos, content, headline and the backup list are then
// set. Returns 0 when there is nothing to go on from (first start, lost values, another customer
// file, head line in no file): the slot then starts afresh from the end of the live file, and lines
// already in it are never checked. Returns -1 when the live file cannot be read.
int CheckSyslog(int monindex);

} // extern "C"
#pragma GCC visibility pop

// Bytes of a backup's path. The live file's name is up to 255 bytes long and needs no copy.
constexpr int kBackupPathSize = 255;

// The path of file `index` of a slot. For a backup it is written into `buffer` of kBackupPathSize
// bytes.
const char *LogPath(int monindex, uint32_t index, char *buffer);

// Is the open log the file of that index that CheckSyslog looked at in this pass? False when a rotation has
// come since: its name belongs to another file by now, or it has shrunk.
bool IsFileLookedAt(int monindex, uint32_t index);

// Frees a slot's backup list.
void FreeBackupList(int monindex);

#endif // VKEVMON_FILE_SET_H
