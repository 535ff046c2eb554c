// A server that speaks with the clients of a fleet inside the test, and answers as it is told.
#ifndef TESTS_AGENT_NATS_NATS_SERVER_H
#define TESTS_AGENT_NATS_NATS_SERVER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/nats/connection.h"

namespace test {

// What a client has published.
struct Publication {
    std::string subject;
    std::string reply; // where the answer is expected; empty: nowhere
    std::string body;
};

// What the server says to it.
struct Answer {
    std::string body;
    std::string reply = "";   // to which that is answered in turn
    std::string status = "";  // "503": of a message that has nothing but it
    std::string refusal = ""; // instead of all of it: an error beside all requests
    std::string to = "";      // who is to hear it; empty: who has asked
    std::string subject = ""; // that it has; empty: the one to which it is said
    std::string headers = ""; // "Name: value\r\n" for each

    static Answer NobodyIsThere() { return {"", "", "503"}; }
    static Answer Refused(const std::string &subject)
    {
        return {"", "", "", "Permissions Violation for Publish to \"" + subject + "\""};
    }
};

class NatsServer {
  public:
    // On the server's thread. No answer: it is silent.
    using Rule = std::function<std::vector<Answer>(const Publication &)>;

    // Listens on a free port of the loopback interface; one client at a time.
    explicit NatsServer(Rule rule);
    ~NatsServer();
    NatsServer(const NatsServer &) = delete;
    NatsServer &operator=(const NatsServer &) = delete;

    // How a client reaches it, which waits so long for an answer.
    [[nodiscard]] nats::Access Access(std::chrono::milliseconds timeout) const;

  private:
    void Serve();
    void Speak(int client);
    bool Hear(int client, const std::string &line);
    void Say(int client, const Answer &answer, const std::string &to);
    bool ReadBytes(int client, size_t count, std::string *bytes);

    Rule rule_;
    int listening_;
    int port_ = 0;
    std::mutex mutex_; // guards what follows
    int client_ = -1;
    bool stop_ = false;
    // of the thread
    std::string heard_;                                // and not taken yet
    std::map<std::string, std::string> subscriptions_; // subject, number
    std::thread thread_;
};

} // namespace test

#endif // TESTS_AGENT_NATS_NATS_SERVER_H
