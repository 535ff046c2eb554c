// The content of a log file by offset, whether it is compressed or not.
#ifndef AGENT_INPUTS_LOG_CONTENT_H
#define AGENT_INPUTS_LOG_CONTENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/host/waitable.h"
#include "agent/inputs/folder_view.h"
#include "agent/inputs/rotated_names.h"

struct archive;

namespace inputs {

class LogContent {
  public:
    // Opens a regular file for reading, and nothing else; it never waits for a FIFO. Throws host::Error.
    explicit LogContent(const std::string &path) : LogContent(path, IsNameOfRotated(NameOf(path)))
    {
    }
    // `may_be_packed`: without, its content is what stands in it. Nobody writes into a compressed file, and who writes the
    // first line of a log could have it taken for one.
    LogContent(const std::string &path, bool may_be_packed);
    ~LogContent();
    LogContent(const LogContent &) = delete;
    LogContent &operator=(const LogContent &) = delete;

    // Is it compressed with gzip, xz, zstd or bzip2? By its first bytes. Known when something was read.
    [[nodiscard]] bool IsPacked();

    // Reads up to `size` bytes from this offset of the content; 0: there are none. Going back in a compressed
    // file reads it from its beginning. Throws host::Error, which names the file, for one that cannot be read
    // or is damaged; of a compressed file that is cut off, what is there can be read before that.
    size_t Read(uint64_t offset, char *buffer, size_t size);

    // Sees to it that what was written into the file by now is on the disk.
    void Sync() const;
    // Has that begun, and does not wait for it. What Sync then waits for, the file system puts to the disk together.
    void BeginSync() const;

    [[nodiscard]] int fd() const { return file_.get(); }
    [[nodiscard]] const std::string &path() const { return path_; }

  private:
    void Unpack();
    [[noreturn]] void Refuse(const std::string &damage);
    size_t ReadPlain(uint64_t offset, char *buffer, size_t size);
    size_t ReadPacked(uint64_t offset, char *buffer, size_t size);
    size_t ReadOn(char *buffer, size_t size);

    struct CloseArchive {
        void operator()(archive *archive) const;
    };

    std::string path_;
    bool may_be_packed_;
    host::Fd file_;
    enum class Packing { kNotKnown, kPlain, kPacked } packing_ = Packing::kNotKnown;
    std::unique_ptr<archive, CloseArchive> archive_;
    uint64_t archive_at_ = 0; // offset of the content that it delivers next
    bool is_empty_ =
        false; // nothing was compressed, of which the library reads nothing, not even an end
};

} // namespace inputs

#endif // AGENT_INPUTS_LOG_CONTENT_H
