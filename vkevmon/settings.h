// The settings that can be changed while the monitor runs.
//
//   value      accepted                         default  unit
//   CYCLE      10 to 3600                       300      seconds
//   FILENAME   a path of at most 255 bytes      none     -
//
// Both lie directly under the monitor's registry key.
#ifndef VKEVMON_SETTINGS_H
#define VKEVMON_SETTINGS_H

#include <cstdint>

#include "platform/contract.h"

constexpr int kSyslogPathSize = 256; // bytes, the zero byte included

// Module-wide state, on the monitor thread.
extern int32_t cycle; // seconds from the end of one pass to the next; written by ChangeCycle
extern char syslogpath[MAX_MON_FILES][kSyslogPathSize]; // slot 0: the system log; slot 1: the
                                                        // customer file, empty when there is none.
                                                        // Written by ChangeCustFile
extern int32_t IsCustFileChanged; // 1: the customer file has a new name that no pass has met yet;
                                  // set by the event loop, cleared by CheckSyslog

#pragma GCC visibility push(default)
extern "C" {

// Reads the scan cycle. What cannot be read, or lies outside the range, leaves the cycle as it was.
// The result has no meaning.
int ChangeCycle(void);

// Sets slot 0 to the system log and reads the name of the customer file into slot 1, which stays
// empty unless a name could be read. The path is taken as it stands. The result has no meaning.
int ChangeCustFile(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_SETTINGS_H
