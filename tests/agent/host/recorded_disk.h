// What SQLite does to its files, recorded below it: each write, truncation, synchronisation and removal, in order.
// From a record and a moment in it, the files that a crash at that moment can leave are made.
#ifndef TESTS_AGENT_HOST_RECORDED_DISK_H
#define TESTS_AGENT_HOST_RECORDED_DISK_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace test {

struct DiskStep {
    enum class Kind { kWrite, kTruncate, kSync, kRemove };
    Kind kind;
    std::string file;   // name without its folder
    int64_t offset = 0; // of a write; the length that a truncation leaves
    std::string bytes;
};

// Records what this process does, from the construction on, to the files of SQLite in a folder, but for the shared
// memory, which no crash leaves. One at a time.
class DiskRecorder {
  public:
    explicit DiskRecorder(std::filesystem::path folder);
    ~DiskRecorder();
    DiskRecorder(const DiskRecorder &) = delete;
    DiskRecorder &operator=(const DiskRecorder &) = delete;

    [[nodiscard]] const std::vector<DiskStep> &steps() const;
};

// The contents of files, by their names.
using Files = std::map<std::string, std::string>;

Files FilesIn(const std::filesystem::path &folder);
void WriteFiles(const std::filesystem::path &folder, const Files &files);

// How much of a step has come to the disk.
enum class Reached { kWhole, kNothing, kHalf, kFirstSector, kFirstPage };

// The files as they are when the steps before `end` were made, each as far as `reached` says of it. Missing ones are
// whole.
Files After(Files files, const std::vector<DiskStep> &steps, size_t end,
            const std::map<size_t, Reached> &reached);

// The steps before `end` that a crash can undo: writes and truncations of a file behind its last synchronisation.
// What becomes of names is taken to be in order and on the disk, as journalling file systems do it.
std::vector<size_t> NotSynced(const std::vector<DiskStep> &steps, size_t end);

} // namespace test

#endif // TESTS_AGENT_HOST_RECORDED_DISK_H
