// The stream of a fleet: what the kind takes for options, and a receiver that knows better how far it is.
#include <mutex>

#include "agent/sinks/nats_options.h"
#include "agent/sinks/worker.h"
#include "tests/agent/sinks/sink_test.h"

namespace {

using test::Options;
using test::Strings;

class NatsOptionsTest : public test::SinkTest {
  protected:
    std::string Refusal(const Options &options)
    {
        return test::ErrorOf([&] { sinks::CheckSink(Config("nats", options)); });
    }
    void ExpectRefused(Options options, const std::string &part)
    {
        options.emplace("servers", "nats://127.0.0.1:4222");
        EXPECT_NE(std::string::npos, Refusal(options).find(part)) << Refusal(options);
    }
};

TEST_F(NatsOptionsTest, ServersAreUrlsWithoutSecrets)
{
    for (const char *good : {"nats://a", "nats://a:4222,tls://b:4223", "nats://[::1]:4222"})
        EXPECT_EQ("no error", Refusal({{"servers", good}})) << good;
    for (const char *bad : {"a:4222", "http://a", "nats://", "nats://u:p@a", ",", "nats://a b", ""})
        EXPECT_NE("no error", Refusal({{"servers", bad}})) << bad;
}

TEST_F(NatsOptionsTest, OptionsGoTogether)
{
    ExpectRefused({{"user", "u"}}, "add password-file");
    ExpectRefused({{"cert", SecretFile("cert", "c")}}, "add key");
    ExpectRefused({{"user", "u"},
                   {"password-file", SecretFile("password", "p")},
                   {"token-file", SecretFile("token", "t")}},
                  "more than one way");
    ExpectRefused({{"credentials-file", "/nowhere/creds"}}, "/nowhere/creds: No such file");
    ExpectRefused({{"stream", "a.b"}}, "letters, digits");
}

TEST_F(NatsOptionsTest, WhatGoesUnencryptedOverANetworkIsWarnedOf)
{
    const auto warnings = [](const std::string &servers) {
        return sinks::PlainNatsWarnings(Config("nats", {{"servers", servers}}));
    };
    EXPECT_EQ(1U, warnings("nats://127.0.0.1,nats://b").size());
    EXPECT_EQ(0U, warnings("tls://a").size());
    EXPECT_EQ(0U, warnings("nats://a,tls://b").size()); // all of them must encrypt
    EXPECT_EQ(0U, warnings("nats://127.0.0.1:4222,nats://localhost").size());
}

TEST_F(NatsOptionsTest, WhatWasDeliveredLatelyStaysInTheStoreUpToTwiceTheLimit)
{
    Sinks().SetAlertLimit("100");
    AddSink("nats", "fleet", {{"servers", "nats://127.0.0.1:1"}});
    sinks::Delivery row;
    row.last_id = 20;
    row.delivered = 20;
    sinks::WriteDeliveries(test::Store(), Sinks().Find("fleet").config.key, {{"", row}});
    StartDeliverer();
    Report(250);
    const auto oldest = [] { return alerts::OldestAlertId(test::Store().database()); };
    ASSERT_TRUE(test::Eventually([&] { return oldest() > 1; }));
    EXPECT_EQ(51, oldest());
    StopDeliverer();
    EXPECT_EQ(51, oldest());
}

// ---- a receiver that knows what it has ----

// What it was sent, as "AFTER ID" or "AFTER ID -LOST"; it can forget, and fail.
struct Memory {
    std::mutex mutex;
    Strings sent;
    int64_t last_id = -1; // -1: as noted
    int64_t asked = 0;
    bool is_full = false; // it says where it is, and takes nothing
};
Memory *memory;

class RememberingSink : public sinks::Sink {
  public:
    int64_t LastTaken(host::Database &, const sinks::Delivery &noted) override
    {
        const std::lock_guard lock(memory->mutex);
        ++memory->asked;
        if (memory->last_id < 0)
            memory->last_id = noted.last_id;
        return memory->last_id;
    }
    [[nodiscard]] size_t batch() const override { return 3; }
    sinks::Outcome Send(std::span<const sinks::Message> messages, const sinks::Interrupt &) override
    {
        const std::lock_guard lock(memory->mutex);
        if (memory->is_full)
            return sinks::Failed("full");
        for (const sinks::Message &message : messages) {
            memory->last_id = message.alert.id;
            memory->sent.push_back(std::to_string(message.after) + " " +
                                   std::to_string(message.alert.id) +
                                   (message.lost > 0 ? " -" + std::to_string(message.lost) : ""));
        }
        return sinks::AllTaken(messages, "");
    }
};

sinks::SinkKind RememberingKind()
{
    sinks::SinkKind kind;
    kind.name = "remembering";
    kind.help = "of a test";
    kind.open = [](const sinks::SinkConfig &, const std::string &,
                   sinks::Secrets &) -> std::unique_ptr<sinks::Sink> {
        return std::make_unique<RememberingSink>();
    };
    kind.look = [](const sinks::SinkConfig &) { return std::chrono::milliseconds(20); };
    return kind;
}

class PlaceTest : public test::SinkTest {
  protected:
    PlaceTest() { memory = &memory_; }
    ~PlaceTest() override { worker_.reset(); }

