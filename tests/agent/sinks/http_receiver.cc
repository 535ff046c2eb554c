#include "tests/agent/sinks/http_receiver.h"

#include <algorithm>
#include <arpa/inet.h>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "agent/host/waitable.h"

namespace test {

namespace {

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

Request Parse(const std::string &head)
{
    Request request;
    std::istringstream lines(head);
    std::string line;
    std::getline(lines, line);
    const size_t path = line.find(' ') + 1;
    request.path = line.substr(path, line.find(' ', path) - path);
    while (std::getline(lines, line)) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(' '));
        value.erase(value.find_last_not_of("\r ") + 1);
        request.headers[Lower(line.substr(0, colon))] = value;
    }
    return request;
}

} // namespace

class HttpReceiver::Server {
  public:
    explicit Server(int port);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    [[nodiscard]] int port() const { return port_; }
    void Answer(Rule rule, std::string body)
    {
        const std::lock_guard lock(mutex_);
        rule_ = std::move(rule);
        body_ = std::move(body);
    }
    void Speak(const std::string &protocol)
    {
        const std::lock_guard lock(mutex_);
        protocol_ = protocol;
    }
    void AddHeader(const std::string &header)
    {
        const std::lock_guard lock(mutex_);
        headers_ += header + "\r\n";
    }
    std::vector<Request> Received()
    {
        const std::lock_guard lock(mutex_);
        return received_;
    }
    std::vector<Request> Taken()
    {
        const std::lock_guard lock(mutex_);
        return taken_;
    }

  private:
    void Listen();
    void Serve(int fd);

    host::Fd listener_;
    host::Fd end_; // an eventfd that ends all threads
    int port_ = 0;
    std::mutex mutex_; // guards what follows
    Rule rule_ = [](const Request &) { return 200; };
    std::string headers_; // with their line ends
    std::string protocol_ = "HTTP/1.1";
    std::string body_ = "ok";
    std::vector<Request> received_;
    std::vector<Request> taken_;
    std::vector<std::thread> servers_;
    std::thread thread_;
};

HttpReceiver::Server::Server(int port)
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), end_(eventfd(0, EFD_CLOEXEC))
{
    const int on = 1;
    setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    socklen_t size = sizeof address;
    if (bind(listener_.get(), plain, size) != 0 || listen(listener_.get(), 16) != 0 ||
        getsockname(listener_.get(), plain, &size) != 0)
        throw std::runtime_error("cannot listen on the loopback interface");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Listen(); });
}

HttpReceiver::Server::~Server()
{
    eventfd_write(end_.get(), 1);
    thread_.join();
    for (std::thread &server : servers_)
        server.join();
}

void HttpReceiver::Server::Listen()
{
    for (;;) {
        pollfd waiting[] = {{listener_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
        poll(waiting, 2, -1);
        if (waiting[1].revents != 0)
            return;
        const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0)
            servers_.emplace_back([this, fd] { Serve(fd); });
    }
}

void HttpReceiver::Server::Serve(int number)
{
    const host::Fd fd(number);
    std::string got;
    const auto read_more = [&] {
        pollfd waiting[] = {{fd.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
        poll(waiting, 2, -1);
        char piece[65536];
        const ssize_t size = waiting[1].revents != 0 ? 0 : read(fd.get(), piece, sizeof piece);
        got.append(piece, size > 0 ? static_cast<size_t>(size) : 0);
        return size > 0;
    };
    for (;;) {
        while (got.find("\r\n\r\n") == std::string::npos) {
            if (!read_more())
                return;
        }
        const size_t head = got.find("\r\n\r\n") + 4;
        Request request = Parse(got.substr(0, head));
        const size_t length = std::stoul(request.headers["content-length"]);
        while (got.size() < head + length) {
            if (!read_more())
                return;
        }
        request.body = got.substr(head, length);
        got.erase(0, head + length);
        std::string reply;
        {
            const std::lock_guard lock(mutex_);
            const int status = rule_(request);
            received_.push_back(request);
            if (status == 200)
                taken_.push_back(request);
            if (status == 0)
                return;
            if (status > 0)
                reply = protocol_ + " " + std::to_string(status) + " X\r\n" + headers_ +
                        "Content-Length: " + std::to_string(body_.size()) + "\r\n\r\n" + body_;
        }
        if (write(fd.get(), reply.data(), reply.size()) < 0)
            return;
    }
}

HttpReceiver::HttpReceiver(int port) : server_(std::make_unique<Server>(port)) {}

HttpReceiver::~HttpReceiver() = default;

int HttpReceiver::port() const
{
    return server_->port();
}

std::string HttpReceiver::Url(const std::string &path) const
{
    return "http://127.0.0.1:" + std::to_string(port()) + path;
}

void HttpReceiver::Answer(Rule rule, std::string body)
{
    server_->Answer(std::move(rule), std::move(body));
}

void HttpReceiver::Speak(const std::string &protocol)
{
    server_->Speak(protocol);
}

void HttpReceiver::AddHeader(const std::string &header)
{
    server_->AddHeader(header);
}

std::vector<Request> HttpReceiver::Received() const
{
    return server_->Received();
}

std::vector<Request> HttpReceiver::Taken() const
{
    return server_->Taken();
}

} // namespace test
