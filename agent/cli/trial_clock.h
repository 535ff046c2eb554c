// The clock of this process, which a trial can have stand at another moment: the module asks the C library for the
// time, and in a program that has this file it is asked here. So a log of any age can be tried, with the rules of the
// module as they are.
#ifndef AGENT_CLI_TRIAL_CLOCK_H
#define AGENT_CLI_TRIAL_CLOCK_H

#include <ctime>

namespace cli {

// From now on time() gives this moment, in seconds since 1970, to all of the process. Other clocks go on as they are:
// those by which pauses are measured, and that of trace and store.
void StopClockAt(time_t moment);

} // namespace cli

#endif // AGENT_CLI_TRIAL_CLOCK_H
