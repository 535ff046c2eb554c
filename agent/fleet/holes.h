// Which numbers of a host's alerts have not come, though a later one has.
//
// The servers are asked for what is in a hole (look_back.h) soon, and then at growing pauses for a day, or for longer when
// nobody could ask: until it can be told. It is told as missing when they were asked a few times and have not got it: servers
// that differ for a moment cost no word. What comes later, also behind the day, is taken all the same.
#ifndef AGENT_FLEET_HOLES_H
#define AGENT_FLEET_HOLES_H

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/host/database.h"

namespace fleet {

// The numbers from `first_id` to `last_id`. Times are in milliseconds since 1970.
struct Hole {
    // What is missing before the first alert that was ever taken of a host may have been sent long before anybody
    // collected: the servers are asked for it once, and it is not told.
    enum class Kind : uint8_t { kNoticed, kTold, kBeginning };
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

    int64_t first_id = 0;
    int64_t last_id = 0;
    int64_t since_ms = 0;   // when the servers stored the alert before it; 0: from the beginning on
    int64_t until_ms = 0;   // and the one behind it
    int64_t noticed_ms = 0; // by the clock of this host, as all that follows
    int64_t next_ms = 0;    // when the servers are to be asked for it
    int64_t tries = 0;      // how often that was done, also in vain
    Kind kind = Kind::kNoticed;

    [[nodiscard]] int64_t size() const { return last_id - first_id + 1; }
};

// Of one host, in the order of their numbers. The table fleet_hole has them.
class Holes {
  public:
    // So many are kept of a host, the newest.
    static constexpr size_t kMost = 64;
    // It is told behind so many tries,
    static constexpr int64_t kTriesBeforeTold = 3;
    // so long after it was noticed, in milliseconds: when the servers have answered, and when they have not.
    static constexpr int64_t kToldAfterMs = int64_t{5} * 1000;
    static constexpr int64_t kToldUnansweredAfterMs = int64_t{60} * 1000;

    Holes() = default;
    Holes(host::Database &database, const std::string &uuid);
    // Nothing, when they are as they were read.
    void Write(host::Database &database, const std::string &uuid) const;

    // Behind all that are there: a hole of these numbers that is noticed now.
    void Add(const Hole &hole, int64_t now_ms);

    struct Filled {
        int64_t numbers = 0; // that are missing no longer; 0: it was in no hole
        bool were_told = false;
    };
    // An alert has come, and with it the word that none was sent between `after` and it.
    Filled Fill(int64_t id, int64_t after);

    // The servers were asked for them, and have answered or not. Returns those that are to be told now, which count as
    // told from here on.
    std::vector<Hole> Asked(int64_t now_ms, bool was_answered);
    // They are another collector's to ask for, now.
    void Postpone(int64_t now_ms);

    // Those that had to make room for others, untold; once.
    std::vector<Hole> TakeGivenUp();

    [[nodiscard]] bool Has(int64_t id) const { return Find(id) != holes_.end(); }
    [[nodiscard]] std::span<const Hole> all() const { return holes_; }

  private:
    [[nodiscard]] std::vector<Hole>::const_iterator Find(int64_t id) const;
    void MakeRoom();

    std::vector<Hole> holes_;
    std::vector<Hole> given_up_;
    bool is_changed_ = false;
};

// What the servers are to be asked for: the messages of a host that they stored between these moments, by clocks that may
// differ.
struct Missing {
    std::string uuid;
    int64_t since_ms = 0; // 0: from the beginning on
    int64_t until_ms = 0;
};
// The clocks of servers that follow each other as the one that stamps differ by less.
inline constexpr int64_t kClocksDifferMs = int64_t{600} * 1000;

// Of the host that has waited longest; nothing: of none now.
std::optional<Missing> NextMissing(host::Database &database, int64_t now_ms);

} // namespace fleet

#endif // AGENT_FLEET_HOLES_H
