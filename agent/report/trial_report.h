// The report of a trial: what rules come to over logs. Time is that of the lines.
#ifndef AGENT_REPORT_TRIAL_REPORT_H
#define AGENT_REPORT_TRIAL_REPORT_H

#include <cstdint>
#include <map>
#include <string>

#include "agent/history/steps.h"
#include "agent/report/report.h"

namespace report {

struct TrialHit {
    std::string source;
    uint32_t id = 0;
    int64_t time_s = 0; // since 1970
    std::string host;   // of the line
    std::string line;
    int64_t hits = 1;
    bool is_reported = false;
    bool is_held_back = false;
};

// However many hits there are, it keeps no more than kMostSteps steps, which grow longer, and kNewest lines.
class TrialReport {
  public:
    void Add(const TrialHit &hit);
    // `lines`: that were read.
    [[nodiscard]] Report Make(const std::string &title, int64_t lines) const;

  private:
    using Steps = std::map<int64_t, std::map<history::SeriesKey, int64_t>>; // by their begin
    void AddToSteps(const TrialHit &hit);
    void Lengthen();

    int64_t length_ = history::kMinute;
    Steps steps_;
    Figures figures_;
    Report sums_;
};

} // namespace report

#endif // AGENT_REPORT_TRIAL_REPORT_H
