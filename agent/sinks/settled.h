// What a receiver has had for so long that it can be relied on. Servers answer before their disks have what they were
// sent: after a power cut, what they have confirmed in the last minutes may be gone, and has to be sent again.
#ifndef AGENT_SINKS_SETTLED_H
#define AGENT_SINKS_SETTLED_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace sinks {

// Alerts are kept for so long after they were delivered to such a receiver. Servers write at the latest after two.
inline constexpr std::chrono::minutes kSettlingTime{10};

class Settled {
  public:
    using Clock = std::chrono::steady_clock;

    // It has all up to this alert at this moment. Moments ascend; of those within ten seconds one is kept. An alert before
    // the last one that was noted: it has lost what lies between them, and is sent it again.
    void Note(Clock::time_point now, int64_t last_id)
    {
        if (last_id < newest_)
            Lose(now, last_id);
        if (notes_.empty() || now - notes_.back().at >= kBetween)
            notes_.push_back({now, last_id});
        newest_ = last_id;
        while (notes_.size() > 1 && now - notes_[1].at >= kSettlingTime)
            notes_.erase(notes_.begin());
    }

    // The last alert that may be removed for its sake. INT64_MAX: any, since it was sent nothing lately.
    [[nodiscard]] int64_t UpTo(Clock::time_point now) const
    {
        const bool is_known = !notes_.empty() && now - notes_.front().at >= kSettlingTime;
        const int64_t settled = is_known ? notes_.front().last_id : 0;
        const bool has_lost_lately = lost_at_ && now - *lost_at_ < kSettlingTime;
        return settled >= newest_ && !has_lost_lately ? INT64_MAX : settled;
    }

  private:
    static constexpr std::chrono::seconds kBetween{10};
    struct Moment {
        Clock::time_point at;
        int64_t last_id;
    };

    // What it had behind this alert may be in no other place than the store.
    void Lose(Clock::time_point now, int64_t last_id)
    {
        for (Moment &note : notes_)
            note.last_id = std::min(note.last_id, last_id);
        lost_at_ = now;
    }

    std::vector<Moment> notes_; // the first is as old as the settling time, when there is one
    int64_t newest_ = 0;
    std::optional<Clock::time_point> lost_at_; // when it was noticed last
};

} // namespace sinks

#endif // AGENT_SINKS_SETTLED_H
