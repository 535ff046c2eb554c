#include "agent/sinks/webhook_format.h"

#include <algorithm>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/sinks/alert_json.h"
#include "agent/text/times.h"

namespace sinks {

namespace {

using json = nlohmann::ordered_json;

// What the services take, in characters. Bytes are counted here, which is never more.
constexpr size_t kMostOfDiscord = 2000;
constexpr size_t kMostOfNtfy = 4000;
constexpr size_t kMostOfPagerDuty = 1024;
constexpr size_t kMostOfOpsgenie = 130;
constexpr size_t kMostOfADescription = 15000;
constexpr size_t kMostOfAChat = 4000;

constexpr char kUsualSeverity[] = "warning"; // of an event that does not say

// A severity of syslog in the words and numbers of others.
struct SeverityNames {
    const char *severity;
    const char *pagerduty;
    const char *opsgenie;
    int ntfy;
    int otlp;
};
constexpr SeverityNames kSeverities[] = {
    {"emerg", "critical", "P1", 5, 21},  {"alert", "critical", "P1", 5, 19},
    {"crit", "critical", "P2", 5, 18},   {"err", "error", "P3", 4, 17},
    {"warning", "warning", "P4", 3, 13}, {"notice", "info", "P5", 2, 10},
    {"info", "info", "P5", 2, 9},        {"debug", "info", "P5", 1, 5}};

const SeverityNames &SeverityOf(const Message &message)
{
    const std::string &name = message.alert.severity;
    const auto *found =
        std::find_if(std::begin(kSeverities), std::end(kSeverities), [&](const SeverityNames &one) {
            return one.severity == (name.empty() ? kUsualSeverity : name);
        });
    return found != std::end(kSeverities) ? *found : kSeverities[4];
}

// Not inside of a character.
std::string Cut(std::string text, size_t most)
{
    if (text.size() <= most)
        return text;
    size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    text.resize(end);
    return text;
}

std::string Dump(const json &object)
{
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string TitleOf(const Message &message)
{
    return HostInFront(message) + message.alert.source + " " +
           events::FormatEventId(message.alert.event_id);
}

// One line of at most so many bytes. What is held back has its place behind a line of any length.
std::string SummaryOf(const Message &message, size_t most)
{
    Message alone = message;
    alone.digest = {};
    const std::string held =
        message.digest.IsEmpty() ? "" : " (" + DigestInWords(message.digest) + ")";
    return Cut(AlertSummary(alone), most - std::min(most, held.size())) + Cut(held, most);
}

std::string LineOf(const Message &message, size_t most)
{
    const std::string head = HostInFront(message);
    return Cut(head + SummaryOf(message, most - std::min(most, head.size())), most);
}

std::string OwnBody(const Message &message, const FormatSettings &)
{
    return AlertJson(message);
}

// The three signs have a meaning in the text of these two; a line of a log must not call a channel.
std::string SlackBody(const Message &message, const FormatSettings &)
{
    std::string text;
    for (const char c : LineOf(message, kMostOfAChat))
        text += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return Dump({{"text", text}});
}

std::string TextBody(const Message &message, const FormatSettings &)
{
    return Dump({{"text", LineOf(message, kMostOfAChat)}});
}

// Nobody is called by a line of a log.
std::string DiscordBody(const Message &message, const FormatSettings &)
{
    return Dump({{"content", LineOf(message, kMostOfDiscord)},
                 {"allowed_mentions", {{"parse", json::array()}}}});
}

std::string TeamsBody(const Message &message, const FormatSettings &)
{
    const json block = {
        {"type", "TextBlock"}, {"text", LineOf(message, kMostOfAChat)}, {"wrap", true}};
    const json card = {{"$schema", "http://adaptivecards.io/schemas/adaptive-card.json"},
                       {"type", "AdaptiveCard"},
                       {"version", "1.4"},
                       {"body", json::array({block})}};
    const json attachment = {{"contentType", "application/vnd.microsoft.card.adaptive"},
                             {"content", card}};
    return Dump({{"type", "message"}, {"attachments", json::array({attachment})}});
}

std::string NtfyBody(const Message &message, const FormatSettings &settings)
{
    return Dump({{"topic", settings.topic},
                 {"title", TitleOf(message)},
                 {"message", SummaryOf(message, kMostOfNtfy)},
                 {"priority", SeverityOf(message).ntfy},
                 {"tags", json::array({message.alert.source})}});
}

std::string PagerDutyBody(const Message &message, const FormatSettings &settings)
{
    const alerts::Alert &alert = message.alert;
    return Dump({{"routing_key", settings.routing_key},
                 {"event_action", "trigger"},
                 {"dedup_key", message.key},
                 {"client", "syslogmon"},
                 {"payload",
                  {{"summary", LineOf(message, kMostOfPagerDuty)},
                   {"source", alert.HostOfLine()},
                   {"severity", SeverityOf(message).pagerduty},
                   {"timestamp", text::UtcTime(alert.time_ms)},
                   {"component", alert.program.empty() ? alert.log_name : alert.program},
                   {"class", alert.source + " " + events::FormatEventId(alert.event_id)},
                   {"custom_details", json::parse(AlertJson(message))}}}});
}

std::string OpsgenieBody(const Message &message, const FormatSettings &)
{
    const alerts::Alert &alert = message.alert;
    json details = {{"source", alert.source},
                    {"event_id", events::FormatEventId(alert.event_id)},
                    {"count", std::to_string(alert.count)},
                    {"key", message.key},
                    {"host", alert.HostOfLine()},
                    {"monitor", alert.host}};
    for (const auto &[name, value] : alert.labels)
        details.emplace(name, value); // none takes the place of the others
    return Dump({{"message", LineOf(message, kMostOfOpsgenie)},
                 {"alias", message.key},
                 {"description", SummaryOf(message, kMostOfADescription)},
                 {"source", alert.HostOfLine()},
                 {"priority", SeverityOf(message).opsgenie},
                 {"details", details}});
}

std::string CloudEventsBody(const Message &message, const FormatSettings &)
{
    return Dump(
        {{"specversion", "1.0"},
         {"id", message.key},
         {"source", "/syslogmon/" + message.alert.host}, // what has made the event: the monitor
         {"host", message.alert.HostOfLine()},
         {"type", message.is_test ? "syslogmon.test" : "syslogmon.alert"},
         {"subject", message.alert.source + " " + events::FormatEventId(message.alert.event_id)},
         {"time", text::UtcTime(message.alert.time_ms)},
         {"datacontenttype", "application/json"},
         {"data", json::parse(AlertJson(message))}});
}

json Attribute(const std::string &key, const std::string &value)
{
    return {{"key", key}, {"value", {{"stringValue", value}}}};
}

// 64-bit numbers are texts in the JSON of this protocol.
std::string OtlpBody(const Message &message, const FormatSettings &)
{
    const alerts::Alert &alert = message.alert;
    const std::string nanoseconds = std::to_string(alert.time_ms) + "000000";
    json attributes = json::array(
        {Attribute("log.record.uid", message.key), Attribute("syslogmon.source", alert.source),
         Attribute("syslogmon.event_id", events::FormatEventId(alert.event_id)),
         Attribute("syslogmon.monitor", alert.host)});
    attributes.push_back(
        {{"key", "syslogmon.count"}, {"value", {{"intValue", std::to_string(alert.count)}}}});
    for (const auto &[name, value] : alert.labels)
        attributes.push_back(Attribute(name, value));
    const json record = {{"timeUnixNano", nanoseconds},
                         {"observedTimeUnixNano", nanoseconds},
                         {"severityNumber", SeverityOf(message).otlp},
                         {"severityText", SeverityOf(message).severity},
                         {"body", {{"stringValue", AlertSummary(message)}}},
                         {"attributes", attributes}};
    const json resource = {
        {"attributes", json::array({Attribute("service.name", "syslogmon"),
                                    Attribute("host.name", alert.HostOfLine())})}};
    const json scope = {{"scope", {{"name", "syslogmon"}}}, {"logRecords", json::array({record})}};
    return Dump({{"resourceLogs",
                  json::array({{{"resource", resource}, {"scopeLogs", json::array({scope})}}})}});
}

// "partialSuccess" with a number of records that were left out. A reply without it has taken all.
bool IsRejectedByOtlp(const std::string &reply)
{
    const json parsed = json::parse(reply, nullptr, false);
    const auto place = json::json_pointer("/partialSuccess/rejectedLogRecords");
    if (parsed.is_discarded() || !parsed.contains(place))
        return false;
    const json &count = parsed[place];
    // No whole number holds all that can be written there.
    return count.is_string() ? strtoll(count.get<std::string>().c_str(), nullptr, 10) > 0
                             : count.is_number() && count.get<double>() > 0;
}

constexpr char kJson[] = "application/json";

const WebhookFormat kFormats[] = {
    {"json", kJson, OwnBody, "Bearer"},
    {"slack", kJson, SlackBody, "Bearer"},
    {"teams", kJson, TeamsBody, "Bearer"},
    {"google-chat", kJson, TextBody, "Bearer"},
    {"discord", kJson, DiscordBody, "Bearer"},
    {"mattermost", kJson, SlackBody, "Bearer"},
    {"ntfy", kJson, NtfyBody, "Bearer"},
    {"pagerduty", kJson, PagerDutyBody, "Bearer"},
    {"opsgenie", kJson, OpsgenieBody, "GenieKey"},
    {"cloudevents", "application/cloudevents+json", CloudEventsBody, "Bearer"},
    {"otlp", kJson, OtlpBody, "Bearer", IsRejectedByOtlp},
};

} // namespace

std::string FormatNames()
{
    std::string names;
    for (const WebhookFormat &format : kFormats)
        names += (names.empty() ? "" : " ") + std::string(format.name);
    return names;
}

const WebhookFormat &FindFormat(const std::string &name)
{
    return *std::find_if(std::begin(kFormats), std::end(kFormats) - 1,
                         [&](const WebhookFormat &format) { return name == format.name; });
}

} // namespace sinks
