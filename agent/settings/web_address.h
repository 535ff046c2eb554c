// Where the daemon serves its page: the setting `web`.
#ifndef AGENT_SETTINGS_WEB_ADDRESS_H
#define AGENT_SETTINGS_WEB_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

namespace settings {

// In the agent's key, REG_SZ: as it is typed; empty: no page is served.
inline constexpr char kWebValue[] = "Web";

struct WebAddress {
    std::string socket; // path of a Unix socket; empty: the next two count
    std::string ip;     // "127.0.0.1" or "::1", as it is given to the system
    uint16_t port = 0;
    bool is_loopback = true; // only this machine reaches it: so do Unix sockets

    bool operator==(const WebAddress &) const = default;
};

// "127.0.0.1:9514", "localhost:9514", "[::1]:9514", or the absolute path of a socket. Nothing: it is none of them.
std::optional<WebAddress> ParseWebAddress(const std::string &text);

} // namespace settings

#endif // AGENT_SETTINGS_WEB_ADDRESS_H
