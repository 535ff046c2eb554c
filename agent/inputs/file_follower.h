// Follows all files of an input, through everything that rotation does to them.
//
//   F1  A file is known by its identity. As long as it has a name in its folder, and as long as it is held
//       open, it is read on, whatever its name is.
//   F2  A file under a name that is written to is a new log when its identity is not known; but the one that had the name
//       and is missing, when it holds what that one held: it was copied, and is read on from the place of that one.
//   F3  A file under the name of a rotated one whose identity is not known is
//         the one that is missing, or was emptied, when it holds what that one held: it was compressed, or
//         copied; it is read on from the place of that one;
//         read already, when it holds what had been read of one that was emptied until a moment before: the copy was
//         made, and the log was read on and emptied only then;
//         nothing yet, while the file whose beginning it holds is still there: a copy is being made; and nothing at all
//         when it is there after minutes, or when that file goes: somebody has kept a copy;
//         else a file that came and was rotated while nobody looked: it is read from its beginning.
//   F4  What is concluded from a file's absence is concluded from two equal looks at the folders.
//   F5  A file that is gone, and that was not read to its end for certain, is told of.
//
// Runs on one thread. It never waits.
#ifndef AGENT_INPUTS_FILE_FOLLOWER_H
#define AGENT_INPUTS_FILE_FOLLOWER_H

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/inputs/batch.h"
#include "agent/inputs/folder_view.h"
#include "agent/inputs/followed_files.h"
#include "agent/inputs/log_names.h"
#include "agent/inputs/rotation.h"

namespace inputs {

struct FollowOptions {
    InputId id = 0;
    std::string name;
    PathRules rules;
    LineForm form;
    Joining joining;
    std::string encoding;    // of the files; empty: that of the monitor
    std::string log_charset; // of the monitor
    bool from_start = false; // also what is there when the input is added
    // Files in these folders are none of the input's, by whatever name or link.
    std::set<std::string> not_in = {};
};

// What is told of patterns without a file. It may come later.
inline constexpr char kNothingMatches[] = "no file has a name of these patterns";

// A place that somebody else has come to.
struct PlaceInFile {
    uint64_t offset = 0;
    bool within_line = false; // the rest of its line is passed over
};
using FindPlace = std::function<std::optional<PlaceInFile>(LogContent *content)>;

class FileFollower {
  public:
    // Goes on from the stored places. Throws host::Error for options that cannot be used.
    FileFollower(FollowOptions options, const std::vector<StoredPlace> &places);
    FileFollower(const FileFollower &) = delete;
    FileFollower &operator=(const FileFollower &) = delete;

    // Without stored places: what is there now is passed over, unless the input says otherwise. That it was done is a
    // place as well, so that a file that comes before the first reading is not passed over.
    void Begin();
    // The same, but from the place on that is found in one of the files, with all that is newer than that one. False:
    // it is in none of them, and all that is there is passed over.
    bool BeginAt(const FindPlace &find);

    // With the stored places, of an input that had these rules until now: what they did not cover and that is there now
    // is passed over, unless the input says otherwise. Who follows the input by those rules may go on meanwhile, until he
    // is told; what comes new to what both rules cover is left to him.
    void BeginWhatIsNew(const PathRules &before);

    // Looks at the folders.
    void Look(SteadyTime now);
    // Reads what there is into the batch, until that is full. True: there is more.
    bool Read(int64_t wall_seconds, SteadyTime now, Batch *batch);

    // From here on everything is looked at, whether a change was told of or not; until what is there now was read, but
    // for what is no whole entry yet. Asked behind a Read that says that there is no more.
    void BeginCatchUp();
    [[nodiscard]] bool IsCaughtUp(SteadyTime now);

    // Puts the places that have changed into the batch; Read does so as well.
    void StorePlaces(Batch *batch);

    // To be polled for POLLIN; then TakeChanges.
    [[nodiscard]] int ChangesFd() const { return files_.watch().fd(); }
    void TakeChanges();
    // When Look and Read are to be called at the latest.
    [[nodiscard]] SteadyTime Next() const;
    // Is a look at the folders due?
    [[nodiscard]] bool WantsLook(SteadyTime now) const { return names_changed_ || now >= look_at_; }

    [[nodiscard]] size_t OpenFiles() const;
    // As of the last reading, or the last Measure, which reads nothing.
    [[nodiscard]] uint64_t BytesBehind() const;
    void Measure();
    // What cannot be read, and why.
    [[nodiscard]] std::vector<std::string> Problems() const;

  private:
    void DropOthers();
    using Names = std::map<std::string, FileIdentity>; // by path

    struct Beginning {
        std::string path;
        std::string log;
        FileLook look;
    };
    std::vector<Beginning> NewestFirst(const FolderView &view);
    bool BeginIn(const Beginning &file, const FindPlace &find);
    void PassOver(const std::string &path, const std::string &log, const FileLook &look);
    [[nodiscard]] bool IsReborn(const FollowedFile &file, const std::string &path) const;
    [[nodiscard]] FolderView View(const std::set<std::string> &folders) const;
    void LocateAll(const FolderView &view);
    void Locate(FollowedFile *file, const std::string &path, const FileLook &look) const;
    void Follow(Place place);
    void FollowNewLogs(const FolderView &view);
    [[nodiscard]] Names NamesThatMatter(const FolderView &view) const;
    void WantGrown(const FolderView &view);
    void Settle(SteadyTime now);
    bool TakeTurns(const ReadingTime &reading, SteadyTime now, Batch *batch);
    void ReadTurn(FollowedFile *file, const ReadingTime &reading, SteadyTime now, Batch *batch);
    void ReadOne(FollowedFile *file, const ReadingTime &reading, SteadyTime now, Batch *batch);

    FollowOptions options_;
    LocalClock clock_;
    EntryReader reader_;
    FollowedFiles files_;
    LogNamesByFolder logs_;
    Rotation rotation_;

    FolderView view_;         // at the last look
    SteadyTime view_since_{}; // since when the names are like that
    SteadyTime look_at_{};    // when to look again although nothing was told
    bool has_begun_ = false;  // and that is not stored yet
    bool names_changed_ = true;
    bool is_settled_ = false;       // these names leave no question open
    bool is_catching_up_ = false;   // and nothing was looked at since that was asked for
    bool names_are_steady_ = false; // at the last look
    Names names_;                   // those of it that matter
    int64_t last_wall_seconds_ = 0;
    int64_t last_turn_ = 0; // the file with which the last batch became full; 0: it did not
};

} // namespace inputs

#endif // AGENT_INPUTS_FILE_FOLLOWER_H
