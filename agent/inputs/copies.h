// Copies of files that are followed, under names of rotated ones: those that rotation makes, to empty or to remove the
// original then, and those that somebody keeps.
#ifndef AGENT_INPUTS_COPIES_H
#define AGENT_INPUTS_COPIES_H

#include <map>
#include <string>

#include "agent/inputs/followed_files.h"
#include "agent/inputs/log_names.h"

namespace inputs {

// Files that nobody follows, by their paths.
using Candidates = std::map<std::string, FileLook>;

enum class CopyState {
    kNone,        // it is none
    kUnknown,     // what it could be a copy of is just changing: look again
    kInTheMaking, // it is one, and may yet become all that is left of the original
    kKept,        // it is there to stay, and the original has been read for it
};

class Copies {
  public:
    // What is no step of rotation any more is not written for so long.
    static constexpr std::chrono::minutes kMade{10};

    // `files` and `names` are the follower's, and outlive this.
    Copies(FollowedFiles &files, const LogNamesByFolder &names) : files_(files), names_(names) {}

    // Is the candidate a copy of a file that is there, or was it found to be one of a file that has gone since? Throws
    // host::Error when it cannot be read.
    CopyState StateOf(const std::string &path, const FileLook &look, SteadyTime now);

    // The file of this number is about to be dropped.
    void NoteDropped(int64_t number);
    // No other candidates are there.
    void ForgetAllBut(const Candidates &candidates);

  private:
    struct CopyOf {
        uint64_t size = 0; // as it was found
        int64_t changed_ns = 0;
        int64_t original = 0; // the number under which that is followed
        SteadyTime since;     // when it was found so
        bool is_packed = false;
        bool is_telling = false; // of more bytes than those of a first line
        bool is_read = false;    // the original is gone, and all of this one had been read there
    };
    CopyState Find(const std::string &path, const FileLook &look, SteadyTime now);
    [[nodiscard]] bool IsToBeKept(const CopyOf &copy, SteadyTime now) const;
    CopyState Confirm(const std::string &path, int64_t original);
    [[nodiscard]] bool IsAsFound(const CopyOf &copy, const FileLook &look) const;

    FollowedFiles &files_;
    const LogNamesByFolder &names_;
    std::map<FileIdentity, CopyOf> copies_;
};

} // namespace inputs

#endif // AGENT_INPUTS_COPIES_H
