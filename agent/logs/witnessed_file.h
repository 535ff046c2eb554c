// A file of a log as the witness knows it: which one it is, how far the monitor has read it, and, while it is held open,
// all that it holds, whatever becomes of its name.
#ifndef AGENT_LOGS_WITNESSED_FILE_H
#define AGENT_LOGS_WITNESSED_FILE_H

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace logs {

// What is kept of it over a restart. Offsets in bytes.
struct FileRecord {
    std::string path; // the name that it had last
    uint64_t device = 0;
    uint64_t inode = 0;  // 0: its content has no file any more
    int64_t read_to = 0; // the end of what was read, or passed over and told
    int64_t checked_to =
        0; // that of what was read and cannot be recorded by the monitor: repeats at the head of the file
    int64_t size = 0;       // when it was looked at last
    int64_t written_ms = 0; // likewise, since 1970
    std::string head;       // its first bytes
    std::string tail;       // the bytes before read_to
    bool is_left = false;   // the monitor has gone on to a newer one

    bool operator==(const FileRecord &) const = default;
};

class WitnessedFile {
  public:
    // The file of this name, not read yet. Not open when there is no such regular file, or none that can be read.
    explicit WitnessedFile(const std::filesystem::path &path);
    // The one that is recorded, under its name or another one in its folder. Not open when it is gone.
    explicit WitnessedFile(FileRecord record);

    [[nodiscard]] bool IsOpen() const { return file_ != nullptr; }
    // It is not open, and may be there all the same: opening it failed, or looking for it did.
    [[nodiscard]] bool IsUnreadable() const { return is_unreadable_; }
    [[nodiscard]] bool Is(uint64_t device, uint64_t inode) const
    {
        return record.inode != 0 && record.device == device && record.inode == inode;
    }
    // Has it no name any more?
    [[nodiscard]] bool IsRemoved() const;

    // Is something in it that was not read, as far as it is known?
    [[nodiscard]] bool HasUnread() const { return record.size > ReadUpTo(); }
    [[nodiscard]] int64_t ReadUpTo() const { return std::max(record.read_to, record.checked_to); }
    // Is it known only roughly how far it was read, because its end was cut off, or edited, since?
    [[nodiscard]] bool IsUncertain() const { return is_uncertain_; }
    // It was, as the last look has found: how much of what is there now was written since is not known.
    void LosePlace();
    // Of a file of which that is not known, so many bytes at its head were there before, in bytes.
    [[nodiscard]] int64_t CertainHead() const { return certain_head_; }

    // What has become of it since the last look.
    enum class Change {
        kNone,    // or it has grown
        kCut,     // its end is gone, or it was edited
        kEmptied, // it begins anew
        kUnknown, // it could not be read; the record is as it was
    };
    Change Look();

    // The end of the line that begins at an offset, with its newline if it has one; that of the file, when it has no such
    // offset. Nothing: it could not be read.
    [[nodiscard]] std::optional<int64_t> EndOfLine(int64_t offset) const;
    // How many lines end, or would end, in this part; -1: that cannot be counted.
    [[nodiscard]] int64_t Lines(int64_t begin, int64_t end) const;
    // Everything up to here is accounted for.
    void ReadTo(int64_t offset);
    // Does it hold, where the other one was read to, the same bytes before that? Then it is a copy of it. Where that cannot
    // be read, there is no reason to think otherwise.
    [[nodiscard]] bool GoesOnLike(const FileRecord &other) const;
    // Does it begin likewise, too?
    [[nodiscard]] bool IsCopyOf(const FileRecord &other) const;
    // Where the bytes stand by now that stood before record.read_to; -1: they are gone. Nothing: it could not be read.
    [[nodiscard]] std::optional<int64_t> FindTail() const;
    // The content goes its own way, without the file, which begins anew.
    WitnessedFile Split();

    FileRecord record;

  private:
    WitnessedFile() = default;
    void Open(const std::filesystem::path &path);
    bool IsTheOneRecorded();
    // Fewer where the file has ended. Nothing: they could not be read.
    [[nodiscard]] std::optional<std::string> Bytes(int64_t begin, int64_t end) const;

    // Null: none. Closed with the last of those that share it.
    std::shared_ptr<const int> file_;
    bool is_unreadable_ = false;
    bool is_uncertain_ = false;
    int64_t same_head_ = 0; // bytes of the head that the last look has found as they were before it
    int64_t certain_head_ = 0;
};

} // namespace logs

#endif // AGENT_LOGS_WITNESSED_FILE_H
