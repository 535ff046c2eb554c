// Where a reported line came from, for who stores the report. The daemon knows it.
#ifndef AGENT_HOST_REPORT_SOURCE_H
#define AGENT_HOST_REPORT_SOURCE_H

#include <functional>
#include <string>

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

} // namespace host

#endif // AGENT_HOST_REPORT_SOURCE_H
