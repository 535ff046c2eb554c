// Prints alerts on standard output as they are stored, on a thread of its own: whoever reads them may
// stop for as long as he likes. The store keeps what is not printed yet; an alert that has left it by
// then is not printed.
#ifndef AGENT_DAEMON_CONSOLE_H
#define AGENT_DAEMON_CONSOLE_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <thread>

#include "agent/daemon/doorbell.h"
#include "agent/host/database.h"

namespace syslogmond {

class Console {
  public:
    // From the newest stored alert on. Reads through a connection of its own, so it sees what was
    // committed and nothing else.
    explicit Console(const std::filesystem::path &store);
    // Prints what is there, as long as somebody reads it, and ends the thread.
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    // Alerts may have been stored. From any thread; returns at once.
    void Wake() const { bell_.Ring(); }

  private:
    void Run();
    void PrintNews();
    void WaitForBell() const;
    bool Print(std::string_view text);
    [[nodiscard]] bool WaitForReader() const;

    // Of its thread alone, but for the constructor.
    host::Database database_;
    int64_t printed_; // the newest alert that was
    Doorbell bell_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_CONSOLE_H
