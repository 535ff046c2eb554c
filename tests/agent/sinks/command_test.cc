// syslogmon sink ...
#include <atomic>
#include <sys/stat.h>
#include <thread>

#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "tests/agent/sinks/http_receiver.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/agent/support/command_test.h"
#include "tests/support/json_text.h"

namespace {

using test::JsonAt;
using test::PlainJson;
using test::Words;

class SinkCommand : public test::CommandTest {
  protected:
    [[nodiscard]] std::string SecretFile(const std::string &secret, unsigned mode = 0600) const
    {
        const auto path = File("secret");
        test::WriteFile(path, secret + "\n");
        chmod(path.c_str(), mode);
        return path;
    }
    [[nodiscard]] std::string PathOption() const { return "path=" + File("out").string(); }
    // What `sink show` says of a sink, or of one thing of it: "/warnings".
    [[nodiscard]] std::string Sink(const std::string &name, const std::string &place = "") const
    {
        return JsonAt(JsonText({"sink", "show", name}), "/sink" + place);
    }
    void ExpectJson(const std::string &json, const Words &words, int status = 0) const
    {
        EXPECT_EQ(PlainJson(json), PlainJson(JsonText(words, status)));
    }
};

TEST_F(SinkCommand, WithoutSinksPrintsNothing)
{
    ExpectOutput({"sink", "list"}, "");
    ExpectJson(R"({"limit": 100000, "sinks": [], "version": 1})", {"sink", "list"});
}

TEST_F(SinkCommand, AddsShowsAndRemovesASink)
{
    ExpectDone({"sink", "add", "file", "out", PathOption()});
    ExpectOutput({"sink", "list"}, "out\tfile\t0\t0\t0\t0\t0\t-\n");
    ExpectOutput(
        {"sink", "show", "OUT"},
        "name\tout\nkind\tfile\npath\t" + File("out").string() +
            "\nalerts of the last day\t0\ndelivered\t0\nwaiting\t0\nundelivered\t0\ndropped\t0\n"
            "last delivery\tnone yet\nlast error\t-\n");
    ExpectDone({"sink", "remove", "out"});
    ExpectOutput({"sink", "list"}, "");
}

TEST_F(SinkCommand, AMistypedKindOrOptionIsToldWithTheOneThatIsNear)
{
    const auto error = [&](const Words &words) { return Syslogmon(words).err; };
    EXPECT_NE(std::string::npos, error({"sink", "add", "webhok", "h", "url=http://x"})
                                     .find("did you mean webhook? use one of console"));
    EXPECT_NE(std::string::npos, error({"sink", "add", "webhook", "h", "urll=http://x"})
                                     .find("did you mean url? it takes url=URL"));
}

// An address sanitizer wants to be loaded before all others.
constexpr char kAnyOrder[] = "ASAN_OPTIONS=verify_asan_link_order=0";

// They lie in the place of the right one, as packages of two builds would have it.
TEST_F(SinkCommand, WhatSendsSnmpOfAnotherBuildIsRefusedWithThePackageToUpgrade)
{
    const std::string secret = SecretFile("public");
    const std::string version = SYSLOGMON_VERSION;
    const std::string is_older = "snmp.so is older than this program, which is " + version +
                                 "; upgrade the package syslogmon-snmp to " + version;
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"none", is_older},
        {"older", is_older},
        {"newer", "snmp.so is newer (99.1.0) than this program, which is " + version +
                      "; upgrade the package syslogmon to 99.1.0 and restart syslogmond"},
        {"other", "snmp.so is of another build (" + version +
                      " 000000000000 GNU-12.2.0) than this program (" + version + " "},
    };
    for (const auto &[which, words] : rows) {
        const std::string library = std::string("LD_PRELOAD=") + OTHER_SNMP + which + "/snmp.so";
        const test::Finished refused = test::RunToEnd(
            {"/usr/bin/env", library, kAnyOrder, SYSLOGMON, "--root", Root(), "sink", "add", "snmp",
             "trapd", "receiver=127.0.0.1", "community-file=" + secret});
        EXPECT_EQ(1, refused.status) << which << refused.err;
        EXPECT_EQ(0U, refused.err.find("syslogmon: cannot make a sink of kind snmp: " + words))
            << refused.err;
    }
    ExpectDone({"sink", "add", "snmp", "trapd", "receiver=127.0.0.1", "community-file=" + secret});
}

