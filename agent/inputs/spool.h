// The spool: the file by which the module gets the entries of all inputs. The module follows it as its customer
// file.
//
//   S1  What counts of it is its committed length, which is in the store together with the places in the
//       inputs. Bytes behind it are of a batch that was not committed, and are cut off before the module looks.
//   S2  It is written while the module rests, and the bytes are on the disk before the length is committed.
//   S3  Its first line names its generation. A new generation begins when all of the old one was read: first the
//       store says so, with the length of the first line alone; then the file is made so. A start finds by the
//       store what the file has to be.
//   S4  The place of the module in a new generation is stored with it: the module finds its first line, and
//       reads on behind it.
//   S5  Between two passes somebody may have removed it: what is open is then put back under its path, whole. Of one
//       that was cut, nobody has the bytes; that is told, and a new generation begins.
#ifndef AGENT_INPUTS_SPOOL_H
#define AGENT_INPUTS_SPOOL_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "agent/host/waitable.h"

namespace inputs {

// What the store knows of it.
struct SpoolState {
    int64_t generation = 0; // 0: there is no spool yet
    int64_t length = 0;     // committed bytes
    int64_t last_line = 0;  // where the last committed line begins

    bool operator==(const SpoolState &) const = default;
};

// The first line of a generation, without its line end. The module never matches it.
std::string SpoolHeadLine(int64_t generation);

// The state of a generation that holds nothing but its first line.
SpoolState BeginOfGeneration(int64_t generation);

class SpoolFile {
  public:
    explicit SpoolFile(std::filesystem::path path) : path_(std::move(path)) {}

    // Makes the file what the state says: cuts it, or begins it anew. Lines behind `read_to` whose stamps the
    // module would refuse at this time get this one. False: committed bytes are missing. Throws host::Error.
    bool Repair(const SpoolState &state, int64_t read_to, int64_t wall_seconds);

    // Somebody may remove, replace or cut it while it is followed. kCut: committed bytes are missing.
    enum class Presence { kThere, kRemoved, kCut };
    [[nodiscard]] Presence Look(const SpoolState &state);
    // Of a removed one, which is open still: makes it once more under its path. Throws host::Error.
    void PutBack(const SpoolState &state);

    // Where the line that begins at this offset ends, behind its line end. Nothing: there is no whole line.
    std::optional<int64_t> EndOfLine(int64_t offset);
    // Up to so many bytes at an offset.
    std::string ReadAt(int64_t offset, size_t size);

    // Writes whole lines behind the committed ones, and sees to it that they are on the disk. Returns the state to
    // be committed. Throws host::Error.
    SpoolState Append(const SpoolState &state, std::string_view lines);

    // Makes the file the beginning of the generation.
    void Begin(int64_t generation);
    void Remove();

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

  private:
    void Open();
    [[noreturn]] void Fail(const std::string &doing) const;
    void WriteAt(int64_t offset, std::string_view bytes);
    void Cut(int64_t length);
    void Sync();
    void RenewStamps(int64_t from, int64_t to, int64_t wall_seconds);

    std::filesystem::path path_;
    host::Fd file_;
};

} // namespace inputs

#endif // AGENT_INPUTS_SPOOL_H
