#include "agent/inputs/file_follower.h"

#include <algorithm>
#include <cstring>

#include "agent/host/error.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

// Names that are the same after this time are taken for settled (F4). Renaming a set of files takes less.
constexpr milliseconds kSettled{20};
// So often everything is looked at although no change was told of. 500 files cost some 2 ms.
constexpr milliseconds kSweep{10000};
// A removed file is held open for so long after its last growth: somebody may still write into it.
constexpr milliseconds kRemovedIsOver{60000};

// The number of the place that says that the beginning was made. Files have greater ones.
constexpr int64_t kBegun = 0;

constexpr size_t kCompared = size_t{64} * 1024;

Place PlaceAtBeginning(const std::string &path, const std::string &log, const FileIdentity &file)
{
    Place place;
    place.path = path;
    place.log = log;
    place.identity = file;
    return place;
}

// Are there more bytes to compare than those of a first line, which many files can have in common?
bool IsTelling(const Place &place)
{
    return place.offset > place.head.length + 1;
}

// How the content of a file compares with that of one that it may be a copy of.
enum class Likeness {
    kNone,      // they differ, or there is nothing to compare
    kBeginning, // it is the beginning of that one
    kCutOff,    // the same, and its compressed form is not complete
    kWhole,     // it is all of that one
    kUnknown,   // that one has just gone, or changed
};

Likeness Compare(LogContent *copy, FollowedFile *original)
{
    std::string a(kCompared, '\0');
    std::string b(kCompared + 1, '\0'); // one more byte shows whether the source goes on
    std::optional<LogContent> source;
    for (uint64_t at = 0;; at += kCompared) {
        size_t count = 0;
        try {
            count = copy->Read(at, a.data(), kCompared);
        } catch (const host::Error &) {
            if (at == 0)
                throw;
            return Likeness::kCutOff;
        }
        if (count == 0 && at == 0)
            return Likeness::kNone;
        size_t source_count = 0;
        try {
            if (!source)
                source.emplace(original->place().path);
            source_count = source->Read(at, b.data(), b.size());
        } catch (const host::Error &) {
            return Likeness::kUnknown;
        }
        const auto look = LookAt(source->fd());
        if (!look || look->identity != original->place().identity)
            return Likeness::kUnknown;
        // What is emptied just now no longer holds what was copied.
        if (source_count < count || memcmp(a.data(), b.data(), count) != 0)
            return original->IsCut() ? Likeness::kUnknown : Likeness::kNone;
        if (count < kCompared)
            return source_count == count ? Likeness::kWhole : Likeness::kBeginning;
    }
}

// Where the last line of a file begins that has no end yet; its end otherwise.
uint64_t BeginOfOpenLine(LogContent *content, uint64_t size)
{
    std::string bytes(kLongestRecord, '\0');
    const uint64_t base = size > bytes.size() ? size - bytes.size() : 0;
    bytes.resize(content->Read(base, bytes.data(), static_cast<size_t>(size - base)));
    const size_t last = bytes.rfind('\n');
    if (last == std::string::npos)
        return base == 0 ? 0 : size;
    return base + last + 1;
}

} // namespace

FileFollower::FileFollower(FollowOptions options, const std::vector<StoredPlace> &places)
    : options_(std::move(options)),
      reader_{options_.name, options_.form,
              RecordSplitter(options_.joining,
                             std::make_shared<Charset>(options_.encoding, options_.log_charset)),
              options_.joining.by_indentation || !options_.joining.begins_with.empty(), &clock_}
{
    for (const StoredPlace &row : places) {
        if (row.number == kBegun)
            continue;
        next_number_ = std::max(next_number_, row.number + 1);
        const auto place = PlaceOf(row.text);
        if (!place) {
            forgotten_.insert(row.number);
            continue;
        }
        FollowedFile &file =
            files_.emplace(row.number, FollowedFile(row.number, *place)).first->second;
        file.is_changed = false;
        file.wants_reading = !place->all && !(place->done && place->packed);
        logs_[FolderOf(place->log)].insert(NameOf(place->log));
    }
}

