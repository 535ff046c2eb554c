// What a host says of itself in the servers' bucket, as JSON, and what is made of it for people.
#ifndef AGENT_FLEET_HOST_STATUS_H
#define AGENT_FLEET_HOST_STATUS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fleet {

struct GroupStatus {
    std::string name;
    uint64_t revision = 0; // of the files that it runs; 0: it has none of the group
    uint64_t newest = 0;   // that it knows of
    bool is_canary = false;
};

struct HostStatus {
    std::string uuid; // not in the JSON: its key
    std::string host;
    std::string version;
    std::vector<GroupStatus> groups;
    std::string error;              // why it does not run the newest; empty: it does
    std::vector<std::string> local; // of the files, but the host's own
    std::string monitor;            // why its monitor does not do its work; empty: it does
    int64_t last_pass_ms = 0;       // since 1970; 0: none yet
    int64_t behind_bytes = 0;       // that are not read yet
    int64_t alerts_a_minute = 0;
    int64_t every_s = 60; // it says this again after so many seconds at the latest
    int64_t sent_ms = 0;  // not in the JSON: when the servers got it, since 1970
};

std::string FormatStatus(const HostStatus &status);
// Throws host::Error when it is none. It comes from the network.
HostStatus ParseStatus(const std::string &text);

// Milliseconds since it was heard, when that is so long that it is gone or cut off; 0: it is not. `now_ms`, here and
// below, is by the clock of the servers, as `sent_ms` is.
int64_t SilentFor(const HostStatus &status, int64_t now_ms);
// What is wrong with it, in one line; empty: nothing is.
std::string TroubleOf(const HostStatus &status, int64_t now_ms);

// Those first that need to be looked at: silent ones, those with an error, those whose monitor stands, those that are
// behind; then by name.
void SortByTrouble(std::vector<HostStatus> *hosts, int64_t now_ms);

// The group of a host; null: it belongs to no such group.
const GroupStatus *GroupOf(const HostStatus &status, const std::string &group);

// How far hosts have come with a revision of a group.
struct RolloutState {
    // UUIDs of hosts that were heard a moment ago, each with when that was, since 1970
    std::map<std::string, int64_t> running;
    std::vector<std::string> waiting; // heard, and not yet there
    std::string failed; // what the first host with trouble says, with its name; empty: none has
};
// Of the hosts of these UUIDs alone. A trouble that has nothing to do with the files counts, too: the files may be the reason.
//   silent hosts  are left out: they take it when they are back
RolloutState StateOf(const std::vector<HostStatus> &hosts, const std::string &group,
                     const std::set<std::string> &uuids, uint64_t revision, int64_t now_ms);

// The time in which hosts must show that they can do with a revision. It is over when each of them has said that it runs
// it, and once more so long afterwards: one that says nothing in between has shown nothing.
class Probation {
  public:
    explicit Probation(int64_t span_ms) : span_ms_(span_ms) {}
    // With all that is known, again and again.
    bool IsOver(const RolloutState &state);

  private:
    int64_t span_ms_;
    std::map<std::string, int64_t> begun_ms_; // by UUID: when it was heard to run it
};

} // namespace fleet

#endif // AGENT_FLEET_HOST_STATUS_H
