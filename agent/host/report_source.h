// What lib/vkmncall.dll does not know of a report, and the daemon does: where its line came from, and what
// becomes of it by the policy of its event.
#ifndef AGENT_HOST_REPORT_SOURCE_H
#define AGENT_HOST_REPORT_SOURCE_H

#include <functional>
#include <string>

#include "platform/siblings.h"

namespace host {

struct ReportSource {
    std::string text;     // the line as its writer had it
    std::string log;      // the file that was written to, or the input; empty: not known
    std::string host;     // that wrote it; empty: not known
    std::string program;  // empty: not known
    std::string own_time; // its time stamp, when it was replaced by the time of reading
};

// Of the line of a report that has just arrived. Called on the monitor thread, in a pass.
using FindReportSource = std::function<ReportSource(const std::string &line)>;

// Takes a report that has just arrived, and stores what is to be stored of it. On the monitor thread,
// in a pass; what is thrown breaks it.
using TakeReport = std::function<void(const ReportRequest &)>;

} // namespace host

#endif // AGENT_HOST_REPORT_SOURCE_H
