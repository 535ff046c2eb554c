// What the daemon tells about itself: a small JSON file in the run-time folder, replaced as a whole
// each time the monitor comes to rest. It is gone after a reboot, as is what it tells of.
#ifndef AGENT_STATUS_STATUS_FILE_H
#define AGENT_STATUS_STATUS_FILE_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

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

struct PassStatus {
    int64_t number = 0; // of passes since the daemon started, 0: none has ended yet
    PassKind kind = PassKind::kOther;
    int64_t began_ms = 0;      // since 1970, UTC
    int64_t began_boot_ns = 0; // CLOCK_BOOTTIME: later than a request means that it saw the request
    int64_t took_us = 0;
};

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
};

// Tells the file that was opened as a store from all others, also from its copies.
std::string StoreName(const host::Store &store);

// Throws host::Error when the file cannot be written.
void WriteStatus(const std::filesystem::path &run_folder, const Status &status);

// Nothing when there is no readable status.
std::optional<Status> ReadStatus(const std::filesystem::path &run_folder);

const char *MonitorStateName(MonitorState state);
const char *PassKindName(PassKind kind);
bool ReadsAllFiles(PassKind kind);

// Nanoseconds of CLOCK_BOOTTIME now.
int64_t BootTimeNs();
// Nanoseconds of CLOCK_MONOTONIC now: unlike the one above, it stands while the host is suspended.
int64_t UpTimeNs();
// Milliseconds since 1970 now.
int64_t WallTimeMs();

} // namespace status

#endif // AGENT_STATUS_STATUS_FILE_H
