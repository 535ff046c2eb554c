// Bodies of webhooks that an administrator has written.
#include "agent/sinks/body_template.h"

#include <nlohmann/json.hpp>

#include "tests/agent/sinks/sink_test.h"

namespace {

using Json = nlohmann::json;
using sinks::BodyTemplate;
using sinks::Message;
using sinks::Outcome;
using test::Options;

class BodyTemplateTest : public test::SinkTest {
  protected:
    std::string Template(const std::string &text) { return SecretFile("body", text, 0644); }
    std::string Body(const std::string &text, const Message &message,
                     const std::string &type = "application/json")
    {
        return BodyTemplate(Template(text), type).Render(message);
    }
    std::string Refusal(const std::string &text, const std::string &type = "application/json")
    {
        return test::ErrorOf([&] { BodyTemplate(Template(text), type); });
    }
    void ExpectRefused(const std::string &text, const std::string &part)
    {
        const std::string error = Refusal(text);
        EXPECT_NE(std::string::npos, error.find(part)) << error;
    }
    Options Hook(Options more = {})
    {
        more.emplace("url", receiver_.Url());
        return more;
    }
    static Message Full()
    {
        Message message = test::MessageOf("disk trouble", 7);
        alerts::Alert &alert = message.alert;
        alert.line_host = "db1";
        alert.program = "kernel";
        alert.own_time = "2026-11-21 01:00:00";
        alert.severity = "err";
        alert.summary = "the disk of db1";
        alert.labels = {{"team", "db"}};
        alert.runbook_url = "https://example.com/disk";
        alert.value = "db1";
        alert.reports = 3;
        alert.last_message = "the last";
        alert.held_back = {2, 5, 1000, 2000, "one", "two"};
        message.digest.Add(alert);
        message.is_test = true;
        return message;
    }

