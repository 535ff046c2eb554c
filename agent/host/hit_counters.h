// The hit counters of the monitoring table, kept in the store so that they outlive the process.
//
// They are saved with the pass that counted them. At a start they are put back by the rule of a
// table reload: an entry takes the counter of the first saved one with the same source, event ID
// and report count.
#ifndef AGENT_HOST_HIT_COUNTERS_H
#define AGENT_HOST_HIT_COUNTERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/host/store.h"
#include "platform/monitor_entry.h"

namespace host {

// The table as the module exports it. Read and written only while the module is at rest, or within
// a call that it makes. Two null pointers: no module.
struct ModuleTable {
    VKVMon **entries = nullptr; // lpVKVMon
    int *count = nullptr;       // nCnt

    // How many entries there are. After a shut-down the count is stale and the slots are null.
    [[nodiscard]] int Size() const;
};

// One entry of the table, as far as it is saved.
struct HitCounter {
    std::string source;
    uint32_t event_id = 0;
    int32_t report_count = 0;
    int32_t current_count = 0;

    bool operator==(const HitCounter &) const = default;
};

// The saved counters. On the monitor thread; the store and its pass are that thread's.
class HitCounters {
  public:
    explicit HitCounters(Store &store);

    // Puts the saved counters into a table that has just been loaded. Entries that are not among
    // the saved keep what they have. Throws StoreError, with the table unchanged.
    void Restore(const ModuleTable &table);

    // Writes what has changed since the last call, as a part of the pass. A table without a change
    // costs no write. Throws StoreError; the pass is broken then.
    void Save(const ModuleTable &table);

    // What is stored, in table order. For commands, too, which show the counters of a daemon.
    // Throws StoreError.
    static std::vector<HitCounter> Load(Store &store);

  private:
    void Replace(const std::vector<HitCounter> &counters);
    void Update(const std::vector<HitCounter> &counters);

    Store &store_;
    // What this object has written or read last: what is in the store once the pass is committed.
    std::vector<HitCounter> saved_;
};

} // namespace host

#endif // AGENT_HOST_HIT_COUNTERS_H
