// The alerts of all hosts in one store: what is known, what is missing, and a process that is killed at every call.
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "agent/alerts/own_alert.h"
#include "agent/fleet/ledger.h"
#include "agent/fleet/wire_alert.h"
#include "agent/host/here_and_now.h"
#include "agent/sinks/alert_json.h"
#include "platform/contract.h"
#include "tests/agent/host/faults.h"
#include "tests/agent/support/host_test.h"

namespace {

using alerts::Alert;
using fleet::Arrived;
using fleet::Ledger;

using Strings = std::vector<std::string>;

Alert AlertOfHost(const std::string &host, int64_t id)
{
    Alert alert;
    alert.id = id;
    alert.key = "series-of-" + host + "/" + std::to_string(id);
    alert.time_ms = 1795222801000 + id;
    alert.host = host;
    alert.log_name = "Application";
    alert.source = "DISK";
    alert.event_id = 0x1A2B;
    alert.count = 1;
    alert.message = "line " + std::to_string(id);
    return alert;
}

std::string BodyOf(const Alert &alert)
{
    sinks::Message message;
    message.alert = alert;
    message.key = alert.key;
    return sinks::AlertJson(message);
}

constexpr int64_t kStoredMs = 1795222800000;

// As its host sends it behind the one before it. The servers have stored it `id` seconds behind that moment.
Arrived ArrivedOf(const std::string &host, int64_t id)
{
    return {"uuid-of-" + host, BodyOf(AlertOfHost(host, id)), id - 1, 0, kStoredMs + id * 1000, id};
}

class LedgerTest : public test::HostTest {
  protected:
    size_t Take(const std::vector<Arrived> &messages, uint64_t sequence = 1)
    {
        return Ledger(test::Store()).Take(messages, {"stream", 7, sequence});
    }
    static Strings Keys()
    {
        Strings keys;
        for (const Alert &alert : alerts::ReadAlerts(test::Store().database(), 0, 0, 10000)) {
            if (alert.is_collected)
                keys.push_back(alert.key);
        }
        return keys;
    }
    static Strings Told()
    {
        Strings told;
        for (const Alert &alert : alerts::ReadAlerts(test::Store().database(), 0, 0, 10000)) {
            if (alert.source == alerts::kOwnSource)
                told.push_back(alert.message);
        }
        return told;
    }
    static fleet::HostRow Host() { return fleet::ReadHosts(test::Store().database()).at(0); }
    // The servers were asked for what is missing of the host "a", so long after it was noticed for the last time, and have
    // not got it.
    static void LookInVain(int64_t after_ms = fleet::Holes::kToldAfterMs,
                           Ledger::Look look = Ledger::Look::kDone)
    {
        const int64_t last_ms = host::NowMs() + after_ms;
        for (int64_t tries = fleet::Holes::kTriesBeforeTold - 1; tries >= 0; --tries)
            Ledger(test::Store()).EndLook("uuid-of-a", look, last_ms - tries);
    }
};

TEST_F(LedgerTest, AnAlertIsTheSameAsInItsOwnStoreInEachOfItsFields)
{
    Alert alert = AlertOfHost("web1", 5);
    alert.line_host = "inner";
    alert.program = "app";
    alert.own_time = "2026-11-21T10:00:01";
    alert.severity = "crit";
    alert.labels = {{"team", "db"}, {"a", "b=c"}};
    alert.summary = "disk";
    alert.runbook_url = "https://example/run";
    alert.value = "10.0.0.1";
    alert.terms = "3 hits make a report";
    alert.held_back = {3, 4, 1795222800000, 1795222800500, "first", "last"};
    alert.reports = 12;
    alert.last_time_ms = 1795222809000;
    alert.last_message = "the last line";
    Take({{"uuid", BodyOf(alert), 4, 0}});

    const auto all = alerts::ReadAlerts(test::Store().database(), 0, 0, 10);
    ASSERT_EQ(1U, all.size());
    EXPECT_TRUE(all[0].is_collected);
    EXPECT_EQ(alert.key, alerts::KeyOf(test::Store().database(), all[0].id));
    Alert stored = all[0];
    stored.id = alert.id;
    EXPECT_EQ(BodyOf(alert), BodyOf(stored));
    EXPECT_EQ(alerts::BytesOf(all[0]), alerts::BytesBetween(test::Store().database(), 0, 10));
}

// Otherwise a host could fill the disk within the limit of the store.
TEST_F(LedgerTest, EachTextThatAHostSendsCountsForTheLimitOfTheStore)
{
    constexpr int64_t kSize = 2000;
    int64_t id = 0;
    for (std::string Alert::*text :
         {&Alert::log_name, &Alert::message, &Alert::line_host, &Alert::program, &Alert::own_time,
          &Alert::summary, &Alert::runbook_url, &Alert::value, &Alert::terms}) {
        Alert alert = AlertOfHost("a", ++id);
        alert.*text = std::string(kSize, 't');
        Take({{"uuid", BodyOf(alert), id - 1, 0}});
        host::Database &database = test::Store().database();
        const Alert stored = alerts::ReadAlerts(database, 0, 0, 100).back();
        const int64_t bytes = alerts::BytesBetween(database, stored.id - 1, stored.id);
        EXPECT_GT(bytes, kSize) << id;
        EXPECT_EQ(bytes, alerts::BytesOf(stored)) << id;
    }
}

TEST_F(LedgerTest, WhatIsKnownIsDroppedByTheNumberOfItsHost)
{
    EXPECT_EQ(3U, Take({ArrivedOf("a", 1), ArrivedOf("b", 1), ArrivedOf("a", 2)}));
    EXPECT_EQ(1U,
              Take({ArrivedOf("a", 1), ArrivedOf("a", 2), ArrivedOf("a", 3), ArrivedOf("b", 1)}));
    EXPECT_EQ((Strings{"series-of-a/1", "series-of-b/1", "series-of-a/2", "series-of-a/3"}),
              Keys());
    EXPECT_EQ(Strings{}, Told());
}

TEST_F(LedgerTest, AHostThatMakesGapsWithoutEndIsToldOfAFewTimesAndCounted)
{
    fleet::FloodWatch floods;
    std::vector<Arrived> messages;
    for (int64_t id = 1; id < 2000; id += 2)
        messages.push_back(ArrivedOf("a", id));
    Ledger ledger(test::Store(), &floods);
    ledger.Take(messages, {"stream", 7, 1});
    // All but the newest, which are asked for first.
    EXPECT_EQ(static_cast<size_t>(fleet::FloodCount::kTellAtOnce), Told().size());
    EXPECT_EQ(999 - static_cast<int64_t>(fleet::Holes::kMost), Host().missing);
    LookInVain();
    EXPECT_EQ(999, Host().missing);
    EXPECT_EQ(1000, Host().alerts);
}

TEST_F(LedgerTest, AHostThatFloodsIsToldOfWithItsName)
{
    fleet::FloodWatch floods;
    std::vector<Arrived> messages(fleet::FloodCount::kTooMany, ArrivedOf("a", 1));
    for (Arrived &message : messages)
        message.stored_ms = 1795222800000;
    Ledger(test::Store(), &floods).Take(messages, {"stream", 7, 1});
    ASSERT_EQ(1U, Told().size());
    EXPECT_TRUE(Told()[0].starts_with("a floods the fleet: more than 10000 messages in 10 seconds"))
        << Told()[0];
}

// What could not be stored comes again: it is counted once, and told of then.
TEST_F(LedgerTest, AFloodThatCouldNotBeStoredIsToldOfWhenItComesAgain)
{
    fleet::FloodWatch floods;
    Ledger ledger(test::Store(), &floods);
    std::vector<Arrived> messages(fleet::FloodCount::kTooMany, ArrivedOf("a", 1));
    for (Arrived &message : messages)
        message.stored_ms = 1795222800000;
    const auto take_and_fail = [&](std::span<const Arrived> some) {
        host::Statement(test::Store().database(),
                        "CREATE TRIGGER fails BEFORE INSERT ON fleet_place BEGIN"
                        " SELECT RAISE(ABORT, 'the disk is full'); END")
            .Run();
        EXPECT_THROW(ledger.Take(some, {"stream", 7, 1}), host::StoreError);
        host::Statement(test::Store().database(), "DROP TRIGGER fails").Run();
    };
    // Counted twice, these would be too many already.
    const std::span half(messages.data(), fleet::FloodCount::kTooMany / 2);
    take_and_fail(half);
    ledger.Take(half, {"stream", 7, 1});
    EXPECT_EQ(0U, Told().size());
    take_and_fail(messages);
    EXPECT_EQ(0U, Told().size());
    ledger.Take(half, {"stream", 7, 2});
    EXPECT_EQ(1U, Told().size());
}

// A word of it that was not stored has taken nothing of what may be told of a host.
TEST_F(LedgerTest, AGapThatCouldNotBeStoredIsToldOfWhenItIsLookedForAgain)
{
    fleet::FloodWatch floods;
    Ledger ledger(test::Store(), &floods);
    ledger.Take(std::vector{ArrivedOf("a", 1), ArrivedOf("a", 5)}, {"stream", 7, 1});
    LookInVain(fleet::Holes::kToldAfterMs - 1000);
    host::Statement(test::Store().database(),
                    "CREATE TRIGGER fails BEFORE INSERT ON fleet_hole BEGIN"
                    " SELECT RAISE(ABORT, 'the disk is full'); END")
        .Run();
    const int64_t later = host::NowMs() + fleet::Holes::kToldAfterMs;
    for (int tries = 0; tries < 2 * fleet::FloodCount::kTellAtOnce; ++tries)
        EXPECT_THROW(ledger.EndLook("uuid-of-a", Ledger::Look::kDone, later), host::StoreError);
    host::Statement(test::Store().database(), "DROP TRIGGER fails").Run();
    ledger.EndLook("uuid-of-a", Ledger::Look::kDone, later);
    EXPECT_EQ(1U, Told().size());
    EXPECT_EQ(3, Host().missing);
}

// Each bound by the numbers of the alerts themselves, whatever a stranger writes beside them.
TEST_F(LedgerTest, WhatAMessageSaysOfTheOneBeforeItIsNoMoreThanCanBe)
{
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    Take({ArrivedOf("a", 1),
          {"uuid-of-a", BodyOf(AlertOfHost("a", 4)), kMost, kMost},
          {"uuid-of-a", BodyOf(AlertOfHost("a", 9)), kMost, kMost}});
    LookInVain();
    EXPECT_EQ(2 + 4, Host().missing);
    EXPECT_EQ(2 + 4, Host().dropped);
    EXPECT_EQ(9, Host().last_id);
}

TEST_F(LedgerTest, AlertsThatAHostDoesNotSendLeaveNoGap)
{
    // 2 and 3 were not for the sink.
    Take({ArrivedOf("a", 1), {"uuid-of-a", BodyOf(AlertOfHost("a", 4)), 1, 0}});
    LookInVain();
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(Strings{}, Told());
}

const Strings kThreeAreMissing{"up to 3 alerts of a behind its alert 1 are missing: the servers "
                               "have lost them, or keep them for "
                               "too short a time"};

TEST_F(LedgerTest, AGapIsToldAndCountedWhenTheServersWereAskedForAWhileAndHaveNotGotIt)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    EXPECT_EQ(2, Host().alerts);
    LookInVain(fleet::Holes::kToldAfterMs - 1000);
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(Strings{}, Told());
    LookInVain();
    EXPECT_EQ(3, Host().missing);
    EXPECT_EQ(kThreeAreMissing, Told());
    LookInVain(); // once
    EXPECT_EQ(3, Host().missing);
    EXPECT_EQ(kThreeAreMissing, Told());
}

