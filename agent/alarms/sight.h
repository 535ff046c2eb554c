// What the alarms look at, and what is wrong with it.
#ifndef AGENT_ALARMS_SIGHT_H
#define AGENT_ALARMS_SIGHT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/alarms/alarm_book.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/status/status_file.h"

namespace alarms {

// The end of a monitor that nobody asked for.
struct MonitorEnd {
    std::string reason;
    bool table_was_loaded = false;
};

struct WatchedFile {
    std::string path;
    std::string unreadable;   // why; empty: it can be read
    int64_t written_ms = 0;   // since 1970; 0: not known
    bool is_to_speak = false; // it is no good sign when nothing comes for long
};

struct SinkState {
    std::string name;
    std::string
        error; // why the last try of it, or of one of its peers, has failed; empty: it has not
};

// One moment.
struct Sight {
    int64_t now_ms = 0;
    int64_t boot_ns = 0; // CLOCK_BOOTTIME, as the passes have it
    status::Status status;
    std::optional<MonitorEnd> end; // since the look before
    std::vector<WatchedFile> files;
    std::vector<SinkState> sinks;
    std::string store;
    int64_t free_bytes = 0; // of the store's disk, and of how many; 0: not known
    int64_t disk_bytes = 0;
    int64_t cycle_s = 0;  // between two passes that read everything
    int64_t after_s = 0;  // so long has to last what may pass by itself
    int64_t silent_s = 0; // so long no line has to come; 0: that is no trouble
};

// Looks at everything but what only the daemon knows: the caller has set `status` and `end`. Throws host::StoreError.
void LookAround(host::Store &store, host::RegistryTree &registry, Sight *sight);

// Everything that is wrong.
std::vector<Trouble> TroublesIn(const Sight &sight);

// Tells when the clock was set, from looks that come at any distance. It is compared with one that nobody sets.
class ClockWatch {
  public:
    // By how many milliseconds it was set forward since the look before, or back (negative); 0: it was not, or by so
    // little that it is the work of a time server.
    int64_t Look(int64_t wall_ms, int64_t boot_ns);

  private:
    std::optional<int64_t> ahead_ms_; // so far the wall clock is ahead of the other
};

} // namespace alarms

#endif // AGENT_ALARMS_SIGHT_H
