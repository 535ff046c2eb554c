// The overview in the text format that Prometheus reads.
//
// Counters come from the store, so no restart of the daemon sets them back. Times are in seconds, sizes in bytes. Each
// registered event has its series from the beginning, so that the first hit shows as one.
#ifndef AGENT_METRICS_METRICS_TEXT_H
#define AGENT_METRICS_METRICS_TEXT_H

#include <string>

#include "agent/metrics/overview.h"

namespace metrics {

// `version`: of this program.
std::string MetricsText(const Overview &view, const std::string &version);

} // namespace metrics

#endif // AGENT_METRICS_METRICS_TEXT_H
