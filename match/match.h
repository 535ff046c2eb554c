// Matching of one syslog line against the monitoring table.
//
// There are two ways to the same result. The plain rule tests every entry's keywords against the line. In a
// pass with many lines an index over the table tells first which entries can match at all (index.h), or the sieve has told which do (loud_lines.h).
// Results, order, counters, trace records and reports do not depend on the way.
#ifndef MATCH_MATCH_H
#define MATCH_MATCH_H

#include <cstddef>
#include <cstdint>

#include "match/line_matches.h"
#include "match/literal_set.h"
#include "platform/agent.h"
#include "stamp/syslog_time.h"

#pragma GCC visibility push(default)
extern "C" {

// Tests a line against every entry of the table, in table order, counts hits, and reports each entry that
// reaches its report count, for this line, synchronously. One line can hit several entries. The hour that
// an entry must watch is the current one, not the line's. Always by the plain rule: the caller may have
// filled the table by hand just now.
//   line   without its line end, at most 3328 bytes
//   times  how often the line occurred: 1, and more for the repeats that were folded into it. However
//          many there are, an entry reports once; the surplus is dropped
// Lines without a readable time stamp, and the agent's own (they hold "TARSKvkvmain"), match nothing.
// Returns 0, matched or not, or -1: null line, or the clock could not be read.
int CheckLine(char *line, int times);

} // extern "C"
#pragma GCC visibility pop

// What has become of the line that was checked last: a LINE_ value of platform/agent.h. Module-wide state, on the
// monitor thread.
extern int32_t line_outcome;

// CheckLine for the lines of a pass, with the index when there is one.
//   moment  the pass's own, see syslog_time.h
//   found   the pass's own, all zero at its beginning: what the index finds in the line
//   line    not null; kSearchPadding bytes behind its zero byte can be read (literal_set.h)
//   length  of the line, in bytes
int CheckLineOfPass(LocalMoment *moment, FoundLiterals *found, char *line, size_t length,
                    int times);

// The same for a line that the sieve has called quiet: nothing is left to be done.
inline int CheckQuietLine()
{
    line_outcome = LINE_COMPARED;
    return 0;
}

// The same for a line in which the sieve has looked for all keywords (loud_lines.h): what it found is known, and the
// table is still the one of the index.
int CheckSievedLine(LocalMoment *moment, const LineMatches &matches, char *line, int times);

#endif // MATCH_MATCH_H
