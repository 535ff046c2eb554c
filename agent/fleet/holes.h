// Which numbers of a host's alerts have not come, though a later one has.
//
// A hole is asked for again (look_back.h) soon, and then at growing pauses for a day. It is told as missing when the
// servers were asked for a while and have not got it: those that differ for a moment cost no word. What comes later, also
// behind the day, is taken all the same.
#ifndef AGENT_FLEET_HOLES_H
#define AGENT_FLEET_HOLES_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/host/database.h"

namespace fleet {

// The numbers from `first_id` to `last_id`. Times are in milliseconds since 1970.
struct Hole {
    // What is missing before the first alert that was ever taken of a host may have been sent long before anybody
    // collected: it is not told.
    enum class Kind : uint8_t { kNoticed, kTold, kBeginning };
    int64_t first_id = 0;
    int64_t last_id = 0;
    int64_t since_ms = 0;   // when the servers stored the alert before it; 0: from the beginning on
    int64_t until_ms = 0;   // and the one behind it
    int64_t noticed_ms = 0; // by the clock of this host
    int64_t looked_ms = 0;  // when it was asked for last
    Kind kind = Kind::kNoticed;

    [[nodiscard]] int64_t size() const { return last_id - first_id + 1; }
};

// Of one host, in the order of their numbers. The table fleet_hole has them.
class Holes {
  public:
    // So many are kept of a host, the newest.
    static constexpr size_t kMost = 64;
    // It is told when it was asked for at least so long.
    static constexpr int64_t kToldAfterMs = 5 * 1000;
    // Or when nobody could be asked for so long.
    static constexpr int64_t kToldUnaskedAfterMs = 60 * 1000;

    Holes() = default;
    Holes(host::Database &database, const std::string &uuid);
    void Write(host::Database &database, const std::string &uuid) const;

    // Behind all that are there. Returns the one that had to make room for it.
    std::optional<Hole> Add(const Hole &hole);

    struct Filled {
        bool was_in_hole = false;
        int64_t were_told = 0; // how many numbers are missing no longer that were told as missing
    };
    // An alert has come, and with it the word that none was sent between `after` and it.
    Filled Fill(int64_t id, int64_t after);

    // They were asked for, or could not be. Returns those that are to be told now, which count as told from here on.
    std::vector<Hole> Looked(int64_t now_ms, bool was_asked);

    // They were not asked for, and are not to be told.
    void Postpone(int64_t now_ms);

    [[nodiscard]] std::span<const Hole> all() const { return holes_; }

  private:
    std::vector<Hole> holes_;
};

// A look for what is missing of a host: what was stored around this span of time.
struct LookBackSpan {
    std::string uuid;
    int64_t since_ms = 0; // 0: from the beginning on
    int64_t until_ms = 0;
};

// The host whose holes are to be asked for at this moment; nothing: none.
std::optional<LookBackSpan> NextLookBack(host::Database &database, int64_t now_ms);

} // namespace fleet

#endif // AGENT_FLEET_HOLES_H