TEST_F(SinkCommand, AsJson)
{
    ExpectJson(R"({"added": "out", "warnings": [], "version": 1})",
               {"sink", "add", "file", "out", PathOption()});
    EXPECT_EQ(PlainJson(R"({"name": "out", "kind": "file", "options": {"path": ")" +
                        File("out").string() + R"("},
                            "delivered": 0, "waiting": 0, "undelivered": 0, "dropped": 0, "last_day": 0,
                            "last_delivered_ms": null, "last_error": null, "last_error_ms": null,
                            "warnings": [], "peers": {}})"),
              Sink("out"));
    ExpectJson(R"({"removed": "out", "version": 1})", {"sink", "remove", "out"});
}

TEST_F(SinkCommand, CountsWhatWaits)
{
    ExpectDone({"sink", "add", "file", "out", PathOption()});
    StartHere();
    for (int i = 0; i < 3; ++i)
        alerts::AddAlert(test::Store(), {});
    test::StopHost();
    EXPECT_EQ("3", Sink("out", "/waiting"));
}

TEST_F(SinkCommand, WarnsWhenTheLimitIsNear)
{
    ExpectDone({"sink", "limit", "100"});
    ExpectDone({"sink", "add", "file", "out", PathOption()});
    StartHere();
    for (int i = 0; i < 80; ++i)
        alerts::AddAlert(test::Store(), {});
    test::StopHost();
    EXPECT_EQ(R"(["80 alerts wait, of at most 100"])", Sink("out", "/warnings"));
    EXPECT_EQ("syslogmon: warning: out: 80 alerts wait, of at most 100\n",
              Syslogmon({"sink", "list"}).err);
}

