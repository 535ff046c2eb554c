// The rotated backups of a monitored log in /var/log, by their names.
//
// Backups are numbered (messages.1 is the newest) or dated (messages-20240105); the two schemes are
// never mixed. The customer file has backups only when it is /var/log/vmkernel: vmkernel.1 to
// vmkernel.4.
#ifndef VKEVMON_BACKUP_LIST_H
#define VKEVMON_BACKUP_LIST_H

#include <dirent.h>

#include "platform/contract.h"

using BackupName = char[kBackupNameSize];

extern "C" {

// Module-wide state, on the monitor thread: the slot for which the directory filters work; -1 before the first
// pass. Written by the scan pass.
extern int gMonIndex;

#pragma GCC visibility push(default)

// Lists the backups of a slot, newest first.
//   lpbakfilelist  out: a fresh array that the caller frees; null when the result is 0
// Returns the number of names, 0 also on any failure, which is traced.
int GetSyslogBakFilelist(char (**lpbakfilelist)[kBackupNameSize], int monindex);

// scandir filters for numbered and for dated backups of the slot gMonIndex. Non-zero keeps the
// entry.
int check_message_i(const struct dirent *d);
int check_message_time(const struct dirent *d);

// As GetSyslogBakFilelist, for a host that asks while no pass runs: the filters work for this slot meanwhile.
int ListBackupsOfSlot(char (**names)[kBackupNameSize], int slot);

#pragma GCC visibility pop
} // extern "C"

// Bytes of a backup's path. The live file's name is up to 255 bytes long and needs no copy.
constexpr int kBackupPathSize = 255;

// Writes the path of a backup into `path` of kBackupPathSize bytes.
void BackupPath(const char *name, char *path);

#endif // VKEVMON_BACKUP_LIST_H
