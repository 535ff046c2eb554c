// Kind "webhook", and what all kinds that speak HTTP have in common.
#include "tests/agent/sinks/sink_test.h"
#include "tests/support/json_text.h"

namespace {

using sinks::Outcome;
using test::HttpReceiver;
using test::MessageOf;
using test::Options;
using test::Request;

class WebhookTest : public test::SinkTest {
  protected:
    Outcome Send(Options options = {})
    {
        if (!options.contains("url-file"))
            options.emplace("url", receiver_.Url("/hook?x=1"));
        secrets_ = {};
        const auto sink = sinks::FindKind("webhook").open(Config("webhook", options), "", secrets_);
        const sinks::Message message = MessageOf("one");
        return sink->Send(std::span(&message, 1), interrupt_);
    }
    Request Last() { return receiver_.Received().back(); }

    HttpReceiver receiver_;
    sinks::Interrupt interrupt_;
    sinks::Secrets secrets_;
};

TEST_F(WebhookTest, PostsTheAlertWithItsKey)
{
    const Outcome outcome = Send();
    EXPECT_EQ(Outcome::Result::kTaken, outcome.result);
    EXPECT_EQ("HTTP 200 ok", outcome.answer);
    EXPECT_EQ("/hook?x=1", Last().path);
    EXPECT_EQ("uuid/1", Last().headers["idempotency-key"]);
    EXPECT_EQ("application/json", Last().headers["content-type"]);
    EXPECT_EQ("one", test::JsonAt(Last().body, "/message"));
}

TEST_F(WebhookTest, SendsItsHeadersAndItsToken)
{
    Send({{"header.X-Team", "ops"},
          {"token-file", SecretFile("token", "s3cret")},
          {"header-file.X-Key", SecretFile("key", "k3y")}});
    EXPECT_EQ("ops", Last().headers["x-team"]);
    EXPECT_EQ("Bearer s3cret", Last().headers["authorization"]);
    EXPECT_EQ("k3y", Last().headers["x-key"]);
}

TEST_F(WebhookTest, TheUrlMayBeASecret)
{
    EXPECT_EQ(Outcome::Result::kTaken,
              Send({{"url-file", SecretFile("url", receiver_.Url("/s3cret"))}}).result);
    EXPECT_EQ("/s3cret", Last().path);
}

TEST_F(WebhookTest, TheStatusDecides)
{
    for (const int status : {200, 201, 202, 204, 299}) {
        receiver_.Answer([&](const Request &) { return status; }, "");
        EXPECT_EQ(Outcome::Result::kTaken, Send().result) << status;
    }
    for (const int status : {400, 403, 406, 408, 409, 413, 422, 500, 502, 504}) {
        receiver_.Answer([&](const Request &) { return status; }, "");
        EXPECT_EQ(Outcome::Result::kRefused, Send().result) << status;
    }
    for (const int status : {301, 302, 401, 404, 407, 429, 503}) {
        receiver_.Answer([&](const Request &) { return status; }, "");
        EXPECT_EQ(Outcome::Result::kFailed, Send().result) << status;
    }
}

TEST_F(WebhookTest, ARedirectionIsNotFollowed)
{
    HttpReceiver other;
    receiver_.AddHeader("Location: " + other.Url());
    receiver_.Answer([](const Request &) { return 302; });
    EXPECT_EQ(Outcome::Result::kFailed, Send().result);
    EXPECT_TRUE(other.Received().empty());
}

TEST_F(WebhookTest, AProxyGetsTheRequestForTheReceiver)
{
    EXPECT_EQ(Outcome::Result::kTaken,
              Send({{"url", "http://hook.invalid/x"}, {"proxy", receiver_.Url()}}).result);
    EXPECT_EQ("http://hook.invalid/x", Last().path);
}

TEST_F(WebhookTest, ACertificateAndItsKeyGoTogether)
{
    const std::string file = SecretFile("cert", "x");
    for (const char *option : {"cert", "key"}) {
        const std::string error = test::ErrorOf([&] { Send({{option, file}}); });
        EXPECT_NE(std::string::npos, error.find("add both cert=FILE and key=FILE")) << error;
    }
    const std::string error = test::ErrorOf([&] { Send({{"cert", file}, {"key", "/nowhere"}}); });
    EXPECT_NE(std::string::npos, error.find("cannot read the file /nowhere")) << error;
}

TEST_F(WebhookTest, AWishToBeLeftAloneIsHeard)
{
    receiver_.AddHeader("Retry-After: 7");
    receiver_.Answer([](const Request &) { return 429; });
    EXPECT_EQ(std::chrono::seconds(7), Send().retry_after);
}

TEST_F(WebhookTest, AnAnswerWhoseFirstLineHasNoStatusIsNone)
{
    for (const char *protocol : {"HTTP/1.1", "HTTP/1.0"}) {
        receiver_.Speak(protocol);
        EXPECT_EQ(Outcome::Result::kTaken, Send().result) << protocol;
    }
    for (const char *protocol : {"HTTP/`.0", "HTTP/what", "HTTP/1.1 OK"}) {
        receiver_.Speak(protocol);
        EXPECT_EQ(Outcome::Result::kRefused, Send().result) << protocol;
    }
    // One that libcurl takes for 200, whatever it says.
    receiver_.Speak("HTTP/.10");
    receiver_.Answer([](const Request &) { return 503; });
    EXPECT_EQ(Outcome::Result::kRefused, Send().result);
}

TEST_F(WebhookTest, AWishBeyondAllBoundsIsADay)
{
    receiver_.AddHeader("Retry-After: 9223372036854775807");
    receiver_.Answer([](const Request &) { return 429; });
    EXPECT_EQ(std::chrono::hours(24), Send().retry_after);
}

TEST_F(WebhookTest, AReceiverThatWishesToBeLeftAloneIsNotTriedMeanwhile)
{
    receiver_.AddHeader("Retry-After: 3600");
    receiver_.Answer([](const Request &) { return 503; });
    AddSink("webhook", "hook", {{"url", receiver_.Url()}});
    AddSink("file", "file", {{"path", File("alerts")}});
    StartDeliverer(); // whose pauses are of some milliseconds
    Report(1);
    ASSERT_TRUE(test::Eventually([&] { return !Row("hook").last_error.empty(); }));
    // Time for a hundred tries: each of these is written and delivered for itself.
    for (int i = 2; i <= 30; ++i) {
        Report(1);
        ASSERT_TRUE(WaitDelivered("file", i));
    }
    EXPECT_EQ(1U, receiver_.Received().size());
}

TEST_F(WebhookTest, NobodyWhoListensIsAFailureThatSaysSo)
{
    const Outcome outcome = Send({{"url", "http://127.0.0.1:1/"}});
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_NE(std::string::npos, outcome.answer.find("127.0.0.1 port 1")) << outcome.answer;
}

TEST_F(WebhookTest, AnAlertThatIsNotAnsweredInTimeWasNotTaken)
{
    receiver_.Answer([](const Request &) { return -1; });
    const Outcome outcome = Send({{"timeout", "1"}});
    EXPECT_EQ(Outcome::Result::kRefused, outcome.result);
    EXPECT_NE(std::string::npos, outcome.answer.find("timed out")) << outcome.answer;
}

TEST_F(WebhookTest, AReceiverThatHangsUpOverAnAlertHasNotTakenIt)
{
    receiver_.Answer([](const Request &) { return 0; });
    EXPECT_EQ(Outcome::Result::kRefused, Send().result);
}

TEST_F(WebhookTest, AStopEndsARequestSoon)
{
    receiver_.Answer([](const Request &) { return -1; });
    interrupt_.Raise(std::chrono::milliseconds(100));
    const Outcome outcome = Send({{"timeout", "120"}});
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_NE(std::string::npos, outcome.answer.find("aborted")) << outcome.answer;
}

TEST_F(WebhookTest, NamesThatNoHeaderCanHaveAreRefused)
{
    for (const std::string name : {"X-A B", "X-A\r\nX-B", "X-A:", " X-A", "X-\xC3\xA4"}) {
        for (const std::string option : {"header.", "header-file."}) {
            const std::string value = option == "header." ? "x" : SecretFile("value", "x");
            const std::string error = test::ErrorOf([&] { Send({{option + name, value}}); });
            EXPECT_NE(std::string::npos, error.find("a header cannot have that name")) << error;
        }
    }
    EXPECT_TRUE(receiver_.Received().empty());
}

TEST_F(WebhookTest, AHeaderThatHoldsASecretIsRefusedHoweverItIsWritten)
{
    for (const char *name :
         {"authorization", "PROXY-Authorization", "X_Auth_Token", "Private-Token", "x-apikey",
          "Api-Key", "X-Client-Secret", "Set-Cookie"}) {
        const std::string error = test::ErrorOf([&] {
            Send({{std::string("header.") + name, "s3cret"}});
        });
        EXPECT_NE(std::string::npos, error.find("its value is a secret")) << error;
        EXPECT_EQ(std::string::npos, error.find("s3cret")) << error;
    }
}

TEST_F(WebhookTest, ASecretThatGoesOverTheNetworkInPlainTextIsWarnedOf)
{
    const auto warnings = [&](const std::string &kind, const Options &options) {
        return sinks::SecretWarnings(Config(kind, options));
    };
    const std::string token = SecretFile("token", "s3cret");
    const std::string text =
        "its secret goes to http://h/x without encryption, for everybody on the way to read; use "
        "https://";
    EXPECT_EQ((test::Strings{text}),
              warnings("webhook", {{"url", "http://h/x"}, {"token-file", token}}));
    EXPECT_EQ((test::Strings{text}),
              warnings("webhook", {{"url", "http://h/x"}, {"header-file.X-Key", token}}));
    EXPECT_EQ((test::Strings{text}),
              warnings("alertmanager", {{"peers", "https://g,http://h/x"}, {"token-file", token}}));
    const std::string url = SecretFile("url", "http://h/s3cret");
    EXPECT_EQ((test::Strings{"the URL in " + url +
                             " and all that goes there can be read on the way: "
                             "it is not encrypted; use https://"}),
              warnings("webhook", {{"url-file", url}}));
    for (const char *safe :
         {"https://h/x", "http://127.0.0.1:80/x", "http://localhost", "http://[::1]:8/"})
        EXPECT_TRUE(warnings("webhook", {{"url", safe}, {"token-file", token}}).empty()) << safe;
    EXPECT_TRUE(warnings("webhook", {{"url", "http://h/x"}}).empty());
}

TEST_F(WebhookTest, ASecretThatTheReceiverEchoesIsHidden)
{
    receiver_.Answer([](const Request &) { return 403; }, "bad token Bearer s3cret!");
    const Outcome outcome = Send({{"token-file", SecretFile("token", "s3cret")}});
    EXPECT_EQ("HTTP 403 bad token Bearer ***!", secrets_.Hide(outcome.answer));
}

TEST_F(WebhookTest, ThePathOfASecretUrlThatTheReceiverEchoesIsHidden)
{
    const std::string file =
        SecretFile("url", receiver_.Url("/services/T0/B0/q1w2e3r4t5?key=a1b2c3d4&v=2"));
    const auto shown = [&](const std::string &answer) {
        receiver_.Answer([](const Request &) { return 404; }, answer);
        return secrets_.Hide(Send({{"url-file", file}}).answer);
    };
    EXPECT_EQ("HTTP 404 Cannot POST *** here",
              shown("Cannot POST /services/T0/B0/q1w2e3r4t5 here"));
    EXPECT_EQ("HTTP 404 no ***!", shown("no /services/T0/B0/q1w2e3r4t5?key=a1b2c3d4&v=2!"));
    EXPECT_EQ("HTTP 404 the key *** is none", shown("the key a1b2c3d4 is none"));
    const std::string escaped = shown(R"({"path":"\/services\/T0\/B0\/q1w2e3r4t5"})");
    EXPECT_EQ(std::string::npos, escaped.find("q1w2e3r4t5")) << escaped;
    EXPECT_EQ("HTTP 404 /v1/a and v=2 are not /", shown("/v1/a and v=2 are not /"));
}

TEST_F(WebhookTest, ASecretUrlWithoutAPathHidesNoSlash)
{
    receiver_.Answer([](const Request &) { return 404; }, "nothing is at / or /in?x");
    const std::string url = SecretFile("url", receiver_.Url("/"));
    EXPECT_EQ("HTTP 404 nothing is at / or /in?x", secrets_.Hide(Send({{"url-file", url}}).answer));
}

TEST_F(WebhookTest, TheTokenOfASecretHeaderIsHiddenWithoutTheWordBeforeIt)
{
    receiver_.Answer([](const Request &) { return 403; }, "who is s3cret-t0ken?");
    const std::string value = SecretFile("value", "Splunk s3cret-t0ken");
    const Outcome outcome = Send({{"header-file.Authorization", value}});
    EXPECT_EQ("HTTP 403 who is ***?", secrets_.Hide(outcome.answer));
}

// Of an answer, only the beginning is kept.
TEST_F(WebhookTest, AnEchoThatIsCutOffWithinTheSecretIsHidden)
{
    std::string token;
    for (int i = 0; token.size() < 2500; ++i)
        token += std::to_string(i) + ".";
    const std::string file = SecretFile("token", token);
    receiver_.Answer([](const Request &) { return 403; }, "bad token " + token);
    EXPECT_EQ("HTTP 403 bad token ***", secrets_.Hide(Send({{"token-file", file}}).answer));
    receiver_.Answer([](const Request &) { return 403; }, "bad token " + token.substr(0, 4));
    EXPECT_EQ("HTTP 403 bad token 0.1.", secrets_.Hide(Send({{"token-file", file}}).answer))
        << "any text may end so";
}

TEST_F(WebhookTest, ASecretIsNeverWrittenDown)
{
    receiver_.Answer([](const Request &) { return 403; }, "bad token Bearer s3cret!");
    AddSink("webhook", "hook",
            {{"url", receiver_.Url()}, {"token-file", SecretFile("token", "s3cret")}});
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(test::Eventually([&] { return !Row("hook").last_error.empty(); }));
    EXPECT_EQ("HTTP 403 bad token Bearer ***!", Row("hook").last_error);
}

TEST_F(WebhookTest, ANewTokenIsTakenFromTheFileAfterAFailure)
{
    receiver_.Answer([](const Request &request) {
        return request.headers.at("authorization") == "Bearer new" ? 200 : 401;
    });
    AddSink("webhook", "hook",
            {{"url", receiver_.Url()}, {"token-file", SecretFile("token", "old")}});
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(test::Eventually([&] { return !Row("hook").last_error.empty(); }));
    SecretFile("token", "new");
    EXPECT_TRUE(WaitDelivered("hook", 1));
}

TEST_F(WebhookTest, ASecretFileThatIsMissingIsAFailureUntilItIsThere)
{
    const std::string file = SecretFile("token", "s3cret");
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"token-file", file}});
    std::filesystem::remove(file);
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(test::Eventually(
        [&] { return Row("hook").last_error.find("cannot read the secret in " + file) == 0; }));
    SecretFile("token", "s3cret");
    EXPECT_TRUE(WaitDelivered("hook", 1));
}

TEST_F(WebhookTest, ManyAlertsUseOneConnection)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}});
    StartDeliverer();
    Report(1000);
    ASSERT_TRUE(WaitDelivered("hook", 1000));
    EXPECT_EQ(AllStored(), test::MessagesOf(receiver_.Taken()));
}

} // namespace
