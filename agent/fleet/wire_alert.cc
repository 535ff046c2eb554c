#include "agent/fleet/wire_alert.h"

#include <algorithm>
#include <cctype>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/host/error.h"
#include "agent/text/times.h"
#include "platform/contract.h"

namespace fleet {

namespace {

using nlohmann::json;

// Bytes of one text. What a sender of this version has to say is far shorter.
constexpr size_t kMaxText = 64 * size_t{1024};
// A word of the line. What is no UTF-8 in it was sent as characters of three bytes.
constexpr size_t kMaxWord = size_t{3} * kLineMax;
constexpr size_t kMaxLabels = 64;
// A count beyond it is none: sums of them must not overflow.
constexpr int64_t kMaxNumber = int64_t{1} << 48;

constexpr size_t kMaxKey = 256;

bool MayBeInKey(unsigned char c)
{
    return std::isalnum(c) != 0 || c == '-' || c == '/' || c == '_' || c == '.' || c == ':';
}

[[noreturn]] void Refuse(const std::string &why)
{
    throw host::Error("cannot take a message as an alert", why,
                      "see which version of syslogmon its host runs");
}

std::string Text(const json &object, const char *name, size_t most = kMaxText)
{
    const auto found = object.find(name);
    if (found == object.end())
        return {};
    if (!found->is_string() || found->get_ref<const std::string &>().size() > most)
        Refuse(std::string(name) + " is no text, or too long");
    return found->get<std::string>();
}

int64_t Number(const json &object, const char *name)
{
    const auto found = object.find(name);
    if (found == object.end() || !found->is_number_integer() || *found < 0 || *found > kMaxNumber)
        Refuse(std::string(name) + " is missing, or no number from 0 on");
    return found->get<int64_t>();
}

int64_t Time(const json &object, const char *name)
{
    const auto time_ms = text::ParseUtcTime(Text(object, name));
    if (!time_ms)
        Refuse(std::string(name) + " is no time");
    return *time_ms;
}

events::Labels LabelsOf(const json &object)
{
    events::Labels labels;
    const auto found = object.find("labels");
    if (found == object.end())
        return labels;
    if (!found->is_object() || found->size() > kMaxLabels)
        Refuse("labels are no labels, or too many");
    for (const auto &[name, value] : found->items()) {
        if (!events::IsLabelName(name))
            Refuse("the name of a label is none");
        labels[name] = Text(*found, name.c_str());
        // In the store a label is a line. Longer ones than an event may have are sound: the monitor's own name files.
        if (labels[name].find('\n') != std::string::npos)
            Refuse("the label " + name + " has more than one line");
    }
    return labels;
}

alerts::HeldBack HeldBackOf(const json &object)
{
    const auto found = object.find("held_back");
    if (found == object.end())
        return {};
    if (!found->is_object())
        Refuse("held_back is no object");
    alerts::HeldBack held;
    held.reports = Number(*found, "reports");
    held.hits = Number(*found, "hits");
    held.first_ms = Time(*found, "first_time");
    held.first = Text(*found, "first");
    held.last_ms = Time(*found, "last_time");
    held.last = Text(*found, "last");
    return held;
}

// The part that most alerts do not have: of many reports.
void ReadReports(const json &object, alerts::Alert *alert)
{
    if (!object.contains("reports"))
        return;
    alert->reports = Number(object, "reports");
    alert->last_time_ms = Time(object, "last_time");
    alert->last_message = Text(object, "last_message");
}

} // namespace

alerts::Alert ParseAlert(const std::string &text)
{
    const json object = json::parse(text, nullptr, false);
    if (!object.is_object())
        Refuse("it is no JSON object");
    alerts::Alert alert;
    alert.is_collected = true;
    alert.key = Text(object, "key");
    alert.id = Number(object, "id");
    // It becomes a part of headers of mails and requests.
    if (alert.key.size() > kMaxKey || !std::ranges::all_of(alert.key, MayBeInKey))
        Refuse("its key has other characters than those of keys, or too many");
    // The key ends with the ID: so the two cannot tell of different alerts.
    if (alert.id == 0 || !alert.key.ends_with("/" + std::to_string(alert.id)))
        Refuse("its key is not the one of its number");
    alert.time_ms = Time(object, "time");
    alert.host = Text(object, "host");
    alert.log_name = Text(object, "log");
    alert.source = Text(object, "source");
    alert.event_id = events::ParseEventId(Text(object, "event_id"));
    alert.count = Number(object, "count");
    alert.message = Text(object, "message");
    alert.line_host = Text(object, "line_host", kMaxWord);
    alert.program = Text(object, "program", kMaxWord);
    alert.own_time = Text(object, "own_time", kMaxWord);
    alert.severity = Text(object, "severity");
    if (!alert.severity.empty())
        events::CheckSeverity(alert.severity);
    alert.summary = Text(object, "summary");
    alert.labels = LabelsOf(object);
    alert.runbook_url = Text(object, "runbook_url");
    alert.value = Text(object, "value");
    alert.terms = Text(object, "terms");
    alert.held_back = HeldBackOf(object);
    ReadReports(object, &alert);
    return alert;
}

} // namespace fleet