TEST_F(LedgerTest, AGapForWhichNobodyCanBeAskedIsToldLater)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    LookInVain(fleet::Holes::kToldUnansweredAfterMs - 1000, Ledger::Look::kFailed);
    EXPECT_EQ(Strings{}, Told());
    LookInVain(fleet::Holes::kToldUnansweredAfterMs, Ledger::Look::kFailed);
    EXPECT_EQ(kThreeAreMissing, Told());
}

TEST_F(LedgerTest, AGapOfAHostThatAnotherCollectorHasIsNotTold)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    LookInVain(fleet::Holes::kToldUnansweredAfterMs, Ledger::Look::kNotOurs);
    EXPECT_EQ(Strings{}, Told());
    EXPECT_EQ(std::nullopt,
              Ledger(test::Store())
                  .NextMissing(host::NowMs() + fleet::Holes::kToldUnansweredAfterMs + 1000));
    // It may have come back by then.
    EXPECT_TRUE(Ledger(test::Store()).NextMissing(host::NowMs() + 2 * 3600 * 1000));
    LookInVain(2 * 3600 * 1000 + fleet::Holes::kToldAfterMs);
    EXPECT_EQ(kThreeAreMissing, Told());
}

// What it was noticed at lies in the time to come.
TEST_F(LedgerTest, AGapIsLookedForAndToldAlthoughTheClockWasPutBack)
{
    constexpr int64_t kHourMs = 3600 * 1000;
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    EXPECT_TRUE(Ledger(test::Store()).NextMissing(host::NowMs() - kHourMs));
    LookInVain(-kHourMs);
    EXPECT_EQ(Strings{}, Told());
    EXPECT_FALSE(Ledger(test::Store()).NextMissing(host::NowMs() - kHourMs + 100));
    LookInVain(-kHourMs + fleet::Holes::kToldAfterMs);
    EXPECT_EQ(kThreeAreMissing, Told());
}

