// What the matchers know of the alert component and of the server: set up at the start of the monitor, and by a
// host that calls the matchers itself.
#ifndef MATCH_REPORT_H
#define MATCH_REPORT_H

#include <cstdint>

#include "platform/siblings.h"

// Module-wide state, on the monitor thread.
#pragma GCC visibility push(default)
// Takes the reports; stays set after shut-down. The matchers call it without a null test. Written when the
// report library is loaded.
extern VKMonitorCallFn pVKMonitorCall;
// Fault-tolerant server: 1 or more yes, 0 no, -1 it could not be told. Written by StartThread.
extern int32_t IsFTServer;
// While 0, hits of the source "FTREPORT" are not reported. The loop sets it to 0 after the first pass;
// nothing in the module sets it to another value.
extern int32_t report_ft;
#pragma GCC visibility pop

// On a fault-tolerant server keywords are also tried as expressions.
inline bool ServerIsFaultTolerant()
{
    return IsFTServer >= 1;
}

#endif // MATCH_REPORT_H
