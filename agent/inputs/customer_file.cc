#include "agent/inputs/customer_file.h"

#include <algorithm>

#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/inputs/input_store.h"
#include "agent/inputs/log_content.h"
#include "platform/contract.h"
#include "platform/registry.h"

namespace inputs {

namespace {

// As much of a line as the module keeps, without the zero byte.
constexpr size_t kKept = kStoredTextSize - 1;

std::string ReadSome(LogContent *content, uint64_t offset, size_t size)
{
    std::string bytes(size, '\0');
    bytes.resize(content->Read(offset, bytes.data(), size));
    return bytes;
}

std::string LineOf(const std::string &bytes, size_t begin)
{
    return bytes.substr(begin, std::min(bytes.find('\n', begin), bytes.size()) - begin);
}

// What the module keeps ends with a zero byte in the line, too.
std::string Kept(const std::string &line)
{
    return line.substr(0, std::min(kKept, line.find('\0')));
}

// Where the first line that the module has not checked begins, when this is the file that it has read.
std::optional<PlaceInFile> FindIn(LogContent *content, const ModulePlace &place)
{
    const std::string head = ReadSome(content, 0, kLongestRecord);
    if (!LineOf(head, 0).starts_with(place.head_line))
        return std::nullopt;
    if (place.position < 0)
        return PlaceInFile{};
    const auto at = static_cast<uint64_t>(place.position);
    const std::string bytes = ReadSome(content, at, kLongestRecord);
    const std::string line = LineOf(bytes, 0);
    const bool begins_a_line = at == 0 || ReadSome(content, at - 1, 1) == "\n";
    if (bytes.empty() || !begins_a_line || !line.starts_with(place.content))
        return std::nullopt;
    // The module takes an unfinished line for a whole one, and what is added to it later is passed over.
    const bool is_whole = line.size() < bytes.size();
    return PlaceInFile{at + line.size() + (is_whole ? 1 : 0), !is_whole};
}

// The reverse: by which the module finds the line before an offset.
ModulePlace PlaceBefore(LogContent *content, uint64_t offset)
{
    ModulePlace place;
    place.head_line = Kept(LineOf(ReadSome(content, 0, kLongestRecord), 0));
    if (offset == 0)
        return place;
    const size_t size = std::min<uint64_t>(offset, kLongestRecord);
    const std::string bytes = ReadSome(content, offset - size, size);
    // The line end just before the offset is that of the line itself.
    const size_t before = size < 2 ? std::string::npos : bytes.rfind('\n', size - 2);
    const size_t begin = before == std::string::npos ? 0 : before + 1;
    place.position = static_cast<int64_t>(offset - size + begin);
    place.content = Kept(LineOf(bytes, begin));
    return place;
}

std::map<std::string, std::vector<std::string>> OptionsOf(const std::string &path)
{
    return {{"path", {PatternOf(path)}}};
}

} // namespace

bool CustomerFile::Is(const InputConfig &input)
{
    return input.name == kCustomerInput && input.kind == kFilesKind &&
           input.options == OptionsOf(host::AgentText(registry_, host::kCustomerFile).value_or(""));
}

bool CustomerFile::HasOthers()
{
    const auto all = InputRegistry(store_, registry_).ReadAll();
    return std::any_of(all.begin(), all.end(), [&](const auto &input) { return !Is(input); });
}

std::optional<InputConfig> CustomerFile::FindInput()
{
    for (InputConfig &input : InputRegistry(store_, registry_).ReadAll()) {
        if (input.name == kCustomerInput)
            return input;
    }
    return std::nullopt;
}

std::optional<Loss> CustomerFile::Set(const std::string &path,
                                      const std::optional<ModulePlace> &place)
{
    const auto before = FindInput();
    const auto set = host::AgentText(registry_, host::kCustomerFile);
    if (before && set == path)
        return std::nullopt;
    if (before)
        registry_.DeleteKey(before->key);
    const host::KeyId key = registry_.Create(host::kRootKey, host::kAgentKey);
    registry_.Set(key, host::kCustomerFile, REG_SZ,
                  std::string_view(path.c_str(), path.size() + 1));
    if (path.empty())
        return std::nullopt;
    InputConfig input{0, kCustomerInput, kFilesKind, OptionsOf(path)};
    input.key = InputRegistry(store_, registry_).Create(input);
    FileFollower follower(
        FollowOptionsOf(
            input, host::AgentText(registry_, "LogCharset").value_or(host::kDefaultLogCharset)),
        {});
    const bool is_found =
        !place || follower.BeginAt([&](LogContent *content) { return FindIn(content, *place); });
    if (!place)
        follower.Begin();
    Batch places;
    follower.StorePlaces(&places);
    WritePlaces(store_, places);
    if (is_found)
        return std::nullopt;
    return Loss{kCustomerInput,
                "where the monitor stood in " + path +
                    " was found in none of its files, so it goes on from their ends: what was "
                    "written before and not read is missing, if there was anything"};
}

// Files that nobody writes into and that were read to their ends do not count; of the others there is one at most.
std::optional<CustomerFile::Unread> CustomerFile::FindUnread()
{
    const auto input = FindInput();
    if (!input || !Is(*input))
        return std::nullopt;
    Unread unread{host::AgentText(registry_, host::kCustomerFile).value_or(""), {}};
    const auto look = LookAt(unread.path);
    const auto rows =
        store_.Read([&](host::Database &database) { return ReadPlaces(database, input->key); });
    bool is_known = false;
    for (const StoredPlace &row : rows) {
        const auto place = PlaceOf(row.text);
        if (!place || place->done || place->all)
            continue;
        if (is_known || !look || look->identity != place->identity)
            return std::nullopt;
        unread.place = *place;
        is_known = true;
    }
    if (look && !is_known)
        return std::nullopt; // the input has not seen it yet
    return unread;
}

bool CustomerFile::CanReturn()
{
    return !FindInput() || FindUnread();
}

std::optional<CustomerFile::Returned> CustomerFile::TakeBack()
{
    const auto input = FindInput();
    if (!input)
        return Returned{};
    const auto unread = FindUnread();
    if (!unread)
        return std::nullopt;
    Returned returned{unread->path, {}};
    if (unread->place.offset > 0) {
        try {
            LogContent content(unread->path);
            const auto look = LookAt(content.fd());
            if (!look || look->identity != unread->place.identity ||
                !HoldsPlace(&content, unread->place) || content.IsPacked())
                return std::nullopt;
            returned.place = PlaceBefore(&content, unread->place.offset);
        } catch (const host::Error &) {
            return std::nullopt;
        }
    }
    registry_.DeleteKey(input->key);
    if (const auto key = registry_.Find(host::kRootKey, host::kAgentKey))
        registry_.DeleteValue(*key, host::kCustomerFile);
    return returned;
}

} // namespace inputs
