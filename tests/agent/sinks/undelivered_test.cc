// Alerts that a receiver does not take although it takes others: none of them holds up another.
#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "agent/sinks/undelivered.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/agent/support/command_test.h"
#include "tests/support/json_text.h"

namespace {

using test::Eventually;
using test::HttpReceiver;
using test::JsonAt;
using test::MessagesOf;
using test::Request;
using test::Strings;

class UndeliveredTest : public test::SinkTest {
  protected:
    ~UndeliveredTest() override { StopDeliverer(); } // before its receiver

    void AddWebhook(const test::Options &options = {})
    {
        test::Options all = options;
        all["url"] = receiver_.Url();
        AddSink("webhook", "hook", all);
    }
    // The receiver answers so to alerts with these messages, and takes all others.
    void Poison(const Strings &messages, int status = 500)
    {
        receiver_.Answer([messages, status](const Request &request) {
            const std::string message = JsonAt(request.body, "/message");
            const bool is_one =
                std::find(messages.begin(), messages.end(), message) != messages.end();
            return is_one ? status : 200;
        });
    }
    // The messages that were taken, by their numbers.
    Strings Taken()
    {
        Strings taken = MessagesOf(receiver_.Taken());
        std::sort(taken.begin(), taken.end(), [](const std::string &a, const std::string &b) {
            return std::stoi(a) < std::stoi(b);
        });
        return taken;
    }
    Strings AllBut(const Strings &messages)
    {
        Strings all = AllStored();
        std::erase_if(all, [&](const std::string &one) {
            return std::find(messages.begin(), messages.end(), one) != messages.end();
        });
        return all;
    }
    void Want(void (*what)(host::Store &, int64_t, int64_t), int64_t alert_id)
    {
        what(test::Store(), Sinks().Find("hook").config.key, alert_id);
        Reload();
    }

    // The first two are put aside, and the others taken.
    void RefuseTwoOfFour()
    {
        AddWebhook();
        Poison({"0", "1"});
        StartDeliverer();
        Report(4);
        ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 2; }));
    }

    HttpReceiver receiver_;
};

TEST_F(UndeliveredTest, AnAlertThatTheReceiverFailsOverIsPutAsideAndTheOthersArrive)
{
    AddWebhook();
    Poison({"3"});
    StartDeliverer();
    Report(20);
    ASSERT_TRUE(WaitDelivered("hook", 19));
    EXPECT_EQ(AllBut({"3"}), Taken());
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook") == Strings{"4 HTTP 500 ok"}; }));
    EXPECT_EQ(20, Row("hook").last_id);
    EXPECT_EQ(0, Row("hook").dropped);
    EXPECT_EQ("", Row("hook").last_error);
}

TEST_F(UndeliveredTest, ItIsToldOfOnStandardError)
{
    AddWebhook();
    Poison({"0"});
    testing::internal::CaptureStderr();
    StartDeliverer();
    Report(2);
    const bool is_listed = Eventually([&] { return Undelivered("hook").size() == 1; });
    StopDeliverer();
    EXPECT_EQ(
        "syslogmond: the sink hook does not take the alert 1, although it takes others: HTTP 500 "
        "ok; the alert is put aside, see syslogmon sink undelivered hook\n",
        testing::internal::GetCapturedStderr());
    EXPECT_TRUE(is_listed);
}

TEST_F(UndeliveredTest, ARunOfThemDoesNotHoldUpTheOthersEither)
{
    AddWebhook();
    Strings poison;
    for (int i = 2; i < 30; ++i)
        poison.push_back(std::to_string(i));
    Poison(poison);
    StartDeliverer();
    Report(60);
    ASSERT_TRUE(WaitDelivered("hook", 32));
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == poison.size(); }));
    EXPECT_EQ(AllBut(poison), Taken()) << "each once";
}

TEST_F(UndeliveredTest, OneThatIsNeverAnsweredIsPutAside)
{
    AddWebhook({{"timeout", "1"}});
    Poison({"0"}, -1);
    StartDeliverer();
    Report(3);
    ASSERT_TRUE(WaitDelivered("hook", 2));
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    EXPECT_NE(std::string::npos, Undelivered("hook")[0].find("timed out"))
        << Undelivered("hook")[0];
}

TEST_F(UndeliveredTest, OneOverWhichAProgramFailsIsPutAside)
{
    const std::string program = Script("program", "grep -q '\"message\":\"1\"' && exit 3; exit 0");
    AddSink("program", "hook", {{"command", program}});
    StartDeliverer();
    Report(4);
    ASSERT_TRUE(WaitDelivered("hook", 3));
    EXPECT_TRUE(Eventually(
        [&] { return Undelivered("hook") == Strings{"2 " + program + " ended with status 3"}; }));
}

