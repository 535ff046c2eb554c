// Kind "alertmanager", with receivers inside the test as peers.
#include "agent/status/status_file.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/support/json_text.h"

namespace {

using test::Eventually;
using test::HttpReceiver;
using test::JsonAt;
using test::Options;
using test::Request;
using test::Strings;

// All alerts that a peer has taken, in order, as JSON.
Strings AlertsOf(const HttpReceiver &peer)
{
    Strings all;
    for (const Request &request : peer.Taken()) {
        const size_t before = all.size();
        // Each look reads the whole body, so there is one for each alert.
        for (std::string alert = JsonAt(request.body, "/0"); alert != "(none)";
             alert = JsonAt(request.body, "/" + std::to_string(all.size() - before)))
            all.push_back(alert);
    }
    return all;
}

Strings KeysOf(const HttpReceiver &peer)
{
    Strings keys;
    for (const std::string &alert : AlertsOf(peer))
        keys.push_back(JsonAt(alert, "/annotations/key"));
    return keys;
}

// When the alert of this number ends, as the peer was told.
std::string EndOf(const HttpReceiver &peer, size_t number)
{
    return JsonAt(AlertsOf(peer).at(number), "/endsAt");
}

int64_t TimeOf(const std::string &text)
{
    struct tm utc {};
    int ms = 0;
    sscanf(strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc), ".%d", &ms);
    return int64_t{timegm(&utc)} * 1000 + ms;
}

class AlertmanagerTest : public test::SinkTest {
  protected:
    ~AlertmanagerTest() override { StopDeliverer(); } // before its peers

    void Add(Options options = {})
    {
        options.emplace("peers", one_.Url() + "," + two_.Url());
        AddSink("alertmanager", "am", options);
    }
    // Stores an alert of this source, at this time.
    void ReportOne(const std::string &source, int64_t time_ms = status::WallTimeMs(),
                   const std::string &line_host = "", const events::Labels &labels = {})
    {
        alerts::Alert alert;
        alert.time_ms = time_ms;
        alert.host = "host";
        alert.line_host = line_host;
        alert.labels = labels;
        alert.source = source;
        alert.event_id = 0x1A2B;
        alert.count = 3;
        alert.message = "text";
        alerts::AddAlert(test::Store(), alert);
        keys_.push_back(test::Store().series() + "/" + std::to_string(keys_.size() + 1));
        Wake();
    }
    bool Has(const HttpReceiver &peer, const Strings &keys)
    {
        return Eventually([&] { return test::WithoutRepeats(KeysOf(peer)) == keys; });
    }
    static void Down(HttpReceiver &peer)
    {
        peer.Answer([](const Request &) { return 503; });
    }
    static void Up(HttpReceiver &peer)
    {
        peer.Answer([](const Request &) { return 200; });
    }

    HttpReceiver one_;
    HttpReceiver two_;
    Strings keys_; // of what was reported
};

TEST_F(AlertmanagerTest, AnAlertHasLabelsAnnotationsAndAnEnd)
{
    Add({{"label.team", "ops"}, {"severity", "critical"}, {"active", "120"}});
    StartDeliverer();
    const int64_t before = status::WallTimeMs();
    ReportOne("DISK");
    ASSERT_TRUE(Has(one_, keys_));
    EXPECT_EQ("/api/v2/alerts", one_.Taken()[0].path);
    const std::string alert = AlertsOf(one_)[0];
    EXPECT_EQ(test::PlainJson(R"({"alertname": "SyslogEvent", "severity": "critical",
                                  "team": "ops", "source": "DISK", "event_id": "1A2B",
                                  "host": "host", "monitor": "host"})"),
              JsonAt(alert, "/labels"));
    EXPECT_EQ("DISK 1A2B: text", JsonAt(alert, "/annotations/summary"));
    EXPECT_EQ("3", JsonAt(alert, "/annotations/count"));
    EXPECT_EQ("1", JsonAt(alert, "/annotations/reports"));
    EXPECT_GE(TimeOf(JsonAt(alert, "/startsAt")), before);
    EXPECT_GE(TimeOf(JsonAt(alert, "/endsAt")), before + 120000);
    EXPECT_LE(TimeOf(JsonAt(alert, "/endsAt")), status::WallTimeMs() + 120000);
}

TEST_F(AlertmanagerTest, HostsWhoseLinesOneMonitorReadsAreAlertsOfTheirOwn)
{
    Add({{"peers", one_.Url()}, {"resend", "1"}});
    StartDeliverer();
    for (const char *host : {"web07", "web08"})
        ReportOne("DISK", status::WallTimeMs(), host);
    ASSERT_TRUE(Has(one_, keys_));
    Strings hosts;
    for (const std::string &alert : AlertsOf(one_)) {
        hosts.push_back(JsonAt(alert, "/labels/host"));
        EXPECT_EQ("host", JsonAt(alert, "/labels/monitor"));
    }
    EXPECT_EQ((Strings{"web07", "web08"}), Strings(hosts.begin(), hosts.begin() + 2));
    // Both are active, so both are sent again.
    EXPECT_TRUE(Eventually([&] {
        const Strings keys = KeysOf(one_);
        return std::count(keys.begin(), keys.end(), keys_[0]) >= 2 &&
               std::count(keys.begin(), keys.end(), keys_[1]) >= 2;
    }));
}

