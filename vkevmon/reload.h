// Rebuilding the monitoring table without losing the hits that its entries have counted.
//
// The order of the calls is fixed: VKVMonQueBackUp, VKVMonQueGet, VKVMonQueCpy. When one of the
// first two fails, the caller frees tmp_VKVMon, sets it to null, and does not call VKVMonQueCpy.
#ifndef VKEVMON_RELOAD_H
#define VKEVMON_RELOAD_H

struct VKVMon;

// Module-wide state of a reload, written by the functions below.
extern VKVMon
    *tmp_VKVMon;    // tmp_Cnt records from malloc, of which only Source, EventID, ReportCount and
                    // CurrentCount are filled; null when no reload is under way
extern int tmp_Cnt; // records saved; keeps its value after the reload

#pragma GCC visibility push(default)
extern "C" {

// Saves what identifies each entry, and its hit count. Returns 0, or -1 when memory is short.
int VKVMonQueBackUp(void);

// Gives each entry of the new table the hit count of the first saved record with the same source,
// event ID and report count, and frees the saved records. An entry without such a record keeps its
// 0. Keywords and hours are no part of the identity: changing them keeps the hits, changing the
// report count starts afresh. The result has no meaning.
int VKVMonQueCpy(void);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_RELOAD_H
