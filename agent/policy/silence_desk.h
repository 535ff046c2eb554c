// Which alerts of a pass a silence holds back, and what is told at its end. All of it is a part of the
// pass. Of the monitor thread. All throw host::StoreError.
#ifndef AGENT_POLICY_SILENCE_DESK_H
#define AGENT_POLICY_SILENCE_DESK_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "agent/host/host.h"
#include "agent/policy/silence.h"

namespace policy {

// What a silence has held back and has not told of in an alert.
struct SilenceHeld {
    int64_t alerts = 0;
    alerts::HeldBack lines; // its reports are not counted
};

// By the number of the silence.
std::map<uint32_t, SilenceHeld> ReadSilenceHeld(host::Database &database);

class SilenceDesk {
  public:
    explicit SilenceDesk(host::Host &host) : host_(host) {}

    // Marks the alert when a silence holds it back, and counts it. `time_s` gives the time of its line;
    // it is asked only when there is a silence.
    void Take(alerts::Alert *alert, const std::function<int64_t()> &time_s);

    // The pass ends: tells of what silences that wish it have held back and that hold no longer.
    void Save();

  private:
    void Hold(const Silence &silence, alerts::Alert *alert, int64_t time_s);
    void TellOf(const Silence &silence, const SilenceHeld &held);

    host::Host &host_;
    int64_t pass_ = -1; // of which the next holds
    std::vector<Silence> silences_;
    // Something may be left to tell of: known when the store was looked at once.
    bool may_have_held_ = true;
};

} // namespace policy

#endif // AGENT_POLICY_SILENCE_DESK_H
