// Files and folders that belong to the agent's own user and to nobody else: what the log says can be
// secret, and a lock that others may take could keep the daemon from starting. The modes are set
// here and do not depend on the umask. Nothing is shared with a group.
#ifndef AGENT_HOST_PRIVATE_FILE_H
#define AGENT_HOST_PRIVATE_FILE_H

#include <filesystem>
#include <span>
#include <string_view>
#include <sys/types.h>

#include "agent/host/waitable.h"

namespace host {

// The modes of all that the agent makes: its user's alone.
constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kPrivateFolder = 0700;

// Opens or creates a file (open's flags; O_CLOEXEC and O_NOFOLLOW are added). One that is there and
// belongs to this user is made private, too. Returns no descriptor, and sets errno, when it cannot
// be opened.
Fd OpenPrivateFile(const std::filesystem::path &path, int flags);

// Makes a file private that is there and belongs to this user; any other is left alone, and a
// failure is not told: it is tried for files of earlier versions, at every start.
void MakePrivate(const std::filesystem::path &file);

// Creates the folder, and the folders above it as the umask wants them. One that is there is made
// private when it belongs to this user and holds nothing but files whose names begin with one of
// these texts: then the agent made it. A folder that is used for something else, too, such as /run,
// is left as it is. Throws StoreError when it cannot be made.
void CreatePrivateFolder(const std::filesystem::path &folder,
                         std::span<const std::string_view> own_names);

} // namespace host

#endif // AGENT_HOST_PRIVATE_FILE_H