void FileFollower::Begin()
{
    const FolderView view = ViewFolders(options_.rules.Folders());
    LocateAll(view);
    has_begun_ = true;
    if (options_.from_start)
        return;
    for (const Beginning &file : NewestFirst(view))
        PassOver(file.path, file.log, file.look);
}

bool FileFollower::BeginAt(const FindPlace &find)
{
    const FolderView view = ViewFolders(options_.rules.Folders());
    LocateAll(view);
    has_begun_ = true;
    const std::vector<Beginning> files = NewestFirst(view);
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const Beginning &file) { return BeginIn(file, find); });
    const bool is_found = found != files.end();
    for (auto file = files.begin(); is_found && file != found; ++file)
        Add(PlaceAtBeginning(file->path, file->log, file->look.identity));
    for (auto file = is_found ? found + 1 : files.begin(); file != files.end(); ++file)
        PassOver(file->path, file->log, file->look);
    return is_found;
}

// The logs, and then what was rotated of them.
std::vector<FileFollower::Beginning> FileFollower::NewestFirst(const FolderView &view)
{
    std::vector<Beginning> files;
    std::set<FileIdentity> known = KnownFiles();
    for (const auto &[path, look] : view.files) {
        if (IsLive(path) && known.insert(look.identity).second)
            files.push_back({path, path, look});
    }
    const auto first_rotated = static_cast<std::ptrdiff_t>(files.size());
    for (const auto &[path, look] : Candidates(view)) {
        if (known.insert(look.identity).second)
            files.push_back({path, LogOfRotated(path).value_or(path), look});
    }
    std::stable_sort(files.begin() + first_rotated, files.end(), [](const auto &a, const auto &b) {
        return a.look.changed_ns > b.look.changed_ns;
    });
    return files;
}

// Follows the file from the place on that is found in it. False: it is in another one.
bool FileFollower::BeginIn(const Beginning &file, const FindPlace &find)
{
    try {
        LogContent content(file.path);
        const auto found = find(&content);
        if (!found)
            return false;
        Place place = PlaceAtBeginning(file.path, file.log, file.look.identity);
        place.packed = content.IsPacked();
        MovePlace(&place, found->offset, &content);
        place.skipping = found->within_line;
        Add(std::move(place));
        return true;
    } catch (const host::Error &error) {
        problems_[file.path] = error.what();
        return false;
    }
}

// What the file holds now counts as read. Of a line without an end, the end is still to come.
void FileFollower::PassOver(const std::string &path, const std::string &log, const FileLook &look)
{
    Place place = PlaceAtBeginning(path, log, look.identity);
    place.all = true;
    try {
        LogContent content(path);
        if (!content.IsPacked()) {
            place.all = !IsLive(path);
            MovePlace(&place, place.all ? look.size : BeginOfOpenLine(&content, look.size),
                      &content);
        }
    } catch (const host::Error &error) {
        problems_[path] = error.what();
    }
    Add(std::move(place));
}

// ---- names ----

// A name that is matched, and is not that of a rotated file of another log.
bool FileFollower::IsLive(const std::string &path) const
{
    return options_.rules.Match(path) && Rotated(path).kind != NameKind::kRotated;
}

// By the logs of its own folder. Where rotated files have a folder of their own, which has no logs, by the only other
// one that has such a log.
FileFollower::RotatedOf FileFollower::Rotated(const std::string &path) const
{
    const std::string own = FolderOf(path);
    const auto here = logs_.find(own);
    auto begin = here == logs_.end() ? logs_.begin() : here;
    const auto end = here == logs_.end() ? logs_.end() : std::next(here);
    RotatedOf found;
    for (; begin != end; ++begin) {
        const auto &[folder, names] = *begin;
        const RotatedName rotated = FindLogOf(NameOf(path), names);
        if (rotated.kind == NameKind::kOther)
            continue;
        if (found.kind != NameKind::kOther)
            return {};
        found = {rotated.kind, (folder == "/" ? "" : folder) + "/" + rotated.log};
    }
    return found;
}