// A daemon that was away for long has not asked in that time.
TEST_F(LedgerTest, AGapIsNotToldBeforeTheServersWereAskedAFewTimes)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    Ledger ledger(test::Store());
    for (int64_t tries = 1; tries <= fleet::Holes::kTriesBeforeTold; ++tries) {
        EXPECT_EQ(Strings{}, Told());
        ledger.EndLook("uuid-of-a", Ledger::Look::kDone, host::NowMs() + 3600 * 1000 + tries);
    }
    EXPECT_EQ(kThreeAreMissing, Told());
}

// The daemon was away for so long, or the clock went forward by so much.
TEST_F(LedgerTest, AGapForWhichNobodyAskedInTwoDaysIsAskedForAgainUntilItIsTold)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    Ledger ledger(test::Store());
    const int64_t later = host::NowMs() + int64_t{2} * 24 * 3600 * 1000;
    for (int64_t tries = 0; tries < fleet::Holes::kTriesBeforeTold; ++tries) {
        EXPECT_EQ(Strings{}, Told());
        ASSERT_TRUE(ledger.NextMissing(later + tries * 1000)) << tries;
        ledger.EndLook("uuid-of-a", Ledger::Look::kDone, later + tries * 1000);
    }
    EXPECT_EQ(kThreeAreMissing, Told());
    EXPECT_EQ(3, Host().missing);
    EXPECT_EQ(std::nullopt, ledger.NextMissing(later + int64_t{24} * 3600 * 1000));
}

