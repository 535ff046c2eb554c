#include "tests/history/model.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <tuple>

namespace history {

namespace {

constexpr size_t kRecorded = 499;   // bytes of a text that the registry keeps
constexpr time_t kFreshSeconds = 2; // a file written so recently may end in the middle of a line
constexpr int kMostSearchesAgain =
    3; // because of rotations in between, within a search and within a pass

constexpr char kLogDir[] = "/var/log/";
constexpr char kVmkernel[] = "/var/log/vmkernel";
constexpr char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";

bool AllDigits(const std::string &text)
{
    return text.find_first_not_of("0123456789") == std::string::npos;
}

bool StartsWith(const std::string &text, const std::string &head)
{
    return text.compare(0, head.size(), head) == 0;
}

std::string Cut(const std::string &text, size_t size)
{
    return text.substr(0, size);
}

std::optional<int> RepeatCount(const std::string &line)
{
    const size_t at = line.find("last message repeated");
    int times = 0;
    if (at == std::string::npos ||
        sscanf(line.c_str() + at, "last message repeated %d times", &times) != 1)
        return std::nullopt;
    return times;
}

// The part of a backup's name behind the prefix, when it has that prefix and is a backup's.
std::optional<std::string> BackupNumber(const std::string &name, size_t slot)
{
    const std::string prefix = slot == 0 ? "messages." : "vmkernel.";
    if (!StartsWith(name, prefix))
        return std::nullopt;
    std::string number = name.substr(prefix.size());
    if (!AllDigits(number) || name.size() > (slot == 0 ? 31U : 10U))
        return std::nullopt;
    if (!number.empty() && (number[0] == '0' || (slot == 1 && number[0] > '4')))
        return std::nullopt;
    return number;
}

bool IsDated(const std::string &name)
{
    if (name.size() != 17 || !StartsWith(name, "messages-") || !AllDigits(name.substr(9)))
        return false;
    const int month = std::stoi(name.substr(13, 2));
    const int day = std::stoi(name.substr(15, 2));
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

} // namespace

// ---- the wakes ----

void Model::Start()
{
    BeginWake();
    memory_ = Memory{};
    const std::vector<Counted> before = table_;
    LoadTable();
    for (Counted &entry : table_) {
        const auto same = std::find_if(before.begin(), before.end(), [&](const Counted &old) {
            return std::tie(old.event.source, old.event.id, old.event.count) ==
                   std::tie(entry.event.source, entry.event.id, entry.event.count);
        });
        if (same != before.end())
            entry.hits = same->hits;
    }
    ChangeCustomer();
    ScanPass();
    LoadTarget();
    WatchPass();
}

void Model::Pass()
{
    BeginWake();
    ScanPass();
    WatchPass();
}

void Model::Reload()
{
    const std::vector<Counted> before = table_;
    LoadTable();
    for (Counted &entry : table_) {
        for (const Counted &old : before) {
            if (old.event.source == entry.event.source && old.event.id == entry.event.id &&
                old.event.count == entry.event.count) {
                entry.hits = old.hits;
                break;
            }
        }
    }
}

void Model::CustomerEvent()
{
    BeginWake();
    memory_.customer_changed = true;
    ChangeCustomer();
    ScanPass();
}

void Model::TargetEvent()
{
    BeginWake();
    LoadTarget();
    WatchPass();
}

void Model::Restore(const Lasting &lasting)
{
    record_ = lasting.record;
    table_ = lasting.table;
    bytes_read_ = lasting.bytes_read;
    unrecorded_ = lasting.unrecorded;
}

void Model::NoteWhatWasEmptied()
{
    const auto &files = world_->folder.entries();
    for (Unrecorded &unrecorded : unrecorded_) {
        const auto holds_it = [&](const auto &file) {
            return file.second.bytes.starts_with(unrecorded.text);
        };
        const auto own = std::ranges::find_if(
            files, [&](const auto &file) { return file.second.inode == unrecorded.inode; });
        if (own == files.end() || holds_it(*own))
            continue;
        const auto copy = std::ranges::find_if(files, holds_it);
        unrecorded.inode = copy != files.end() ? copy->second.inode : 0;
    }
}

// They are not read again.
void Model::CountUnrecorded(size_t slot)
{
    bytes_read_[slot] += static_cast<int64_t>(std::exchange(unrecorded_[slot], {}).text.size());
}

void Model::LoadTable()
{
    table_.clear();
    for (const Event &event : world_->settings.events)
        table_.push_back({event, 0});
}

void Model::ChangeCustomer()
{
    memory_.path = {"/var/log/messages", world_->settings.customer};
}

// ---- files ----

const Entry *Model::Find(const std::string &path) const
{
    return world_->folder.Find(path.substr(sizeof kLogDir - 1));
}

// The bytes of a file, as whoever opens it now reads them; nothing when it cannot be opened.
std::optional<std::string> Model::Open(const std::string &path, bool awaits_line_end)
{
    ++opened_;
    if (interruption.before_open)
        interruption.before_open(opened_);
    const Entry *entry = Find(path);
    if (entry == nullptr || entry->kind != Kind::kFile)
        return std::nullopt;
    const bool may_go_on = awaits_line_end && !entry->bytes.empty() &&
                           entry->bytes.back() != '\n' &&
                           std::abs(world_->clock - entry->modified) <= kFreshSeconds;
    if (may_go_on && interruption.while_waiting && interruption.while_waiting())
        entry = Find(path);
    return entry->bytes;
}

namespace {

// Where the line that begins at `head` ends: a zero byte ends a line, too.
size_t LineEnd(const std::string &bytes, size_t head)
{
    return std::min(bytes.find_first_of(std::string("\n\0", 2), head), bytes.size());
}

std::string FirstLine(const std::string &bytes)
{
    return Cut(bytes.substr(0, LineEnd(bytes, 0)), kHandled);
}

} // namespace

std::string Model::PathOf(size_t slot, int index) const
{
    return index == 0 ? memory_.path[slot] : kLogDir + backups_[static_cast<size_t>(index) - 1];
}

// Newest first.
std::vector<std::string> Model::Backups(size_t slot) const
{
    if (slot == 1 && memory_.path[1] != kVmkernel)
        return {};
    std::vector<std::string> dated;
    std::vector<std::string> numbers;
    for (const auto &[name, entry] : world_->folder.entries()) {
        if (slot == 0 && IsDated(name))
            dated.push_back(name);
        if (const auto number = BackupNumber(name, slot))
            numbers.push_back(*number);
    }
    std::sort(dated.rbegin(), dated.rend());
    std::sort(numbers.begin(), numbers.end(), [](const std::string &a, const std::string &b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    const std::string prefix = slot == 0 ? "messages." : "vmkernel.";
    if (!dated.empty() && !numbers.empty()) {
        const Entry *newest_dated = world_->folder.Find(dated.front());
        const Entry *first_numbered = world_->folder.Find(prefix + numbers.front());
        if (newest_dated->kind == Kind::kDeadLink || first_numbered->kind == Kind::kDeadLink)
            return {};
        if (newest_dated->modified > first_numbered->modified)
            return dated;
    } else if (numbers.empty()) {
        return dated;
    }
    std::vector<std::string> names;
    for (const std::string &number : numbers) {
        if (number != std::to_string(names.size() + 1))
            break;
        names.push_back(prefix + number);
    }
    return names;
}

// ---- the syslog scan ----

void Model::ScanPass()
{
    for (const size_t slot : {size_t{0}, size_t{1}})
        ScanSlot(slot);
}

// A pass asks for its place again when a rotation has come since it asked. The end of a scan is recorded when
// something was read, or there was nothing to read.
void Model::ScanSlot(size_t slot)
{
    if (memory_.path[slot].empty() || FindFile(slot) != Found::kFile)
        return;
    if (memory_.last_end == 0)
        memory_.last_end =
            record_.end_time ? static_cast<time_t>(*record_.end_time) : world_->clock;
    has_read_ = false;
    searches_again_ = 0;
    bool is_found = true;
    while (is_found && !ReadFiles(slot)) {
        ++searches_again_;
        is_found = FindFile(slot) == Found::kFile;
    }
    if (!is_found && !has_read_)
        return;
    memory_.last_end = world_->clock;
    record_.end_time = static_cast<uint32_t>(world_->clock);
}

// The files from the one that was found to the live one. False when the place has to be looked for anew.
bool Model::ReadFiles(size_t slot)
{
    for (;;) {
        if (ReadFile(slot) == Came::kRotated)
            return false;
        const Came moved = MoveToNewer(slot);
        if (moved != Came::kDone)
            return moved == Came::kNothing;
    }
}

Model::Found Model::FindFile(size_t slot)
{
    const Entry *live = Find(memory_.path[slot]);
    if (live == nullptr || live->kind == Kind::kDeadLink)
        return Found::kFailed;
    if (slot == 1 && memory_.customer_changed) {
        memory_.customer_changed = false;
        return StartAfresh(slot, Open(memory_.path[slot], true));
    }
    const SlotRecord &record = record_.slots[slot];
    if (!record.head || !record.pos || !record.content)
        return StartAfresh(slot, Open(memory_.path[slot], true));
    pos_ = *record.pos;
    content_ = *record.content;
    for (int again = 0;; ++again) {
        const auto found = Search(slot, again < kMostSearchesAgain);
        if (found)
            return *found;
    }
}

// One search for the head line, and the fresh start when it is not found. Nothing when a rotation has come
// since, and there are backups by now in which the head line may be, or one that the list of backups lacks: then the search
// begins again.
std::optional<Model::Found> Model::Search(size_t slot, bool may_search_again)
{
    const std::string &path = memory_.path[slot];
    const Entry *live = Find(path);
    const Seen before = live != nullptr ? Seen{live->inode, live->bytes.size()} : Seen{};
    seen_.clear();
    backups_ = Backups(slot);
    bool was_empty = false;
    for (index_ = 0; index_ <= static_cast<int>(backups_.size()); ++index_) {
        const auto bytes = Open(PathOf(slot, index_), true);
        was_empty = index_ == 0 && bytes && bytes->empty();
        if (!bytes || bytes->empty())
            break;
        seen_.push_back({Find(PathOf(slot, index_))->inode, bytes->size()});
        if (!StartsWith(FirstLine(*bytes), *record_.slots[slot].head))
            continue;
        const bool lacks_a_file =
            index_ > 0 && before.inode != 0 && before.inode != seen_.front().inode;
        if (may_search_again && lacks_a_file)
            return std::nullopt;
        return Found::kFile;
    }
    const auto bytes = Open(path, true);
    const bool has_changed =
        bytes && (!IsSame(path, *bytes, before) || (was_empty && !bytes->empty()));
    if (may_search_again && has_changed && !Backups(slot).empty())
        return std::nullopt;
    return StartAfresh(slot, bytes);
}

Model::Found Model::StartAfresh(size_t slot, const std::optional<std::string> &live)
{
    if (!live || live->empty())
        return Found::kFailed;
    const size_t newline =
        live->size() > 1 ? live->rfind('\n', live->size() - 2) : std::string::npos;
    const size_t last = newline == std::string::npos ? 0 : newline + 1;
    const std::string text = live->substr(last, LineEnd(*live, last) - last);
    CountUnrecorded(slot);
    SlotRecord &record = record_.slots[slot];
    record.head = Cut(FirstLine(*live), kRecorded);
    record.pos = static_cast<int64_t>(last);
    record.content = Cut(text, kRecorded);
    return Found::kStartedAfresh;
}

// What was found out about a file holds for that file only, whatever has its name now.
bool Model::IsSame(const std::string &path, const std::string &bytes, const Seen &seen) const
{
    return Find(path)->inode == seen.inode && (bytes.empty() || bytes.size() >= seen.size);
}

// The file at index_. When it is another one than was looked at, the old one is among the backups; if there
// are none, or this has happened too often in this pass, the file is taken as it is.
Model::Came Model::OpenAsSeen(size_t slot, std::string *bytes)
{
    const std::string path = PathOf(slot, index_);
    const auto opened = Open(path, true);
    if (!opened)
        return Came::kNothing;
    if (!IsSame(path, *opened, seen_[static_cast<size_t>(index_)]) &&
        searches_again_ < kMostSearchesAgain && (!backups_.empty() || !Backups(slot).empty()))
        return Came::kRotated;
    *bytes = *opened;
    return Came::kDone;
}

void Model::StorePosition(size_t slot)
{
    record_.slots[slot].pos = pos_;
    record_.slots[slot].content = Cut(content_, kRecorded);
}

Model::Came Model::ReadFile(size_t slot)
{
    std::string bytes;
    const Came opened = OpenAsSeen(slot, &bytes);
    if (opened != Came::kDone || bytes.empty())
        return opened; // an empty file cannot be positioned in
    has_read_ = true;
    const uint64_t inode = Find(PathOf(slot, index_))->inode;
    if (unrecorded_[slot].inode != inode)
        CountUnrecorded(slot);
    unrecorded_[slot] = {};
    std::vector<TextLine> lines;
    for (size_t at = 0; at < bytes.size();) {
        const size_t end = LineEnd(bytes, at);
        lines.push_back({static_cast<int64_t>(at), Cut(bytes.substr(at, end - at), kHandled),
                         at == 0 || bytes[at - 1] == '\n'});
        at = end + 1;
    }
    Place place;
    GoTo(std::move(lines), &place);
    const auto next = static_cast<size_t>(place.at + 1);
    if (next >= place.lines.size()) {
        StorePosition(slot);
        return Came::kDone;
    }
    const int64_t read = static_cast<int64_t>(bytes.size()) - place.lines[next].pos;
    ReadNewLines(slot, &place);
    if (pos_ < 0)
        unrecorded_[slot] = {bytes, inode};
    else
        bytes_read_[slot] += read;
    return Came::kDone;
}

// Every line with the repeats that follow it. Repeats at the head of the new part stand for a line that was
// checked before: it is looked up in the same file and checked again, for them alone.
void Model::ReadNewLines(size_t slot, Place *place)
{
    const std::vector<TextLine> &lines = place->lines;
    size_t next = static_cast<size_t>(place->at + 1);
    const auto fold = [&](int times) {
        for (; next < lines.size(); ++next) {
            const auto more = RepeatCount(lines[next].text);
            if (!more)
                break;
            times += *more;
        }
        return times;
    };
    if (RepeatCount(lines[next].text)) {
        size_t before = next;
        const int times = fold(0);
        while (before > 0 && RepeatCount(lines[before - 1].text))
            --before;
        if (before > 0)
            CheckLine(lines[before - 1].text, times);
    }
    const TextLine *checked = nullptr;
    while (next < lines.size()) {
        checked = &lines[next++];
        const int times = fold(1);
        CheckLine(checked->text, times);
    }
    if (checked != nullptr) {
        pos_ = checked->pos;
        content_ = checked->text;
    }
    // Repeats at the end are done with; but a repeat line at the very head of a file cannot be recorded.
    const TextLine &last = lines.back();
    if (&last != checked && last.pos >= 1) {
        pos_ = last.pos;
        content_ = last.text;
    }
    StorePosition(slot);
}

Model::Came Model::MoveToNewer(size_t slot)
{
    for (--index_; index_ >= 0; --index_) {
        std::string bytes;
        const Came opened = OpenAsSeen(slot, &bytes);
        if (opened == Came::kRotated)
            return opened;
        if (opened == Came::kNothing || bytes.empty())
            continue;
        CountUnrecorded(slot);
        pos_ = -1;
        content_.clear();
        record_.slots[slot].head = Cut(FirstLine(bytes), kRecorded);
        StorePosition(slot);
        return Came::kDone;
    }
    return Came::kNothing;
}

// ---- positioning ----

bool Model::IsRemembered(const TextLine &line) const
{
    return StartsWith(line.text, content_);
}

// Places the reader behind the last line that was checked. The head of a line is looked for behind a newline, although
// zero bytes end lines when they are read. pos_ and content_ become what is remembered when
// nothing new follows.
bool Model::GoTo(std::vector<TextLine> lines, Place *place)
{
    place->lines = std::move(lines);
    if (pos_ < 0) {
        content_.clear();
        place->at = -1;
        return true;
    }
    int base = static_cast<int>(place->lines.size()) - 1;
    const auto is_before = [&](const TextLine &line) {
        return line.pos <= pos_ && line.is_behind_newline;
    };
    while (base > 0 && !is_before(place->lines[static_cast<size_t>(base)]))
        --base;
    place->at = base;
    const TextLine &line = place->lines[static_cast<size_t>(base)];
    if (IsRemembered(line))
        return true;
    const time_t remembered = TimeOf(content_).value_or(memory_.last_end);
    const time_t base_time = TimeOf(line.text).value_or(remembered - 1);
    if (base_time > remembered) {
        SearchUp(place, remembered);
        return true;
    }
    if (base_time == remembered && SearchBefore(place, remembered))
        return true;
    SearchDown(place, remembered);
    return true;
}

bool Model::SearchBefore(Place *place, time_t remembered)
{
    for (int i = place->at - 1; i >= 0; --i) {
        const TextLine &line = place->lines[static_cast<size_t>(i)];
        if (IsRemembered(line)) {
            place->at = i;
            pos_ = line.pos;
            return true;
        }
        const auto when = TimeOf(line.text);
        if (when && *when != remembered)
            break;
    }
    return false;
}

void Model::SearchUp(Place *place, time_t remembered)
{
    int saved = -1;
    for (int i = place->at - 1; i >= 0; --i) {
        const TextLine &line = place->lines[static_cast<size_t>(i)];
        if (IsRemembered(line)) {
            place->at = i;
            pos_ = line.pos;
            return;
        }
        const auto when = TimeOf(line.text);
        if (!when || *when > remembered)
            continue;
        if (saved < 0)
            saved = i;
        if (*when < remembered)
            break;
    }
    if (saved >= 0) {
        place->at = saved;
        pos_ = place->lines[static_cast<size_t>(saved)].pos;
        content_ = place->lines[static_cast<size_t>(saved)].text;
        return;
    }
    place->at = 0; // on the first line, not before it
    pos_ = -1;
    content_.clear();
}

void Model::SearchDown(Place *place, time_t remembered)
{
    const int last = static_cast<int>(place->lines.size()) - 1;
    int at = place->at;
    while (at < last) {
        ++at;
        const TextLine &line = place->lines[static_cast<size_t>(at)];
        if (IsRemembered(line)) {
            place->at = at;
            pos_ = line.pos;
            return;
        }
        const auto when = TimeOf(line.text);
        if (when && *when > remembered) {
            --at;
            break;
        }
    }
    place->at = at;
    pos_ = place->lines[static_cast<size_t>(at)].pos;
    content_ = place->lines[static_cast<size_t>(at)].text;
}

// ---- lines ----

std::optional<time_t> Model::TimeOf(const std::string &line) const
{
    char word[5] = {};
    struct tm when {};
    if (sscanf(line.c_str(), "%4s %d %d:%d:%d", word, &when.tm_mday, &when.tm_hour, &when.tm_min,
               &when.tm_sec) < 5)
        return std::nullopt;
    word[3] = '\0';
    const char *found = strlen(word) == 3 ? strstr(kMonths, word) : nullptr;
    if (found == nullptr || (found - kMonths) % 3 != 0)
        return std::nullopt;
    when.tm_mon = static_cast<int>(found - kMonths) / 3;
    struct tm now {};
    localtime_r(&world_->clock, &now);
    when.tm_year = now.tm_year;
    when.tm_isdst = now.tm_isdst;
    const bool is_recent = when.tm_mon == now.tm_mon || when.tm_mon + 1 == now.tm_mon;
    const bool is_december = when.tm_mon == 11 && now.tm_mon == 0;
    if (!is_recent && !is_december)
        return std::nullopt;
    if (is_december)
        --when.tm_year;
    const time_t moment = mktime(&when);
    return moment != -1 ? std::optional<time_t>(moment) : std::nullopt;
}

bool Model::Matches(const Event &event, const std::string &line) const
{
    const auto holds = [&](const std::string &keyword) {
        return line.find(keyword) != std::string::npos;
    };
    struct tm now {};
    localtime_r(&world_->clock, &now);
    return std::all_of(event.keywords.begin(), event.keywords.end(), holds) &&
           (event.hours >> static_cast<unsigned>(now.tm_hour) & 1U) != 0 && event.count > 0;
}

void Model::Hit(Counted *entry, const std::string &line, int times)
{
    entry->hits += times;
    if (entry->hits < entry->event.count)
        return;
    entry->hits = 0;
    if (entry->event.source != "FTREPORT")
        alerts.push_back({entry->event.source, entry->event.id, line});
}

void Model::CheckLine(const std::string &line, int times)
{
    if (!TimeOf(line) || line.find("TARSKvkvmain") != std::string::npos)
        return;
    for (Counted &entry : table_) {
        if (Matches(entry.event, line))
            Hit(&entry, line, times);
    }
}

} // namespace history
