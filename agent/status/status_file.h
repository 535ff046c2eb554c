// What the daemon tells about itself: a small JSON file in the run-time folder, replaced as a whole
// each time the monitor comes to rest. It is gone after a reboot, as is what it tells of.
//
// One process writes it, the one that holds the DaemonLock; any number may read it, at any time. It
// stays when that process dies. So it says how things were and not that they are: who reads it asks
// first whether the lock is held, and by the process whose number stands in it.
#ifndef AGENT_STATUS_STATUS_FILE_H
#define AGENT_STATUS_STATUS_FILE_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/store.h"

namespace status {

enum class MonitorState {
    kStarting, // loading libraries and table
    kRunning,
    kPausing, // it ended by itself and will be started again
    kStopping,
};

// What made the monitor look. Only the first three read all files.
enum class PassKind { kStart, kCycle, kScan, kCustomerFile, kFileMonitor, kOther };

// One pass that was committed: it is published behind the commit.
struct PassStatus {
    int64_t number = 0; // of passes since the daemon started, 0: none has ended yet
    PassKind kind = PassKind::kOther;
    int64_t began_ms = 0;      // since 1970, UTC
    int64_t began_boot_ns = 0; // CLOCK_BOOTTIME: later than a request means that it saw the request
    int64_t took_us = 0;
};

// One input while it is read.
struct InputStatus {
    std::string name;
    std::string kind;
    int64_t open_files = 0;
    int64_t behind_bytes =
        0; // that are there and not read yet; of a journal and before the first look not known: -1
    int64_t behind_since_ms = 0; // since when something was unread all the time; 0: all was read
    int64_t last_entry_ms = 0;   // when its last entry was read; of a journal, written; 0: none was
    std::vector<std::string> problems; // why something of it is not read, a sentence each

    bool operator==(const InputStatus &) const = default;
};

// Times of day are for people. What is compared with now is in CLOCK_BOOTTIME or CLOCK_MONOTONIC,
// which nobody can set.
struct Status {
    int pid = 0;
    std::string version;
    int64_t started_ms = 0;
    MonitorState state = MonitorState::kStarting;
    int64_t restarts = 0;      // how often the monitor ended by itself
    int64_t next_start_ms = 0; // while pausing
    std::string last_error;    // why it ended last
    int64_t table_size = 0;
    PassStatus last_pass;      // of any kind
    PassStatus last_full_pass; // of a kind that reads all files
    std::string watch_problem; // why changes of files are not noticed at once; empty: they are
    int64_t alive_ns = 0;      // CLOCK_MONOTONIC when the daemon last told; 0: it told no such time
    int64_t still_ms = 0;      // so long the pass under way had read nothing at that moment
    std::string store;         // the file that the daemon stores in; see StoreName
    int64_t waiting_since_ms = 0; // when it began to wait for the store's lock; 0: it does not
    std::vector<InputStatus> inputs;
    std::string inputs_wait; // why nothing more of the inputs is taken; empty: it is
    // CLOCK_BOOTTIME: what was in the inputs then is in the spool, as far as somebody has asked for it. 0: nobody has.
    int64_t inputs_caught_up_ns = 0;
};

// Tells the file that was opened as a store from all others, also from its copies.
std::string StoreName(const host::Store &store);

// Throws host::Error when the file cannot be written.
// Replaces the file. Failing, it leaves the one before in place.
void WriteStatus(const std::filesystem::path &run_folder, const Status &status);

// Nothing when there is no readable status.
// One that another version has written is readable as long as it has all that this one cannot do
// without. It is one moment's: a reader sees a file of before or of after a change, never a part.
std::optional<Status> ReadStatus(const std::filesystem::path &run_folder);

// The words of the file and of the JSON output: "running", "file-monitor". The pointers stay good.
const char *MonitorStateName(MonitorState state);
const char *PassKindName(PassKind kind);
// Does a pass of this kind read the system log, the customer file and the file monitor's target?
// Who waits for his lines to be read must not count one that reads fewer.
bool ReadsAllFiles(PassKind kind);

// How long something of the input has been unread, at a moment in milliseconds since 1970: whole seconds, rounded up, so
// what is behind at all is behind by a second. 0: nothing is.
int64_t SecondsBehind(const InputStatus &input, int64_t now_ms);

// Nanoseconds of CLOCK_BOOTTIME now.
int64_t BootTimeNs();
// Nanoseconds of CLOCK_MONOTONIC now: unlike the one above, it stands while the host is suspended.
int64_t UpTimeNs();
// Milliseconds since 1970 now.
int64_t WallTimeMs();

} // namespace status

#endif // AGENT_STATUS_STATUS_FILE_H