TEST_F(SinkCommand, SetChangesAnOptionAndKeepsTheRest)
{
    ExpectDone({"sink", "add", "webhook", "hook", "url=http://h/", "timeout=5"});
    ExpectDone({"sink", "set", "hook", "url=http://other/"});
    EXPECT_EQ(R"({"timeout":"5","url":"http://other/"})", Sink("hook", "/options"));
    ExpectDone({"sink", "set", "hook", "timeout="});
    EXPECT_EQ(R"({"url":"http://other/"})", Sink("hook", "/options"));
}

TEST_F(SinkCommand, SetAcceptsWhatAddAccepts)
{
    const std::string program = "command=/bin/true";
    ExpectDone({"sink", "add", "program", "p", program, "arg.1=", "arg.2=x"});
    ExpectDone({"sink", "set", "p", "arg.2="});
    EXPECT_EQ(R"({"arg.1":"","arg.2":"","command":"/bin/true"})", Sink("p", "/options"));
    ExpectDone({"sink", "set", "p", "timeout=5", "--unset", "arg.2"});
    EXPECT_EQ(R"({"arg.1":"","command":"/bin/true","timeout":"5"})", Sink("p", "/options"));
    ExpectDone({"sink", "set", "p", "--unset", "timeout", "--unset", "arg.1"});
    EXPECT_EQ(R"({"command":"/bin/true"})", Sink("p", "/options"));
}

TEST_F(SinkCommand, TwoThatAddOneNameAtOnceDoNotMerge)
{
    StartHere();
    host::Store other_store(Layout().Store());
    host::RegistryTree other_tree(other_store);
    sinks::SinkRegistry other(other_store, other_tree);
    sinks::SinkConfig console;
    console.kind = &sinks::FindKind("console");
    console.name = "out";
    sinks::SinkConfig file = console;
    file.kind = &sinks::FindKind("file");
    file.options = {{"path", File("out").string()}};
    std::atomic<bool> is_waiting{false};
    other_store.OnLongWait([&] { is_waiting = true; });
    std::string error;
    std::thread second;
    {
        host::Transaction first(test::Store());
        second = std::thread([&] { error = test::ErrorOf([&] { other.Add(file); }); });
        EXPECT_TRUE(test::Eventually([&] { return is_waiting.load(); }));
        // What an Add does, while the other one waits to write.
        test::SetTreeText("SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT\\SINKS\\out", "Kind", "console");
        first.Commit();
    }
    second.join();
    EXPECT_EQ("cannot add the sink out: there is one of that name already; choose another name, or "
              "change that one with syslogmon sink set",
              error);
    test::StopHost();
    EXPECT_EQ("console", Sink("out", "/kind"));
    EXPECT_EQ("{}", Sink("out", "/options"));
}

TEST_F(SinkCommand, AFileThatTheMonitorReadsIsWarnedOf)
{
    const std::string file = File("app.log").string();
    test::WriteFile(file, "");
    ExpectDone({"set", "file-monitor", file});
    const std::string warning = "it writes to " + file +
                                ", which the monitor reads: an alert can report itself, again and "
                                "again; use another file";
    const test::Finished added = Syslogmon({"sink", "add", "file", "loop", "path=" + file});
    EXPECT_EQ(0, added.status);
    EXPECT_EQ("syslogmon: warning: " + warning + "\n", added.err);
    EXPECT_EQ("[\"" + warning + "\"]", Sink("loop", "/warnings"));
    const std::string looked_at = Syslogmon({"--json", "doctor"}).out;
    EXPECT_NE(std::string::npos, looked_at.find(warning)) << looked_at;
}

TEST_F(SinkCommand, AFileThatAnInputReadsIsWarnedOfByWhateverComesLast)
{
    const std::string file = File("app.log").string();
    const std::string advice = ": an alert can report itself, again and again; use another file";
    ExpectDone({"sink", "add", "file", "loop", "path=" + file});
    test::WriteFile(File("other.log"), "");
    test::WriteFile(file, "");
    EXPECT_NE(
        std::string::npos,
        Syslogmon({"input", "add", "files", "app", "path=" + File("*.log").string()})
            .err.find("warning: it reads " + file + ", to which the sink loop writes" + advice));
    EXPECT_EQ("syslogmon: warning: it writes to " + file + ", which the input app reads" + advice +
                  "\n",
              Syslogmon({"sink", "set", "loop", "path=" + file}).err);
    EXPECT_EQ("", Syslogmon({"input", "set", "app", "exclude=" + file}).err);
    EXPECT_EQ("", Syslogmon({"sink", "set", "loop", "path=" + file}).err);
}

TEST_F(SinkCommand, ASecretOverPlainHttpIsWarnedOfByAddSetAndDoctor)
{
    const std::string file = SecretFile("s3cret");
    const std::string warning = "its secret goes to http://192.0.2.1/ without encryption, for "
                                "everybody on the way to read; use https://";
    for (const Words &words :
         {Words{"sink", "add", "webhook", "w", "url=http://192.0.2.1/", "token-file=" + file},
          Words{"sink", "set", "w", "timeout=5"}})
        EXPECT_EQ("syslogmon: warning: " + warning + "\n", Syslogmon(words).err);
    EXPECT_NE(std::string::npos, Syslogmon({"--json", "doctor"}).out.find(warning));
}

// ---- what is refused ----

TEST_F(SinkCommand, AKindThatIsNotKnownIsRefusedWithAllThatAre)
{
    const test::Finished finished = Syslogmon({"sink", "add", "pigeon", "p"});
    EXPECT_EQ(1, finished.status);
    EXPECT_NE(std::string::npos, finished.err.find("cannot use the kind of sink \"pigeon\": there "
                                                   "is none of that name; use one of console, "))
        << finished.err;
}

TEST_F(SinkCommand, OptionsThatAreNotKnownOrMissingAreRefused)
{
    ExpectFailed({"sink", "add", "file", "f", "pth=/x"},
                 "cannot use the option \"pth\": a sink of kind file has none of that name; did "
                 "you mean path? it takes path=FILE, only=CONDITION,..., heartbeat=SECONDS, "
                 "rate=NUMBER/UNIT");
    ExpectFailed({"sink", "add", "file", "f"},
                 "cannot make a sink of kind file: it has no path; add path=FILE");
    ExpectFailed({"sink", "add", "console", "c", "x=1"},
                 "cannot use the option \"x\": a sink of kind console has none of that name; it "
                 "takes only=CONDITION,..., heartbeat=SECONDS, rate=NUMBER/UNIT");
    ExpectFailed({"sink", "add", "file", "f", "path"},
                 "cannot use the option \"path\": it has no value; write NAME=VALUE");
}

TEST_F(SinkCommand, ValuesThatAreNotAcceptedAreRefusedWithWhatIs)
{
    ExpectFailed({"sink", "add", "file", "f", "path=relative"},
                 "cannot set path to \"relative\": the value is not accepted; use an absolute "
                 "path");
    for (const char *timeout : {"0", "121", "-1", "ten", "5s", "", "99999999999999999999"})
        ExpectFailed(
            {"sink", "add", "webhook", "w", "url=http://h", std::string("timeout=") + timeout},
            std::string("cannot set timeout to \"") + timeout +
                "\": the value is not accepted; use a number of seconds from 1 to 120");
    for (const char *url : {"h", "ftp://h", "http://", "http://u:p@h/", "http://h h"})
        ExpectFailed({"sink", "add", "webhook", "w", std::string("url=") + url},
                     std::string("cannot set url to \"") + url +
                         "\": the value is not accepted; use a URL http://HOST... or "
                         "https://HOST..., without user and password in it");
}

TEST_F(SinkCommand, NamesThatAreNoNamesAreRefused)
{
    for (const std::string &name :
         {std::string("a b"), std::string("a\\b"), std::string("ä"), std::string(65, 'x')}) {
        const test::Finished finished = Syslogmon({"sink", "add", "console", name});
        EXPECT_EQ(1, finished.status);
        EXPECT_NE(std::string::npos, finished.err.find("use 1 to 64 letters, digits"))
            << finished.err;
    }
}

TEST_F(SinkCommand, ANameIsUsedOnce)
{
    ExpectDone({"sink", "add", "console", "out"});
    ExpectFailed({"sink", "add", "console", "Out"},
                 "cannot add the sink Out: there is one of that name already; choose another name, "
                 "or change that one with syslogmon sink set");
}

TEST_F(SinkCommand, ASinkThatIsNotThereIsRefusedWithThoseThatAre)
{
    for (const char *verb : {"show", "remove", "test", "set"})
        ExpectFailed({"sink", verb, "x"}, "cannot find the sink \"x\": there is none of that name; "
                                          "add one with syslogmon sink add");
    ExpectDone({"sink", "add", "console", "a"});
    ExpectDone({"sink", "add", "console", "b"});
    ExpectFailed({"sink", "remove", "x"},
                 "cannot find the sink \"x\": there is none of that name; use one of a, b");
}

TEST_F(SinkCommand, AWrongChangeChangesNothing)
{
    ExpectDone({"sink", "add", "webhook", "hook", "url=http://h/"});
    ExpectFailed({"sink", "set", "hook", "timeout=5", "url=x"},
                 "cannot set url to \"x\": the value is not accepted; use a URL http://HOST... or "
                 "https://HOST..., without user and password in it");
}

TEST_F(SinkCommand, TheLimitHasARange)
{
    ExpectOutput({"sink", "limit"}, "100000\n");
    ExpectDone({"sink", "limit", "5000"});
    ExpectOutput({"sink", "limit"}, "5000\n");
    for (const char *limit : {"99", "100000001", "many"})
        ExpectFailed({"sink", "limit", limit},
                     std::string("cannot set the limit to \"") + limit +
                         "\": the value is not accepted; use a number of alerts from 100 to "
                         "100000000");
}

TEST_F(SinkCommand, TheLimitInMegabytesHasARange)
{
    ExpectDone({"sink", "limit", "--megabytes", "50"});
    ExpectOutput({"sink", "limit", "--megabytes"}, "50\n");
    ExpectOutput({"sink", "limit"}, "100000\n");
    ExpectDone({"sink", "limit", "5000", "--megabytes", "60"});
    ExpectJson(R"({"limit": 5000, "megabytes": 60, "version": 1})", {"sink", "limit"});
    for (const char *limit : {"0", "1048577", "many"})
        ExpectFailed({"sink", "limit", "--megabytes", limit},
                     std::string("cannot set the limit to \"") + limit +
                         "\" megabytes: the value is not accepted; use a number of megabytes from "
                         "1 to 1048576");
}

// ---- secrets ----

TEST_F(SinkCommand, ASecretOnTheCommandLineIsRefused)
{
    for (const char *header : {"Authorization", "cookie", "X-Api-Key"})
        ExpectFailed({"sink", "add", "webhook", "w", "url=http://h",
                      std::string("header.") + header + "=s3cret"},
                     std::string("cannot use the option header.") + header +
                         ": its value is a secret, and settings are shown; write it into a file "
                         "and use token-file=FILE or header-file." +
                         header + "=FILE");
}

TEST_F(SinkCommand, ASecretFileThatOthersCanReadIsWarnedOf)
{
    const std::string file = SecretFile("s3cret", 0644);
    const std::string warning =
        "the secret in " + file + " is open to others than its owner; run chmod 600 " + file;
    const test::Finished added =
        Syslogmon({"sink", "add", "webhook", "w", "url=http://127.0.0.1:1", "token-file=" + file});
    EXPECT_EQ(0, added.status);
    EXPECT_EQ("syslogmon: warning: " + warning + "\n", added.err);
    EXPECT_EQ("[\"" + warning + "\"]", Sink("w", "/warnings"));
    chmod(file.c_str(), 0600);
    EXPECT_EQ("[]", Sink("w", "/warnings"));
}

TEST_F(SinkCommand, ASecretIsShownByNoCommand)
{
    test::HttpReceiver receiver;
    receiver.Answer([](const test::Request &) { return 403; }, "no: Bearer s3cret");
    ExpectDone({"sink", "add", "webhook", "w", "url=" + receiver.Url(),
                "token-file=" + SecretFile("s3cret")});
    for (const Words &words : {Words{"sink", "test", "w"}, Words{"--json", "sink", "test", "w"},
                               Words{"sink", "show", "w"}, Words{"--json", "sink", "show", "w"},
                               Words{"--json", "sink", "list"}, Words{"reg", "list", "-r"},
                               Words{"--json", "reg", "list", "-r"}}) {
        const test::Finished finished = Syslogmon(words);
        EXPECT_EQ(std::string::npos, (finished.out + finished.err).find("s3cret")) << words.back();
    }
    EXPECT_EQ("Bearer s3cret", receiver.Received().at(0).headers["authorization"]);
}

TEST_F(SinkCommand, ASecretFileThatCannotBeUsedIsRefused)
{
    ExpectFailed({"sink", "add", "webhook", "w", "url=http://h", "token-file=/nowhere"},
                 "cannot read the secret in /nowhere: No such file or directory; create the file, "
                 "readable by the daemon's user only");
    ExpectFailed({"sink", "add", "webhook", "w", "url=http://h", "token-file=" + SecretFile("")},
                 "cannot use the secret in " + File("secret").string() +
                     ": its first line is empty, too long, or holds a zero byte; write the secret "
                     "into the first line");
}

// ---- sink test ----

TEST_F(SinkCommand, TestSendsAMarkedAlertAndShowsTheAnswer)
{
    test::HttpReceiver receiver;
    ExpectDone({"sink", "add", "webhook", "w", "url=" + receiver.Url()});
    ExpectOutput({"sink", "test", "w"}, "w has taken the test alert: HTTP 200 ok\n");
    const std::string alert = receiver.Received().at(0).body;
    EXPECT_EQ("true", JsonAt(alert, "/test"));
    EXPECT_EQ("SYSLOGMON-TEST", JsonAt(alert, "/source"));
    ExpectJson(R"({"sink": "w", "taken": true, "version": 1,
                   "answers": [{"peer": "", "taken": true, "answer": "HTTP 200 ok"}]})",
               {"sink", "test", "w"});
    EXPECT_NE(receiver.Received().at(0).headers["idempotency-key"],
              receiver.Received().at(1).headers["idempotency-key"]);
    ExpectOutput({"alerts"}, "");
}

