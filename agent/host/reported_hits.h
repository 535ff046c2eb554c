// How many hits a report stands for. The report itself does not say, and when it arrives the module
// has already set its entry's counter back to 0.
//
// But the module has the line converted for the report while the counter still stands: this is its
// last call before it sets the counter back. At that moment the entry, and no other one, has reached
// its report count.
#ifndef AGENT_HOST_REPORTED_HITS_H
#define AGENT_HOST_REPORTED_HITS_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/host/hit_counters.h"
#include "platform/siblings.h"

namespace host {

// Of the monitor thread.
class ReportedHits {
  public:
    // A line of a log is converted for a report: remembers which entries of the table have reached
    // their report counts, with their hits.
    void NoteReached(const ModuleTable &table);

    // The hits behind a report that has just arrived. Report and entry belong together when source
    // and event ID are the same: what the report points at may be a copy. Without a conversion
    // before it, the hits are the entry's report count; of a report that is no entry's, there is 1.
    int32_t HitsOf(const ReportRequest &request, const ModuleTable &table);

  private:
    struct Reached {
        std::string source;
        uint32_t event_id;
        int32_t hits;
    };
    std::vector<Reached> reached_; // at the last conversion; empty once the report has arrived
};

} // namespace host

#endif // AGENT_HOST_REPORTED_HITS_H
