// The registered events in the registry.
#include "agent/events/events.h"

#include <future>

#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using events::CheckEvent;
using events::EventKey;
using events::EventRecord;
using events::EventRegistry;
using events::StoredEvent;
using host::kRootKey;
using test::ErrorOf;
using test::TreeValue;

EventRecord Record(const std::string &source, uint32_t id,
                   const std::array<std::string, 3> &keywords = {"key", "", ""})
{
    EventRecord event;
    event.key = {source, id};
    event.keywords = keywords;
    return event;
}

std::string SourcePath(const std::string &source)
{
    return std::string(kApplicationKey) + "\\" + source;
}

std::string SettingsPath(const std::string &source, const std::string &id)
{
    return SourcePath(source) + "\\" + id + "\\WATCHSETTING";
}

class Events : public test::HostTest {
  protected:
    // An event that is whole, to be damaged.
    static void WriteWhole(const std::string &source, const std::string &id)
    {
        const std::string path = SettingsPath(source, id);
        for (const char *name : {"KeyWord", "KeyWord2", "KeyWord3"})
            test::SetTreeText(path, name, "key");
        test::SetTreeNumber(path, "ReportCount", 1);
        test::SetTreeNumber(path, "WatchTime", events::kAllHours);
    }
    static void DeleteValue(const std::string &path, const char *name)
    {
        auto &tree = test::Registry();
        tree.DeleteValue(*tree.Find(kRootKey, path), name);
    }
    std::string ProblemOf(const char *source, uint32_t id)
    {
        const auto stored = events_.Find({source, id});
        return stored ? stored->problem : "(not found)";
    }

    EventRegistry events_{test::Registry()};
};

// ---- IDs ----

TEST(EventId, IsOneToEightHexadecimalDigits)
{
    EXPECT_EQ(0U, events::ParseEventId("0"));
    EXPECT_EQ(0x1A2BU, events::ParseEventId("1a2B"));
    EXPECT_EQ(0xFFFFFFFFU, events::ParseEventId("FFFFFFFF"));
    EXPECT_EQ(0x1U, events::ParseEventId("00000001"));
    for (const char *text : {"", "xyz", "0x1", "123456789", " 1", "1 ", "-1", "1.0", "1A2Bh"})
        EXPECT_EQ(std::string("cannot use the event ID \"") + text +
                      "\": it is not one to eight hexadecimal digits; write it without a prefix, "
                      "such as 1A2B",
                  ErrorOf([&] { events::ParseEventId(text); }));
}

TEST(EventId, IsShownInCapitalsWithoutLeadingZeros)
{
    EXPECT_EQ("0", events::FormatEventId(0));
    EXPECT_EQ("1A2B", events::FormatEventId(0x1A2B));
    EXPECT_EQ("FFFFFFFF", events::FormatEventId(0xFFFFFFFF));
}

// ---- labels ----

TEST(Labels, AreReadAsTheyWereWritten)
{
    const events::Labels labels = {{"site", "b=c"}, {"team", "storage"}};
    EXPECT_EQ(labels, events::SplitLabels(events::JoinLabels(labels)));
    EXPECT_EQ(labels, events::SplitLabels("none\n" + events::JoinLabels(labels) + "none"));
}

// A look at all that follows, for each of these lines, would outlast the test's limit.
TEST(Labels, AreReadLineByLineHoweverManyLinesHaveNone)
{
    const std::string lines(size_t{8} << 20U, '\n');
    EXPECT_EQ((events::Labels{{"team", "storage"}}), events::SplitLabels(lines + "team=storage\n"));
}

// ---- what the monitor could not use ----

TEST(EventCheck, TakesTheWholeRangeOfEachValue)
{
    EventRecord event = Record(std::string(255, 's'), 0xFFFFFFFF,
                               {std::string(256, 'a'), std::string(256, 'b'), "tab\there"});
    event.report_count = 2147483647;
    event.hours = 0;
    EXPECT_EQ("no error", ErrorOf([&] { CheckEvent(event); }));
    EXPECT_EQ("no error", ErrorOf([&] { CheckEvent(Record("s", 0, {"", "", "x"})); }));
}

TEST(EventCheck, RefusesASourceThatIsNoKeyName)
{
    for (const std::string &source :
         {std::string(), std::string("a\\b"), std::string("a\nb"), std::string(256, 's')})
        EXPECT_EQ("cannot use the source name \"" + source.substr(0, 60) +
                      "\": it is empty, too long, or holds a backslash or a control character; "
                      "choose a name of 1 to 255 bytes without them",
                  ErrorOf([&] { CheckEvent(Record(source, 1)); }));
}

