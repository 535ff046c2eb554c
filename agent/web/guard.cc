#include "agent/web/guard.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>

namespace web {

namespace {

// "[::1]:9514" and "localhost:9514" without the port, in small letters.
std::string NameOf(const std::string &host)
{
    std::string name = host;
    const size_t bracket = name.find(']');
    const size_t colon = name.find(':', bracket == std::string::npos ? 0 : bracket);
    name = name.substr(0, colon);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

bool IsIp(const std::string &name)
{
    in_addr v4{};
    in6_addr v6{};
    if (name.starts_with('[') && name.ends_with(']'))
        return inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), &v6) == 1;
    return inet_pton(AF_INET, name.c_str(), &v4) == 1;
}

// A number is never a stranger's name. Of names only those that are surely this machine's.
bool IsOwnName(const std::string &host, const GuardTerms &terms)
{
    if (terms.is_socket)
        return true;
    const std::string name = NameOf(host);
    if (name == "localhost" || name == "[::1]" || (IsIp(name) && name.starts_with("127.")))
        return true;
    if (terms.is_loopback)
        return false;
    return IsIp(name) || std::ranges::any_of(terms.own_names, [&](const std::string &own) {
               return name == NameOf(own);
           });
}

// Browsers say for whom they ask. One that does not say so sends an Origin with what is not just read.
bool IsOfAnotherPage(const Request &request)
{
    const std::string &site = request.fetch_site;
    if (!site.empty() && site != "same-origin" && site != "none")
        return true;
    const std::string &origin = request.origin;
    return !origin.empty() && origin != "http://" + request.host &&
           origin != "https://" + request.host;
}

// Takes as long for any wrong one.
bool IsSame(const std::string &given, const std::string &wanted)
{
    if (given.size() != wanted.size())
        return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < given.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ wanted[i]);
    return difference == 0;
}

std::string CookieOf(const Request &request)
{
    const std::string begin = std::string(kTokenCookie) + "=";
    size_t at = request.cookie.find(begin);
    if (at == std::string::npos)
        return {};
    at += begin.size();
    return request.cookie.substr(at, request.cookie.find(';', at) - at);
}

} // namespace

Verdict Judge(const Request &request, const GuardTerms &terms)
{
    if (request.method != "GET" && request.method != "HEAD")
        return Verdict::kNotAllowed;
    if (!IsOwnName(request.host, terms))
        return Verdict::kMisdirected;
    // A link on another page leads here, and that is allowed: what it opens it cannot read.
    const bool is_page = request.path == "/" && request.origin.empty();
    if (!is_page && IsOfAnotherPage(request))
        return Verdict::kForbidden;
    // Where one is needed and none is known, nobody is served.
    if (terms.token.empty())
        return terms.is_socket || terms.is_loopback ? Verdict::kServe : Verdict::kNoToken;
    if (!request.token.empty() && request.path == "/")
        return IsSame(request.token, terms.token) ? Verdict::kSetCookie : Verdict::kNoToken;
    const bool is_known = IsSame(request.authorization, "Bearer " + terms.token) ||
                          IsSame(CookieOf(request), terms.token);
    return is_known ? Verdict::kServe : Verdict::kNoToken;
}

} // namespace web
