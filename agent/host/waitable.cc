#include "agent/host/waitable.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// Of FIFOs and mutex files: who may open them may wake the monitor, or keep it waiting.
constexpr mode_t kOwnerOnly = 0600;

// The named mutexes that are open in this process, by their files: a lock of the kernel's is the
// process's, or at least the descriptor's, so what names one mutex must share one object.
std::mutex named_mutexes_guard;
std::map<std::string, std::weak_ptr<Mutex>> named_mutexes;

void CheckName(const std::string &name)
{
    if (name.size() > 200 || name.find('/') != std::string::npos)
        throw Error("cannot use the name " + name.substr(0, 40),
                    "it is longer than 200 bytes or holds a slash", "choose another name");
}

[[noreturn]] void FailToOpen(const fs::path &path, int error_number)
{
    throw Error("cannot open " + path.string(), strerror(error_number),
                "make its folder writable, or run as root");
}

Fd OpenFifo(const fs::path &path)
{
    // One that is there is used: nobody removes it, since another process may have it open.
    if (mkfifo(path.c_str(), kOwnerOnly) != 0 && errno != EEXIST)
        FailToOpen(path, errno);
    // Read and write, so that opening never waits and the FIFO keeps its bytes.
    Fd fd(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    struct stat status {};
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0)
        FailToOpen(path, errno);
    if (!S_ISFIFO(status.st_mode))
        throw Error("cannot use " + path.string(), "it is not a FIFO", "remove it and try again");
    return fd;
}

// Returns whether it is locked. A signal does not end the wait: who stayed the only user by one would keep all others waiting.
bool LockWhole(int fd, int operation)
{
    while (flock(fd, operation) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

// Is nobody else using the FIFO? From now on this process counts as a user. An advisory lock tells:
// shared by all users, and exclusive for a moment to the first.
bool IsFirstUser(int fd)
{
    const bool first = LockWhole(fd, LOCK_EX | LOCK_NB);
    // Held until the descriptor is closed: the kernel ends it with the process, however that ends.
    LockWhole(fd, LOCK_SH);
    return first;
}

// One byte stands for the whole file, which is empty.
struct flock WholeFile(short type)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 1;
    return lock;
}

} // namespace

Fd::~Fd()
{
    if (fd_ >= 0)
        close(fd_);
}

Fd &Fd::operator=(Fd &&other) noexcept
{
    if (this != &other) {
        if (fd_ >= 0)
            close(fd_);
        fd_ = other.Release();
    }
    return *this;
}

void Ring(const Fd &bell) noexcept
{
    // Eight bytes, as an eventfd wants them.
    const uint64_t one = 1;
    while (write(bell.get(), &one, sizeof one) < 0 && errno == EINTR)
        continue;
}

std::shared_ptr<WakeEvent> WakeEvent::Create(const fs::path &folder, const std::string &name,
                                             bool manual_reset, bool initial_state)
{
    if (name.empty()) {
        Fd fd(eventfd(initial_state ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC));
        if (fd.get() < 0)
            throw Error("cannot create an event", strerror(errno), "raise the limit of open files");
        return std::make_shared<WakeEvent>(name, std::move(fd), manual_reset);
    }
    CheckName(name);
    Fd fd = OpenFifo(folder / (name + ".event"));
    const bool first = IsFirstUser(fd.get());
    auto event = std::make_shared<WakeEvent>(name, std::move(fd), manual_reset);
    if (first && initial_state)
        event->Set();
    return event;
}

WakeEvent::WakeEvent(std::string name, Fd fd, bool manual_reset)
    : Waitable(std::move(name)), fd_(std::move(fd)), manual_reset_(manual_reset)
{
}

void WakeEvent::Set()
{
    Ring(fd_); // a FIFO that is full is signalled already
}

bool WakeEvent::IsReady()
{
    pollfd waiting{fd_.get(), POLLIN, 0};
    return poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLIN) != 0;
}

bool WakeEvent::Drain()
{
    bool was_set = false;
    char bytes[4096];
    // All bytes: as many signals as there were, they are one.
    ssize_t got = 0;
    while ((got = read(fd_.get(), bytes, sizeof bytes)) > 0 || (got < 0 && errno == EINTR))
        was_set = was_set || got > 0;
    return was_set;
}

bool WakeEvent::TryTake()
{
    // Of two processes that try at once, one reads the bytes and the other nothing.
    return manual_reset_ ? IsReady() : Drain();
}

std::shared_ptr<Mutex> Mutex::Create(const fs::path &folder, const std::string &name,
                                     bool initial_owner)
{
    std::shared_ptr<Mutex> mutex;
    if (name.empty()) {
        mutex = std::make_shared<Mutex>(name, Fd());
    } else {
        CheckName(name);
        const fs::path path = folder / (name + ".mutex");
        const std::lock_guard lock(named_mutexes_guard);
        // A second object would have a lock of its own in the kernel, and its thread would wait for
        // a mutex that it has.
        mutex = named_mutexes[path].lock();
        if (!mutex) {
            Fd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                       kOwnerOnly));
            if (fd.get() < 0)
                FailToOpen(path, errno);
            mutex = std::make_shared<Mutex>(name, std::move(fd));
            named_mutexes[path] = mutex;
        }
    }
    if (initial_owner)
        mutex->TryTake();
    return mutex;
}

Mutex::Mutex(std::string name, Fd fd) : Waitable(std::move(name)), fd_(std::move(fd)) {}

bool Mutex::Lock()
{
    if (fd_.get() < 0)
        return true;
    struct flock lock = WholeFile(F_WRLCK);
    // Of the open file, not of the process: closing another descriptor of the file must not release
    // it.
    return fcntl(fd_.get(), F_OFD_SETLK, &lock) == 0;
}

void Mutex::Unlock()
{
    if (fd_.get() < 0)
        return;
    struct flock lock = WholeFile(F_UNLCK);
    fcntl(fd_.get(), F_OFD_SETLK, &lock);
}

bool Mutex::IsReady()
{
    const std::lock_guard lock(state_);
    // Within the process the owner is a thread, of which the kernel's lock knows nothing.
    if (depth_ > 0)
        return owner_ == std::this_thread::get_id();
    if (!Lock())
        return false;
    Unlock();
    return true;
}

bool Mutex::TryTake()
{
    const std::lock_guard lock(state_);
    const auto me = std::this_thread::get_id();
    if (depth_ > 0 && owner_ != me)
        return false;
    if (depth_ == 0 && !Lock())
        return false;
    owner_ = me;
    ++depth_;
    return true;
}

bool Mutex::Release()
{
    const std::lock_guard lock(state_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id())
        return false;
    if (--depth_ == 0)
        Unlock();
    return true;
}

} // namespace host
