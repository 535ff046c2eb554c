#include "tests/agent/sinks/sink_test.h"

#include <algorithm>
#include <csignal>
#include <set>
#include <sys/stat.h>
#include <thread>

#include "agent/sinks/deliverer.h"
#include "agent/sinks/undelivered.h"
#include "tests/support/json_text.h"

namespace test {

using std::chrono::milliseconds;

bool Eventually(const std::function<bool()> &condition)
{
#ifdef __SANITIZE_THREAD__
    constexpr std::chrono::seconds kPatience{300}; // ten times as slow, beside other campaigns
#else
    constexpr std::chrono::seconds kPatience{30};
#endif
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
}

SinkTest::SinkTest()
{
    signal(SIGPIPE, SIG_IGN); // as in the daemon
}

SinkTest::~SinkTest()
{
    StopDeliverer(); // before the host that it works with
}

void SinkTest::Store(int count)
{
    host::Transaction transaction(test::Store());
    for (int i = 0; i < count; ++i) {
        alerts::Alert alert;
        alert.time_ms = 1795222801000 + stored_;
        alert.host = "host";
        alert.log_name = "Application";
        alert.source = "DISK";
        alert.event_id = 0x1A2B;
        alert.count = 3;
        alert.message = std::to_string(stored_++);
        alerts::AddAlert(test::Store(), alert);
    }
    transaction.Commit();
}

void SinkTest::Report(int count)
{
    Store(count);
    Wake();
}

Strings SinkTest::AllStored() const
{
    Strings all;
    for (int i = 0; i < stored_; ++i)
        all.push_back(std::to_string(i));
    return all;
}

sinks::SinkRegistry SinkTest::Sinks()
{
    return {test::Store(), test::Registry()};
}

sinks::SinkConfig SinkTest::Config(const std::string &kind, const Options &options)
{
    sinks::SinkConfig config;
    config.kind = &sinks::FindKind(kind);
    config.name = "a sink";
    config.options = options;
    // What tests of one alert after the other look at is not how many there may be.
    for (const sinks::SinkOption &option : config.kind->options) {
        if (std::string(option.name) == sinks::kRateOption)
            config.options.emplace(sinks::kRateOption, "none");
    }
    return config;
}

void SinkTest::AddSink(const std::string &kind, const std::string &name, const Options &options)
{
    sinks::SinkConfig config = Config(kind, options);
    config.name = name;
    Sinks().Add(config);
    if (deliverer_)
        deliverer_->Reload();
}

void SinkTest::StartDeliverer()
{
    StartDeliverer(Times());
}

void SinkTest::StartDeliverer(const Times &times)
{
    deliverer_ = std::make_unique<sinks::Deliverer>(
        sinks::DelivererOptions{Layout(), {times.pause, times.longest_pause}, times.record_every});
}

void SinkTest::StopDeliverer()
{
    deliverer_.reset();
}

void SinkTest::Wake()
{
    deliverer_->Wake();
}

void SinkTest::Reload()
{
    deliverer_->Reload();
}

sinks::Delivery SinkTest::Row(const std::string &sink, const std::string &peer)
{
    const auto config = Sinks().Find(sink).config;
    return sinks::ReadDeliveries(test::Store().database(), config.key)[peer];
}

Strings SinkTest::Undelivered(const std::string &sink)
{
    Strings all;
    const auto config = Sinks().Find(sink).config;
    for (const auto &row : sinks::ReadUndelivered(test::Store().database(), config.key))
        all.push_back((row.peer.empty() ? "" : row.peer + " ") + std::to_string(row.alert_id) +
                      " " + row.reason);
    return all;
}

bool SinkTest::WaitDelivered(const std::string &sink, int64_t count)
{
    return Eventually([&] { return Row(sink).delivered >= count; });
}

std::string SinkTest::Script(const std::string &name, const std::string &text) const
{
    const auto path = File(name);
    WriteFile(path, "#!/bin/sh\n" + text + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

std::string SinkTest::SecretFile(const std::string &name, const std::string &secret,
                                 unsigned mode) const
{
    const auto path = File(name);
    WriteFile(path, secret + "\n");
    chmod(path.c_str(), mode);
    return path;
}

sinks::Message MessageOf(const std::string &text, int64_t id)
{
    sinks::Message message;
    message.alert.id = id;
    message.alert.time_ms = 1795222801000;
    message.alert.host = "host";
    message.alert.log_name = "Application";
    message.alert.source = "DISK";
    message.alert.event_id = 0x1A2B;
    message.alert.count = 3;
    message.alert.message = text;
    message.key = "uuid/" + std::to_string(id);
    return message;
}

namespace {

Strings FieldOf(const std::vector<Request> &requests, const char *place)
{
    Strings values;
    for (const Request &request : requests)
        values.push_back(JsonAt(request.body, place));
    return values;
}

} // namespace

Strings MessagesOf(const std::vector<Request> &requests)
{
    return FieldOf(requests, "/message");
}

Strings KeysOf(const std::vector<Request> &requests)
{
    return FieldOf(requests, "/key");
}

Strings WithoutRepeats(const Strings &all)
{
    std::set<std::string> seen;
    Strings first;
    std::copy_if(all.begin(), all.end(), std::back_inserter(first),
                 [&](const std::string &one) { return seen.insert(one).second; });
    return first;
}

} // namespace test
