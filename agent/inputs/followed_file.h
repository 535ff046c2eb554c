// One file that an input follows: reads it on from its place, record by record.
//
// The file is held open until it is read, so it is read to its end under whatever name, and when it was
// removed. Before each reading the bytes before the place are compared: a file that was emptied and written
// again is noticed however much it holds by then.
#ifndef AGENT_INPUTS_FOLLOWED_FILE_H
#define AGENT_INPUTS_FOLLOWED_FILE_H

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "agent/inputs/batch.h"
#include "agent/inputs/log_content.h"
#include "agent/inputs/place.h"
#include "agent/inputs/records.h"
#include "agent/inputs/rendering.h"

namespace inputs {

using SteadyTime = std::chrono::steady_clock::time_point;

// How the entries of an input's files are read, and where they go.
struct EntryReader {
    std::string input; // its name
    LineForm form;     // its identifier is that of each file, unless the input has one
    RecordSplitter splitter;
    bool joins_lines;
    LocalClock *clock;
};

// An archive that stays damaged as it is for so long is not being written.
inline constexpr std::chrono::minutes kBrokenForGood{10};

enum class ReadStep {
    kMore, // there may be more to read at once
    kEnd,  // all that is there was read
    kCut, // the bytes before the place are others than they were: the file was emptied, or written anew
    kRenamed, // under its path there is another file now
};

class FollowedFile {
  public:
    FollowedFile(int64_t number, Place place);

    // Reads some more into the batch. Throws host::Error.
    ReadStep Read(EntryReader *reader, const ReadingTime &reading, SteadyTime now, Batch *batch);

    // Is it an archive in which nothing more can be read as long as it is like this?
    [[nodiscard]] bool IsDamaged(const FileLook &look) const
    {
        return damaged_ && damaged_->size == look.size && damaged_->changed_ns == look.changed_ns;
    }

    // Was it damaged like this for so long that nobody writes it any more, and was that not told yet? Asked now and then.
    [[nodiscard]] bool IsBrokenForGood(const FileLook &look, SteadyTime now);
    void NoteTold();
    // That the file cannot be read as it is.
    void NoteDamage(const FileLook &look);

    // Looks whether the bytes before the place are others than they were; notes it in `was_cut`.
    bool IsCut();

    // The moment at which what is there counts although its end is missing; the greatest one: nothing waits.
    [[nodiscard]] SteadyTime Deadline(const EntryReader &reader) const;

    [[nodiscard]] int64_t number() const { return number_; }
    [[nodiscard]] const Place &place() const { return place_; }
    [[nodiscard]] bool is_live() const { return is_live_; }
    [[nodiscard]] bool IsOpen() const { return content_ != nullptr; }
    [[nodiscard]] int fd() const { return content_ ? content_->fd() : -1; }
    // Bytes that are there and not read, as far as known; of a compressed file, 0.
    [[nodiscard]] uint64_t Behind() const
    {
        const uint64_t size = std::max(size_, measured_);
        return size > place_.offset ? size - place_.offset : 0;
    }
    // Looks how much that is by now.
    void Measure();
    // Has it not grown for so long?
    [[nodiscard]] bool IsQuiet(SteadyTime now, std::chrono::milliseconds time) const
    {
        return now - grew_at_ >= time;
    }

    // Was all read that it held at BeginCatchUp, but for what is no whole entry yet? Asked when there is nothing more to
    // read.
    void BeginCatchUp() { catch_up_to_.reset(); }
    bool IsCaughtUp(const EntryReader &reader, SteadyTime now);

    // Takes the path under which it was found. `is_live`: programs write under that path.
    void Locate(const std::string &path, bool is_live);
    // Notes how much there is of a file of which nothing was read yet.
    void NoteSize(uint64_t size);
    // May another file have its number? Only where the file system tells nothing but that, and gives the number
    // of a file that is gone to the next; while it is open here, its number is its own.
    [[nodiscard]] bool MayBeAnother() const { return !place_.identity.IsUnique() && !IsOpen(); }
    [[nodiscard]] bool IsAnother() const;
    // The file under its path is known by this from now on: its place was stored when less was known of it.
    void KnowBy(const FileIdentity &identity);
    // Does it hold what was read of this one until some moment of the last minutes? So does a copy that was made before
    // more was read. Throws host::Error.
    [[nodiscard]] bool HoldsEarlierPlace(LogContent *content) const;
    // It is gone: the file of its number is none of its own.
    void LoseIdentity();
    // It has another file now that holds what it held.
    void Adopt(const std::string &path, const FileIdentity &identity);
    void Close();
    // What has been read counts for ever; so it is on the disk before that is stored. Else a log of which a power cut has
    // taken the end away would look like another one, and be read again.
    void Sync();
    // Has that begun, for this file and others, before it is waited for.
    void BeginSync();

    // Is there something to be read in it?
    [[nodiscard]] bool WantsReading() const { return wants_reading && !was_cut; }

    // For who decides what is to be read.
    bool wants_reading = true;
    bool was_cut = false;   // found so by Read; nothing is read until that is dealt with
    bool is_present = true; // it has a name in the folders
    bool is_changed = true; // the place is another one than the one stored
    std::string problem;    // why it cannot be read; empty: it can

  private:
    void BecomeLogAgain();
    // Was it rotated, or removed? Who writes into it still has it open. Of one that was removed before anything of it was
    // read, all that there is may be in a copy.
    [[nodiscard]] bool IsOutOfUse() const
    {
        return !is_live_ || (!is_present && place_.offset > 0);
    }
    [[nodiscard]] bool HoldsAnother() const;
    bool Open();
    bool FillWindow(const FileLook &look);
    [[nodiscard]] bool HoldsPending(std::string_view behind) const;
    bool HoldsPending(LogContent *content) const;
    void LookForDamage(const FileLook &look);
    void TellOfCutLine(const EntryReader &reader, uint64_t offset, SteadyTime now, Batch *batch);
    [[nodiscard]] Ending EndingAt(const EntryReader &reader, SteadyTime now) const;
    size_t TakeRecords(std::string_view bytes, Ending ending, EntryReader *reader,
                       const ReadingTime &reading, SteadyTime now, Batch *batch);

    void MarkPlace(SteadyTime now);

    struct MarkInTime {
        SteadyTime at;
        Mark mark;
    };

    int64_t number_;
    Place place_;
    std::deque<MarkInTime> marks_; // where it was read to in the last minutes, oldest first
    bool is_live_ = true;
    std::unique_ptr<LogContent> content_;
    std::string window_; // content from `window_base_` on
    // What was there behind the place when the end was read last, and is of an entry that may go on. It stays as it is
    // as long as the file only grows.
    std::string pending_;
    uint64_t window_base_ = 0;
    bool is_unsynced_ = false;        // something was read since the last Sync
    bool at_end_ = false;             // the window reaches the end of the content
    std::optional<FileLook> damaged_; // as it was then
    std::optional<SteadyTime> damaged_since_;
    std::optional<SteadyTime> told_of_cut_line_; // when, last
    std::string damage_;                         // behind the window; empty: none was met
    uint64_t size_ = 0;                          // when it was last read
    uint64_t measured_ = 0;                      // when it was last looked at
    SteadyTime grew_at_{};                       // when more was found last
    bool waits_ = false; // something is there that counts when nothing comes behind it for a while
    std::optional<uint64_t> catch_up_to_; // its size then, or somewhat later
};

} // namespace inputs

#endif // AGENT_INPUTS_FOLLOWED_FILE_H
