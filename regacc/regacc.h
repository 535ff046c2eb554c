// The scan state that outlives the process: where the syslog scan of each slot stopped.
//
// All values lie under one registry key. The two slots (monindex 0: the system log, 1: the customer
// file) are told apart by a suffix of the value names.
//
//   value            type       content
//   RECORDTIME       REG_DWORD  end of the last pass, low 32 bits of a time_t; shared by both slots
//   HEADLINE  (_C)   REG_SZ     first line of the followed file, at most 499 bytes
//   POS       (_C)   REG_DWORD  bits 0 to 31 of the offset of the last line checked
//   H_POS     (_C)   REG_DWORD  bits 32 to 63 of it; an offset of -1 (none) is 0xFFFFFFFF twice
//   CONTENT   (_C)   REG_SZ     text of the last line checked, at most 499 bytes
//
// The scan compares the texts as prefixes, so the cut does no harm. Nothing is
// kept in memory but the end time (last_end_time.h): every call opens the key, reads or writes, and closes it. A call that fails
// half-way leaves what it had already written or read. The types and sizes of stored values are not
// checked.
//
// Text buffers get the stored value and nothing else: no byte behind it is written. Each function
// returns 0, or -1 after tracing what failed.
#ifndef REGACC_REGACC_H
#define REGACC_REGACC_H

#include <cstdint>
#include <ctime>

#include "platform/contract.h"

#pragma GCC visibility push(default)
extern "C" {

// Stores the low 32 bits of `time`. That is intended: the format of the value is fixed.
int RegSetRecTime(time_t time);

// Reads the time back, zero-extended, so never negative. *time is written on success only.
int RegGetRecTime(time_t *time);

// Reads the head line straight into `line`, a buffer of `size` bytes. The buffer is not cleared
// before.
int RegGetHeadLine(char *line, int size, int monindex);

// Stores the first 499 bytes of `line`.
int RegSetHeadLine(const char *line, int monindex);

// Reads the offset and the text of the last line checked. Either pointer may be null: that half is
// then skipped. `content` is cleared over `size` bytes before it is read. When the high half of the
// offset cannot be read, *pos is left with the low half.
int RegGetOrientation(int64_t *pos, char *content, int size, int monindex);

// Stores both, the text cut to its first 499 bytes.
int RegSetOrientation(int64_t pos, const char *content, int monindex);

} // extern "C"
#pragma GCC visibility pop

// Is monindex a slot? If not, traces it under the caller's names.
bool MonIndexIsValid(const char *unit, const char *function, int monindex);

#endif // REGACC_REGACC_H
