// The monitoring table in memory: what the matchers test every line against.
#ifndef MATCH_TABLE_DATA_H
#define MATCH_TABLE_DATA_H

#include "platform/monitor_entry.h"

// Module-wide state, read by the matchers on every line. Written by the functions below, and between passes by
// the host, which may fill the table itself.
#pragma GCC visibility push(default)
// Entries 0 to nCnt - 1, each from calloc and owned here; then null.
extern VKVMon *lpVKVMon[kMaxEntries];
extern int nCnt; // entries in use
#pragma GCC visibility pop

// Takes an entry from calloc behind the others. False when the table is full; the entry stays the caller's.
bool AddTableEntry(VKVMon *entry);

// Frees the entries 0 to nCnt - 1 and sets their slots to null. nCnt stays as it is.
void FreeTableEntries();

// The same, and sets nCnt to 0.
void EmptyTable();

// Sets every slot to null and frees nothing: what a table held before the monitor starts is not its own.
void ForgetTableEntries();

#endif // MATCH_TABLE_DATA_H
