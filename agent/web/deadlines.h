// Ends connections that take too long: to send a request, or to take its answer. The library ends one that does nothing;
// one that sends or takes a byte now and then would never end, and a few of them would keep everybody else out.
#ifndef AGENT_WEB_DEADLINES_H
#define AGENT_WEB_DEADLINES_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace web {

struct TimeLimits {
    // For how long a connection may do nothing: of the library.
    std::chrono::seconds idle{30};
    // From the begin of a connection, or the end of the answer before, to the end of the request's headers. More than
    // a connection may do nothing: so one that was idle until then has time for a request.
    std::chrono::milliseconds request{60'000};
    // From there to the end of the answer: some hundred kilobytes, also over a slow line.
    std::chrono::milliseconds answer{300'000};
};

// From any thread. A socket is known by its descriptor, from Begin to End; the descriptor is closed behind End.
class Deadlines {
  public:
    explicit Deadlines(const TimeLimits &limits);
    ~Deadlines();
    Deadlines(const Deadlines &) = delete;
    Deadlines &operator=(const Deadlines &) = delete;

    // What it may take its time for from now on: its next request, or its answer. One that is told of news takes as long
    // as it likes.
    void AwaitRequest(int socket) { Set(socket, Clock::now() + limits_.request); }
    void AwaitAnswer(int socket) { Set(socket, Clock::now() + limits_.answer); }
    void AwaitNews(int socket) { Set(socket, Clock::time_point::max()); }
    // It is about to be closed.
    void End(int socket);

  private:
    using Clock = std::chrono::steady_clock;
    void Set(int socket, Clock::time_point deadline);
    void Run();
    void EndThoseOver(Clock::time_point now);

    TimeLimits limits_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int, Clock::time_point> sockets_;
    Clock::time_point wakes_at_ = Clock::time_point::max(); // the thread does, at the latest
    bool stops_ = false;
    std::thread thread_;
};

} // namespace web

#endif // AGENT_WEB_DEADLINES_H
