#include "agent/rules/section_values.h"

#include <algorithm>
#include <ctime>

#include "agent/events/events.h"
#include "agent/inputs/customer_file.h"
#include "agent/policy/silence_registry.h"
#include "agent/rules/yaml_text.h"
#include "agent/sinks/sink_registry.h"

namespace rules {

namespace {

using How = EventChange::Kind;

// "2026-12-24T17:00:00Z": the same moment in every zone.
std::string MomentText(int64_t moment_s)
{
    const auto seconds = static_cast<time_t>(moment_s);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string TextOf(const EntryValue &value)
{
    if (!value.is_list)
        return Quoted(value.texts.front());
    std::string text;
    for (const std::string &one : value.texts)
        text += (text.empty() ? "" : ", ") + Quoted(one);
    return "[" + text + "]";
}

} // namespace

EntryValues ValuesOf(const sinks::SinkConfig &sink)
{
    EntryValues values = {{"kind", {sink.kind != nullptr ? sink.kind->name : "?"}}};
    for (const auto &[name, value] : sink.options)
        values.push_back({name, {value}});
    return values;
}

EntryValues ValuesOf(const inputs::InputConfig &input)
{
    EntryValues values = {{"kind", {input.kind}}};
    for (const auto &[name, texts] : input.options)
        values.push_back({name, texts, texts.size() != 1});
    return values;
}

EntryValues ValuesOf(const policy::Silence &silence)
{
    EntryValues values = {{"source", {silence.source}}, {"host", {silence.host}}};
    if (silence.event_id)
        values.push_back({"event", {events::FormatEventId(*silence.event_id)}});
    if (!silence.labels.empty())
        values.push_back({"labels", {policy::LabelsText(silence.labels)}});
    if (silence.window)
        values.push_back({"every", {policy::WindowText(*silence.window)}});
    values.push_back({"from", {MomentText(silence.begin_s)}});
    if (silence.end_s != 0)
        values.push_back({"until", {MomentText(silence.end_s)}});
    if (silence.wants_summary)
        values.push_back({"summary", {"true"}});
    if (!silence.comment.empty())
        values.push_back({"comment", {silence.comment}});
    if (!silence.author.empty())
        values.push_back({"author", {silence.author}});
    return values;
}

// ---- the difference ----

namespace {

// "sinks" are many, and "sink ops" is one.
std::string Heading(const SectionChange &change)
{
    return change.section.substr(0, change.section.size() - 1) + " " + change.name;
}

void FormatValues(char mark, const EntryValues &values, const EntryValues &others,
                  std::vector<DifferenceLine> *lines)
{
    for (const EntryValue &value : values) {
        if (std::find(others.begin(), others.end(), value) == others.end())
            lines->push_back({mark, "    " + value.name + ": " + TextOf(value)});
    }
}

} // namespace

std::vector<DifferenceLine> FormatSectionDifference(const SectionDifference &difference)
{
    std::vector<DifferenceLine> lines;
    for (const SectionChange &change : difference.changes) {
        if (change.section == "settings") { // has nothing but its value
            lines.push_back({'-', Heading(change) + ": " + TextOf(change.before.front())});
            lines.push_back({'+', Heading(change) + ": " + TextOf(change.after.front())});
            continue;
        }
        const char mark = change.kind == How::kAdd ? '+' : change.kind == How::kRemove ? '-' : ' ';
        lines.push_back({mark, Heading(change)});
        FormatValues('-', change.before, change.after, &lines);
        FormatValues('+', change.after, change.before, &lines);
    }
    return lines;
}

// ---- the file ----

namespace {

EntryValues Named(const std::string &name, EntryValues values)
{
    values.insert(values.begin(), EntryValue{"name", {name}});
    return values;
}

} // namespace

std::vector<HostSection> SectionsOfHost(host::Store &store, host::RegistryTree &registry,
                                        int64_t now_s, std::vector<std::string> *left_out)
{
    HostSection settings{"settings", {{}}};
    for (const settings::Setting &setting : settings::AllSettings())
        settings.entries.front().push_back(
            {setting.name, {settings::GetSetting(registry, setting)}});
    HostSection inputs{"inputs", {}};
    inputs::CustomerFile customer(store, registry);
    for (const inputs::InputConfig &input : inputs::InputRegistry(store, registry).ReadAll()) {
        if (!customer.Is(input))
            inputs.entries.push_back(Named(input.name, ValuesOf(input)));
    }
    HostSection sinks{"sinks", {}};
    for (const sinks::StoredSink &sink : sinks::SinkRegistry(store, registry).ReadAll()) {
        if (sink.problem.empty())
            sinks.entries.push_back(Named(sink.config.name, ValuesOf(sink.config)));
        else
            left_out->push_back("sink " + sink.config.name + ": " + sink.problem);
    }
    HostSection silences{"silences", {}};
    for (const policy::Silence &silence : policy::ReadSilences(registry)) {
        if (!silence.IsOver(now_s))
            silences.entries.push_back(ValuesOf(silence));
    }
    return {settings, inputs, sinks, silences};
}

std::string FormatSections(const std::vector<HostSection> &sections)
{
    std::string text;
    for (const HostSection &section : sections) {
        text += section.name + ":" + (section.entries.empty() ? " []" : "") + "\n";
        const bool is_list = section.name != "settings";
        for (const EntryValues &entry : section.entries) {
            for (size_t i = 0; i < entry.size(); ++i)
                text += (is_list ? (i == 0 ? "  - " : "    ") : "  ") + entry[i].name + ": " +
                        TextOf(entry[i]) + "\n";
        }
    }
    return text;
}

} // namespace rules