TEST_F(AlertmanagerTest, ALabelMonitorOfTheOptionsStays)
{
    Add({{"label.monitor", "mine"}});
    StartDeliverer();
    ReportOne("DISK");
    ASSERT_TRUE(Has(one_, keys_));
    EXPECT_EQ("mine", JsonAt(AlertsOf(one_)[0], "/labels/monitor"));
}

TEST_F(AlertmanagerTest, EachPeerGetsEveryAlertInOrder)
{
    Add();
    StartDeliverer();
    for (const char *source : {"A", "B", "C"})
        ReportOne(source);
    EXPECT_TRUE(Has(one_, keys_));
    EXPECT_TRUE(Has(two_, keys_));
}

TEST_F(AlertmanagerTest, AnAlertCountsAsDeliveredWhenOnePeerHasIt)
{
    Down(two_);
    Add();
    StartDeliverer();
    ReportOne("A");
    ReportOne("B");
    ASSERT_TRUE(WaitDelivered("am", 2));
    ASSERT_TRUE(Eventually([&] { return Row("am", two_.Url()).last_error != ""; }));
    EXPECT_EQ(0, Row("am", two_.Url()).delivered);
    EXPECT_EQ(2, Row("am", one_.Url()).delivered);
    EXPECT_EQ(2, Row("am").last_id);
}

TEST_F(AlertmanagerTest, TheSuccessOfOnePeerDoesNotHideTheErrorOfAnother)
{
    Down(two_);
    Add();
    StartDeliverer();
    ReportOne("A");
    ASSERT_TRUE(Eventually([&] { return Row("am", two_.Url()).last_error != ""; }));
    ReportOne("B");
    ASSERT_TRUE(WaitDelivered("am", 2));
    EXPECT_EQ(two_.Url() + ": HTTP 503 ok", Row("am").last_error);
    Up(two_);
    EXPECT_TRUE(Eventually([&] { return Row("am").last_error.empty(); }));
}

TEST_F(AlertmanagerTest, APeerThatDoesNotTakeOneAlertIsToldOfTheOthers)
{
    const auto rule = [](const Request &request) {
        return request.body.find("POISON") != std::string::npos ? 500 : 200;
    };
    two_.Answer(rule);
    Add();
    StartDeliverer();
    for (const char *source : {"A", "POISON", "B", "C"})
        ReportOne(source);
    EXPECT_TRUE(Has(two_, {keys_[0], keys_[2], keys_[3]}));
    EXPECT_TRUE(Has(one_, keys_));
    ASSERT_TRUE(Eventually([&] { return Undelivered("am").size() == 1; }));
    EXPECT_EQ(two_.Url() + " 2 HTTP 500 ok", Undelivered("am")[0]);
    // Nor does it hold up what is active when the daemon begins anew.
    StopDeliverer();
    StartDeliverer();
    ReportOne("D");
    EXPECT_TRUE(Has(two_, {keys_[0], keys_[2], keys_[3], keys_[4]}));
}

TEST_F(AlertmanagerTest, APeerThatWasDownGetsWhatIsStillActive)
{
    Down(two_);
    Add();
    StartDeliverer();
    for (const char *source : {"A", "B", "A"})
        ReportOne(source);
    ASSERT_TRUE(WaitDelivered("am", 3));
    ASSERT_TRUE(Has(one_, keys_));
    Up(two_);
    // Of the two reports of A, which are one alert to it, the newest.
    ASSERT_TRUE(Has(two_, {keys_[1], keys_[2]}));
    ReportOne("C");
    EXPECT_TRUE(Has(two_, {keys_[1], keys_[2], keys_[3]}));
    EXPECT_TRUE(Has(one_, keys_));
}

// As the monitor's own ones are, about this file and that.
TEST_F(AlertmanagerTest, APeerThatWasDownGetsAlertsThatDifferInTheirLabels)
{
    Down(two_);
    Add();
    StartDeliverer();
    for (const char *file : {"/a", "/b", "/a"})
        ReportOne("SYSLOGMON", status::WallTimeMs(), "", {{"about", file}});
    ASSERT_TRUE(WaitDelivered("am", 3));
    Up(two_);
    EXPECT_TRUE(Has(two_, {keys_[1], keys_[2]}));
}