// The log of which this is a rotated file by its name.
std::optional<std::string> FileFollower::LogOfRotated(const std::string &path) const
{
    const RotatedOf rotated = Rotated(path);
    return rotated.kind == NameKind::kOther ? std::nullopt : std::optional(rotated.log);
}

std::set<FileIdentity> FileFollower::KnownFiles() const
{
    std::set<FileIdentity> known;
    for (const auto &[number, file] : files_)
        known.insert(file.place().identity);
    return known;
}

void FileFollower::LocateAll(const FolderView &view)
{
    // A shorter name is that of the log when a longer one could be that of a rotated file of it.
    std::vector<std::string> matched;
    for (const auto &[path, look] : view.files) {
        if (options_.rules.Match(path))
            matched.push_back(path);
    }
    std::sort(matched.begin(), matched.end(),
              [](const auto &a, const auto &b) { return a.size() < b.size(); });
    for (const std::string &path : matched) {
        if (IsLive(path))
            logs_[FolderOf(path)].insert(NameOf(path));
    }
    std::map<FileIdentity, std::string> paths;
    for (const auto &[path, look] : view.files) {
        const auto [found, is_first] = paths.emplace(look.identity, path);
        if (!is_first && IsLive(path))
            found->second = path; // of several names, the one that is written to
    }
    for (auto &[number, file] : files_) {
        const auto found = paths.find(file.place().identity);
        file.is_present = found != paths.end();
        if (file.is_present)
            file.Locate(found->second, IsLive(found->second));
        else if (!file.IsOpen())
            file.wants_reading = false;
    }
}

FollowedFile &FileFollower::Add(Place place)
{
    const int64_t number = next_number_++;
    const std::string path = place.path;
    const bool is_read = place.all;
    FollowedFile &file =
        files_.emplace(number, FollowedFile(number, std::move(place))).first->second;
    file.Locate(path, IsLive(path));
    file.wants_reading = !is_read;
    return file;
}

void FileFollower::Drop(int64_t number)
{
    watch_.ForgetFile(number);
    files_.erase(number);
    forgotten_.insert(number);
}

// F2
void FileFollower::FollowNewLogs(const FolderView &view)
{
    std::set<FileIdentity> known = KnownFiles();
    for (const auto &[path, look] : view.files) {
        if (IsLive(path) && !LogOfRotated(path) && known.insert(look.identity).second)
            Add(PlaceAtBeginning(path, path, look.identity));
    }
}

std::map<std::string, FileLook> FileFollower::Candidates(const FolderView &view)
{
    std::set<FileIdentity> known = KnownFiles();
    std::map<std::string, FileLook> candidates;
    for (const auto &[path, look] : view.files) {
        if (LogOfRotated(path) && !options_.rules.Exclude(path) &&
            known.insert(look.identity).second)
            candidates.emplace(path, look);
    }
    return candidates;
}

// ---- what is missing, and where it went ----

// A file that was emptied was copied before, and one that is gone was compressed. Whatever else holds the same
// as one that is gone is rather a new log that begins with an equal line, if that is all there is to compare.
bool FileFollower::MayHold(LogContent *content, const FollowedFile &file)
{
    return file.was_cut || IsTelling(file.place()) || content->IsPacked();
}

// Looks for a file that holds what this one held, and reads on in that.
bool FileFollower::FindContentOf(FollowedFile *file, std::map<std::string, FileLook> *candidates)
{
    if (file->place().offset == 0)
        return false;
    for (const auto &[path, look] : *candidates) {
        if (LogOfRotated(path) != file->place().log)
            continue;
        const Held as_it_is{look.size, look.changed_ns};
        const auto known = damaged_.find(look.identity);
        if (known != damaged_.end() && known->second == as_it_is)
            continue;
        try {
            LogContent content(path);
            if (!MayHold(&content, *file) || !HoldsPlace(&content, file->place()))
                continue;
        } catch (const host::Error &error) {
            damaged_[look.identity] = as_it_is;
            problems_[path] = error.what();
            continue;
        }
        watch_.ForgetFile(file->number());
        file->Adopt(path, look.identity);
        candidates->erase(path);
        return true;
    }
    return false;
}

