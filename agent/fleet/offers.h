// What the bucket of rules has shown to a member, and what of that counts.
//
// Each server may answer, also one that is behind the others. So what was seen last is not what is newest: a value counts
// when it is newer than the one that counted before. What this host has taken is the first of them, whatever a server
// shows after a connection or a start, and with it the word that what was tried is taken back.
//
//   another bucket of that name        it begins its numbers again; nothing of the one before counts
//   a greater revision                 newer
//   a smaller one, stored later        newer: the servers came back with an older disk and go on with its numbers
//   a smaller one, stored earlier      an older one of the same value; it never counts
#ifndef AGENT_FLEET_OFFERS_H
#define AGENT_FLEET_OFFERS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/fleet/buckets.h"
#include "agent/fleet/fleet_rules.h"

namespace fleet {

class Offers {
  public:
    // `uuid`: of this host, which may be one of those that try something first.
    explicit Offers(std::string uuid) : uuid_(std::move(uuid)) {}

    // The bucket is the one that was made then, in nanoseconds since 1970; 0: there is none. `taken`: what this host has.
    void TakeBucket(int64_t created, const std::vector<GroupState> &taken);
    [[nodiscard]] bool HasBucket() const { return created_ != 0; }

    // A value that a server has shown. Returns whether it counts from now on.
    bool Take(const KeyValue &value);

    // What the host should have of a group: what it tries before the others, or what all have. Nothing: the bucket says
    // nothing about it. Throws host::Error when the value of a canary is none.
    [[nodiscard]] std::optional<GroupState> Wanted(const std::string &group) const;

  private:
    [[nodiscard]] const KeyValue *Find(const std::string &key) const;

    std::string uuid_;
    int64_t created_ = 0;
    std::map<std::string, KeyValue> newest_; // by key
};

} // namespace fleet

#endif // AGENT_FLEET_OFFERS_H
