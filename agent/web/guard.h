// Who may have an answer. Nothing here looks at the store: a request that is refused costs nothing.
//
// A browser can be made to ask on behalf of a stranger's page. So the name by which it asks must be one of this server
// (else a stranger's name could be pointed at this machine), and another page's request is refused. From other machines
// a token is needed, too.
#ifndef AGENT_WEB_GUARD_H
#define AGENT_WEB_GUARD_H

#include <string>
#include <vector>

namespace web {

// Headers and the like, as they came; empty: missing.
struct Request {
    std::string method;
    std::string path; // without what follows "?"
    std::string host;
    std::string origin;
    std::string fetch_site; // Sec-Fetch-Site
    std::string authorization;
    std::string cookie;
    std::string token; // of the query
};

struct GuardTerms {
    bool is_socket = false;  // no browser asks there
    bool is_loopback = true; // as the address is that is listened on
    // Of this machine, for an address that others reach: each whole, and no other.
    std::vector<std::string> own_names;
    // That is asked for. Empty: none is asked for at a socket or a loopback address, and at another one nobody is served.
    std::string token;
};

enum class Verdict {
    kServe,
    kSetCookie,   // the right token stood in the query: it becomes a cookie, and leaves the address
    kNotAllowed,  // 405: only reading
    kMisdirected, // 421: asked by another name
    kForbidden,   // 403: another page asks
    kNoToken,     // 401
};

Verdict Judge(const Request &request, const GuardTerms &terms);

// The name of the cookie that holds the token.
inline constexpr char kTokenCookie[] = "syslogmon-token";

} // namespace web

#endif // AGENT_WEB_GUARD_H
