#include "agent/inputs/rotation.h"

#include <algorithm>

#include "agent/host/error.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

// A removed file is held open for so long after its last growth: somebody may still write into it.
constexpr milliseconds kRemovedIsOver{60000};

// A file that was emptied was copied before, and one that is gone was compressed. Whatever else holds the same
// as one that is gone is rather a new log that begins with an equal line, if that is all there is to compare.
bool MayHold(LogContent *content, const FollowedFile &file)
{
    return file.was_cut || file.place().IsTelling() || content->IsPacked();
}

// By the time of their last change: the oldest first with std::ranges::less, the newest with greater.
template <typename Order>
std::vector<std::pair<std::string, FileLook>> Sorted(const Candidates &candidates, Order order)
{
    std::vector<std::pair<std::string, FileLook>> files(candidates.begin(), candidates.end());
    std::ranges::stable_sort(files, order, [](const auto &file) { return file.second.changed_ns; });
    return files;
}

// The place in a copy of which all that it holds was read elsewhere. Throws host::Error.
Place PlaceBehind(LogContent *copy, const std::string &log, const FileLook &look)
{
    Place place = PlaceAtBeginning(copy->path(), log, look.identity);
    place.all = true;
    place.size = look.size;
    if (!copy->IsPacked()) {
        MovePlace(&place, look.size, copy);
        copy->Sync();
    }
    return place;
}

// Of a compressed file, the size says nothing of its content.
std::string MissingBehind(const Place &place)
{
    const std::string behind = "behind byte " + std::to_string(place.offset);
    if (place.packed || place.size <= place.offset)
        return "what was written " + behind + " is missing, if there was anything";
    return std::to_string(place.size - place.offset) + " bytes " + behind +
           " are missing, and what was written later, if there was anything";
}

enum class Content {
    kReadable,
    kDamaged, // it can be opened, and nothing of it can be read
    kClosed,  // it cannot be opened, and may be another time
};

Content ContentOf(const std::string &path)
{
    Content content = Content::kClosed;
    try {
        LogContent opened(path);
        content = Content::kDamaged;
        char byte = 0;
        opened.Read(0, &byte, 1);
        content = Content::kReadable;
    } catch (const host::Error &) {
        return content;
    }
    return content;
}

// Of a file of which nothing was read, one that is read from its beginning now may hold what it held; but for one such
// file only.
bool TakeOnePossible(Candidates *possible, const LogNamesByFolder &names, const Place &place)
{
    const auto found = std::find_if(possible->begin(), possible->end(), [&](const auto &candidate) {
        const auto &[path, look] = candidate;
        return names.LogOfRotated(path) == place.log && look.size > 0 &&
               look.identity.birth_ns >= place.identity.birth_ns &&
               ContentOf(path) != Content::kDamaged;
    });
    if (found == possible->end())
        return false;
    possible->erase(found);
    return true;
}

// Can one that was broken, and passed over, be read now? It is looked into when it has changed, or the first time.
bool IsRestored(FollowedFile *file, const FileLook &look)
{
    const bool is_broken = file->place().told && file->place().all;
    if (!is_broken || file->IsDamaged(look))
        return false;
    if (ContentOf(file->place().path) == Content::kReadable)
        return true;
    file->NoteDamage(look);
    return false;
}

} // namespace

Candidates Rotation::Unknown(const FolderView &view) const
{
    std::set<FileIdentity> known = files_.Identities();
    Candidates candidates;
    for (const auto &[path, look] : view.files) {
        if (names_.LogOfRotated(path) && !names_.rules().Exclude(path) &&
            known.insert(look.identity).second)
            candidates.emplace(path, look);
    }
    return candidates;
}

// Looks for a file that holds what this one held, and reads on in that. Of several the newest has most of it. What
// somebody has kept, and removes, may hold what many do.
bool Rotation::FindContentOf(FollowedFile *file, Candidates *candidates)
{
    if (file->place().offset == 0)
        return false;
    for (const auto &[path, look] : Sorted(*candidates, std::ranges::greater{})) {
        const Place &place = file->place();
        if (names_.LogOfRotated(path) != place.log ||
            (place.kept && !IsPackedNameOf(path, place.path)))
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
        files_.watch().ForgetFile(file->number());
        file->Adopt(path, look.identity);
        candidates->erase(path);
        return true;
    }
    return false;
}

