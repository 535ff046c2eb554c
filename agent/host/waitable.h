// What can be waited for: events and mutexes, named (shared by processes) or not.
//
// A named object is a file in the run-time folder, so it is the kernel that shares it, and that
// cleans up behind a process that dies:
//
//   NAME.event   a FIFO. The event is signalled while the FIFO holds a byte. Every process that has
//                the event open keeps the FIFO open for reading and writing, so a signal lasts as
//                long as any of them lives. Taking an auto-reset event reads all bytes: ten signals
//                are one wake-up.
//   NAME.mutex   an open-file-description lock on its first byte. It ends with its holder.
//
// Unnamed events are eventfds. There is no shared memory that a killed process could leave broken.
#ifndef AGENT_HOST_WAITABLE_H
#define AGENT_HOST_WAITABLE_H

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace host {

// A file descriptor that closes itself.
class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd();
    Fd(Fd &&other) noexcept : fd_(other.Release()) {}
    // Closes what it had.
    Fd &operator=(Fd &&other) noexcept;
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    [[nodiscard]] int get() const { return fd_; }
    // Gives the descriptor away: it is the caller's to close.
    int Release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

// Makes an eventfd readable, whatever signals come in between. One that is full is readable already.
void Ring(const Fd &bell) noexcept;

// Something to wait for. Any thread may use it; waiting is done by asking it, and sleeping on its
// descriptor in between: see sync.cc.
class Waitable {
  public:
    explicit Waitable(std::string name) : name_(std::move(name)) {}
    virtual ~Waitable() = default;
    Waitable(const Waitable &) = delete;
    Waitable &operator=(const Waitable &) = delete;

    // Is it signalled (an event) or free for this thread (a mutex), at this moment?
    virtual bool IsReady() = 0;
    // Takes it if it is: resets an auto-reset event, acquires a mutex.
    virtual bool TryTake() = 0;
    // Gives it back after a TryTake that turned out not to be wanted.
    virtual void PutBack() = 0;
    // A descriptor that poll reports readable when it may be ready, or -1: ask again after a while.
    [[nodiscard]] virtual int PollFd() const = 0;

    [[nodiscard]] const std::string &name() const { return name_; } // empty: unnamed

  private:
    std::string name_;
};

// An event. Named, it is open in each process that has made or opened it, and gone for a process
// with its last object; its file stays.
class WakeEvent : public Waitable {
  public:
    // Creates or opens the event; an empty name makes one of this process alone. `initial_state`
    // counts only when nobody else has it open. Throws Error: a name that is no file name,
    // something else in the place of its file, no descriptor left.
    static std::shared_ptr<WakeEvent> Create(const std::filesystem::path &folder,
                                             const std::string &name, bool manual_reset,
                                             bool initial_state);

    // For Create; `fd` is a FIFO or an eventfd that does not block.
    WakeEvent(std::string name, Fd fd, bool manual_reset);
    // Signals it. Never waits, and cannot fail: one that is full is signalled.
    void Set();

    bool IsReady() override;
    bool TryTake() override;
    void PutBack() override { Set(); }
    [[nodiscard]] int PollFd() const override { return fd_.get(); }

  private:
    // Takes all signals; were there any?
    bool Drain();

    Fd fd_;
    bool manual_reset_;
};

// Owned by a thread, as often as it has taken it.
class Mutex : public Waitable {
  public:
    // Opens the mutex, making its file if need be. Handles of one process that name the same mutex
    // share one object. `initial_owner`: takes it at once if it is free, and says nothing if it is
    // not. Throws Error.
    static std::shared_ptr<Mutex> Create(const std::filesystem::path &folder,
                                         const std::string &name, bool initial_owner);

    Mutex(std::string name, Fd fd);
    // False when the calling thread does not own it.
    bool Release();

    bool IsReady() override;
    bool TryTake() override;
    void PutBack() override { Release(); }
    [[nodiscard]] int PollFd() const override { return -1; }

  private:
    // The kernel's lock, which keeps other processes out: takes it if it is free, without waiting.
    bool Lock();
    void Unlock();

    std::mutex state_; // guards what follows
    Fd fd_;            // none: an unnamed mutex, shared by the threads of this process only
    std::thread::id owner_;
    // How often `owner_` has taken it; 0: nobody in this process has.
    int depth_ = 0;
};

} // namespace host

#endif // AGENT_HOST_WAITABLE_H
