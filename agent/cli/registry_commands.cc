// reg get, set, delete, list: the registry as it is, for what no other command knows. Nothing is
// checked but the form, and nobody is told: a setting that is written here is taken when its reader
// looks the next time.
#include <charconv>
#include <cstring>
#include <optional>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/table.h"
#include "agent/host/agent_values.h"
#include "agent/regfile/reg_import.h"
#include "agent/regfile/reg_path.h"
#include "platform/contract.h"
#include "platform/registry.h"

namespace cli {

namespace {

using host::KeyId;
using host::RegValue;
using nlohmann::json;

// What the words of all of these commands are read into; each sets those that it has.
struct RegOptions {
    std::string key;
    std::string name;
    std::string type = "sz";
    std::string data;
    bool recursive = false;
};

struct DeleteOptions {
    std::string key;
    std::optional<std::string> name; // the empty one is that of the value without a name
    bool yes = false;
};

// `path` as it was typed, with or without the root.
KeyId FindOrFail(const Context &context, const std::string &path)
{
    const auto key = context.Host().registry().Find(host::kRootKey, regfile::TypedPath(path));
    if (!key)
        throw host::Error("cannot find the registry key " + path, "there is none of that name",
                          "see syslogmon reg list");
    return *key;
}

// The names that `reg set` takes. Others can be written by an import only.
const char *TypeName(uint32_t type)
{
    switch (type) {
    case REG_SZ:
        return "sz";
    case REG_DWORD:
        return "dword";
    case REG_BINARY:
        return "binary";
    default:
        return "other";
    }
}

std::string HexPairs(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char hex[4];
        snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(byte));
        text += text.empty() ? "" : " ";
        text += hex;
    }
    return text;
}

// A number of the wrong size is shown as its bytes, like any other type.
std::string DataText(const RegValue &value)
{
    if (value.type == REG_SZ)
        return TextOf(value);
    uint32_t number = 0;
    if (value.type == REG_DWORD && value.data.size() == sizeof number) {
        memcpy(&number, value.data.data(), sizeof number);
        return std::to_string(number);
    }
    return HexPairs(value.data);
}

// A number is a number, a text a text, and bytes a text of hexadecimal digits; "type" tells the
// last two apart.
json ToJson(const RegValue &value)
{
    json object = {{"name", value.name}, {"type", TypeName(value.type)}};
    uint32_t number = 0;
    if (value.type == REG_DWORD && value.data.size() == sizeof number) {
        memcpy(&number, value.data.data(), sizeof number);
        object["data"] = number;
    } else {
        object["data"] = DataText(value);
    }
    return object;
}

// ---- reading ----

int GetValue(Context &context, const RegOptions &options)
{
    context.OpenToRead();
    const auto value =
        context.Host().registry().Get(FindOrFail(context, options.key), options.name);
    if (!value)
        throw host::Error("cannot find the registry value " + options.name,
                          "the key " + options.key + " has none of that name",
                          "see syslogmon reg list");
    if (context.json)
        PrintJson({{"key", options.key}, {"value", ToJson(*value)}});
    else
        PrintValue(DataText(*value));
    return kExitDone;
}

// Both forms of the same keys; one of them is printed.
struct Listing {
    json keys = json::array();
    Table table{{"KEY", "VALUE", "TYPE", "DATA"}};
};

// The root has no name of its own in a path.
std::string ShownPath(const std::string &path)
{
    return path.empty() ? regfile::kRegRootName : path;
}

// One key with its values and the names below it; nothing of what those hold.
void AddKey(host::RegistryTree &registry, KeyId key, const std::string &path, Listing *listing)
{
    json object = {{"key", path}, {"values", json::array()}, {"subkeys", json::array()}};
    const auto values = registry.Values(key);
    for (const RegValue &value : values) {
        object["values"].push_back(ToJson(value));
        listing->table.Add({ShownPath(path), value.name, TypeName(value.type), DataText(value)});
    }
    const auto names = registry.SubKeys(key);
    for (const std::string &name : names)
        object["subkeys"].push_back(name);
    // Else an empty key would not be seen.
    if (values.empty() && names.empty())
        listing->table.Add({ShownPath(path), "", "", ""});
    listing->keys.push_back(object);
}

