// What has become of the alerts of one sink, in memory. Its workers report here; the deliverer
// writes it to the store, rarely. What is not written yet when the process dies is sent again, under
// the same keys.
//
// All functions may be called by any thread.
#ifndef AGENT_SINKS_PROGRESS_H
#define AGENT_SINKS_PROGRESS_H

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/sinks/delivery_store.h"
#include "agent/sinks/held_store.h"
#include "agent/sinks/sink.h"
#include "agent/sinks/undelivered.h"

namespace sinks {

// Each peer has a place: all alerts up to `last_id` are done with. Beyond it, some can be done with
// already (ahead), because an alert in front of them is not taken. Those that were put aside are
// done with for their place, and remembered apart. The empty name is the sink as a whole: an alert
// is done with there as soon as one peer has it.
class Progress {
  public:
    // The rows hold the empty name and each peer. How long alerts are active: see SinkKind. With
    // what is undelivered by now.
    Progress(Deliveries rows, std::optional<std::chrono::milliseconds> active,
             const std::vector<Undelivered> &undelivered = {}, Held held = {});

    // The last alert that this peer is done with; of the empty name, that any peer has.
    [[nodiscard]] int64_t LastId(const std::string &peer) const;

    // The peer has taken these, which follow the last ones. Of a sink with a bound: all of the message under way.
    void Taken(const std::string &peer, std::span<const Message> messages);
    // The peer has taken this one, and not yet all before it.
    void TakenAhead(const std::string &peer, const Message &message);
    // Is this one done with before all in front of it are?
    [[nodiscard]] bool IsAhead(const std::string &peer, int64_t id) const;
    // The row of a peer; of the empty name, of the sink as a whole.
    [[nodiscard]] Delivery RowOf(const std::string &peer) const;
    // The peer has all up to this one and none behind it, whatever it has confirmed. For a sink with one receiver.
    void GoTo(int64_t last_id);
    // The peer has all up to this one that it needs to have.
    void CaughtUp(const std::string &peer, int64_t last_id);
    // The peer, which takes others, does not take this one.
    void PutAside(const std::string &peer, const Message &message, const std::string &why);
    [[nodiscard]] bool IsAside(const std::string &peer, int64_t id) const;
    // The peer has taken one that was put aside.
    void TakenAfterAll(const std::string &peer, const Message &message);
    // A try failed.
    void Failed(const std::string &peer, const std::string &why);
    // The receiver answers again, without having taken anything new.
    void Well(const std::string &peer);
    // Alerts up to this one are removed from the store. Returns how many of them nobody had taken by
    // then; those that were put aside are not told of again.
    struct Leaving {
        int64_t last_id = 0;
        std::set<int64_t> others;          // that the sink does not get: none of them is lost
        std::vector<alerts::Alert> wanted; // that it gets and may tell of later: likewise
    };
    int64_t Removed(const Leaving &leaving);

    // ---- of a sink with a bound, which has one receiver; see digest.h ----

    // A message is about to be sent that tells of the alerts up to this one, all of which were in the
    // store. False: some have left it by now, and the next message is another one.
    [[nodiscard]] bool MaySend(int64_t last_id);
    // The same of a message with all that is held back, which is to be written down before it is
    // sent: so it is the same one when the process dies meanwhile.
    void Plan(int64_t last_id, int64_t full_ms);
    // The last alert of that message, and what it tells of beside those in the store; 0: there is none.
    [[nodiscard]] int64_t Planned() const;
    struct Beginning {
        Digest digest;
        int64_t after = 0; // the rest of it is in the store, behind this alert

        bool operator==(const Beginning &) const = default;
    };
    [[nodiscard]] Beginning OfMessage() const;
    // Is the plan written down?
    [[nodiscard]] bool IsPlanWritten() const;
    // Does the next message have to tell of what has left the store?
    [[nodiscard]] bool Holds() const;
    // See Delivery.
    [[nodiscard]] int64_t FullMs() const;
    void SetFullMs(int64_t full_ms);
    // What is held back, with the rows of that moment: only together do they say what was taken.
    [[nodiscard]] Held WhatIsHeld(Deliveries *rows) const;
    // These rows are in the store.
    void Written(const Deliveries &rows);

    // Until when an alert is active. One that no peer has had yet begins when it is sent: a receiver
    // that was down for longer than alerts are active would otherwise learn of nothing.
    [[nodiscard]] int64_t EndsAt(const alerts::Alert &alert, int64_t now_ms) const;
    // The first alert that was taken so late that its own time does not tell when it ends.
    [[nodiscard]] int64_t FirstLateId(int64_t now_ms);

    [[nodiscard]] Deliveries Rows() const;
    // What became of undelivered ones since the last call. Take the rows before the changes: then a
    // crash in between repeats an alert, and never forgets one.
    std::vector<UndeliveredChange> TakeChanges();
    // Are the rows others than at the last call, or for the first one at the beginning?
    bool HasChanged();

  private:
    // Alerts that were taken later than they were stored, and until when they are active, in
    // milliseconds since 1970.
    struct LateRange {
        int64_t first_id;
        int64_t last_id;
        int64_t ends_ms;
    };
    // All of these with the lock held.
    void MarkWell(const std::string &peer);
    void MarkTaken(const std::string &peer, std::span<const Message> messages);
    void Advance(const std::string &peer, int64_t last_id);
    void Hold(const std::vector<alerts::Alert> &alerts);

    // Guards what follows. Held for moments only, and never while anything is written or sent.
    mutable std::mutex mutex_;
    Deliveries rows_;
    Deliveries seen_;   // as they were at the last HasChanged
    int64_t active_ms_; // 0: alerts are not active at this receiver
    std::deque<LateRange> late_;
    // By peer: done with, taken or put aside, with an id above its last one.
    std::map<std::string, std::set<int64_t>> ahead_;
    std::map<std::string, std::set<int64_t>> aside_; // by peer: put aside, and not taken since
    // Since the last TakeChanges, in the order in which they came.
    std::vector<UndeliveredChange> changes_;
    Held held_;
    int64_t sending_to_ = 0;   // the last alert of the message under way; 0: none is
    int64_t written_plan_ = 0; // the planned_id that is in the store
};

} // namespace sinks

#endif // AGENT_SINKS_PROGRESS_H
