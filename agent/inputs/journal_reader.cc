#include "agent/inputs/journal_reader.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>
#include <utility>

#include "agent/host/error.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

constexpr size_t kFullBatch = size_t{8} * 1024 * 1024;
// So often the journal is looked at although nothing was told of.
constexpr milliseconds kSweep{10000};
// So often the place of an input that wants few entries is moved up to the newest one, whosever it is.
constexpr milliseconds kMoveUp{600000};
// Longer fields are cut. The monitor looks at some 3 KiB of a line.
constexpr size_t kLongestField = size_t{16} * 1024;

constexpr char kOwnUnit[] = "syslogmond.service";

constexpr const char *kPriorities[] = {"emerg",   "alert",  "crit", "err",
                                       "warning", "notice", "info", "debug"};

// Where systemd-journald writes, volatile and persistent.
constexpr const char *kFolders[] = {"/run/log/journal", "/var/log/journal"};

[[noreturn]] void Fail(const std::string &thing, int error)
{
    throw host::Error(thing, strerror(-error),
                      "let the monitor run as root or as a member of the group systemd-journal");
}

struct FreeText {
    void operator()(char *text) const { free(text); }
};

std::string CursorOf(sd_journal *journal)
{
    char *text = nullptr;
    if (sd_journal_get_cursor(journal, &text) < 0)
        return {};
    const std::unique_ptr<char, FreeText> owner(text);
    return text;
}

// The fields of an entry that are of use.
struct Fields {
    std::string host, identifier, command, pid, claimed_pid, message, unit, program;
};

struct FieldRow {
    std::string_view name;
    std::string Fields::*value;
};
constexpr FieldRow kFields[] = {
    {"MESSAGE=", &Fields::message},
    {"_HOSTNAME=", &Fields::host},
    {"SYSLOG_IDENTIFIER=", &Fields::identifier},
    {"_COMM=", &Fields::command},
    {"_PID=", &Fields::pid},
    {"SYSLOG_PID=", &Fields::claimed_pid},
    {"_SYSTEMD_UNIT=", &Fields::unit},
    {"_EXE=", &Fields::program},
};

void TakeField(std::string_view data, Fields *fields)
{
    for (const FieldRow &row : kFields) {
        if (!data.starts_with(row.name))
            continue;
        std::string &value = fields->*row.value;
        if (value.empty()) // an entry can have a field several times; the first one counts
            value = data.substr(row.name.size());
        return;
    }
}

std::string TextOfKey(const std::string &cursor, std::string_view key)
{
    size_t begin = cursor.starts_with(key) ? 0 : cursor.find(";" + std::string(key));
    if (begin == std::string::npos)
        return {};
    begin = cursor.find('=', begin) + 1;
    return cursor.substr(begin, cursor.find(';', begin) - begin);
}

uint64_t HexNumber(const std::string &text)
{
    uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, 16);
    return number;
}

uint64_t MicrosecondsOfBoot()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

std::string NumbersText(uint64_t first, uint64_t last)
{
    return "the numbers " + std::to_string(first) + " to " + std::to_string(last);
}

} // namespace

std::optional<int> PriorityOf(const std::string &text)
{
    for (int i = 0; i < static_cast<int>(std::size(kPriorities)); ++i) {
        if (text == kPriorities[i] || text == std::to_string(i))
            return i;
    }
    return std::nullopt;
}

CursorParts PartsOf(const std::string &cursor)
{
    return {TextOfKey(cursor, "s="), HexNumber(TextOfKey(cursor, "i=")),
            TextOfKey(cursor, "b="), TextOfKey(cursor, "m="),
            TextOfKey(cursor, "t="), TextOfKey(cursor, "x=")};
}

bool CursorParts::IsSameEntry(const CursorParts &other) const
{
    return boot == other.boot && monotonic == other.monotonic && realtime == other.realtime &&
           content == other.content;
}

void JournalReader::CloseJournal::operator()(sd_journal *journal) const
{
    sd_journal_close(journal);
}

JournalReader::JournalReader(JournalOptions options, std::string cursor)
    : options_(std::move(options)), charset_("UTF-8", options_.charset), cursor_(std::move(cursor))
{
}

JournalReader::~JournalReader() = default;

