// The bodies of webhooks, as the services describe them.
#include "agent/sinks/webhook_format.h"

#include <nlohmann/json.hpp>

#include "tests/agent/sinks/sink_test.h"

namespace {

using nlohmann::json;
using sinks::Outcome;
using test::HttpReceiver;
using test::Options;
using test::Request;

class WebhookFormatTest : public test::SinkTest {
  protected:
    WebhookFormatTest() : message_(test::MessageOf("a <!channel> & \"line\""))
    {
        message_.alert.severity = "err";
        message_.alert.labels = {{"team", "db"}};
        message_.alert.program = "kernel";
    }
    Outcome Send(Options options)
    {
        options["url"] = receiver_.Url();
        sinks::Secrets secrets;
        const auto sink = sinks::FindKind("webhook").open(Config("webhook", options), "", secrets);
        return sink->Send(std::span(&message_, 1), sinks::Interrupt());
    }
    json BodyOf(const std::string &format, Options options = {})
    {
        options["format"] = format;
        EXPECT_EQ(Outcome::Result::kTaken, Send(options).result);
        return json::parse(receiver_.Received().back().body);
    }
    std::string Header(const std::string &name)
    {
        return receiver_.Received().back().headers[name];
    }

    HttpReceiver receiver_;
    sinks::Message message_;
};

TEST_F(WebhookFormatTest, SlackGetsATextInWhichNobodyIsCalled)
{
    for (const char *format : {"slack", "mattermost"})
        EXPECT_EQ((json{{"text", "host: DISK 1A2B: a &lt;!channel&gt; &amp; \"line\""}}),
                  BodyOf(format));
}

TEST_F(WebhookFormatTest, GoogleChatGetsAText)
{
    EXPECT_EQ((json{{"text", "host: DISK 1A2B: a <!channel> & \"line\""}}), BodyOf("google-chat"));
}

TEST_F(WebhookFormatTest, DiscordGetsAContentOfAtMost2000CharactersThatMentionsNobody)
{
    message_.alert.message =
        std::string(1999 - sizeof "host: DISK 1A2B: ", 'x') + "\u00E4\u00E4\u00E4";
    const json body = BodyOf("discord");
    const std::string content = body["content"];
    EXPECT_LE(content.size(), 2000U);
    EXPECT_GT(content.size(), 1990U);
    EXPECT_EQ(std::string::npos, content.find("\uFFFD")) << "cut between two characters";
    EXPECT_EQ(json::array(), body["allowed_mentions"]["parse"]);
}

TEST_F(WebhookFormatTest, TeamsGetsAnAdaptiveCard)
{
    const json body = BodyOf("teams");
    EXPECT_EQ("message", body["type"]);
    const json &attachment = body["attachments"].at(0);
    EXPECT_EQ("application/vnd.microsoft.card.adaptive", attachment["contentType"]);
    EXPECT_EQ("AdaptiveCard", attachment["content"]["type"]);
    EXPECT_EQ("1.4", attachment["content"]["version"]);
    EXPECT_EQ("TextBlock", attachment["content"]["body"].at(0)["type"]);
    EXPECT_EQ("host: DISK 1A2B: a <!channel> & \"line\"",
              attachment["content"]["body"].at(0)["text"]);
}

TEST_F(WebhookFormatTest, NtfyGetsTopicTitleMessageAndPriority)
{
    EXPECT_EQ((json{{"topic", "alerts"},
                    {"title", "host: DISK 1A2B"},
                    {"message", "DISK 1A2B: a <!channel> & \"line\""},
                    {"priority", 4},
                    {"tags", {"DISK"}}}),
              BodyOf("ntfy", {{"topic", "alerts"}}));
}

TEST_F(WebhookFormatTest, PagerDutyGetsAnEventWithItsRoutingKeyAndADeduplicationKey)
{
    const json body =
        BodyOf("pagerduty", {{"routing-key-file", SecretFile("key", "0123456789abcdef")}});
    EXPECT_EQ("0123456789abcdef", body["routing_key"]);
    EXPECT_EQ("trigger", body["event_action"]);
    EXPECT_EQ("uuid/1", body["dedup_key"]);
    EXPECT_LE(body["dedup_key"].get<std::string>().size(), 255U);
    const json &payload = body["payload"];
    EXPECT_EQ("host: DISK 1A2B: a <!channel> & \"line\"", payload["summary"]);
    EXPECT_EQ("host", payload["source"]);
    EXPECT_EQ("error", payload["severity"]);
    EXPECT_EQ("2026-11-21T01:00:01.000Z", payload["timestamp"]);
    EXPECT_EQ(3, payload["custom_details"]["count"]);
    for (const auto &[ours, theirs] : std::map<std::string, std::string>{
             {"emerg", "critical"}, {"crit", "critical"}, {"", "warning"}, {"debug", "info"}}) {
        message_.alert.severity = ours;
        EXPECT_EQ(theirs, BodyOf("pagerduty", {{"routing-key-file",
                                                SecretFile("key", "k")}})["payload"]["severity"]);
    }
}

TEST_F(WebhookFormatTest, OpsgenieGetsAnAlertWithAnAliasAndItsOwnAuthorization)
{
    message_.alert.message = std::string(300, 'x');
    const json body = BodyOf("opsgenie", {{"token-file", SecretFile("token", "s3cret")}});
    EXPECT_EQ("GenieKey s3cret", Header("authorization"));
    EXPECT_EQ(130U, body["message"].get<std::string>().size());
    EXPECT_EQ("uuid/1", body["alias"]);
    EXPECT_EQ("P3", body["priority"]);
    EXPECT_EQ("DISK 1A2B: " + std::string(300, 'x'), body["description"]);
    for (const auto &detail : body["details"])
        EXPECT_TRUE(detail.is_string());
    EXPECT_EQ("db", body["details"]["team"]);
}

TEST_F(WebhookFormatTest, CloudEventsHasWhatMustBeThereAndTheAlertAsItsData)
{
    const json body = BodyOf("cloudevents");
    EXPECT_EQ("application/cloudevents+json", Header("content-type"));
    EXPECT_EQ("1.0", body["specversion"]);
    EXPECT_EQ("uuid/1", body["id"]);
    EXPECT_EQ("/syslogmon/host", body["source"]);
    EXPECT_EQ("syslogmon.alert", body["type"]);
    EXPECT_EQ("2026-11-21T01:00:01.000Z", body["time"]);
    EXPECT_EQ("DISK", body["data"]["source"]);
}

TEST_F(WebhookFormatTest, OtlpGetsALogRecordWithTheKeyAsItsUniqueId)
{
    const json body = BodyOf("otlp");
    const json &resource = body["resourceLogs"].at(0);
    const json &record = resource["scopeLogs"].at(0)["logRecords"].at(0);
    EXPECT_EQ("1795222801000000000", record["timeUnixNano"]) << "a text, as 64 bits are";
    EXPECT_EQ(17, record["severityNumber"]);
    EXPECT_EQ("err", record["severityText"]);
    EXPECT_EQ("DISK 1A2B: a <!channel> & \"line\"", record["body"]["stringValue"]);
    std::map<std::string, json> attributes;
    for (const json &attribute : record["attributes"])
        attributes[attribute["key"]] = attribute["value"];
    EXPECT_EQ("uuid/1", attributes["log.record.uid"]["stringValue"]);
    EXPECT_EQ("3", attributes["syslogmon.count"]["intValue"]);
    EXPECT_EQ("service.name", resource["resource"]["attributes"].at(0)["key"]);
}

TEST_F(WebhookFormatTest, EachFormatNamesTheHostOfTheLine)
{
    message_.alert.line_host = "web07";
    const std::string line = "web07: DISK 1A2B: a <!channel> & \"line\"";
    for (const char *format : {"slack", "mattermost", "google-chat"})
        EXPECT_EQ(0U, BodyOf(format)["text"].get<std::string>().find("web07: DISK")) << format;
    EXPECT_EQ(line, BodyOf("discord")["content"]);
    EXPECT_EQ(line, BodyOf("teams")["attachments"].at(0)["content"]["body"].at(0)["text"]);
    EXPECT_EQ("web07: DISK 1A2B", BodyOf("ntfy", {{"topic", "t"}})["title"]);
    const json pagerduty =
        BodyOf("pagerduty", {{"routing-key-file", SecretFile("key", "k")}})["payload"];
    EXPECT_EQ("web07", pagerduty["source"]);
    EXPECT_EQ(line, pagerduty["summary"]);
    EXPECT_EQ("host", pagerduty["custom_details"]["host"]) << "the monitor's";
    const json opsgenie = BodyOf("opsgenie", {{"token-file", SecretFile("token", "s")}});
    EXPECT_EQ("web07", opsgenie["source"]);
    EXPECT_EQ(line, opsgenie["message"]);
    EXPECT_EQ("web07", opsgenie["details"]["host"]);
    EXPECT_EQ("host", opsgenie["details"]["monitor"]);
    const json event = BodyOf("cloudevents");
    EXPECT_EQ("web07", event["host"]);
    EXPECT_EQ("/syslogmon/host", event["source"]) << "what has made the event";
}

TEST_F(WebhookFormatTest, OtlpHasTheHostOfTheLineAsItsResourceAndTheMonitorAsAnAttribute)
{
    const auto stands = [&](const std::string &resource) {
        const std::string body = BodyOf("otlp").dump();
        const json monitor = {{"key", "syslogmon.monitor"}, {"value", {{"stringValue", "host"}}}};
        const json host = {{"key", "host.name"}, {"value", {{"stringValue", resource}}}};
        return body.find(monitor.dump()) != std::string::npos &&
               body.find(host.dump()) != std::string::npos;
    };
    EXPECT_TRUE(stands("host")) << "no host of the line is known";
    message_.alert.line_host = "web07";
    EXPECT_TRUE(stands("web07"));
}

TEST_F(WebhookFormatTest, OtlpWithAPartialSuccessHasNotTakenTheAlert)
{
    const auto outcome = [&](const std::string &reply) {
        receiver_.Answer([](const Request &) { return 200; }, reply);
        return Send({{"format", "otlp"}}).result;
    };
    EXPECT_EQ(Outcome::Result::kRefused,
              outcome(R"({"partialSuccess":{"rejectedLogRecords":"1","errorMessage":"no"}})"));
    // More than any whole number holds.
    for (const char *number : {"18446744073709551615", "1e300", "\"99999999999999999999\""})
        EXPECT_EQ(Outcome::Result::kRefused, outcome(R"({"partialSuccess":{"rejectedLogRecords":)" +
                                                     std::string(number) + "}}"));
    EXPECT_EQ(Outcome::Result::kTaken, outcome(R"({"partialSuccess":{"rejectedLogRecords":"0"}})"));
    EXPECT_EQ(Outcome::Result::kTaken, outcome("{}"));
    EXPECT_EQ(Outcome::Result::kTaken, outcome(""));
}

TEST_F(WebhookFormatTest, ARecordThatOtlpLeavesOutWithManyWordsIsRefused)
{
    const std::string words(5000, 'x');
    receiver_.Answer([](const Request &) { return 200; }, R"({"partialSuccess":{"errorMessage":")" +
                                                              words +
                                                              R"(","rejectedLogRecords":"1"}})");
    const Outcome outcome = Send({{"format", "otlp"}});
    EXPECT_EQ(Outcome::Result::kRefused, outcome.result);
    EXPECT_LT(outcome.answer.size(), 2000U) << "nobody reads all of them";
}

