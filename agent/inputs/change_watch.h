// Tells which files of an input may have changed, by inotify. Changes that another machine makes in a network
// file system are not seen; who uses this looks at everything now and then as well.
#ifndef AGENT_INPUTS_CHANGE_WATCH_H
#define AGENT_INPUTS_CHANGE_WATCH_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "agent/host/waitable.h"

namespace inputs {

class ChangeWatch {
  public:
    ChangeWatch();

    // To be polled for POLLIN; -1: nothing can be watched.
    [[nodiscard]] int fd() const { return inotify_.get(); }

    // Watches the names in these folders, and in no others.
    void WatchFolders(const std::set<std::string> &folders);
    // Watches the content of an open file, which is then told of by its number; and no longer.
    // True: from now on.
    bool WatchFile(int64_t number, int fd);
    void ForgetFile(int64_t number);
    // Why not all is watched, as a sentence with what to do about it; empty: all is. What is not watched is to be looked at
    // now and then.
    [[nodiscard]] std::string Problem() const;

    struct News {
        bool names = false;      // a file has appeared, gone, or got another name
        bool everything = false; // too much has happened to say what
        std::set<int64_t> files; // were written
    };
    News Take();

  private:
    void Remove(int watch);

    host::Fd inotify_;
    std::map<std::string, int> folders_; // watches of folders
    std::map<int64_t, int> files_;       // watches of files
    std::map<int, int64_t> numbers_;     // the reverse
    // What the kernel has refused for want of watches, and why.
    std::set<std::string> refused_folders_;
    std::set<int64_t> refused_files_;
};

} // namespace inputs

#endif // AGENT_INPUTS_CHANGE_WATCH_H