int ListKeys(Context &context, const RegOptions &options)
{
    context.OpenToRead();
    const host::Snapshot snapshot(context.Host().store()); // no key goes away between two looks
    auto &registry = context.Host().registry();
    Listing listing;
    const std::string path = regfile::TypedPath(options.key);
    const KeyId key = FindOrFail(context, path);
    if (options.recursive) {
        regfile::WalkKeys(registry, key, path, [&](KeyId visited, const std::string &its_path) {
            AddKey(registry, visited, its_path, &listing);
        });
    } else {
        AddKey(registry, key, path, &listing);
        for (const std::string &name : registry.SubKeys(key))
            listing.table.Add({path.empty() ? name : path + "\\" + name, "", "key", ""});
    }
    if (context.json)
        PrintJson({{"keys", listing.keys}});
    else
        listing.table.Print();
    return kExitDone;
}

// ---- writing ----

// `accepted` is the next step: the form that the type has.
[[noreturn]] void RefuseData(const RegOptions &options, const char *accepted)
{
    throw host::Error("cannot store \"" + options.data + "\" as " + options.type,
                      "it is not of that form", accepted);
}

std::string NumberData(const RegOptions &options)
{
    // Told apart here: from_chars does not take the prefix.
    const bool hex = options.data.rfind("0x", 0) == 0;
    const char *begin = options.data.data() + (hex ? 2 : 0);
    const char *end = options.data.data() + options.data.size();
    uint32_t number = 0;
    const auto [stopped, failed] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (failed != std::errc() || stopped != end)
        RefuseData(options, "use a number from 0 to 4294967295, or 0x and hexadecimal digits");
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

// Nothing for what is no hexadecimal digit, in either case.
std::optional<unsigned> Digit(char c)
{
    const std::string digits = "0123456789abcdef";
    const size_t index = digits.find(static_cast<char>(tolower(static_cast<unsigned char>(c))));
    return index != std::string::npos ? std::optional<unsigned>(static_cast<unsigned>(index))
                                      : std::nullopt;
}

// Blanks and commas may stand anywhere: as `reg get` shows bytes, and as a registry file writes
// them.
std::string BinaryData(const RegOptions &options)
{
    std::string digits;
    for (const char c : options.data) {
        if (c != ' ' && c != ',')
            digits += c;
    }
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        const auto high = Digit(digits[i]);
        const auto low = i + 1 < digits.size() ? Digit(digits[i + 1]) : std::nullopt;
        if (!high || !low)
            RefuseData(options, "use pairs of hexadecimal digits, such as \"01 ab ff\"");
        bytes += static_cast<char>((*high << 4U) | *low);
    }
    return bytes;
}

RegValue ValueOf(const RegOptions &options)
{
    if (options.type == "dword")
        return {options.name, REG_DWORD, NumberData(options)};
    if (options.type == "binary")
        return {options.name, REG_BINARY, BinaryData(options)};
    // The zero byte is stored with a text: that is how the monitor reads one.
    return {options.name, REG_SZ, options.data + '\0'};
}

int SetValue(Context &context, const RegOptions &options)
{
    // Before the store is opened: a mistake in the words makes none.
    const RegValue value = ValueOf(options);
    const std::string path = regfile::TypedPath(options.key);
    // It could be stored, and then neither be listed nor exported.
    if (regfile::KeyLevels(path) > regfile::kMaxKeyLevels)
        throw host::Error("cannot create the registry key " + path.substr(0, 40) + "...",
                          "it lies in more than " + std::to_string(regfile::kMaxKeyLevels) +
                              " keys",
                          "choose a shorter path");
    context.Open();
    host::Transaction transaction(context.Host().store());
    const KeyId key = context.Host().registry().Create(host::kRootKey, path);
    context.Host().registry().Set(key, value.name, value.type, value.data);
    transaction.Commit();
    return kExitDone;
}