TEST(EventCheck, RefusesAKeywordThatIsTooLong)
{
    EXPECT_EQ("cannot use a keyword of event SRC 1A: it has 257 bytes; a keyword has at most 256 "
              "bytes",
              ErrorOf([] {
                  CheckEvent(Record("SRC", 0x1A, {"", std::string(257, 'k'), ""}));
              }));
}

TEST(EventCheck, RefusesAKeywordWithAControlCharacter)
{
    EXPECT_EQ("cannot use a keyword of event SRC 1A: it holds a control character, which no log "
              "line does; write the text that the line shows",
              ErrorOf([] {
                  CheckEvent(Record("SRC", 0x1A, {"a\nb", "", ""}));
              }));
}

TEST(EventCheck, RefusesAnEventWithoutAKeyword)
{
    EXPECT_EQ("cannot use event SRC 1A: it has no keyword; give it one to three texts that a line "
              "must contain",
              ErrorOf([] {
                  CheckEvent(Record("SRC", 0x1A, {"", "", ""}));
              }));
}

TEST(EventCheck, RefusesAReportCountThatNeverReports)
{
    for (const int32_t count : {0, -1, INT32_MIN}) {
        EventRecord event = Record("SRC", 0x1A);
        event.report_count = count;
        EXPECT_EQ("cannot use the report count " + std::to_string(count) +
                      " of event SRC 1A: it would never be reported; use a number from 1 to "
                      "2147483647",
                  ErrorOf([&] { CheckEvent(event); }));
    }
}

// ---- writing ----

TEST_F(Events, WriteStoresEveryValueAsTheMonitorReadsIt)
{
    EventRecord event = Record("DISK", 0x1A2B, {"one", "", "three"});
    event.report_count = 3;
    event.hours = 0x00FF00;
    events_.Write(event);

    const std::string path = SettingsPath("DISK", "1A2B");
    EXPECT_EQ(std::string("one\0", 4), TreeValue(path, "KeyWord")->data);
    EXPECT_EQ(std::string("\0", 1), TreeValue(path, "KeyWord2")->data);
    EXPECT_EQ(std::string("three\0", 6), TreeValue(path, "KeyWord3")->data);
    EXPECT_EQ(REG_SZ, TreeValue(path, "KeyWord2")->type);
    EXPECT_EQ(test::NumberBytes(3), TreeValue(path, "ReportCount")->data);
    EXPECT_EQ(test::NumberBytes(0x00FF00), TreeValue(path, "WatchTime")->data);
    EXPECT_EQ(REG_DWORD, TreeValue(path, "WatchTime")->type);
}

TEST_F(Events, WriteAndFindGiveTheSameEvent)
{
    EventRecord event = Record("DISK", 0x1A2B, {"one", "zwö", "three"});
    event.report_count = 2147483647;
    event.hours = 5;
    events_.Write(event);
    const auto stored = events_.Find(event.key);
    ASSERT_TRUE(stored);
    EXPECT_EQ(event, stored->event);
    EXPECT_EQ("1A2B", stored->id_text);
    EXPECT_EQ("", stored->problem);
}

TEST_F(Events, WriteOfARefusedEventStoresNothing)
{
    EXPECT_NE("no error", ErrorOf([&] { events_.Write(Record("SRC", 1, {"", "", ""})); }));
    EXPECT_FALSE(test::Registry().Find(kRootKey, SourcePath("SRC")));
}

TEST_F(Events, AnEventIsFoundByItsNumberHoweverItsKeyIsWritten)
{
    WriteWhole("SRC", "01a2b");
    ASSERT_TRUE(events_.Find({"src", 0x1A2B}));
    events_.Write(Record("SRC", 0x1A2B, {"new", "", ""}));
    EXPECT_EQ("new", events_.Find({"SRC", 0x1A2B})->event.keywords[0]);
    auto &tree = test::Registry();
    EXPECT_EQ(std::vector<std::string>{"01a2b"},
              tree.SubKeys(*tree.Find(kRootKey, SourcePath("SRC"))));
}

TEST_F(Events, AnEventWhoseKeyHasMoreThanEightDigitsIsFoundByTheNumberThatIsShown)
{
    WriteWhole("SRC", "123456789");
    const auto sources = events_.ReadAll();
    ASSERT_EQ(1U, sources.size());
    const EventKey shown = sources[0].events[0].event.key;
    EXPECT_TRUE(events_.Find(shown)) << events::FormatEventId(shown.id);
    EXPECT_TRUE(events_.Remove(shown));
}

