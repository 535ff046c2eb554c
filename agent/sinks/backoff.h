// The pause after a failure: it grows, so that a receiver that is down costs nothing, and it is
// never the same twice, so that many hosts do not come back to it in step.
#ifndef AGENT_SINKS_BACKOFF_H
#define AGENT_SINKS_BACKOFF_H

#include <chrono>
#include <random>

namespace sinks {

// The first pause and the longest. A receiver that is started anew is back within seconds; one that
// is down for a day is asked some 350 times. Tests make them shorter.
struct PauseLimits {
    std::chrono::milliseconds first{1000};
    std::chrono::milliseconds longest{5 * 60 * 1000};
};

// One for each receiver, of its worker's thread.
class Backoff {
  public:
    explicit Backoff(PauseLimits limits) : limits_(limits), random_(std::random_device{}()) {}

    // The pause after one more failure: somewhere between p and 1.5 p, at most the longest, where p
    // is the first pause, doubled with each failure up to two thirds of the longest.
    std::chrono::milliseconds Next();

    // All is well again.
    void Reset() { failures_ = 0; }

  private:
    PauseLimits limits_;
    // In a row, since the last success.
    int failures_ = 0;
    std::mt19937 random_;
};

} // namespace sinks

#endif // AGENT_SINKS_BACKOFF_H
