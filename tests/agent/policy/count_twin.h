// The slow twin of what a policy counts: a list of all hits of a value, evaluated anew with each line.
#ifndef TESTS_AGENT_POLICY_COUNT_TWIN_H
#define TESTS_AGENT_POLICY_COUNT_TWIN_H

#include <cstdlib>
#include <string>
#include <vector>

#include "agent/policy/value_count.h"
#include "tests/agent/support/random_test.h"

namespace test {

// What has become of a line, in a text: "counted", "held back", "5 hits" or "5 hits, behind 2 reports of
// 7 hits from 1010 to 1099".
inline std::string ReportText(int64_t hits, int64_t held_reports, int64_t held_hits,
                              int64_t first_s, int64_t last_s)
{
    std::string text = std::to_string(hits) + " hits";
    if (held_reports > 0)
        text += ", behind " + std::to_string(held_reports) + " reports of " +
                std::to_string(held_hits) + " hits from " + std::to_string(first_s) + " to " +
                std::to_string(last_s);
    return text;
}

inline std::string Told(const policy::Outcome &outcome)
{
    if (outcome.kind == policy::Outcome::Kind::kCounted)
        return "counted";
    if (outcome.kind == policy::Outcome::Kind::kHeldBack)
        return "held back";
    const policy::HeldBack &held = outcome.held_back;
    return ReportText(outcome.hits, held.reports, held.hits, held.first_s, held.last_s);
}

class CountTwin {
  public:
    explicit CountTwin(const policy::CountTerms &terms) : terms_(terms) {}

    std::string Take(int64_t time_s, int64_t times)
    {
        lines_.push_back({time_s, times});
        const std::vector<size_t> window = BestWindow();
        const int64_t hits = Sum(window);
        if (hits < terms_.hits)
            return "counted";
        for (const size_t line : window)
            lines_[line].is_reported = true;
        if (IsQuiet(time_s)) {
            held_.push_back({time_s, hits});
            return "held back";
        }
        int64_t held_hits = 0;
        for (const Line &report : held_)
            held_hits += report.times;
        const std::string text =
            held_.empty() ? ReportText(hits, 0, 0, 0, 0)
                          : ReportText(hits, static_cast<int64_t>(held_.size()), held_hits,
                                       held_.front().time_s, held_.back().time_s);
        held_.clear();
        reports_s_.push_back(time_s);
        return text;
    }

  private:
    struct Line {
        int64_t time_s;
        int64_t times;
        bool is_reported = false;
    };

    [[nodiscard]] bool IsQuiet(int64_t time_s) const
    {
        return terms_.cooldown_s > 0 && !reports_s_.empty() &&
               std::abs(time_s - reports_s_.back()) < terms_.cooldown_s;
    }
    // A hit counts as long as no line since was further away from it than the window.
    [[nodiscard]] bool StillCounts(size_t line) const
    {
        if (lines_[line].is_reported)
            return false;
        for (size_t later = line; terms_.within_s > 0 && later < lines_.size(); ++later) {
            if (std::abs(lines_[later].time_s - lines_[line].time_s) > terms_.within_s)
                return false;
        }
        return true;
    }
    // Every window that holds the newest line, by the moment at which it begins: the one with the most
    // hits, and of several such the earliest.
    [[nodiscard]] std::vector<size_t> BestWindow() const
    {
        const int64_t now_s = lines_.back().time_s;
        std::vector<size_t> best;
        for (int64_t begin_s = now_s - terms_.within_s; begin_s <= now_s; ++begin_s) {
            std::vector<size_t> window;
            for (size_t line = 0; line < lines_.size(); ++line) {
                const int64_t time_s = lines_[line].time_s;
                const bool is_in = terms_.within_s == 0 ||
                                   (time_s >= begin_s && time_s <= begin_s + terms_.within_s);
                if (is_in && StillCounts(line))
                    window.push_back(line);
            }
            if (Sum(window) > Sum(best))
                best = window;
        }
        return best;
    }
    [[nodiscard]] int64_t Sum(const std::vector<size_t> &window) const
    {
        int64_t sum = 0;
        for (const size_t line : window)
            sum += lines_[line].times;
        return sum;
    }

    policy::CountTerms terms_;
    std::vector<Line> lines_;
    std::vector<Line> held_; // reports that were held back: when, and of how many hits
    std::vector<int64_t> reports_s_;
};

// Mostly a little later; sometimes a late line, or a clock that was set.
inline int64_t NextTime(RandomData &random, int64_t time_s)
{
    const auto step = static_cast<int64_t>(random.Below(8));
    if (random.OneIn(6))
        return time_s - step * 3;
    if (random.OneIn(25))
        return time_s + (random.OneIn(2) ? 1 : -1) * static_cast<int64_t>(random.Below(300));
    return time_s + step;
}

} // namespace test

#endif // TESTS_AGENT_POLICY_COUNT_TWIN_H
