#include "agent/logs/log_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/split64.h"

namespace logs {

namespace fs = std::filesystem;

namespace {

constexpr int kMaxVmkernelBackups = 4;
constexpr size_t kBlockBytes = 16384; // that the monitor reads in one go

struct Slot {
    const char *role;
    SlotValues values;
};
constexpr Slot kSystemLogSlot = {"system log", kSlotValues[0]};
constexpr Slot kCustomerSlot = {"customer file", kSlotValues[1]};

class Key {
  public:
    Key(host::RegistryTree &registry, const char *path)
        : registry_(registry), key_(registry.Find(host::kRootKey, path))
    {
    }
    [[nodiscard]] std::optional<std::string> Text(const char *name) const
    {
        const auto value = key_ ? registry_.Get(*key_, name) : std::nullopt;
        return value ? std::optional<std::string>(host::TextOf(*value)) : std::nullopt;
    }
    [[nodiscard]] std::optional<uint32_t> Number(const char *name) const
    {
        const auto value = key_ ? registry_.Get(*key_, name) : std::nullopt;
        uint32_t number = 0;
        if (!value || value->data.size() != sizeof number)
            return std::nullopt;
        memcpy(&number, value->data.data(), sizeof number);
        return number;
    }
    [[nodiscard]] std::optional<int64_t> Halves(const char *low, const char *high) const
    {
        const auto low_half = Number(low);
        const auto high_half = Number(high);
        if (!low_half || !high_half)
            return std::nullopt;
        return JoinHalves(*low_half, *high_half);
    }

  private:
    host::RegistryTree &registry_;
    std::optional<host::KeyId> key_;
};

std::optional<int64_t> SizeOf(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return status.st_size;
}

// Does the file begin with this line? Only so much of it is read as the monitor has stored.
bool BeginsWith(const fs::path &path, const std::string &head_line)
{
    return ReadPart(path, 0, head_line.size()) == head_line;
}

time_t ModifiedAt(const fs::path &path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

std::vector<fs::path> NumberedBackups(const fs::path &live, int most)
{
    std::vector<fs::path> backups;
    for (int n = 1; n <= most; ++n) {
        fs::path backup = live.string() + "." + std::to_string(n);
        if (!SizeOf(backup))
            break;
        backups.push_back(std::move(backup));
    }
    return backups;
}

std::vector<fs::path> DatedBackups()
{
    std::vector<fs::path> backups;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(kLogDir, ignored)) {
        const std::string name = entry.path().filename().string();
        const bool dated = name.size() == 17 && name.rfind("messages-", 0) == 0 &&
                           name.find_first_not_of("0123456789", 9) == std::string::npos;
        if (dated)
            backups.push_back(entry.path());
    }
    std::sort(backups.rbegin(), backups.rend());
    return backups;
}

// Newest first, as the monitor looks for them.
std::vector<fs::path> Backups(const fs::path &live)
{
    if (live == kVmkernelLog)
        return NumberedBackups(live, kMaxVmkernelBackups);
    if (live != kSystemLog)
        return {};
    auto numbered = NumberedBackups(live, INT32_MAX);
    auto dated = DatedBackups();
    if (numbered.empty())
        return dated;
    if (dated.empty() || ModifiedAt(dated.front()) <= ModifiedAt(numbered.front()))
        return numbered;
    return dated;
}

// The end of the line at a position: where the first unchecked line begins. A line without an end
// within a block of the monitor is taken by it in pieces.
int64_t EndOfLine(const fs::path &path, int64_t position)
{
    const std::string line = ReadPart(path, position, kBlockBytes);
    const size_t end = line.find('\n');
    return position + static_cast<int64_t>(end != std::string::npos ? end + 1 : line.size());
}

void Locate(const Key &key, const Slot &slot, WatchedFile *file)
{
    file->problem = WhyUnreadable(file->path);
    const auto head_line = key.Text(slot.values.headline);
    const auto position = key.Halves(slot.values.pos_low, slot.values.pos_high);
    if (!head_line || !position) {
        if (file->problem.empty())
            file->problem = "not looked at yet";
        return;
    }
    int64_t newer = 0;
    for (const fs::path &candidate : RotationSet(file->path)) {
        const auto size = SizeOf(candidate);
        if (size && BeginsWith(candidate, *head_line)) {
            file->resume_file = candidate;
            file->position = position;
            file->done = *position < 0 ? 0 : EndOfLine(candidate, *position);
            file->behind = newer + std::max<int64_t>(*size - *file->done, 0);
            return;
        }
        newer += size.value_or(0);
    }
    if (file->problem.empty())
        file->problem =
            "the resume point is in none of its files; the monitor will go on from its end";
}

WatchedFile Slotted(const Key &key, const Slot &slot, const std::string &path)
{
    WatchedFile file;
    file.role = slot.role;
    file.path = path;
    Locate(key, slot, &file);
    return file;
}

WatchedFile FileMonitor(const Key &key, const std::string &path)
{
    WatchedFile file;
    file.role = "file monitor";
    file.path = path;
    file.problem = WhyUnreadable(path);
    const auto offset = key.Halves(kOffsetLowValue, kOffsetHighValue);
    const auto size = SizeOf(path);
    if (offset && size) {
        file.resume_file = path;
        file.position = offset;
        file.done = offset;
        file.behind = std::max<int64_t>(*size - *offset, 0);
    } else if (file.problem.empty()) {
        file.problem = "not looked at yet";
    }
    return file;
}

} // namespace

std::vector<fs::path> RotationSet(const fs::path &live)
{
    std::vector<fs::path> files = Backups(live);
    files.insert(files.begin(), live);
    return files;
}

std::string ReadPart(const fs::path &path, int64_t offset, size_t bytes)
{
    const host::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    std::string part(bytes, '\0');
    size_t have = 0;
    while (have < bytes) {
        const ssize_t got =
            pread(file.get(), part.data() + have, bytes - have, offset + static_cast<off_t>(have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        have += static_cast<size_t>(got);
    }
    part.resize(have);
    return part;
}

std::string WhyUnreadable(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "it is no regular file";
    if (access(path.c_str(), R_OK) != 0)
        return strerror(errno);
    return {};
}

std::vector<WatchedFile> ReadWatchedFiles(host::RegistryTree &registry)
{
    const Key monitor(registry, kMonitorKey);
    const Key file_monitor(registry, kFileMonitorKey);
    std::vector<WatchedFile> files = {Slotted(monitor, kSystemLogSlot, kSystemLog)};
    const std::string customer = monitor.Text(kFileNameValue).value_or("");
    if (!customer.empty())
        files.push_back(Slotted(monitor, kCustomerSlot, customer));
    const std::string target = file_monitor.Text(kFileNameValue).value_or("");
    if (!target.empty())
        files.push_back(FileMonitor(file_monitor, target));
    return files;
}

std::vector<fs::path> WatchedPaths(host::RegistryTree &registry)
{
    std::vector<fs::path> paths = {kSystemLog};
    for (const char *key : {kMonitorKey, kFileMonitorKey}) {
        const std::string path = Key(registry, key).Text(kFileNameValue).value_or("");
        if (!path.empty())
            paths.emplace_back(path);
    }
    return paths;
}

} // namespace logs
