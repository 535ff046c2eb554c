// syslogmon apply and export --all, as processes: all that is set up, as one file or a folder.
#include <nlohmann/json.hpp>

#include "agent/inputs/input_registry.h"
#include "agent/sinks/sink_registry.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;
using test::Finished;

constexpr char kHost[] = "events:\n"
                         "  - {source: DISK, id: 1A, keywords: I/O error}\n"
                         "settings:\n"
                         "  cycle: 60\n"
                         "inputs:\n"
                         "  - {name: web, kind: files, path: /var/log/web.log}\n"
                         "sinks:\n"
                         "  - {name: ops, kind: file, path: /tmp/ops}\n"
                         "silences:\n"
                         "  - {source: BACKUP, every: sat 02:00-04:00, from: 2026-01-01T00:00:00Z, "
                         "author: ops}\n";

class ApplyHost : public test::CommandTest {
  protected:
    [[nodiscard]] std::string Rules(const std::string &text, const char *name = "host.yaml") const
    {
        test::WriteFile(File(name), text);
        return File(name).string();
    }
    [[nodiscard]] std::string Registry() const { return Syslogmon({"reg", "export"}).out; }
};

TEST_F(ApplyHost, ShowsAllThatIsChangedAndChangesItAtOnce)
{
    const std::string file = Rules(kHost);
    ExpectOutput({"apply", file}, "--- registered\n"
                                  "+++ " +
                                      file +
                                      "\n"
                                      "+ DISK 1A\n"
                                      "+     keywords: [\"I/O error\"]\n"
                                      "+     report_count: 1\n"
                                      "+     hours: all\n"
                                      "- setting cycle: \"300\"\n"
                                      "+ setting cycle: \"60\"\n"
                                      "+ input web\n"
                                      "+     kind: \"files\"\n"
                                      "+     path: \"/var/log/web.log\"\n"
                                      "+ sink ops\n"
                                      "+     kind: \"file\"\n"
                                      "+     path: \"/tmp/ops\"\n"
                                      "+ silence BACKUP on *\n"
                                      "+     source: \"BACKUP\"\n"
                                      "+     host: \"*\"\n"
                                      "+     every: \"sat 02:00-04:00\"\n"
                                      "+     from: \"2026-01-01T00:00:00Z\"\n"
                                      "+     author: \"ops\"\n"
                                      "4 added, 1 changed, 0 removed, 0 unchanged.\n");
    ExpectOutput({"apply", file}, "0 added, 0 changed, 0 removed, 5 unchanged.\n");
    ExpectOutput({"get", "cycle"}, "60\n");
    EXPECT_EQ("/tmp/ops", Json({"sink", "show", "ops"})["sink"]["options"]["path"]);
    EXPECT_EQ(1U, Json({"input", "list"})["inputs"].size());
    EXPECT_EQ(1U, Json({"silence", "list"})["silences"].size());
}

TEST_F(ApplyHost, TheExitStatusTellsWhetherSomethingChanges)
{
    const std::string file = Rules(kHost);
    const std::string before = Registry();
    EXPECT_EQ(2, Syslogmon({"apply", file, "--dry-run", "--detailed-exitcode"}).status);
    EXPECT_EQ(before, Registry());
    EXPECT_EQ(0, Syslogmon({"apply", file, "--dry-run"}).status) << "only when it is asked for";
    EXPECT_EQ(2, Syslogmon({"apply", file, "--detailed-exitcode"}).status);
    EXPECT_EQ(0, Syslogmon({"apply", file, "--detailed-exitcode"}).status);
    EXPECT_EQ(0, Syslogmon({"apply", file, "--dry-run", "--detailed-exitcode"}).status);
    EXPECT_EQ(1, Syslogmon({"apply", Rules("events: [x]"), "--detailed-exitcode"}).status);
}

TEST_F(ApplyHost, AMistakeAnywhereChangesNothing)
{
    const std::string before = Registry();
    const std::string file = Rules(std::string(kHost) + "  - {source: X}\n");
    const Finished finished = Syslogmon({"apply", file});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(file +
                  ":11:5: cannot use a silence: it has no end; say until when with \"until:\", or "
                  "when with \"every:\"\n"
                  "syslogmon: cannot apply " +
                  file + ": it has a mistake; correct what is said above; nothing was done\n",
              finished.err);
    EXPECT_EQ(before, Registry());
    // One that only shows when it is compared with the host.
    EXPECT_EQ(1,
              Syslogmon({"apply", Rules("settings: {cycle: 60}\nsinks: [{name: f, kind: file}]")})
                  .status);
    EXPECT_EQ(before, Registry());
}

