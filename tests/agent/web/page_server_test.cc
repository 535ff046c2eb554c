// The server of the page: who takes too long is sent away.
#include "agent/web/page_server.h"

#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

#include "agent/alerts/alert_store.h"
#include "tests/agent/support/host_test.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Until something that should happen is taken not to. Less than the time after which the library itself ends a connection
// that does nothing.
constexpr std::chrono::seconds kPatience{20};
// Long enough for a request that is sent at once, also on a busy machine.
constexpr web::TimeLimits kShort{std::chrono::seconds(30), milliseconds(3000), milliseconds(3000)};
// As many as are served at a time.
constexpr size_t kConnections = 64;

// A connection to the server's socket.
class Client {
  public:
    explicit Client(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        EXPECT_EQ(0, connect(fd_.get(), reinterpret_cast<const sockaddr *>(&name), sizeof name));
    }
    // Whether the other side took it.
    [[nodiscard]] bool Send(const std::string &text) const
    {
        return send(fd_.get(), text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
    void Ask(const std::string &path) const
    {
        EXPECT_TRUE(Send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    }
    // What comes until this is in it, or the connection ends.
    std::string ReadUntil(const std::string &wanted) const
    {
        std::string text;
        while (text.find(wanted) == std::string::npos && WaitForBytes(kPatience)) {
            char bytes[4096];
            const ssize_t count = recv(fd_.get(), bytes, sizeof bytes, 0);
            if (count <= 0)
                break;
            text.append(bytes, static_cast<size_t>(count));
        }
        return text;
    }
    // Nothing comes, and then the end.
    [[nodiscard]] bool Ends() const
    {
        char byte = 0;
        return WaitForBytes(kPatience) && recv(fd_.get(), &byte, 1, 0) <= 0;
    }
    // A byte now and then, for as long as the other side takes them.
    [[nodiscard]] bool IsClosedWhileItSends() const
    {
        const auto end = steady_clock::now() + kPatience;
        while (steady_clock::now() < end) {
            if (!Send("x") || WaitForBytes(milliseconds(20)))
                return true; // nothing was asked, so what there is to read is the end
        }
        return false;
    }

    [[nodiscard]] bool WaitForBytes(milliseconds longest) const
    {
        pollfd one{fd_.get(), POLLIN, 0};
        return poll(&one, 1, static_cast<int>(longest.count())) > 0;
    }

  private:
    host::Fd fd_;
};

class ThePageServer : public test::HostTest {
  protected:
    [[nodiscard]] web::PageServer Serve(const web::TimeLimits &limits) const
    {
        return {Layout(), {File("web.sock"), "", 0, true}, "1", limits};
    }
    [[nodiscard]] Client Connect() const { return Client(File("web.sock")); }
    // The limit is over for all that began before.
    void LetTheLimitPass() const { EXPECT_TRUE(Connect().IsClosedWhileItSends()); }
};

TEST_F(ThePageServer, ServesSoManyConnectionsAndTheNextOneWhenOneOfThemEnds)
{
    const web::PageServer server = Serve({});
    std::vector<Client> served;
    for (size_t i = 0; i < kConnections; ++i) {
        served.push_back(Connect());
        served.back().Ask("/");
        ASSERT_NE("", served.back().ReadUntil("</html>"));
    }
    const Client next = Connect();
    next.Ask("/");
    EXPECT_FALSE(next.WaitForBytes(milliseconds(300)));
    served.pop_back();
    EXPECT_NE(std::string::npos, next.ReadUntil("200 OK").find("200 OK"));
}

TEST_F(ThePageServer, EndsAConnectionThatDoesNothing)
{
    const web::PageServer server =
        Serve({std::chrono::seconds(1), std::chrono::hours(1), std::chrono::hours(1)});
    const Client idle = Connect();
    EXPECT_TRUE(idle.Ends());
}

TEST_F(ThePageServer, EndsAConnectionThatSendsAByteOfItsRequestNowAndThen)
{
    const web::PageServer server = Serve(kShort);
    const Client client = Connect();
    EXPECT_TRUE(client.Send("GET / HTTP/1.1\r\nHost: localhost\r\nX: "));
    EXPECT_TRUE(client.IsClosedWhileItSends());
}

TEST_F(ThePageServer, EndsOneThatSendsItsNextRequestSo)
{
    const web::PageServer server = Serve(kShort);
    const Client client = Connect();
    client.Ask("/nothing");
    EXPECT_NE(std::string::npos, client.ReadUntil("what there is").find("404 Not Found"));
    EXPECT_TRUE(client.IsClosedWhileItSends());
}

TEST_F(ThePageServer, EndsAConnectionThatDoesNotTakeItsAnswer)
{
    {
        host::Transaction transaction(test::Store());
        alerts::Alert alert;
        alert.message = std::string(4000, 'x');
        for (int i = 0; i < 1000; ++i)
            alerts::AddAlert(test::Store(), alert);
        transaction.Commit();
    }
    const web::PageServer server = Serve(kShort);
    const Client client = Connect();
    client.Ask("/api/v1/alerts?limit=1000");
    EXPECT_NE(std::string::npos, client.ReadUntil("200 OK").find("200 OK"));
    LetTheLimitPass();
    // What was on its way, and no more.
    EXPECT_LT(client.ReadUntil("no such text").size(), 3'000'000U);
}

TEST_F(ThePageServer, EndsNoConnectionThatIsToldOfNews)
{
    const web::PageServer server = Serve(kShort);
    const Client client = Connect();
    client.Ask("/api/v1/stream");
    EXPECT_NE("", client.ReadUntil("retry: 3000"));
    LetTheLimitPass();
    server.Wake();
    EXPECT_NE(std::string::npos, client.ReadUntil("event: pass").find("event: pass"));
}

} // namespace