// Half of what has passed would be half a day.
TEST_F(LedgerTest, AGapForWhichNobodyAskedForADayIsToldSoonBehindThat)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    Ledger ledger(test::Store());
    const int64_t later = host::NowMs() + int64_t{23} * 3600 * 1000;
    for (int64_t at = later; at < later + 10'000; at += 500) {
        if (ledger.NextMissing(at))
            ledger.EndLook("uuid-of-a", Ledger::Look::kDone, at);
    }
    EXPECT_EQ(kThreeAreMissing, Told());
}

TEST_F(LedgerTest, AnAlertThatComesBehindALaterOneOfItsHostIsTakenOnce)
{
    EXPECT_EQ(3U, Take({ArrivedOf("a", 1), ArrivedOf("a", 5), ArrivedOf("a", 3)}));
    EXPECT_EQ(2U, Take({ArrivedOf("a", 3), ArrivedOf("a", 2), ArrivedOf("a", 4)}));
    EXPECT_EQ(0U, Take({ArrivedOf("a", 4), ArrivedOf("a", 3), ArrivedOf("a", 2)}));
    EXPECT_EQ((Strings{"series-of-a/1", "series-of-a/5", "series-of-a/3", "series-of-a/2",
                       "series-of-a/4"}),
              Keys());
    LookInVain();
    EXPECT_EQ(Strings{}, Told());
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(3, Host().late);
    EXPECT_EQ(5, Host().alerts);
    EXPECT_EQ(5, Host().last_id);
}

