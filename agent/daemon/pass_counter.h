// What a pass counts for the history: hits, reports, lines, entries of inputs, how late lines were read.
//
// Hits are those that the module has in its table, and those of the reports, with which it sets a counter back. Lines
// are counted as the module tells of them: one by one, and at the end of a pass those of the file monitor's target.
//
// Of the monitor thread, one for each life of the monitor.
#ifndef AGENT_DAEMON_PASS_COUNTER_H
#define AGENT_DAEMON_PASS_COUNTER_H

#include <array>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "agent/history/history_writer.h"
#include "agent/history/series.h"
#include "agent/host/host.h"
#include "agent/inputs/batch.h"
#include "agent/policy/report_desk.h"
#include "platform/agent.h"

namespace syslogmond {

class PassCounter {
  public:
    // Follows the passes for its life. Throws host::StoreError.
    PassCounter(host::Host &host, policy::FindLineTime find_time);
    ~PassCounter();
    PassCounter(const PassCounter &) = delete;
    PassCounter &operator=(const PassCounter &) = delete;

    // The counters of the table are what they were before: hits count from here on.
    void BeginTable();

    // A report has arrived, and this became of it.
    void Reported(const ReportRequest &request, policy::Outcome::Kind outcome, int64_t hits);
    // The pass has checked lines of the file monitor's target.
    void TargetLinesAreRead(const std::string &path, int64_t lines, int64_t bytes);
    // Entries of inputs become part of the pass.
    void Stored(const inputs::Batch &batch);

    // At the end of a pass: writes what there is, if anything. Throws host::StoreError.
    void Save(bool table_is_reloaded);
    // The pass was committed, and took so long: told with the next pass that has news, so that one
    // without writes nothing.
    void Committed(int64_t took_us);

  private:
    struct Entry {
        std::string source;
        uint32_t id = 0;
        int32_t report_count = 0;
        int32_t hits = 0;
    };
    static int FollowPass(const PassPlace *place);
    void Follow(const PassPlace &place);
    void BeginFile(const PassPlace &place);
    void EndFile();
    void CountHits();
    void CountHitsOfNewTable();
    void AddPasses();

    host::Host &host_;
    policy::FindLineTime find_time_;
    history::HistoryWriter writer_;
    history::News news_;
    std::vector<Entry> table_; // as it was at the end of the last pass

    // The file that the pass reads, and what it has read of it: this is done for each line.
    struct {
        std::string log;
        int slot = -1;
        int64_t lines = 0;
        int64_t end = 0; // where the last line ended
        int64_t bytes = 0;
        int64_t without_time = 0;
    } file_;

    std::array<int64_t, std::size(history::kPassBounds) + 1> passes_{}; // not written yet
    int64_t pass_time_us_ = 0;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_PASS_COUNTER_H
