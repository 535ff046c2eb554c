// What became of the files of an input, by what lies in their folders: the rules F3 to F5 of file_follower.h.
#ifndef AGENT_INPUTS_ROTATION_H
#define AGENT_INPUTS_ROTATION_H

#include <map>
#include <string>
#include <vector>

#include "agent/inputs/batch.h"
#include "agent/inputs/copies.h"
#include "agent/inputs/folder_view.h"
#include "agent/inputs/followed_files.h"
#include "agent/inputs/log_names.h"

namespace inputs {

class Rotation {
  public:
    // `files` and `names` are the follower's, and outlive this.
    Rotation(std::string input, FollowedFiles &files, const LogNamesByFolder &names)
        : input_(std::move(input)), files_(files), names_(names), copies_(files, names)
    {
    }

    // Files under names of rotated ones that nobody follows.
    [[nodiscard]] Candidates Unknown(const FolderView &view) const;

    // For names that are settled: finds what is missing among those. Returns those under names of rotated ones that are
    // none of it; when the new logs are followed, FollowUnknown follows them. True: these names leave no question open.
    Candidates FindMissing(const FolderView &view, SteadyTime now);
    bool FollowUnknown(const Candidates &candidates, SteadyTime now);

    // Tells of files that are damaged, and not being written, once each. True: of these names one is to be looked into
    // again, since it was restored.
    bool TellOfBroken(const FolderView &view, SteadyTime now);

    // Has something been found that another look at the folders has to decide? Asked once.
    bool TakeWantsLook() { return std::exchange(wants_look_, false); }
    // What was lost since the last call.
    std::vector<Loss> TakeLosses() { return std::exchange(losses_, {}); }

    // What cannot be read, and why, by path: as found by the last FindMissing, and by the follower itself.
    [[nodiscard]] const std::map<std::string, std::string> &problems() const { return problems_; }
    void AddProblem(const std::string &path, const std::string &problem)
    {
        problems_[path] = problem;
    }

  private:
    void NoticeReusedNumbers();
    void SeekMissing(const FolderView &view, Candidates *candidates, SteadyTime now);
    bool FindContentOf(FollowedFile *file, Candidates *candidates);
    bool FindLogAnew(FollowedFile *file, const FolderView &view);
    bool PassOverShorterCopies(const FollowedFile &file, Candidates *candidates);
    bool PassOverShorterCopy(const FollowedFile &file, const std::string &path,
                             const FileLook &look);
    void Drop(int64_t number);
    void GiveUp(FollowedFile *file, Candidates *possible, SteadyTime now);
    void DealWithEmptied(int64_t number, Candidates *candidates);
    bool FollowOne(const std::string &path, const FileLook &look, SteadyTime now);
    void NoteUnreadable(const std::string &path, const std::string &log, const FileLook &look,
                        SteadyTime now);

    std::string input_;
    FollowedFiles &files_;
    const LogNamesByFolder &names_;
    Copies copies_;
    bool wants_look_ = false;
    std::vector<Loss> losses_;
    struct Held {
        uint64_t size;
        int64_t changed_ns;
        bool operator==(const Held &) const = default;
    };
    std::map<FileIdentity, Held> damaged_; // candidates that cannot be read
    struct Broken {
        Held as_it_is;
        SteadyTime since;
    };
    std::map<FileIdentity, Broken> broken_; // candidates of which nothing can be read
    std::map<std::string, std::string> problems_;
};

} // namespace inputs

#endif // AGENT_INPUTS_ROTATION_H