TEST_F(AlertmanagerTest, APeerThatWasDownIsNotToldOfWhatIsOver)
{
    Down(two_);
    Add({{"active", "10"}});
    StartDeliverer();
    ReportOne("OLD");
    ASSERT_TRUE(Has(one_, keys_));
    // Eleven seconds pass for the store.
    StopDeliverer();
    test::Store().Write([](host::Database &database) {
        database.Execute("UPDATE alert SET time_ms = time_ms - 11000");
    });
    StartDeliverer();
    ReportOne("NEW");
    ASSERT_TRUE(Has(one_, keys_));
    Up(two_);
    EXPECT_TRUE(Has(two_, {keys_[1]}));
}

TEST_F(AlertmanagerTest, WhatNoPeerHasHadIsSentHoweverOldItIs)
{
    Down(one_);
    Down(two_);
    Add();
    StartDeliverer();
    ReportOne("OLD", status::WallTimeMs() - 86400000);
    ASSERT_TRUE(Eventually([&] { return !one_.Received().empty(); }));
    Up(one_);
    ASSERT_TRUE(Has(one_, keys_));
    EXPECT_GT(TimeOf(EndOf(one_, 0)), status::WallTimeMs())
        << "otherwise it would be over before it is seen";
    // The other peer comes back later, and hears of the same end: with a message that was made after
    // the first peer had taken it, so not with the one that is under way.
    const size_t tries = two_.Received().size();
    ASSERT_TRUE(Eventually([&] { return two_.Received().size() >= tries + 2; }));
    Up(two_);
    ASSERT_TRUE(Has(two_, keys_));
    EXPECT_EQ(EndOf(one_, 0), EndOf(two_, 0));
}

TEST_F(AlertmanagerTest, ActiveAlertsAreSentAgainAndAgainUntilTheyEnd)
{
    Add({{"peers", one_.Url()}, {"resend", "1"}, {"active", "10"}});
    StartDeliverer();
    ReportOne("A");
    ASSERT_TRUE(Has(one_, keys_));
    EXPECT_TRUE(Eventually([&] { return KeysOf(one_).size() >= 3; }));
    EXPECT_EQ(EndOf(one_, 0), EndOf(one_, 1));
    EXPECT_EQ(1, Row("am").delivered) << "repeats are not counted";
}

TEST_F(AlertmanagerTest, WhenAllPeersAreDownNothingIsLost)
{
    Down(one_);
    Down(two_);
    Add();
    StartDeliverer();
    for (int i = 0; i < 500; ++i)
        ReportOne("S" + std::to_string(i));
    ASSERT_TRUE(Eventually([&] { return !two_.Received().empty(); }));
    Up(two_);
    ASSERT_TRUE(Has(two_, keys_));
    EXPECT_TRUE(WaitDelivered("am", 500));
    Up(one_);
    EXPECT_TRUE(Has(one_, keys_));
}

TEST_F(AlertmanagerTest, APeerThatIsAddedGetsWhatIsActive)
{
    Add({{"peers", one_.Url()}});
    StartDeliverer();
    ReportOne("A");
    ASSERT_TRUE(Has(one_, keys_));
    Sinks().Change("am", [&](sinks::StoredSink &sink) {
        sink.config.options["peers"] = one_.Url() + "," + two_.Url() + "/";
    });
    Reload();
    EXPECT_TRUE(Has(two_, keys_));
    ReportOne("B");
    EXPECT_TRUE(Has(two_, keys_));
}

TEST_F(AlertmanagerTest, ATestHasANameOfItsOwnAndEndsAtOnce)
{
    sinks::Secrets secrets;
    const auto sink =
        sinks::FindKind("alertmanager")
            .open(Config("alertmanager", {{"peers", one_.Url()}}), one_.Url(), secrets);
    sinks::Message message = test::MessageOf("a test");
    message.is_test = true;
    message.ends_ms = message.alert.time_ms + 300000;
    sink->Send(std::span(&message, 1), sinks::Interrupt());
    const std::string sent = AlertsOf(one_).at(0);
    EXPECT_EQ("SyslogmonTest", JsonAt(sent, "/labels/alertname"));
    EXPECT_EQ(JsonAt(sent, "/startsAt"), JsonAt(sent, "/endsAt"));
}

TEST_F(AlertmanagerTest, WrongPeersAndLabelsAreRefused)
{
    for (const char *peers : {"", "am1:9093", "http://a,,http://b", "http://a,http://a/",
                              "http://u:p@a", "http://a/api/v2/alerts", "http://a?x"}) {
        const std::string error = test::ErrorOf([&] { Add({{"peers", peers}}); });
        EXPECT_NE(std::string::npos, error.find("use the addresses of the peers")) << error;
    }
    EXPECT_EQ("cannot use the label \"host\": the agent sets it itself; choose another name",
              test::ErrorOf([&] {
                  Add({{"label.host", "x"}});
              }));
    EXPECT_EQ("cannot use the label \"a-b\": the name is not accepted; use letters, digits and "
              "\"_\", with no digit in front",
              test::ErrorOf([&] {
                  Add({{"label.a-b", "x"}});
              }));
    EXPECT_TRUE(Sinks().ReadAll().empty());
}

} // namespace
