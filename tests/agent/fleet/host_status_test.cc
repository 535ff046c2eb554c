// What hosts say of themselves: written, read, judged and sorted.
#include "agent/fleet/host_status.h"

#include <gtest/gtest.h>

#include "agent/fleet/member.h"
#include "agent/host/error.h"
#include "tests/agent/support/host_test.h"

namespace {

using fleet::HostStatus;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int64_t kNow = 1795000000000;

HostStatus Host(const std::string &name, uint64_t revision = 5, uint64_t newest = 5)
{
    HostStatus host;
    host.uuid = "uuid-of-" + name;
    host.host = name;
    host.groups = {{"web", revision, newest, false}};
    host.sent_ms = kNow - 1000;
    return host;
}

TEST(HostStatus, IsTheSameWhenItWasWrittenAndRead)
{
    HostStatus host = Host("a", 3, 5);
    host.groups[0].is_canary = true;
    host.version = "1.0";
    host.error = "why";
    host.local = {"DISK 1"};
    host.monitor = "it stands";
    host.last_pass_ms = 7;
    host.behind_bytes = 8;
    host.alerts_a_minute = 9;
    host.every_s = 10;
    const std::string text = fleet::FormatStatus(host);
    EXPECT_EQ(text, fleet::FormatStatus(fleet::ParseStatus(text)));
    EXPECT_NE(std::string::npos, text.find("it stands"));
    EXPECT_EQ(10, fleet::ParseStatus(text).every_s);
}

// Each character that needs an escape takes six bytes.
TEST(HostStatus, FitsIntoItsPlaceHoweverMuchThereIsToSay)
{
    HostStatus host = Host(std::string(1000, '\1'));
    host.error = host.monitor = std::string(100000, '\1');
    host.local.assign(1000, std::string(255, '\xFF'));
    host.groups.assign(16, {std::string(64, 'g'), INT64_MAX, INT64_MAX, false});
    for (char &c : host.groups[3].name)
        c = 'h';
    const std::string text = fleet::FormatStatus(host);
    EXPECT_LE(text.size(), fleet::kMaxStatus);
    EXPECT_EQ("and 980 more", fleet::ParseStatus(text).local.back());
}

TEST(HostStatus, OfAnotherFormIsRefused)
{
    for (const std::string text : {"", "[]", "{}", R"({"host": 1, "groups": {}})",
                                   R"({"host": "a", "groups": {"web": {"revision": "x"}}})"})
        EXPECT_NE("no error", test::ErrorOf([&] { fleet::ParseStatus(text); })) << text;
    const auto error_of = [](const std::string &revision, const std::string &every) {
        return test::ErrorOf([&] {
            fleet::ParseStatus(R"({"host": "a", "every_s": )" + every +
                               R"(, "groups": {"web": {"newest": 1, "revision": )" + revision +
                               "}}}");
        });
    };
    EXPECT_EQ("no error", error_of("1", "60"));
    for (const char *number : {"1e300", "1.5", "18446744073709551615", "null", "true", "[]"}) {
        EXPECT_NE("no error", error_of(number, "60")) << number;
        EXPECT_NE("no error", error_of("1", number)) << number;
    }
    EXPECT_NE("no error", error_of("-1", "60"));
}

TEST(HostStatus, AHostIsSilentWhenItHasMissedTwoOfItsTimes)
{
    HostStatus host = Host("a");
    host.every_s = 60;
    host.sent_ms = kNow - 130000;
    EXPECT_EQ(0, fleet::SilentFor(host, kNow));
    EXPECT_EQ(130001, fleet::SilentFor(host, kNow + 1));
    EXPECT_EQ("silent for 2m10s", fleet::TroubleOf(host, kNow + 1));
}

TEST(HostStatus, ThoseThatNeedToBeLookedAtAreTheFirst)
{
    std::vector<HostStatus> hosts = {Host("well"),  Host("late", 4), Host("stands"),
                                     Host("wrong"), Host("silent"),  Host("also well"),
                                     Host("behind")};
    hosts[2].monitor = "it is stopped";
    hosts[3].error = "why";
    hosts[4].sent_ms = 0;
    hosts[6].behind_bytes = int64_t{1} << 30U;
    fleet::SortByTrouble(&hosts, kNow);
    std::string names;
    for (const HostStatus &host : hosts)
        names += host.host + ", ";
    EXPECT_EQ("silent, wrong, stands, behind, late, also well, well, ", names);
}

// ---- a rollout ----

fleet::RolloutState StateOf(const std::vector<HostStatus> &hosts)
{
    return fleet::StateOf(hosts, "web", {"uuid-of-a", "uuid-of-b"}, 5, kNow);
}

TEST(Rollout, HostsRunTheRevisionOrAreWaitedFor)
{
    const auto state = StateOf({Host("a"), Host("b", 4, 4), Host("c")});
    EXPECT_EQ((std::map<std::string, int64_t>{{"uuid-of-a", kNow - 1000}}), state.running);
    EXPECT_EQ(std::vector<std::string>{"uuid-of-b"}, state.waiting);
    EXPECT_EQ("", state.failed);
}

TEST(Rollout, AHostThatHasTriedItAndHasTroubleStopsIt)
{
    HostStatus refuses = Host("b", 4, 5);
    refuses.error = "why";
    EXPECT_EQ("b: why", StateOf({Host("a"), refuses}).failed);
    HostStatus stands = Host("b");
    stands.monitor = "it has ended";
    EXPECT_EQ("b: it has ended", StateOf({Host("a"), stands}).failed);
    // What it had against the one before is no reason.
    HostStatus of_before = Host("b", 3, 4);
    of_before.error = "why";
    EXPECT_EQ("", StateOf({Host("a"), of_before}).failed);
}

TEST(Rollout, ASilentHostAndOneThatHasLeftTheGroupCountForNothing)
{
    HostStatus silent = Host("a");
    silent.sent_ms = 0;
    HostStatus left = Host("b");
    left.groups[0].name = "db";
    const auto state = StateOf({silent, left});
    EXPECT_TRUE(state.running.empty());
    EXPECT_TRUE(state.waiting.empty());
}

// Two hosts that run it, each as it was heard at this moment.
fleet::RolloutState Running(int64_t a_ms, int64_t b_ms)
{
    fleet::RolloutState state;
    state.running = {{"a", a_ms}, {"b", b_ms}};
    return state;
}

TEST(Probation, IsOverWhenEachHostHasSaidSoLongAfterwardsThatItStillRunsIt)
{
    fleet::Probation probation(60000);
    EXPECT_FALSE(probation.IsOver(Running(1000, 2000)));
    // However long that lasts: who says nothing has shown nothing.
    EXPECT_FALSE(probation.IsOver(Running(1000, 2000)));
    EXPECT_FALSE(probation.IsOver(Running(61000, 2000)));
    EXPECT_FALSE(probation.IsOver(Running(61000, 61999)));
    EXPECT_TRUE(probation.IsOver(Running(61000, 62000)));
}

TEST(Probation, IsNotOverWhileAHostIsWaitedForOrHasFallenSilent)
{
    fleet::Probation probation(1);
    EXPECT_FALSE(probation.IsOver(Running(1000, 2000)));
    fleet::RolloutState waits = Running(3000, 3000);
    waits.waiting = {"c"};
    EXPECT_FALSE(probation.IsOver(waits));
    fleet::RolloutState silent = Running(3000, 3000);
    silent.running.erase("b");
    EXPECT_FALSE(probation.IsOver(silent));
    EXPECT_TRUE(probation.IsOver(Running(3000, 3000)));
}

// ---- alerts a minute ----

TEST(AlertRate, IsThatOfTheLastWholeMinuteOrOfTheOneUnderWay)
{
    fleet::AlertRate rate;
    const auto begin = steady_clock::now();
    EXPECT_EQ(0, rate.Take(1000, begin));
    EXPECT_EQ(30, rate.Take(1030, begin + seconds(30)));
    EXPECT_EQ(30, rate.Take(1060, begin + seconds(120)));
    EXPECT_EQ(30, rate.Take(1070, begin + seconds(130)));
    EXPECT_EQ(40, rate.Take(1100, begin + seconds(140)));
    EXPECT_EQ(20, rate.Take(1100, begin + seconds(240)));
    EXPECT_EQ(0, rate.Take(1100, begin + seconds(300)));
}

} // namespace
