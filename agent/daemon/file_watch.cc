#include "agent/daemon/file_watch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/absent.h"

namespace syslogmond {

namespace fs = std::filesystem;

namespace {

// A directory on the way to a file was taken away. IN_ONLYDIR lets the watch fail if something else
// has the name by now, which the next plan sees.
constexpr uint32_t kGone = IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR;
// A name appeared in a directory. A change of rights can make a file readable.
constexpr uint32_t kAppeared = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
// A file was written, or lost its name, which changes its link count.
constexpr uint32_t kWritten = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;

// As many symbolic links as the kernel follows in one path. Links that lead in a circle end here,
// too.
constexpr int kMaxLinks = 40;
// How often the plan is made anew at once because the names moved under our hands. Names that move
// on make events on the watches that are there, so nothing is lost by giving up.
constexpr int kMaxTries = 8;

// ---- the plan ----

using Point = FileWatch::Point;
using Plan = FileWatch::Plan;

// The point of an inode, added when it is not in the plan yet. By inode, because inotify gives one
// watch to an inode: two paths to it would overwrite each other's events. The reference is good
// until the next point is added.
Point &PointOf(Plan *plan, const fs::path &path, const struct stat &status)
{
    for (Point &point : *plan) {
        if (point.device == status.st_dev && point.inode == status.st_ino)
            return point;
    }
    Point point;
    point.path = path;
    point.device = status.st_dev;
    point.inode = status.st_ino;
    plan->push_back(std::move(point));
    return plan->back();
}

void AskForName(Point *directory, const std::string &name)
{
    directory->events |= kAppeared;
    if (std::find(directory->names.begin(), directory->names.end(), name) == directory->names.end())
        directory->names.push_back(name);
}

// The names of a path still to be walked, first one first.
using Names = std::deque<std::string>;

void PrependNames(const fs::path &path, Names *names)
{
    Names front;
    for (const fs::path &name : path.relative_path()) {
        if (!name.empty() && name != ".")
            front.push_back(name);
    }
    names->insert(names->begin(), front.begin(), front.end());
}

// Walks along a path, name by name, and adds what must be watched for it. Ends where a name is
// missing.
void PlanFile(const fs::path &file, Plan *plan)
{
    fs::path here = "/";
    Names names;
    PrependNames(file, &names);
    for (int links = 0; !names.empty();) {
        struct stat status {};
        // A directory that is missing, or may not be read: the one above it watches for the name
        // already.
        if (stat(here.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
            return;
        Point &directory = PointOf(plan, here, status);
        directory.events |= kGone;
        const std::string name = names.front();
        names.pop_front();
        const fs::path next = here / name;
        if (lstat(next.c_str(), &status) != 0) {
            AskForName(&directory, name);
            return;
        }
        if (S_ISLNK(status.st_mode)) {
            // Its exchange shows in this directory. What it leads to is walked below, in place of
            // its name.
            AskForName(&directory, name);
            std::error_code failed;
            const fs::path target = fs::read_symlink(next, failed);
            if (failed || ++links > kMaxLinks)
                return;
            PrependNames(target, &names);
            // A relative one goes on from the directory in which it stands.
            if (target.is_absolute())
                here = "/";
        } else if (names.empty()) {
            AskForName(&directory, name);
            // Nothing else is watched for its content: the monitor reads nothing else.
            if (S_ISREG(status.st_mode)) {
                Point &point = PointOf(plan, next, status);
                point.events |= kWritten;
                point.is_file = true;
            }
        } else {
            here = next;
        }
    }
}

// Two files share what lies on the way to both. Equal plans are equal in this order, which the
// files give.
Plan PlanFor(const std::vector<fs::path> &files)
{
    Plan plan;
    for (const fs::path &file : files)
        PlanFile(file, &plan);
    return plan;
}

} // namespace

// ---- the watches ----

bool FileWatch::Follow(std::vector<fs::path> files)
{
    files_ = std::move(files);
    return SetUp();
}

bool FileWatch::LookAgain()
{
    return SetUp();
}

void FileWatch::Fail(const std::string &what, int error_number)
{
    // Two limits have errors of their own, whose usual texts lead the wrong way: ENOSPC is not
    // about the disk.
    std::string cause = strerror(error_number);
    if (error_number == ENOSPC)
        cause = "the limit of inotify watches is reached; raise fs.inotify.max_user_watches with "
                "sysctl";
    else if (error_number == EMFILE)
        cause = "the limit of inotify instances, or of open files, is reached; raise "
                "fs.inotify.max_user_instances with sysctl";
    problem_ = "cannot watch " + what + " for changes: " + cause;
}

void FileWatch::AddWatches()
{
    points_.clear();
    problem_.clear();
    lost_ = false;
    if (mounts_.get() < 0)
        // Opened once: it reports each change since the last poll, so a new one would miss what
        // came between.
        mounts_ = host::Fd(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    // A fresh instance: whatever was queued, or still watched, of the plan before is gone with it.
    // Given up before the new one is made: the number of instances is limited.
    inotify_ = host::Fd();
    inotify_ = host::Fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (inotify_.get() < 0) {
        Fail("the monitored files", errno);
        return;
    }
    for (const Point &point : plan_) {
        const int watch = inotify_add_watch(inotify_.get(), point.path.c_str(), point.events);
        if (watch >= 0)
            // Into plan_, which stays as it is until the watches are made anew.
            points_[watch] = &point;
        else if (!host::IsAbsent(errno)) // those are gone again: see SetUp
            Fail(point.path.string(), errno);
    }
}

bool FileWatch::SetUp()
{
    if (files_.empty()) {
        const bool changed = !plan_.empty();
        // Closes everything: who watches nothing shall not be woken.
        *this = FileWatch();
        return changed;
    }
    Plan plan = PlanFor(files_);
    // Something happened to a name, and it is as before. A watch that could not be set up is tried
    // again, though.
    if (plan == plan_ && problem_.empty() && !lost_)
        return false;
    bool changed = plan != plan_ || lost_;
    const std::string problem_before = problem_;
    for (int tries = 0; tries < kMaxTries; ++tries) {
        plan_ = std::move(plan);
        AddWatches();
        // What happened between the look at the names and the watch on them was not seen.
        plan = PlanFor(files_);
        if (plan == plan_)
            break;
        changed = true;
    }
    return changed || problem_ != problem_before;
}

// ---- what has happened ----

void FileWatch::Note(const inotify_event &event, News *news)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        *news = {true, true}; // something was lost
        return;
    }
    // An event that was queued for a watch which is gone.
    const auto found = points_.find(event.wd);
    if (found == points_.end())
        return;
    const Point &point = *found->second;
    if ((event.mask & (IN_IGNORED | IN_UNMOUNT)) != 0) {
        // The kernel has taken the watch away: the inode is gone, or its file system.
        lost_ = true;
        news->names = true;
    } else if (event.len > 0) {
        // An entry of a directory. Most are of other logs, and of no interest.
        const auto &names = point.names;
        if (std::find(names.begin(), names.end(), event.name) != names.end())
            news->names = true;
    } else if ((event.mask & IN_MODIFY) != 0) {
        news->content = true;
    } else if (point.is_file || (event.mask & IN_ATTRIB) == 0) {
        news->names = true; // the attributes of a directory are of no interest
    }
}

FileWatch::News FileWatch::Read()
{
    News news;
    // Some hundred events. Room for one with the longest name is what the kernel asks for at least.
    alignas(inotify_event) char bytes[16384];
    ssize_t got = 0;
    // To the end, which is EAGAIN: what is left would wake the loop again.
    while ((got = read(inotify_.get(), bytes, sizeof bytes)) > 0) {
        for (ssize_t at = 0; at < got;) {
            const auto *event = reinterpret_cast<const inotify_event *>(bytes + at);
            Note(*event, &news);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    return news;
}

bool FileWatch::Take()
{
    if (inotify_.get() < 0)
        return false;
    const News news = Read();
    const bool changed = news.names && SetUp();
    return news.content || changed;
}

} // namespace syslogmond
