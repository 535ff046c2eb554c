#include "agent/logs/places.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>

#include "agent/host/agent_values.h"
#include "agent/logs/log_files.h"
#include "platform/contract.h"
#include "platform/split64.h"

namespace logs {

namespace fs = std::filesystem;

namespace {

// As they stand in the output, by slot of the scan.
constexpr const char *kSlotRoles[MAX_MON_FILES] = {"system log", "customer file"};
// No pass has stored a place yet: the file was just set, or the daemon has never run.
constexpr char kNotLookedAt[] = "not looked at yet";

// Nothing for what is no regular file: it has no bytes that could be behind.
std::optional<int64_t> SizeOf(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return status.st_size;
}

// ---- a slot of the syslog scan ----

// A log that is open in the module's reader.
class OpenLog {
  public:
    OpenLog(monitor::Module &module, const fs::path &path)
        : module_(module), is_open_(module.InitFile(path.c_str()) == 0)
    {
    }
    // Also when it was not opened: the module closes what is open, if anything is.
    ~OpenLog() { module_.FinishFile(); }
    OpenLog(const OpenLog &) = delete;
    OpenLog &operator=(const OpenLog &) = delete;

    // The first line; nothing when it cannot be read.
    std::optional<std::string> FirstLine()
    {
        char line[kLineBufferSize] = {};
        if (!is_open_ || module_.GetFirstLine(line, sizeof line) != 0)
            return std::nullopt;
        return line;
    }

    // Goes to the line that was checked last, or where the module goes instead, and returns where the first one
    // behind it begins: at the end of the file, when there is none. Nothing: there is no way to it.
    std::optional<int64_t> GoBehind(int64_t *position, std::string content, int64_t end)
    {
        // A copy, as large as the module asks for: it may write the line there on which it ends up.
        content.resize(kLineBufferSize);
        if (!is_open_ || module_.GotoPos(position, content.data(), kLineBufferSize) != 0)
            return std::nullopt;
        if (module_.FEof() != 0)
            return end;
        char line[kLineBufferSize] = {};
        int64_t next = 0;
        if (module_.GetNextLine(&next, line, sizeof line) != 0)
            return std::nullopt;
        return next;
    }

