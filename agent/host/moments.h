// The moments at which the module hands over to its host. There is no other place at which the host
// may look at the module's table, or say that a pass is over: the module runs, and the host runs, on
// one thread, the monitor's, and each of these is a call that the module makes.
//
//   StartThread            the module loads its libraries and its table
//     TableLoaded            it sets its start-up event: the entries get their hits back
//     (the first pass)
//     ModuleRests            it waits for all that can wake it: the pass is committed
//     StillRests             the wait goes on
//     MayEndRest             a named event was taken
//     PassBegins             something woke it, or the cycle is over
//     (a pass: PartIsRead for each part of a log)
//     ModuleRests            ...
#ifndef AGENT_HOST_MOMENTS_H
#define AGENT_HOST_MOMENTS_H

#include <string>

#include "platform/agent.h"
#include "platform/sync.h"

namespace host {

// Whoever runs the module is told of them. All are called on the thread that runs it; what is thrown
// becomes a failure of the module's call.
class Moments {
  public:
    Moments() = default;
    virtual ~Moments() = default;
    Moments(const Moments &) = delete;
    Moments &operator=(const Moments &) = delete;

    // The table was loaded by a module that starts, and no line was read yet.
    virtual void TableLoaded() {}

    // The module has come to rest: all that it has written since PassBegins is one whole pass. False:
    // the wait reports the first handle, which ends the module.
    virtual bool ModuleRests() { return true; }

    // The wait goes on: called whenever its sleep has ended for whatever reason, and at least each
    // PulseMs() milliseconds; 0: a sleep has no end of its own.
    virtual void StillRests() {}
    [[nodiscard]] virtual DWORD PulseMs() const { return 0; }

    // An event of this name was taken. False: the rest goes on without it, and the module never
    // hears of it.
    virtual bool MayEndRest(const std::string & /*name*/) { return true; }

    // A part of a log was read in the pass under way.
    virtual void PartIsRead(const LogPart & /*part*/) {}
    // A pass has checked lines of the file monitor's target, of so many bytes.
    virtual void TargetLinesAreRead(const std::string & /*path*/, int64_t /*lines*/,
                                    int64_t /*bytes*/)
    {
    }

    // The rest is over. `result` is what the wait reports, `name` that of the event that was taken:
    // empty for a time-out, and for an event without a name.
    virtual void PassBegins(DWORD /*result*/, const std::string & /*name*/) {}
};

} // namespace host

#endif // AGENT_HOST_MOMENTS_H
