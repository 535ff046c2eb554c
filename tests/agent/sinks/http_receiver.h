// A receiver of HTTP requests inside the test, which keeps what it gets and answers as it is told.
#ifndef TESTS_AGENT_SINKS_HTTP_RECEIVER_H
#define TESTS_AGENT_SINKS_HTTP_RECEIVER_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

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

    [[nodiscard]] int port() const;
    [[nodiscard]] std::string Url(const std::string &path = "") const;

    // The status of each reply from now on; 0 hangs up instead, -1 never answers.
    using Rule = std::function<int(const Request &)>;
    void Answer(Rule rule, std::string body = "ok");

    // "Name: value", a header of each reply from now on.
    void AddHeader(const std::string &header);

    // What the replies from now on begin with, in the place of "HTTP/1.1".
    void Speak(const std::string &protocol);

    // What was received, whatever the answer was; and only what was answered with 200.
    [[nodiscard]] std::vector<Request> Received() const;
    [[nodiscard]] std::vector<Request> Taken() const;

  private:
    class Server; // with its threads, whose headers no test needs
    std::unique_ptr<Server> server_;
};

} // namespace test

#endif // TESTS_AGENT_SINKS_HTTP_RECEIVER_H
