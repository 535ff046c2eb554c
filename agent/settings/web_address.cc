#include "agent/settings/web_address.h"

#include <arpa/inet.h>
#include <charconv>
#include <sys/un.h>

namespace settings {

namespace {

// Of a socket, with its zero byte.
constexpr size_t kLongestPath = sizeof(sockaddr_un{}.sun_path);

std::optional<uint16_t> ParsePort(const std::string &text)
{
    uint16_t port = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, failed] = std::from_chars(text.data(), end, port);
    if (failed != std::errc() || stopped != end || port == 0)
        return std::nullopt;
    return port;
}

bool IsV4(const std::string &ip)
{
    in_addr address{};
    return inet_pton(AF_INET, ip.c_str(), &address) == 1;
}

bool IsV6(const std::string &ip)
{
    in6_addr address{};
    return inet_pton(AF_INET6, ip.c_str(), &address) == 1;
}

} // namespace

std::optional<WebAddress> ParseWebAddress(const std::string &text)
{
    if (text.starts_with('/'))
        return text.size() < kLongestPath ? std::optional(WebAddress{text, "", 0, true})
                                          : std::nullopt;
    const size_t colon = text.rfind(':');
    const auto port = colon == std::string::npos ? std::nullopt : ParsePort(text.substr(colon + 1));
    if (!port)
        return std::nullopt;
    std::string ip = text.substr(0, colon);
    if (ip == "localhost")
        ip = "127.0.0.1";
    if (IsV4(ip))
        return WebAddress{"", ip, *port, ip.starts_with("127.")};
    if (ip.size() < 2 || ip.front() != '[' || ip.back() != ']')
        return std::nullopt;
    ip = ip.substr(1, ip.size() - 2);
    return IsV6(ip) ? std::optional(WebAddress{"", ip, *port, ip == "::1"}) : std::nullopt;
}

} // namespace settings
