// The module's entry: start-up, the life of the monitor, shut-down.
#ifndef VKEVMON_ENTRY_H
#define VKEVMON_ENTRY_H

#pragma GCC visibility push(default)
extern "C" {

// Runs the whole life of the monitor on the calling thread: loads the sibling libraries and the
// monitoring table, sets the start-up event of the thread record, runs the event loop, and takes
// everything down again. Returns when the monitor was stopped, could not start, or ended by itself;
// there is no restart inside. A start that fails before the table is loaded never sets the event.
void StartThread(void *lpThread);

} // extern "C"
#pragma GCC visibility pop

#endif // VKEVMON_ENTRY_H
