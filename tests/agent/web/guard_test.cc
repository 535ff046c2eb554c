// Who gets an answer from the page, and where it is served.
#include "agent/web/guard.h"

#include <gtest/gtest.h>

#include "agent/settings/web_address.h"

namespace {

using settings::ParseWebAddress;
using settings::WebAddress;
using web::GuardTerms;
using web::Request;
using web::Verdict;

Request Ask(const std::string &path, const std::string &host)
{
    Request request;
    request.method = "GET";
    request.path = path;
    request.host = host;
    return request;
}

GuardTerms OfOthers()
{
    GuardTerms terms;
    terms.is_loopback = false;
    terms.own_names = {"web1", "Web1.example.com"};
    terms.token = "secret";
    return terms;
}

TEST(Guard, OnALoopbackAddressOnlyItsOwnNamesAreAnswered)
{
    for (const char *host :
         {"localhost", "Localhost:9514", "127.0.0.1:9514", "127.1.2.3", "[::1]", "[::1]:9514"})
        EXPECT_EQ(Verdict::kServe, web::Judge(Ask("/metrics", host), {})) << host;
    for (const char *host : {"", "example.com", "127.0.0.1.example.com", "127.example.com",
                             "10.0.0.1", "[::2]", "[::1"})
        EXPECT_EQ(Verdict::kMisdirected, web::Judge(Ask("/metrics", host), {})) << host;
}

TEST(Guard, OnAnotherAddressNumbersAndTheNameOfTheMachineAreAnswered)
{
    const GuardTerms terms = OfOthers();
    for (const char *host : {"10.0.0.1:9514", "[2001:db8::1]:80", "web1.example.com",
                             "WEB1.EXAMPLE.COM:80", "web1:9514", "Web1", "localhost"}) {
        Request request = Ask("/", host);
        request.authorization = "Bearer secret";
        EXPECT_EQ(Verdict::kServe, web::Judge(request, terms)) << host;
    }
    for (const char *host : {"", "example.com", "web1.example.org", "xweb1.example.com", "web1.",
                             "web1.anything", "web1.example.com.example.org"})
        EXPECT_EQ(Verdict::kMisdirected, web::Judge(Ask("/", host), terms)) << host;
}

TEST(Guard, ASocketHasNoName)
{
    GuardTerms terms;
    terms.is_socket = true;
    EXPECT_EQ(Verdict::kServe, web::Judge(Ask("/metrics", "whatever"), terms));
}

TEST(Guard, AnotherPageMayLinkToThePageAndReadNothing)
{
    for (const char *site : {"cross-site", "same-site"}) {
        Request request = Ask("/api/v1/alerts", "localhost");
        request.fetch_site = site;
        EXPECT_EQ(Verdict::kForbidden, web::Judge(request, {}));
        request.path = "/";
        EXPECT_EQ(Verdict::kServe, web::Judge(request, {}));
        request.origin = "http://example.com";
        EXPECT_EQ(Verdict::kForbidden, web::Judge(request, {}));
    }
}

TEST(Guard, ATokenComesInAHeaderOrACookieAndOnceInTheAddress)
{
    const auto judge = [](auto &&change) {
        Request request = Ask("/api/v1/alerts", "10.0.0.1");
        change(request);
        return web::Judge(request, OfOthers());
    };
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &) {}));
    EXPECT_EQ(Verdict::kServe, judge([](Request &r) { r.authorization = "Bearer secret"; }));
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &r) { r.authorization = "Bearer secreT"; }));
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &r) { r.authorization = "Bearer "; }));
    EXPECT_EQ(Verdict::kServe,
              judge([](Request &r) { r.cookie = "a=b; syslogmon-token=secret; c=d"; }));
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &r) { r.cookie = "syslogmon-token=secre"; }));
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &r) { r.token = "secret"; }));
    EXPECT_EQ(Verdict::kSetCookie, judge([](Request &r) { r.token = "secret", r.path = "/"; }));
    EXPECT_EQ(Verdict::kNoToken, judge([](Request &r) { r.token = "wrong!", r.path = "/"; }));
}

TEST(Guard, WithoutATokenNobodyIsServedAtAnotherAddress)
{
    GuardTerms terms = OfOthers();
    terms.token.clear();
    Request request = Ask("/", "10.0.0.1");
    EXPECT_EQ(Verdict::kNoToken, web::Judge(request, terms));
    for (const char *given : {"Bearer", "Bearer ", ""}) {
        request.authorization = given;
        EXPECT_EQ(Verdict::kNoToken, web::Judge(request, terms)) << given;
    }
    request.cookie = "syslogmon-token=";
    EXPECT_EQ(Verdict::kNoToken, web::Judge(request, terms));
}

TEST(WebAddress, IsAnAddressWithAPortOrThePathOfASocket)
{
    EXPECT_EQ((WebAddress{"", "127.0.0.1", 9514, true}), ParseWebAddress("127.0.0.1:9514"));
    EXPECT_EQ((WebAddress{"", "127.0.0.1", 1, true}), ParseWebAddress("localhost:1"));
    EXPECT_EQ((WebAddress{"", "::1", 9514, true}), ParseWebAddress("[::1]:9514"));
    EXPECT_EQ((WebAddress{"", "0.0.0.0", 65535, false}), ParseWebAddress("0.0.0.0:65535"));
    EXPECT_EQ((WebAddress{"", "::", 9514, false}), ParseWebAddress("[::]:9514"));
    EXPECT_EQ((WebAddress{"/run/a.sock", "", 0, true}), ParseWebAddress("/run/a.sock"));
    for (const char *text :
         {"", "9514", ":9514", "::1:9514", "[::1]", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
          "127.0.0.1:9514x", "127.0.0.1: 1", "example.com:80", "run/a.sock"})
        EXPECT_EQ(std::nullopt, ParseWebAddress(text)) << text;
}

} // namespace