TEST_F(SinkCommand, TestOfASinkThatIsDownFails)
{
    test::HttpReceiver receiver;
    receiver.Answer([](const test::Request &) { return 503; }, "closed");
    ExpectDone({"sink", "add", "webhook", "w", "url=" + receiver.Url()});
    ExpectFailed({"sink", "test", "w"}, "w has not taken the test alert: HTTP 503 closed");
    EXPECT_EQ("false", JsonAt(JsonText({"sink", "test", "w"}, 1), "/taken"));
}

TEST_F(SinkCommand, TestAsksEachPeer)
{
    test::HttpReceiver one;
    test::HttpReceiver two;
    two.Answer([](const test::Request &) { return 500; }, "");
    ExpectDone({"sink", "add", "alertmanager", "am", "peers=" + one.Url() + "," + two.Url()});
    const std::string said = JsonText({"sink", "test", "am"}, 1);
    EXPECT_EQ(PlainJson(R"([{"peer": ")" + one.Url() +
                        R"(", "taken": true, "answer": "HTTP 200 ok"},
                            {"peer": ")" +
                        two.Url() + R"(", "taken": false, "answer": "HTTP 500"}])"),
              JsonAt(said, "/answers"));
}

TEST_F(SinkCommand, ADamagedSinkIsListedWithWhatIsWrong)
{
    StartHere();
    test::SetTreeText("SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT\\SINKS\\odd", "Kind", "file");
    test::SetTreeText("SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT\\SINKS\\odd", "path", "relative");
    test::StopHost();
    ExpectOutput({"sink", "list"},
                 "odd\tfile\t0\t0\t0\t0\t0\tcannot use its path: the value is not "
                 "accepted; use an absolute path\n");
    ExpectDone({"sink", "set", "odd", PathOption()});
    ExpectOutput({"sink", "list"}, "odd\tfile\t0\t0\t0\t0\t0\t-\n");
}

} // namespace
