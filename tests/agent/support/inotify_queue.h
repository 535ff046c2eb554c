// Makes the kernel drop what it has to tell of a folder.
#ifndef TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H
#define TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H

#include <filesystem>
#include <fstream>

namespace test {

// So many events the kernel keeps for whoever does not take them. What comes behind them, it drops.
inline int MostInotifyEvents()
{
    int most = 16384;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> most;
    return most;
}

// Renames a file until whoever watches its folder has no room left for events.
inline void FillInotifyQueue(const std::filesystem::path &file)
{
    const std::filesystem::path other = file.string() + ".other";
    for (int events = 0; events <= MostInotifyEvents();
         events += 2) { // at least one of each renaming
        std::filesystem::rename(file, other);
        std::filesystem::rename(other, file);
    }
}

} // namespace test

#endif // TESTS_AGENT_SUPPORT_INOTIFY_QUEUE_H