// What comes from now on is of a log that begins. What it held before is read where it went.
void FileFollower::DealWithEmptied(int64_t number, std::map<std::string, FileLook> *candidates)
{
    FollowedFile &file = files_.at(number);
    const Place before = file.place();
    if (!FindContentOf(&file, candidates)) {
        losses_.push_back({options_.name, before.path +
                                              " was emptied, and no other file holds what it "
                                              "held: what was written behind byte " +
                                              std::to_string(before.offset) +
                                              " before that is missing, if there was anything"});
        Drop(number);
    }
    Add(PlaceAtBeginning(before.path, before.log, before.identity));
    names_changed_ = true;
}

// F5
void FileFollower::GiveUp(FollowedFile *file, const std::map<std::string, FileLook> &candidates,
                          SteadyTime now)
{
    if (file->IsOpen()) {
        if (file->IsQuiet(now, kRemovedIsOver))
            Drop(file->number());
        return;
    }
    const Place &place = file->place();
    // Of which nothing was read, it may be any of those that are read from their beginning now.
    const bool may_be_there =
        place.offset == 0 &&
        std::any_of(candidates.begin(), candidates.end(),
                    [&](const auto &row) { return LogOfRotated(row.first) == place.log; });
    if (!place.done && !place.all && !may_be_there)
        losses_.push_back({options_.name, place.path +
                                              " is gone, and no other file holds what it held: "
                                              "what was written behind byte " +
                                              std::to_string(place.offset) +
                                              " is missing, if there was anything"});
    Drop(file->number());
}

void FileFollower::SeekMissing(std::map<std::string, FileLook> *candidates, SteadyTime now)
{
    // The place that says most about its file chooses first: a file that begins like many others would do
    // for one of which only the beginning was read.
    std::vector<int64_t> numbers;
    for (const auto &[number, file] : files_)
        numbers.push_back(number);
    std::sort(numbers.begin(), numbers.end(), [&](int64_t a, int64_t b) {
        return files_.at(a).place().offset > files_.at(b).place().offset;
    });
    for (const int64_t number : numbers) {
        FollowedFile &file = files_.at(number);
        if (file.was_cut)
            DealWithEmptied(number, candidates);
        else if (!file.is_present && !file.wants_reading && !FindContentOf(&file, candidates))
            GiveUp(&file, *candidates, now);
    }
}

// F3: is it the copy of a file that is still there?
bool FileFollower::IsCopyInTheMaking(const std::string &path, const FileLook &look)
{
    if (look.size == 0)
        return true;
    const Held as_it_is{look.size, look.changed_ns};
    const auto known = held_.find(look.identity);
    if (known != held_.end() && known->second == as_it_is)
        return true;
    LogContent copy(path);
    const auto log = LogOfRotated(path);
    for (auto &[number, file] : files_) {
        if (!file.is_present || file.place().log != log)
            continue;
        if (look.identity.birth_ns < file.place().identity.birth_ns)
            continue; // no copy is older than what it is of
        // Logs are copied to be emptied, and rotated files to be compressed. Those are as long as they will
        // ever be; a log can have been copied when it was shorter.
        const bool may_be_packed =
            copy.IsPacked() && (IsTelling(file.place()) || IsPackedNameOf(path, file.place().path));
        if (!file.is_live() && !may_be_packed)
            continue;
        const Likeness likeness = Compare(&copy, &file);
        if (likeness == Likeness::kUnknown) {
            names_changed_ = true;
            return true;
        }
        if (likeness == Likeness::kNone || (likeness == Likeness::kBeginning && !file.is_live()))
            continue;
        held_[look.identity] = as_it_is;
        return true;
    }
    return false;
}

