// The fixture of the tests of sinks: a started host with alerts, sinks and a deliverer.
#ifndef TESTS_SINKS_SINK_TEST_H
#define TESTS_SINKS_SINK_TEST_H

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>

#include "agent/alerts/deliverer.h"
#include "tests/host/host_test.h"
#include "tests/sinks/http_receiver.h"

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

    alerts::SinkRegistry Sinks();
    void AddSink(const std::string &kind, const std::string &name, const Options &options);
    static alerts::SinkConfig Config(const std::string &kind, const Options &options);

    // Pauses of 10 to 80 ms, progress written every 20 ms, unless these are others.
    void StartDeliverer(alerts::PauseLimits pauses = {std::chrono::milliseconds(10),
                                                      std::chrono::milliseconds(80)},
                        std::chrono::milliseconds record_every = std::chrono::milliseconds(20));
    void StopDeliverer() { deliverer_.reset(); }
    alerts::Deliverer &Deliverer() { return *deliverer_; }

    // The row of a sink as it was written.
    alerts::Delivery Row(const std::string &sink, const std::string &peer = "");
    bool WaitDelivered(const std::string &sink, int64_t count);

    // A program of the test's own: a shell script.
    std::string Script(const std::string &name, const std::string &text) const;
    // A file with a secret in it.
    std::string SecretFile(const std::string &name, const std::string &secret,
                           unsigned mode = 0600) const;

  private:
    int stored_ = 0;
    std::optional<alerts::Deliverer> deliverer_;
};

// One message with this text, for a sink that is called directly.
alerts::Message MessageOf(const std::string &text, int64_t id = 1);

// The messages, or the keys, of JSON objects.
Strings MessagesOf(const std::vector<Request> &requests);
Strings KeysOf(const std::vector<Request> &requests);
// Without those that came before.
Strings WithoutRepeats(const Strings &all);

} // namespace test

#endif // TESTS_SINKS_SINK_TEST_H
