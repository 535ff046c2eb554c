// Files and folders that belong to the agent's own user: what the log says can be secret, and a lock that
// others may take could keep the daemon from starting. The modes are set here and do not depend on the umask.
//
// A group may be let in to read: whoever sets up the host gives one of the agent's folders a group and the
// mode 0750, and then what reading commands need of the files in it (store, status, trace log) can be read by
// that group. Locks and all else stay private. No mode but this one counts as such a wish.
#ifndef AGENT_HOST_PRIVATE_FILE_H
#define AGENT_HOST_PRIVATE_FILE_H

#include <filesystem>
#include <span>
#include <string_view>
#include <sys/types.h>

#include "agent/host/waitable.h"

namespace host {

// The modes of all that the agent makes: its user's alone, and those of what a group may read.
constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kReadableFile = 0640;
constexpr mode_t kReadableFolder = 0750;

// Opens or creates a file (open's flags; O_CLOEXEC and O_NOFOLLOW are added). One that is there and
// belongs to this user is made private, too. Returns no descriptor, and sets errno, when it cannot
// be opened.
Fd OpenPrivateFile(const std::filesystem::path &path, int flags);

// As OpenPrivateFile, of a file that the readers of its folder may read.
Fd OpenReadableFile(const std::filesystem::path &path, int flags);

// Lets the readers of its folder, if there are some, read a file that is there and belongs to this user. Tells whether
// they may now; a failure is not told otherwise. Opens nothing.
bool MakeReadable(const std::filesystem::path &file);

// Makes a file private that is there and belongs to this user; any other is left alone, and a
// failure is not told: it is tried for files of earlier versions, at every start.
void MakePrivate(const std::filesystem::path &file);

// Creates the folder, and the folders above it as the umask wants them. One that is there is made
// private, unless it is one with readers, when it belongs to this user and holds nothing but files whose names begin
// with one of these texts: then the agent made it. A folder that is used for something else, too, such as /run,
// is left as it is. Throws StoreError when it cannot be made.
void CreatePrivateFolder(const std::filesystem::path &folder,
                         std::span<const std::string_view> own_names);

} // namespace host

#endif // AGENT_HOST_PRIVATE_FILE_H
