#include "agent/host/hit_counters.h"

#include <map>
#include <tuple>

namespace host {

namespace {

// What makes two entries the same event. With the report count, as in a table reload: hits that
// were counted towards another number are worth nothing.
using Identity = std::tuple<std::string, uint32_t, int32_t>;

// Copies: the table can be rebuilt before the next save.
std::vector<HitCounter> Read(const ModuleTable &table)
{
    std::vector<HitCounter> counters;
    const int size = table.Size();
    counters.reserve(static_cast<size_t>(size));
    for (int i = 0; i < size; ++i) {
        const VKVMon &entry = *table.entries[i];
        counters.push_back({entry.Source, entry.EventID, entry.ReportCount, entry.CurrentCount});
    }
    return counters;
}

// In the same places, too: then the rows stay, and only counters change.
bool SameEvents(const std::vector<HitCounter> &a, const std::vector<HitCounter> &b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].source != b[i].source || a[i].event_id != b[i].event_id ||
            a[i].report_count != b[i].report_count)
            return false;
    }
    return true;
}

} // namespace

int ModuleTable::Size() const
{
    int size = 0;
    if (entries == nullptr || count == nullptr)
        return 0;
    // The count alone would not do: the module leaves it as it is when it frees the table.
    while (size < *count && entries[size] != nullptr)
        ++size;
    return size;
}

// What is stored is read at once, so that the first save knows what it need not write.
HitCounters::HitCounters(Store &store) : store_(store), saved_(Load(store)) {}

std::vector<HitCounter> HitCounters::Load(Store &store)
{
    std::vector<HitCounter> counters;
    store.Read([&](Database &database) {
        Statement select(database, "SELECT source, event_id, report_count, current_count"
                                   " FROM hit_counter ORDER BY position");
        select.Start();
        while (select.Next())
            counters.push_back({select.Text(0), static_cast<uint32_t>(select.Integer(1)),
                                static_cast<int32_t>(select.Integer(2)),
                                static_cast<int32_t>(select.Integer(3))});
    });
    return counters;
}

void HitCounters::Restore(const ModuleTable &table)
{
    saved_ = Load(store_);
    std::map<Identity, int32_t> first;
    for (const HitCounter &counter : saved_)
        // The first of equal ones: try_emplace leaves what is there.
        first.try_emplace({counter.source, counter.event_id, counter.report_count},
                          counter.current_count);
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        VKVMon &entry = *table.entries[i];
        const auto found = first.find({entry.Source, entry.EventID, entry.ReportCount});
        if (found != first.end())
            entry.CurrentCount = found->second;
    }
}

void HitCounters::Save(const ModuleTable &table)
{
    std::vector<HitCounter> counters = Read(table);
    // The usual pass: nothing was hit. It costs no write, so no transaction either.
    if (counters == saved_)
        return;
    if (SameEvents(counters, saved_))
        Update(counters);
    else
        Replace(counters);
    // Not before the writes: one that throws leaves what was stored before as what is compared
    // with.
    saved_ = std::move(counters);
}

void HitCounters::Update(const std::vector<HitCounter> &counters)
{
    store_.Write([&](Database &database) {
        KeptStatement update(database,
                             "UPDATE hit_counter SET current_count = ? WHERE position = ?");
        for (size_t i = 0; i < counters.size(); ++i) {
            // Of up to 2,048 rows, mostly a few.
            if (counters[i].current_count != saved_[i].current_count)
                update->Run(counters[i].current_count, static_cast<int64_t>(i));
        }
    });
}

void HitCounters::Replace(const std::vector<HitCounter> &counters)
{
    store_.Write([&](Database &database) {
        // All anew: after a reload of the table its rows stand in other places.
        database.Execute("DELETE FROM hit_counter");
        Statement insert(database,
                         "INSERT INTO hit_counter (position, source, event_id, report_count,"
                         " current_count) VALUES (?, ?, ?, ?, ?)");
        for (size_t i = 0; i < counters.size(); ++i) {
            const HitCounter &counter = counters[i];
            insert.Run(static_cast<int64_t>(i), counter.source, counter.event_id,
                       counter.report_count, counter.current_count);
        }
    });
}

} // namespace host
