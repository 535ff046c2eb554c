// Where the sink of a fleet's stream goes on, over servers that have this alert or that one as its last.
#include "agent/alerts/alert_store.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_kinds.h"
#include "tests/agent/nats/nats_server.h"
#include "tests/agent/support/host_test.h"

namespace {

using test::Answer;
using test::Publication;
using Answers = std::vector<Answer>;

class NatsSinkTest : public test::HostTest {
  protected:
    NatsSinkTest()
    {
        config_.kind = &kind_;
        config_.store_uuid = "u";
        config_.options = {{"servers", server_.Access({}).servers.front()}, {"stream", "s"}};
    }
    // The number behind which it goes on when the last message of its subject has this key.
    int64_t PlaceBehind(const std::string &key)
    {
        key_ = key;
        sinks::Secrets secrets;
        return kind_.open(config_, "", secrets)->LastTaken(test::Store().database(), {});
    }
    std::string ErrorBehind(const std::string &key)
    {
        return test::ErrorOf([&] { PlaceBehind(key); });
    }

  private:
    Answers AnswerTo(const Publication &said)
    {
        if (said.subject != "$JS.API.DIRECT.GET.s.syslogmon.alerts.u")
            return {};
        return {{.body = "{}",
                 .headers = "Nats-Stream: s\r\nNats-Subject: syslogmon.alerts.u\r\n"
                            "Nats-Sequence: 7\r\n"
                            "Nats-Time-Stamp: 2026-11-22T10:00:00.000000001Z\r\n"
                            "Nats-Msg-Id: " +
                            key_ + "\r\n"}};
    }

    sinks::SinkKind kind_ = sinks::NatsKind();
    sinks::SinkConfig config_;
    std::string key_; // written before the server is asked
    test::NatsServer server_{[this](const Publication &said) { return AnswerTo(said); }};
};

TEST_F(NatsSinkTest, GoesOnBehindTheAlertOfItsStoreThatTheServersHave)
{
    for (int i = 0; i < 3; ++i)
        alerts::AddAlert(test::Store(), {});
    EXPECT_EQ(2, PlaceBehind(test::Store().series() + "/2"));
}

TEST_F(NatsSinkTest, TakesAnAlertThatItsStoreNeverHadForThatOfACopy)
{
    for (int i = 0; i < 3; ++i)
        alerts::AddAlert(test::Store(), {});
    for (const std::string &key :
         {std::string("another/2"), std::string("/2"), test::Store().series() + "/4",
          test::Store().series() + "/0", std::string("no key")})
        EXPECT_NE(std::string::npos, ErrorBehind(key).find("cloned")) << key;
}

// Its own one has left the store, a daemon of a later life has stored others, and some of those have left it as well.
TEST_F(NatsSinkTest, TellsTheTwoApartAlsoWhenItsOwnAlertHasLeftTheStoreLongAgo)
{
    for (int i = 0; i < 3; ++i)
        alerts::AddAlert(test::Store(), {});
    {
        host::Store later(Layout().Store());
        for (int i = 0; i < 3; ++i)
            alerts::AddAlert(later, {});
    }
    alerts::RemoveAlerts(test::Store(), 5);
    EXPECT_EQ(2, PlaceBehind(test::Store().series() + "/2"));
    EXPECT_NE(std::string::npos, ErrorBehind("another/2").find("cloned"));
}

} // namespace
