#include "agent/host/reported_hits.h"

#include <algorithm>

namespace host {

namespace {

// The report count of the entry that a report is from; 1 when there is no such entry.
int32_t ReportCountOf(const ReportRequest &request, const ModuleTable &table)
{
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        const VKVMon &entry = *table.entries[i];
        if (entry.EventID == request.eventId && std::string_view(request.source) == entry.Source)
            return entry.ReportCount;
    }
    return 1;
}

} // namespace

void ReportedHits::NoteReached(const ModuleTable &table)
{
    // Each conversion anew: lines are converted for other reasons, too, and then no report follows.
    reached_.clear();
    if (table.entries == nullptr || table.count == nullptr)
        return;
    // The table is walked once, not a second time for its size: this is done for each report.
    for (int i = 0; i < *table.count && table.entries[i] != nullptr; ++i) {
        const VKVMon &entry = *table.entries[i];
        // Entries of 0 or less never report, whatever their counter says.
        if (entry.ReportCount > 0 && entry.CurrentCount >= entry.ReportCount)
            reached_.push_back({entry.Source, entry.EventID, entry.CurrentCount});
    }
}

int32_t ReportedHits::HitsOf(const ReportRequest &request, const ModuleTable &table)
{
    const auto found =
        std::find_if(reached_.begin(), reached_.end(), [&](const Reached &candidate) {
            return candidate.event_id == request.eventId && candidate.source == request.source;
        });
    const int32_t hits = found != reached_.end() ? found->hits : ReportCountOf(request, table);
    // Used up. A second report without a conversion would otherwise be given the hits of the first.
    reached_.clear();
    return hits;
}

} // namespace host