    void StartWorker(int64_t noted)
    {
        sinks::SinkConfig config;
        config.name = "place";
        config.kind = &kind_;
        sinks::Delivery row;
        row.last_id = noted;
        row.delivered = noted;
        progress_ = std::make_shared<sinks::Progress>(sinks::Deliveries{{"", row}}, std::nullopt);
        worker_ = std::make_unique<sinks::Worker>(
            sinks::WorkerContext{Layout().Store(),
                                 {std::chrono::milliseconds(5), std::chrono::milliseconds(20)},
                                 [] {},
                                 std::chrono::seconds(1),
                                 [] { return true; }},
            config, "", progress_);
    }
    bool WaitSent(size_t count)
    {
        return test::Eventually([&] { return Sent().size() >= count; });
    }
    static Strings Sent()
    {
        const std::lock_guard lock(memory->mutex);
        return memory->sent;
    }
    std::string Error() { return progress_->RowOf("").last_error; }
    void StartWithFullReceiver()
    {
        Store(1);
        memory_.is_full = true;
        StartWorker(0);
        ASSERT_TRUE(test::Eventually([&] { return Error() == "full"; }));
    }
    static int64_t Asked()
    {
        const std::lock_guard lock(memory->mutex);
        return memory->asked;
    }

    Memory memory_;
    sinks::SinkKind kind_ = RememberingKind();
    std::shared_ptr<sinks::Progress> progress_;
    std::unique_ptr<sinks::Worker> worker_;
};

TEST_F(PlaceTest, ItGoesOnBehindWhatTheReceiverHasAndNotBehindWhatWasNoted)
{
    Store(5);
    memory_.last_id = 2;
    StartWorker(4);
    ASSERT_TRUE(WaitSent(3));
    EXPECT_EQ((Strings{"2 3", "3 4", "4 5"}), Sent());
}

TEST_F(PlaceTest, WhatTheReceiverHasBeyondWhatWasNotedIsNotSentAgain)
{
    Store(5);
    memory_.last_id = 4;
    StartWorker(1);
    ASSERT_TRUE(WaitSent(1));
    EXPECT_EQ(Strings{"4 5"}, Sent());
}

TEST_F(PlaceTest, WhatTheReceiverForgetsIsSentAgainAlthoughNothingNewIsReported)
{
    Store(3);
    StartWorker(0);
    ASSERT_TRUE(WaitSent(3));
    {
        const std::lock_guard lock(memory_.mutex);
        memory_.last_id = 1;
    }
    ASSERT_TRUE(WaitSent(5));
    EXPECT_EQ((Strings{"0 1", "1 2", "2 3", "1 2", "2 3"}), Sent());
}

TEST_F(PlaceTest, WhatHasLeftTheStoreUnsentIsCounted)
{
    Store(9);
    alerts::RemoveAlerts(test::Store(), 6);
    memory_.last_id = 2;
    StartWorker(6);
    ASSERT_TRUE(WaitSent(3));
    EXPECT_EQ((Strings{"2 7 -4", "7 8", "8 9"}), Sent());
}

TEST_F(PlaceTest, AReceiverThatSaysWhereItIsAndTakesNothingFailsUntilItTakesSomething)
{
    StartWithFullReceiver();
    for (const int64_t asked = Asked(); Asked() < asked + 5;)
        ASSERT_EQ("full", Error());
    {
        const std::lock_guard lock(memory_.mutex);
        memory_.is_full = false;
    }
    EXPECT_TRUE(test::Eventually([&] { return Error().empty(); }));
    EXPECT_EQ(Strings{"0 1"}, Sent());
}

TEST_F(PlaceTest, AReceiverIsWellWhenNothingIsLeftThatItCouldRefuse)
{
    StartWithFullReceiver();
    alerts::RemoveAlerts(test::Store(), 1);
    EXPECT_TRUE(test::Eventually([&] { return Error().empty(); }));
}

TEST_F(PlaceTest, AlertsOfOtherHostsAreNotSentOn)
{
    Store(1);
    alerts::Alert collected;
    collected.host = "other";
    collected.key = "other/1";
    alerts::AddCollectedAlert(test::Store(), collected);
    Store(1);
    StartWorker(0);
    ASSERT_TRUE(WaitSent(2));
    EXPECT_EQ((Strings{"0 1", "1 3"}), Sent());
    // Nor are they read again with each question.
    const int64_t asked = Asked();
    ASSERT_TRUE(test::Eventually([&] { return Asked() > asked + 3; }));
    EXPECT_EQ(3, progress_->LastId(""));
    EXPECT_EQ(2U, Sent().size());
}

} // namespace
