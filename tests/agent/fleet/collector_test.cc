// The collector over servers that cannot look for what is missing.
#include <atomic>

#include "agent/fleet/collector.h"
#include "agent/fleet/holes.h"
#include "agent/host/here_and_now.h"
#include "agent/sinks/alert_json.h"
#include "tests/agent/nats/nats_server.h"
#include "tests/agent/nats/stream_answers.h"
#include "tests/agent/support/host_test.h"

namespace {

using test::Answer;
using test::Publication;
using Answers = std::vector<Answer>;

constexpr char kNoRoom[] = R"({"type":"io.nats.jetstream.api.v1.consumer_create_response",
    "error":{"code":503,"err_code":10023,"description":"insufficient resources"}})";

class CollectorTest : public test::HostTest {
  protected:
    // Of which one alert is missing, since a while ago.
    void MissOneOf(const std::string &uuid)
    {
        fleet::Holes holes;
        holes.Add({2, 2}, host::NowMs() - 5000);
        test::Store().Write([&](host::Database &database) { holes.Write(database, uuid); });
    }
    void Begin()
    {
        fleet::CollectorOptions options;
        options.layout = Layout();
        options.config.kind = &kind_;
        options.config.store_uuid = "test";
        options.config.options = {
            {"stream", "s"}, {"timeout", "1"}, {"servers", server_.Access(kTimeout).servers[0]}};
        options.stored = [this] { stored_ = true; };
        collector_.emplace(options);
    }
    static bool WasLookedFor(const std::string &uuid)
    {
        const fleet::Holes holes(test::Store().database(), uuid);
        return holes.all()[0].tries > 0;
    }
    template <typename Condition>
    static bool Becomes(const Condition &condition)
    {
        for (int tries = 0; tries < 3000 && !condition(); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return condition();
    }
    static std::string Body()
    {
        sinks::Message message;
        message.alert.id = 1;
        message.alert.host = "a";
        message.alert.source = "DISK";
        message.alert.time_ms = 1795222801000;
        message.alert.key = message.key = "series/1";
        return sinks::AlertJson(message);
    }
    Answers AnswerTo(const Publication &said)
    {
        if (said.subject.starts_with("$JS.API.STREAM.INFO.")) {
            ++began_;
            return {{test::StreamInfo(1)}};
        }
        if (said.subject.starts_with("$JS.API.CONSUMER.INFO."))
            return {{test::ReaderInfo(0)}};
        if (said.subject.starts_with("$JS.API.CONSUMER.CREATE."))
            return {{kNoRoom}};
        if (said.subject.starts_with("$JS.API.CONSUMER.MSG.NEXT.") && is_there_.exchange(false))
            return {{Body(), "$JS.ACK.s.r.1.1.1.1795341601000000000.0"}};
        return {};
    }

    static constexpr std::chrono::milliseconds kTimeout{1000};
    sinks::SinkKind kind_ = fleet::CollectKind();
    std::atomic<int> began_{0};
    std::atomic<bool> is_there_{false}; // a message
    std::atomic<bool> stored_{false};
    test::NatsServer server_{[this](const Publication &said) { return AnswerTo(said); }};
    std::optional<fleet::Collector> collector_;
};

TEST_F(CollectorTest, GoesOnWithItsConnectionWhenTheServersCannotLookForWhatIsMissing)
{
    MissOneOf("u");
    Begin();
    EXPECT_TRUE(Becomes([] { return WasLookedFor("u"); }));
    is_there_ = true;
    EXPECT_TRUE(Becomes([this] { return stored_.load(); }));
    EXPECT_EQ(1, began_);
    EXPECT_EQ("", fleet::ReadCollectState(test::Store().database()).problem);
}

} // namespace
