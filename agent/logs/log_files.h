// The files that the monitor watches, and the reading of a part of one: for showing and checking
// them.
//
// Reads the settings as they are stored. The monitor takes a new name when it is woken for it, so
// for a moment it may still follow the file before.
#ifndef AGENT_LOGS_LOG_FILES_H
#define AGENT_LOGS_LOG_FILES_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"

namespace logs {

// The name that is set for the customer file (kMonitorKey) or the file monitor's target (kFileMonitorKey); empty: none
// is. Throws host::Error when the registry cannot be read.
std::string NameOfFile(host::RegistryTree &registry, const char *key);

// The system log, and the customer file and the file monitor's target when they are set.
// The names are as they were set, whether such files are there or not. Throws host::Error when the
// registry cannot be read.
std::vector<std::filesystem::path> WatchedPaths(host::RegistryTree &registry);

// At most so many bytes of a file from an offset on; nothing when it is not a regular file or cannot be
// read. Nothing else is ever opened: a pipe would be waited for.
std::string ReadPart(const std::filesystem::path &path, int64_t offset, size_t bytes);

// Why a log cannot be read, as it stands in messages; empty: it can.
// Asked of this process and this user, so a command that another user runs can hear another answer
// than the daemon would.
std::string WhyUnreadable(const std::filesystem::path &path);

} // namespace logs

#endif // AGENT_LOGS_LOG_FILES_H