TEST_F(ApplyHost, ADryRunNeedsNoSecretsAndSaysSoWhereApplyRefusesTheSink)
{
    const std::string secret = File("hook.token").string();
    const std::string file = Rules("sinks:\n"
                                   "  - name: hook\n"
                                   "    kind: webhook\n"
                                   "    url-file: " +
                                   secret + "\n    token-file: " + secret + "\n");
    const Finished dry = Syslogmon({"apply", file, "--dry-run", "--detailed-exitcode"});
    EXPECT_EQ(2, dry.status);
    EXPECT_NE(std::string::npos, dry.out.find("+ sink hook")) << dry.out;
    const std::string warning = "syslogmon: warning: the sink hook: the secret in " + secret +
                                " cannot be read here (No such file or directory), so it was not "
                                "looked at; apply refuses a sink whose secret it cannot read\n";
    EXPECT_EQ(warning + warning, dry.err);
    const Finished refused = Syslogmon({"apply", file});
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ(0U, refused.err.find(file + ":2:5: cannot read the secret in " + secret +
                                   ": No such file or directory; create the file, readable by the "
                                   "daemon's user only\n"))
        << refused.err;
    // A secret that is there is looked at.
    test::WriteFile(secret, "no URL\n");
    for (const char *option : {"--dry-run", "--force"})
        EXPECT_NE(std::string::npos,
                  Syslogmon({"apply", file, option}).err.find("cannot use the URL in " + secret));
    test::WriteFile(secret, "https://alerts.invalid/\n");
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
}

TEST_F(ApplyHost, ADryRunStillFindsWhatIsWrongBesideASecretThatIsMissing)
{
    const std::string secret = "/nowhere/secret";
    for (const auto &[options, error] : std::vector<std::pair<std::string, std::string>>{
             {"cert: /nowhere/cert\n    key: " + secret, "cannot read the file /nowhere/cert"},
             {"format: pagerduty", "it has no routing key"},
             {"header-file.X: " + secret + "\n    header-file.Y Z: " + secret,
              "a header cannot have that name"}}) {
        const std::string file =
            "sinks:\n  - name: hook\n    kind: webhook\n    url-file: " + secret + "\n    " +
            options + "\n";
        const Finished dry = Syslogmon({"apply", Rules(file), "--dry-run"});
        EXPECT_EQ(1, dry.status);
        EXPECT_NE(std::string::npos, dry.err.find(error)) << dry.err;
    }
}

TEST_F(ApplyHost, WhatIsExportedChangesNothingWhenItIsApplied)
{
    ExpectDone({"sink", "add", "mail", "m", "server=smtp://h", "from=a@b", "to=c@d", "digest=3"});
    ExpectDone(
        {"sink", "add", "program", "p", "command=/usr/bin/env", "arg.1=-c", "arg.2=: \"x\" # y"});
    ExpectDone({"set", "web", "127.0.0.1:9514"});
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    ASSERT_EQ(0, Syslogmon({"input", "add", "files", "java", "path=/srv/*/a.log", "path=/b",
                            "begins-with=^[0-9]"})
                     .status);
    ASSERT_EQ(0, Syslogmon({"silence", "add", "--host", "web*", "--for", "2h", "--comment",
                            "disks: \"new\""})
                     .status);
    ASSERT_EQ(0, Syslogmon({"silence", "add", "--every", "sat,sun", "--summary"}).status);
    const std::string before = Registry();
    const std::string file = Rules(Syslogmon({"export", "--all"}).out);
    EXPECT_EQ(0, Syslogmon({"apply", "--prune", "--detailed-exitcode", file}).status)
        << test::ReadFile(file) << Syslogmon({"apply", "--prune", file}).out;
    EXPECT_EQ(before, Registry());
    json exported = Json({"export", "--all"});
    exported.erase("left_out");
    const std::string as_json = Rules(exported.dump());
    EXPECT_EQ(0, Syslogmon({"apply", "--prune", "--detailed-exitcode", as_json}).status)
        << Syslogmon({"apply", "--prune", as_json}).out;
}

// A host that has nothing becomes one of the same.
TEST_F(ApplyHost, AnExportSetsUpAnotherHost)
{
    ASSERT_EQ(0, Syslogmon({"apply", Rules(kHost)}).status);
    const std::string exported = Syslogmon({"export", "--all"}).out;
    const std::string nothing =
        Rules("events: []\nsinks: []\ninputs: []\nsilences: []\nsettings: {}\n", "nothing.yaml");
    ASSERT_EQ(0, Syslogmon({"apply", "--prune", nothing}).status);
    EXPECT_TRUE(Json({"sink", "list"})["sinks"].empty());
    ASSERT_EQ(0, Syslogmon({"apply", Rules(exported)}).status);
    EXPECT_EQ(exported, Syslogmon({"export", "--all"}).out);
}

