#include "agent/alerts/report_folder.h"

namespace alerts {

void ReportFolder::Add(host::Store &store, const Alert &report)
{
    // The pass is known by its number, which no other pass of this process has: nobody has to tell
    // that one has ended. So an alert of a pass that was rolled back, whose ID the next one may be
    // given, takes no report of the next pass.
    const int64_t pass = store.PassNumber();
    const bool is_first = pass_ != pass;
    if (is_first) {
        pass_ = pass;
        open_.clear();
    }
    Event event = {report.source, report.event_id, report.silence, report.HostOfLine()};
    auto open = open_.find(event);
    if (open == open_.end() && open_.size() >= kMostByHost) {
        std::get<3>(event).clear();
        open = open_.find(event);
    }
    if (open != open_.end()) {
        FoldInto(store, open->second, report);
        return;
    }
    // Room is taken for alerts of their own alone. What is folded into one changes a row that is
    // there.
    const bool has_room = store.TakeRoom(BytesOf(report));
    const int64_t id = is_first ? AddAlert(store, report) : AddFurtherAlert(store, report);
    // Without room there is still this one alert for each event: not a hit may be missing, and
    // there are at most kMostByHost more of them than events.
    if (!has_room)
        open_[event] = id;
}

} // namespace alerts
