// Loading of the monitoring table: the registered events, into match/table_data.h.
//
// The registry, below HKEY_LOCAL_MACHINE\SOFTWARE\KORBIN\TARSKVOSKAR\REPORTTABLE\EVENTLOG:
//
//   APPLICATION                                one subkey per event source
//   APPLICATION\<source>                       one subkey per event ID, named in hexadecimal
//                                              digits; a value NEWAPPLICATIONTYPE keeps the whole
//                                              source out
//   APPLICATION\<source>\<ID>\WATCHSETTING     KeyWord, KeyWord2, KeyWord3: text
//                                              ReportCount, WatchTime: 32-bit integers
//
// Entries stand in the order in which the registry enumerates them, and are matched in that order.
#ifndef VKEVMON_TABLE_H
#define VKEVMON_TABLE_H

#pragma GCC visibility push(default)
extern "C" {

// Empties the table and loads it afresh. The caller holds the mutex EVENTLOG_SEMA.
// Returns 0 (also for no entries), or -1 after tracing why, with an empty table: one source or
// event that cannot be read fails the whole load. Left out without failing: sources of products
// that are not set up, sources with NEWAPPLICATIONTYPE, events whose three keywords are all empty,
// events beyond kMaxEntries.
int VKVMonQueGet(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_TABLE_H
