// The fixture of the tests of sinks: a started host with alerts, sinks and a deliverer.
#ifndef TESTS_AGENT_SINKS_SINK_TEST_H
#define TESTS_AGENT_SINKS_SINK_TEST_H

#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "tests/agent/sinks/http_receiver.h"
#include "tests/agent/support/host_test.h"

namespace sinks {
class Deliverer;
} // namespace sinks

namespace test {

using Options = std::map<std::string, std::string>;
using Strings = std::vector<std::string>;

// Waits until it holds; false when it does not within half a minute.
bool Eventually(const std::function<bool()> &condition);

class SinkTest : public HostTest {
  protected:
    SinkTest();
    ~SinkTest() override;

    // Stores so many alerts in one transaction, with the next numbers as their messages.
    void Store(int count);
    // As Store, and tells the deliverer.
    void Report(int count);
    // "0", "1" ... up to what was stored.
    [[nodiscard]] Strings AllStored() const;

    sinks::SinkRegistry Sinks();
    // Without a bound on what it sends (rate=none), unless the options say so.
    void AddSink(const std::string &kind, const std::string &name, const Options &options);
    static sinks::SinkConfig Config(const std::string &kind, const Options &options);

    struct Times {
        // The first and the longest pause after a failure.
        std::chrono::milliseconds pause{10};
        std::chrono::milliseconds longest_pause{80};
        std::chrono::milliseconds record_every{20}; // how often the progress is written
    };
    void StartDeliverer();
    void StartDeliverer(const Times &times);
    void StopDeliverer();
    // Alerts were stored, or settings changed, which the deliverer is told of.
    void Wake();
    void Reload();

    // The row of a sink as it was written.
    sinks::Delivery Row(const std::string &sink, const std::string &peer = "");
    // What was put aside for a sink, as "PEER ID REASON"; without a peer, "ID REASON".
    Strings Undelivered(const std::string &sink);
    bool WaitDelivered(const std::string &sink, int64_t count);

    // A program of the test's own: a shell script.
    std::string Script(const std::string &name, const std::string &text) const;
    // A file with a secret in it.
    std::string SecretFile(const std::string &name, const std::string &secret,
                           unsigned mode = 0600) const;

  private:
    int stored_ = 0;
    std::unique_ptr<sinks::Deliverer> deliverer_;
};

// One message with this text, for a sink that is called directly.
sinks::Message MessageOf(const std::string &text, int64_t id = 1);

// The messages, or the keys, of JSON objects.
Strings MessagesOf(const std::vector<Request> &requests);
Strings KeysOf(const std::vector<Request> &requests);
// Without those that came before.
Strings WithoutRepeats(const Strings &all);

} // namespace test

#endif // TESTS_AGENT_SINKS_SINK_TEST_H
