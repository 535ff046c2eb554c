// What logs come to under the rules of a trial.
//
// The module makes a pass over each log (trial.h), and says itself which lines it has read, which of them repeat another
// one, which it could not see, and which entries each has matched. This counts. Two things differ from a pass of the
// monitor. Each match is reported, so that it is known; how many hits make a report of the monitor is counted here.
// And reports that the monitor would withhold are told apart.
//
// A line whose repeats were counted backwards ("repeated -5 times") is hardly a line of a syslog daemon. One that comes
// to less than no occurrence matches nothing here; in the monitor it takes hits away from the lines behind it.
//
// Of the one thread that runs the trial, in its pause.
#ifndef AGENT_CLI_TALLY_H
#define AGENT_CLI_TALLY_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/cli/hour_of.h"
#include "agent/cli/trial.h"
#include "agent/cli/trial_input.h"
#include "agent/logs/stamps.h"
#include "agent/policy/policies.h"

namespace cli {

// A line that was met.
struct Sighting {
    size_t file = 0;    // of the trial, from 0
    int64_t number = 0; // of the line in its file, from 1
    std::string text;
};

// What an event of the table has come to.
struct EventTally {
    int64_t lines = 0;     // that matched
    int64_t hits = 0;      // occurrences that they stand for
    int64_t reports = 0;   // that would have been sent
    int64_t held_back = 0; // by the event's cooldown
    int64_t withheld = 0;  // that the monitor would have dropped
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
    int64_t repeats = 0;
    int64_t bytes = 0;
};

class Tally {
  public:
    // What a line that matches has come to.
    using Follow = std::function<void(const VKVMon &, const PassPlace &, policy::Outcome::Kind)>;

    // For a module whose table is loaded, and the host that it runs in. One at a time.
    Tally(monitor::Module &module, host::Host &host, HourOf hour);
    ~Tally();
    Tally(const Tally &) = delete;
    Tally &operator=(const Tally &) = delete;

    // Reads a log from its first line to its last one. `step` is called as the pass comes on, at least once in 64 KiB,
    // with the bytes and the lines of the log that are done; false gives the pass up. Throws host::Error when the
    // log cannot be read.
    void ReadLog(const TrialLog &log, const std::function<bool(int64_t, int64_t)> &step);

    // From here on, each match is told.
    void SetFollower(Follow follow) { follow_ = std::move(follow); }

    [[nodiscard]] const VKVMon &entry(size_t index) const { return *entries_[index].entry; }
    [[nodiscard]] int32_t report_count(size_t index) const { return entries_[index].report_count; }
    // By index in the table.
    [[nodiscard]] const std::vector<EventTally> &events() const { return events_; }
    [[nodiscard]] const std::vector<FileTally> &files() const { return files_; }
    [[nodiscard]] const UnseenTally &unseen(logs::StampProblem problem) const
    {
        return unseen_[static_cast<size_t>(problem)];
    }
    [[nodiscard]] int64_t lines() const;
    [[nodiscard]] int64_t repeats() const;                         // lines that repeat another one
    [[nodiscard]] int64_t own_lines() const { return own_lines_; } // of the agent itself

  private:
    // What the trial changes in an entry, as it was loaded.
    struct Entry {
        VKVMon *entry;
        uint32_t hours;
        int32_t report_count;
        int64_t count = 0; // hits since the last report
    };

    static int TakeReport(ReportRequest *request);
    static int FollowPass(const PassPlace *place);
    void SetUpTable();
    void Note(const PassPlace &place);
    void NoteUnseen(const PassPlace &place);
    void NoteMatch(size_t index, const PassPlace &place);
    [[nodiscard]] policy::Outcome Judge(size_t index, const PassPlace &place);
    [[nodiscard]] Sighting SightingOf(const PassPlace &place) const;

    monitor::Module &module_;
    host::Host &host_;
    HourOf hour_of_;
    std::vector<Entry> entries_;
    std::unordered_map<const char *, size_t> index_; // by the address of the source
    policy::Policies policies_;                      // nothing of what they count is stored
    std::vector<size_t> reported_;                   // by the line that is checked
    std::vector<EventTally> events_;
    std::array<UnseenTally, logs::kStampProblems> unseen_;
    std::vector<FileTally> files_;
    int64_t own_lines_ = 0;
    const std::function<bool(int64_t, int64_t)> *step_ = nullptr; // of the log under way
    Follow follow_;                                               // may be empty
};

} // namespace cli

#endif // AGENT_CLI_TALLY_H