TEST_F(ApplyHost, AFolderIsReadFileByFile)
{
    std::filesystem::create_directory(File("conf.d"));
    test::WriteFile(File("conf.d/10-events.yaml"), "events: [{source: A, id: 1, keywords: x}]\n");
    test::WriteFile(File("conf.d/20-more.yaml"), "events: [{source: B, id: 1, keywords: x}]\n"
                                                 "settings: {cycle: 60}\n");
    test::WriteFile(File("conf.d/30-later.yaml"), "# nothing yet\n");
    test::WriteFile(File("conf.d/README"), "not read\n");
    test::WriteFile(File("conf.d/.10-events.yaml"), "not read\n");
    const std::string folder = File("conf.d").string();
    EXPECT_EQ(0, Syslogmon({"apply", folder}).status);
    ExpectOutput({"apply", folder}, "0 added, 0 changed, 0 removed, 3 unchanged.\n");
    test::WriteFile(File("conf.d/30-later.yaml"), "\nsettings: {cycle: 61}\n");
    const Finished finished = Syslogmon({"apply", folder});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(folder +
                  "/30-later.yaml:2:12: cannot use \"cycle\" of settings: it stands already in "
                  "line 2 of " +
                  folder +
                  "/20-more.yaml; write it once\n"
                  "syslogmon: cannot apply " +
                  folder + ": it has a mistake; correct what is said above; nothing was done\n",
              finished.err);
}

TEST_F(ApplyHost, WakesThoseWhomItConcerns)
{
    StartHere();
    const std::string file = Rules(kHost);
    const std::vector<std::string> names = {kTableEvent, kCycleEvent, sinks::kSinksEvent,
                                            inputs::kInputsEvent};
    std::vector<HANDLE> events;
    for (const std::string &name : names)
        events.push_back(CreateEvent(nullptr, FALSE, FALSE, name.c_str()));
    const auto expect_set = [&](bool set) {
        for (size_t i = 0; i < events.size(); ++i)
            EXPECT_EQ(set ? WAIT_RESULT_FIRST : WAIT_RESULT_TIMEOUT,
                      WaitForSingleObject(events[i], 0))
                << names[i];
    };
    EXPECT_EQ(0, Syslogmon({"apply", file, "--dry-run"}).status);
    expect_set(false);
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
    expect_set(true);
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
    expect_set(false);
    for (HANDLE event : events)
        CloseHandle(event);
}

TEST_F(ApplyHost, TellsTheChangesInJson)
{
    ASSERT_EQ(0, Syslogmon({"apply", Rules(kHost)}).status);
    const std::string file = Rules("settings: {cycle: 90}\nsinks: []\n"
                                   "inputs: [{name: web, kind: files, path: [/a, /b]}]\n");
    const json told = Json({"apply", "--dry-run", file});
    EXPECT_TRUE(told["changes"].empty());
    const json setting = {{"section", "settings"},
                          {"name", "cycle"},
                          {"change", "changed"},
                          {"before", "60"},
                          {"after", "90"}};
    const json input = {{"section", "inputs"},
                        {"name", "web"},
                        {"change", "changed"},
                        {"before", {{"kind", "files"}, {"path", "/var/log/web.log"}}},
                        {"after", {{"kind", "files"}, {"path", {"/a", "/b"}}}}};
    const json sink = {{"section", "sinks"},
                       {"name", "ops"},
                       {"change", "removed"},
                       {"before", {{"kind", "file"}, {"path", "/tmp/ops"}}},
                       {"after", nullptr}};
    EXPECT_EQ((json{{"changes", {setting, input, sink}},
                    {"unchanged", 0},
                    {"staying_silences", json::array()}}),
              told["sections"]);
}

TEST_F(ApplyHost, ASilenceOfTheMomentIsNamedAndStays)
{
    ASSERT_EQ(0, Syslogmon({"silence", "add", "--for", "2h"}).status);
    ExpectOutput({"apply", Rules("silences: []")},
                 "0 added, 0 changed, 0 removed, 0 unchanged.\n"
                 "A silence that silence add has added stays (--prune ends it): 1\n");
    EXPECT_EQ(1U, Json({"silence", "list"})["silences"].size());
}

} // namespace
