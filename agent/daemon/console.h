// Prints alerts on standard output as they are stored.
#ifndef AGENT_DAEMON_CONSOLE_H
#define AGENT_DAEMON_CONSOLE_H

#include <cstdint>
#include <filesystem>

#include "agent/libtarsk/database.h"

namespace agent {

class Console {
  public:
    // From the newest stored alert on. Reads through a connection of its own, so it sees what was
    // committed and nothing else.
    explicit Console(const std::filesystem::path &store);

    // Prints what has been stored since the last call.
    void PrintNews();

  private:
    tarsk::Database database_;
    int64_t printed_;
};

} // namespace agent

#endif // AGENT_DAEMON_CONSOLE_H
