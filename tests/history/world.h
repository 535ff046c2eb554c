// The world around the monitor: the logs, the clock, what the administrator has registered. And the ledger:
// what was written, and how often each line has to count.
#ifndef TESTS_HISTORY_WORLD_H
#define TESTS_HISTORY_WORLD_H

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/history/folder.h"
#include "tests/history/steps.h"

namespace history {

// A registered event.
struct Event {
    std::string source;
    uint32_t id;
    std::array<std::string, 3> keywords;
    int32_t count;
    uint32_t hours;
};

// Every line holds "k0;" to "k3;", its class, and each class has an event that sums up its occurrences.
constexpr int kClasses = 4;
constexpr int32_t kNeverReports = 1000000000;

// The settings as the registry has them now.
struct Settings {
    std::string customer;      // whole path; empty: no such value
    std::string target;        // the same
    std::vector<Event> events; // in the order of the registry
};

// What was written, and how often it has to count.
struct Ledger {
    std::map<int, int>
        reports; // by the line's id: how often the event that takes every line reports it
    std::set<int> repeated; // lines of which that number is open, because repeats follow them
    std::array<int64_t, kClasses> sums{}; // occurrences, those in repeats included, of each class
    std::array<int64_t, kLogs> bytes{};   // that were written, of each log
};

class World {
  public:
    World(const Disk *disk, const Setup &setup, bool is_faithful);

    // Applies a step that is none of the monitor's.
    void Apply(const Step &step);

    // The monitor is about to wake. In a faithful history no line of the syslog scan is left in two.
    void BeforeWake();

    // A pass over the slots, over the watched file, came to its end and was not rolled back.
    void ScanWasCommitted();
    void WatchWasCommitted();

    // A line in two: the first part now, the rest with Apply(kRest).
    void WritePart(Log log, int percent);
    [[nodiscard]] bool IsInTwo(Log log) const { return !writers_[log].rest.empty(); }

    // Completes every log and gives each a last line, so that nothing waits for anything any more.
    void Finish();

    [[nodiscard]] std::string NameOf(Log log) const;
    [[nodiscard]] std::string PathOf(Log log) const { return "/var/log/" + NameOf(log); }
    [[nodiscard]] bool IsWatched(Log log) const { return !NameOf(log).empty(); }

    Folder folder;
    time_t clock;
    Settings settings;
    Ledger ledger;

  private:
    // Of each log.
    struct Writer {
        std::string rest; // of the line that is being written
        std::string last; // the last line of the live file that is no repeat line
        bool has_last = false;
        int last_id = 0;       // 0: it has none
        int last_class = -1;   // -1: it counts for nothing
        time_t last_time = 0;  // when it was written
        int rotations = 0;     // since the last pass that came to the end of the live file
        bool is_unread = true; // holds something that no committed pass has read
    };

    void Append(Log log, const std::string &text);
    void AppendLine(Log log, int style);
    void AppendLines(const Step &step);
    void AppendRepeat(const Step &step);
    void CompleteLine(Log log);
    void ForgetLast(Log log);
    void Rotate(const Step &step);
    void RotateNumbered(const Step &step);
    void RotateDated(const Step &step);
    void MoveAway(Log log, const std::string &to, int create);
    void Replace(const Step &step);
    void Edit(const Step &step);
    void CutTail(const Step &step, size_t size);
    void AddStray(int number);
    void Rewrite(Log log);
    void HarmBackup(const Step &step);
    void ChangeTable(int variant);
    std::string MakeLine(Log log, int style);
    void Expect(Log log, bool counts);
    [[nodiscard]] std::string BackupName(Log log, int number) const;
    [[nodiscard]] std::string NewestDated() const;
    [[nodiscard]] bool IsOfThisMonth(time_t when) const;
    [[nodiscard]] bool MayAppend(Log log, int style) const;
    [[nodiscard]] bool MayRotate(const Step &step) const;
    [[nodiscard]] bool MayMoveClock(int seconds) const;

    bool is_faithful_;
    uint32_t hours_;
    bool is_dated_;
    bool has_begun_ = false; // the logs' first lines are there; what follows counts
    int next_id_ = 1;
    Writer writers_[kLogs];
    int forward_since_read_ = 0; // seconds
};

// The table that a history begins with.
std::vector<Event> FirstTable(uint32_t hours);

} // namespace history

#endif // TESTS_HISTORY_WORLD_H
