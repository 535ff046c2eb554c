// Writes the history: with each pass that has news, the values of the minute under way.
//
//   H1  A pass without news writes nothing and begins no transaction. One with news writes one row.
//   H2  When a pass comes in another minute, the one before is closed: its values are added to the totals of their
//       series. The total of a series is therefore what is stored as such, and its value in the newest minute.
//   H3  When a pass comes in another hour or day, the one before is made of its minutes, or hours.
//   H4  What is older than it is to be kept goes (KeptFor). A step keeps the kMostEvents largest values of each kind
//       that is counted for events; the rest is one value, of the series kOthers. There are kMostSeries series: a
//       new one takes the place of the one that was not used for longest.
//   H5  A clock that is put back by less than an hour stays in the newest minute. By more: what lies in the future
//       goes, and all totals stay.
//
// So the history is at most 1,440 + 744 + 731 rows of 3 * 257 values of events of about nine bytes, and a few of logs
// and inputs: 20 MB on a host where more than 256 events are hit in each minute for years. With five that are hit, it
// is about 200 KB.
//
// On the monitor thread; all is a part of its pass. A pass that is rolled back ends the life of the object.
#ifndef AGENT_HISTORY_HISTORY_WRITER_H
#define AGENT_HISTORY_HISTORY_WRITER_H

#include <cstdint>
#include <map>
#include <vector>

#include "agent/history/series.h"
#include "agent/history/steps.h"
#include "agent/host/store.h"

namespace history {

constexpr size_t kMostEvents = 256;
constexpr size_t kMostSeries = 8192;

class HistoryWriter {
  public:
    // Reads the series, and the minute under way. Throws host::StoreError.
    explicit HistoryWriter(host::Store &store);

    // Writes what has been counted. `now`: seconds since 1970. Throws host::StoreError; the pass is broken then.
    void Save(const News &news, int64_t now);

  private:
    void MoveTo(host::Database &database, int64_t now);
    void CloseMinute(host::Database &database);
    void RollUp(host::Database &database, int64_t length, int64_t parts, int64_t begin);
    void Write(host::Database &database, int64_t length, const Step &step) const;
    void Prune(host::Database &database, int64_t now);
    void Fold(host::Database &database, Values *values);
    int64_t SeriesOf(host::Database &database, const SeriesKey &key);
    void ForgetOldest(host::Database &database);

    host::Store &store_;
    // As in the store, but for what the pass under way has added.
    std::map<SeriesKey, int64_t> series_;
    Kinds kinds_;
    Step minute_; // under way; it begins at 0 when there is none yet
};

} // namespace history

#endif // AGENT_HISTORY_HISTORY_WRITER_H
