#include "agent/host/reported_hits.h"

#include <vector>

#include "agent/host/host.h"

namespace host {

namespace {

struct Reached {
    const VKVMon *entry;
    int32_t hits;
};

// At the last conversion for a report. Empty once the report has arrived.
std::vector<Reached> reached;

const VKVMon *EntryOf(const ReportRequest &request)
{
    const ModuleTable &table = HostTable();
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        if (table.entries[i]->Source == request.source)
            return table.entries[i];
    }
    return nullptr;
}

} // namespace

void NoteReachedEntries()
{
    reached.clear();
    const ModuleTable &table = HostTable();
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        const VKVMon &entry = *table.entries[i];
        if (entry.ReportCount > 0 && entry.CurrentCount >= entry.ReportCount)
            reached.push_back({&entry, entry.CurrentCount});
    }
}

int32_t HitsOf(const ReportRequest &request)
{
    const VKVMon *entry = EntryOf(request);
    int32_t hits = entry != nullptr ? entry->ReportCount : 1;
    for (const Reached &candidate : reached) {
        if (candidate.entry == entry)
            hits = candidate.hits;
    }
    reached.clear();
    return hits;
}

} // namespace host
