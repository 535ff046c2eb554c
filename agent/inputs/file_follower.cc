#include "agent/inputs/file_follower.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "agent/host/error.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

// Names that are the same after this time are taken for settled (F4). Renaming a set of files takes less.
constexpr milliseconds kSettled{20};
// So often everything is looked at although no change was told of. 500 files cost some 2 ms.
constexpr milliseconds kSweep{10000};

// Where the last line of a file begins that has no end yet; its end otherwise.
uint64_t BeginOfOpenLine(LogContent *content, uint64_t size, std::string_view line_end)
{
    const size_t width = line_end.size();
    std::string bytes(kLongestRecord, '\0');
    uint64_t base = size > bytes.size() ? size - bytes.size() : 0;
    base += (width - base % width) % width; // where a character begins
    bytes.resize(content->Read(base, bytes.data(), static_cast<size_t>(size - base)));
    size_t last = bytes.rfind(line_end);
    while (last != std::string::npos && last % width != 0)
        last = bytes.rfind(line_end, last - 1); // parts of two characters
    if (last == std::string::npos)
        return base == 0 ? 0 : size;
    return base + last + width;
}

} // namespace

FileFollower::FileFollower(FollowOptions options, const std::vector<StoredPlace> &places)
    : options_(std::move(options)),
      reader_{options_.name, options_.form,
              RecordSplitter(options_.joining,
                             std::make_shared<Charset>(options_.encoding, options_.log_charset)),
              options_.joining.by_indentation || !options_.joining.begins_with.empty(), &clock_},
      files_(places), logs_(options_.rules), rotation_(options_.name, files_, logs_)
{
    DropOthers();
    for (const auto &[number, file] : files_.all())
        logs_.Add(file.place().log);
}

// Those that the input no longer wants since it was changed. A name that is no UTF-8 is stored with U+FFFD in it: of such
// a one it cannot be said.
void FileFollower::DropOthers()
{
    constexpr std::string_view kReplaced = "\xEF\xBF\xBD";
    std::vector<int64_t> others;
    for (const auto &[number, file] : files_.all()) {
        const std::string &log = file.place().log;
        const bool is_wanted = options_.rules.Match(log) && !options_.rules.ExcludeLogOf(log);
        if (!is_wanted && log.find(kReplaced) == std::string::npos)
            others.push_back(number);
    }
    for (const int64_t number : others)
        files_.Drop(number);
}

FolderView FileFollower::View(const std::set<std::string> &folders) const
{
    FolderView view = ViewFolders(folders);
    if (options_.not_in.empty())
        return view;
    std::set<FileIdentity> others;
    for (const auto &[path, look] : ViewFolders(options_.not_in).files)
        others.insert(look.identity);
    std::erase_if(view.files,
                  [&](const auto &row) { return others.contains(row.second.identity); });
    return view;
}

void FileFollower::Begin()
{
    const FolderView view = View(options_.rules.Folders());
    LocateAll(view);
    has_begun_ = true;
    if (options_.from_start)
        return;
    for (const Beginning &file : NewestFirst(view))
        PassOver(file.path, file.log, file.look);
}

bool FileFollower::BeginAt(const FindPlace &find)
{
    const FolderView view = View(options_.rules.Folders());
    LocateAll(view);
    has_begun_ = true;
    const std::vector<Beginning> files = NewestFirst(view);
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const Beginning &file) { return BeginIn(file, find); });
    const bool is_found = found != files.end();
    for (auto file = files.begin(); is_found && file != found; ++file)
        Follow(PlaceAtBeginning(file->path, file->log, file->look.identity));
    for (auto file = is_found ? found + 1 : files.begin(); file != files.end(); ++file)
        PassOver(file->path, file->log, file->look);
    return is_found;
}

