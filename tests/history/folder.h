// "/var/log" twice: in memory, where the oracle reads it, and on disk, where the module does. Every change
// is made to both, so neither side ever looks at the other's.
#ifndef TESTS_HISTORY_FOLDER_H
#define TESTS_HISTORY_FOLDER_H

#include <cstdint>
#include <ctime>
#include <map>
#include <string>

namespace history {

enum class Kind { kFile, kFolder, kDeadLink };

// A name of the folder, and what it stands for.
struct Entry {
    Kind kind = Kind::kFile;
    std::string bytes;
    uint64_t inode = 0;  // as the disk gave it
    time_t modified = 0; // by the clock of the history
};

// The half on disk. Made to be fast: a history changes its files a few dozen times.
class Disk {
  public:
    explicit Disk(const std::string &path);
    ~Disk();
    Disk(const Disk &) = delete;
    Disk &operator=(const Disk &) = delete;

    // Appends to a file, which is created when it is missing. Returns its inode number.
    uint64_t Append(const std::string &name, const std::string &bytes, time_t when) const;
    void Overwrite(const std::string &name, size_t at, const std::string &bytes, time_t when) const;
    void Truncate(const std::string &name, size_t size, time_t when) const;
    uint64_t MakeFolder(const std::string &name, time_t when) const;
    void MakeDeadLink(const std::string &name) const;
    void Rename(const std::string &from, const std::string &to) const;
    void Remove(const std::string &name, Kind kind) const;

  private:
    int folder_;
};

class Folder {
  public:
    explicit Folder(const Disk *disk) : disk_(disk) {}

    [[nodiscard]] const Entry *Find(const std::string &name) const;
    [[nodiscard]] const std::map<std::string, Entry> &entries() const { return entries_; }
    [[nodiscard]] bool Has(const std::string &name) const { return Find(name) != nullptr; }
    [[nodiscard]] bool HasFile(const std::string &name) const;
    [[nodiscard]] size_t Size(const std::string &name) const; // 0 when there is no such file

    void Append(const std::string &name, const std::string &bytes, time_t when);
    void Overwrite(const std::string &name, size_t at, const std::string &bytes, time_t when);
    void Truncate(const std::string &name, size_t size, time_t when);
    void MakeFolder(const std::string &name, time_t when);
    void MakeDeadLink(const std::string &name);
    void Rename(const std::string &from, const std::string &to); // `to` is replaced
    void Remove(const std::string &name);
    void Clear();

  private:
    std::map<std::string, Entry> entries_;
    const Disk *disk_;
};

} // namespace history

#endif // TESTS_HISTORY_FOLDER_H
