#include "agent/inputs/followed_files.h"

#include <algorithm>

namespace inputs {

Place PlaceAtBeginning(const std::string &path, const std::string &log, const FileIdentity &file)
{
    Place place;
    place.path = path;
    place.log = log;
    place.identity = file;
    return place;
}

FollowedFiles::FollowedFiles(const std::vector<StoredPlace> &places)
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
    }
}

FollowedFile &FollowedFiles::Add(Place place, bool is_live)
{
    const int64_t number = next_number_++;
    const std::string path = place.path;
    const bool is_read = place.all;
    FollowedFile &file =
        files_.emplace(number, FollowedFile(number, std::move(place))).first->second;
    file.Locate(path, is_live);
    file.wants_reading = !is_read;
    return file;
}

void FollowedFiles::Drop(int64_t number)
{
    watch_.ForgetFile(number);
    files_.erase(number);
    forgotten_.insert(number);
}

// He is told of it within a moment, in which he finds no million files.
void FollowedFiles::LeaveNumbersFree()
{
    next_number_ += 1000000;
}

std::set<FileIdentity> FollowedFiles::Identities() const
{
    std::set<FileIdentity> known;
    for (const auto &[number, file] : files_)
        known.insert(file.place().identity);
    return known;
}

bool FollowedFiles::SomethingIsMissing() const
{
    return std::any_of(files_.begin(), files_.end(), [](const auto &row) {
        return !row.second.is_present || row.second.was_cut;
    });
}

void FollowedFiles::StorePlaces(InputId input, Batch *batch)
{
    for (auto &[number, file] : files_) {
        if (file.is_changed)
            batch->places[{input, number}] = TextOf(file.place());
        file.is_changed = false;
    }
    for (const int64_t number : forgotten_)
        batch->places[{input, number}] = std::nullopt;
    forgotten_.clear();
}

} // namespace inputs
