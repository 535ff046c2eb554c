// Stores the reports of the monitor as alerts: each as one of its own, as long as the pass has room
// for it. Beyond that, all further reports of an event and a host in the pass become one alert, which
// counts them and keeps the first line and the last. So a flood of lines cannot fill the disk, and none of
// its hits is missing. Who writes the lines may choose the hosts: they are told apart in the first
// kMostByHost of such alerts, and beyond those in none.
#ifndef AGENT_ALERTS_REPORT_FOLDER_H
#define AGENT_ALERTS_REPORT_FOLDER_H

#include <cstdint>
#include <map>
#include <string>
#include <tuple>

#include "agent/alerts/alert_store.h"

namespace alerts {

// One for the process, used on the monitor thread alone: the store's room and the number of the
// pass are those of the monitor's passes.
class ReportFolder {
  public:
    static constexpr size_t kMostByHost = 100;

    // Stores the report, or folds it into an alert of this pass. Throws host::StoreError; the pass
    // is broken then, and nothing of it is stored.
    void Add(host::Store &store, const Alert &report);

  private:
    // Source, event ID, the silence that holds it back, for what is told of takes in nothing that is not, and the line's
    // host; empty: whatever host.
    using Event = std::tuple<std::string, uint32_t, uint32_t, std::string>;

    int64_t pass_ = -1;             // of which the next holds; -1: no report yet
    std::map<Event, int64_t> open_; // alerts that take the further reports of their events
};

} // namespace alerts

#endif // AGENT_ALERTS_REPORT_FOLDER_H
