#include "agent/inputs/rotation.h"

#include <algorithm>

#include "agent/host/error.h"
#include "agent/inputs/copy_compare.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

// A removed file is held open for so long after its last growth: somebody may still write into it.
constexpr milliseconds kRemovedIsOver{60000};

// Are there more bytes to compare than those of a first line, which many files can have in common?
bool IsTelling(const Place &place)
{
    return place.offset > place.head.length + 1;
}

// A file that was emptied was copied before, and one that is gone was compressed. Whatever else holds the same
// as one that is gone is rather a new log that begins with an equal line, if that is all there is to compare.
bool MayHold(LogContent *content, const FollowedFile &file)
{
    return file.was_cut || IsTelling(file.place()) || content->IsPacked();
}

// Can this be a copy of the file, before their bytes are compared? Logs are copied to be emptied, and rotated files to be
// compressed.
bool MayBeOf(LogContent *copy, const FileLook &look, const FollowedFile &file)
{
    const Place &place = file.place();
    if (!file.is_present || look.identity.birth_ns < place.identity.birth_ns)
        return false; // no copy is older than what it is of
    return file.is_live() ||
           (copy->IsPacked() && (IsTelling(place) || IsPackedNameOf(copy->path(), place.path)));
}

std::string MissingBehind(const Place &place)
{
    return "what was written behind byte " + std::to_string(place.offset);
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

// Looks for a file that holds what this one held, and reads on in that.
bool Rotation::FindContentOf(FollowedFile *file, Candidates *candidates)
{
    if (file->place().offset == 0)
        return false;
    for (const auto &[path, look] : *candidates) {
        if (names_.LogOfRotated(path) != file->place().log)
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

// What comes from now on is of a log that begins. What it held before is read where it went.
void Rotation::DealWithEmptied(int64_t number, Candidates *candidates)
{
    FollowedFile &file = files_.all().at(number);
    const Place before = file.place();
    if (!FindContentOf(&file, candidates)) {
        if (!before.done)
            losses_.push_back({input_, before.path +
                                           " was emptied, and no other file holds what it held: " +
                                           MissingBehind(before) +
                                           " before that is missing, if there was anything"});
        files_.Drop(number);
    }
    files_.Add(PlaceAtBeginning(before.path, before.log, before.identity),
               names_.IsLive(before.path));
    wants_look_ = true;
}

// F5
void Rotation::GiveUp(FollowedFile *file, const Candidates &candidates, SteadyTime now)
{
    if (file->IsOpen() && file->problem.empty()) {
        if (file->IsQuiet(now, kRemovedIsOver))
            files_.Drop(file->number());
        return;
    }
    const Place &place = file->place();
    // Of which nothing was read, it may be any of those that are read from their beginning now.
    const bool may_be_there =
        place.offset == 0 &&
        std::any_of(candidates.begin(), candidates.end(),
                    [&](const auto &row) { return names_.LogOfRotated(row.first) == place.log; });
    if (!place.done && !place.all && !may_be_there)
        losses_.push_back({input_, place.path + " is gone, and no other file holds what it held: " +
                                       MissingBehind(place) +
                                       " is missing, if there was anything"});
    files_.Drop(file->number());
}

// A rotated file is not written anew: another one has its number.
void Rotation::NoticeReusedNumbers()
{
    for (auto &[number, file] : files_.all()) {
        if (file.is_present && !file.is_live() && file.IsAnother())
            file.LoseIdentity();
    }
}

void Rotation::SeekMissing(Candidates *candidates, SteadyTime now)
{
    // The place that says most about its file chooses first: a file that begins like many others would do
    // for one of which only the beginning was read.
    std::vector<int64_t> numbers;
    for (const auto &[number, file] : files_.all())
        numbers.push_back(number);
    std::sort(numbers.begin(), numbers.end(), [&](int64_t a, int64_t b) {
        return files_.all().at(a).place().offset > files_.all().at(b).place().offset;
    });
    for (const int64_t number : numbers) {
        FollowedFile &file = files_.all().at(number);
        if (file.was_cut)
            DealWithEmptied(number, candidates);
        else if (!file.is_present && !file.wants_reading && !FindContentOf(&file, candidates))
            GiveUp(&file, *candidates, now);
    }
}

// F3: is it the copy of a file that is still there?
bool Rotation::IsCopyInTheMaking(const std::string &path, const FileLook &look)
{
    if (look.size == 0)
        return true;
    const Held as_it_is{look.size, look.changed_ns};
    const auto known = held_.find(look.identity);
    if (known != held_.end() && known->second == as_it_is)
        return true;
    LogContent copy(path);
    const auto log = names_.LogOfRotated(path);
    for (auto &[number, file] : files_.all()) {
        if (file.place().log != log || !MayBeOf(&copy, look, file))
            continue;
        const Likeness likeness = Compare(&copy, &file);
        if (likeness == Likeness::kUnknown) {
            wants_look_ = true;
            return true;
        }
        // A rotated file is as long as it will ever be; a log can have been copied when it was shorter.
        if (likeness == Likeness::kNone || (likeness == Likeness::kBeginning && !file.is_live()))
            continue;
        held_[look.identity] = as_it_is;
        return true;
    }
    return false;
}

// True when it is known of each what it is.
bool Rotation::FollowRotated(const Candidates &candidates)
{
    std::vector<std::pair<std::string, FileLook>> oldest_first(candidates.begin(),
                                                               candidates.end());
    std::stable_sort(oldest_first.begin(), oldest_first.end(), [](const auto &a, const auto &b) {
        return a.second.changed_ns < b.second.changed_ns;
    });
    bool all_are_known = true;
    for (const auto &[path, look] : oldest_first) {
        try {
            const std::string log = names_.LogOfRotated(path).value_or(path);
            if (IsCopyInTheMaking(path, look))
                all_are_known = false;
            else
                files_.Add(PlaceAtBeginning(path, log, look.identity), names_.IsLive(path));
        } catch (const host::Error &error) {
            problems_[path] = error.what();
            all_are_known = false;
        }
    }
    return all_are_known;
}

bool Rotation::Settle(const FolderView &view, SteadyTime now)
{
    problems_.clear();
    NoticeReusedNumbers();
    Candidates candidates = Unknown(view);
    if (files_.SomethingIsMissing())
        held_.clear(); // what was taken for a copy in the making may be what is left
    SeekMissing(&candidates, now);
    return FollowRotated(candidates) && !files_.SomethingIsMissing();
}

} // namespace inputs