TEST_F(LedgerTest, WhatComesThoughItWasToldAsMissingIsToldAndCountsAsMissingNoLonger)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 5)});
    LookInVain();
    Take({ArrivedOf("a", 2), ArrivedOf("a", 4)});
    EXPECT_EQ(1, Host().missing);
    EXPECT_EQ((Strings{kThreeAreMissing[0], "2 alerts of a that had been missing came after all"}),
              Told());
}

// The numbers between were never sent.
TEST_F(LedgerTest, WhatALateAlertSaysOfTheOneBeforeItCountsAsMissingNoLonger)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 9)});
    LookInVain();
    EXPECT_EQ(7, Host().missing);
    Take({{"uuid-of-a", BodyOf(AlertOfHost("a", 7)), 3, 0}});
    EXPECT_EQ(3, Host().missing); // 2, 3 and 8
    EXPECT_EQ(0U, Take({ArrivedOf("a", 5)}));
    EXPECT_EQ(2U, Take({ArrivedOf("a", 3), ArrivedOf("a", 8)}));
    EXPECT_EQ(1, Host().missing);
}

TEST_F(LedgerTest, WhatWasSentBeforeTheFirstAlertThatCameIsTakenLateAndNeverTold)
{
    Take({ArrivedOf("a", 3)});
    LookInVain();
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(2U, Take({ArrivedOf("a", 1), ArrivedOf("a", 2)}));
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(Strings{}, Told());
}

// A look brings all of a host from a while ago on, and also what the reader has not come to.
TEST_F(LedgerTest, ALookTakesWhatIsMissingOfItsHostAndNothingElse)
{
    Take({ArrivedOf("a", 1), ArrivedOf("a", 3), ArrivedOf("b", 1), ArrivedOf("b", 3)}, 5);
    const std::vector found{ArrivedOf("a", 1), ArrivedOf("a", 2),
                            ArrivedOf("b", 2), Arrived{"uuid-of-a", "no json", 0, 0},
                            ArrivedOf("a", 3), ArrivedOf("a", 4)};
    Ledger ledger(test::Store());
    EXPECT_EQ(1U, ledger.TakeLate("uuid-of-a", found));
    EXPECT_EQ(0U, ledger.TakeLate("uuid-of-a", found));
    EXPECT_EQ("series-of-a/2", Keys().back());
    EXPECT_EQ(5U, Keys().size());
    EXPECT_EQ(5U, ledger.PlaceIn("stream", 7).sequence);
    for (const fleet::HostRow &host : fleet::ReadHosts(test::Store().database()))
        EXPECT_EQ(0, host.refused);
}

TEST_F(LedgerTest, AGapIsLookedForSoonAndThenAtGrowingPausesForADay)
{
    Ledger ledger(test::Store());
    EXPECT_EQ(std::nullopt, ledger.NextMissing(host::NowMs() + 1000));
    Take({ArrivedOf("a", 1), ArrivedOf("a", 2), ArrivedOf("a", 5), ArrivedOf("a", 9)});
    const int64_t now = host::NowMs();
    EXPECT_EQ(std::nullopt, ledger.NextMissing(now + 900));
    const auto look = ledger.NextMissing(now + 1000);
    ASSERT_TRUE(look.has_value());
    EXPECT_EQ("uuid-of-a", look->uuid);
    // Of both holes, and by any clock.
    EXPECT_EQ(kStoredMs + 2000 - fleet::kClocksDifferMs, look->since_ms);
    EXPECT_EQ(kStoredMs + 9000 + fleet::kClocksDifferMs, look->until_ms);
    int looks = 0;
    constexpr int64_t kDayMs = int64_t{24} * 3600 * 1000;
    for (int64_t at = now; at < now + 2 * kDayMs; at += 500) {
        if (!ledger.NextMissing(at))
            continue;
        ledger.EndLook("uuid-of-a", Ledger::Look::kDone, at);
        ++looks;
        EXPECT_LT(at, now + kDayMs + kDayMs / 2);
    }
    EXPECT_GT(looks, 20);
    EXPECT_LT(looks, 40);
}

