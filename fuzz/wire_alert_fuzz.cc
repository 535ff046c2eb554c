// What a host of the fleet, or a stranger in its place, sends as an alert. Input: the bytes of a message.
//
// It is refused with a reason, or it is an alert within bounds; that one as it would be sent on is read as the same again.
#include <optional>
#include <string>

#include "agent/fleet/wire_alert.h"
#include "agent/host/error.h"
#include "agent/sinks/alert_json.h"
#include "fuzz/fuzz.h"

namespace {

constexpr int64_t kMaxNumber = int64_t{1} << 48;

std::string SentOn(const alerts::Alert &alert)
{
    sinks::Message message;
    message.alert = alert;
    message.key = alert.key;
    return sinks::AlertJson(message);
}

// Nothing: it is refused.
std::optional<alerts::Alert> Taken(const std::string &text)
{
    try {
        return fleet::ParseAlert(text);
    } catch (const host::Error &error) {
        fuzz::Expect(*error.what() != '\0', "refused without a reason");
        return std::nullopt;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto alert = Taken(std::string(data, data + size));
    if (!alert)
        return 0;
    for (const int64_t number : {alert->id, alert->count, alert->reports, alert->held_back.hits})
        fuzz::Expect(number >= 0 && number <= kMaxNumber, "a number is out of bounds");
    const std::string once = SentOn(*alert);
    const auto again = Taken(once);
    fuzz::Expect(again.has_value(), "sent on, it is refused:\n" + once);
    const std::string twice = SentOn(*again);
    fuzz::Expect(once == twice, "sent on, it is another one:\n" + once + "\n" + twice);
    return 0;
}
