#include "agent/metrics/metrics_text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <utility>

#include "agent/text/utf8.h"

namespace metrics {

namespace {

using history::Kind;
using Labels = std::initializer_list<std::pair<const char *, std::string_view>>;

// ---- the format ----

std::string BytesInHex(std::string_view bytes)
{
    std::string text;
    for (const char c : bytes) {
        char hex[5];
        snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
        text += hex;
    }
    return text;
}

// What such a byte begins with, but is text: "\x01" of a path that has a backslash in it.
bool LooksLikeHex(std::string_view rest)
{
    return rest.size() >= 4 && rest.starts_with("\\x") &&
           isxdigit(static_cast<unsigned char>(rest[2])) != 0 &&
           isxdigit(static_cast<unsigned char>(rest[3])) != 0;
}

// Most labels are nothing else: they are taken as they are, in one piece.
bool IsPlain(std::string_view text)
{
    return std::ranges::all_of(
        text, [](char c) { return c >= ' ' && c <= '~' && c != '\\' && c != '"'; });
}

void AppendEscaped(std::string_view bytes, std::string *text)
{
    for (const char c : bytes) {
        if (c == '\\' || c == '"')
            *text += '\\';
        *text += c;
    }
}

// What a reader of the format takes, in the format's own escapes: bytes that are no UTF-8 would make it refuse everything.
// What a terminal would obey, or turn around, is shown in hex. No two texts become the same one.
void AppendLabel(std::string_view rest, std::string *text)
{
    if (IsPlain(rest)) {
        *text += rest;
        return;
    }
    while (!rest.empty()) {
        const text::Character character = text::FirstCharacter(rest);
        const std::string_view bytes = rest.substr(0, std::max<size_t>(character.bytes, 1));
        const bool is_shown =
            character.bytes > 0 && !text::IsInvisible(character.code) && !LooksLikeHex(rest);
        AppendEscaped(is_shown ? std::string(bytes) : BytesInHex(bytes), text);
        rest.remove_prefix(bytes.size());
    }
}

// Seconds of milliseconds or microseconds, without a rounding of binary fractions.
std::string Decimal(int64_t value, int digits)
{
    std::string text = std::to_string(value);
    if (digits == 0)
        return text;
    const auto count = static_cast<size_t>(digits);
    if (text.size() <= count)
        text.insert(0, count + 1 - text.size(), '0');
    text.insert(text.size() - count, ".");
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

class Writer {
  public:
    void Family(const char *name, const char *type, const char *help)
    {
        name_ = std::string("syslogmon_") + name;
        text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ + " " + type + "\n";
    }
    void Sample(Labels labels, std::string_view value, const char *suffix = "")
    {
        text_ += name_;
        text_ += suffix;
        const char *before = "{";
        for (const auto &[name, text] : labels) {
            text_ += before;
            text_ += name;
            text_ += "=\"";
            AppendLabel(text, &text_);
            text_ += '"';
            before = ",";
        }
        text_ += labels.size() == 0 ? " " : "} ";
        text_ += value;
        text_ += '\n';
    }
    void Sample(Labels labels, int64_t value) { Sample(labels, std::to_string(value)); }
    [[nodiscard]] std::string Take() { return std::move(text_); }

  private:
    std::string name_;
    std::string text_;
};

// ---- families ----

void WriteDaemon(const Overview &view, const std::string &version, Writer *out)
{
    out->Family("build_info", "gauge", "The version of the program; its value is always 1.");
    out->Sample({{"version", version}}, 1);
    out->Family("up", "gauge", "1 while the daemon runs and does its work, else 0.");
    out->Sample({}, view.is_running && view.stands.empty() ? 1 : 0);
    out->Family("cycle_seconds", "gauge",
                "The longest time from one look at all files to the next.");
    out->Sample({}, view.cycle_s);
    out->Family("events", "gauge", "Events that are registered and can be loaded.");
    out->Sample({}, static_cast<int64_t>(view.events.size()));
    out->Family("store_bytes", "gauge", "Size of the store with its journal.");
    out->Sample({}, view.store_bytes);
    out->Family("stored_alerts", "gauge", "Alerts that are kept in the store.");
    out->Sample({}, view.alerts);
    out->Family("last_pass_timestamp_seconds", "gauge",
                "When the last look at all files began; none while it is not known.");
    if (view.last_look_ms)
        out->Sample({}, Decimal(*view.last_look_ms, 3));
    // No counter: it is of one life of the daemon, and a monitor that ends before its first pass stores nothing.
    out->Family(
        "monitor_restarts", "gauge",
        "How often the monitor ended by itself since the daemon started; none without a daemon.");
    if (view.status)
        out->Sample({}, view.status->restarts);
}

// What was counted of all passes up to the last one with news.
void WritePasses(const Overview &view, Writer *out)
{
    out->Family("pass_seconds", "histogram", "How long passes took, from waking to storing.");
    int64_t passes = 0;
    for (uint32_t i = 0; i <= std::size(history::kPassBounds); ++i) {
        passes += view.Total(Kind::kPasses, "passes", i);
        const bool is_last = i == std::size(history::kPassBounds);
        out->Sample({{"le", is_last ? "+Inf" : Decimal(history::kPassBounds[i], 6)}},
                    std::to_string(passes), "_bucket");
    }
    out->Sample({}, Decimal(view.Total(Kind::kPassTime, "passes"), 6), "_sum");
    out->Sample({}, std::to_string(passes), "_count");
}

// All series of a kind under their names.
void WriteNamed(const Overview &view, Kind kind, const char *label, Writer *out)
{
    for (auto at = view.totals.lower_bound({kind, "", 0});
         at != view.totals.end() && at->first.kind == kind; ++at)
        out->Sample({{label, at->first.name}}, at->second);
}

void WriteLines(const Overview &view, Writer *out)
{
    out->Family("lines_read_total", "counter", "Lines that were read of a log.");
    WriteNamed(view, Kind::kLines, "log", out);
    out->Family("bytes_read_total", "counter", "Bytes of these lines.");
    WriteNamed(view, Kind::kBytes, "log", out);
    out->Family("lines_without_stamp_total", "counter",
                "Lines whose time stamp cannot be read, so that nothing matches them.");
    WriteNamed(view, Kind::kWithoutTime, "log", out);
    out->Family("input_entries_total", "counter", "Entries that were taken from an input.");
    WriteNamed(view, Kind::kInputLines, "input", out);
    out->Family("input_bytes_total", "counter",
                "Bytes of these entries, as the monitor gets them.");
    WriteNamed(view, Kind::kInputBytes, "input", out);
}

void WriteUnread(const Overview &view, Writer *out)
{
    out->Family("unread_bytes", "gauge", "Bytes of a log that were not checked yet.");
    for (const LogView &log : view.logs) {
        if (log.unread)
            out->Sample({{"log", log.path}}, *log.unread);
    }
    out->Family("behind_seconds", "gauge",
                "Seconds since all files were looked at, while something of the log is unread.");
    for (const LogView &log : view.logs) {
        if (log.behind_s)
            out->Sample({{"log", log.path}}, *log.behind_s);
    }
    out->Family("input_unread_bytes", "gauge",
                "Bytes of an input that were not taken yet; of a journal it is not known.");
    const auto inputs = view.status ? view.status->inputs : std::vector<status::InputStatus>{};
    for (const auto &input : inputs) {
        if (input.behind_bytes >= 0)
            out->Sample({{"input", input.name}}, input.behind_bytes);
    }
    out->Family("input_behind_seconds", "gauge",
                "Seconds since something of an input is unread all the time, rounded up.");
    for (const auto &input : inputs)
        out->Sample({{"input", input.name}}, SecondsBehind(input, view.now_ms));
}

// Names of events, in the order of the totals.
using EventNames = std::vector<std::pair<std::string_view, uint32_t>>;

EventNames RegisteredEvents(const Overview &view)
{
    EventNames names;
    for (const auto &event : view.events)
        names.emplace_back(event.key.source, event.key.id);
    std::ranges::sort(names);
    // Two keys may be written differently and be one number.
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

void WriteEvent(std::string_view source, uint32_t id, int64_t value, Writer *out)
{
    out->Sample({{"source", source}, {"event_id", events::FormatEventId(id)}}, value);
}

// Of those that are registered, and of those that were and have counted something.
void WriteEvents(const Overview &view, const EventNames &registered, Kind kind, Writer *out)
{
    auto name = registered.begin();
    for (auto at = view.totals.lower_bound({kind, "", 0});
         at != view.totals.end() && at->first.kind == kind; ++at) {
        const std::pair<std::string_view, uint32_t> counted(at->first.name, at->first.id);
        for (; name != registered.end() && *name < counted; ++name)
            WriteEvent(name->first, name->second, 0, out);
        if (name != registered.end() && *name == counted)
            ++name;
        WriteEvent(counted.first, counted.second, at->second, out);
    }
    for (; name != registered.end(); ++name)
        WriteEvent(name->first, name->second, 0, out);
}

// Those that the monitor makes about itself.
void WriteOwnAlerts(const Overview &view, Writer *out)
{
    std::map<alerts::OwnEvent, int64_t> alerts;
    for (const alerts::OwnTotal &total : view.own_totals)
        alerts[total.event] += total.alerts;
    for (const auto &[event, number] : alerts)
        out->Sample({{"source", alerts::kOwnSource},
                     {"event_id", events::FormatEventId(static_cast<uint32_t>(event))}},
                    number);
}

// The series of what is read now are there before their first loss, so that it is seen as a rise.
std::map<std::string, alerts::OwnTotal> LossesByLog(const Overview &view)
{
    std::map<std::string, alerts::OwnTotal> losses;
    for (const LogView &log : view.logs) {
        if (log.losses_are_told)
            losses[log.path] = {};
    }
    if (view.status) {
        for (const auto &input : view.status->inputs)
            losses[input.name] = {};
    }
    for (const alerts::OwnTotal &total : view.own_totals) {
        if (total.event == alerts::OwnEvent::kLoss)
            losses[total.log] = total;
    }
    return losses;
}

void WriteLosses(const Overview &view, Writer *out)
{
    const auto losses = LossesByLog(view);
    out->Family(
        "losses_total", "counter",
        "How often something was passed over, or gone before it could be read, or read twice.");
    for (const auto &[log, total] : losses)
        out->Sample({{"log", log}}, total.alerts);
    out->Family("lines_passed_over_total", "counter",
                "Lines that were passed over, as far as they could be counted.");
    for (const auto &[log, total] : losses)
        out->Sample({{"log", log}}, total.lines_passed_over);
}

void WriteHits(const Overview &view, Writer *out)
{
    const EventNames registered = RegisteredEvents(view);
    out->Family("hits_total", "counter", "Hits of an event, repeats of a line included.");
    WriteEvents(view, registered, Kind::kHits, out);
    out->Family("alerts_total", "counter",
                "Reports of an event that became an alert or part of one.");
    WriteEvents(view, registered, Kind::kAlerts, out);
    WriteOwnAlerts(view, out);
    out->Family("held_back_total", "counter", "Reports of an event that were held back.");
    WriteEvents(view, registered, Kind::kHeldBack, out);
}

void WriteSinks(const Overview &view, Writer *out)
{
    out->Family("sink_deliveries_total", "counter",
                "Alerts that a sink is done with: the receiver took them, or they were given up.");
    for (const SinkView &sink : view.sinks) {
        out->Sample({{"sink", sink.name}, {"result", "delivered"}}, sink.delivered);
        out->Sample({{"sink", sink.name}, {"result", "dropped"}}, sink.dropped);
    }
    out->Family("sink_waiting", "gauge", "Alerts that wait for a sink.");
    for (const SinkView &sink : view.sinks)
        out->Sample({{"sink", sink.name}}, sink.waiting);
    out->Family("sink_undelivered", "gauge",
                "Alerts that a receiver does not take although it takes others.");
    for (const SinkView &sink : view.sinks)
        out->Sample({{"sink", sink.name}}, sink.undelivered);
}

} // namespace

std::string MetricsText(const Overview &view, const std::string &version)
{
    Writer out;
    WriteDaemon(view, version, &out);
    WritePasses(view, &out);
    WriteLines(view, &out);
    WriteUnread(view, &out);
    WriteHits(view, &out);
    WriteLosses(view, &out);
    WriteSinks(view, &out);
    return out.Take();
}

} // namespace metrics
