#include "agent/policy/value_count.h"

#include <algorithm>
#include <cstdlib>

namespace policy {

namespace {

// Two of them for each of ten thousand values must have room in the memory.
constexpr size_t kKeptOfALine = 512;

} // namespace

// What is too far away from this line counts no more.
void ValueCount::Forget(const CountTerms &terms, int64_t time_s)
{
    while (!moments_.empty() && moments_.front().time_s < time_s - terms.within_s) {
        hits_ -= moments_.front().hits;
        moments_.pop_front();
    }
    while (!moments_.empty() && moments_.back().time_s > time_s + terms.within_s) {
        hits_ -= moments_.back().hits;
        moments_.pop_back();
    }
}

void ValueCount::Insert(const CountTerms &terms, const LineHits &line)
{
    hits_ += line.times;
    // Without a window, one moment holds them all.
    const int64_t time_s = terms.within_s > 0 ? line.time_s : 0;
    // Mostly at the end.
    auto at = moments_.end();
    while (at != moments_.begin() && std::prev(at)->time_s >= time_s)
        --at;
    if (at != moments_.end() && at->time_s == time_s)
        at->hits += line.times;
    else
        moments_.insert(at, {time_s, line.times});
}

// The hits of the window around the line that has the most of them, the first of such, when they are
// enough: they are taken out. Otherwise 0.
int64_t ValueCount::TakeWindow(const CountTerms &terms, int64_t time_s)
{
    if (hits_ < terms.hits)
        return 0;
    // A window begins at a moment at or before the line, and reaches to it at least. The common case is
    // the only one of them: nothing lies behind the line.
    size_t best_begin = 0;
    size_t best_end = 0;
    int64_t best = 0;
    size_t end = 0;
    int64_t sum = 0;
    for (size_t begin = 0; begin < moments_.size(); ++begin) {
        const int64_t begin_s = moments_[begin].time_s;
        if (terms.within_s > 0 && begin_s > time_s)
            break;
        while (end < moments_.size() &&
               (terms.within_s == 0 || moments_[end].time_s <= begin_s + terms.within_s))
            sum += moments_[end++].hits;
        if (sum > best) {
            best = sum;
            best_begin = begin;
            best_end = end;
        }
        sum -= moments_[begin].hits;
        if (end == moments_.size())
            break; // a later window has no more than this one
    }
    if (best < terms.hits)
        return 0;
    const auto first = moments_.begin();
    moments_.erase(first + static_cast<std::ptrdiff_t>(best_begin),
                   first + static_cast<std::ptrdiff_t>(best_end));
    hits_ -= best;
    return best;
}

// A line that is older than the newest one says nothing new.
void ValueCount::TakeSign(const LineHits &line)
{
    hits_ += line.times;
    moments_ = {{0, hits_}};
    if (line.time_s < held_back_.last_s)
        return;
    held_back_.last_s = line.time_s;
    held_back_.last = line.line.substr(0, kKeptOfALine);
    reported_s_ = -1;
}

bool ValueCount::IsOverdue(const CountTerms &terms, int64_t now_s) const
{
    return terms.absent_s > 0 && reported_s_ < 0 && now_s - held_back_.last_s >= terms.absent_s;
}

void ValueCount::Report(int64_t now_s)
{
    reported_s_ = now_s;
    hits_ = 0;
    moments_ = {{0, 0}};
}

Outcome ValueCount::Take(const CountTerms &terms, const LineHits &line)
{
    if (terms.absent_s > 0) {
        TakeSign(line);
        return {Outcome::Kind::kCounted, hits_, {}};
    }
    if (terms.within_s > 0)
        Forget(terms, line.time_s);
    Insert(terms, line);
    Outcome outcome;
    outcome.hits = TakeWindow(terms, line.time_s);
    if (outcome.hits == 0) {
        outcome.hits = hits_;
        return outcome;
    }
    const bool is_quiet = terms.cooldown_s > 0 && reported_s_ >= 0 &&
                          std::abs(line.time_s - reported_s_) < terms.cooldown_s;
    if (!is_quiet) {
        outcome.kind = Outcome::Kind::kReported;
        outcome.held_back = std::move(held_back_);
        held_back_ = {};
        // Nobody asks without a cooldown, and what does not change is not stored.
        reported_s_ = terms.cooldown_s > 0 ? line.time_s : -1;
        return outcome;
    }
    outcome.kind = Outcome::Kind::kHeldBack;
    const std::string kept(line.line.substr(0, kKeptOfALine));
    if (held_back_.reports++ == 0) {
        held_back_.first_s = line.time_s;
        held_back_.first = kept;
    }
    held_back_.hits += outcome.hits;
    held_back_.last_s = line.time_s;
    held_back_.last = kept;
    return outcome;
}

int64_t ValueCount::QuietUntil(const CountTerms &terms) const
{
    return terms.cooldown_s > 0 && reported_s_ >= 0 ? reported_s_ + terms.cooldown_s : 0;
}

ValueCount ValueCount::Restore(std::deque<Moment> moments, int64_t reported_s, HeldBack held_back)
{
    ValueCount count;
    for (const Moment &moment : moments)
        count.hits_ += moment.hits;
    count.moments_ = std::move(moments);
    count.reported_s_ = reported_s;
    count.held_back_ = std::move(held_back);
    return count;
}

} // namespace policy
