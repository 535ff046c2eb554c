// When the scan of a slot ended last, in memory and in the registry.
#ifndef REGACC_LAST_END_TIME_H
#define REGACC_LAST_END_TIME_H

#include <ctime>

// Module-wide state, on the monitor thread: when the scan of a slot ended last; 0: not known yet. It stands in
// for the time of a remembered line that has none. Written by the functions below.
extern time_t lastendtime;

// Reads it from the registry, unless it is known. False when it cannot be read: it is then the current time.
bool RecallLastEndTime();

// Makes it the current time, and stores that. False when it could not be stored.
bool RecordLastEndTime();

#endif // REGACC_LAST_END_TIME_H
