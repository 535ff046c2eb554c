// The lock around each load of the monitoring table: the named mutex "EVENTLOG_SEMA". It keeps the
// other components of the agent, which write the table's registry tree, out while the tree is read.
#ifndef VKEVMON_TABLE_LOCK_H
#define VKEVMON_TABLE_LOCK_H

#include "platform/types.h"

// Module-wide state, written by the functions below on the monitor thread: the mutex while this thread holds
// it, otherwise null.
extern HANDLE hEventlogMutex;

// Creates or opens the mutex afresh and waits for it without time limit. Returns false after
// tracing why, under the name of the calling function; when the wait itself failed, the handle
// stays open in hEventlogMutex, which is intended: whoever looks at it sees that the lock was not had.
bool TakeTableLock(const char *function);

// Releases and closes the mutex.
void GiveTableLock();

#endif // VKEVMON_TABLE_LOCK_H
