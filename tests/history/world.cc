#include "tests/history/world.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tests/history/slow_clock.h"

namespace history {

namespace {

// A line is checked in its month or in the next one. This many days never lead further.
constexpr int kMostSecondsUnread = 25 * kDay;

// Backups that the rotation keeps, and how often a faithful history rotates between two passes.
constexpr int kKept = 8;
constexpr int kMostRotations = 6;
constexpr int kMostVmkernelRotations = 4; // no more backups of it are followed

// More lines than these are plain, all but the first.
constexpr int kManyLines = 30;

constexpr size_t kLongText = 600; // beyond what the registry keeps of a line
constexpr size_t kLongerText = 2500;
constexpr size_t kVeryLongText = 3400;

// The text of a long line, by its id. In the watched file of a faithful history it is never the longer one: when
// the edge of a block falls into such a line, what was seen of it counts once in each block, and its delivery can
// run on into the next line, whose words then count twice. That is how the file monitor splits lines, and a test
// of its own shows it. A line that is longer than what is handled has no room for another one behind it.
size_t LongText(int id, bool is_watched_faithfully)
{
    return id % 2 == 0 || is_watched_faithfully ? kLongText : kLongerText;
}

// How far off the stamps are that are not of their time, in days.
constexpr int kOtherDays[] = {-80, -45, -20, 10, 40};

constexpr char kDatedPrefix[] = "messages-";
constexpr char kLogDir[] = "/var/log/";

struct tm Local(time_t when)
{
    struct tm local {};
    localtime_r(&when, &local);
    return local;
}

std::string StampOf(time_t when)
{
    const struct tm local = Local(when);
    char text[32];
    strftime(text, sizeof text, "%b %e %H:%M:%S", &local);
    return text;
}

// As in the name of a dated backup: "20240105".
std::string DateOf(time_t when)
{
    const struct tm local = Local(when);
    char text[16];
    strftime(text, sizeof text, "%Y%m%d", &local);
    return text;
}

std::string MonthOf(time_t when)
{
    return DateOf(when).substr(0, 6);
}

std::string PathOrNone(const char *name)
{
    return name[0] != '\0' ? kLogDir + std::string(name) : "";
}

bool IsScanned(Log log)
{
    return log != kWatchedFile;
}

Event *FindEvent(std::vector<Event> *events, const std::string &source)
{
    for (Event &event : *events) {
        if (event.source == source)
            return &event;
    }
    return nullptr;
}

Event HourEvent(uint32_t hours)
{
    return {"HOUR", 3, {"k2;", "", ""}, 3, hours};
}

} // namespace

std::vector<Event> FirstTable(uint32_t hours)
{
    constexpr uint32_t kAll = 0xFFFFFF;
    std::vector<Event> events;
    events.push_back({"EACH", 1, {"id=", "", ""}, 1, kAll});
    for (int k = 0; k < kClasses; ++k)
        events.push_back({"SUM",
                          static_cast<uint32_t>(0x10 + k),
                          {"k" + std::to_string(k) + ";", "", ""},
                          kNeverReports,
                          kAll});
    events.push_back({"PAIR", 2, {"host", "k1;", ""}, 2, kAll});
    events.push_back(HourEvent(hours));
    events.push_back({"FTREPORT", 4, {"k3;", "", ""}, 2, kAll});
    return events;
}

World::World(const Disk *disk, const Setup &setup, bool is_faithful)
    : folder(disk), clock(setup.start), is_faithful_(is_faithful), hours_(setup.hours),
      is_dated_(setup.dated)
{
    settings.customer = PathOrNone(kCustomerNames[setup.customer]);
    settings.target = PathOrNone(kTargetNames[setup.target]);
    settings.events = FirstTable(hours_);
    for (const Log log : kAllLogs) {
        if (IsWatched(log))
            AppendLine(log, kPlain);
    }
    has_begun_ = true;
}

std::string World::NameOf(Log log) const
{
    constexpr size_t kFolderLength = sizeof kLogDir - 1;
    switch (log) {
    case kSystemLog:
        return "messages";
    case kCustomerLog:
        return settings.customer.empty() ? "" : settings.customer.substr(kFolderLength);
    default:
        return settings.target.empty() ? "" : settings.target.substr(kFolderLength);
    }
}

void World::Apply(const Step &step)
{
    const Log log = step.log;
    const std::string name = NameOf(log);
    switch (step.what) {
    case Do::kClock:
        if (MayMoveClock(step.n)) {
            clock += step.n;
            forward_since_read_ += std::max(step.n, 0);
        }
        return;
    case Do::kTable:
        ChangeTable(step.n);
        return;
    case Do::kStray:
        AddStray(step.n);
        return;
    case Do::kCustomer:
        settings.customer = PathOrNone(kCustomerNames[step.n]);
        ForgetLast(kCustomerLog);
        return;
    case Do::kTarget:
        settings.target = PathOrNone(kTargetNames[step.n]);
        ForgetLast(kWatchedFile);
        return;
    default:
        break;
    }
    if (name.empty())
        return;
    switch (step.what) {
    case Do::kAppend:
        AppendLines(step);
        return;
    case Do::kRepeat:
        AppendRepeat(step);
        return;
    case Do::kPart:
        WritePart(log, step.n);
        return;
    case Do::kRest:
        CompleteLine(log);
        return;
    case Do::kGiveUp:
        writers_[log].rest.clear();
        return;
    case Do::kRotate:
        if (MayRotate(step))
            Rotate(step);
        return;
    case Do::kReplace:
        Replace(step);
        return;
    case Do::kHarmBackup:
        HarmBackup(step);
        return;
    default:
        break;
    }
    // The rest changes a live file in a way that no log is meant to change.
    if (!folder.HasFile(name))
        return;
    writers_[log].rest.clear();
    const size_t size = folder.Size(name);
    switch (step.what) {
    case Do::kTruncate:
        folder.Truncate(name, 0, clock);
        ForgetLast(log);
        return;
    case Do::kCutTail:
        CutTail(step, size);
        return;
    case Do::kRemoveLine:
    case Do::kInsertLine:
        Edit(step);
        return;
    case Do::kRewrite:
        Rewrite(log);
        return;
    case Do::kRemoveLive:
        folder.Remove(name);
        ForgetLast(log);
        return;
    default:
        return;
    }
}

void World::BeforeWake()
{
    if (!is_faithful_)
        return;
    CompleteLine(kSystemLog);
    CompleteLine(kCustomerLog);
}

void World::ScanWasCommitted()
{
    bool all_read = true;
    for (const Log log : {kSystemLog, kCustomerLog}) {
        if (!IsWatched(log))
            continue;
        if (folder.Size(NameOf(log)) == 0) {
            all_read = false;
            continue;
        }
        writers_[log].rotations = 0;
        writers_[log].is_unread = false;
    }
    if (all_read)
        forward_since_read_ = 0;
}

void World::WatchWasCommitted()
{
    Writer &writer = writers_[kWatchedFile];
    if (IsWatched(kWatchedFile) && folder.HasFile(NameOf(kWatchedFile)))
        writer.is_unread = !writer.rest.empty();
}

void World::Finish()
{
    for (const Log log : kAllLogs) {
        if (IsWatched(log))
            AppendLine(log, kPlain);
    }
}

// ---- writing ----

void World::Append(Log log, const std::string &text)
{
    Writer &writer = writers_[log];
    const std::string rest = writer.rest.empty() ? "" : writer.rest + "\n";
    writer.rest.clear();
    folder.Append(NameOf(log), rest + text, clock);
    // Of the watched file all counts that it held when it was named.
    if (has_begun_ || log == kWatchedFile)
        ledger.bytes[log] += static_cast<int64_t>((rest + text).size());
    writer.is_unread = true;
}

void World::CompleteLine(Log log)
{
    if (writers_[log].rest.empty())
        return;
    if (folder.HasFile(NameOf(log)))
        Append(log, "");
    writers_[log].rest.clear();
}

void World::ForgetLast(Log log)
{
    writers_[log].rest.clear();
    writers_[log].has_last = false;
    writers_[log].last_id = 0;
    writers_[log].last_class = -1;
}

bool World::IsOfThisMonth(time_t when) const
{
    return MonthOf(when) == MonthOf(clock);
}

// Enters the line that was made last into the ledger.
void World::Expect(Log log, bool counts)
{
    const Writer &writer = writers_[log];
    if (writer.last_id == 0 || !counts || (IsScanned(log) && !has_begun_))
        return;
    ++ledger.reports[writer.last_id];
    ++ledger.sums[static_cast<size_t>(writer.last_class)];
}

// Is the style possible here? In a faithful history, an empty line is never the first of a file, because
// the file could not be told from any other, and a twin is written by the second in which its model was.
bool World::MayAppend(Log log, int style) const
{
    const Writer &writer = writers_[log];
    const bool has_lines = folder.Size(NameOf(log)) > 0;
    if (style == kTwin)
        return writer.has_last && (!is_faithful_ || (has_lines && IsOfThisMonth(writer.last_time)));
    if (is_faithful_ && style == kEmptyLine)
        return has_lines;
    return !is_faithful_ || style != kOldStamp;
}

// A line without its end; what it is becomes the log's last line.
std::string World::MakeLine(Log log, int style)
{
    Writer &writer = writers_[log];
    if (!MayAppend(log, style))
        style = kPlain;
    if (style == kTwin) {
        Expect(log, writer.last_class >= 0);
        return writer.last;
    }
    const int id = next_id_++;
    const int line_class =
        static_cast<int>((static_cast<unsigned>(id) * 2654435761U) >> 29U) % kClasses;
    char tail[64];
    snprintf(tail, sizeof tail, "id=%07d; k%d; text", id, line_class);
    std::string line = StampOf(clock) + " host app: " + tail;
    bool counts = true;
    switch (style) {
    case kLong:
        line += std::string(LongText(id, is_faithful_ && !IsScanned(log)), 'x');
        break;
    case kVeryLong:
        line += std::string(kVeryLongText, 'y');
        break;
    case kNoStamp:
        line = std::string("    at ") + tail;
        counts = !IsScanned(log);
        break;
    case kOwn:
        line = StampOf(clock) + " host TARSKvkvmain: " + tail;
        counts = !IsScanned(log);
        break;
    case kEmptyLine:
        line.clear();
        counts = false;
        break;
    case kOddRepeat:
        line = StampOf(clock) + " host last message repeated many times " + tail;
        break;
    case kOldStamp:
        line.replace(0, 15, StampOf(clock + (kOtherDays[id % 5] * kDay)));
        break;
    default:
        break;
    }
    writer.last = line;
    writer.has_last = true;
    writer.last_id = style == kEmptyLine ? 0 : id;
    writer.last_class = counts ? line_class : -1;
    writer.last_time = clock;
    Expect(log, counts);
    return line;
}

void World::AppendLine(Log log, int style)
{
    CompleteLine(log);
    const std::string line = MakeLine(log, style);
    Append(log, line + "\n");
}

void World::AppendLines(const Step &step)
{
    CompleteLine(step.log);
    AppendLine(step.log, step.m);
    std::string text;
    const bool is_long = step.m == kLong && step.n < kManyLines;
    for (int i = 1; i < step.n; ++i)
        text += MakeLine(step.log, is_long ? kLong : kPlain) + "\n";
    if (!text.empty())
        Append(step.log, text);
}

// Repeats count for the line before them, in the same file. In a faithful history there is one, and its
// stamp is still valid when it is looked at once more.
void World::AppendRepeat(const Step &step)
{
    const Log log = step.log;
    const Writer &writer = writers_[log];
    CompleteLine(log);
    if (is_faithful_ && (!IsScanned(log) || folder.Size(NameOf(log)) == 0 || !writer.has_last ||
                         !IsOfThisMonth(writer.last_time)))
        return;
    if (writer.last_class >= 0) {
        ledger.sums[static_cast<size_t>(writer.last_class)] += step.n;
        ledger.repeated.insert(writer.last_id);
    }
    Append(log,
           StampOf(clock) + " host last message repeated " + std::to_string(step.n) + " times\n");
}

void World::WritePart(Log log, int percent)
{
    CompleteLine(log);
    const std::string line = MakeLine(log, kPlain);
    const size_t most = line.size() - 1;
    const size_t cut =
        std::clamp<size_t>(line.size() * static_cast<size_t>(percent) / 100, 1, most);
    Append(log, line.substr(0, cut));
    writers_[log].rest = line.substr(cut);
}

// ---- rotation ----

std::string World::NewestDated() const
{
    std::string newest;
    for (const auto &[name, entry] : folder.entries()) {
        if (name.starts_with(kDatedPrefix) && name.size() == sizeof kDatedPrefix - 1 + 8)
            newest = std::max(newest, name);
    }
    return newest;
}

// logrotate leaves an empty log alone when it is told to (notifempty), and a name that is there already.
// The plain customer log has no backups that are followed, the watched file none at all: what is unread at
// its rotation stays unread.
bool World::MayRotate(const Step &step) const
{
    const std::string name = NameOf(step.log);
    if (!folder.HasFile(name))
        return false;
    if (!is_faithful_)
        return true;
    const Writer &writer = writers_[step.log];
    if (folder.Size(name) == 0)
        return false;
    switch (step.log) {
    case kSystemLog:
        if (is_dated_)
            return writer.rotations < kMostRotations &&
                   kDatedPrefix + DateOf(clock) > NewestDated();
        return writer.rotations < kMostRotations;
    case kCustomerLog:
        return name == "vmkernel" && writer.rotations < kMostVmkernelRotations;
    default:
        return !writer.is_unread && step.n != kCopyTruncate;
    }
}

void World::Rotate(const Step &step)
{
    CompleteLine(step.log);
    const bool is_dated = is_faithful_ ? is_dated_ : step.m != 0;
    if (is_dated && step.log == kSystemLog)
        RotateDated(step);
    else
        RotateNumbered(step);
}

void World::RotateNumbered(const Step &step)
{
    const std::string base = NameOf(step.log) + ".";
    folder.Remove(base + std::to_string(kKept));
    for (int number = kKept - 1; number >= 1; --number) {
        const std::string from = base + std::to_string(number);
        if (folder.Has(from))
            folder.Rename(from, base + std::to_string(number + 1));
    }
    MoveAway(step.log, base + "1", step.n);
}

void World::RotateDated(const Step &step)
{
    const std::string name = kDatedPrefix + DateOf(clock);
    if (!folder.Has(name))
        MoveAway(step.log, name, step.n);
}

void World::MoveAway(Log log, const std::string &to, int create)
{
    const std::string name = NameOf(log);
    if (create == kCopyTruncate) {
        folder.Append(to, folder.Find(name)->bytes, clock);
        folder.Truncate(name, 0, clock);
    } else {
        folder.Rename(name, to);
        if (create == kCreateEmpty)
            folder.Append(name, "", clock);
    }
    ++writers_[log].rotations;
    ForgetLast(log);
}

// The name of a log's backup: 1 is the newest.
std::string World::BackupName(Log log, int number) const
{
    if (log != kSystemLog || !is_dated_)
        return NameOf(log) + "." + std::to_string(number);
    std::vector<std::string> dated;
    for (const auto &[name, entry] : folder.entries()) {
        if (name.starts_with(kDatedPrefix))
            dated.push_back(name);
    }
    return static_cast<size_t>(number) <= dated.size()
               ? dated[dated.size() - static_cast<size_t>(number)]
               : "";
}

// In a faithful history only backups that were read to their end.
void World::HarmBackup(const Step &step)
{
    const std::string name = BackupName(step.log, step.n);
    if (!folder.Has(name) || (is_faithful_ && writers_[step.log].rotations > 0))
        return;
    switch (step.m) {
    case kHarmRemove:
        folder.Remove(name);
        break;
    case kHarmEmpty:
        if (folder.HasFile(name))
            folder.Truncate(name, 0, clock);
        break;
    case kHarmFolder:
        folder.MakeFolder(name, clock);
        break;
    case kHarmDeadLink:
        folder.MakeDeadLink(name);
        break;
    default:
        folder.Rename(name, name + ".gz");
        break;
    }
}

// ---- what is not meant to happen to a log ----

void World::Replace(const Step &step)
{
    const std::string name = NameOf(step.log);
    if (is_faithful_ && (step.log != kWatchedFile || writers_[step.log].is_unread))
        return;
    ForgetLast(step.log);
    folder.Append(name + ".new", "", clock);
    folder.Rename(name + ".new", name);
    for (int i = 0; i < step.n; ++i)
        AppendLine(step.log, kPlain);
}

// Takes lines out, or puts lines in, before the line that holds the byte at `n` percent.
void World::Edit(const Step &step)
{
    const std::string name = NameOf(step.log);
    const std::string bytes = folder.Find(name)->bytes;
    if (bytes.empty())
        return;
    const size_t at = std::min(bytes.size() * static_cast<size_t>(step.n) / 100, bytes.size() - 1);
    const size_t before = at > 0 ? bytes.rfind('\n', at - 1) : std::string::npos;
    const size_t head = before == std::string::npos ? 0 : before + 1;
    size_t end = head;
    std::string added;
    for (int i = 0; i < step.m; ++i) {
        if (step.what == Do::kInsertLine)
            added += MakeLine(step.log, kPlain) + "\n";
        else if (end < bytes.size())
            end = std::min(bytes.find('\n', end), bytes.size() - 1) + 1;
    }
    folder.Truncate(name, head, clock);
    folder.Append(name, added + bytes.substr(end), clock);
}

void World::CutTail(const Step &step, size_t size)
{
    const size_t left = size * static_cast<size_t>(100 - step.n) / 100;
    if (step.m != 0)
        folder.Overwrite(NameOf(step.log), left, std::string(size - left, '\0'), clock);
    else
        folder.Truncate(NameOf(step.log), left, clock);
}

// In a faithful history only names that no one takes for a backup.
void World::AddStray(int number)
{
    if (!is_faithful_ || number < kHarmlessStrayNames)
        folder.Append(kStrayNames[number], StampOf(clock) + " host app: id=9999999; k0; stray\n",
                      clock);
}

void World::Rewrite(Log log)
{
    const std::string name = NameOf(log);
    std::string bytes = folder.Find(name)->bytes;
    std::replace(bytes.begin(), bytes.end(), '1', '7');
    folder.Overwrite(name, 0, bytes, clock);
}

// ---- around the logs ----

// In a faithful history every line is looked at in its own month or in the next one.
bool World::MayMoveClock(int seconds) const
{
    const bool is_unread = writers_[kSystemLog].is_unread ||
                           (IsWatched(kCustomerLog) && writers_[kCustomerLog].is_unread);
    if (!is_faithful_ || !is_unread)
        return true;
    if (seconds >= 0)
        return forward_since_read_ + seconds <= kMostSecondsUnread;
    return IsOfThisMonth(clock + seconds);
}

void World::ChangeTable(int variant)
{
    std::vector<Event> &events = settings.events;
    Event *pair = FindEvent(&events, "PAIR");
    Event *hour = FindEvent(&events, "HOUR");
    switch (variant) {
    case 0:
    case 1:
        pair->count = variant == 0 ? 3 : 2;
        break;
    case 2:
    case 3:
        if (hour != nullptr)
            hour->hours = variant == 2 ? 0xFFFFFF : hours_;
        break;
    case 4:
        std::erase_if(events, [](const Event &event) { return event.source == "HOUR"; });
        break;
    case 5:
        if (hour == nullptr)
            events.push_back(HourEvent(hours_));
        break;
    default:
        pair->keywords[1] = variant == 6 ? "k3;" : "k1;";
        break;
    }
}

} // namespace history