TEST_F(WebhookFormatTest, EachFormatTellsWhatWasHeldBackAndTakesAnyBytes)
{
    alerts::Alert before = message_.alert;
    for (int i = 0; i < 7; ++i)
        message_.digest.Add(before);
    message_.alert.message = "\xFF bytes";
    for (const char *format : {"json", "slack", "teams", "google-chat", "discord", "mattermost",
                               "ntfy", "pagerduty", "opsgenie", "cloudevents", "otlp"}) {
        Options options;
        if (std::string(format) == "ntfy")
            options["topic"] = "t";
        if (std::string(format) == "pagerduty")
            options["routing-key-file"] = SecretFile("key", "k");
        const std::string body = BodyOf(format, options).dump();
        EXPECT_TRUE(body.find("7 alerts of 21 hits were held back") != std::string::npos ||
                    body.find("\"hits\":21") != std::string::npos)
            << format << ": " << body;
    }
}

TEST_F(WebhookFormatTest, ALongLineDoesNotPushOutWhatWasHeldBack)
{
    message_.digest.Add(message_.alert);
    message_.alert.message = std::string(100000, 'x');
    for (const char *format : {"slack", "discord", "teams"})
        EXPECT_NE(std::string::npos, BodyOf(format).dump().find("1 of DISK 1A2B)")) << format;
}

TEST_F(WebhookFormatTest, WhatAFormatNeedsAndWhatIsForAnotherOneIsSaid)
{
    const auto error = [&](const Options &options) {
        return test::ErrorOf([&] { Send(options); });
    };
    EXPECT_NE(std::string::npos, error({{"format", "ntfy"}}).find("add topic=NAME"));
    EXPECT_NE(std::string::npos, error({{"topic", "t"}}).find("a topic is for format=ntfy"));
    EXPECT_NE(std::string::npos,
              error({{"format", "pagerduty"}}).find("add routing-key-file=FILE"));
    EXPECT_EQ("json", std::string(sinks::FindFormat("json").name));
    EXPECT_NE("", sinks::FindOption(sinks::FindKind("webhook"), "format").check("pigeon"));
}

} // namespace
