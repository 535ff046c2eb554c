// The hits of one event, for each value apart. Bounded: of more values than kMaxValues, and of more
// moments than kMaxMoments in all of them, the least recent values go, and how many went is kept.
#ifndef AGENT_POLICY_EVENT_COUNT_H
#define AGENT_POLICY_EVENT_COUNT_H

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "agent/policy/value_count.h"

namespace policy {

class EventCount {
  public:
    static constexpr size_t kMaxValues = 10000;
    static constexpr size_t kMaxMoments = 200000;

    explicit EventCount(const CountTerms &terms) : terms_(terms) {}
    EventCount(EventCount &&) = default;
    EventCount &operator=(EventCount &&) = default;
    EventCount(const EventCount &) = delete;
    EventCount &operator=(const EventCount &) = delete;

    // Counts a line for a value.
    Outcome Take(const std::string &value, const LineHits &line);

    // For an event that tells of lines that do not come. A value is waited for from now on, although no line of it has
    // come yet.
    void Await(const std::string &value, int64_t now_s) { Take(value, {now_s, 0, {}}); }
    // Of no value a line has come later than now, whatever a clock said that was ahead.
    void SetBack(int64_t now_s);
    // The values whose absence is to be reported now. They count as reported.
    std::vector<std::string> TakeOverdue(int64_t now_s);
    [[nodiscard]] bool HasOverdue(int64_t now_s) const;

    // A value, from the least recent to the most recent one.
    struct Entry {
        std::string value;
        ValueCount count;
        int64_t use = 0;        // ascending with each use
        bool is_stored = false; // the store knows the value, if not what it counts by now
    };
    using Entries = std::list<Entry>;
    [[nodiscard]] const Entries &entries() const { return entries_; }
    // Null: it is not known.
    [[nodiscard]] const Entry *Find(const std::string &value) const;

    // What went for want of room since the event was registered.
    struct Dropped {
        int64_t values = 0;
        int64_t hits = 0; // that they had counted or held back, and that no report tells of

        bool operator==(const Dropped &) const = default;
    };
    [[nodiscard]] const Dropped &dropped() const { return dropped_; }

    [[nodiscard]] const CountTerms &terms() const { return terms_; }
    [[nodiscard]] size_t moments() const { return moments_; }

    // ---- for the store ----

    // Adds a value that is more recent than all others.
    void Restore(Entry entry);
    void Restore(const Dropped &dropped) { dropped_ = dropped; }

    // Values that were used, and stored ones that went, since TakeChanges was called last. No more than
    // two for each that is kept, however many lines there were.
    struct Changes {
        std::unordered_set<std::string> used;
        std::unordered_set<std::string> gone;
    };
    [[nodiscard]] const Changes &changes() const { return changes_; }
    Changes TakeChanges(); // what is in them counts as stored

  private:
    Entry &Use(const std::string &value);
    void DropOldest();

    CountTerms terms_;
    Entries entries_;
    std::unordered_map<std::string_view, Entries::iterator> by_value_; // names are in the entries
    size_t moments_ = 0;
    int64_t newest_use_ = 0;
    Dropped dropped_;
    Changes changes_;
};

} // namespace policy

#endif // AGENT_POLICY_EVENT_COUNT_H
