// How many hits a report stands for. The report itself does not say, and when it arrives the module
// has already set its entry's counter back to 0.
//
// But the module has the line converted for the report while the counter still stands: this is its
// last call before it sets the counter back. At that moment the entry, and no other one, has reached
// its report count.
#ifndef AGENT_HOST_REPORTED_HITS_H
#define AGENT_HOST_REPORTED_HITS_H

#include <cstdint>

#include "platform/siblings.h"

namespace host {

// A line of a log is converted for a report: remembers which entries of the module's table have
// reached their report counts, with their hits. On the monitor thread, as what follows.
void NoteReachedEntries();

// The hits behind a report that has just arrived. The report's source is the entry's own field, so
// its address tells which entry made it. Without a conversion before it, the hits are the entry's
// report count; of a report that is no entry's, there is 1.
int32_t HitsOf(const ReportRequest &request);

} // namespace host

#endif // AGENT_HOST_REPORTED_HITS_H