TEST_F(LedgerTest, WhatMayBeMissingBeforeTheFirstAlertIsLookedForUntilTheServersHaveAnsweredOnce)
{
    Ledger ledger(test::Store());
    Take({ArrivedOf("a", 3)});
    const auto look = ledger.NextMissing(host::NowMs() + 1000);
    ASSERT_TRUE(look.has_value());
    EXPECT_EQ(0, look->since_ms);
    LookInVain(1000, Ledger::Look::kFailed);
    EXPECT_TRUE(ledger.NextMissing(host::NowMs() + 3600 * 1000));
    LookInVain(2000);
    EXPECT_EQ(std::nullopt, ledger.NextMissing(host::NowMs() + 3600 * 1000));
    // Nor does a later gap ask for it again: from there on, and not from the beginning of the stream.
    Take({ArrivedOf("a", 5)});
    EXPECT_EQ(kStoredMs + 3000 - fleet::kClocksDifferMs,
              ledger.NextMissing(host::NowMs() + 1000)->since_ms);
}

// One that fills holes so that two come of each, too.
TEST_F(LedgerTest, OfAHostTheNewestHolesAreKeptAndTheOthersTold)
{
    constexpr int64_t kFar = int64_t{1} << 40U;
    std::vector<Arrived> messages{ArrivedOf("a", 1), ArrivedOf("a", kFar)};
    for (int64_t id = 4; id < 1000; id += 2)
        messages.push_back(ArrivedOf("a", id));
    Take(messages);
    const fleet::Holes holes(test::Store().database(), "uuid-of-a");
    EXPECT_EQ(fleet::Holes::kMost, holes.all().size());
    EXPECT_EQ(kFar - 1, holes.all().back().last_id);
    int64_t kept = 0;
    for (const fleet::Hole &hole : holes.all())
        kept += hole.size();
    EXPECT_EQ(kFar - 2 - 498 - kept, Host().missing);
    EXPECT_EQ(499 - fleet::Holes::kMost, Told().size());
}

TEST_F(LedgerTest, WhatAHostHasDroppedBeforeALateAlertIsToldAndWasNeverMissing)
{
    Take({ArrivedOf("a", 2), ArrivedOf("a", 202)});
    Take({{"uuid-of-a", BodyOf(AlertOfHost("a", 201)), 2, 100, 0, 201}});
    LookInVain();
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(100, Host().dropped);
    ASSERT_EQ(1U, Told().size());
    EXPECT_NE(std::string::npos, Told()[0].find("up to 100 alerts of a before its alert 201"));
}

// It is of another version, perhaps, and comes no otherwise when it is asked for.
TEST_F(LedgerTest, AMessageThatIsNoAlertIsNotMissing)
{
    Take({ArrivedOf("a", 1), {"uuid-of-a", "no json", 1, 0, 0, 2}, ArrivedOf("a", 3)});
    LookInVain();
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(1, Host().refused);
    EXPECT_EQ(3, Host().last_id);
    EXPECT_EQ(1U, Told().size()); // that it is none
    Take({ArrivedOf("a", 5), {"uuid-of-a", "no json", 3, 0, 0, 4}});
    EXPECT_EQ(std::nullopt, Ledger(test::Store()).NextMissing(host::NowMs() + 1000));
}

TEST_F(LedgerTest, AnAlertUnderAnotherOnesNumberIsRefused)
{
    EXPECT_EQ(1U,
              Take({ArrivedOf("a", 1), {"uuid-of-a", BodyOf(AlertOfHost("a", 9)), 1, 0, 0, 2}}));
    EXPECT_EQ(1, Host().refused);
    EXPECT_EQ(2, Host().last_id);
}

TEST_F(LedgerTest, WhatAHostHasDroppedIsToldAndNoGap)
{
    Take({ArrivedOf("a", 1), {"uuid-of-a", BodyOf(AlertOfHost("a", 9)), 1, 7}});
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(7, Host().dropped);
    ASSERT_EQ(1U, Told().size());
    EXPECT_NE(std::string::npos, Told()[0].find("up to 7 alerts of a before its alert 9"));
}

TEST_F(LedgerTest, TheFirstAlertOfAHostIsItsBeginning)
{
    Take({ArrivedOf("a", 1000)});
    EXPECT_EQ(0, Host().missing);
    EXPECT_EQ(1000, Host().last_id);
}

