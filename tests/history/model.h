// The oracle: what the monitor has to do, said once more in the plainest way. It works on whole files and
// whole lines in memory, without blocks, buffers and cursors, keeps nothing that need not be kept, and
// shares no code with the module. It says of each wake which reports come, in order, what every hit counter
// stands at, and what the registry holds.
//
// Not said here: lines longer than a block, keywords as expressions.
#ifndef TESTS_HISTORY_MODEL_H
#define TESTS_HISTORY_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/history/world.h"

namespace history {

constexpr size_t kHandled = 3328; // bytes that are handled of a line

struct Alert {
    std::string source;
    uint32_t id = 0;
    std::string message;
    bool operator==(const Alert &) const = default;
};

struct Counted {
    Event event;
    int32_t hits = 0;
};

// What the registry keeps of a slot of the syslog scan.
struct SlotRecord {
    std::optional<std::string> head;
    std::optional<int64_t> pos;
    std::optional<std::string> content;
    bool operator==(const SlotRecord &) const = default;
};

// What the registry keeps for the monitor.
struct Record {
    std::array<SlotRecord, 2> slots;
    std::optional<uint32_t> end_time;
    std::optional<uint64_t> inode;
    std::optional<int64_t> offset;
    bool operator==(const Record &) const = default;
};

// Something that happens to the logs in the middle of a pass.
struct Interruption {
    // Before the file number `number` of the wake, from 1, is opened.
    std::function<void(int number)> before_open;
    // While the syslog scan waits for the end of the last line of a file. True when it has happened.
    std::function<bool()> while_waiting;
};

class Model {
  public:
    explicit Model(World *world) : world_(world) {}

    // The monitor is started, after `counters` were put back as its host puts them back.
    void Start();

    void Pass();          // the cycle has passed, or a scan was asked for
    void Reload();        // the table was changed
    void CustomerEvent(); // the customer file was changed
    void TargetEvent();   // the file monitor's target was changed

    // Of the file in which a slot stands, when all of it are repeats at its head: they were read, but cannot be recorded.
    struct Unrecorded {
        std::string text;
        uint64_t inode =
            0; // of the file in which they would be read again: of a copy, when theirs was emptied; 0: of none
    };

    // What a killed or stopped monitor leaves: the record and the hit counters.
    struct Lasting {
        Record record;
        std::vector<Counted> table;
        std::array<int64_t, kLogs> bytes_read{};
        std::array<Unrecorded, 2> unrecorded{};
    };
    [[nodiscard]] Lasting Save() const { return {record_, table_, bytes_read_, unrecorded_}; }
    void Restore(const Lasting &lasting);

    [[nodiscard]] const Record &record() const { return record_; }
    [[nodiscard]] const std::vector<Counted> &table() const { return table_; }

    // Of the logs of the slots, those that were read twice counted twice.
    [[nodiscard]] int64_t BytesRead(size_t slot) const { return bytes_read_[slot]; }

    // The files have changed.
    void NoteWhatWasEmptied();

    std::vector<Alert> alerts; // of all wakes since they were taken away last
    Interruption interruption;

  private:
    struct TextLine {
        int64_t pos;
        std::string text;
        bool is_behind_newline; // or the first; else behind a zero byte
    };
    // Where reading goes on: the line before it, -1 for the head of the file.
    struct Place {
        std::vector<TextLine> lines;
        int at;
    };
    // A file as a pass looked at it.
    struct Seen {
        uint64_t inode;
        size_t size;
    };
    struct Memory {
        std::array<std::string, 2> path;
        time_t last_end = 0;
        bool customer_changed = false;
        std::string target;
        uint64_t inode = 0;
        int64_t offset = 0;
        int64_t last_size = 0;
    };
    enum class Found { kFailed, kStartedAfresh, kFile };

    void BeginWake() { opened_ = 0; }
    void CountUnrecorded(size_t slot);
    void LoadTable();
    void ChangeCustomer();
    void ScanPass();

    // What a step over the files of a slot came to: it was done; there was nothing to do it with; or a
    // rotation has come, and the place has to be looked for anew.
    enum class Came { kDone, kNothing, kRotated };

    void ScanSlot(size_t slot);
    Found FindFile(size_t slot);
    std::optional<Found> Search(size_t slot, bool may_search_again);
    Found StartAfresh(size_t slot, const std::optional<std::string> &live);
    bool ReadFiles(size_t slot);
    Came ReadFile(size_t slot);
    void ReadNewLines(size_t slot, Place *place);
    Came MoveToNewer(size_t slot);
    void StorePosition(size_t slot);
    [[nodiscard]] std::vector<std::string> Backups(size_t slot) const;
    [[nodiscard]] std::string PathOf(size_t slot, int index) const;
    [[nodiscard]] bool IsSame(const std::string &path, const std::string &bytes,
                              const Seen &seen) const;
    Came OpenAsSeen(size_t slot, std::string *bytes);
    [[nodiscard]] const Entry *Find(const std::string &path) const;
    std::optional<std::string> Open(const std::string &path, bool awaits_line_end);

    bool GoTo(std::vector<TextLine> lines, Place *place);
    void SearchUp(Place *place, time_t remembered);
    void SearchDown(Place *place, time_t remembered);
    bool SearchBefore(Place *place, time_t remembered);
    [[nodiscard]] bool IsRemembered(const TextLine &line) const;

    void CheckLine(const std::string &line, int times);
    void Hit(Counted *entry, const std::string &line, int times);
    [[nodiscard]] bool Matches(const Event &event, const std::string &line) const;
    [[nodiscard]] std::optional<time_t> TimeOf(const std::string &line) const;

    bool LoadTarget();
    void WatchPass();
    void ReadWatched(const std::string &bytes, uint64_t size);
    void CheckWatchedLine(const std::string &whole);

    World *world_;
    Record record_;
    Memory memory_;
    std::vector<Counted> table_;
    std::array<int64_t, kLogs> bytes_read_{};
    std::array<Unrecorded, 2> unrecorded_{};
    // Of the slot that is being scanned.
    std::vector<std::string> backups_;
    std::vector<Seen> seen_; // by index, as the search for the head line met them
    int searches_again_ = 0; // of the pass, because of rotations
    bool has_read_ = false;  // a file, in this pass
    int index_ = 0;
    int64_t pos_ = -1;
    std::string content_;
    int opened_ = 0; // files, in this wake
};

} // namespace history

#endif // TESTS_HISTORY_MODEL_H
