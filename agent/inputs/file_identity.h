// Which file is it? Rotation moves names from file to file, and a file system gives a freed inode number out
// again. The number together with the moment of the file's birth is used once; where no births are kept, as in ext2 with
// small inodes, together with how often it was given out before.
#ifndef AGENT_INPUTS_FILE_IDENTITY_H
#define AGENT_INPUTS_FILE_IDENTITY_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace inputs {

struct FileIdentity {
    // Numbers of devices change when the host starts anew, so it counts only where there is nothing better.
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t birth_ns = 0; // since 1970; 0: the file system does not tell
    uint32_t generation =
        0; // of the inode's number, where there is no birth; 0: that is not told either

    auto operator<=>(const FileIdentity &) const = default;

    // Is it of this file alone, also when that is gone?
    [[nodiscard]] bool IsUnique() const { return birth_ns != 0 || generation != 0; }
};

// What a look at a file shows.
struct FileLook {
    FileIdentity identity;
    uint64_t device = 0;
    bool is_regular = false;
    uint64_t size = 0;
    int64_t changed_ns = 0; // when its content was last written, since 1970
    bool has_name = true;   // false: it was removed and is open somewhere
};

// Nothing when it cannot be looked at; errno tells why. A symbolic link is followed.
std::optional<FileLook> LookAt(const std::string &path);
std::optional<FileLook> LookAt(int fd);

} // namespace inputs

#endif // AGENT_INPUTS_FILE_IDENTITY_H
