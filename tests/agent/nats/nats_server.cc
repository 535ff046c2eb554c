#include "tests/agent/nats/nats_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace test {

namespace {

std::vector<std::string> WordsOf(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

void SendAll(int client, const std::string &bytes)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return;
        sent += static_cast<size_t>(count);
    }
}

// "a.*" and "a.>" stand for all that begins with "a.".
bool Matches(const std::string &subscribed, const std::string &subject)
{
    if (subscribed.ends_with(".*") || subscribed.ends_with(".>"))
        return subject.starts_with(subscribed.substr(0, subscribed.size() - 1));
    return subscribed == subject;
}

} // namespace

NatsServer::NatsServer(Rule rule)
    : rule_(std::move(rule)), listening_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, bind(listening_, reinterpret_cast<sockaddr *>(&address), size));
    EXPECT_EQ(0, getsockname(listening_, reinterpret_cast<sockaddr *>(&address), &size));
    EXPECT_EQ(0, listen(listening_, 5));
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
}

NatsServer::~NatsServer()
{
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
        shutdown(listening_, SHUT_RDWR);
        if (client_ >= 0)
            shutdown(client_, SHUT_RDWR);
    }
    thread_.join();
    close(listening_);
}

nats::Access NatsServer::Access(std::chrono::milliseconds timeout) const
{
    nats::Access access;
    access.servers = {"nats://127.0.0.1:" + std::to_string(port_)};
    access.timeout = timeout;
    access.inbox = "_INBOX.test";
    return access;
}

void NatsServer::Serve()
{
    for (;;) {
        const int client = accept(listening_, nullptr, nullptr);
        {
            const std::lock_guard lock(mutex_);
            if (stop_ || client < 0) {
                close(client);
                return;
            }
            client_ = client;
        }
        Speak(client);
        const std::lock_guard lock(mutex_);
        client_ = -1;
        close(client);
    }
}

void NatsServer::Speak(int client)
{
    heard_.clear();
    subscriptions_.clear();
    SendAll(client, "INFO {\"server_id\":\"T\",\"version\":\"2.9.10\",\"proto\":1,\"headers\":true,"
                    "\"max_payload\":1048576,\"host\":\"127.0.0.1\",\"port\":" +
                        std::to_string(port_) + "}\r\n");
    for (std::string line; ReadBytes(client, 1, &line);) {
        const size_t end = line.find("\r\n");
        if (end == std::string::npos)
            continue;
        if (!Hear(client, line.substr(0, end)))
            return;
        line.clear();
    }
}

// False: the client is gone.
bool NatsServer::Hear(int client, const std::string &line)
{
    const std::vector<std::string> words = WordsOf(line);
    if (words.empty())
        return true;
    if (words[0] == "PING")
        SendAll(client, "PONG\r\n");
    if (words[0] == "SUB")
        subscriptions_[words[1]] = words.back();
    const bool has_headers = words[0] == "HPUB";
    if (words[0] != "PUB" && !has_headers)
        return true;
    const size_t numbers = has_headers ? 2 : 1;
    Publication publication{words[1], words.size() > 2 + numbers ? words[2] : "", ""};
    if (!ReadBytes(client, std::stoul(words.back()) + 2, &publication.body))
        return false;
    publication.body.resize(publication.body.size() - 2);
    if (has_headers)
        publication.body.erase(0, std::stoul(words[words.size() - 2]));
    for (const Answer &answer : rule_(publication))
        Say(client, answer, answer.to.empty() ? publication.reply : answer.to);
    return true;
}

void NatsServer::Say(int client, const Answer &answer, const std::string &to)
{
    if (!answer.refusal.empty())
        return SendAll(client, "-ERR '" + answer.refusal + "'\r\n");
    for (const auto &[subject, number] : subscriptions_) {
        if (!Matches(subject, to))
            continue;
        const std::string status = answer.status.empty() ? "" : " " + answer.status;
        const std::string head = status.empty() && answer.headers.empty()
                                     ? ""
                                     : "NATS/1.0" + status + "\r\n" + answer.headers + "\r\n";
        const std::string size = std::to_string(head.size() + answer.body.size());
        const std::string reply = answer.reply.empty() ? "" : answer.reply + " ";
        const std::string said = (answer.subject.empty() ? to : answer.subject) + " " + number;
        SendAll(client, (head.empty() ? "MSG " + said + " " + reply + size
                                      : "HMSG " + said + " " + reply + std::to_string(head.size()) +
                                            " " + size) +
                            "\r\n" + head + answer.body + "\r\n");
        return;
    }
}

// Appends so many.
bool NatsServer::ReadBytes(int client, size_t count, std::string *bytes)
{
    while (heard_.size() < count) {
        char buffer[65536];
        const ssize_t got = recv(client, buffer, sizeof buffer, 0);
        if (got <= 0)
            return false;
        heard_.append(buffer, static_cast<size_t>(got));
    }
    bytes->append(heard_, 0, count);
    heard_.erase(0, count);
    return true;
}

} // namespace test
