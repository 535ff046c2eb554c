// The files of groups in a host's registry: what the fleet has brought, what is the host's own, and what is refused.
#include "agent/fleet/fleet_rules.h"

#include "agent/fleet/group_files.h"
#include "agent/fleet/permitted.h"
#include "agent/host/agent_values.h"
#include "agent/policy/silence_registry.h"
#include "agent/sinks/sink_registry.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"

namespace {

using fleet::GroupState;
using fleet::Taken;

using Strings = std::vector<std::string>;

constexpr char kDisk[] = "events: [{source: DISK, id: 1, keywords: [I/O error]}]\n";

class FleetRules : public test::HostTest {
  protected:
    static GroupState Group(const std::string &name, const std::string &text, uint64_t revision = 1)
    {
        return {name, 7, revision, false, fleet::FormatGroup(name, {{{"a.yaml", text}}, "me", 1})};
    }
    Taken Take(const std::vector<GroupState> &groups)
    {
        return fleet::TakeGroups(Layout(), test::Store(), test::Registry(), groups,
                                 [] { return false; });
    }
    Taken Take(const std::string &text) { return Take({Group("web", text)}); }
    std::string ErrorOfTaking(const std::string &text)
    {
        return test::ErrorOf([&] { Take(text); });
    }
    // As apply of this host's own file does.
    static void ApplyOwn(const std::string &text, bool prune = false)
    {
        host::Transaction transaction(test::Store());
        const auto change =
            rules::CompareHost(test::Store(), test::Registry(), rules::ParseRules(text),
                               {prune, 1, "me", fleet::ReadOwners(test::Store())});
        rules::WriteHost(change, &test::Registry());
        transaction.Commit();
    }
    static Strings Events()
    {
        Strings names;
        for (const auto &source : events::EventRegistry(test::Registry()).ReadAll()) {
            for (const auto &stored : source.events)
                names.push_back(rules::FormatEventKey(stored.event.key) + " " +
                                stored.event.keywords[0]);
        }
        return names;
    }
    static std::string Setting(const char *name)
    {
        return settings::GetSetting(test::Registry(), settings::FindSetting(name));
    }
    static size_t Silences()
    {
        size_t count = 0;
        for (const auto &silence : policy::ReadSilences(test::Registry()))
            count += silence.IsOver(time(nullptr) + 1) ? 0U : 1U;
        return count;
    }
};

TEST_F(FleetRules, WhatTheFilesHaveIsThereAndGoesWhenTheyHaveItNoLonger)
{
    EXPECT_EQ(3U, Take("events: [{source: DISK, id: 1, keywords: [a]}]\n"
                       "silences: [{source: DISK, every: sat}]\n"
                       "settings: {cycle: 60}\n")
                      .changes);
    EXPECT_EQ(Strings{"DISK 1 a"}, Events());
    EXPECT_EQ("60", Setting("cycle"));
    EXPECT_EQ(1U, Silences());
    EXPECT_EQ(0U, Take("events: [{source: DISK, id: 1, keywords: [a]}]\n"
                       "silences: [{source: DISK, every: sat}]\n"
                       "settings: {cycle: 60}\n")
                      .changes);
    Take("events: [{source: FAN, id: 2, keywords: [b]}]\n");
    EXPECT_EQ(Strings{"FAN 2 b"}, Events());
    EXPECT_EQ("300", Setting("cycle"));
    EXPECT_EQ(0U, Silences());
    Take(std::vector<GroupState>());
    EXPECT_EQ(Strings{}, Events());
    EXPECT_TRUE(fleet::ReadGroups(test::Store()).empty());
}

TEST_F(FleetRules, WhatTheHostHadBeforeStaysAsItIsAndIsTold)
{
    ApplyOwn("events: [{source: disk, id: 1, keywords: [mine]}]\nsettings: {cycle: 77}\n"
             "silences: [{source: A, every: sun}]\n");
    const Taken taken = Take("events: [{source: DISK, id: 1, keywords: [a]},"
                             " {source: FAN, id: 2, keywords: [b]}]\nsettings: {cycle: 60}\n");
    EXPECT_EQ((Strings{"disk 1", "cycle"}), taken.local);
    EXPECT_EQ((Strings{"disk 1 mine", "FAN 2 b"}), Events());
    EXPECT_EQ("77", Setting("cycle"));
    // And when the fleet leaves, it is not taken along.
    Take(std::vector<GroupState>());
    EXPECT_EQ(Strings{"disk 1 mine"}, Events());
    EXPECT_EQ("77", Setting("cycle"));
    EXPECT_EQ(1U, Silences());
}

TEST_F(FleetRules, TheHostsOwnFileLeavesAloneWhatTheFleetHasBrought)
{
    Take("events: [{source: FAN, id: 2, keywords: [b]}]\nsettings: {silent-after: 5}\n"
         "silences: [{source: DISK, every: sat}]\n");
    ApplyOwn("events: [{source: OWN, id: 3, keywords: [c]}]\nsettings: {cycle: 77}\nsilences: []\n",
             true);
    EXPECT_EQ((Strings{"FAN 2 b", "OWN 3 c"}), Events());
    EXPECT_EQ("5", Setting("silent-after"));
    EXPECT_EQ(1U, Silences());
}

TEST_F(FleetRules, ASilenceThatBothHaveStaysUntilNeitherHasIt)
{
    const std::string silence = "silences: [{source: DISK, every: sat}]\n";
    Take(silence);
    ApplyOwn(silence);
    EXPECT_EQ(2U, Silences());
    EXPECT_EQ(0U, Take(silence).changes);
    Take(kDisk);
    EXPECT_EQ(1U, Silences()) << "the host's own";
    Take(silence);
    ApplyOwn("silences: []\n");
    EXPECT_EQ(1U, Silences()) << "the fleet's";
    Take(kDisk);
    EXPECT_EQ(0U, Silences());
}

TEST_F(FleetRules, WhatAPersonHasChangedOfTheFleetIsPutBackWithTheNextOne)
{
    Take(kDisk);
    events::EventRegistry(test::Registry()).Remove({"DISK", 1});
    Take(kDisk);
    EXPECT_EQ(Strings{"DISK 1 I/O error"}, Events());
}

TEST_F(FleetRules, FilesOfSeveralGroupsAreTakenTogetherOrNotAtAll)
{
    GroupState web = Group("web", kDisk);
    web.stored_ms = 1795000000001;
    web.ended_revision = 3;
    web.ended_ms = 1795000000002;
    Take({web, Group("db", "events: [{source: DB, id: 1, keywords: [a]}]\n")});
    EXPECT_EQ((Strings{"DISK 1 I/O error", "DB 1 a"}), Events());
    EXPECT_EQ("web/a.yaml:1:10: cannot use event \"DISK\" 1", test::ErrorOf([&] {
                                                                  Take({Group("db", kDisk), web});
                                                              }).substr(0, 42));
    EXPECT_EQ((Strings{"DISK 1 I/O error", "DB 1 a"}), Events());
    ASSERT_EQ(2U, fleet::ReadGroups(test::Store()).size());
    EXPECT_TRUE(fleet::ReadGroups(test::Store())[1].IsSameAs(web));
    EXPECT_EQ(web.stored_ms, fleet::ReadGroups(test::Store())[1].stored_ms);
    EXPECT_EQ(web.ended_revision, fleet::ReadGroups(test::Store())[1].ended_revision);
    EXPECT_EQ(web.ended_ms, fleet::ReadGroups(test::Store())[1].ended_ms);
}

// One of each kind; all the rest of the file is sound.
TEST_F(FleetRules, WhatRunsProgramsOrTouchesFilesIsRefusedWithItsPlaceAndNothingChanges)
{
    Take(kDisk);
    sinks::SinkConfig sink;
    sink.name = "own";
    sink.kind = &sinks::FindKind("journal");
    sinks::SinkRegistry(test::Store(), test::Registry()).Add(sink);
    const std::string sound = "events: [{source: NEW, id: 1, keywords: [a]}]\n";
    for (const auto &[bad, place] :
         {std::pair("sinks: [{name: p, kind: program, command: /bin/true}]\n", "2:8"),
          std::pair("sinks: [{name: f, kind: file, path: /tmp/x}]\n", "2:8"),
          std::pair("sinks: []\n", "2:8"),
          std::pair("inputs: [{name: i, kind: files, path: /etc/shadow}]\n", "2:9"),
          std::pair("inputs: []\n", "2:9"),
          std::pair("settings: {customer-file: /etc/shadow}\n", "2:12"),
          std::pair("settings: {file-monitor: /etc/shadow}\n", "2:12"),
          std::pair("settings: {cycle: 60, web: /run/x}\n", "2:23"),
          std::pair("settings: {fault-tolerant: on}\n", "2:12"),
          std::pair("settings: {log-charset: UTF-8}\n", "2:12"),
          std::pair("settings: {trace-level: off}\n", "2:12"),
          std::pair("settings: {spool-megabytes: 65536}\n", "2:12"),
          std::pair("silences: [{}]\n", "2:12")}) {
        const std::string error = ErrorOfTaking(sound + bad);
        EXPECT_EQ(0U, error.find(std::string("web/a.yaml:") + place + ": cannot ")) << error;
    }
    EXPECT_EQ(Strings{"DISK 1 I/O error"}, Events());
    EXPECT_EQ(1U, sinks::SinkRegistry(test::Store(), test::Registry()).ReadAll().size());
}

// Compiled, this one takes all memory that there is.
TEST_F(FleetRules, AnExpressionWithoutABoundIsRefusedAlsoWhereKeywordsAreTexts)
{
    const std::string costly =
        "events: [{source: DISK, id: 1, keywords: [\"((a{1,30}){1,30}){1,30}\"]}]\n";
    for (const char *is_fault_tolerant : {"on", "off"}) {
        settings::StoreSetting(test::Store(), test::Registry(),
                               settings::FindSetting("fault-tolerant"), is_fault_tolerant);
        const std::string error = ErrorOfTaking(costly);
        EXPECT_EQ(0U, error.find("web/a.yaml:1:43: cannot use the keyword")) << error;
        EXPECT_NE(std::string::npos, error.find("1000 characters")) << error;
        EXPECT_EQ(Strings{}, Events());
    }
    Take("events: [{source: DISK, id: 1, keywords: [\"([0-9]+ ){1,9}(a+)*x\"]}]\n");
    EXPECT_EQ(Strings{"DISK 1 ([0-9]+ ){1,9}(a+)*x"}, Events());
}

// One that is new stands in no list, so the fleet may not set it until somebody has thought about it.
TEST(FleetSettings, AreThoseThatAreNamedAndEachIsASetting)
{
    EXPECT_EQ((Strings{"cycle", "trigger-interval", "alarm-after", "silent-after"}),
              fleet::kFleetSettings);
    for (const std::string &name : fleet::kFleetSettings)
        EXPECT_STRNE("", settings::FindSetting(name).unit) << "a number of time";
}

TEST_F(FleetRules, NothingIsTakenFromAMutexThatIsNotFreeWhenTheEndIsWanted)
{
    const auto mutex = host::Mutex::Create(Layout().run, kTableMutex, true);
    std::thread other([&] {
        int asked = 0;
        fleet::TakeGroups(Layout(), test::Store(), test::Registry(), {Group("web", kDisk)},
                          [&] { return ++asked == 3; });
    });
    other.join();
    EXPECT_EQ(Strings{}, Events());
    mutex->Release();
    Take(kDisk);
    EXPECT_EQ(1U, Events().size());
}

// Servers that came back with an older disk give the next files a revision that others had.
TEST_F(FleetRules, OfTheSameRevisionButWithOtherFilesAreOthers)
{
    EXPECT_TRUE(Group("web", kDisk).IsSameAs(Group("web", kDisk)));
    EXPECT_FALSE(Group("web", kDisk).IsSameAs(Group("web", "events: []\n")));
    EXPECT_FALSE(Group("web", kDisk).IsSameAs(Group("web", kDisk, 2)));
}

// ---- the value of a group ----

TEST(GroupFiles, AreTheSameWhenTheyWereWrittenAndRead)
{
    const fleet::GroupFiles files{
        {{"a.yaml", "events: []\n"}, {"b.yaml", "ü\t\"\n"}}, "ops", 5, 77};
    const fleet::GroupFiles read = fleet::ParseGroup("web", fleet::FormatGroup("web", files));
    ASSERT_EQ(2U, read.files.size());
    EXPECT_EQ("b.yaml", read.files[1].name);
    EXPECT_EQ("ü\t\"\n", read.files[1].bytes);
    EXPECT_EQ("ops", read.author);
    EXPECT_EQ(5, read.made_ms);
    EXPECT_EQ(77U, read.below);
}

TEST(GroupFiles, OfAnotherFormAreRefused)
{
    for (const std::string value :
         {"", "x", "[]", "{}", R"({"files": []})", R"({"files": [{"name": "a"}]})",
          R"({"files": [{"name": 1, "text": ""}]})", R"({"files": [{"name": "a", "text": ""}],)",
          R"({"files": [{"name": "a", "text": ""}], "made_ms": 1e300})",
          R"({"files": [{"name": "a", "text": ""}], "below": 1e300})",
          R"({"files": [{"name": "a", "text": ""}], "below": -1})"})
        EXPECT_NE(std::string::npos,
                  test::ErrorOf([&] { fleet::ParseGroup("web", value); }).find("the group web"))
            << value;
    for (const std::string name : {"", "a\\nb.yaml", "a\\u0000.yaml", "../a.yaml", "\\u001b[2J"})
        EXPECT_NE("no error", test::ErrorOf([&] {
                      fleet::ParseGroup("web",
                                        R"({"files": [{"name": ")" + name + R"(", "text": ""}]})");
                  }))
            << name;
    const std::string long_name(256, 'a');
    EXPECT_NE("no error", test::ErrorOf([&] {
                  fleet::ParseGroup("web",
                                    R"({"files": [{"name": ")" + long_name + R"(", "text": ""}]})");
              }));
}

TEST(GroupFiles, AreBoundedInTheirBytes)
{
    const fleet::GroupFiles large{{{"a.yaml", std::string(fleet::kMaxGroupValue, 'x')}}, "", 0};
    const std::string error = test::ErrorOf([&] { fleet::FormatGroup("web", large); });
    EXPECT_NE(std::string::npos, error.find(std::to_string(fleet::kMaxGroupValue))) << error;
    EXPECT_NE("no error", test::ErrorOf([&] {
                  fleet::ParseGroup("web", std::string(fleet::kMaxGroupValue + 1, ' '));
              }));
}

TEST(GroupFiles, AShareOfTheHostsIsTheSameEachTimeAndHasAtLeastOne)
{
    Strings hosts;
    for (int i = 0; i < 1000; ++i)
        hosts.push_back("host-" + std::to_string(i));
    const auto share = [&](double percent) {
        const uint64_t bound = fleet::BoundOf("web", hosts, percent);
        std::set<std::string> below;
        for (const std::string &host : hosts) {
            if (fleet::NumberOf("web", host) < bound)
                below.insert(host);
        }
        return below;
    };
    EXPECT_EQ(50U, share(5).size());
    EXPECT_EQ(1U, share(0.001).size());
    EXPECT_EQ(1000U, share(100).size());
    const auto few = share(1);
    const auto more = share(5);
    EXPECT_TRUE(std::includes(more.begin(), more.end(), few.begin(), few.end()));
    // The value that other versions must have, too.
    EXPECT_EQ(fleet::NumberOf("web", "a"), fleet::NumberOf("web", "a"));
    EXPECT_NE(fleet::NumberOf("web", "a"), fleet::NumberOf("db", "a"));
}

TEST(Groups, AreNamesWithCommasBetween)
{
    EXPECT_EQ((Strings{"a", "b"}), fleet::GroupsIn("b,a,b"));
    EXPECT_EQ("", fleet::CheckGroups("web,db_2,x-y"));
    for (const std::string bad : {"", "a,", "a b", "a.b", "*", ">", "ä"})
        EXPECT_NE("", fleet::CheckGroups(bad)) << bad;
}

} // namespace
