// Alerts that a sink could not tell of one by one, summed up by event. No hit of them is missing in it:
// what has no place in a text is in the sums.
#ifndef AGENT_SINKS_DIGEST_H
#define AGENT_SINKS_DIGEST_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/alerts/alert_store.h"

namespace sinks {

// Times are those of the alerts, since 1970, UTC. Lines are cut behind 512 bytes.
struct DigestEvent {
    std::string source;
    uint32_t event_id = 0;
    int64_t alerts = 0;
    int64_t hits = 0; // of these alerts, those that a cooldown held back included
    int64_t first_ms = 0;
    std::string first;
    int64_t last_ms = 0;
    std::string last;

    bool operator==(const DigestEvent &) const = default;
};

class Digest {
  public:
    // In the order of the alerts: what is added later is later.
    void Add(const alerts::Alert &alert);
    void Add(const DigestEvent &event);
    void Add(const Digest &digest);

    [[nodiscard]] bool IsEmpty() const { return events_.empty(); }
    // Over all events; of an empty one nothing holds but the sums.
    [[nodiscard]] DigestEvent Whole() const;
    // The events, those with the most alerts first.
    [[nodiscard]] std::vector<DigestEvent> Events() const;

    // Takes out the event whose last line is the newest. Not of an empty one.
    DigestEvent TakeNewest();
    // Leaves the sums and the times.
    void DropLines();

    bool operator==(const Digest &) const = default;

  private:
    std::map<std::pair<std::string, uint32_t>, DigestEvent> events_;
};

// The hits that an alert stands for: its own, and those that a cooldown held back before it.
int64_t HitsOf(const alerts::Alert &alert);

} // namespace sinks

#endif // AGENT_SINKS_DIGEST_H
