// Reads the history: totals, and values over time.
//
// Takes the bare connection, also one that only reads. What is read is of one state of the store within a transaction
// of the caller's (host::Snapshot), and not otherwise. All throw host::StoreError.
#ifndef AGENT_HISTORY_HISTORY_READER_H
#define AGENT_HISTORY_HISTORY_READER_H

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "agent/history/series.h"
#include "agent/history/steps.h"
#include "agent/host/database.h"

namespace history {

// The totals of all series but those that keep the largest value, which have none.
using Totals = std::map<SeriesKey, int64_t>;
Totals ReadTotals(host::Database &database);

// Totals that are read again and again. They change with each pass, but within a minute only by what stands in one row: that
// one is read each time, and the thousands of series when something else has changed.
class TotalsReader {
  public:
    explicit TotalsReader(host::Database &database) : database_(database) {}

    // Makes of the totals of the last time those of now: always the same object, which nobody else changes.
    void Update(Totals *totals);

    // How often all series were read. For tests.
    [[nodiscard]] int64_t FullReads() const { return full_reads_; }

  private:
    // What changes whenever a total, or which series there are, does.
    struct State {
        int64_t newest_minute = -1;
        int64_t newest_series = 0;
        int64_t sum = 0;

        bool operator==(const State &) const = default;
    };
    struct Total {
        int64_t before = 0; // without the minute under way
        int64_t *now = nullptr;
    };
    State ReadState();
    void ReadAll(Totals *totals);

    host::Database &database_;
    std::optional<State> known_; // of which `totals_` are
    std::map<int64_t, Total> totals_;
    int64_t full_reads_ = 0;
};

// Values over time, in steps of one length. Steps without any value are not there.
struct Course {
    int64_t length = kMinute;
    int64_t from = 0; // the begin of the first step that is asked for
    struct Point {
        int64_t begin = 0;
        std::map<SeriesKey, int64_t> values;
    };
    std::vector<Point> points; // oldest first
};

// Of the steps from a moment on, the one under way included. Hours and days that are not over, and so have no row yet,
// are made of the steps that they have.
Course ReadCourse(host::Database &database, int64_t length, int64_t from);

// The shortest length of which the steps that began `seconds` ago are kept, and are no more than `most`.
int64_t LengthFor(int64_t seconds, int64_t most);

} // namespace history

#endif // AGENT_HISTORY_HISTORY_READER_H
