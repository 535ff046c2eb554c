// The files that an input follows, by the numbers under which their places are stored.
#ifndef AGENT_INPUTS_FOLLOWED_FILES_H
#define AGENT_INPUTS_FOLLOWED_FILES_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/inputs/batch.h"
#include "agent/inputs/change_watch.h"
#include "agent/inputs/followed_file.h"

namespace inputs {

// A row of the stored places.
struct StoredPlace {
    int64_t number = 0;
    std::string text;
};

// A place that says nothing of a file, but that the beginning was made. Files have greater numbers.
inline constexpr int64_t kBegun = 0;

// Of a file nothing of which was read.
Place PlaceAtBeginning(const std::string &path, const std::string &log, const FileIdentity &file);

class FollowedFiles {
  public:
    // Goes on from the stored places. One that cannot be understood is forgotten.
    explicit FollowedFiles(const std::vector<StoredPlace> &places);

    // `is_live`: programs write under its path.
    FollowedFile &Add(Place place, bool is_live);
    void Drop(int64_t number);
    // Leaves numbers free for somebody else who follows these files still, and gives the next ones to what he finds.
    void LeaveNumbersFree();

    [[nodiscard]] std::map<int64_t, FollowedFile> &all() { return files_; }
    [[nodiscard]] const std::map<int64_t, FollowedFile> &all() const { return files_; }
    [[nodiscard]] std::set<FileIdentity> Identities() const;
    // Is one of them gone, or emptied?
    [[nodiscard]] bool SomethingIsMissing() const;

    // Tells of changes of their folders, and of those of them that are open.
    [[nodiscard]] ChangeWatch &watch() { return watch_; }
    [[nodiscard]] const ChangeWatch &watch() const { return watch_; }

    // Puts the places that have changed into the batch.
    void StorePlaces(InputId input, Batch *batch);

  private:
    std::map<int64_t, FollowedFile> files_;
    int64_t next_number_ = kBegun + 1;
    std::set<int64_t> forgotten_; // places that are to be removed from the store
    ChangeWatch watch_;
};

} // namespace inputs

#endif // AGENT_INPUTS_FOLLOWED_FILES_H
