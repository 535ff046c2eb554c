#include "agent/web/deadlines.h"

#include <algorithm>
#include <sys/socket.h>

namespace web {

Deadlines::Deadlines(const TimeLimits &limits) : limits_(limits)
{
    thread_ = std::thread([this] { Run(); });
}

Deadlines::~Deadlines()
{
    {
        const std::lock_guard lock(mutex_);
        stops_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

// With a thousand requests a second, the thread is not woken by each.
void Deadlines::Set(int socket, Clock::time_point deadline)
{
    const std::lock_guard lock(mutex_);
    sockets_[socket] = deadline;
    if (deadline < wakes_at_)
        changed_.notify_one();
}

void Deadlines::End(int socket)
{
    const std::lock_guard lock(mutex_);
    sockets_.erase(socket);
}

// Under the lock. The library sees the end of a socket that was shut down, and closes it; until then it is looked at no
// more.
void Deadlines::EndThoseOver(Clock::time_point now)
{
    wakes_at_ = Clock::time_point::max();
    for (auto &[socket, deadline] : sockets_) {
        if (deadline <= now) {
            shutdown(socket, SHUT_RDWR);
            deadline = Clock::time_point::max();
        }
        wakes_at_ = std::min(wakes_at_, deadline);
    }
}

void Deadlines::Run()
{
    std::unique_lock lock(mutex_);
    while (!stops_) {
        EndThoseOver(Clock::now());
        // A copy: the wait reads it without the lock.
        if (const auto next = wakes_at_; next == Clock::time_point::max())
            changed_.wait(lock);
        else
            changed_.wait_until(lock, next);
    }
}

} // namespace web