void FileFollower::BeginWhatIsNew(const PathRules &before)
{
    if (options_.from_start)
        return;
    const FolderView view = View(options_.rules.Folders());
    logs_.Learn(view);
    LogNamesByFolder earlier(before);
    for (const auto &[number, file] : files_.all())
        earlier.Add(file.place().log);
    earlier.Learn(view);
    files_.LeaveNumbersFree();
    for (const Beginning &file : NewestFirst(view)) {
        const bool is_as_before = earlier.Covers(file.path) && earlier.LogOf(file.path) == file.log;
        if (!is_as_before)
            PassOver(file.path, file.log, file.look);
    }
}

// The logs, and then what was rotated of them.
std::vector<FileFollower::Beginning> FileFollower::NewestFirst(const FolderView &view)
{
    std::vector<Beginning> files;
    std::set<FileIdentity> known = files_.Identities();
    for (const auto &[path, look] : view.files) {
        if (logs_.IsLive(path) && known.insert(look.identity).second)
            files.push_back({path, path, look});
    }
    const auto first_rotated = static_cast<std::ptrdiff_t>(files.size());
    for (const auto &[path, look] : rotation_.Unknown(view)) {
        if (known.insert(look.identity).second)
            files.push_back({path, logs_.LogOf(path), look});
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
        content.Sync();
        place.skipping = found->within_line;
        Follow(std::move(place));
        return true;
    } catch (const host::Error &error) {
        rotation_.AddProblem(file.path, error.what());
        return false;
    }
}

// What the file holds now counts as read. Of a line without an end, the end is still to come.
void FileFollower::PassOver(const std::string &path, const std::string &log, const FileLook &look)
{
    Place place = PlaceAtBeginning(path, log, look.identity);
    place.all = true;
    place.size = look.size;
    try {
        LogContent content(path);
        if (!content.IsPacked()) {
            place.all = !logs_.IsLive(path);
            MovePlace(&place,
                      place.all ? look.size
                                : BeginOfOpenLine(&content, look.size, reader_.splitter.LineEnd()),
                      &content);
            content.Sync(); // see FollowedFile::Sync
        }
    } catch (const host::Error &error) {
        rotation_.AddProblem(path, error.what());
    }
    Follow(std::move(place));
}

// ---- names ----

// A rotated file of which nothing more is read does not become the log again: another file has its number.
bool FileFollower::IsReborn(const FollowedFile &file, const std::string &path) const
{
    const Place &place = file.place();
    return file.MayBeAnother() && (place.all || place.packed) && logs_.IsLive(path) &&
           !logs_.IsLive(place.path);
}

void FileFollower::Locate(FollowedFile *file, const std::string &path, const FileLook &look) const
{
    file->Locate(path, logs_.IsLive(path));
    file->NoteSize(look.size);
    if (file->place().identity != look.identity)
        file->KnowBy(look.identity);
}

void FileFollower::LocateAll(const FolderView &view)
{
    logs_.Learn(view);
    std::map<FileIdentity, std::string> paths;
    for (const auto &[path, look] : view.files) {
        const auto [found, is_first] = paths.emplace(look.identity, path);
        if (!is_first && logs_.IsLive(path))
            found->second = path; // of several names, the one that is written to
    }
    for (const auto &[path, look] : view.files) {
        if (look.identity.generation != 0) // as it was stored by who did not ask for that
            paths[{look.device, look.identity.inode}] = paths.at(look.identity);
    }
    for (auto &[number, file] : files_.all()) {
        const auto found = paths.find(file.place().identity);
        file.is_present = found != paths.end();
        if (file.is_present && IsReborn(file, found->second))
            file.LoseIdentity();
        else if (file.is_present)
            Locate(&file, found->second, view.files.at(found->second));
        else if (!file.IsOpen())
            file.wants_reading = false;
    }
}

void FileFollower::Follow(Place place)
{
    const bool is_live = logs_.IsLive(place.path);
    files_.Add(std::move(place), is_live);
}

// F2
void FileFollower::FollowNewLogs(const FolderView &view)
{
    std::set<FileIdentity> known = files_.Identities();
    for (const auto &[path, look] : view.files) {
        if (logs_.IsLive(path) && !logs_.LogOfRotated(path) && known.insert(look.identity).second)
            Follow(PlaceAtBeginning(path, path, look.identity));
    }
}

