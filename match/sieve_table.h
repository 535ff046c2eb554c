// The monitoring table as the sieve of loud lines knows it (loud_lines.h): entries, and the different texts among their
// keywords.
//
// A leaf of the sieve: it knows neither logs nor searches. All storage is fixed. Texts for which there is room are copied,
// the others stay in the table: it holds as long as the table stays as it is.
#ifndef MATCH_SIEVE_TABLE_H
#define MATCH_SIEVE_TABLE_H

#include <cstddef>
#include <cstdint>

#include "platform/contract.h"
#include "platform/monitor_entry.h"

constexpr uint16_t kNoneSieved = UINT16_MAX;

// The shortest keyword that can be searched for.
constexpr size_t kShortestSieved = 2;

// A keyword of the table. Equal texts are one keyword.
struct SieveKeyword {
    const char *text; // not ended by a zero byte
    uint16_t length;
    uint16_t users;  // entries that have it
    uint16_t anchor; // its number in the search, or kNoneSieved
};

// An entry of the table.
struct SieveEntry {
    uint16_t index;                      // in the table
    uint16_t keywords[kKeywordsOfEntry]; // kNoneSieved: empty
    uint16_t longest;                    // length of its longest keyword
    uint16_t next;                       // entry under the same anchor, or kNoneSieved
};

// Written by CollectSieveTable, and by those who choose anchors, on the monitor thread.
extern SieveEntry sieve_entries[kMaxEntries];
extern int sieve_entry_count;
extern SieveKeyword sieve_keywords[kKeywordsOfEntry * kMaxEntries];
extern int sieve_keyword_count;

// Reads the table as it is. Entries that cannot match are left out: a keyword with a line end is in no line.
void CollectSieveTable();

// The length of the longest keyword of the entry for which that is least; SIZE_MAX for an empty table.
size_t ShortestOfLongest();

// Calls `act` with each keyword of the entry of at least this length.
template <class Act>
void ForEachKeyword(const SieveEntry &entry, size_t length, Act act)
{
    for (const uint16_t id : entry.keywords) {
        if (id != kNoneSieved && sieve_keywords[id].length >= length)
            act(id);
    }
}

#endif // MATCH_SIEVE_TABLE_H
