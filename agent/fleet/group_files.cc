#include "agent/fleet/group_files.h"

#include <algorithm>
#include <cmath>

#include <nlohmann/json.hpp>

#include "agent/fleet/whole_number.h"
#include "agent/host/error.h"
#include "agent/sinks/nats_options.h"
#include "agent/text/split.h"

namespace fleet {

using nlohmann::json;

namespace {

constexpr size_t kMaxGroups = 16; // of one host
constexpr size_t kMaxFiles = 100;
constexpr size_t kMaxName = 255; // bytes

// Names are shown and written as they are.
bool MayBeInName(unsigned char c)
{
    return c >= ' ' && c != '/' && c != 0x7f;
}

[[noreturn]] void RefuseValue(const std::string &group, const std::string &cause)
{
    throw host::Error("cannot use what the group " + group + " has", cause,
                      "put its files there again with syslogmon fleet apply");
}

[[noreturn]] void RefuseForm(const std::string &group)
{
    RefuseValue(group, "it is not of the form that syslogmon fleet apply writes");
}

void Check(const std::string &group, const GroupFiles &parsed)
{
    if (parsed.files.empty() || parsed.files.size() > kMaxFiles)
        RefuseValue(group, "it has " + std::to_string(parsed.files.size()) +
                               " files, and may have 1 to " + std::to_string(kMaxFiles));
    for (const rules::SourceText &file : parsed.files) {
        if (file.name.empty() || file.name.size() > kMaxName ||
            !std::ranges::all_of(file.name, MayBeInName))
            RefuseValue(group, "the name of a file in it is none");
    }
}

} // namespace

std::string FormatGroup(const std::string &group, const GroupFiles &files)
{
    json list = json::array();
    for (const rules::SourceText &file : files.files)
        list.push_back({{"name", file.name}, {"text", file.bytes}});
    json value = {{"files", list}, {"author", files.author}, {"made_ms", files.made_ms}};
    if (files.below != kAllNumbers)
        value["below"] = files.below;
    Check(group, files);
    // An author may have any name.
    std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    if (text.size() > kMaxGroupValue)
        throw host::Error("cannot give the group " + group + " these files",
                          "they have " + std::to_string(text.size()) + " bytes, of which " +
                              std::to_string(kMaxGroupValue) + " are taken",
                          "divide the events among two groups; a host may belong to several");
    return text;
}

GroupFiles ParseGroup(const std::string &group, const std::string &value)
{
    if (value.size() > kMaxGroupValue)
        RefuseValue(group, "it has " + std::to_string(value.size()) + " bytes, of which " +
                               std::to_string(kMaxGroupValue) + " are taken");
    GroupFiles parsed;
    try {
        const json object = json::parse(value);
        for (const json &file : object.at("files"))
            parsed.files.push_back(
                {file.at("name").get<std::string>(), file.at("text").get<std::string>()});
        parsed.author = object.value("author", "");
        const auto made_ms = WholeNumberIn(object, "made_ms", 0);
        const auto below = WholeNumberIn(object, "below", int64_t{kAllNumbers});
        if (!made_ms || !below || *below < 0)
            RefuseForm(group);
        parsed.made_ms = *made_ms;
        parsed.below = static_cast<uint64_t>(*below);
    } catch (const json::exception &) {
        RefuseForm(group);
    }
    Check(group, parsed);
    return parsed;
}

// A small hash that is the same in each version and on each machine (FNV-1a); the upper half, which is mixed better.
uint64_t NumberOf(const std::string &group, const std::string &uuid)
{
    uint64_t hash = 14695981039346656037U;
    const std::string name = group + "/" + uuid;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return hash >> 32U;
}

uint64_t BoundOf(const std::string &group, const std::vector<std::string> &uuids, double percent)
{
    std::vector<uint64_t> numbers;
    numbers.reserve(uuids.size());
    for (const std::string &uuid : uuids)
        numbers.push_back(NumberOf(group, uuid));
    std::sort(numbers.begin(), numbers.end());
    const double share = std::ceil(static_cast<double>(numbers.size()) * percent / 100);
    const size_t count =
        std::clamp<size_t>(static_cast<size_t>(share), 1, std::max<size_t>(numbers.size(), 1));
    return numbers.empty() ? 0 : numbers[count - 1] + 1;
}

std::vector<std::string> GroupsIn(const std::string &list)
{
    std::vector<std::string> groups = text::SplitAtCommas(list);
    std::sort(groups.begin(), groups.end());
    groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
    return groups;
}

// They are parts of subjects, as names of streams are.
std::string CheckGroups(const std::string &value)
{
    const std::vector<std::string> groups = GroupsIn(value);
    const bool is_sound = !groups.empty() && groups.size() <= kMaxGroups &&
                          std::all_of(groups.begin(), groups.end(), [](const std::string &group) {
                              return sinks::CheckStreamName(group).empty();
                          });
    return is_sound ? ""
                    : "up to 16 names with commas between, each of 1 to 64 letters, digits, \"_\" "
                      "and \"-\"";
}

} // namespace fleet
