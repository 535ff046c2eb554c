#include "agent/status/daemon_lock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/private_file.h"
#include "agent/host/store_file.h"
#include "agent/status/status_file.h"

namespace status {

namespace {

// What is locked: the first byte of the file, which may have none. The lock is owned by the
// process, unlike those of the named mutexes, because it tells who holds it. The kernel gives it up
// when the process ends, however that comes, so none is ever left behind.
struct flock WriteLock()
{
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = 1;
    return lock;
}

// Never removed: a daemon that removed it at its end could take it from under the next one, and a
// third would then lock another file of the same name.
std::filesystem::path LockPath(const std::filesystem::path &run_folder)
{
    return run_folder / "syslogmond.lock";
}

} // namespace

// The file is this user's alone: a lock that others may take could keep the daemon from starting.
DaemonLock::DaemonLock(const std::filesystem::path &run_folder)
    : fd_(host::OpenPrivateFile(LockPath(run_folder), O_RDWR | O_CREAT))
{
    const std::string path = LockPath(run_folder).string();
    if (fd_.get() < 0)
        throw host::Error("cannot open " + path, strerror(errno),
                          "make its folder writable, or run as root");
    struct flock lock = WriteLock();
    // It does not wait (F_SETLKW would): a second daemon is a mistake, to be told of at once.
    if (fcntl(fd_.get(), F_SETLK, &lock) == 0)
        return;
    const auto holder = Holder(run_folder);
    throw host::Error("cannot start the daemon",
                      "it is already running" +
                          (holder ? " as process " + std::to_string(*holder) : std::string()),
                      "stop that one first, or name another install root with --root");
}

// Asking for the holder takes nothing and needs no right to write. A file that is not there, or may
// not be read, is nobody's as far as can be seen from here.
std::optional<pid_t> DaemonLock::Holder(const std::filesystem::path &run_folder)
{
    const host::Fd fd(open(LockPath(run_folder).c_str(), O_RDONLY | O_CLOEXEC));
    struct flock lock = WriteLock();
    if (fd.get() < 0 || fcntl(fd.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return std::nullopt;
    return lock.l_pid;
}

// The lock of the run-time folder is asked first, because it is there without a store, too.
std::optional<pid_t> DaemonLock::Holder(const host::Layout &layout)
{
    const auto holder = Holder(layout.run);
    return holder ? holder : host::OwnerLock::Holder(layout.Store());
}

void DaemonLock::CheckStore(host::Host &host)
{
    const host::Layout &layout = host.layout();
    const auto holder = Holder(layout.run);
    const auto status = holder ? ReadStatus(layout.run) : std::nullopt;
    // No complaint where nothing is known: a daemon that has just started has not told its store
    // yet, and what an earlier one told does not count for it.
    if (!status || status->pid != *holder || status->store.empty() ||
        status->store == StoreName(host.store()))
        return;
    throw host::Error("cannot work with " + layout.Store().string(),
                      "the daemon, process " + std::to_string(*holder) +
                          ", works with another file: this one was put in its place while it ran",
                      "restart the daemon");
}

} // namespace status
