// Where the reports of the module arrive: what becomes of each by the policy of its event, and the
// alert that is stored of it. All of it is a part of the pass.
//
// What is counted lies in memory, and is written when the pass ends. A pass that fails ends the life of
// the desk; the next one reads what was stored.
//
// Of the monitor thread.
#ifndef AGENT_POLICY_REPORT_DESK_H
#define AGENT_POLICY_REPORT_DESK_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "agent/alerts/report_folder.h"
#include "agent/host/host.h"
#include "agent/policy/policies.h"
#include "agent/policy/silence_desk.h"
#include "platform/siblings.h"

namespace policy {

// The time of a line in seconds since 1970; nothing when it has none that can be read.
using FindLineTime = std::function<std::optional<int64_t>(const std::string &line)>;

// Hears what has become of a report. `hits`: of the report itself, not of those that were counted before it.
using TellOutcome =
    std::function<void(const ReportRequest &request, Outcome::Kind outcome, int64_t hits)>;

class ReportDesk {
  public:
    // Takes the reports of this host for its life. `tell` may be null.
    ReportDesk(host::Host &host, FindLineTime find_time, TellOutcome tell = nullptr);
    ~ReportDesk();
    ReportDesk(const ReportDesk &) = delete;
    ReportDesk &operator=(const ReportDesk &) = delete;

    // Reads the policies and what they have counted: when the module has loaded its table, so that both
    // are of one moment. Behind Save. Throws host::StoreError.
    void Load();

    // No line of an event that waits for lines has come later than now, whatever a clock said that was ahead.
    void NoteTime(int64_t now_s);
    // Does an event wait for a line that should have come by now? Costs little where there is none of the kind.
    [[nodiscard]] bool HasOverdue(int64_t now_s) const;
    // Stores an alert of each. Only when all that was written was read: or the line may be in what was not. Before Save.
    void TellOfAbsent(int64_t now_s);

    // Writes what the pass has counted. Throws host::StoreError.
    void Save();

  private:
    void Take(const ReportRequest &request);
    Outcome::Kind TakeByPolicy(Policy *policy, alerts::Alert *alert);
    void AwaitFirstLine(Policy *policy);
    void TellOfAbsent(Policy *policy, const std::string &value, int64_t now_s);
    void Store(alerts::Alert *alert);

    host::Host &host_;
    FindLineTime find_time_;
    TellOutcome tell_;
    Policies policies_;
    SilenceDesk silences_;
    alerts::ReportFolder folder_;
};

} // namespace policy

#endif // AGENT_POLICY_REPORT_DESK_H
