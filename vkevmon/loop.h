// The event loop of the monitor thread.
#ifndef VKEVMON_LOOP_H
#define VKEVMON_LOOP_H

#pragma GCC visibility push(default)
extern "C" {

// One pass, then wait and act until the stop handle of the thread record is signalled, a reload of the table
// fails, or an event could not be created. Called by StartThread only.
void WatchSyslog(void *lpThread);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_LOOP_H
