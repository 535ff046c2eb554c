// Reads a journal, entry by entry, from a cursor on.
//
//   J1  An entry is known by its boot, its times and its content, not by its number alone: when a volatile
//       journal becomes persistent, its entries get other numbers.
//   J2  When files have come or gone, the journal is opened anew and goes on behind the last entry. An entry is read when
//       that was looked for since it came: else one that came before it can be in a file that is not known yet, as that of
//       a user who has just logged in, and would be passed over.
//   J3  When the last entry is gone, what is missing is told, in numbers of the journal if it can be known. Of an input
//       that wants all entries, so is what is missing between any two: they have numbers one behind the other, unless
//       there are files that may not be read. Of what came since the journal was opened, one opened anew is asked first:
//       the last entry can have another number by then (J1).
//   J4  Entries of the monitor itself are known by the fields that the journal itself writes.
//   J5  Of an input that wants few entries, the place is moved up now and then, so that what it does not want can go
//       without being missed.
//
// Runs on one thread. It never waits.
#ifndef AGENT_INPUTS_JOURNAL_READER_H
#define AGENT_INPUTS_JOURNAL_READER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/inputs/batch.h"
#include "agent/inputs/followed_file.h"
#include "agent/inputs/rendering.h"

struct sd_journal;

namespace inputs {

struct JournalOptions {
    InputId id = 0;
    std::string name;
    std::vector<std::string> matches; // FIELD=VALUE; values of one field are alternatives
    std::optional<int> priority;      // this and more urgent ones, 0 to 7
    std::string journal_namespace;    // empty: the host's own
    std::string directory;            // of journal files, instead of those of this host
    std::string charset = "UTF-8";    // of the monitor
    std::string own_folder;           // where the programs of the monitor are
    bool from_start = false;          // also what is there when the input is added
};

// The number of a priority's name or digits ("warning" is 4); nothing for any other text.
std::optional<int> PriorityOf(const std::string &text);

// The parts of a cursor: "s=...;i=1f;b=..." by their letters.
struct CursorParts {
    std::string sequence; // which numbering
    uint64_t number = 0;
    std::string boot;
    std::string monotonic; // microseconds since the boot, as a hexadecimal number
    std::string realtime;
    std::string content;

    // Is it the same entry, whatever its number is (J1)?
    [[nodiscard]] bool IsSameEntry(const CursorParts &other) const;
};
CursorParts PartsOf(const std::string &cursor);

class JournalReader {
  public:
    // Goes on behind this cursor; an empty one: from the first entry. Throws host::Error for options that
    // cannot be used.
    JournalReader(JournalOptions options, std::string cursor);
    ~JournalReader();
    JournalReader(const JournalReader &) = delete;
    JournalReader &operator=(const JournalReader &) = delete;

    // Is there an entry that can be read in this host's own journal?
    static bool HostsIsReadable();

    // The cursor of the last entry that is there; empty: there is none. Throws host::Error.
    static std::string NewestCursor(const JournalOptions &options);

    // The cursor of the entry before the last so many that the input wants; empty: there is none. Throws
    // host::Error.
    static std::string CursorBeforeLast(const JournalOptions &options, size_t entries);

    // Reads what there is into the batch, until that is full. True: there is more.
    bool Read(int64_t wall_seconds, SteadyTime now, Batch *batch);

    // Puts the place into the batch if `is_wanted`; Read does so when it has moved.
    void StorePlace(bool is_wanted, Batch *batch) const
    {
        if (is_wanted)
            batch->places[{options_.id, 0}] = cursor_;
    }

    // To be polled for these events; -1: for nothing. Then TakeChanges.
    [[nodiscard]] int ChangesFd() const;
    [[nodiscard]] short ChangesEvents() const;
    void TakeChanges() { FilesHaveChanged(); }
    // The next Read sees all that the journal holds then, whether a change was told of or not.
    void LookAnew() { wants_reopen_ = true; }
    [[nodiscard]] SteadyTime Next() const { return look_at_; }

    // Why nothing can be read; empty: it can.
    [[nodiscard]] const std::string &problem() const { return problem_; }
    // When the last entry that was read was written, in seconds since 1970; 0: none was read.
    [[nodiscard]] int64_t last_entry() const { return last_entry_; }

  private:
    struct CloseJournal {
        void operator()(sd_journal *journal) const;
    };
    using Journal = std::unique_ptr<sd_journal, CloseJournal>;

    static Journal Open(const JournalOptions &options);
    static void AddMatches(const JournalOptions &options, sd_journal *journal);
    bool OpenAtCursor(Batch *batch);
    bool Seek(Batch *batch);
    void TellOfGap(Batch *batch);
    [[nodiscard]] bool WantsAll() const { return options_.matches.empty() && !options_.priority; }
    [[nodiscard]] bool AllFilesAreReadable() const;
    [[nodiscard]] bool IsBehindGap(const CursorParts &entry) const;
    [[nodiscard]] bool CurrentCameBefore(uint64_t moment_us) const;
    bool FilesHaveChanged();
    bool LooksAnewAt(const CursorParts &entry, Batch *batch);
    void NoteMissing(const CursorParts &entry, Batch *batch);
    void TellOfMissing(Batch *batch);
    [[nodiscard]] std::string NewestToMoveUpTo(SteadyTime now);
    bool ReadEntries(const ReadingTime &reading, Batch *batch);
    void ReadEntry(const ReadingTime &reading, Batch *batch);
    [[nodiscard]] bool IsOwn(const std::string &unit, const std::string &program) const;
    [[nodiscard]] std::vector<std::string> Folders() const;
    [[nodiscard]] std::string FoldersState() const;

    JournalOptions options_;
    Charset charset_;
    LocalClock clock_;
    Journal journal_;
    std::string cursor_;
    bool is_at_entry_ = false; // the next entry to be read is the current one
    bool wants_reopen_ = true;
    bool last_is_missing_ =
        false;                // neither the entry that was read last is there, nor one behind it
    std::string told_behind_; // the place behind which something is missing, which was told
    std::string folders_;     // their state when the journal was opened
    std::optional<CursorParts>
        last_;                    // the entry that was read last, as the open journal has it (J3)
    bool counts_numbers_ = false; // of the entries of the open journal
    uint64_t opened_us_ = 0;      // when it was opened, on the clock of this boot
    uint64_t looked_us_ = 0;      // when changes of its files were looked for
    // Entries that were gone, as found by the reading under way.
    struct Missing {
        std::string sequence;
        uint64_t first = 0;
        uint64_t last = 0;
        uint64_t count = 0;
    };
    std::optional<Missing> missing_;
    SteadyTime look_at_{};
    SteadyTime move_up_at_{};
    std::string problem_;
    int64_t last_entry_ = 0;
    int64_t last_wall_seconds_ = 0;
};

} // namespace inputs

#endif // AGENT_INPUTS_JOURNAL_READER_H
