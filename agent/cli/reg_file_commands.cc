// reg export, reg import: the registry as a file that other programs know, too.
//
// An import is one transaction, under the mutex of the table, since it may touch events; behind it,
// whoever is concerned is woken, as by the commands for one setting or event.
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/text_input.h"
#include "agent/events/events.h"
#include "agent/host/waitable.h"
#include "agent/regfile/reg_import.h"
#include "agent/regfile/reg_text.h"
#include "agent/settings/settings.h"
#include "agent/status/daemon_lock.h"
#include "platform/contract.h"

namespace cli {

namespace {

using nlohmann::json;
using regfile::RegKeyContent;

// ---- export ----

struct ExportOptions {
    std::string key;
    bool utf16 = false;
};

// Throws host::Error when there is no such key.
std::vector<RegKeyContent> ReadKeys(host::Host &host, const std::string &shown_key)
{
    const std::string path = regfile::TypedPath(shown_key);
    // One moment's keys, while the daemon goes on writing.
    const host::Snapshot snapshot(host.store());
    const auto key = host.registry().Find(host::kRootKey, path);
    if (!key)
        throw host::Error("cannot find the registry key " + shown_key, "there is none of that name",
                          "see syslogmon reg list");
    return regfile::ReadRegKeys(host.registry(), *key, path);
}

// The data of every type: what it means to somebody is not known here.
std::string Hex(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

json ToJson(const std::vector<RegKeyContent> &keys)
{
    json list = json::array();
    for (const RegKeyContent &key : keys) {
        json values = json::array();
        for (const host::RegValue &value : key.values)
            values.push_back(
                {{"name", value.name}, {"type", value.type}, {"hex", Hex(value.data)}});
        list.push_back({{"key", key.path}, {"values", values}});
    }
    return {{"keys", list}};
}

int Export(Context &context, const ExportOptions &options)
{
    context.OpenToRead();
    const std::vector<RegKeyContent> keys = ReadKeys(context.Host(), options.key);
    if (context.json) {
        PrintJson(ToJson(keys));
        return kExitDone;
    }
    std::string text = regfile::FormatRegText(keys);
    if (options.utf16)
        text = regfile::ToUtf16File(text);
    PrintFile(text);
    return kExitDone;
}

// ---- import ----

// The stored settings of the monitor, to see which of them an import changes.
// In the order of AllSettings. Nothing where no value is stored.
std::vector<std::optional<host::RegValue>> StoredSettings(host::RegistryTree &registry)
{
    std::vector<std::optional<host::RegValue>> stored;
    for (const settings::Setting &setting : settings::AllSettings()) {
        const auto key = registry.Find(host::kRootKey, setting.key);
        stored.push_back(key ? registry.Get(*key, setting.value) : std::nullopt);
    }
    return stored;
}

bool IsSame(const std::optional<host::RegValue> &a, const std::optional<host::RegValue> &b)
{
    if (!a || !b)
        return a.has_value() == b.has_value();
    return a->type == b->type && a->data == b->data;
}

// What an import has come to, and who hears of it.
struct Imported {
    regfile::RegImport result;
    std::vector<std::string> settings; // that were changed, by name
    bool is_told = false;              // there is a daemon that hears of it
};

// Throws host::Error when a step cannot be stored; nothing is changed then, and nobody woken.
Imported ImportSteps(host::Host &host, const std::vector<regfile::RegStep> &steps)
{
    Imported imported;
    std::vector<std::string> events;
    events::ChangeUnderTableMutex(
        host,
        [&] {
            // Compared as a whole: a step may change a setting, delete a key above it, or do both
            // and undo it.
            const auto before = StoredSettings(host.registry());
            imported.result = regfile::ImportRegSteps(steps, host.registry());
            const auto after = StoredSettings(host.registry());
            for (size_t i = 0; i < before.size(); ++i) {
                if (IsSame(before[i], after[i]))
                    continue;
                imported.settings.emplace_back(settings::AllSettings()[i].name);
                events.emplace_back(settings::AllSettings()[i].wake_event);
            }
            return imported.result.touched_table;
        },
        [] { fprintf(stderr, "syslogmon: waiting until the table of events is free...\n"); });
    // Behind the commit, or the daemon would read the values of before.
    for (const std::string &event : events)
        host::WakeEvent::Create(host.layout().run, event, false, false)->Set();
    return imported;
}

void PrintText(const Imported &imported)
{
    const regfile::RegImport &result = imported.result;
    printf("%zu keys created, %zu keys deleted, %zu values set, %zu values deleted, %zu "
           "unchanged.\n",
           result.keys_created, result.keys_deleted, result.values_set, result.values_deleted,
           result.unchanged);
    const char *told = imported.is_told ? ": the monitor is told" : "";
    if (result.touched_table)
        printf("The registered events were touched%s.\n", told);
    for (const std::string &setting : imported.settings)
        printf("The setting %s was changed%s.\n", setting.c_str(), told);
}

void PrintAsJson(const std::string &file, const Imported &imported)
{
    const regfile::RegImport &result = imported.result;
    PrintJson({{"file", text::ShownName(file)},
               {"keys_created", result.keys_created},
               {"keys_deleted", result.keys_deleted},
               {"values_set", result.values_set},
               {"values_deleted", result.values_deleted},
               {"unchanged", result.unchanged},
               {"touched_events", result.touched_table},
               {"changed_settings", imported.settings}});
}

int Import(Context &context, const std::string &file)
{
    // The file is read and checked before the store is opened: a file with a mistake makes no
    // store.
    const regfile::ParsedRegText parsed =
        regfile::ParseRegText(text::ReadWholeFile(file, regfile::kMaxRegFile));
    RefuseIfFaulty(context, "import", file, parsed.issues);
    context.Open();
    Imported imported = ImportSteps(context.Host(), parsed.steps);
    // For the words alone. A daemon that starts now reads everything.
    imported.is_told = status::DaemonLock::Holder(context.layout.run).has_value();
    if (context.json)
        PrintAsJson(file, imported);
    else
        PrintText(imported);
    return kExitDone;
}

// ---- set-up ----

void SetUpExport(Parser &parser, Context &context)
{
    auto options = std::make_shared<ExportOptions>();
    options->key = regfile::kRegRootName;
    parser.Add("key", options->key, "Path of the key, with backslashes; the root without it");
    parser.AddFlag("--utf16", options->utf16, "Write UTF-16 with line ends of Windows, not UTF-8");
    parser.Runs([&, options] { return Export(context, *options); });
}

void SetUpImport(Parser &parser, Context &context)
{
    auto file = std::make_shared<std::string>();
    parser.Add("file", *file, "Registry file (.reg); - for standard input")
        .TypeName("FILE")
        .Required();
    parser.Runs([&, file] { return Import(context, *file); });
}

} // namespace

const std::vector<Command> kRegFileCommands = {
    {"reg export", "Print a key and all below it as a registry file (.reg)", SetUpExport},
    {"reg import", "Store what a registry file (.reg) says, all of it or nothing", SetUpImport},
};

} // namespace cli
