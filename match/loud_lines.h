// Which lines of a block can change anything?
//
// Nearly all lines of a log are quiet: they hold all keywords of no entry, no "last message repeated", and a time
// stamp that can be read. The pass needs to know no more of such a line than where it ends. This is the sieve
// that tells the others, the loud ones, from a search of the whole block at once.
//
// What is promised: a line that is called quiet cannot match, whatever the hour; it is no repeat. A line that is
// called loud may be either. Loud lines are then handled like any line, one by one, so results, order,
// counters, trace records and reports are those of the plain rule.
//
// How an entry is represented in the search is chosen by cost: one window of one of its keywords, the one whose
// bytes are rarest in the log at hand and shared with the fewest other entries (block_search.h). Where many entries
// share one anchor (a phrase, with an identifier as the second keyword), a second search, of the line alone, tells which of
// their second keywords are there.
#ifndef MATCH_LOUD_LINES_H
#define MATCH_LOUD_LINES_H

#include <cstddef>
#include <cstdint>

#include "match/line_matches.h"

// What the system logger writes instead of repeating a line.
constexpr char kRepeatText[] = "last message repeated";

// Makes the sieve for the table as it is, for a log that looks like the sample (at most kSampleSize bytes of it
// count; kGramPadding bytes behind it can be read). False when the table has no sieve: an entry without keywords
// matches every line, and on a fault-tolerant server keywords are expressions.
bool PrepareSieve(const char *sample, size_t length);

// Is the log, by its sample, so full of what the keywords are made of that lines by themselves are read faster?
bool SieveIsTooCoarse();

// A pass begins: how often a sieve was made before does not matter.
void ForgetSieve();

// Begins a block of whole lines, in which line ends are newlines. kGramPadding bytes behind it can be read.
void SieveBlock(const char *block, size_t length);

// Does the sieve let much more through by now than it did of the sample? Then the log has changed, and a sieve for what
// it looks like now is worth its price. Says so the later, the more often it has been made in this pass.
bool SieveHasAged();

// How many were made so far, and at how many places second keywords of crowds (crowds.h) were compared. For tests.
extern uint64_t sieves_made;
extern uint64_t seconds_compared;

// The look that found the next hit of the block; SIZE_MAX when there is none. A line that ends at or before it holds
// nothing.
extern size_t next_loud_look;

// Called for each line, or piece of one, for which next_loud_look lies before its end, in order.
// Is it loud? `head` and `end` are offsets in the block; bytes behind `most` of the line do not count. `matches` is
// filled in either case.
bool LineIsLoud(size_t head, size_t end, size_t most, LineMatches *matches);

#endif // MATCH_LOUD_LINES_H
