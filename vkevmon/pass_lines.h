// The lines of a pass, in order, from the open file.
//
// A pass with little news, one whose detail is traced, and one on a fault-tolerant server read line after line. A pass
// with much news reads stretches, and has each searched as a whole first (match/loud_lines.h). Nearly all lines turn
// out to be quiet: whatever happens to them, they match nothing, trace nothing and repeat nothing. Of a run of such
// lines only the last is delivered. All other lines are delivered one by one and handled in the ordinary way, so
// results, order, counters, records, reports and the stored place do not depend on how the pass was read.
//
// A report function may change the table. What was called quiet by the table before is void then: the pass reads line
// after line from there on, to its end. So that it is known in time, the line behind one that may be reported is
// delivered by itself too.
#ifndef VKEVMON_PASS_LINES_H
#define VKEVMON_PASS_LINES_H

#include <cstddef>
#include <cstdint>

#include "fileacc/fileacc.h"
#include "match/line_matches.h"
#include "match/literal_set.h"
#include "stamp/syslog_time.h"

// A line of the log and where it begins.
struct PassLine {
    int64_t pos;
    size_t length;
    int64_t number; // among the lines of the file that the pass has read, from 1; 0: it has not
    LineMatches matches; // by the table as it was when it was read
    bool is_quiet;       // nothing matched then, and the stamp was valid
    char text[kLineBufferSize + kSearchPadding];
};

// Module-wide state, on the monitor thread. For tests: from how many bytes of news on a pass reads stretches, and
// how many were searched so far.
extern int64_t least_news_for_stretches;
extern uint64_t stretches_searched;

// A pass begins; it is not known yet what the table is.
void BeginPassLines();

// How many lines of the file the pass has read so far.
extern int64_t lines_read;

// Reads the first new line of the file, which is open and positioned. It is always read by the block: from there the
// reader may have to go back. False when it cannot be read.
bool ReadFirstPassLine(PassLine *line);

// Reads the next line, or the last of a run of quiet ones. False when it cannot be read; ask FEof first.
bool ReadPassLine(LocalMoment *moment, PassLine *line);

// Is what was found in the line when it was read still so, by the table as it is now?
bool MatchesHold(const PassLine &line);

#endif // VKEVMON_PASS_LINES_H
