#include "agent/rules/section_diff.h"

#include <algorithm>
#include <strings.h>

#include "agent/events/events.h"
#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/inputs/customer_file.h"
#include "agent/policy/silence_registry.h"
#include "agent/rules/section_values.h"
#include "agent/sinks/sink_registry.h"

namespace rules {

namespace {

using How = EventChange::Kind;

bool IsSameName(const std::string &one, const std::string &other)
{
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

// Compares section by section. The changes refer to the entries of the file by value, so these may go.
class SectionComparison {
  public:
    SectionComparison(host::Store &store, host::RegistryTree &registry,
                      const SectionOptions &options, SectionDifference *difference)
        : store_(store), registry_(registry), options_(options), difference_(difference)
    {
    }

    void TakeSettings(const std::vector<SettingEntry> &entries);
    void TakeInputs(const std::vector<InputEntry> &entries);
    void TakeSinks(const std::vector<SinkEntry> &entries);
    void TakeSilences(const std::vector<SilenceEntry> &entries);

  private:
    void Change(SectionChange change, const std::string &wake);
    // What `check` throws becomes an issue at this place.
    template <typename Check>
    bool Passes(const text::Position &at, const Check &check);
    bool IsOthers(const settings::Setting &setting, const std::string &before, bool is_named);
    void TakeInput(const InputEntry &entry, const inputs::InputConfig *stored);
    void TakeSink(const SinkEntry &entry, const sinks::StoredSink *stored);
    void AddSilence(policy::Silence silence);
    void EndSilence(const policy::Silence &silence);

    host::Store &store_;
    host::RegistryTree &registry_;
    const SectionOptions &options_;
    SectionDifference *difference_;
};

void SectionComparison::Change(SectionChange change, const std::string &wake)
{
    difference_->changes.push_back(std::move(change));
    if (!wake.empty())
        difference_->wakes.insert(wake);
}

template <typename Check>
bool SectionComparison::Passes(const text::Position &at, const Check &check)
{
    try {
        check();
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        difference_->issues.push_back({at, error.what()});
        return false;
    }
    return true;
}

// ---- settings ----

// Two texts can mean the same value: a number of a level, and its name.
std::string InOneForm(const settings::Setting &setting, const std::string &text)
{
    const host::RegValue value =
        setting.parse(text == settings::kDefaultWord ? setting.shown_default : text);
    return setting.format(&value);
}

// Is a setting the other owner's, so that the file has no say about it?
bool SectionComparison::IsOthers(const settings::Setting &setting, const std::string &before,
                                 bool is_named)
{
    const Owners &owners = options_.owners;
    const bool is_fleets = owners.fleets_settings.contains(setting.name);
    if (!owners.events.is_fleet)
        return is_fleets && !is_named;
    const bool is_own = !is_fleets && before != InOneForm(setting, settings::kDefaultWord);
    if (is_own && is_named)
        difference_->local.emplace_back(setting.name);
    return is_own || (!is_fleets && !is_named);
}

void SectionComparison::TakeSettings(const std::vector<SettingEntry> &entries)
{
    for (const settings::Setting &setting : settings::AllSettings()) {
        const auto entry =
            std::find_if(entries.begin(), entries.end(),
                         [&](const SettingEntry &one) { return one.setting == &setting; });
        const bool is_named = entry != entries.end();
        const std::string wanted = is_named ? entry->value : settings::kDefaultWord;
        const std::string before = settings::GetSetting(registry_, setting);
        if (IsOthers(setting, before, is_named))
            continue;
        const std::string after = InOneForm(setting, wanted);
        if (before == after) {
            difference_->unchanged += is_named ? 1 : 0;
            continue;
        }
        Change({How::kChange,
                "settings",
                setting.name,
                {{"", {before}}},
                {{"", {after}}},
                [this_store = &store_, this_registry = &registry_, row = &setting, wanted] {
                    settings::StoreSetting(*this_store, *this_registry, *row, wanted);
                }},
               setting.wake_event);
    }
}

// ---- inputs ----

void SectionComparison::TakeInput(const InputEntry &entry, const inputs::InputConfig *stored)
{
    const inputs::InputConfig &config = entry.config;
    if (stored != nullptr && stored->kind == config.kind && stored->options == config.options) {
        ++difference_->unchanged;
        return;
    }
    const bool is_new = stored == nullptr || stored->kind != config.kind;
    if (is_new && !Passes(entry.at, [&] { inputs::CheckNewInput(config); }))
        return;
    SectionChange change;
    change.kind = stored == nullptr ? How::kAdd : How::kChange;
    change.section = "inputs";
    change.name = stored != nullptr ? stored->name : config.name;
    if (stored != nullptr)
        change.before = ValuesOf(*stored);
    change.after = ValuesOf(config);
    const inputs::InputId key = is_new ? 0 : stored->key;
    change.make = [&store = store_, &registry = registry_, config, key, name = change.name,
                   is_replaced = is_new && stored != nullptr] {
        inputs::InputRegistry all(store, registry);
        inputs::InputConfig input = config;
        input.key = key;
        input.name = name;
        if (key != 0) {
            all.Change(input);
            return;
        }
        if (is_replaced)
            all.Remove(name);
        // Set by another section a moment ago, perhaps.
        all.Add(input, host::AgentText(registry, "LogCharset").value_or(host::kDefaultLogCharset));
    };
    Change(std::move(change), inputs::kInputsEvent);
}

void SectionComparison::TakeInputs(const std::vector<InputEntry> &entries)
{
    const auto all = inputs::InputRegistry(store_, registry_).ReadAll();
    for (const InputEntry &entry : entries) {
        const auto stored = std::find_if(all.begin(), all.end(), [&](const auto &input) {
            return IsSameName(input.name, entry.config.name);
        });
        TakeInput(entry, stored != all.end() ? &*stored : nullptr);
    }
    for (const inputs::InputConfig &input : all) {
        const bool is_in_file =
            std::any_of(entries.begin(), entries.end(), [&](const InputEntry &entry) {
                return IsSameName(input.name, entry.config.name);
            });
        // The customer file comes and goes with its setting.
        if (is_in_file || IsSameName(input.name, inputs::kCustomerInput))
            continue;
        Change({How::kRemove,
                "inputs",
                input.name,
                ValuesOf(input),
                {},
                [&store = store_, &registry = registry_, name = input.name] {
                    inputs::InputRegistry(store, registry).Remove(name);
                }},
               inputs::kInputsEvent);
    }
}

// ---- sinks ----

void SectionComparison::TakeSink(const SinkEntry &entry, const sinks::StoredSink *stored)
{
    const sinks::SinkConfig &config = entry.config;
    const bool is_same_kind = stored != nullptr && stored->config.kind == config.kind;
    if (is_same_kind && stored->problem.empty() && stored->config.options == config.options) {
        ++difference_->unchanged;
        return;
    }
    std::vector<std::string> unread;
    if (!Passes(entry.at, [&] { sinks::CheckSink(config, options_.is_trial ? &unread : nullptr); }))
        return;
    if (!unread.empty())
        difference_->unread.emplace(config.name, std::move(unread));
    SectionChange change;
    change.kind = stored == nullptr ? How::kAdd : How::kChange;
    change.section = "sinks";
    change.name = stored != nullptr ? stored->config.name : config.name;
    if (stored != nullptr)
        change.before = ValuesOf(stored->config);
    change.after = ValuesOf(config);
    change.make = [&store = store_, &registry = registry_, config, name = change.name, is_same_kind,
                   is_there = stored != nullptr] {
        sinks::SinkRegistry all(store, registry);
        if (is_same_kind) {
            all.Change(name,
                       [&](sinks::StoredSink &sink) { sink.config.options = config.options; });
            return;
        }
        if (is_there)
            all.Remove(name);
        sinks::SinkConfig sink = config;
        sink.name = name;
        all.Add(sink);
    };
    Change(std::move(change), sinks::kSinksEvent);
}

void SectionComparison::TakeSinks(const std::vector<SinkEntry> &entries)
{
    const auto all = sinks::SinkRegistry(store_, registry_).ReadAll();
    for (const SinkEntry &entry : entries) {
        const auto stored = std::find_if(all.begin(), all.end(), [&](const auto &sink) {
            return IsSameName(sink.config.name, entry.config.name);
        });
        TakeSink(entry, stored != all.end() ? &*stored : nullptr);
    }
    for (const sinks::StoredSink &sink : all) {
        const bool is_in_file =
            std::any_of(entries.begin(), entries.end(), [&](const SinkEntry &entry) {
                return IsSameName(sink.config.name, entry.config.name);
            });
        if (is_in_file)
            continue;
        Change({How::kRemove,
                "sinks",
                sink.config.name,
                ValuesOf(sink.config),
                {},
                [&store = store_, &registry = registry_, name = sink.config.name] {
                    sinks::SinkRegistry(store, registry).Remove(name);
                }},
               sinks::kSinksEvent);
    }
}

// ---- silences ----

// Does the stored one say what the file says? What that leaves open was decided when it was added.
bool IsSameSilence(const policy::Silence &in_file, const policy::Silence &stored)
{
    policy::Silence same = stored;
    same.number = in_file.number;
    same.is_from_file = in_file.is_from_file;
    same.is_from_fleet = in_file.is_from_fleet; // only those of the file's owner are compared
    if (in_file.begin_s == 0)
        same.begin_s = 0;
    if (in_file.author.empty())
        same.author.clear();
    return same == in_file;
}

std::string NameOf(const policy::Silence &silence)
{
    return silence.source +
           (silence.event_id ? " " + events::FormatEventId(*silence.event_id) : "") + " on " +
           silence.host;
}

void SectionComparison::AddSilence(policy::Silence silence)
{
    silence.begin_s = silence.begin_s != 0 ? silence.begin_s : options_.now_s;
    silence.author = silence.author.empty() ? options_.author : silence.author;
    silence.is_from_file = true;
    silence.is_from_fleet = options_.owners.events.is_fleet;
    SectionChange change{How::kAdd, "silences", NameOf(silence), {}, ValuesOf(silence), {}};
    change.make = [&store = store_, &registry = registry_, silence, now_s = options_.now_s] {
        policy::AddSilence(store, registry, silence, now_s);
    };
    Change(std::move(change), "");
}

void SectionComparison::EndSilence(const policy::Silence &silence)
{
    SectionChange change{How::kRemove, "silences", NameOf(silence), ValuesOf(silence), {}, {}};
    change.make = [&store = store_, &registry = registry_, number = silence.number,
                   now_s = options_.now_s] { policy::EndSilence(store, registry, number, now_s); };
    Change(std::move(change), "");
}

void SectionComparison::TakeSilences(const std::vector<SilenceEntry> &entries)
{
    std::vector<policy::Silence> stored = policy::ReadSilences(registry_);
    // One that both have is there twice, so that each can drop his own.
    std::erase_if(stored, [&](const auto &silence) {
        return silence.IsOver(options_.now_s) ||
               silence.is_from_fleet != options_.owners.events.is_fleet;
    });
    for (const SilenceEntry &entry : entries) {
        const auto same = std::find_if(stored.begin(), stored.end(), [&](const auto &silence) {
            return IsSameSilence(entry.silence, silence);
        });
        if (same != stored.end()) {
            ++difference_->unchanged;
            stored.erase(same);
        } else if (!entry.silence.IsOver(options_.now_s)) {
            AddSilence(entry.silence);
        } else {
            ++difference_->unchanged;
        }
    }
    for (const policy::Silence &silence : stored) {
        if (silence.is_from_file || options_.prune)
            EndSilence(silence);
        else
            difference_->staying.push_back(std::to_string(silence.number));
    }
}

} // namespace

SectionDifference CompareSections(host::Store &store, host::RegistryTree &registry,
                                  const Sections &sections, const SectionOptions &options)
{
    SectionDifference difference;
    SectionComparison comparison(store, registry, options, &difference);
    // In this order they are made: what is added is read by settings that are there already.
    if (sections.settings)
        comparison.TakeSettings(*sections.settings);
    if (sections.inputs)
        comparison.TakeInputs(*sections.inputs);
    if (sections.sinks)
        comparison.TakeSinks(*sections.sinks);
    if (sections.silences)
        comparison.TakeSilences(*sections.silences);
    return difference;
}

} // namespace rules
