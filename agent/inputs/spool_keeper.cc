#include "agent/inputs/spool_keeper.h"

#include <algorithm>

#include "agent/alerts/own_alert.h"
#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/host/registry_values.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/split64.h"
#include "platform/trace.h"

namespace inputs {

namespace {

// A generation ends when it has come to this length and all of it was read.
constexpr int64_t kLongGeneration = int64_t{4} * 1024 * 1024;
constexpr char kUnit[] = "inputs";
constexpr int64_t kMegabyte = int64_t{1024} * 1024;

// The slot of the customer file.
constexpr const SlotValues &kSlot = kSlotValues[1];

size_t HashOf(std::string_view line)
{
    return std::hash<std::string_view>{}(line);
}

} // namespace

std::string SpoolKeeper::Text(const char *name)
{
    const auto key = registry_.Find(host::kRootKey, kMonitorKey);
    const auto value = key ? registry_.Get(*key, name) : std::nullopt;
    return value && value->type == REG_SZ ? TextOf(*value) : std::string{};
}

std::optional<uint32_t> SpoolKeeper::Number(const char *name)
{
    const auto key = registry_.Find(host::kRootKey, kMonitorKey);
    const auto value = key ? registry_.Get(*key, name) : std::nullopt;
    return host::NumberOf(value);
}

int64_t SpoolKeeper::Limit()
{
    return int64_t{host::AgentNumber(registry_, host::kSpoolMegabytes)
                       .value_or(host::kDefaultSpoolMegabytes)} *
           kMegabyte;
}

// The place that the module has stored is one in the spool, whatever customer file is set.
bool SpoolKeeper::StandsInSpool()
{
    return state_.generation > 0 && Text(kSlot.headline) == SpoolHeadLine(state_.generation) &&
           Number(kSlot.pos_low) && Number(kSlot.pos_high);
}

std::optional<ModulePlace> SpoolKeeper::ReadModulePlace()
{
    const auto low = Number(kSlot.pos_low);
    const auto high = Number(kSlot.pos_high);
    if (!low || !high)
        return std::nullopt;
    return ModulePlace{Text(kSlot.headline), JoinHalves(*low, *high), Text(kSlot.content)};
}

void SpoolKeeper::WriteModulePlace(const std::string &path, const ModulePlace &place)
{
    const host::KeyId key = registry_.Create(host::kRootKey, kMonitorKey);
    host::SetText(registry_, key, kFileNameValue, path);
    host::SetText(registry_, key, kSlot.headline, place.head_line);
    host::SetText(registry_, key, kSlot.content, place.content);
    host::SetNumber(registry_, key, kSlot.pos_low, LowHalf(place.position));
    host::SetNumber(registry_, key, kSlot.pos_high, HighHalf(place.position));
}

// The offset up to which the module has checked the spool.
int64_t SpoolKeeper::ReadTo()
{
    const int64_t last =
        JoinHalves(Number(kSlot.pos_low).value_or(0), Number(kSlot.pos_high).value_or(0));
    if (last == state_.last_line)
        return state_.length;
    const int64_t begin = std::clamp<int64_t>(last, 0, state_.length);
    // Of a spool that is gone, by what the module knows of the line.
    const auto size = static_cast<int64_t>(Text(kSlot.content).size());
    return file_.EndOfLine(begin).value_or(std::min(begin + size + 1, state_.length));
}

// First the store says so, then the file is made so. What is between them is found by the store.
void SpoolKeeper::BeginGeneration(int64_t generation)
{
    const SpoolState state = BeginOfGeneration(generation);
    const std::string head = SpoolHeadLine(generation);
    WriteModulePlace(file_.path(), {head, 0, head});
    ForgetOrigins(store_);
    WriteSpoolState(store_, state);
    store_.CommitPass();
    state_ = state;
    file_.Begin(generation);
}

void SpoolKeeper::Tell(const Loss &loss)
{
    const std::string about = "input " + loss.input;
    alerts::AddOwnAlert(store_, {alerts::OwnEvent::kLoss, alerts::OwnState::kOnce, about,
                                 about + ": " + loss.what, loss.input});
}

void SpoolKeeper::Prepare(bool has_inputs, int64_t wall_seconds)
{
    next_.reset();
    has_index_ = false;
    state_ = store_.Read([](host::Database &database) { return ReadSpoolState(database); });
    const bool stands_in_spool = StandsInSpool();
    is_in_force_ = has_inputs || stands_in_spool;
    if (is_in_force_)
        TakeCustomerFile(stands_in_spool);
    if (is_in_force_ && !has_inputs && TakesCustomerFileBack())
        is_in_force_ = false;
    if (is_in_force_)
        LookAtSpool(stands_in_spool, wall_seconds);
    else if (Text(kFileNameValue) == file_.path()) // as of an imported registry
        host::SetText(registry_, registry_.Create(host::kRootKey, kMonitorKey), kFileNameValue, "");
    store_.CommitPass();
    if (!is_in_force_)
        file_.Remove();
}

// Whatever the administrator has set becomes an input, and the spool takes its place.
void SpoolKeeper::TakeCustomerFile(bool stands_in_spool)
{
    const std::string set = Text(kFileNameValue);
    if (set == file_.path())
        return;
    // A file that was set while the module stood in the spool was never opened by it.
    const bool was_read = !stands_in_spool && !set.empty();
    if (const auto loss = customer_.Set(set, was_read ? ReadModulePlace() : std::nullopt))
        Tell(*loss);
    const host::KeyId key = registry_.Create(host::kRootKey, kMonitorKey);
    host::SetText(registry_, key, kFileNameValue, file_.path());
    host::SetText(registry_, registry_.Create(host::kRootKey, host::kAgentKey), host::kInputSpool,
                  file_.path());
}

// False: the spool is needed still.
bool SpoolKeeper::TakesCustomerFileBack()
{
    if (!AllIsRead())
        return false;
    const auto customer = customer_.TakeBack();
    if (!customer)
        return false;
    WriteModulePlace(customer->path, customer->place);
    if (customer->path.empty())
        registry_.DeleteValue(registry_.Create(host::kRootKey, kMonitorKey), kFileNameValue);
    if (const auto key = registry_.Find(host::kRootKey, host::kAgentKey))
        registry_.DeleteValue(*key, host::kInputSpool);
    // Nothing of it is unread, so the next one begins without a word.
    ForgetOrigins(store_);
    WriteSpoolState(store_, BeginOfGeneration(state_.generation + 1));
    return true;
}

void SpoolKeeper::LookAtSpool(bool stands_in_spool, int64_t wall_seconds)
{
    if (state_.generation == 0) {
        BeginGeneration(1);
        return;
    }
    // The place was overwritten or removed, so how far the module has come is not known.
    if (!stands_in_spool) {
        if (state_ != BeginOfGeneration(state_.generation))
            Tell({"spool", "the place of the monitor in " + file_.path().string() +
                               " was overwritten, so it is not known which of the last entries "
                               "were checked; those that were not are missing"});
        BeginGeneration(state_.generation + 1);
        return;
    }
    const int64_t read_to = ReadTo();
    if (file_.Repair(state_, read_to, wall_seconds))
        return;
    TellMissing(read_to);
    BeginGeneration(state_.generation + 1);
}

void SpoolKeeper::TellMissing(int64_t read_to)
{
    if (read_to < state_.length)
        Tell({"spool", std::to_string(state_.length - read_to) + " bytes of " +
                           file_.path().string() +
                           " are missing that were not checked: the file was removed or changed"});
}

void SpoolKeeper::LookAfterSpool()
{
    try {
        switch (file_.Look(state_)) {
        case SpoolFile::Presence::kThere:
            return;
        case SpoolFile::Presence::kRemoved:
            file_.PutBack(state_);
            TRACE(TRACE_NOTABLE, "The spool %s was removed, and is put back.", path().c_str());
            return;
        case SpoolFile::Presence::kCut:
            TellMissing(ReadTo());
            BeginGeneration(state_.generation + 1);
        }
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        problem_ = error.what(); // of the spool's file: the next rest tries again
    }
}

bool SpoolKeeper::Store(const Batch &batch)
{
    const int64_t read_to = ReadTo();
    const int64_t unread = state_.length - read_to;
    const auto size = static_cast<int64_t>(batch.text.size());
    if (unread > 0 && unread + size > Limit()) {
        problem_ = "the monitor has " + std::to_string(unread) +
                   " bytes of the spool to read still; the inputs wait for it";
        return false;
    }
    try {
        if (unread == 0 && state_.length > kLongGeneration)
            BeginGeneration(state_.generation + 1);
        const int64_t begin = state_.length;
        next_ = batch.text.empty() ? state_ : file_.Append(state_, batch.text);
        problem_.clear();
        WriteOrigins(store_, batch, begin);
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        problem_ = error.what(); // of the spool's file: nothing of the batch is stored
        return false;
    }
    WriteSpoolState(store_, *next_);
    WritePlaces(store_, batch);
    for (const Loss &loss : batch.losses)
        Tell(loss);
    return true;
}

void SpoolKeeper::Committed()
{
    has_index_ = false;
    if (!next_)
        return;
    state_ = *next_;
    next_.reset();
}

void SpoolKeeper::IndexUnread()
{
    unread_.clear();
    has_index_ = true;
    constexpr size_t kBlock = size_t{1024} * 1024;
    const int64_t last =
        JoinHalves(Number(kSlot.pos_low).value_or(0), Number(kSlot.pos_high).value_or(0));
    int64_t at = std::clamp<int64_t>(last, 0, state_.length);
    while (at < state_.length) {
        const std::string block =
            file_.ReadAt(at, static_cast<size_t>(std::min<int64_t>(kBlock, state_.length - at)));
        size_t begin = 0;
        for (size_t end = block.find('\n'); end != std::string::npos;
             end = block.find('\n', begin)) {
            unread_.emplace(HashOf(std::string_view(block).substr(begin, end - begin)),
                            at + static_cast<int64_t>(begin));
            begin = end + 1;
        }
        if (begin == 0)
            return;
        at += static_cast<int64_t>(begin);
    }
}

std::optional<SpoolOrigin> SpoolKeeper::OriginOf(const std::string &line)
{
    if (!is_in_force_)
        return std::nullopt;
    if (!has_index_)
        IndexUnread();
    const auto found = unread_.find(HashOf(line));
    if (found == unread_.end())
        return std::nullopt;
    const int64_t at = found->second;
    return store_.Read([&](host::Database &database) { return ReadOrigin(database, at); });
}

} // namespace inputs
