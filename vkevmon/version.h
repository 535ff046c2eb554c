// The three small functions that a host may call, and what they show.
#ifndef VKEVMON_VERSION_H
#define VKEVMON_VERSION_H

#include "platform/types.h"

// Shown by syslog_mon_verinfo; never written.
extern char version[9];
extern const char *const chglist[][4]; // file, date, author, detail; ends at a row of nulls

#pragma GCC visibility push(default)
extern "C" {

// Called by the host's loader. Does nothing; returns TRUE for every reason.
BOOL DllMain(HMODULE module, DWORD dwReason);

// Does nothing. Part of the interface.
void printg(void);

// Prints the version and the change list on standard output.
void syslog_mon_verinfo(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_VERSION_H