JournalReader::Journal JournalReader::Open(const JournalOptions &options)
{
    sd_journal *opened = nullptr;
    int result = 0;
    std::string what = "cannot open the journal";
    if (!options.directory.empty()) {
        what += " in " + options.directory;
        result = sd_journal_open_directory(&opened, options.directory.c_str(), 0);
    } else if (!options.journal_namespace.empty()) {
        what += " of the namespace " + options.journal_namespace;
        result = sd_journal_open_namespace(&opened, options.journal_namespace.c_str(),
                                           SD_JOURNAL_LOCAL_ONLY);
    } else {
        result = sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY);
    }
    if (result < 0)
        Fail(what, result);
    Journal journal(opened);
    sd_journal_set_data_threshold(journal.get(), kLongestField);
    return journal;
}

void JournalReader::AddMatches(const JournalOptions &options, sd_journal *journal)
{
    for (const std::string &match : options.matches) {
        const int result = sd_journal_add_match(journal, match.data(), match.size());
        if (result < 0)
            Fail("cannot use the match \"" + match + "\"", result);
    }
    for (int priority = 0; options.priority && priority <= *options.priority; ++priority) {
        const std::string match = "PRIORITY=" + std::to_string(priority);
        sd_journal_add_match(journal, match.data(), match.size());
    }
}

bool JournalReader::HostsIsReadable()
{
    try {
        return !NewestCursor({}).empty();
    } catch (const host::Error &) {
        return false;
    }
}

std::string JournalReader::NewestCursor(const JournalOptions &options)
{
    const Journal journal = Open(options);
    if (sd_journal_seek_tail(journal.get()) < 0 || sd_journal_previous(journal.get()) <= 0)
        return {};
    return CursorOf(journal.get());
}

std::string JournalReader::CursorBeforeLast(const JournalOptions &options, size_t entries)
{
    const Journal journal = Open(options);
    AddMatches(options, journal.get());
    sd_journal_seek_tail(journal.get());
    const int passed = sd_journal_previous_skip(journal.get(), entries + 1);
    return passed == static_cast<int>(entries) + 1 ? CursorOf(journal.get()) : std::string{};
}

std::vector<std::string> JournalReader::Folders() const
{
    if (!options_.directory.empty())
        return {options_.directory};
    return {std::begin(kFolders), std::end(kFolders)};
}

// They can come, or be replaced, without a word to who has opened the journal before.
std::string JournalReader::FoldersState() const
{
    std::string state;
    for (const std::string &folder : Folders()) {
        struct stat status {};
        if (stat(folder.c_str(), &status) == 0)
            state += std::to_string(status.st_ino) + ":" + std::to_string(status.st_mtim.tv_sec) +
                     "." + std::to_string(status.st_mtim.tv_nsec);
        state += ' ';
    }
    return state;
}

// Those of users may not be, as for who is no member of the group systemd-journal. The library leaves them out.
bool JournalReader::AllFilesAreReadable() const
{
    namespace fs = std::filesystem;
    for (const std::string &folder : Folders()) {
        std::error_code error;
        fs::recursive_directory_iterator file(folder, error);
        for (const fs::recursive_directory_iterator end; !error && file != end;
             file.increment(error)) {
            const bool is_journal = file->path().extension().native().starts_with(".journal");
            if (is_journal && access(file->path().c_str(), R_OK) != 0 && errno != ENOENT)
                return false;
        }
        if (error && error != std::errc::no_such_file_or_directory)
            return false;
    }
    return true;
}

// J3. The current entry is the first one behind the gap.
void JournalReader::TellOfGap(Batch *batch)
{
    if (std::exchange(told_behind_, cursor_) == cursor_)
        return; // and nothing that the input wants has come since
    move_up_at_ = {};
    const CursorParts before = PartsOf(cursor_);
    const CursorParts behind = PartsOf(CursorOf(journal_.get()));
    std::string missing;
    if (before.sequence == behind.sequence) {
        if (behind.number <= before.number + 1)
            return;
        missing =
            NumbersText(before.number + 1, behind.number - 1) + " of all its entries are missing";
    } else {
        missing = "entries may be missing, how many cannot be known";
    }
    batch->losses.push_back(
        {options_.name, "the journal no longer holds the entry that was read last: " + missing +
                            "; it was vacuumed or replaced before they were read"});
}