TEST_F(Events, AnEventOrSourceThatIsNotThereIsNotFound)
{
    EXPECT_FALSE(events_.Find({"SRC", 1}));
    events_.Write(Record("SRC", 1));
    EXPECT_FALSE(events_.Find({"SRC", 2}));
    EXPECT_FALSE(events_.Find({"OTHER", 1}));
}

// ---- removing ----

TEST_F(Events, RemoveTakesTheLastEventsSourceWithIt)
{
    events_.Write(Record("SRC", 1));
    events_.Write(Record("SRC", 2));
    EXPECT_TRUE(events_.Remove({"src", 1}));
    EXPECT_FALSE(events_.Find({"SRC", 1}));
    EXPECT_TRUE(events_.Find({"SRC", 2}));
    EXPECT_TRUE(events_.Remove({"SRC", 2}));
    EXPECT_FALSE(test::Registry().Find(kRootKey, SourcePath("SRC")));
    EXPECT_TRUE(test::Registry().Find(kRootKey, kApplicationKey));
}

TEST_F(Events, RemoveKeepsASourceThatHasValues)
{
    events_.Write(Record("SRC", 1));
    test::SetTreeNumber(SourcePath("SRC"), "NEWAPPLICATIONTYPE", 1);
    EXPECT_TRUE(events_.Remove({"SRC", 1}));
    EXPECT_TRUE(test::Registry().Find(kRootKey, SourcePath("SRC")));
}

TEST_F(Events, RemoveOfAnEventThatIsNotThereIsFalse)
{
    EXPECT_FALSE(events_.Remove({"SRC", 1}));
    events_.Write(Record("SRC", 1));
    EXPECT_FALSE(events_.Remove({"SRC", 2}));
}

TEST_F(Events, ADamagedEventCanBeRemovedAndWrittenAgain)
{
    test::Registry().Create(kRootKey, SourcePath("SRC") + "\\1");
    EXPECT_EQ("it has no settings", ProblemOf("SRC", 1));
    events_.Write(Record("SRC", 1));
    EXPECT_EQ("", ProblemOf("SRC", 1));
    DeleteValue(SettingsPath("SRC", "1"), "KeyWord");
    EXPECT_TRUE(events_.Remove({"SRC", 1}));
    EXPECT_FALSE(events_.Find({"SRC", 1}));
}

// ---- reading ----

TEST_F(Events, ReadAllKeepsTheOrderInWhichTheMonitorLoads)
{
    for (const auto &[source, id] :
         {std::pair{"Zebra", 2U}, {"ant", 1U}, {"Zebra", 1U}, {"Mouse", 9U}})
        events_.Write(Record(source, id));
    std::vector<std::string> order;
    for (const auto &source : events_.ReadAll()) {
        for (const StoredEvent &stored : source.events)
            order.push_back(source.name + " " + stored.id_text);
    }
    EXPECT_EQ((std::vector<std::string>{"Zebra 2", "Zebra 1", "ant 1", "Mouse 9"}), order);
}

TEST_F(Events, ReadAllOfAnEmptyRegistryIsEmpty)
{
    EXPECT_TRUE(events_.ReadAll().empty());
}

TEST_F(Events, ReadAllMarksASourceThatReportsUnderATypeOfItsOwn)
{
    events_.Write(Record("MINE", 1));
    events_.Write(Record("THEIRS", 1));
    test::SetTreeNumber(SourcePath("THEIRS"), "NEWAPPLICATIONTYPE", 0);
    const auto sources = events_.ReadAll();
    ASSERT_EQ(2U, sources.size());
    EXPECT_FALSE(sources[0].is_new_application_type);
    EXPECT_TRUE(sources[1].is_new_application_type);
}

TEST_F(Events, AMissingValueIsNamed)
{
    for (const char *name : {"KeyWord", "KeyWord2", "KeyWord3"}) {
        WriteWhole("SRC", "1");
        DeleteValue(SettingsPath("SRC", "1"), name);
        EXPECT_EQ(std::string("it has no ") + name, ProblemOf("SRC", 1));
    }
    for (const char *name : {"ReportCount", "WatchTime"}) {
        WriteWhole("SRC", "1");
        DeleteValue(SettingsPath("SRC", "1"), name);
        EXPECT_EQ(std::string("it has no ") + name + " of 4 bytes", ProblemOf("SRC", 1));
    }
}

