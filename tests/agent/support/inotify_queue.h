// Makes the kernel drop what it has to tell of a folder.
#ifndef TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H
#define TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H

#include <filesystem>
#include <fstream>

namespace test {

// Renames a file until whoever watches its folder, and takes nothing, has more events than the kernel keeps for him.
inline void FillInotifyQueue(const std::filesystem::path &file)
{
    int most = 16384;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    const std::filesystem::path other = file.string() + ".other";
    for (int events = 0; events <= most; events += 4) { // two of each renaming
        std::filesystem::rename(file, other);
        std::filesystem::rename(other, file);
    }
}

} // namespace test

#endif // TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H