// True when it is known of each what it is.
bool FileFollower::FollowRotated(const std::map<std::string, FileLook> &candidates)
{
    std::vector<std::pair<std::string, FileLook>> oldest_first(candidates.begin(),
                                                               candidates.end());
    std::stable_sort(oldest_first.begin(), oldest_first.end(), [](const auto &a, const auto &b) {
        return a.second.changed_ns < b.second.changed_ns;
    });
    bool all_are_known = true;
    for (const auto &[path, look] : oldest_first) {
        try {
            const std::string log = LogOfRotated(path).value_or(path);
            if (IsCopyInTheMaking(path, look))
                all_are_known = false;
            else
                Add(PlaceAtBeginning(path, log, look.identity));
        } catch (const host::Error &error) {
            problems_[path] = error.what();
            all_are_known = false;
        }
    }
    return all_are_known;
}

// The names of files that are known, wanted, or could be rotated ones. Others come and go in some folders
// all the time.
FileFollower::Names FileFollower::NamesThatMatter(const FolderView &view) const
{
    const std::set<FileIdentity> known = KnownFiles();
    Names names;
    for (const auto &[path, look] : view.files) {
        if (known.contains(look.identity) || options_.rules.Match(path) || LogOfRotated(path))
            names.emplace(path, look.identity);
    }
    return names;
}

bool FileFollower::SomethingIsMissing() const
{
    return std::any_of(files_.begin(), files_.end(), [](const auto &row) {
        return !row.second.is_present || row.second.was_cut;
    });
}

// F3 to F5, by names that are settled.
void FileFollower::Settle(const FolderView &view, SteadyTime now)
{
    problems_.clear();
    auto candidates = Candidates(view);
    if (SomethingIsMissing())
        held_.clear(); // what was taken for a copy in the making may be what is left
    SeekMissing(&candidates, now);
    is_settled_ = FollowRotated(candidates) && !SomethingIsMissing();
}

// Files that have grown without a word of the kernel, and those that nobody has looked at yet.
void FileFollower::WantGrown(const FolderView &view)
{
    for (auto &[number, file] : files_) {
        const Place &place = file.place();
        const auto found = view.files.find(place.path);
        if (place.all || (place.done && place.packed) || !file.is_present ||
            found == view.files.end())
            continue;
        if (!file.problem.empty() || found->second.size != place.offset ||
            (!file.IsOpen() && !place.done))
            file.wants_reading = true;
    }
}

void FileFollower::Look(SteadyTime now)
{
    names_changed_ = false;
    is_catching_up_ = false;
    std::set<std::string> folders = options_.rules.Folders();
    for (const auto &[number, file] : files_)
        folders.insert(FolderOf(file.place().path));
    watch_.WatchFolders(folders);
    FolderView view = ViewFolders(folders);
    view_ = std::move(view);
    LocateAll(view_);
    Names names = NamesThatMatter(view_);
    if (view_since_ == SteadyTime{} || names != names_) {
        names_ = std::move(names);
        view_since_ = now;
        is_settled_ = false;
    }
    const bool may_settle = now - view_since_ >= kSettled;
    // What is older is read first, so a new log waits until it is known what became of the one before.
    if (may_settle || !SomethingIsMissing())
        FollowNewLogs(view_);
    WantGrown(view_);
    look_at_ = may_settle ? now + kSweep : view_since_ + kSettled;
    if (may_settle && (!is_settled_ || SomethingIsMissing()))
        Settle(view_, now);
    names_are_steady_ = may_settle;
}

void FileFollower::BeginCatchUp()
{
    is_catching_up_ = true;
    names_changed_ = true;
    for (auto &[number, file] : files_)
        file.BeginCatchUp();
}

bool FileFollower::IsCaughtUp(SteadyTime now)
{
    if (is_catching_up_ || names_changed_ || !names_are_steady_)
        return false;
    return std::all_of(files_.begin(), files_.end(),
                       [&](auto &row) { return row.second.IsCaughtUp(reader_, now); });
}

// ---- reading ----