TEST_F(Events, ATooLongValueIsNamed)
{
    WriteWhole("SRC", "1");
    test::SetTreeText(SettingsPath("SRC", "1"), "KeyWord2", std::string(256, 'k'));
    EXPECT_EQ("", ProblemOf("SRC", 1));
    test::SetTreeText(SettingsPath("SRC", "1"), "KeyWord2", std::string(257, 'k'));
    EXPECT_EQ("KeyWord2 is longer than 256 bytes", ProblemOf("SRC", 1));
    WriteWhole("SRC", "2");
    test::SetTreeValue(SettingsPath("SRC", "2"), "ReportCount", REG_BINARY, "12345");
    EXPECT_EQ("it has no ReportCount of 4 bytes", ProblemOf("SRC", 2));
}

TEST_F(Events, AKeyNameThatTheMonitorDoesNotReadIsNamed)
{
    WriteWhole("SRC", std::string(12, '0') + "1A2B");
    EXPECT_EQ("the name of its key is longer than 15 characters", ProblemOf("SRC", 0x1A2B));
    WriteWhole("SRC", std::string(11, '0') + "1A2C");
    EXPECT_EQ("", ProblemOf("SRC", 0x1A2C));
}

TEST_F(Events, TheFirstOfManyProblemsIsNamed)
{
    test::Registry().Create(kRootKey, SettingsPath("SRC", "1"));
    EXPECT_EQ("it has no KeyWord", ProblemOf("SRC", 1));
}

TEST_F(Events, ReadWhileAnotherProcessAddsAndRemovesOneAreWholeOrNotThere)
{
    events_.Write(Record("STAYS", 1));
    test::Child other(test::Helper(
        Root(), {"flicker-key", SettingsPath("SRC", "1"), "KeyWord", "KeyWord2", "KeyWord3"}));
    ASSERT_EQ("flickering", other.ReadLine());
    for (int i = 0; i < 300 && !HasFailure(); ++i) {
        for (const auto &source : events_.ReadAll()) {
            for (const StoredEvent &stored : source.events)
                EXPECT_EQ("", stored.problem) << source.name << " in read " << i;
        }
    }
}

// ---- changing ----

TEST_F(Events, ChangeIsStoredAndWakesTheMonitor)
{
    HANDLE changed = CreateEvent(nullptr, FALSE, FALSE, kTableEvent);
    events::ChangeEvents(
        test::TheHost(), [&] { events_.Write(Record("SRC", 1)); }, [] {});
    EXPECT_TRUE(events_.Find({"SRC", 1}));
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(changed, 0));
}

TEST_F(Events, ChangeThatFailsIsRolledBackAndWakesNobody)
{
    HANDLE changed = CreateEvent(nullptr, FALSE, FALSE, kTableEvent);
    const std::string error = ErrorOf([&] {
        events::ChangeEvents(
            test::TheHost(),
            [&] {
                events_.Write(Record("SRC", 1));
                events_.Write(Record("SRC", 2, {"", "", ""}));
            },
            [] {});
    });
    EXPECT_EQ(0U, error.find("cannot use event SRC 2")) << error;
    EXPECT_FALSE(events_.Find({"SRC", 1}));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    events::ChangeEvents(
        test::TheHost(), [&] { events_.Write(Record("SRC", 3)); }, [] {}); // the mutex is free
}

TEST_F(Events, ChangeWaitsForTheMutexAndSaysSoOnce)
{
    test::Child owner(test::Helper(Root(), {"own-mutex", kTableMutex, "1"}));
    ASSERT_EQ("owned", owner.ReadLine());
    int told = 0;
    events::ChangeEvents(
        test::TheHost(), [&] { events_.Write(Record("SRC", 1)); },
        [&] {
            ++told;
            EXPECT_FALSE(events_.Find({"SRC", 1}));
            owner.Say("release it");
        });
    EXPECT_EQ(1, told);
    EXPECT_TRUE(events_.Find({"SRC", 1}));
}

TEST_F(Events, ChangeHoldsTheMutexWhileItWrites)
{
    events::ChangeEvents(
        test::TheHost(),
        [&] {
            HANDLE mutex = CreateMutex(nullptr, FALSE, kTableMutex);
            EXPECT_EQ(WAIT_RESULT_TIMEOUT, std::async(std::launch::async, [&] {
                                               return WaitForSingleObject(mutex, 0);
                                           }).get());
            CloseHandle(mutex);
        },
        [] {});
}

} // namespace