// Goes to the first entry that was not read. False: there is none.
bool JournalReader::Seek(Batch *batch)
{
    sd_journal *journal = journal_.get();
    if (cursor_.empty()) {
        AddMatches(options_, journal);
        sd_journal_seek_head(journal);
        return sd_journal_next(journal) > 0;
    }
    const CursorParts last = PartsOf(cursor_);
    auto is_last = [&] { return PartsOf(CursorOf(journal)).IsSameEntry(last); };
    // Whether the last entry is still there is asked without the matches, which may have been changed.
    if (sd_journal_seek_cursor(journal, cursor_.c_str()) < 0)
        throw host::Error("cannot go on in the journal", "its stored place is damaged",
                          "remove the input and add it again");
    // A file that was just made has no entry yet: what is missing is told with its first one.
    last_is_missing_ = sd_journal_next(journal) <= 0;
    if (!last_is_missing_ && is_last())
        last_ = PartsOf(CursorOf(journal)); // its number can be another one than before (J1)
    else if (!last_is_missing_)
        TellOfGap(batch);
    AddMatches(options_, journal);
    sd_journal_seek_cursor(journal, cursor_.c_str());
    if (sd_journal_next(journal) <= 0)
        return false;
    return !is_last() || sd_journal_next(journal) > 0;
}

bool JournalReader::OpenAtCursor(Batch *batch)
{
    folders_ = FoldersState();
    last_.reset();
    counts_numbers_ = WantsAll() && AllFilesAreReadable();
    opened_us_ = looked_us_ = MicrosecondsOfBoot();
    journal_ = Open(options_);
    sd_journal_get_fd(journal_.get()); // from now on, changes are told of
    is_at_entry_ = Seek(batch);
    wants_reopen_ = false;
    return is_at_entry_;
}

// J4
bool JournalReader::IsOwn(const std::string &unit, const std::string &program) const
{
    return unit == kOwnUnit ||
           (!options_.own_folder.empty() && (program == options_.own_folder + "/syslogmond" ||
                                             program == options_.own_folder + "/syslogmon"));
}

void JournalReader::ReadEntry(const ReadingTime &reading, Batch *batch)
{
    sd_journal *journal = journal_.get();
    Fields fields;
    const void *data = nullptr;
    size_t size = 0;
    sd_journal_restart_data(journal);
    while (sd_journal_enumerate_available_data(journal, &data, &size) > 0)
        TakeField({static_cast<const char *>(data), size}, &fields);
    if (IsOwn(fields.unit, fields.program))
        return;
    uint64_t microseconds = 0;
    sd_journal_get_realtime_usec(journal, &microseconds);
    JournalEntry entry;
    entry.seconds = static_cast<int64_t>(microseconds / 1000000);
    entry.host = fields.host.empty() ? "-" : fields.host;
    entry.identifier = !fields.identifier.empty() ? fields.identifier
                       : !fields.command.empty()  ? fields.command
                                                  : "unknown";
    entry.pid = fields.pid.empty() ? fields.claimed_pid : fields.pid;
    entry.message = charset_.Convert(fields.message);
    last_entry_ = entry.seconds;
    const size_t at = batch->text.size();
    Rendering rendering = RenderEntry(entry, reading, &clock_, &batch->text);
    if (!rendering.own_stamp.empty())
        batch->own_stamps.push_back({at, std::move(rendering.own_stamp)});
}

// Empty: it is not due. What is read behind this sees all entries up to that one, by a journal that is opened anew.
std::string JournalReader::NewestToMoveUpTo(SteadyTime now)
{
    if (WantsAll() || now < move_up_at_)
        return {};
    move_up_at_ = now + kMoveUp;
    wants_reopen_ = true;
    return NewestCursor(options_);
}

// ---- J3, between two entries ----

bool JournalReader::IsBehindGap(const CursorParts &entry) const
{
    return last_ && last_->sequence == entry.sequence && entry.number > last_->number + 1;
}

// One of another boot, or of another machine, came before any moment of this one.
bool JournalReader::CurrentCameBefore(uint64_t moment_us) const
{
    uint64_t came_us = 0;
    return sd_journal_get_monotonic_usec(journal_.get(), &came_us, nullptr) < 0 ||
           came_us < moment_us;
}

