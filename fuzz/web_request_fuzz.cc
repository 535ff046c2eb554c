// Who gets an answer of the page. Input: on what the page listens, and a request's headers.
//
// Whatever the headers are: without the token nobody is served where one is asked for, no other page's request is, and none by
// a stranger's name.
#include <algorithm>
#include <string>

#include "agent/web/guard.h"
#include "fuzz/fuzz.h"

namespace {

constexpr char kToken[] = "c0ffee";

bool Has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// Names that can be this machine's, by what they begin with.
bool CanBeOwn(const std::string &host, const web::GuardTerms &terms)
{
    const bool is_number = !host.empty() && (host[0] == '[' || (host[0] >= '0' && host[0] <= '9'));
    std::string small = host;
    for (char &c : small)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return terms.is_socket || is_number || small.starts_with("localhost") ||
           (!terms.is_loopback && std::ranges::any_of(terms.own_names, [&](const std::string &own) {
               return small == own || small.starts_with(own + ":");
           }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const uint8_t bits = input.Byte();
    web::GuardTerms terms;
    terms.is_socket = (bits & 1U) != 0;
    terms.is_loopback = (bits & 2U) != 0;
    if ((bits & 4U) != 0)
        terms.own_names = {"web7", "web7.example.com"};
    terms.token = (bits & 8U) != 0 ? kToken : "";
    web::Request request;
    request.method = (bits & 16U) != 0 ? "GET" : input.Bytes(10);
    request.path = (bits & 32U) != 0 ? "/" : input.Bytes(60);
    for (std::string *header : {&request.host, &request.origin, &request.fetch_site,
                                &request.authorization, &request.cookie, &request.token})
        *header = input.Bytes(60);

    const web::Verdict verdict = web::Judge(request, terms);
    if (verdict != web::Verdict::kServe && verdict != web::Verdict::kSetCookie)
        return 0;
    fuzz::Expect(request.method == "GET" || request.method == "HEAD", "more than reading");
    fuzz::Expect(CanBeOwn(request.host, terms), "asked by a stranger's name");
    fuzz::Expect(request.origin.empty() || Has(request.origin, "//" + request.host),
                 "another page asks");
    const bool may_be_linked = request.path == "/" && request.origin.empty();
    fuzz::Expect(may_be_linked || request.fetch_site.empty() ||
                     request.fetch_site == "same-origin" || request.fetch_site == "none",
                 "a browser asks for another page");
    fuzz::Expect(terms.token.empty() || Has(request.authorization, kToken) ||
                     Has(request.cookie, kToken) || Has(request.token, kToken),
                 "nobody has said the token");
    return 0;
}