TEST_F(LedgerTest, AMessageThatIsNoAlertIsPassedOverAndTheFirstOfAHostIsTold)
{
    Take({{"uuid", "no json", 0, 0},
          {"uuid", "{}", 0, 0},
          {"uuid", BodyOf(AlertOfHost("a", 1)), 0, 0}});
    EXPECT_EQ(Strings{"series-of-a/1"}, Keys());
    EXPECT_EQ(2, Host().refused);
    ASSERT_EQ(1U, Told().size());
    EXPECT_NE(std::string::npos, Told()[0].find("no JSON object"));
}

TEST_F(LedgerTest, WhatThisStoreHasReportedItselfIsInItAlready)
{
    EXPECT_EQ(0U, Take({{test::Store().uuid(), BodyOf(AlertOfHost("a", 1)), 0, 0}}));
    EXPECT_EQ(Strings{}, Keys());
}

TEST_F(LedgerTest, APlaceIsThatOfOneStream)
{
    Ledger ledger(test::Store());
    EXPECT_EQ(0U, ledger.PlaceIn("stream", 7).sequence);
    Take({}, 12);
    EXPECT_EQ(12U, ledger.PlaceIn("stream", 7).sequence);
    EXPECT_EQ(0U, ledger.PlaceIn("stream", 8).sequence); // was made anew
    EXPECT_EQ(0U, ledger.PlaceIn("other", 7).sequence);
    ledger.Take({}, {"stream", 7, 13, 1795222801000000005});
    EXPECT_EQ(13U, ledger.PlaceIn("stream", 7).sequence);
    EXPECT_EQ(1795222801000000005, ledger.PlaceIn("stream", 7).stored_ns);
    EXPECT_EQ(0, ledger.PlaceIn("stream", 8).stored_ns); // that of another stream says nothing
}

TEST_F(LedgerTest, AProblemIsKeptWithItsTimeUntilItIsOver)
{
    Ledger ledger(test::Store());
    ledger.SetProblem("no server");
    const auto state = [] { return fleet::ReadCollectState(test::Store().database()); };
    EXPECT_EQ("no server", state().problem);
    EXPECT_GT(state().problem_ms, 0);
    ledger.SetProblem("");
    EXPECT_EQ("", state().problem);
}

TEST_F(LedgerTest, TextsThatAreNoAlertsAreRefusedWithTheirFault)
{
    const auto refusal = [](const std::string &from, const std::string &to) {
        std::string body = BodyOf(AlertOfHost("a", 12));
        const size_t at = body.find(from);
        EXPECT_NE(std::string::npos, at) << from;
        body.replace(at, from.size(), to);
        return test::ErrorOf([&] { fleet::ParseAlert(body); });
    };
    const auto expect = [&](const char *from, const char *to, const char *why) {
        EXPECT_NE(std::string::npos, refusal(from, to).find(why)) << refusal(from, to);
    };
    EXPECT_EQ("no error", refusal("DISK", "NET"));
    expect("series-of-a/12", "series-of-a/13", "its key is not the one of its number");
    expect("series-of-a/12", "a\\r\\nBcc: everybody@example.com/12", "other characters");
    expect(R"("id":12)", R"("id":-12)", "id is missing, or no number");
    expect(R"("id":12)", R"("id":1e99)", "id is missing, or no number");
    expect(R"("count":1)", R"("count":"1")", "count is missing, or no number");
    expect("2026-", "20x6-", "time is no time");
    expect(R"("DISK")", "[]", "source is no text");
    expect(R"("1A2B")", R"("zz")", "event ID");
    expect(R"("count":1)", R"("count":1,"severity":"loud")", "severity");
    expect(R"("count":1)", R"("count":1,"labels":[])", "labels");
    expect(R"("count":1)", R"("count":1,"labels":{"a\nb":"c"})", "the name of a label is none");
    expect(R"("count":1)", R"("count":1,"labels":{"a":"b\nc=d"})",
           "label a has more than one line");
    expect(R"("count":1)", R"("count":1,"reports":3)", "last_time is no time");
    // Of a long path, which the monitor of a host tells of.
    EXPECT_EQ("no error", refusal(R"("count":1)", R"("count":1,"labels":{"about":")" +
                                                      std::string(4000, '/') + R"("})"));
    for (const char *word : {"line_host", "program", "own_time"}) {
        const auto with = [&](size_t size) {
            return refusal(R"("count":1)", R"("count":1,")" + std::string(word) + R"(":")" +
                                               std::string(size, 'w') + R"(")");
        };
        EXPECT_EQ("no error", with(kLineMax));
        EXPECT_NE(std::string::npos, with(60'000).find("too long")) << word;
    }
    const std::string deep = std::string(200000, '[') + std::string(200000, ']');
    EXPECT_NE("no error", test::ErrorOf([&] { fleet::ParseAlert(deep); }));
}