TEST_F(UndeliveredTest, AReceiverThatIsDownLosesNothingAndGetsAllInOrder)
{
    AddWebhook();
    for (const int status : {503, 429, 401, 404}) {
        receiver_.Answer([=](const Request &) { return status; });
        if (status == 503)
            StartDeliverer();
        const size_t before = receiver_.Received().size();
        const int64_t delivered = Row("hook").delivered;
        Report(10);
        ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() > before + 8; }));
        receiver_.Answer([](const Request &) { return 200; });
        ASSERT_TRUE(WaitDelivered("hook", delivered + 10));
    }
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Taken()));
    EXPECT_TRUE(Undelivered("hook").empty());
}

TEST_F(UndeliveredTest, AReceiverThatFailsOverEverythingLosesNothing)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 500; });
    StartDeliverer();
    Report(10);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() > 40; }));
    EXPECT_TRUE(Undelivered("hook").empty());
    EXPECT_EQ(0, Row("hook").last_id);
    receiver_.Answer([](const Request &) { return 200; });
    ASSERT_TRUE(WaitDelivered("hook", 10));
    EXPECT_EQ(AllStored(), Taken()) << "each once";
}

TEST_F(UndeliveredTest, ItIsListedAcrossARestart)
{
    AddWebhook();
    Poison({"0"});
    StartDeliverer();
    Report(3);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    StopDeliverer();
    const size_t received = receiver_.Received().size();
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 3));
    EXPECT_EQ(received + 1, receiver_.Received().size()) << "it is not tried again by itself";
    EXPECT_EQ(1U, Undelivered("hook").size());
}

TEST_F(UndeliveredTest, OneThatIsSentAgainArrives)
{
    RefuseTwoOfFour();
    Poison({});
    Want(sinks::WantAgain, 2);
    ASSERT_TRUE(WaitDelivered("hook", 3));
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook") == Strings{"1 HTTP 500 ok"}; }));
    EXPECT_EQ("1", MessagesOf(receiver_.Taken()).back());
}

TEST_F(UndeliveredTest, OneThatIsSentAgainAndNotTakenStaysInTheList)
{
    AddWebhook();
    Poison({"0"});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    Poison({"0"}, 422);
    Want(sinks::WantAgain, 1);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook") == Strings{"1 HTTP 422 ok"}; }));
    Report(1);
    EXPECT_TRUE(WaitDelivered("hook", 2)) << "and holds up nothing";
}

TEST_F(UndeliveredTest, OneThatIsToBeSentAgainWaitsForTheReceiverAndTheDaemon)
{
    AddWebhook();
    Poison({"0"});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    receiver_.Answer([](const Request &) { return 503; });
    const size_t before = receiver_.Received().size();
    Want(sinks::WantAgain, 1);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() > before + 2; }));
    StopDeliverer();
    Poison({});
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("hook", 2));
    EXPECT_TRUE(Eventually([&] { return Undelivered("hook").empty(); }));
}

TEST_F(UndeliveredTest, ThoseThatSomebodyHasSentAgainTakeNoTokenFromTheOthers)
{
    RefuseTwoOfFour();
    Poison({});
    Sinks().Change("hook", [](sinks::StoredSink &sink) { sink.config.options["rate"] = "1/d"; });
    Want(sinks::WantAgain, 1);
    Want(sinks::WantAgain, 2);
    ASSERT_TRUE(WaitDelivered("hook", 4)) << "nor do they wait for one";
    Report(1);
    EXPECT_TRUE(WaitDelivered("hook", 5));
}

TEST_F(UndeliveredTest, OneThatLeavesTheStoreCountsAsDropped)
{
    Sinks().SetAlertLimit("100");
    AddWebhook();
    Poison({"0"});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    Report(90);
    ASSERT_TRUE(WaitDelivered("hook", 91));
    Report(30);
    ASSERT_TRUE(WaitDelivered("hook", 121));
    EXPECT_TRUE(Eventually([&] { return Undelivered("hook").empty(); }));
    EXPECT_TRUE(Eventually([&] { return Row("hook").dropped == 1; }));
}

TEST_F(UndeliveredTest, ARemovedSinkTakesItsListAlong)
{
    AddWebhook();
    Poison({"0"});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(Eventually([&] { return Undelivered("hook").size() == 1; }));
    const int64_t key = Sinks().Find("hook").config.key;
    Sinks().Remove("hook");
    EXPECT_TRUE(sinks::ReadUndelivered(test::Store().database(), key).empty());
}

