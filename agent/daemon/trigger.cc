#include "agent/daemon/trigger.h"

#include <algorithm>

namespace syslogmond {

namespace {

// After changes that turned out to be of no interest: what else happens in the directory of a log
// must not keep the daemon busy. Never longer than the interval.
constexpr Trigger::Milliseconds kRestAfterOthers{20};

// Until a watch that could not be set up is tried again. Whoever raises the limit of the kernel
// waits a minute at most; the cycle finds the lines meanwhile.
constexpr Trigger::Milliseconds kTryAgain{60000};

} // namespace

void Trigger::Follow(std::vector<std::filesystem::path> files, Milliseconds interval)
{
    // Turned off, nothing is watched and nothing open.
    if (interval.count() == 0)
        files.clear();
    if (files == files_ && interval == interval_)
        return;
    files_ = files;
    interval_ = interval;
    if (watch_.Follow(std::move(files)) && interval.count() > 0)
        fire_(); // a change before the watch was not seen
    Tell();
}

bool Trigger::IsResting() const
{
    return Clock::now() < rest_until_;
}

int Trigger::ChangesFd() const
{
    // The events stay in the kernel's queue meanwhile, where many of one file become one.
    return IsResting() ? -1 : watch_.ChangesFd();
}

std::optional<Trigger::Clock::time_point> Trigger::Next() const
{
    // The end of the rest must not be slept through: from then on the descriptor is polled again.
    if (IsResting() && (pending_ || watch_.ChangesFd() >= 0))
        return try_again_ ? std::min(rest_until_, *try_again_) : rest_until_;
    return try_again_;
}

void Trigger::Work(bool changes, bool mounts)
{
    if (mounts || (try_again_ && Clock::now() >= *try_again_)) {
        try_again_.reset();
        pending_ = watch_.LookAgain() || pending_;
    }
    if (changes) {
        pending_ = watch_.Take() || pending_;
        if (!pending_)
            rest_until_ = Clock::now() + std::min(interval_, kRestAfterOthers);
    }
    Tell();
    if (pending_ && !IsResting()) {
        pending_ = false;
        rest_until_ = Clock::now() + interval_;
        fire_();
    }
}

void Trigger::Tell()
{
    const std::string &problem = watch_.problem();
    if (problem.empty())
        try_again_.reset();
    else if (!try_again_)
        try_again_ = Clock::now() + kTryAgain;
    if (problem != told_) {
        told_ = problem;
        tell_(problem);
    }
}

} // namespace syslogmond
