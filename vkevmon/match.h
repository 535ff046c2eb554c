// Matching of one syslog line against the monitoring table.
#ifndef VKEVMON_MATCH_H
#define VKEVMON_MATCH_H

#pragma GCC visibility push(default)
extern "C" {

// Tests a line against every entry of the table, in table order, counts hits, and reports each
// entry that reaches its report count, for this line, synchronously. One line can hit several
// entries. The hour that an entry must watch is the current one, not the line's.
//   line   without its line end, at most 3328 bytes
//   times  how often the line occurred: 1, and more for the repeats that were folded into it.
//   However
//          many there are, an entry reports once; the surplus is dropped
// Lines without a readable time stamp, and the agent's own (they hold "TARSKvkvmain"), match
// nothing. Returns 0, matched or not, or -1: null line, or the clock could not be read.
int CheckLine(char *line, int times);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_MATCH_H