TEST_F(UndeliveredTest, AStoreThatCannotBeReadIsNoErrorOfTheReceiver)
{
    AddWebhook();
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    const auto rename = [](const char *from, const char *to) {
        test::Store().Write([&](host::Database &database) {
            const std::string sql = std::string("ALTER TABLE ") + from + " RENAME TO " + to;
            database.Execute(sql.c_str());
        });
    };
    const host::Fd old(dup(STDERR_FILENO));
    const host::Fd told(open(File("told").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    dup2(told.get(), STDERR_FILENO);
    rename("alert", "hidden");
    Wake();
    const bool is_told = Eventually([&] {
        return test::ReadFile(File("told")).find("the alerts for the sink hook cannot be read") !=
               std::string::npos;
    });
    dup2(old.get(), STDERR_FILENO);
    EXPECT_TRUE(is_told) << test::ReadFile(File("told"));
    EXPECT_EQ("", Row("hook").last_error);
    rename("hidden", "alert");
    Report(1);
    EXPECT_TRUE(WaitDelivered("hook", 2));
}

// ---- the commands ----

class UndeliveredCommand : public test::CommandTest {
  protected:
    // A sink with two alerts that it does not take, with the ids 1 and 2.
    void SetUp() override
    {
        ExpectDone({"sink", "add", "console", "out"});
        StartHere();
        sinks::SinkRegistry sinks(test::Store(), test::Registry());
        const int64_t key = sinks.Find("out").config.key;
        std::vector<sinks::UndeliveredChange> changes;
        for (const char *text : {"first", "second"}) {
            alerts::Alert alert;
            alert.source = "DISK";
            alert.message = text;
            const int64_t id = alerts::AddAlert(test::Store(), alert);
            changes.push_back({{"", id, 1795222801000, "HTTP 500", false}, false});
        }
        sinks::WriteChanges(test::Store(), key, changes);
        test::StopHost();
    }
    [[nodiscard]] std::string Listed(const std::string &place) const
    {
        return JsonAt(JsonText({"sink", "undelivered", "out"}), "/undelivered" + place);
    }
};

TEST_F(UndeliveredCommand, ShowsEachWithItsReason)
{
    EXPECT_EQ("1", Listed("/0/id"));
    EXPECT_EQ("first", Listed("/0/message"));
    EXPECT_EQ("HTTP 500", Listed("/0/reason"));
    EXPECT_EQ("1795222801000", Listed("/0/since_ms"));
    EXPECT_EQ("2", Listed("/1/id"));
    const std::string out = Syslogmon({"sink", "undelivered", "OUT"}).out;
    EXPECT_EQ(2, std::count(out.begin(), out.end(), '\n'));
    EXPECT_NE(std::string::npos, out.find("\t-\tHTTP 500\tfirst\n")) << out;
}

TEST_F(UndeliveredCommand, TheListOfSinksCountsAndWarns)
{
    const test::Finished listed = Syslogmon({"sink", "list"});
    EXPECT_EQ("out\tconsole\t0\t2\t2\t0\t0\t-\n", listed.out);
    EXPECT_EQ("syslogmon: warning: out: 2 alerts are not taken, although others are; see syslogmon "
              "sink undelivered out\n",
              listed.err);
    EXPECT_EQ("2", JsonAt(JsonText({"sink", "show", "out"}), "/sink/undelivered"));
}

TEST_F(UndeliveredCommand, RetryMarksThoseThatAreNamedOrAll)
{
    ExpectDone({"sink", "retry", "out", "2"});
    EXPECT_EQ("false", Listed("/0/again"));
    EXPECT_EQ("true", Listed("/1/again"));
    EXPECT_EQ(R"({"retried":[1,2],"sink":"out","version":1})",
              test::PlainJson(JsonText({"sink", "retry", "out"})));
    EXPECT_EQ("true", Listed("/0/again"));
}

TEST_F(UndeliveredCommand, DropTakesThoseAwayThatAreNamedOrAll)
{
    ExpectDone({"sink", "drop", "out", "1"});
    EXPECT_EQ("2", Listed("/0/id"));
    ExpectDone({"sink", "drop", "out"});
    EXPECT_EQ("[]", Listed(""));
    ExpectOutput({"sink", "undelivered", "out"}, "");
}

TEST_F(UndeliveredCommand, AnAlertThatIsNotInTheListIsRefusedAndNoneIsTouched)
{
    for (const char *verb : {"retry", "drop"}) {
        ExpectFailed({"sink", verb, "out", "1", "7"},
                     "cannot use the alert 7: it is none of the undelivered ones of the sink out; "
                     "choose from syslogmon sink undelivered out");
        EXPECT_EQ("false", Listed("/0/again"));
    }
    ExpectUsage({"sink", "drop", "out", "one"}, "one");
}

} // namespace
