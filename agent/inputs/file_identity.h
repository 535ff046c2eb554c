// Which file is it? Rotation moves names from file to file, and a file system gives a freed inode number out
// again. The number together with the moment of the file's birth is used once.
#ifndef AGENT_INPUTS_FILE_IDENTITY_H
#define AGENT_INPUTS_FILE_IDENTITY_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace inputs {

struct FileIdentity {
    // Numbers of devices change when the host starts anew, so it counts only where there is no birth.
    uint64_t device = 0;
    uint64_t inode = 0;
    int64_t birth_ns = 0; // since 1970; 0: the file system does not tell

    auto operator<=>(const FileIdentity &) const = default;
};

// What a look at a file shows.
struct FileLook {
    FileIdentity identity;
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
