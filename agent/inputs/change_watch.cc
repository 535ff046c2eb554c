#include "agent/inputs/change_watch.h"

#include <cerrno>
#include <sys/inotify.h>
#include <unistd.h>

namespace inputs {

namespace {

constexpr uint32_t kNames = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR |
                            IN_MOVE_SELF | IN_DELETE_SELF;
// Of the limit of the kernel for one user, which errno tells of then.
bool IsExhausted()
{
    return errno == ENOSPC || errno == ENOMEM;
}

// The last name of an open file goes with a change of its attributes.
constexpr uint32_t kContent = IN_MODIFY;

} // namespace

ChangeWatch::ChangeWatch() : inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

void ChangeWatch::Remove(int watch)
{
    if (watch >= 0)
        inotify_rm_watch(fd(), watch);
}

void ChangeWatch::WatchFolders(const std::set<std::string> &folders)
{
    for (auto it = folders_.begin(); it != folders_.end();) {
        if (folders.contains(it->first)) {
            ++it;
            continue;
        }
        Remove(it->second);
        it = folders_.erase(it);
    }
    refused_folders_.clear();
    for (const std::string &folder : folders) {
        // One that has gone and come back is watched anew; for any other this changes nothing.
        const int watch = inotify_add_watch(fd(), folder.c_str(), kNames);
        if (watch >= 0)
            folders_[folder] = watch;
        else if (IsExhausted())
            refused_folders_.insert(folder);
    }
}

bool ChangeWatch::WatchFile(int64_t number, int file)
{
    if (files_.contains(number))
        return false;
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const int watch = inotify_add_watch(fd(), path.c_str(), kContent | IN_MASK_CREATE);
    refused_files_.erase(number);
    if (watch < 0 && IsExhausted())
        refused_files_.insert(number);
    if (watch < 0)
        return false; // a folder's watch cannot be meant, and a look now and then finds the change
    files_[number] = watch;
    numbers_[watch] = number;
    return true;
}

void ChangeWatch::ForgetFile(int64_t number)
{
    refused_files_.erase(number);
    const auto found = files_.find(number);
    if (found == files_.end())
        return;
    numbers_.erase(found->second);
    Remove(found->second);
    files_.erase(found);
}

std::string ChangeWatch::Problem() const
{
    if (fd() < 0)
        return "the kernel tells nothing of changes in files: they are found some seconds later; "
               "raise fs.inotify.max_user_instances with sysctl";
    const size_t refused = refused_folders_.size() + refused_files_.size();
    if (refused == 0)
        return {};
    return "the kernel has no watches left for " + std::to_string(refused) +
           " files and folders of this input: what changes there is found some seconds later; "
           "raise "
           "fs.inotify.max_user_watches with sysctl";
}

ChangeWatch::News ChangeWatch::Take()
{
    News news;
    alignas(inotify_event) char buffer[size_t{16} * 1024];
    for (;;) {
        const ssize_t count = read(fd(), buffer, sizeof buffer);
        if (count <= 0)
            return news;
        for (ssize_t at = 0; at < count;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if ((event->mask & IN_Q_OVERFLOW) != 0)
                news.everything = true;
            else if ((event->mask & IN_MODIFY) != 0 && numbers_.contains(event->wd))
                news.files.insert(numbers_[event->wd]);
            else if ((event->mask & (kNames & ~static_cast<uint32_t>(IN_ONLYDIR))) != 0)
                news.names = true;
        }
    }
}

} // namespace inputs
