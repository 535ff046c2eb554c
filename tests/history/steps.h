// A history: what happens to the logs, to the clock, to the settings and to the monitor, step by step. Any
// step can be left out and the rest is still a history, so one that fails can be made smaller.
#ifndef TESTS_HISTORY_STEPS_H
#define TESTS_HISTORY_STEPS_H

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace history {

// Which log a step is about.
enum Log { kSystemLog, kCustomerLog, kWatchedFile };
constexpr int kLogs = 3;
constexpr Log kAllLogs[] = {kSystemLog, kCustomerLog, kWatchedFile};

enum class Do {
    // the logs
    kAppend,   // `n` lines of style `m`
    kRepeat,   // "last message repeated `n` times"
    kPart,     // the first `n` percent of a line, at least a byte
    kRest,     // what was left of it
    kGiveUp,   // the rest will never come: the next line follows without a line end
    kRotate,   // `n`: a Create; `m`: 0 numbered, 1 dated
    kTruncate, // to nothing
    kCutTail, // loses the last `n` percent; `m` 1: zero bytes are in their place, as after a power cut
    kReplace,    // by a new file of `n` lines
    kRemoveLine, // `m` lines from `n` percent on are edited out
    kInsertLine, // `m` lines are edited in at `n` percent
    kRewrite,    // in place, every line, with as many bytes
    kRemoveLive, // the live file is gone
    kHarmBackup, // number `n` of the backups: a Harm in `m`
    kStray,      // a file with a name like a backup's: kStrayNames, `n`
    // around them
    kClock,    // moves by `n` seconds
    kTable,    // the registered events, variant `n`; without telling the monitor
    kCustomer, // the customer file's name, `n`; without telling the monitor
    kTarget,   // the file monitor's target, `n`; without telling the monitor
    // the monitor wakes
    kPass,          // the cycle has passed (`n` even) or a scan was asked for
    kReload,        // the table was changed
    kCycle,         // the cycle was changed
    kCustomerEvent, // the customer file was changed
    kTargetEvent,   // the file monitor's target was changed
    kRestart,       // stopped and started again
    kKill,          // killed in the middle of a pass, and started again
    kPassSplit, // a pass, while a line is written in two: `n` percent before, the rest `m` ms later
    kPassDuring, // a pass; before it opens its `n`-th file, `inner` happens, and again before the `m`-th
                 // file from there on, kMostInterruptions times in all (`m` 0: only once)
    kPassDuringCall, // a pass; before its `n`-th call on files, of whatever kind, `inner` happens. The oracle does not know
                     // of single calls: from there on the ledger alone decides
};

// What logrotate leaves in place of the file that it moved away.
enum Create { kCreateEmpty, kCreateNothing, kCopyTruncate };

// What can happen to a backup.
enum Harm { kHarmRemove, kHarmEmpty, kHarmFolder, kHarmDeadLink, kHarmCompress };
constexpr int kHarms = 5;

// What a line can be.
enum Style {
    kPlain,
    kLong,      // beyond what the registry keeps of a line
    kVeryLong,  // beyond what is handled of a line
    kNoStamp,   // as the second line of a stack trace
    kOwn,       // the agent's own
    kTwin,      // the last line once more
    kEmptyLine, // nothing but its line end
    kOddRepeat, // a repeat line without a number
    kOldStamp,  // written into the log with a stamp of another time
    kStyles
};

struct Step {
    Do what = Do::kPass;
    Log log = kSystemLog;
    int n = 0;
    int m = 0;
    std::vector<Step> inner;
};

// Where a history begins.
struct Setup {
    std::string zone = "UTC0";
    time_t start = 0;
    int customer = 0; // a kCustomerNames index
    int target = 0;   // a kTargetNames index
    bool dated = false;
    uint32_t hours = 0xFFFFFF; // that the one event with hours watches
};

struct History {
    Setup setup;
    std::vector<Step> steps;
    // Only what the monitor promises to follow without a gap and without a double; everything else is left
    // out when it is applied.
    bool is_faithful = false;
    // Every byte that is written is read, or told of as lost. Logs are written, rotated, emptied and removed, and nothing
    // in them is edited.
    bool tells_losses = false;
};

// In a faithful history as often as the monitor promises to follow, in any other more often.
constexpr int kMostFaithfulInterruptions = 3;
constexpr int kMostInterruptions = 5;

// File names below /var/log; an empty one: none.
constexpr const char *kCustomerNames[] = {"", "customer.log", "vmkernel", "app.log", "missing.log"};
constexpr const char *kTargetNames[] = {"", "app.log", "other.log"};

// Those of which most are no backups: a number with a zero, a month that is none, too many digits. Two are
// taken for backups: "messages." breaks the numbered sequence, and the date is not looked at too closely.
constexpr const char *kStrayNames[] = {
    "messages.0",       "messages.01",       "messages.x",         "messages.1.gz",
    "messages-2024031", "messages-20241301", "messages-202403101", "messages-2024031a",
    "vmkernel.0",       "vmkernel.5",        "vmkernel.10",        "messages.",
    "messages-20240231"};
constexpr int kHarmlessStrayNames = 11; // the first ones

bool IsWake(Do what);

// As a person reads it, one line without its end.
std::string Text(const Step &step);
std::string Text(const History &history);

// Random numbers, the same on every machine.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t Next();
    int Below(int limit) { return static_cast<int>(Next() % static_cast<uint64_t>(limit)); }
    bool OneIn(int n) { return Below(n) == 0; }

  private:
    uint64_t state_;
};

// A history of the seed. A faithful one has only what keeps the promise; any other has everything.
History Generate(uint64_t seed, bool is_faithful);
// One with everything that a witness of the losses can see.
History GenerateUnedited(uint64_t seed);

} // namespace history

#endif // TESTS_HISTORY_STEPS_H
