// Where the monitor stands in each file that it watches: for showing, not for reading on.
#ifndef AGENT_LOGS_LOG_FILES_H
#define AGENT_LOGS_LOG_FILES_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"

namespace logs {

struct WatchedFile {
    std::string role; // "system log", "customer file", "file monitor"
    std::filesystem::path path;
    std::filesystem::path
        resume_file; // the file of the rotation set that holds the resume point, if any
    std::optional<int64_t> position; // byte offset of the last line checked, respectively of the
                                     // first line that is not
    std::optional<int64_t> done;     // where the first line that is not checked begins
    std::optional<int64_t> behind;   // bytes that are not checked yet
    std::string problem;             // empty: none
};

// The system log, and the customer file and the file-monitor target when they are set.
std::vector<WatchedFile> ReadWatchedFiles(host::RegistryTree &registry);

// Their paths alone.
std::vector<std::filesystem::path> WatchedPaths(host::RegistryTree &registry);

// A watched file and its backups, newest first: the order in which the monitor looks for its place.
std::vector<std::filesystem::path> RotationSet(const std::filesystem::path &live);

// At most so many bytes of a file from an offset on; nothing when it is no regular file or cannot be
// read. Nothing else is ever opened: a pipe would be waited for.
std::string ReadPart(const std::filesystem::path &path, int64_t offset, size_t bytes);

// Why a log cannot be read, as it stands in messages; empty: it can.
std::string WhyUnreadable(const std::filesystem::path &path);

} // namespace logs

#endif // AGENT_LOGS_LOG_FILES_H
