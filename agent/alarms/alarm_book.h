// Remembers which troubles of the monitor were told of, in the table `alarm` of the store, and says when to tell.
//
//   A1  A trouble is told of when it has lasted as long as it says, once.
//   A2  While it lasts, it is told of again after a day, and not before.
//   A3  When it has been over for ten minutes, that is told, once. What comes back before is the same trouble: one that
//       comes and goes is told of once, and not each time.
//   A4  A restart changes nothing about this. Of what was not told yet, the time counts anew.
//   A5  A clock that is set back makes nothing wait longer than it would from that moment on.
//
// Of one thread, and alone on its table.
#ifndef AGENT_ALARMS_ALARM_BOOK_H
#define AGENT_ALARMS_ALARM_BOOK_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/alerts/own_alert.h"
#include "agent/host/store.h"

namespace alarms {

// Something that is wrong at this moment.
struct Trouble {
    alerts::OwnEvent event = alerts::OwnEvent::kMonitorEnded;
    std::string about;   // together with the event, which trouble it is
    std::string message; // a sentence without a full stop
    int64_t after_ms = 0;
};

class AlarmBook {
  public:
    // Reads what was told of. Throws host::StoreError.
    explicit AlarmBook(host::Store &store);

    // These, and no others, are there now: stores the alerts that are due, in one transaction. Returns their messages.
    // Throws host::StoreError; then nothing was stored, and the next call does it.
    std::vector<std::string> Take(const std::vector<Trouble> &troubles, int64_t now_ms);

  private:
    using Key = std::pair<uint32_t, std::string>; // event and what it is about
    // Milliseconds since 1970.
    struct Alarm {
        std::string message; // that was told
        int64_t since_ms = 0;
        int64_t told_ms = 0; // 0: not yet
        int64_t over_ms = 0; // since when it is not there; 0: it is there

        bool operator==(const Alarm &) const = default;
    };
    using Alarms = std::map<Key, Alarm>;
    struct News {
        alerts::OwnState state;
        std::string message;
    };

    void Read();
    void Write(const Alarms &told);
    void Store(const Alarms &told, const std::vector<alerts::OwnAlert> &due);
    static void KeepBehind(int64_t now_ms, Alarm *alarm);
    static std::optional<News> IsThere(const Trouble &trouble, int64_t now_ms, Alarm *alarm);
    static std::optional<News> IsGone(int64_t now_ms, Alarm *alarm);

    host::Store &store_;
    Alarms told_;                    // as the table has them
    std::map<Key, int64_t> waiting_; // not told of yet: since when they are there
};

} // namespace alarms

#endif // AGENT_ALARMS_ALARM_BOOK_H
