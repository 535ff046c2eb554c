// Where the monitor stands in each file that it watches: for showing, not for reading on.
//
// The module is asked, by the functions that a pass uses itself: which files are the backups, where the stored
// line is found, what is behind it. So nothing else can come out here than what the next pass will do. It is asked
// in this process, at this moment: the daemon may be stopped, or behind.
#ifndef AGENT_LOGS_PLACES_H
#define AGENT_LOGS_PLACES_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/monitor/module.h"

namespace logs {

// The role of the customer file while it is the one by which the monitor gets what inputs read.
constexpr char kSpoolRole[] = "inputs' spool";

// A file, and how far the monitor has come with it. The fields about the place are set all together
// or not at all; without them, `problem` says why. It may say something with them, too: the place
// is known, and the file of that name cannot be read at the moment.
struct WatchedFile {
    std::string role; // "system log", "customer file" or "inputs' spool", "file monitor"
    std::filesystem::path path;
    std::vector<std::filesystem::path> backups; // newest first, as the monitor looks for its place
    std::filesystem::path resume_file;          // which of all these holds the place, if any does
    std::optional<int64_t>
        position; // byte offset of the last line checked, -1 before the first one; in the file
                  // monitor's target, of the first line that is not checked
    std::optional<int64_t> done;   // where the first line that is not checked begins
    std::optional<int64_t> behind; // bytes that are not checked yet
    std::string problem;           // empty: none
};

// The system log, and the customer file and the file monitor's target when they are set. The module must be at
// rest. Throws host::Error when the registry cannot be read.
std::vector<WatchedFile> ReadWatchedFiles(monitor::Module &module, host::RegistryTree &registry);

// The file and its backups, newest first.
std::vector<std::filesystem::path> RotationSet(const WatchedFile &file);

} // namespace logs

#endif // AGENT_LOGS_PLACES_H