// ---- killed at every call ----

constexpr int64_t kLast = 4; // alerts of each host

// Three hosts in one stream, in which a message comes twice, and one of the host "c" does not come: the place of a message is
// its index + 1.
std::vector<Arrived> Stream()
{
    std::vector<Arrived> stream;
    for (int64_t id = 1; id <= kLast; ++id) {
        for (const char *host : {"a", "b", "c"}) {
            if (*host != 'c' || id != 2)
                stream.push_back(ArrivedOf(host, id));
        }
    }
    stream.push_back(ArrivedOf("b", kLast - 1));
    return stream;
}

// Reads the stream to its end in transactions of five messages, from the store's place on, as a collector does, and looks
// for what is missing. A look in which it does not come would be the last one before that is told.
void Collect(host::Store &store)
{
    const std::vector<Arrived> stream = Stream();
    Ledger ledger(store);
    for (uint64_t at = ledger.PlaceIn("stream", 7).sequence; at < stream.size();) {
        const size_t end = std::min<size_t>(at + 5, stream.size());
        ledger.Take(std::span(stream).subspan(at, end - at), {"stream", 7, end});
        at = end;
    }
    ledger.TakeLate("uuid-of-c", std::vector{ArrivedOf("c", 1), ArrivedOf("c", 2)});
    for (int64_t tries = 0; tries < fleet::Holes::kTriesBeforeTold; ++tries)
        ledger.EndLook("uuid-of-c", Ledger::Look::kDone,
                       host::NowMs() + fleet::Holes::kToldAfterMs);
}

class LedgerCrash : public test::RootTest {
  protected:
    ~LedgerCrash() override
    {
        test::StopBreaking();
        test::StopHost();
    }

    // True when the call was reached.
    bool CollectAndDieAt(int64_t call)
    {
        const pid_t pid = fork();
        if (pid == 0) {
            test::BreakCall(call, test::Fault::kDeath);
            {
                host::Store store(Layout().Store());
                Collect(store);
            }
            _exit(test::StopBreaking() >= call ? 1 : 0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return !WIFEXITED(status);
    }
};

TEST_F(LedgerCrash, KilledAtEveryCallTheLedgerHasEachAlertOnceAndInTheOrderOfItsHost)
{
    // A store that is there: how one is made is tested with the store.
    test::StartHost(Layout(), host::Role::kCommand);
    test::StopHost();
    const auto made = File("made.db");
    std::filesystem::copy_file(Layout().Store(), made);
    int64_t call = 1;
    for (bool was_reached = true; was_reached && !HasFailure(); ++call) {
        for (const char *journal : {"-wal", "-shm"})
            std::filesystem::remove(Layout().Store().string() + journal);
        std::filesystem::copy_file(made, Layout().Store(),
                                   std::filesystem::copy_options::overwrite_existing);
        was_reached = CollectAndDieAt(call);
        test::StartHost(Layout(), host::Role::kCommand);
        Collect(test::Store());
        std::map<std::string, Strings> lines;
        size_t others = 0;
        for (const Alert &alert : alerts::ReadAlerts(test::Store().database(), 0, 0, 1000)) {
            if (alert.is_collected)
                lines[alert.host].push_back(alert.message);
            else
                ++others;
        }
        for (const char *host : {"a", "b", "c"}) {
            Strings wanted;
            for (int64_t id = 1; id <= kLast; ++id)
                wanted.push_back(AlertOfHost(host, id).message);
            if (*host == 'c') // of which one came late
                std::ranges::sort(lines[host]);
            EXPECT_EQ(wanted, lines[host]) << host << ", killed at call " << call;
        }
        EXPECT_EQ(0U, others) << "a gap was told, killed at call " << call;
        test::StopHost();
    }
    EXPECT_GT(call, 50) << "so few calls cannot be all of them";
}

} // namespace
