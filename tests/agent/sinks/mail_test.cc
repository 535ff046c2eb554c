// Kind "mail" towards a mail server that goes away.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "tests/agent/sinks/sink_test.h"

namespace {

using sinks::Outcome;

// Speaks SMTP with one sender, as far as a word, over which it hangs up.
class RudeMailServer {
  public:
    explicit RudeMailServer(std::string word) : word_(std::move(word))
    {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address));
        EXPECT_EQ(0, listen(listener_, 1));
        socklen_t size = sizeof address;
        getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { Serve(); });
    }
    ~RudeMailServer()
    {
        shutdown(listener_, SHUT_RDWR); // when nobody has come
        thread_.join();
        close(listener_);
    }
    RudeMailServer(const RudeMailServer &) = delete;
    RudeMailServer &operator=(const RudeMailServer &) = delete;
    [[nodiscard]] std::string Url() const { return "smtp://127.0.0.1:" + std::to_string(port_); }

  private:
    void Serve() const
    {
        const int sender = accept(listener_, nullptr, nullptr);
        if (sender < 0)
            return;
        std::string said;
        char buffer[4096];
        std::string answer = "220 test\r\n";
        ssize_t got = 0;
        do {
            (void)send(sender, answer.data(), answer.size(), MSG_NOSIGNAL);
            got = recv(sender, buffer, sizeof buffer, 0);
            said.append(buffer, static_cast<size_t>(std::max<ssize_t>(got, 0)));
            answer = said.find("DATA\r\n") == std::string::npos ? "250 ok\r\n" : "354 go on\r\n";
            if (said.find("Subject:") != std::string::npos)
                answer.clear(); // in the midst of the mail
        } while (got > 0 && said.find(word_) == std::string::npos);
        close(sender);
    }

    std::string word_;
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
};

class MailTest : public test::SinkTest {
  protected:
    // What comes of a mail at a server that hangs up over the word.
    Outcome::Result SendUpTo(const std::string &word)
    {
        const RudeMailServer server(word);
        const auto config = Config(
            "mail", {{"server", server.Url()}, {"from", "a@example.com"}, {"to", "b@example.com"}});
        sinks::Secrets secrets;
        const auto sink = config.kind->open(config, "", secrets);
        const sinks::Message message = test::MessageOf("one");
        return sink->Send(std::span(&message, 1), {}).result;
    }
};

TEST_F(MailTest, AServerThatHangsUpBeforeTheMailIsAFailure)
{
    EXPECT_EQ(Outcome::Result::kFailed, SendUpTo("EHLO"));
    EXPECT_EQ(Outcome::Result::kFailed, SendUpTo("RCPT"));
}

TEST_F(MailTest, AServerThatHangsUpOverTheMailMayDoSoForThatMail)
{
    EXPECT_EQ(Outcome::Result::kRefused, SendUpTo("Subject:"));
}

} // namespace
