#include "agent/metrics/quick_place.h"

#include <algorithm>
#include <sys/stat.h>

#include "agent/host/registry_values.h"
#include "agent/logs/log_files.h"
#include "platform/contract.h"
#include "platform/split64.h"

namespace metrics {

namespace {

namespace fs = std::filesystem;

std::optional<int64_t> SizeOfFile(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return int64_t{status.st_size};
}

std::optional<int64_t> Joined(host::RegistryTree &registry, host::KeyId key, const char *low,
                              const char *high)
{
    const auto low_half = host::NumberOf(registry.Get(key, low));
    const auto high_half = host::NumberOf(registry.Get(key, high));
    if (!low_half || !high_half)
        return std::nullopt;
    return JoinHalves(*low_half, *high_half);
}

// Behind the line that begins at an offset and with this text; nothing: another one stands there.
std::optional<int64_t> BehindLine(const fs::path &log, int64_t offset, const std::string &begin)
{
    if (offset < 0)
        return 0; // nothing of the file was checked
    const std::string text = logs::ReadPart(log, offset, kLineMax + 1);
    if (text.empty() || !text.starts_with(begin))
        return std::nullopt;
    const size_t end = text.find('\n');
    return offset + static_cast<int64_t>(end == std::string::npos ? text.size() : end + 1);
}

} // namespace

std::optional<int64_t> UnreadOfSlot(host::RegistryTree &registry, int slot, const fs::path &log)
{
    const auto size = SizeOfFile(log);
    const auto key = registry.Find(host::kRootKey, kMonitorKey);
    if (!size || !key)
        return std::nullopt;
    const SlotValues &names = kSlotValues[slot];
    const auto position = Joined(registry, *key, names.pos_low, names.pos_high);
    const auto content = registry.Get(*key, names.content);
    if (!position || !content)
        return std::nullopt;
    const auto done = BehindLine(log, *position, host::TextOf(*content));
    return std::max<int64_t>(*size - done.value_or(0), 0);
}

std::optional<int64_t> UnreadOfTarget(host::RegistryTree &registry, const fs::path &target)
{
    const auto size = SizeOfFile(target);
    const auto key = registry.Find(host::kRootKey, kFileMonitorKey);
    if (!size || !key)
        return std::nullopt;
    const auto offset = Joined(registry, *key, kOffsetLowValue, kOffsetHighValue);
    if (!offset)
        return std::nullopt;
    return std::max<int64_t>(*size - *offset, 0);
}

} // namespace metrics