  private:
    monitor::Module &module_;
    bool is_open_;
};

std::vector<fs::path> Backups(monitor::Module &module, int slot)
{
    monitor::BackupName *names = nullptr;
    const int count = module.ListBackupsOfSlot(&names, slot);
    // The module allocates with malloc and leaves the array to its caller.
    const std::unique_ptr<monitor::BackupName, decltype(&free)> owned(names, free);
    std::vector<fs::path> backups;
    for (int i = 0; i < count; ++i)
        backups.push_back(fs::path(kLogDir) / names[i]);
    return backups;
}

// What the registry says of a slot: the first line of the file that is followed, and the line checked last.
struct ResumePoint {
    std::string head_line;
    int64_t position = -1;
    std::string content;
};

std::optional<ResumePoint> ReadResumePoint(monitor::Module &module, int slot)
{
    char head_line[kLineBufferSize] = {};
    char content[kLineBufferSize] = {};
    ResumePoint point;
    if (module.RegGetHeadLine(head_line, sizeof head_line, slot) != 0 ||
        module.RegGetOrientation(&point.position, content, sizeof content, slot) != 0)
        return std::nullopt;
    point.head_line = head_line;
    point.content = content;
    return point;
}

// The file that begins with the stored line. A backup that cannot be read, or is empty, ends the search, as it does in
// a pass, which then goes on from the end of the log. While it is the log itself, a pass leaves everything as it is:
// the place is found again when the log has a line.
fs::path FindResumeFile(monitor::Module &module, const WatchedFile &file, const ResumePoint &point)
{
    for (const fs::path &candidate : RotationSet(file)) {
        const auto line = OpenLog(module, candidate).FirstLine();
        if (!line && candidate == file.path)
            continue;
        if (!line)
            break;
        // Not the whole line: no more than its first 499 bytes are stored.
        if (line->starts_with(point.head_line))
            return candidate;
    }
    return {};
}

// Bytes of the files that are newer than the one with the place in it.
int64_t NewerBytes(const WatchedFile &file)
{
    int64_t bytes = 0;
    for (const fs::path &newer : RotationSet(file)) {
        if (newer == file.resume_file)
            break;
        bytes += SizeOf(newer).value_or(0);
    }
    return bytes;
}

// Fills in the place, if there is one. A problem that was found before stays: what keeps the file
// from being read is also why the place is not found.
void Locate(monitor::Module &module, const ResumePoint &point, WatchedFile *file)
{
    const fs::path found = FindResumeFile(module, *file, point);
    const int64_t size = SizeOf(found).value_or(0);
    int64_t position = point.position;
    // An empty name, which no file has: when the search has found nothing, the open fails and so
    // does this.
    const auto next = OpenLog(module, found).GoBehind(&position, point.content, size);
    if (next) {
        file->resume_file = found;
        file->position = position;
        file->done = next;
        file->behind = NewerBytes(*file) + std::max<int64_t>(size - *next, 0);
    } else if (file->problem.empty()) {
        file->problem =
            "the resume point is in none of its files; the monitor will go on from its end";
    }
}

WatchedFile Slotted(monitor::Module &module, int slot, const fs::path &path)
{
    WatchedFile file;
    file.role = kSlotRoles[slot];
    file.path = path;
    // Before the place, which is looked for in them, too.
    file.backups = Backups(module, slot);
    file.problem = WhyUnreadable(path);
    if (const auto point = ReadResumePoint(module, slot))
        Locate(module, *point, &file);
    else if (file.problem.empty())
        file.problem = kNotLookedAt;
    return file;
}

// ---- the file monitor's target ----

std::optional<uint32_t> Number(host::RegistryTree &registry, const char *name)
{
    const auto key = registry.Find(host::kRootKey, kFileMonitorKey);
    const auto value = key ? registry.Get(*key, name) : std::nullopt;
    uint32_t number = 0;
    if (!value || value->data.size() != sizeof number)
        return std::nullopt;
    memcpy(&number, value->data.data(), sizeof number);
    return number;
}

// The place is an inode and an offset, and the reader of that file lives in the pass: what is stored is shown.
WatchedFile FileMonitor(host::RegistryTree &registry, const fs::path &path)
{
    WatchedFile file;
    file.role = "file monitor";
    file.path = path;
    file.problem = WhyUnreadable(path);
    const auto low = Number(registry, kOffsetLowValue);
    const auto high = Number(registry, kOffsetHighValue);
    const auto size = SizeOf(path);
    if (low && high && size) {
        file.resume_file = path;
        file.position = file.done = JoinHalves(*low, *high);
        file.behind = std::max<int64_t>(*size - *file.done, 0);
    } else if (file.problem.empty()) {
        file.problem = kNotLookedAt;
    }
    return file;
}

} // namespace

std::vector<WatchedFile> ReadWatchedFiles(monitor::Module &module, host::RegistryTree &registry)
{
    // What a daemon does when it is woken for the name: without it the module of this process would
    // not know the file, and would look for no backups of it.
    module.ChangeCustFile();
    std::vector<WatchedFile> files = {Slotted(module, 0, kSystemLog)};
    if (const std::string customer = NameOfFile(registry, kMonitorKey); !customer.empty()) {
        files.push_back(Slotted(module, 1, customer));
        if (customer == host::AgentText(registry, host::kInputSpool))
            files.back().role = kSpoolRole;
    }
    if (const std::string target = NameOfFile(registry, kFileMonitorKey); !target.empty())
        files.push_back(FileMonitor(registry, target));
    return files;
}

std::vector<fs::path> RotationSet(const WatchedFile &file)
{
    std::vector<fs::path> files = {file.path};
    files.insert(files.end(), file.backups.begin(), file.backups.end());
    return files;
}

} // namespace logs