// A copy that was made before the log was emptied can end before the place: what was written meanwhile was read in the log.
// All of the copy was, then, and all of the log; so it is with those that somebody has kept.
bool Rotation::PassOverShorterCopies(const FollowedFile &file, Candidates *candidates)
{
    if (file.place().size > file.place().offset)
        return false;
    return std::erase_if(*candidates, [&](const auto &candidate) {
               const auto &[path, look] = candidate;
               return names_.LogOfRotated(path) == file.place().log &&
                      PassOverShorterCopy(file, path, look);
           }) > 0;
}

bool Rotation::PassOverShorterCopy(const FollowedFile &file, const std::string &path,
                                   const FileLook &look)
{
    try {
        LogContent content(path);
        const bool may_be = content.IsPacked() || look.size < file.place().offset;
        if (!may_be || !file.HoldsEarlierPlace(&content))
            return false;
        files_.Add(PlaceBehind(&content, file.place().log, look), names_.IsLive(path));
        return true;
    } catch (const host::Error &) {
        return false; // as FindContentOf has noted
    }
}

void Rotation::Drop(int64_t number)
{
    copies_.NoteDropped(number);
    files_.Drop(number);
}

// A log that lies in another file than before, as behind a backup that was brought back, or on another disk, is read on
// where it was.
bool Rotation::FindLogAnew(FollowedFile *file, const FolderView &view)
{
    const Place &place = file->place();
    const auto found = view.files.find(place.log);
    if (place.path != place.log || !place.IsTelling() || found == view.files.end() ||
        files_.Identities().contains(found->second.identity))
        return false;
    try {
        LogContent content(place.log);
        if (!HoldsPlace(&content, place))
            return false;
    } catch (const host::Error &) {
        return false; // its follower says so
    }
    files_.watch().ForgetFile(file->number());
    file->Adopt(found->first, found->second.identity);
    file->Locate(found->first, true);
    return true;
}

// What comes from now on is of a log that begins. What it held before is read where it went.
void Rotation::DealWithEmptied(int64_t number, Candidates *candidates)
{
    FollowedFile &file = files_.all().at(number);
    const Place before = file.place();
    if (!FindContentOf(&file, candidates)) {
        if (!before.done && !PassOverShorterCopies(file, candidates))
            losses_.push_back({input_, before.path +
                                           " was emptied, and no other file holds what it held: " +
                                           MissingBehind(before)});
        Drop(number);
    }
    files_.Add(PlaceAtBeginning(before.path, before.log, before.identity),
               names_.IsLive(before.path));
    wants_look_ = true;
}

// F5
void Rotation::GiveUp(FollowedFile *file, Candidates *possible, SteadyTime now)
{
    if (file->IsOpen() && file->problem.empty()) {
        if (file->IsQuiet(now, kRemovedIsOver))
            Drop(file->number());
        return;
    }
    const Place &place = file->place();
    const bool may_be_there = place.offset == 0 && TakeOnePossible(possible, names_, place);
    if (!place.done && !place.all && !place.told && !may_be_there)
        losses_.push_back({input_, place.path + " is gone, and no other file holds what it held: " +
                                       MissingBehind(place)});
    Drop(file->number());
}

// A rotated file is not written anew: another one has its number.
void Rotation::NoticeReusedNumbers()
{
    for (auto &[number, file] : files_.all()) {
        if (file.is_present && !file.is_live() && file.IsAnother())
            file.LoseIdentity();
    }
}

