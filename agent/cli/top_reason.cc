#include "agent/cli/top_reason.h"

#include "agent/alerts/alert_store.h"
#include "agent/alerts/alert_text.h"
#include "agent/text/times.h"

namespace cli {

TopReason ReasonOf(host::Database &database, const events::EventKey &event,
                   const std::optional<TopReason> &before)
{
    const int64_t newest = alerts::NewestAlertId(database);
    // Ids only ascend, unless the store was put back to an earlier state.
    const bool goes_on = before && before->event == event && before->looked_up_to <= newest;
    TopReason reason = goes_on ? *before : TopReason{event, "", "", "", 0};
    if (const auto alert =
            alerts::FindNewestOf(database, event.source, event.id, reason.looked_up_to)) {
        reason.time = text::LocalTime(alert->time_ms);
        reason.why = alerts::WhyInWords(*alert);
        reason.line = alert->message;
    }
    reason.looked_up_to = newest;
    return reason;
}

} // namespace cli
