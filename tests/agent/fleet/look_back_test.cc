// A look for what is missing of a host, over a server that answers as it is told.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/fleet/look_back.h"
#include "tests/agent/nats/nats_server.h"
#include "tests/agent/support/host_test.h"

namespace {

using test::Answer;
using test::Publication;
using Answers = std::vector<Answer>;

constexpr int64_t kSinceMs = 1795341600000;
constexpr int64_t kUntilMs = kSinceMs + 100'000;

class LookBackTest : public testing::Test {
  protected:
    // What the stream has: messages that were stored at these seconds behind the beginning.
    void Store(const std::vector<int64_t> &seconds, size_t unsaid = 0)
    {
        stored_ = seconds;
        unsaid_ = unsaid;
    }
    bool Look()
    {
        const nats::Connection connection(server_.Access(std::chrono::milliseconds(2000)));
        return fleet::LookBack(connection, "s", &missing_, [&](const auto &some) {
            given_.push_back(some.size());
            for (const fleet::Arrived &arrived : some)
                seconds_.push_back((arrived.stored_ms - kSinceMs) / 1000);
            if (on_given_)
                on_given_();
        });
    }

    fleet::Missing missing_{"u", kSinceMs, kUntilMs};
    std::vector<size_t> given_;    // how many at a time
    std::vector<int64_t> seconds_; // of those that were given
    std::function<void()> on_given_;
    std::chrono::milliseconds reader_made_in_{0};
    std::vector<std::string> asked_;

  private:
    [[nodiscard]] std::string Reader(const nlohmann::json &config) const
    {
        return nlohmann::json{{"type", "io.nats.jetstream.api.v1.consumer_create_response"},
                              {"stream_name", "s"},
                              {"name", "look"},
                              {"created", "2026-11-22T10:00:00Z"},
                              {"config", config},
                              {"delivered", {{"consumer_seq", 0}, {"stream_seq", 0}}},
                              {"num_pending", stored_.size()}}
            .dump();
    }
    // The last messages are promised and not said.
    Answers AnswerTo(const Publication &said)
    {
        if (said.subject.starts_with("$JS.API.CONSUMER.INFO."))
            return {{Reader(config_)}};
        asked_.push_back(said.subject);
        if (said.subject.starts_with("$JS.API.CONSUMER.DELETE."))
            return {
                {R"({"type":"io.nats.jetstream.api.v1.consumer_delete_response","success":true})"}};
        if (!said.subject.starts_with("$JS.API.CONSUMER.CREATE."))
            return {};
        std::this_thread::sleep_for(reader_made_in_);
        config_ = nlohmann::json::parse(said.body)["config"];
        Answers answers{{Reader(config_)}};
        for (size_t i = 0; i + unsaid_ < stored_.size(); ++i) {
            const std::string number = std::to_string(i + 1);
            answers.push_back({.body = "body",
                               .reply = "$JS.ACK.s.look.1." + number + "." + number + "." +
                                        std::to_string(kSinceMs + stored_[i] * 1000) + "000000." +
                                        std::to_string(stored_.size() - i - 1),
                               .to = config_["deliver_subject"],
                               .subject = "syslogmon.alerts.u"});
        }
        return answers;
    }

    std::vector<int64_t> stored_;
    size_t unsaid_ = 0;
    nlohmann::json config_;
    test::NatsServer server_{[this](const Publication &said) { return AnswerTo(said); }};
};

TEST_F(LookBackTest, GivesAllMessagesOfTheHost)
{
    Store({1, 2, 3});
    EXPECT_TRUE(Look());
    EXPECT_EQ((std::vector<int64_t>{1, 2, 3}), seconds_);
}

TEST_F(LookBackTest, WaitsForNothingWhereNothingIs)
{
    Store({});
    EXPECT_TRUE(Look());
    EXPECT_EQ(0U, given_.size());
}

TEST_F(LookBackTest, GoesNoFurtherThanItIsAskedFor)
{
    Store({1, 101, 102}, 1); // which it would wait for
    EXPECT_TRUE(Look());
    EXPECT_EQ((std::vector<int64_t>{1, 101}), seconds_);
}

TEST_F(LookBackTest, GivesWhatHasComeWhenNoMoreComes)
{
    Store({1, 2, 3}, 1);
    EXPECT_NE("no error", test::ErrorOf([&] { Look(); }));
    EXPECT_EQ((std::vector<int64_t>{1, 2}), seconds_);
}

TEST_F(LookBackTest, HasFiveHundredMessagesInMemoryAtMost)
{
    Store(std::vector<int64_t>(1200, 1));
    EXPECT_TRUE(Look());
    EXPECT_EQ((std::vector<size_t>{500, 500, 200}), given_);
}

TEST_F(LookBackTest, EndsBehindASecondAndGoesOnLaterWhereItWas)
{
    Store(std::vector<int64_t>(1200, 7));
    on_given_ = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); };
    EXPECT_FALSE(Look());
    EXPECT_EQ(500U, seconds_.size());
    EXPECT_EQ(kSinceMs + 7000, missing_.since_ms);
}

TEST_F(LookBackTest, ReadsAlsoWhatServersGiveThatTakeLongToMakeAReader)
{
    Store({1, 2, 3});
    reader_made_in_ = std::chrono::milliseconds(1100);
    EXPECT_TRUE(Look());
    EXPECT_EQ((std::vector<int64_t>{1, 2, 3}), seconds_);
}

TEST_F(LookBackTest, LeavesNoReaderBehind)
{
    Store({1});
    Look();
    ASSERT_EQ(2U, asked_.size());
    EXPECT_EQ("$JS.API.CONSUMER.DELETE.s.look", asked_[1]);
}

} // namespace
