// Serves the page where the setting says, and tries again when it cannot be served there.
//
// Of the main thread, but for Wake, which comes from the monitor's.
#ifndef AGENT_DAEMON_PAGE_KEEPER_H
#define AGENT_DAEMON_PAGE_KEEPER_H

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "agent/host/layout.h"
#include "agent/web/page_server.h"

namespace syslogmond {

class PageKeeper {
  public:
    using Clock = std::chrono::steady_clock;

    explicit PageKeeper(host::Layout layout) : layout_(std::move(layout)) {}

    // Serves it there from now on; empty: nowhere. Failures are told, once for each address.
    void Follow(const std::string &address);
    // Tries again, when it is time.
    void Work();
    [[nodiscard]] std::optional<Clock::time_point> Next() const { return try_again_at_; }

    // A pass was stored; `events_changed`: other events may be registered than before. Never waits for whoever is served.
    void Wake(bool events_changed = false);

  private:
    void Replace(std::unique_ptr<web::PageServer> server);
    void Serve();

    host::Layout layout_;
    std::string address_;
    std::string told_; // the failure that was told last
    std::optional<Clock::time_point> try_again_at_;
    std::mutex mutex_; // guards the pointer, for moments
    std::unique_ptr<web::PageServer> server_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_PAGE_KEEPER_H
