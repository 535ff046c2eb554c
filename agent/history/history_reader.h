// Reads the history: totals, and values over time.
//
// Takes the bare connection, also one that only reads. What is read is of one state of the store within a transaction
// of the caller's (host::Snapshot), and not otherwise. All throw host::StoreError.
#ifndef AGENT_HISTORY_HISTORY_READER_H
#define AGENT_HISTORY_HISTORY_READER_H

#include <cstdint>
#include <map>
#include <vector>

#include "agent/history/series.h"
#include "agent/history/steps.h"
#include "agent/host/database.h"

namespace history {

// The totals of all series but those that keep the largest value, which have none.
std::map<SeriesKey, int64_t> ReadTotals(host::Database &database);

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
