// What the daemon tells about itself, changed by the main thread and by the monitor's. One copy in
// memory, written out whole with each change.
#ifndef AGENT_DAEMON_STATUS_BOARD_H
#define AGENT_DAEMON_STATUS_BOARD_H

#include <filesystem>
#include <functional>
#include <mutex>

#include "agent/host/host.h"
#include "agent/status/status_file.h"

namespace syslogmond {

class StatusBoard {
  public:
    explicit StatusBoard(host::Host &host);

    // Changes it and publishes it. A status that cannot be written is traced and does no harm to the
    // work.
    void Update(const std::function<void(status::Status &)> &change);
    // As it is.
    [[nodiscard]] status::Status Copy();

  private:
    // Held over the write, too: two at a time would write one file, and an older status could be
    // the last.
    std::mutex mutex_;
    std::filesystem::path run_;
    status::Status status_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_STATUS_BOARD_H
