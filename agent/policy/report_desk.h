// Where the reports of the module arrive: what becomes of each by the policy of its event, and the
// alert that is stored of it. All of it is a part of the pass.
//
// Of the monitor thread.
#ifndef AGENT_POLICY_REPORT_DESK_H
#define AGENT_POLICY_REPORT_DESK_H

#include "agent/alerts/report_folder.h"
#include "agent/host/host.h"
#include "agent/policy/policies.h"
#include "platform/siblings.h"

namespace policy {

class ReportDesk {
  public:
    // Takes the reports of this host for its life.
    explicit ReportDesk(host::Host &host);
    ~ReportDesk();
    ReportDesk(const ReportDesk &) = delete;
    ReportDesk &operator=(const ReportDesk &) = delete;

    // Reads the policies anew: when the module has loaded its table, so that both are of one moment.
    // Throws host::StoreError.
    void Load();

  private:
    void Take(const ReportRequest &request);
    static void Dress(const Policy &policy, alerts::Alert *alert);

    host::Host &host_;
    Policies policies_;
    alerts::ReportFolder folder_;
};

} // namespace policy

#endif // AGENT_POLICY_REPORT_DESK_H
