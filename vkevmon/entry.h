// The module's entry: start-up, the life of the monitor, shut-down; and the event loop between
// them.
#ifndef VKEVMON_ENTRY_H
#define VKEVMON_ENTRY_H

#include <cstdint>

#include "platform/siblings.h"
#include "platform/types.h"

// Module-wide state, written by StartThread on the monitor thread.
#pragma GCC visibility push(default)
// Takes the reports; stays set after shut-down. The matchers call it without a null test.
extern VKMonitorCallFn pVKMonitorCall;
extern int32_t IsFTServer; // fault-tolerant server: 1 or more yes, 0 no, -1 it could not be told
// While 0, hits of the source "FTREPORT" are not reported. The loop sets it to 0 after the first pass;
// nothing in the module sets it to another value.
extern int32_t report_ft;
#pragma GCC visibility pop
extern HMODULE hDll;                                       // the report library
extern HMODULE hvkirtuptDll;                               // the product-registry library
extern ReadProductsRegisteriedFn pReadProductsRegisteried; // null: no products to ask for
extern TARSKPPLX_PPInfoClearFn pTARSKPPLX_PPInfoClear;     // frees a product list
extern HANDLE hEventlogMutex; // EVENTLOG_SEMA while this thread holds it, otherwise null
extern char version[9];
extern const char *const chglist[][4]; // file, date, author, detail; ends at a row of nulls

#pragma GCC visibility push(default)
extern "C" {

// Runs the whole life of the monitor on the calling thread: loads the sibling libraries and the
// monitoring table, sets the start-up event of the thread record, runs the event loop, and takes
// everything down again. Returns when the monitor was stopped, could not start, or ended by itself;
// there is no restart inside. A start that fails before the table is loaded never sets the event.
void StartThread(void *lpThread);

// The event loop: one pass, then wait and act until the stop handle of the thread record is
// signalled, a reload of the table fails, or an event could not be created. Called by StartThread
// only.
void WatchSyslog(void *lpThread);

// Called by the host's loader. Does nothing; returns TRUE for every reason.
BOOL DllMain(HMODULE module, DWORD dwReason);

// Does nothing. Hosts look it up to tell that the module is loaded.
void printg(void);

// Prints the version and the change list on standard output.
void syslog_mon_verinfo(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_ENTRY_H
