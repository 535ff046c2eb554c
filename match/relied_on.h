// What an index over the table relies on, as it was when the index was built, and whether it still is so.
//
// A report function may change the table in any way: its count, its slots, the keywords in them. So everything that is
// relied on is looked at after a report, and in the order in which that is safe: first the slots, for an entry that
// is no longer in the table may be gone.
#ifndef MATCH_RELIED_ON_H
#define MATCH_RELIED_ON_H

#include <cstddef>
#include <cstdint>

// Begins anew, with the first `entries` slots of the table.
void RelyOnSlots(int entries);

// Adds a keyword of one of these entries: its text and its end, `length` bytes behind the beginning.
void RelyOnKeyword(const char *keyword, size_t length);

// Are the slots, and all keywords that were added, the same? Without a look at memory beyond the entries of the table.
// Takes some microseconds for a full table. May say no when bytes have changed behind the end of a keyword.
bool AllReliedOnIsTheSame();

// How often that was looked at, since the module was loaded.
extern uint64_t tables_compared;

#endif // MATCH_RELIED_ON_H