// The names of files that are known, wanted, or could be rotated ones. Others come and go in some folders
// all the time.
FileFollower::Names FileFollower::NamesThatMatter(const FolderView &view) const
{
    const std::set<FileIdentity> known = files_.Identities();
    Names names;
    for (const auto &[path, look] : view.files) {
        if (known.contains(look.identity) || options_.rules.Match(path) || logs_.LogOfRotated(path))
            names.emplace(path, look.identity);
    }
    return names;
}

// Files that have grown without a word of the kernel, and those that nobody has looked at yet.
void FileFollower::WantGrown(const FolderView &view)
{
    for (auto &[number, file] : files_.all()) {
        const Place &place = file.place();
        const auto found = view.files.find(place.path);
        if (place.all || (place.done && place.packed) || !file.is_present ||
            found == view.files.end())
            continue;
        if (file.IsDamaged(found->second))
            continue;
        if (!file.problem.empty() || found->second.size != place.offset ||
            (!file.IsOpen() && !place.done))
            file.wants_reading = true;
    }
}

// What is older is read first, so a new log waits until it is known what became of the one before, and whether it is the
// one before.
void FileFollower::Settle(SteadyTime now)
{
    const Candidates unknown = rotation_.FindMissing(view_, now);
    FollowNewLogs(view_);
    is_settled_ = rotation_.FollowUnknown(unknown, now);
}

void FileFollower::Look(SteadyTime now)
{
    names_changed_ = false;
    is_catching_up_ = false;
    std::set<std::string> folders = options_.rules.Folders();
    for (const auto &[number, file] : files_.all())
        folders.insert(FolderOf(file.place().path));
    files_.watch().WatchFolders(folders);
    FolderView view = View(folders);
    view_ = std::move(view);
    LocateAll(view_);
    Names names = NamesThatMatter(view_);
    if (view_since_ == SteadyTime{} || names != names_) {
        names_ = std::move(names);
        view_since_ = now;
        is_settled_ = false;
    }
    const bool may_settle = now - view_since_ >= kSettled;
    WantGrown(view_);
    is_settled_ = !rotation_.TellOfBroken(view_, now) && is_settled_;
    look_at_ = may_settle ? now + kSweep : view_since_ + kSettled;
    const bool is_missing = files_.SomethingIsMissing();
    if (may_settle && (!is_settled_ || is_missing))
        Settle(now);
    else if (!is_missing)
        FollowNewLogs(view_);
    names_changed_ = rotation_.TakeWantsLook();
    names_are_steady_ = may_settle;
}

void FileFollower::BeginCatchUp()
{
    is_catching_up_ = true;
    names_changed_ = true;
    for (auto &[number, file] : files_.all())
        file.BeginCatchUp();
}

