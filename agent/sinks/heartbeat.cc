#include "agent/sinks/heartbeat.h"

#include <unistd.h>

#include "agent/alerts/own_alert.h"
#include "agent/host/here_and_now.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/settings/settings.h"
#include "agent/sinks/option_checks.h"
#include "agent/status/sign_of_life.h"

namespace sinks {

std::string CheckHeartbeat(const std::string &value)
{
    return CheckSeconds<10, 86400>(value);
}

Message HeartbeatOf(std::chrono::milliseconds every, int64_t now_ms)
{
    Message message;
    message.alert = alerts::HeartbeatAlert();
    message.alert.time_ms = now_ms;
    message.key = message.alert.host + "/heartbeat-" + std::to_string(now_ms);
    message.ends_ms = now_ms + 3 * every.count();
    return message;
}

bool IsMonitorFresh(const host::Layout &layout)
{
    const auto status = status::ReadStatus(layout.run);
    if (!status || status->pid != getpid() || status->state != status::MonitorState::kRunning ||
        !status::WhyItStands(getpid(), status).empty() || !status::SecondsSinceLook(*status))
        return false;
    host::Store store(layout.Store());
    host::RegistryTree registry(store);
    const auto &cycle = settings::FindSetting("cycle");
    return !status::IsLate(*status, std::stoll(settings::GetSetting(registry, cycle)));
}

} // namespace sinks
