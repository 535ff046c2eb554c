// The host of the measurements: as little as the module needs. Trace levels are off, as they are on
// a server: each record costs the call and a compare. Reports are counted.
#ifndef BENCH_QUIET_HOST_H
#define BENCH_QUIET_HOST_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench/data/rules.h"

namespace bench {

extern int64_t reports; // taken by VKMonitorCall

// Fills the module's table with one entry per rule, each reporting every hit.
void FillTable(const std::vector<Rule> &rules, bool fault_tolerant);

// Makes a log the module's system log, to be read from its first line by the next pass.
void WatchFromStart(const std::string &path);

} // namespace bench

#endif // BENCH_QUIET_HOST_H