// Would the events, settings or sinks go, or a whole tree of the root with whatever is in it?
// A value alone needs none: it is one thing, and named.
bool NeedsYes(const std::string &path)
{
    return regfile::KeyLevels(path) == 1 || regfile::IsWithin(kMonitorKey, path) ||
           regfile::IsWithin(kApplicationKey, path) || regfile::IsWithin(host::kAgentKey, path);
}

int Delete(Context &context, const DeleteOptions &options)
{
    context.Open();
    // The key is looked for and deleted in one transaction: nobody can make another one of that
    // name in between.
    host::Transaction transaction(context.Host().store());
    const KeyId key = FindOrFail(context, options.key);
    if (key == host::kRootKey && !options.name)
        throw host::Error("cannot delete " + std::string(regfile::kRegRootName), "it is the root",
                          "name a key below it");
    if (!options.name && !options.yes && NeedsYes(regfile::TypedPath(options.key)))
        throw host::Error("cannot delete " + options.key + " without being sure",
                          "all below it would go with it: of the monitor, these are its events, "
                          "settings or sinks",
                          "keep a copy with syslogmon reg export, and add --yes");
    if (!options.name) {
        context.Host().registry().DeleteKey(key);
    } else if (!context.Host().registry().DeleteValue(key, *options.name)) {
        throw host::Error("cannot delete the registry value " + *options.name,
                          "the key " + options.key + " has none of that name",
                          "see syslogmon reg list");
    }
    transaction.Commit();
    return kExitDone;
}

// ---- set-up ----

using Function = int (*)(Context &, const RegOptions &);

template <Function Run>
void SetAction(Parser &parser, Context &context, const std::shared_ptr<RegOptions> &options)
{
    parser.Runs([&, options] { return Run(context, *options); });
}

constexpr char kKeyHelp[] = "Path of the key, with backslashes";

void SetUpGet(Parser &parser, Context &context)
{
    auto options = std::make_shared<RegOptions>();
    parser.Add("key", options->key, kKeyHelp).Required();
    parser.Add("name", options->name, "Name of the value").Required();
    SetAction<GetValue>(parser, context, options);
}

void SetUpSetValue(Parser &parser, Context &context)
{
    auto options = std::make_shared<RegOptions>();
    parser.Add("key", options->key, kKeyHelp).Required();
    parser.Add("name", options->name, "Name of the value").Required();
    parser.Add("data", options->data, "Text, number, or pairs of hexadecimal digits").Required();
    parser.Add("--type", options->type, "Type of the value")
        .ShowDefault()
        .OneOf({"sz", "dword", "binary"});
    SetAction<SetValue>(parser, context, options);
}

void SetUpDelete(Parser &parser, Context &context)
{
    auto options = std::make_shared<DeleteOptions>();
    parser.Add("key", options->key, kKeyHelp).Required();
    parser.Add("name", options->name, "Name of the value; without it, the key and all below it");
    parser.AddFlag("--yes", options->yes,
                   "Delete even a key of the root, or one with the monitor's events or settings");
    parser.Runs([&, options] { return Delete(context, *options); });
}

void SetUpList(Parser &parser, Context &context)
{
    auto options = std::make_shared<RegOptions>();
    parser.Add("key", options->key, "Path of the key, with backslashes; the root without it");
    parser.AddFlag("-r,--recursive", options->recursive, "With all keys below it");
    SetAction<ListKeys>(parser, context, options);
}

} // namespace

const std::vector<Command> kRegistryCommands = {
    {"reg get", "Print a value", SetUpGet},
    {"reg set", "Store a value; the monitor is not told", SetUpSetValue},
    {"reg delete", "Delete a value, or a key with all below it", SetUpDelete},
    {"reg list", "List a key", SetUpList},
};

} // namespace cli
