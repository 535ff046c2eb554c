// How many messages a sink may send: "30/min". A bucket holds so many tokens as the rate says, each
// message takes one, and they come back evenly: of a storm, the first thirty arrive at once, and then one
// every two seconds.
//
// The state of a bucket is one number, the moment at which it would be full again. So it can be stored
// with what was delivered, and a daemon that is killed again and again sends no more than others.
#ifndef AGENT_SINKS_RATE_H
#define AGENT_SINKS_RATE_H

#include <cstdint>
#include <string>

namespace sinks {

// Times are in milliseconds since 1970, UTC. A clock that is put back makes a bucket empty at worst.
struct Rate {
    int64_t count = 0;  // tokens of a full bucket; 0: there is no bound
    int64_t per_ms = 0; // in which an empty one fills

    [[nodiscard]] bool IsBounded() const { return count > 0; }
    // The moment, brought into what can be: it is further away than a bucket takes to fill when the clock
    // was put back, or the rate was another one. To be kept, or the bucket stays empty until then.
    [[nodiscard]] int64_t Sound(int64_t full_ms, int64_t now_ms) const;
    // Tokens of a bucket that would be full at `full_ms`, as of now. Without a bound there is no end of
    // them, and what follows need not be asked.
    [[nodiscard]] int64_t Tokens(int64_t full_ms, int64_t now_ms) const;
    // When it would be full, with one token less. An empty one stays empty.
    [[nodiscard]] int64_t WithoutOne(int64_t full_ms, int64_t now_ms) const;
    // Until when it has no token; not after now: it has one.
    [[nodiscard]] int64_t NextToken(int64_t full_ms, int64_t now_ms) const;

  private:
    // Between two tokens. Never 0: see CheckRate.
    [[nodiscard]] int64_t Interval() const { return per_ms / count; }
};

// Empty for a text that is a rate, otherwise what is: a number and a unit of time, or "none".
std::string CheckRate(const std::string &text);

// Of a text that CheckRate accepts. Another one bounds nothing.
Rate ParseRate(const std::string &text);

} // namespace sinks

#endif // AGENT_SINKS_RATE_H