    test::HttpReceiver receiver_;
};

TEST_F(BodyTemplateTest, PutsInTheFieldsOfTheAlert)
{
    EXPECT_EQ(
        (Json{{"title", "host: DISK 1A2B"}, {"hits", 3}, {"team", "db"}, {"held", "5"}}),
        Json::parse(Body("{\"title\": \"{{host}}: {{source}} {{event_id}}\", \"hits\": {{count}},"
                         "\"team\": \"{{labels.team}}\", \"held\": \"{{held_back.hits}}\"}",
                         Full())));
}

TEST_F(BodyTemplateTest, TheHostOfTheLineIsThatOfTheMonitorWhenTheLineDoesNotSayIt)
{
    EXPECT_EQ("db1", sinks::FieldsOf(Full())["host_of_line"]);
    EXPECT_EQ("host", sinks::FieldsOf(test::MessageOf("one"))["host_of_line"]);
}

TEST_F(BodyTemplateTest, EachFieldOfTheAlertAsJsonHasItsName)
{
    const text::TemplateValues fields = sinks::FieldsOf(Full());
    for (const char *name : {"key",
                             "id",
                             "time",
                             "host",
                             "log",
                             "source",
                             "event_id",
                             "count",
                             "message",
                             "line_host",
                             "program",
                             "own_time",
                             "severity",
                             "summary",
                             "labels.team",
                             "runbook_url",
                             "value",
                             "held_back.reports",
                             "held_back.hits",
                             "held_back.first_time",
                             "held_back.first",
                             "held_back.last_time",
                             "held_back.last",
                             "reports",
                             "last_time",
                             "last_message",
                             "digest.alerts",
                             "digest.hits",
                             "digest.first_time",
                             "digest.last_time",
                             "test",
                             "json",
                             "text",
                             "host_of_line"}) {
        EXPECT_TRUE(fields.contains(name)) << name;
        EXPECT_EQ("no error", Refusal("{\"x\": \"{{" + std::string(name) + "}}\"}")) << name;
    }
    EXPECT_EQ(34U, fields.size());
}

TEST_F(BodyTemplateTest, ALineCannotBreakOutOfItsPlace)
{
    const std::string line = "x\", \"admin\": true, \"y\": \"\\\n\t\x01 \xFF {{host}} {{>host}}";
    const std::string body = Body("{\"text\": \"{{message}}\"}", test::MessageOf(line));
    const Json parsed = Json::parse(body);
    EXPECT_EQ(1U, parsed.size());
    EXPECT_EQ("x\", \"admin\": true, \"y\": \"\\\n\t\x01 \xEF\xBF\xBD {{host}} {{>host}}",
              parsed["text"]);
    EXPECT_EQ("<p>&lt;b&gt; &amp; &quot;</p>\n",
              Body("<p>{{message}}</p>", test::MessageOf("<b> & \""), "text/html"));
    // XML has no control characters.
    EXPECT_EQ("<a>x?[1m</a>\n",
              Body("<a>{{message}}</a>", test::MessageOf("x\x1b[1m"), "application/xml"));
    EXPECT_EQ("<a>DISK 1A2B: x?</a>\n",
              Body("<a>{{text}}</a>", test::MessageOf("x\xff"), "application/xml"));
    EXPECT_EQ("<b> & \"\n", Body("{{message}}", test::MessageOf("<b> & \""), "text/plain"));
}

TEST_F(BodyTemplateTest, TheWholeAlertMayBeAPart)
{
    const Json body = Json::parse(Body("{\"alert\": {{&json}}}", Full()));
    EXPECT_EQ("disk trouble", body["alert"]["message"]);
    EXPECT_EQ("db", body["alert"]["labels"]["team"]);
}

TEST_F(BodyTemplateTest, ASectionIsForAlertsThatHaveTheField)
{
    const std::string text = "{\"x\": \"{{#program}}of {{program}}{{/program}}{{^program}}of "
                             "nobody{{/program}}\"}";
    EXPECT_EQ("of kernel", Json::parse(Body(text, Full()))["x"]);
    EXPECT_EQ("of nobody", Json::parse(Body(text, test::MessageOf("one")))["x"]);
}

TEST_F(BodyTemplateTest, AMistakeIsToldWithItsLine)
{
    const std::string file = Template("");
    EXPECT_EQ("cannot use the template " + file +
                  ", line 2: it has a mistake (Unclosed section \"host\" at 2); write fields as "
                  "{{host}}",
              Refusal("{\n{{#host}}\n}"));
    ExpectRefused("{\n\n\"a\": \"{{ hst }}\"}",
                  ", line 3: there is no field hst; did you mean host? use count, digest.alerts");
    ExpectRefused("{\"a\":\n\"{{#host}}{{^program}}{{ hst }}{{/program}}{{/host}}\"}",
                  ", line 2: there is no field hst; did you mean host?");
    ExpectRefused("{\"a\": \"{{>host}}\"}", ", line 1: there is no field >host");
    ExpectRefused("{\"a\": \"{{labels.}}\"}", "there is no field labels.");
    ExpectRefused("{\"a\": \xFF}", ", line 1: ");
}

TEST_F(BodyTemplateTest, WhatMakesNoJsonIsRefused)
{
    ExpectRefused("{\"a\": {{message}}}", "what it makes of an alert is no JSON (line 1, column");
    // Not escaped: the sample has quotes in it.
    ExpectRefused("{\"a\": \"{{&message}}\"}", "is no JSON");
    ExpectRefused("{\"a\": \"{{{summary}}}\"}", "is no JSON");
    // Nothing there of an alert without a cooldown.
    ExpectRefused("{\"a\": {{held_back.hits}}}", "is no JSON");
    ExpectRefused("", "is no JSON");
    EXPECT_EQ("no error", Refusal("{\"a\": {{message}}}", "text/plain"));
}

TEST_F(BodyTemplateTest, AFileThatCannotBeReadIsToldOf)
{
    const auto refusal = [&](const std::string &path) {
        return test::ErrorOf([&] { BodyTemplate(path, "application/json"); });
    };
    EXPECT_NE(std::string::npos,
              refusal(File("none")).find("cannot read " + File("none").string()));
    EXPECT_NE(std::string::npos, refusal(File("")).find("it is no ordinary file"));
}

TEST_F(BodyTemplateTest, OptionsOfABodyGoTogether)
{
    const std::string file = Template("{}");
    const auto refusal = [&](const Options &options) {
        return test::ErrorOf([&] { sinks::CheckSink(Config("webhook", Hook(options))); });
    };
    EXPECT_EQ("no error", refusal({{"body-file", file}}));
    EXPECT_EQ("no error",
              refusal({{"body-file", file}, {"content-type", "text/plain; charset=utf-8"}}));
    EXPECT_NE(std::string::npos, refusal({{"body-file", file}, {"format", "slack"}})
                                     .find("leave out one of format and body-file"));
    EXPECT_NE(std::string::npos,
              refusal({{"content-type", "text/plain"}}).find("add body-file=FILE"));
    EXPECT_NE(
        std::string::npos,
        refusal({{"body-file", file}, {"content-type", "image/png"}}).find("use application/json"));
    EXPECT_NE(std::string::npos,
              refusal({{"body-file", file}, {"content-type", "text/plain\r\nX: y"}})
                  .find("use application/json"));
}

TEST_F(BodyTemplateTest, TheRequestHasTheBodyAndItsType)
{
    const std::string file = Template("<a>{{message}}</a>");
    sinks::Secrets secrets;
    const auto config =
        Config("webhook", Hook({{"body-file", file}, {"content-type", "text/xml"}}));
    const auto sink = config.kind->open(config, "", secrets);
    const Message message = test::MessageOf("1 < 2");
    EXPECT_EQ(Outcome::Result::kTaken, sink->Send(std::span(&message, 1), {}).result);
    EXPECT_EQ("<a>1 &lt; 2</a>\n", receiver_.Received().back().body);
    EXPECT_EQ("text/xml", receiver_.Received().back().headers["content-type"]);
}

TEST_F(BodyTemplateTest, AnAlertOfWhichNoJsonComesIsRefusedAndNotSent)
{
    // Well for an alert with all fields and for one without, and not for those between.
    const std::string file = Template("{{#summary}}{\"a\": {{/summary}}{{#program}}1}{{/program}}"
                                      "{{^summary}}{}{{/summary}}");
    sinks::Secrets secrets;
    const auto config = Config("webhook", Hook({{"body-file", file}}));
    const auto sink = config.kind->open(config, "", secrets);
    Message message = test::MessageOf("one");
    message.alert.summary = "a summary";
    const Outcome outcome = sink->Send(std::span(&message, 1), {});
    EXPECT_EQ(Outcome::Result::kRefused, outcome.result);
    EXPECT_NE(std::string::npos, outcome.answer.find("is no JSON")) << outcome.answer;
    EXPECT_TRUE(receiver_.Received().empty());
}

TEST_F(BodyTemplateTest, AFileThatIsBrokenLaterHoldsTheAlertsUntilItIsMended)
{
    const std::string file = Template("{\"message\": \"{{message}}\"}");
    AddSink("webhook", "hook", Hook({{"body-file", file}}));
    Template("{\"message\": ");
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(test::Eventually([&] {
        return Row("hook").last_error.starts_with("cannot use the template " + file);
    })) << Row("hook").last_error;
    EXPECT_TRUE(receiver_.Received().empty());
    Template("{\"message\": \"{{message}}\"}");
    ASSERT_TRUE(WaitDelivered("hook", 2));
    EXPECT_EQ(AllStored(), test::MessagesOf(receiver_.Taken()));
}

} // namespace
