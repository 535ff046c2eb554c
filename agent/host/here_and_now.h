// Which machine this is, and what time it is: what an alert says of both.
#ifndef AGENT_HOST_HERE_AND_NOW_H
#define AGENT_HOST_HERE_AND_NOW_H

#include <cstdint>
#include <string>

namespace host {

// The machine's name, as it is at this moment: it can be changed while the daemon runs. Cut, should it be longer than a
// name can be.
std::string HostName();

// Milliseconds since 1970, UTC, by the clock that people set.
int64_t NowMs();

} // namespace host

#endif // AGENT_HOST_HERE_AND_NOW_H