void Rotation::SeekMissing(const FolderView &view, Candidates *candidates, SteadyTime now)
{
    // The place that says most about its file chooses first: a file that begins like many others would do
    // for one of which only the beginning was read. Of two that say the same, the one that was followed first.
    std::vector<int64_t> numbers;
    std::vector<int64_t> sought;
    for (const auto &[number, file] : files_.all())
        numbers.push_back(number);
    std::stable_sort(numbers.begin(), numbers.end(), [&](int64_t a, int64_t b) {
        return files_.all().at(a).place().offset > files_.all().at(b).place().offset;
    });
    for (const int64_t number : numbers) {
        FollowedFile &file = files_.all().at(number);
        if (file.was_cut)
            DealWithEmptied(number, candidates);
        else if (!file.is_present && !file.wants_reading)
            sought.push_back(number);
    }
    std::erase_if(sought, [&](int64_t number) {
        FollowedFile &file = files_.all().at(number);
        if (FindContentOf(&file, candidates) || FindLogAnew(&file, view))
            return true;
        if (!PassOverShorterCopies(file, candidates))
            return false;
        Drop(number); // it was emptied, and went only then
        return true;
    });
    Candidates possible = *candidates;
    for (const int64_t number : sought)
        GiveUp(&files_.all().at(number), &possible, now);
}

bool Rotation::TellOfBroken(const FolderView &view, SteadyTime now)
{
    std::vector<int64_t> restored;
    for (auto &[number, file] : files_.all()) {
        const auto found = view.files.find(file.place().path);
        if (found == view.files.end() || !file.is_present)
            continue;
        if (IsRestored(&file, found->second))
            restored.push_back(number);
        if (!file.IsBrokenForGood(found->second, now))
            continue;
        file.NoteTold();
        losses_.push_back({input_, file.place().path + " is damaged: what it holds behind byte " +
                                       std::to_string(file.place().offset) +
                                       " of its content is missing; the file has " +
                                       std::to_string(found->second.size) + " bytes"});
    }
    for (const int64_t number : restored)
        files_.Drop(number);
    return !restored.empty();
}

// Nobody knows what was in it; as a file that is passed over, it is told of once only.
void Rotation::NoteUnreadable(const std::string &path, const std::string &log, const FileLook &look,
                              SteadyTime now)
{
    if (look.size == 0 || ContentOf(path) == Content::kClosed)
        return;
    const Held as_it_is{look.size, look.changed_ns};
    const auto [known, is_new] = broken_.try_emplace(look.identity, Broken{as_it_is, now});
    if (known->second.as_it_is != as_it_is)
        known->second = {as_it_is, now};
    if (now - known->second.since < kBrokenForGood)
        return;
    broken_.erase(known);
    losses_.push_back({input_, path +
                                   " is damaged, and nothing of it can be read: what it holds is "
                                   "missing, unless it was read before; the file has " +
                                   std::to_string(look.size) + " bytes"});
    Place place = PlaceAtBeginning(path, log, look.identity);
    place.all = true;
    place.told = true;
    files_.Add(std::move(place), names_.IsLive(path));
}

// False: what it is has to be seen yet.
bool Rotation::FollowOne(const std::string &path, const FileLook &look, SteadyTime now)
{
    const std::string log = names_.LogOf(path);
    try {
        switch (copies_.StateOf(path, look, now)) {
        case CopyState::kNone:
            files_.Add(PlaceAtBeginning(path, log, look.identity), names_.IsLive(path));
            return true;
        case CopyState::kKept: {
            LogContent content(path);
            Place copy = PlaceBehind(&content, log, look);
            copy.kept = true;
            files_.Add(std::move(copy), names_.IsLive(path));
            return true;
        }
        case CopyState::kUnknown:
            wants_look_ = true;
            return false;
        case CopyState::kInTheMaking:
            return false;
        }
    } catch (const host::Error &error) {
        problems_[path] = error.what();
        NoteUnreadable(path, log, look, now);
    }
    return false;
}

bool Rotation::FollowUnknown(const Candidates &candidates, SteadyTime now)
{
    copies_.ForgetAllBut(candidates);
    bool all_are_known = true;
    for (const auto &[path, look] : Sorted(candidates, std::ranges::less{}))
        all_are_known = FollowOne(path, look, now) && all_are_known;
    return all_are_known && !files_.SomethingIsMissing();
}

Candidates Rotation::FindMissing(const FolderView &view, SteadyTime now)
{
    problems_.clear();
    NoticeReusedNumbers();
    Candidates candidates = Unknown(view);
    SeekMissing(view, &candidates, now);
    return candidates;
}

} // namespace inputs
