#include "agent/alerts/report_folder.h"

namespace alerts {

void ReportFolder::Add(host::Store &store, const Alert &report)
{
    const int64_t pass = store.PassNumber();
    const bool is_first = pass_ != pass;
    if (is_first) {
        pass_ = pass;
        open_.clear();
    }
    const Event event = {report.source, report.event_id};
    const auto open = open_.find(event);
    if (open != open_.end()) {
        FoldInto(store, open->second, report);
        return;
    }
    const bool has_room = store.TakeRoom(BytesOf(report));
    const int64_t id = is_first ? AddAlert(store, report) : AddFurtherAlert(store, report);
    if (!has_room)
        open_[event] = id;
}

} // namespace alerts
