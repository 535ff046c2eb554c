#include "agent/logs/log_files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "platform/contract.h"

namespace logs {

namespace fs = std::filesystem;

std::string NameOfFile(host::RegistryTree &registry, const char *key)
{
    const auto found = registry.Find(host::kRootKey, key);
    const auto value = found ? registry.Get(*found, kFileNameValue) : std::nullopt;
    return value ? host::TextOf(*value) : std::string();
}

std::vector<fs::path> WatchedPaths(host::RegistryTree &registry)
{
    std::vector<fs::path> paths = {kSystemLog};
    for (const char *key : {kMonitorKey, kFileMonitorKey}) {
        const std::string name = NameOfFile(registry, key);
        if (!name.empty())
            paths.emplace_back(name);
    }
    return paths;
}

std::string ReadPart(const fs::path &path, int64_t offset, size_t bytes)
{
    // What it is, is asked of the open file: the name may stand for something else a moment later.
    // Until then O_NONBLOCK keeps a pipe without a writer from holding the command, O_NOCTTY a
    // terminal from becoming its own.
    const host::Fd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    std::string part(bytes, '\0');
    size_t have = 0;
    while (have < bytes) {
        const ssize_t got =
            pread(file.get(), part.data() + have, bytes - have, offset + static_cast<off_t>(have));
        if (got < 0 && errno == EINTR)
            continue;
        // The end of the file, or an error: what was read so far is what there is to show.
        if (got <= 0)
            break;
        have += static_cast<size_t>(got);
    }
    part.resize(have);
    return part;
}

std::string WhyUnreadable(const fs::path &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "it is not a regular file";
    // Asked, not tried: what cannot be read is told of, and nothing is opened for it.
    if (access(path.c_str(), R_OK) != 0)
        return strerror(errno);
    return {};
}

} // namespace logs