bool FileFollower::IsCaughtUp(SteadyTime now)
{
    if (is_catching_up_ || names_changed_ || !names_are_steady_)
        return false;
    return std::all_of(files_.all().begin(), files_.all().end(),
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
        files_.watch().ForgetFile(file->number());
    else if (files_.watch().WatchFile(file->number(), file->fd()))
        file->wants_reading = !file->was_cut; // what came just before it was watched
}

void FileFollower::StorePlaces(Batch *batch)
{
    if (has_begun_)
        batch->places[{options_.id, kBegun}] = "begun";
    has_begun_ = false;
    files_.StorePlaces(options_.id, batch);
    const std::vector<Loss> losses = rotation_.TakeLosses();
    batch->losses.insert(batch->losses.end(), losses.begin(), losses.end());
}

namespace {

constexpr size_t kFull = size_t{8} * 1024 * 1024; // of a batch
constexpr size_t kTurn =
    size_t{1} * 1024 * 1024; // that a log adds to it before the next one has its turn
// Of a file in one turn, 64 MiB: a line without an end fills no batch, and the others wait meanwhile.
constexpr int kMostReads = 256;

} // namespace

void FileFollower::ReadTurn(FollowedFile *file, const ReadingTime &reading, SteadyTime now,
                            Batch *batch)
{
    const size_t enough = std::min(kFull, batch->text.size() + kTurn);
    for (int i = 0; i < kMostReads && file->WantsReading() && batch->text.size() < enough; ++i)
        ReadOne(file, reading, now, batch);
}

// Each log with something unread has its turn, from the one behind the last turn of a batch that became full on; of a
// log, the file that was followed first, so that rotated files come before the live one. False: nobody wants one, or
// nothing came of them.
bool FileFollower::TakeTurns(const ReadingTime &reading, SteadyTime now, Batch *batch)
{
    std::set<std::string_view> logs;
    std::map<int64_t, FollowedFile *> turns;
    for (auto &[number, file] : files_.all()) {
        if (file.WantsReading() && logs.insert(file.place().log).second)
            turns.emplace(number, &file);
    }
    const size_t before = batch->text.size();
    bool has_ended = false;
    auto turn = turns.upper_bound(std::exchange(last_turn_, 0));
    for (size_t i = 0; i < turns.size(); ++i) {
        if (turn == turns.end())
            turn = turns.begin();
        const auto &[number, file] = *turn++;
        ReadTurn(file, reading, now, batch);
        has_ended = has_ended || !file->WantsReading();
        if (batch->text.size() >= kFull) {
            last_turn_ = number;
            return false;
        }
    }
    return has_ended || batch->text.size() > before;
}

bool FileFollower::Read(int64_t wall_seconds, SteadyTime now, Batch *batch)
{
    if (wall_seconds != last_wall_seconds_)
        clock_.LookUpZone();
    last_wall_seconds_ = wall_seconds;
    const ReadingTime reading(clock_, wall_seconds);
    for (auto &[number, file] : files_.all()) {
        if (now >= file.Deadline(reader_))
            file.wants_reading = true;
    }
    while (TakeTurns(reading, now, batch))
        continue;
    // Of hundreds of files each would wait for a commit of its own otherwise.
    for (auto &[number, file] : files_.all())
        file.BeginSync();
    bool has_more = false;
    for (auto &[number, file] : files_.all()) {
        file.Sync();
        has_more = has_more || file.WantsReading();
    }
    StorePlaces(batch);
    return has_more;
}

void FileFollower::TakeChanges()
{
    const ChangeWatch::News news = files_.watch().Take();
    names_changed_ = names_changed_ || news.names || news.everything;
    for (auto &[number, file] : files_.all()) {
        if (news.everything || news.files.contains(number))
            file.wants_reading = !file.place().all;
    }
}

SteadyTime FileFollower::Next() const
{
    SteadyTime next = names_changed_ ? SteadyTime::min() : look_at_;
    for (const auto &[number, file] : files_.all())
        next = std::min(next, file.Deadline(reader_));
    return next;
}

size_t FileFollower::OpenFiles() const
{
    return static_cast<size_t>(std::count_if(files_.all().begin(), files_.all().end(),
                                             [](const auto &row) { return row.second.IsOpen(); }));
}

uint64_t FileFollower::BytesBehind() const
{
    uint64_t behind = 0;
    for (const auto &[number, file] : files_.all())
        behind += file.place().all ? 0 : file.Behind();
    return behind;
}

void FileFollower::Measure()
{
    for (auto &[number, file] : files_.all())
        file.Measure();
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
    if (std::string watching = files_.watch().Problem(); !watching.empty())
        problems.push_back(std::move(watching));
    for (const auto &[number, file] : files_.all()) {
        if (!file.problem.empty())
            problems.push_back(file.problem);
        else if (file.place().told && file.place().all)
            problems.push_back("cannot read " + file.place().path +
                               ": it is damaged; restore the file, or exclude it");
        else if (file.place().skipping)
            problems.push_back("a line of " + file.place().path + " that has no end up to byte " +
                               std::to_string(file.place().offset) +
                               " is left out behind its first " + std::to_string(kLongestRecord) +
                               " bytes; see that its program ends its lines");
    }
    for (const auto &[path, problem] : rotation_.problems())
        problems.push_back(problem);
    return problems;
}

} // namespace inputs