void FileFollower::ReadOne(FollowedFile *file, const ReadingTime &reading, SteadyTime now,
                           Batch *batch)
{
    try {
        switch (file->Read(&reader_, reading, now, batch)) {
        case ReadStep::kMore:
            break;
        case ReadStep::kEnd:
            file->wants_reading = false;
            if (file->place().done && file->is_present)
                file->Close();
            break;
        case ReadStep::kCut:
            file->was_cut = true;
            file->wants_reading = false;
            names_changed_ = true;
            break;
        case ReadStep::kRenamed:
            file->wants_reading = false;
            names_changed_ = true;
            break;
        }
    } catch (const host::Error &error) {
        file->problem = error.what();
        file->wants_reading = false;
    }
    if (!file->IsOpen())
        watch_.ForgetFile(file->number());
    else if (watch_.WatchFile(file->number(), file->fd()))
        file->wants_reading = !file->was_cut; // what came just before it was watched
}

void FileFollower::StorePlaces(Batch *batch)
{
    if (has_begun_)
        batch->places[{options_.id, kBegun}] = "begun";
    has_begun_ = false;
    for (auto &[number, file] : files_) {
        if (file.is_changed)
            batch->places[{options_.id, number}] = TextOf(file.place());
        file.is_changed = false;
    }
    for (const int64_t number : forgotten_)
        batch->places[{options_.id, number}] = std::nullopt;
    forgotten_.clear();
    batch->losses.insert(batch->losses.end(), losses_.begin(), losses_.end());
    losses_.clear();
}

bool FileFollower::Read(int64_t wall_seconds, SteadyTime now, Batch *batch)
{
    constexpr size_t kFull = size_t{8} * 1024 * 1024;
    if (wall_seconds != last_wall_seconds_)
        clock_.LookUpZone();
    last_wall_seconds_ = wall_seconds;
    const ReadingTime reading(clock_, wall_seconds);
    bool has_more = false;
    for (auto &[number, file] : files_) {
        if (now >= file.Deadline(reader_))
            file.wants_reading = true;
        while (file.wants_reading && !file.was_cut && batch->text.size() < kFull)
            ReadOne(&file, reading, now, batch);
        has_more = has_more || (file.wants_reading && !file.was_cut);
    }
    StorePlaces(batch);
    return has_more;
}

void FileFollower::TakeChanges()
{
    const ChangeWatch::News news = watch_.Take();
    names_changed_ = names_changed_ || news.names || news.everything;
    for (auto &[number, file] : files_) {
        if (news.everything || news.files.contains(number))
            file.wants_reading = !file.place().all;
    }
}

SteadyTime FileFollower::Next() const
{
    SteadyTime next = names_changed_ ? SteadyTime::min() : look_at_;
    for (const auto &[number, file] : files_)
        next = std::min(next, file.Deadline(reader_));
    return next;
}

size_t FileFollower::OpenFiles() const
{
    return static_cast<size_t>(std::count_if(files_.begin(), files_.end(),
                                             [](const auto &row) { return row.second.IsOpen(); }));
}

uint64_t FileFollower::BytesBehind() const
{
    uint64_t behind = 0;
    for (const auto &[number, file] : files_)
        behind += file.place().all ? 0 : file.Behind();
    return behind;
}

std::vector<std::string> FileFollower::Problems() const
{
    std::vector<std::string> problems = view_.problems;
    bool has_any = std::any_of(view_.files.begin(), view_.files.end(),
                               [&](const auto &row) { return options_.rules.Match(row.first); });
    for (const std::string &path : view_.others) {
        if (!options_.rules.Match(path))
            continue;
        has_any = true;
        problems.push_back("cannot read " + path + ": it is not a regular file");
    }
    if (!has_any)
        problems.emplace_back(kNothingMatches);
    for (const auto &[number, file] : files_) {
        if (!file.problem.empty())
            problems.push_back(file.problem);
    }
    for (const auto &[path, problem] : problems_)
        problems.push_back(problem);
    return problems;
}

} // namespace inputs
