// Tells when one of a few files may have changed, without looking at them: by inotify.
//
// Watched are
//   the file itself         for its content; not its directory, in which other logs are written
//   the file's directory    for a file that appears under the name (the log is rotated)
//   each directory above it for being moved or removed, and, where the next one is missing, for its
//                           appearing
//   each symbolic link on the way, for being exchanged
// and the table of mounts, because a file system that is mounted over a directory hides what is
// watched there.
//
// What is to be watched is a plan, worked out from the names. When something happened to a name, it
// is worked out again; when it has become another one, all watches are set up anew and the files
// count as changed.
//
// Changes that another machine makes in a network file system are not seen.
#ifndef AGENT_DAEMON_FILE_WATCH_H
#define AGENT_DAEMON_FILE_WATCH_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "agent/host/waitable.h"

struct inotify_event;

namespace syslogmond {

class FileWatch {
  public:
    // Watches these files from now on; none: nothing is open. True when something else is watched
    // than before, so that a change before this call may have been missed.
    bool Follow(std::vector<std::filesystem::path> files);

    // To be polled for POLLIN: something has happened. -1: nothing is watched.
    [[nodiscard]] int ChangesFd() const { return inotify_.get(); }
    // To be polled for POLLPRI: the table of mounts has changed. -1: not watched.
    [[nodiscard]] int MountsFd() const { return mounts_.get(); }

    // Takes what has happened. True when a file may have changed.
    bool Take();
    // The table of mounts has changed, or a watch could not be set up before. True when something
    // else is watched now, or a problem has come or gone.
    bool LookAgain();

    // Why not everything could be watched; empty: nothing is wrong.
    [[nodiscard]] const std::string &problem() const { return problem_; }

    // One watched inode.
    struct Point {
        std::filesystem::path path;
        uint32_t events = 0;            // inotify's IN_ flags
        std::vector<std::string> names; // of a directory: the entries that are asked for
        uint64_t device = 0;
        uint64_t inode = 0;
        bool is_file = false; // one of the files itself

        bool operator==(const Point &) const = default;
    };
    using Plan = std::vector<Point>;

  private:
    // What the events that were read come to.
    struct News {
        bool content = false; // a file was written
        bool names = false;   // the plan may have become another one
    };
    News Read();
    void Note(const inotify_event &event, News *news);
    bool SetUp();
    void AddWatches();
    void Fail(const std::string &what, int error_number);

    // As they were named; plan and watches follow from them.
    std::vector<std::filesystem::path> files_;
    Plan plan_;
    bool lost_ = false; // a watch of the plan is no longer there
    // By watch descriptor; they point into plan_.
    std::map<int, const Point *> points_;
    host::Fd inotify_;
    host::Fd mounts_;
    std::string problem_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_FILE_WATCH_H
