// A receiver of HTTP requests inside the test, which keeps what it gets and answers as it is told.
#ifndef TESTS_SINKS_HTTP_RECEIVER_H
#define TESTS_SINKS_HTTP_RECEIVER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/libtarsk/waitable.h"

namespace test {

struct Request {
    std::string path;
    std::map<std::string, std::string> headers; // names in lower case
    std::string body;
};

class HttpReceiver {
  public:
    // Listens on a free port of the loopback interface, or on this one.
    explicit HttpReceiver(int port = 0);
    ~HttpReceiver();
    HttpReceiver(const HttpReceiver &) = delete;
    HttpReceiver &operator=(const HttpReceiver &) = delete;

    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] std::string Url(const std::string &path = "") const;

    // The status of each reply from now on; 0 hangs up instead, -1 never answers.
    using Rule = std::function<int(const Request &)>;
    void Answer(Rule rule, std::string body = "ok");

    // What was received, whatever the answer was; and only what was answered with 200.
    [[nodiscard]] std::vector<Request> Received() const;
    [[nodiscard]] std::vector<Request> Taken() const;

  private:
    void Listen();
    void Serve(int fd);

    tarsk::Fd listener_;
    tarsk::Fd end_; // an eventfd that ends all threads
    int port_ = 0;
    mutable std::mutex mutex_; // guards what follows
    Rule rule_ = [](const Request &) { return 200; };
    std::string body_ = "ok";
    std::vector<Request> received_;
    std::vector<Request> taken_;
    std::vector<std::thread> servers_;
    std::thread thread_;
};

} // namespace test

#endif // TESTS_SINKS_HTTP_RECEIVER_H
