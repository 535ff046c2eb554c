#include "agent/policy/silence_registry.h"

#include <algorithm>
#include <charconv>

#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "agent/host/store.h"

namespace policy {

namespace {

constexpr char kNumber[] = "SilenceNumber";
constexpr char kFromFile[] = "FromFile";
constexpr uint32_t kFileOfHost = 1;
constexpr uint32_t kFileOfFleet = 2;
constexpr int64_t kListedFor = int64_t{30} * 86400; // seconds behind its end

std::string SilencesPath()
{
    return std::string(host::kAgentKey) + "\\SILENCES";
}

std::string TextAt(host::RegistryTree &registry, host::KeyId key, const char *name)
{
    const auto value = registry.Get(key, name);
    return value && value->type == REG_SZ ? host::TextOf(*value) : "";
}

uint32_t NumberAt(host::RegistryTree &registry, host::KeyId key, const char *name)
{
    return host::NumberOf(registry.Get(key, name)).value_or(0);
}

std::optional<Silence> Read(host::RegistryTree &registry, host::KeyId key, const std::string &name)
{
    Silence silence;
    const char *end = name.data() + name.size();
    const auto [stopped, failed] = std::from_chars(name.data(), end, silence.number);
    if (failed != std::errc() || stopped != end)
        return std::nullopt;
    for (const auto &[value, text] :
         {std::pair("Source", &silence.source), std::pair("Host", &silence.host)}) {
        const std::string pattern = TextAt(registry, key, value);
        *text = pattern.empty() ? *text : pattern;
    }
    silence.event_id = host::NumberOf(registry.Get(key, "EventId"));
    silence.begin_s = NumberAt(registry, key, "Begin");
    silence.end_s = NumberAt(registry, key, "End");
    silence.wants_summary = NumberAt(registry, key, "Summary") != 0;
    silence.comment = TextAt(registry, key, "Comment");
    silence.author = TextAt(registry, key, "Author");
    const uint32_t from_file = NumberAt(registry, key, kFromFile);
    silence.is_from_file = from_file != 0;
    silence.is_from_fleet = from_file == kFileOfFleet;
    try {
        silence.labels = ParseLabels(TextAt(registry, key, "Labels"));
        if (const std::string window = TextAt(registry, key, "Window"); !window.empty())
            silence.window = ParseStoredWindow(window);
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &) {
        // Edited by hand: better an alert too many.
        return std::nullopt;
    }
    return silence;
}

} // namespace

std::vector<Silence> ReadSilences(host::RegistryTree &registry)
{
    std::vector<Silence> all;
    const auto parent = registry.Find(host::kRootKey, SilencesPath());
    if (!parent)
        return all;
    for (const std::string &name : registry.SubKeys(*parent)) {
        const auto key = registry.Find(*parent, name);
        if (auto silence = key ? Read(registry, *key, name) : std::nullopt)
            all.push_back(std::move(*silence));
    }
    std::sort(all.begin(), all.end(),
              [](const Silence &one, const Silence &other) { return one.number < other.number; });
    return all;
}

namespace {

// With what it has held back.
void Remove(host::Store &store, host::RegistryTree &registry, uint32_t number)
{
    registry.DeleteKey(
        *registry.Find(host::kRootKey, SilencesPath() + "\\" + std::to_string(number)));
    store.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM silence_held WHERE silence = ?").Run(number);
    });
}

} // namespace

uint32_t AddSilence(host::Store &store, host::RegistryTree &registry, const Silence &silence,
                    int64_t now_s)
{
    host::Transaction transaction(store);
    for (const Silence &old : ReadSilences(registry)) {
        if (old.IsOver(now_s - kListedFor))
            Remove(store, registry, old.number);
    }
    const host::KeyId agent = registry.Create(host::kRootKey, host::kAgentKey);
    const uint32_t number = NumberAt(registry, agent, kNumber) + 1;
    host::SetNumber(registry, agent, kNumber, number);
    const host::KeyId key =
        registry.Create(host::kRootKey, SilencesPath() + "\\" + std::to_string(number));
    host::SetText(registry, key, "Source", silence.source);
    host::SetText(registry, key, "Host", silence.host);
    if (!silence.labels.empty())
        host::SetText(registry, key, "Labels", LabelsText(silence.labels));
    if (silence.event_id)
        host::SetNumber(registry, key, "EventId", *silence.event_id);
    host::SetNumber(registry, key, "Begin", static_cast<uint32_t>(silence.begin_s));
    host::SetNumber(registry, key, "End", static_cast<uint32_t>(silence.end_s));
    if (silence.window)
        host::SetText(registry, key, "Window", WindowText(*silence.window));
    host::SetNumber(registry, key, "Summary", silence.wants_summary ? 1 : 0);
    host::SetText(registry, key, "Comment", silence.comment);
    host::SetText(registry, key, "Author", silence.author);
    if (silence.is_from_file)
        host::SetNumber(registry, key, kFromFile,
                        silence.is_from_fleet ? kFileOfFleet : kFileOfHost);
    transaction.Commit();
    return number;
}

void EndSilence(host::Store &store, host::RegistryTree &registry, uint32_t number, int64_t now_s)
{
    host::Transaction transaction(store);
    std::string known;
    for (const Silence &silence : ReadSilences(registry)) {
        if (silence.IsOver(now_s))
            continue;
        if (silence.number == number) {
            const auto key =
                registry.Find(host::kRootKey, SilencesPath() + "\\" + std::to_string(number));
            host::SetNumber(registry, *key, "End", static_cast<uint32_t>(now_s));
            transaction.Commit();
            return;
        }
        known += (known.empty() ? "" : ", ") + std::to_string(silence.number);
    }
    throw host::Error("cannot end the silence " + std::to_string(number),
                      "there is none of that number that is not over",
                      known.empty() ? "add one with syslogmon silence add" : "use one of " + known);
}

} // namespace policy