// True: the entry to be read may be another one now.
bool JournalReader::LooksAnewAt(const CursorParts &entry, Batch *batch)
{
    if (!IsBehindGap(entry) || CurrentCameBefore(opened_us_))
        return false;
    StorePlace(true, batch); // of what was read until now, also when nothing can be opened
    OpenAtCursor(batch);
    return true;
}

// One text for all of a reading, for of a damaged file every other entry may be gone.
void JournalReader::NoteMissing(const CursorParts &entry, Batch *batch)
{
    if (missing_ && missing_->sequence != entry.sequence)
        TellOfMissing(batch);
    if (!missing_)
        missing_ = {entry.sequence, last_->number + 1};
    missing_->last = entry.number - 1;
    missing_->count += entry.number - last_->number - 1;
}

void JournalReader::TellOfMissing(Batch *batch)
{
    if (!missing_)
        return;
    const auto missing = *std::exchange(missing_, std::nullopt);
    const bool is_one_gap = missing.count == missing.last - missing.first + 1;
    const std::string how_many = is_one_gap ? "" : std::to_string(missing.count) + " entries of ";
    batch->losses.push_back(
        {options_.name, "entries of the journal are missing: " + how_many +
                            NumbersText(missing.first, missing.last) +
                            "; they were vacuumed, or their file was removed or damaged, before "
                            "they were read"});
}

// True: the batch is full.
bool JournalReader::ReadEntries(const ReadingTime &reading, Batch *batch)
{
    if (!is_at_entry_)
        is_at_entry_ = sd_journal_next(journal_.get()) > 0;
    if (!is_at_entry_)
        return false;
    batch->BeginOrigin(options_.name, "");
    bool is_full = false;
    while (is_at_entry_) {
        if (!CurrentCameBefore(looked_us_) && FilesHaveChanged()) {
            StorePlace(true, batch);
            OpenAtCursor(batch); // J2
            continue;
        }
        std::string cursor = CursorOf(journal_.get());
        if (counts_numbers_) {
            CursorParts entry = PartsOf(cursor);
            if (LooksAnewAt(entry, batch))
                continue;
            if (IsBehindGap(entry))
                NoteMissing(entry, batch);
            last_ = std::move(entry);
        }
        ReadEntry(reading, batch);
        cursor_ = std::move(cursor);
        is_full = batch->text.size() >= kFullBatch;
        is_at_entry_ = !is_full && sd_journal_next(journal_.get()) > 0;
    }
    TellOfMissing(batch);
    batch->places[{options_.id, 0}] = cursor_;
    return is_full;
}

bool JournalReader::Read(int64_t wall_seconds, SteadyTime now, Batch *batch)
{
    if (now >= look_at_) {
        wants_reopen_ = wants_reopen_ || folders_ != FoldersState();
        look_at_ = now + kSweep;
    }
    if (wall_seconds != last_wall_seconds_)
        clock_.LookUpZone();
    last_wall_seconds_ = wall_seconds;
    const ReadingTime reading(clock_, wall_seconds);
    try {
        problem_.clear();
        const std::string newest = NewestToMoveUpTo(now);
        const std::string before = cursor_;
        if (wants_reopen_ || last_is_missing_)
            OpenAtCursor(batch); // J2, J3
        const bool has_more = ReadEntries(reading, batch);
        // What was read may have come behind the newest of a moment before.
        if (!has_more && !newest.empty() && cursor_ == before && newest != cursor_) {
            cursor_ = newest; // J5
            batch->places[{options_.id, 0}] = cursor_;
            wants_reopen_ = true;
        }
        return has_more;
    } catch (const host::Error &error) {
        problem_ = error.what();
        journal_.reset();
        wants_reopen_ = true;
    }
    return false;
}

int JournalReader::ChangesFd() const
{
    return journal_ ? sd_journal_get_fd(journal_.get()) : -1;
}

short JournalReader::ChangesEvents() const
{
    const int events = journal_ ? sd_journal_get_events(journal_.get()) : 0;
    return static_cast<short>(events > 0 ? events : 0);
}

bool JournalReader::FilesHaveChanged()
{
    looked_us_ = MicrosecondsOfBoot();
    const bool have_changed =
        journal_ && sd_journal_process(journal_.get()) == SD_JOURNAL_INVALIDATE;
    wants_reopen_ = wants_reopen_ || have_changed;
    return have_changed;
}

} // namespace inputs
