// What a log comes to under the rules of a trial, line by line.
//
// The module itself checks each line; this counts what comes out. It hears of a match in two ways:
// by a report, and by a hit counter that has changed. Three things are done here and not by the
// check of a line: repeats are added up, as a pass does it; the hour of a line is set in the table;
// reports that the monitor would withhold are counted apart.
//
// Of the one thread that runs the trial, in its pause (see trial.h).
#ifndef AGENT_CLI_TALLY_H
#define AGENT_CLI_TALLY_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/cli/trial.h"
#include "agent/cli/trial_input.h"
#include "agent/logs/stamps.h"

namespace cli {

// A line that was met.
struct Sighting {
    size_t file = 0;    // of the trial, from 0
    int64_t number = 0; // of the line in its file, from 1
    std::string text;
};

// What an event of the table has come to.
struct EventTally {
    int64_t lines = 0;    // that matched
    int64_t hits = 0;     // occurrences that they stand for
    int64_t reports = 0;  // that would have been sent
    int64_t withheld = 0; // that the monitor would have dropped
    std::optional<Sighting> first;
    std::optional<Sighting> last;
};

// Lines that no event can match, of one kind.
struct UnseenTally {
    int64_t lines = 0;
    std::optional<Sighting> first;
};

// What was read of a file so far.
struct FileTally {
    std::string name;
    int64_t lines = 0;
    int64_t bytes = 0;
};

// Which hour an event must watch for a line to count: that of the moment, as the monitor takes it,
// or that of the line's own stamp, for a log of another time of day.
enum class HourOf { kNow, kLine };

class Tally {
  public:
    // For a module whose table is loaded. One at a time.
    Tally(monitor::Module &module, HourOf hour);
    ~Tally();
    Tally(const Tally &) = delete;
    Tally &operator=(const Tally &) = delete;

    // Reads a log from its first line to its last one, as a pass of the monitor does: repeats are
    // added to the line before them. `step` is called for each line with the bytes of the log that
    // are done; false ends the reading. Throws host::Error when the log cannot be read.
    void ReadLog(const TrialLog &log, const std::function<bool(int64_t)> &step);

    // Checks one line for so many occurrences. Its text is the module's while it is checked, which
    // takes it as writable.
    void Check(Sighting &line, int times);

    // The entries of the table that the last line checked has matched, by index, in ascending order.
    [[nodiscard]] const std::vector<size_t> &matched() const { return matched_; }

    // Why no event can match the line because of its time stamp; nothing: one can.
    std::optional<logs::StampProblem> StampProblem(const std::string &line);
    // The hour that counts for it, 0 to 23.
    int HourFor(const std::string &line);
    // Does the entry watch that hour?
    bool IsWatched(size_t index, int hour);
    // Would the module find this keyword, alone, in the line? By a check, so it forgets what the
    // line before has come to in reports; matched() stays.
    bool FindsKeyword(const std::string &line, const std::string &keyword);

    [[nodiscard]] const VKVMon &entry(size_t index) const { return *table_[index]; }
    [[nodiscard]] const std::vector<EventTally> &events() const { return events_; }
    [[nodiscard]] const std::vector<FileTally> &files() const { return files_; }
    [[nodiscard]] const UnseenTally &unseen(logs::StampProblem problem) const
    {
        return unseen_[static_cast<size_t>(problem)];
    }
    [[nodiscard]] int64_t lines() const { return lines_; }
    [[nodiscard]] int64_t repeats() const { return repeats_; }     // lines that repeat another one
    [[nodiscard]] int64_t own_lines() const { return own_lines_; } // of the agent itself

  private:
    static int TakeReport(ReportRequest *request);
    void WatchHour(int hour);
    void NoteMatches(const Sighting &line, int times);
    void ReadOpenFile(const std::function<bool(int64_t)> &step);

    monitor::Module &module_;
    HourOf hour_of_;
    // A copy of the pointers, which stay good for the pause; FindsKeyword exchanges those of the
    // module.
    std::vector<VKVMon *> table_;
    std::vector<uint32_t> hours_;                    // of each entry, as loaded
    std::vector<size_t> counting_;                   // entries that need several hits
    std::vector<int32_t> count_before_;              // of each entry
    std::unordered_map<const char *, size_t> index_; // by the address of the source
    std::vector<size_t> reported_;                   // by the line under way
    std::vector<size_t> matched_;
    int watched_hour_ = -1; // for which the table is set; -1: as loaded
    // By index in the table, like the four above.
    std::vector<EventTally> events_;
    std::array<UnseenTally, logs::kStampProblems> unseen_;
    std::vector<FileTally> files_;
    int64_t lines_ = 0;
    int64_t repeats_ = 0;
    int64_t own_lines_ = 0;
};

} // namespace cli

#endif // AGENT_CLI_TALLY_H
