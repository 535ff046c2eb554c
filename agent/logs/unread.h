// Was everything checked that stood in the watched files at a certain moment? A pass that has ended
// says less: it passes over what it cannot read, and leaves lines for later for which there is no
// way to them at the moment.
//
// Marks are taken, something is done that reads the logs, and then it is asked what is left of the
// marked bytes. What is written in between does not count, so the answer can be "nothing" on a log
// that never comes to rest.
#ifndef AGENT_LOGS_UNREAD_H
#define AGENT_LOGS_UNREAD_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/monitor/module.h"

namespace logs {

// The size of each file of the sets at a moment, by its inode: rotation may give it another name.
struct FileMark {
    dev_t device = 0;
    ino_t inode = 0;
    int64_t size = 0;
};
using FileMarks = std::vector<FileMark>;

// The moment is this call's. What is no regular file, or cannot be looked at, has no mark. The
// module must be at rest in both calls. Both throw host::Error when the registry cannot be read.
FileMarks MarkWatchedFiles(monitor::Module &module, host::RegistryTree &registry);

// What of that is not checked by now, one sentence a file; empty: all was. A line that was not ended
// at that moment does not count, nor does a file that is not there.
std::vector<std::string> WhatIsUnread(monitor::Module &module, host::RegistryTree &registry,
                                      const FileMarks &marks);

} // namespace logs

#endif // AGENT_LOGS_UNREAD_H
