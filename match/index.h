// The index over the monitoring table: which entries can match a line at all?
//
// The plain rule tests every entry's keywords against every line. The index turns that around: it searches
// the line once, for one keyword of every entry (its anchor), and only the entries whose anchor was found
// are tested. What it lets through is tested like any other; what it holds back could not have matched. So
// results, order, counters, trace records and reports are those of the plain rule.
//
//                    server                          fault-tolerant server
//   searched for     the anchors                     every keyword, and the literal text inside those
//                                                    that are expressions
//   entries tested   those whose anchor was found    all: the trace log shows each expression tried
//
// When it holds: from the moment it was built until the end of the pass, unless a report function changes the
// table, which is looked at after each report. The host may change the table between passes, so each pass
// begins without an index; it is built when enough lines have come to be worth the effort. Storage is fixed.
// What was found in a line is an object of the caller's; the index keeps nothing of it.
#ifndef MATCH_INDEX_H
#define MATCH_INDEX_H

#include <cstddef>
#include <cstdint>

#include "match/literal_set.h"
#include "platform/contract.h"
#include "platform/monitor_entry.h"

// A pass begins: what is known of the table is void.
void DropIndex();

// One more line of the pass is to be tested: builds the index when that is due.
void CountLineOfPass();

// Is there an index?
bool IndexIsReady();

// Builds it now, as if enough lines had come.
void BuildIndex();

// Is the table still the one over which the index was built, as far as it relies on it? Asked after each report, because a report
// function may change entries, slots and count. When it is another table, the index is to be dropped: not even
// its texts may be looked at any more.
bool IndexHolds();

// A number for the index that there is; another one for each that is built. kNoIndex: there is none, or it was dropped.
constexpr unsigned kNoIndex = 0;
unsigned IndexNumber();

// From now on all keywords count for whether the index holds: somebody else relies on them as well.
void RelyOnAllKeywords();

// How many were built so far. For tests.
extern uint64_t indexes_built;

// The entries it knows, 0 to this number - 1. Fewer than nCnt once the monitor has shut down.
int IndexedEntries();

// Searches a line. kSearchPadding bytes behind it can be read (literal_set.h).
//   found  in: all zero, or of another line. out: what was found in this one, as long as the index holds
void SearchLine(const char *line, size_t length, FoundLiterals *found);

// Was the agent's own identifier found, which makes the line one of its own?
bool LineIsOwn(const FoundLiterals &found);

// The entries that can match, in table order, as far as anchors tell.
struct Candidates {
    int count;
    uint16_t entries[kMaxEntries];
};
void FindCandidates(const FoundLiterals &found, Candidates *candidates);

// Keyword 0 to 2 of an entry.
const char *KeywordOf(const VKVMon &entry, int keyword);

// Is this keyword in the line as plain text, or empty? Only on a fault-tolerant server.
bool IsPlainlyFound(const FoundLiterals &found, int entry, int keyword);

// Can this keyword, which is not in the line as plain text, match as an expression? False when it has no
// operator, or when the literal text that any match needs is missing. Only on a fault-tolerant server.
bool CanMatchAsExpression(const FoundLiterals &found, int entry, int keyword);

#endif // MATCH_INDEX_H
