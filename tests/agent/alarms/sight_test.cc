// What is wrong with what the alarms see.
#include "agent/alarms/sight.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"

namespace {

using alerts::OwnEvent;

constexpr int64_t kHourMs = 3'600'000;
constexpr int64_t kNow = 1'800'000'000'000;

// Everything is well.
alarms::Sight Well()
{
    alarms::Sight sight;
    sight.now_ms = kNow;
    sight.boot_ns = 10'000'000'000'000;
    sight.status.state = status::MonitorState::kRunning;
    sight.status.last_full_pass.number = 1;
    sight.status.last_full_pass.began_boot_ns = sight.boot_ns;
    sight.files = {{"/var/log/messages", "", kNow, true}, {"/var/log/app.log", "", kNow, false}};
    sight.sinks = {{"mail", ""}};
    sight.store = "/state/agent.db";
    sight.disk_bytes = 1'000'000'000;
    sight.free_bytes = 500'000'000;
    sight.cycle_s = 300;
    sight.after_s = 900;
    sight.silent_s = 24 * 3600;
    return sight;
}

status::InputStatus Journal()
{
    status::InputStatus input;
    input.name = "journal";
    input.kind = "journal";
    input.last_entry_ms = kNow;
    return input;
}

// The one trouble of a sight.
alarms::Trouble Only(const alarms::Sight &sight)
{
    const auto troubles = TroublesIn(sight);
    EXPECT_EQ(1U, troubles.size());
    return troubles.empty() ? alarms::Trouble{} : troubles[0];
}

TEST(Sight, WhereAllIsWellThereIsNoTrouble)
{
    alarms::Sight sight = Well();
    sight.status.inputs = {Journal()};
    EXPECT_TRUE(TroublesIn(sight).empty());
}

TEST(Sight, AMonitorThatEndedIsToldAtOnce)
{
    alarms::Sight sight = Well();
    sight.end = alarms::MonitorEnd{"no more memory", true};
    const alarms::Trouble trouble = Only(sight);
    EXPECT_EQ(OwnEvent::kMonitorEnded, trouble.event);
    EXPECT_EQ("the monitor ended: no more memory", trouble.message);
    EXPECT_EQ(0, trouble.after_ms);
}

TEST(Sight, AnEndWithoutATableIsAnotherTrouble)
{
    alarms::Sight sight = Well();
    sight.end = alarms::MonitorEnd{"an event is damaged", false};
    EXPECT_EQ(OwnEvent::kTable, Only(sight).event);
}

TEST(Sight, AFileThatCannotBeReadHasItsReason)
{
    alarms::Sight sight = Well();
    sight.files[1].unreadable = "Permission denied";
    const alarms::Trouble trouble = Only(sight);
    EXPECT_EQ(OwnEvent::kUnreadable, trouble.event);
    EXPECT_EQ("/var/log/app.log", trouble.about);
    EXPECT_EQ("/var/log/app.log cannot be read: Permission denied", trouble.message);
    EXPECT_EQ(900'000, trouble.after_ms);
}

TEST(Sight, ASystemLogWithoutALineForADayIsSilent)
{
    alarms::Sight sight = Well();
    sight.files[0].written_ms = kNow - 24 * kHourMs + 1;
    EXPECT_TRUE(TroublesIn(sight).empty());
    sight.files[0].written_ms = kNow - 24 * kHourMs;
    EXPECT_EQ(OwnEvent::kSilent, Only(sight).event);
    sight.silent_s = 0;
    EXPECT_TRUE(TroublesIn(sight).empty()) << "nobody wants to know";
}

TEST(Sight, AFileOfAProgramMayBeQuiet)
{
    alarms::Sight sight = Well();
    sight.files[1].written_ms = kNow - 1000 * kHourMs;
    EXPECT_TRUE(TroublesIn(sight).empty());
}

TEST(Sight, AnInputTellsWhatIsNotReadAndSinceWhen)
{
    alarms::Sight sight = Well();
    sight.status.inputs = {Journal()};
    sight.status.inputs[0].problems = {"/a.log cannot be read", "and more"};
    EXPECT_EQ("input journal: /a.log cannot be read", Only(sight).message);
    sight.status.inputs[0].problems.clear();
    sight.status.inputs[0].behind_since_ms = kNow - 899'000;
    EXPECT_TRUE(TroublesIn(sight).empty());
    sight.status.inputs[0].behind_since_ms = kNow - 900'000;
    EXPECT_EQ(OwnEvent::kBacklog, Only(sight).event);
}

TEST(Sight, AJournalWithoutAnEntryForADayIsSilent)
{
    alarms::Sight sight = Well();
    sight.status.inputs = {Journal()};
    sight.status.inputs[0].last_entry_ms = kNow - 24 * kHourMs;
    EXPECT_EQ(OwnEvent::kSilent, Only(sight).event);
}

TEST(Sight, PassesThatDoNotComeToAnEndAreABacklog)
{
    alarms::Sight sight = Well();
    sight.boot_ns += 1'499 * INT64_C(1'000'000'000);
    EXPECT_TRUE(TroublesIn(sight).empty());
    sight.boot_ns += INT64_C(1'000'000'000);
    EXPECT_EQ(OwnEvent::kBacklog, Only(sight).event);
}

TEST(Sight, AStoreIsNearlyFullAtATwentiethOfASmallDisk)
{
    alarms::Sight sight = Well();
    sight.free_bytes = 50'000'000;
    EXPECT_TRUE(TroublesIn(sight).empty());
    --sight.free_bytes;
    EXPECT_EQ(OwnEvent::kStoreFull, Only(sight).event);
    sight.disk_bytes = INT64_C(100'000'000'000);
    sight.free_bytes = INT64_C(1'000'000'000);
    EXPECT_TRUE(TroublesIn(sight).empty()) << "a hundredth of a large disk is much";
}

TEST(Sight, ASinkThatFailsIsNamed)
{
    alarms::Sight sight = Well();
    sight.sinks[0].error = "connection refused";
    const alarms::Trouble trouble = Only(sight);
    EXPECT_EQ("mail", trouble.about);
    EXPECT_EQ("the sink mail takes no alerts: connection refused", trouble.message);
}

TEST(ClockWatch, TellsByHowMuchTheClockWasSet)
{
    alarms::ClockWatch watch;
    EXPECT_EQ(0, watch.Look(kNow, 0)) << "the first look";
    EXPECT_EQ(0, watch.Look(kNow + 30'000, 30'000'000'000));
    EXPECT_EQ(0, watch.Look(kNow + 69'999, 60'000'000'000)) << "a time server";
    EXPECT_EQ(kHourMs, watch.Look(kNow + 69'999 + kHourMs, 60'000'000'000));
    EXPECT_EQ(-kHourMs, watch.Look(kNow + 69'999, 60'000'000'000));
}

class LookingAround : public test::HostTest {
  protected:
    static alarms::Sight Look()
    {
        alarms::Sight sight;
        alarms::LookAround(test::Store(), test::Registry(), &sight);
        return sight;
    }
};

TEST_F(LookingAround, SeesTheFilesThatAreSet)
{
    test::SetTreeText(kMonitorKey, kFileNameValue, File("gone.log"));
    const auto files = Look().files;
    ASSERT_EQ(2U, files.size());
    EXPECT_EQ(File("gone.log"), files[1].path);
    EXPECT_EQ("No such file or directory", files[1].unreadable);
}

TEST_F(LookingAround, SeesDiskAndSettings)
{
    const alarms::Sight sight = Look();
    EXPECT_GT(sight.disk_bytes, sight.free_bytes);
    EXPECT_EQ(300, sight.cycle_s);
    EXPECT_EQ(900, sight.after_s);
    EXPECT_EQ(24 * 3600, sight.silent_s);
}

} // namespace
