// Entries as lines of the spool.
#include "agent/inputs/rendering.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

#include "agent/inputs/line_origin.h"
#include "agent/inputs/protected_words.h"
#include "tests/agent/inputs/log_world.h"

namespace {

using inputs::JournalEntry;
using inputs::LineForm;
using inputs::LocalClock;
using inputs::ReadingTime;
using inputs::Rendering;
using inputs::RenderResult;
using inputs::StampFormat;

constexpr size_t kLongestLine = 3328; // at which the monitor looks

// Everything is read on 21 November 2026 at 12:00:00 in Berlin.
class RenderingTest : public testing::Test {
  protected:
    RenderingTest()
    {
        setenv("TZ", "Europe/Berlin", 1);
        clock_.LookUpZone();
        form_.host = "here";
        form_.identifier = "app";
        now_ = inputs::SecondsOf({2026, 11, 21, 11, 0, 0});
    }
    ~RenderingTest() override
    {
        unsetenv("TZ");
        tzset();
    }

    Rendering Render(std::string_view record)
    {
        text_.clear();
        return inputs::RenderRecord(record, form_, ReadingTime(clock_, now_), &clock_, &text_);
    }
    std::string TextOf(std::string_view record)
    {
        Render(record);
        return text_;
    }

    LocalClock clock_;
    LineForm form_;
    int64_t now_;
    std::string text_;
};

TEST_F(RenderingTest, ATraditionalLineStaysAsItIs)
{
    EXPECT_EQ("Nov 21 10:00:01 web07 sshd[77]: Accepted\n",
              TextOf("Nov 21 10:00:01 web07 sshd[77]: Accepted"));
    EXPECT_EQ("Nov  1 10:00:01 web07 kernel: up\n", TextOf("Nov  1 10:00:01 web07 kernel: up"));
}

TEST_F(RenderingTest, PartsOfASecondBelongToTheStampOfATraditionalLine)
{
    for (const char *parts : {".1", ".123", ".123456", ".123456789012345678901234567890"})
        EXPECT_EQ("Nov 21 10:00:01 web07 sshd[77]: Accepted\n",
                  TextOf("Nov 21 10:00:01" + std::string(parts) + " web07 sshd[77]: Accepted"));
    EXPECT_EQ("Nov 21 10:00:01 . web07\n", TextOf("Nov 21 10:00:01. web07"));
    EXPECT_EQ("Nov 21 10:00:01 .5x web07\n", TextOf("Nov 21 10:00:01.5x web07"));
    EXPECT_EQ("Sep 01 10:00:01.25", Render("Sep 01 10:00:01.25 web07 sshd: x").own_stamp);
}

TEST_F(RenderingTest, APriorityBeforeTheStampIsLeftOut)
{
    EXPECT_EQ("Nov 21 10:00:01 web07 sshd: x\n", TextOf("<34>Nov 21 10:00:01 web07 sshd: x"));
}

TEST_F(RenderingTest, AnIsoStampOfASyslogDaemonBecomesLocalTime)
{
    EXPECT_EQ("Nov 21 10:00:01 web07 sshd[77]: x\n",
              TextOf("2026-11-21T10:00:01.123456+01:00 web07 sshd[77]: x"));
    EXPECT_EQ("Nov 21 11:00:01 web07 sshd[77]: x\n",
              TextOf("2026-11-21T10:00:01Z web07 sshd[77]: x"));
    EXPECT_EQ("Nov 21 04:30:01 web07 sshd[77]: x\n",
              TextOf("2026-11-21T10:00:01+0630 web07 sshd[77]: x"));
}

TEST_F(RenderingTest, AnIsoStampWithoutAZoneIsLocalTime)
{
    EXPECT_EQ("Nov 21 10:00:01 here app: ERROR main: x\n",
              TextOf("2026-11-21 10:00:01,123 ERROR main: x"));
    EXPECT_EQ("Nov 21 10:00:01 here app: x\n", TextOf("2026-11-21T10:00:01 x"));
}

TEST_F(RenderingTest, SummerTimeHoldsForStampsOfTheSummer)
{
    now_ = inputs::SecondsOf({2026, 10, 26, 11, 0, 0});
    EXPECT_EQ("Oct 24 12:00:00 here app: x\n", TextOf("2026-10-24 10:00:00Z x"));
    EXPECT_EQ("Oct 25 11:00:00 here app: x\n", TextOf("2026-10-25 10:00:00Z x"));
    EXPECT_EQ("Oct 25 02:30:00 here app: x\n", TextOf("2026-10-25 00:30:00Z x"));
    EXPECT_EQ("Oct 25 02:30:00 here app: x\n", TextOf("2026-10-25 01:30:00Z x"));
}

TEST_F(RenderingTest, Rfc5424HasItsFieldsInTheirPlaces)
{
    EXPECT_EQ("Nov 21 11:00:01 web07 sshd[77]: said so\n",
              TextOf("<34>1 2026-11-21T10:00:01.5Z web07 sshd 77 ID47 - \xEF\xBB\xBFsaid so"));
    EXPECT_EQ("Nov 21 11:00:01 here app: [a@1 b=\"c\"] said so\n",
              TextOf("<34>1 2026-11-21T10:00:01Z - - - - [a@1 b=\"c\"] said so"));
    EXPECT_EQ("Nov 21 12:00:00 web07 sshd: said so\n", TextOf("<34>1 - web07 sshd - - - said so"));
    EXPECT_EQ("Nov 21 12:00:00 here app: <34>1 2026-11-21 10:00:01Z web07 sshd - - - said so\n",
              TextOf("<34>1 2026-11-21 10:00:01Z web07 sshd - - - said so"))
        << "its stamp is one word";
}

TEST_F(RenderingTest, SecondsAndMillisecondsSince1970AreStamps)
{
    const std::string seconds = std::to_string(now_ - 60);
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf(seconds + " x"));
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf(seconds + ".123 x"));
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf(seconds + "456: x"));
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf("[" + seconds + "] x"));
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf("[" + seconds + ".123456789]: x"));
    EXPECT_EQ("Nov 21 11:59:00 here app: x\n", TextOf("[" + seconds + "456] x"));
    for (const std::string none :
         {"12345 x", "123456789 x", "12345678901 x", "12345678901234567 x", "1795255201x",
          "1795255201. x", "[1795255201 x", "[1795255201]x"})
        EXPECT_EQ("Nov 21 12:00:00 here app: " + none + "\n", TextOf(none));
}

TEST_F(RenderingTest, WithoutAStampTheTimeOfReadingIsTaken)
{
    EXPECT_EQ("Nov 21 12:00:00 here app: disk failure\n", TextOf("disk failure"));
    form_.format = StampFormat::kNone;
    EXPECT_EQ("Nov 21 12:00:00 here app: Nov 20 10:00:00 x\n", TextOf("Nov 20 10:00:00 x"));
}

TEST_F(RenderingTest, ANamedFormatIsTheOnlyOneThatIsLookedFor)
{
    form_.format = StampFormat::kRfc3339;
    EXPECT_EQ("Nov 21 12:00:00 here app: Nov 20 10:00:00 x\n", TextOf("Nov 20 10:00:00 x"));
    EXPECT_EQ("Nov 20 10:00:00 here app: x\n", TextOf("2026-11-20 10:00:00 x"));
}

TEST_F(RenderingTest, AStampThatTheMonitorWouldRefuseIsReplacedAndKept)
{
    const Rendering rendering = Render("2026-09-30 10:00:00 x");
    EXPECT_EQ("Nov 21 12:00:00 here app: x\n", text_);
    EXPECT_EQ("2026-09-30 10:00:00", rendering.own_stamp);
    EXPECT_EQ("Dec 01 10:00:00", Render("Dec 01 10:00:00 web07 sshd: x").own_stamp);
    EXPECT_EQ("2025-11-21T10:00:00Z", Render("2025-11-21T10:00:00Z web07 sshd: x").own_stamp);
    EXPECT_EQ("", Render("Oct 01 10:00:00 web07 sshd: x").own_stamp);
}

// The line may be read by the monitor a little later than it is rendered.
TEST_F(RenderingTest, AStampThatIsTooOldTomorrowIsTooOld)
{
    now_ = inputs::SecondsOf({2026, 11, 30, 22, 59, 59});
    EXPECT_EQ("Oct 31 10:00:00", Render("Oct 31 10:00:00 web07 sshd: x").own_stamp);
    EXPECT_EQ("", Render("Nov  1 10:00:00 web07 sshd: x").own_stamp);
}

// As programs write a time that was never set.
TEST_F(RenderingTest, AStampOfTheYearZeroIsOldAndNotOfThisYear)
{
    EXPECT_EQ("0000-11-21T10:00:00Z", Render("0000-11-21T10:00:00Z web07 sshd: x").own_stamp);
    EXPECT_EQ("0000-11-21 10:00:00", Render("0000-11-21 10:00:00 x").own_stamp);
    now_ = inputs::SecondsOf({2027, 1, 2, 11, 0, 0});
    EXPECT_EQ("0001-01-01T00:00:00+02:00", Render("0001-01-01T00:00:00+02:00 x").own_stamp);
}

TEST_F(RenderingTest, ZonesReachToTheEndsOfTheWorldAndOverTheEndsOfMonths)
{
    EXPECT_EQ("Nov 20 21:00:01 here app: x\n", TextOf("2026-11-21T10:00:01+14:00 x"));
    EXPECT_EQ("Nov 21 23:00:01 here app: x\n", TextOf("2026-11-21T10:00:01-12:00 x"));
    EXPECT_EQ("Nov 21 11:00:01 here app: x\n", TextOf("2026-11-21T10:00:01-00:00 x"));
    EXPECT_EQ("Nov 21 08:00:01 here app: x\n", TextOf("2026-11-21T10:00:01+03 x"));
    EXPECT_EQ("Nov  1 00:30:00 here app: x\n", TextOf("2026-10-31T23:30:00Z x"));
    for (const char *none : {"2026-11-21T10:00:01+24:00 x", "2026-11-21T10:00:01+01:60 x",
                             "2026-11-21T10:00:01+1 x", "2026-11-21T10:00:01+010 x"})
        EXPECT_EQ("Nov 21 12:00:00 here app: " + std::string(none) + "\n", TextOf(none));
    now_ = inputs::SecondsOf({2028, 3, 1, 11, 0, 0});
    EXPECT_EQ("Feb 29 23:30:00 here app: x\n", TextOf("2028-02-29T22:30:00Z x"));
    EXPECT_EQ("Mar  1 00:30:00 here app: x\n", TextOf("2028-02-29T23:30:00Z x"));
    EXPECT_EQ("2027-02-28T22:30:00Z", Render("2027-02-28T22:30:00Z x").own_stamp);
}

TEST_F(RenderingTest, ALeapSecondIsATimeAndTheHourTwentyFourIsNone)
{
    EXPECT_EQ("Nov 20 23:59:60 web07 sshd: x\n", TextOf("Nov 20 23:59:60 web07 sshd: x"));
    EXPECT_EQ("Nov 21 01:00:00 here app: x\n", TextOf("2026-11-20T23:59:60Z x"));
    for (const char *none :
         {"2026-11-20T24:00:00Z x", "2026-11-20T23:60:00Z x", "2026-11-20T23:59:61Z x",
          "2026-00-20T23:59:00Z x", "2026-13-20T23:59:00Z x", "2026-11-00T23:59:00Z x",
          "2026-11-32T23:59:00Z x", "Nov 20 24:00:00 x", "Nov 32 10:00:00 x"})
        EXPECT_EQ("Nov 21 12:00:00 here app: " + std::string(none) + "\n", TextOf(none));
}

TEST_F(RenderingTest, DecemberIsTheMonthBeforeJanuary)
{
    now_ = inputs::SecondsOf({2027, 1, 2, 11, 0, 0});
    EXPECT_EQ("", Render("Dec 31 23:59:59 web07 sshd: x").own_stamp);
    EXPECT_EQ("", Render("2026-12-31 23:59:59 x").own_stamp);
    EXPECT_EQ("2027-12-31 23:59:59", Render("2027-12-31 23:59:59 x").own_stamp);
    EXPECT_EQ("Nov 30 23:59:59", Render("Nov 30 23:59:59 web07 sshd: x").own_stamp);
}

TEST_F(RenderingTest, ControlCharactersAreShownAsNumbers)
{
    using namespace std::string_view_literals;
    EXPECT_EQ("Nov 21 12:00:00 here app: a#012 at b#011c#000d#033[31m#177\n",
              TextOf("a\n at b\tc\0d\x1b[31m\x7f"sv));
}

// They are looked for by several bytes at a time.
TEST_F(RenderingTest, AControlCharacterIsFoundWhereverItStands)
{
    for (size_t size = 1; size < 40; ++size) {
        for (size_t at = 0; at < size; ++at) {
            for (int value = 0; value < 256; ++value) {
                std::string message(size, 'x');
                message[at] = static_cast<char>(value);
                const bool is_control = value < 0x20 || value == 0x7f;
                if (value == '#')
                    continue;
                EXPECT_EQ(is_control,
                          TextOf("Nov 21 10:00:01 h p: a" + message).find('#') != std::string::npos)
                    << value << " at " << at << " of " << size;
            }
        }
    }
}

TEST_F(RenderingTest, NoUserNameHidesAFailedLogin)
{
    EXPECT_EQ("Nov 21 10:00:01 web07 sshd[77]: Failed password for TARSK\x1fvkvmain\n",
              TextOf("Nov 21 10:00:01 web07 sshd[77]: Failed password for TARSKvkvmain"));
}

TEST_F(RenderingTest, NoLineMakesTheOneBeforeItCountAgain)
{
    EXPECT_EQ("Nov 21 10:00:01 web07 a: last\x1f message repeated 2000000000 times\n",
              TextOf("Nov 21 10:00:01 web07 a: last message repeated 2000000000 times"));
    EXPECT_EQ("Nov 21 10:00:01 web07 last\x1f message repeated 3 times\n",
              TextOf("Nov 21 10:00:01 web07 last message repeated 3 times"));
}

TEST_F(RenderingTest, BrokenWordsCannotBeMadeWholeByPuttingThemIntoEachOther)
{
    const std::string text = TextOf("TARSKTARSKvkvmainvkvmain");
    EXPECT_EQ(std::string::npos, text.find("TARSKvkvmain"));
    EXPECT_EQ("Nov 21 12:00:00 here app: TARSKTARSKvkvmainvkvmain\n", inputs::WithWholeWords(text));
    // The character that breaks them is no way in: it is shown as a number.
    EXPECT_EQ("Nov 21 12:00:00 here app: TARSK#037vkvmain\n", TextOf("TARSK\x1fvkvmain"));
}

TEST_F(RenderingTest, OwnEntriesAreKnownByTheProgramAndTheHostThatWroteThem)
{
    form_.host = "web07.example.com";
    for (const char *own : {"Nov 21 10:00:01 web07 TARSKvkvmain[5]: disk failure",
                            "Nov 21 10:00:01 WEB07.example.com TARSKvkvmain: disk failure",
                            "2026-11-21T10:00:01+01:00 web07 TARSKvkvmain: disk failure",
                            "<34>1 2026-11-21T10:00:01Z web07 TARSKvkvmain 5 - - disk failure",
                            "<34>1 2026-11-21T10:00:01Z - TARSKvkvmain 5 - - disk failure"}) {
        EXPECT_EQ(RenderResult::kOwn, Render(own).result) << own;
        EXPECT_EQ("", text_);
    }
    EXPECT_EQ(RenderResult::kRendered, Render("TARSKvkvmain: disk failure").result);
}

TEST_F(RenderingTest, WhatTheMonitorOfAnotherHostWroteIsNoneOfItsOwn)
{
    form_.host = "web07";
    for (const char *other : {"Nov 21 10:00:01 web08 TARSKvkvmain[5]: disk failure",
                              "Nov 21 10:00:01 web TARSKvkvmain: disk failure",
                              "2026-11-21T10:00:01+01:00 web08 TARSKvkvmain: disk failure",
                              "<34>1 2026-11-21T10:00:01Z web08 TARSKvkvmain 5 - - disk failure"}) {
        EXPECT_EQ(RenderResult::kRendered, Render(other).result) << other;
        EXPECT_NE(std::string::npos, text_.find("disk failure")) << other;
    }
}

TEST_F(RenderingTest, ALineThatStandsForTwentyNineIsFollowedByTheRest)
{
    EXPECT_EQ("Nov 21 10:00:01 vm app[1]: message repeated 29 times: [ disk failure]\n"
              "Nov 21 10:00:01 - last message repeated 28 times\n",
              TextOf("Nov 21 10:00:01 vm app[1]: message repeated 29 times: [ disk failure]"));
    EXPECT_EQ("Nov 21 10:00:01 vm app[1]: message repeated 1 times: [ disk failure]\n",
              TextOf("Nov 21 10:00:01 vm app[1]: message repeated 1 times: [ disk failure]"));
}

TEST_F(RenderingTest, ALineStandsForItselfWhereNobodyFoldsRepeats)
{
    form_.folds_repeats = false;
    EXPECT_EQ("Nov 21 10:00:01 vm app[1]: message repeated 29 times: [ disk failure]\n",
              TextOf("Nov 21 10:00:01 vm app[1]: message repeated 29 times: [ disk failure]"));
}

TEST_F(RenderingTest, ALineThatNamesNoProgramStandsForItself)
{
    for (const char *line :
         {"message repeated 29 times: [ disk failure]",
          "2026-11-21 10:00:01 message repeated 29 times: [ disk failure]",
          "Nov 21 10:00:01 vm message repeated 29 times: [ disk failure]",
          "<34>1 2026-11-21T10:00:01Z vm - - - - message repeated 29 times: [ disk failure]"})
        EXPECT_EQ(std::string::npos, TextOf(line).find("last message repeated")) << line;
}

TEST_F(RenderingTest, OnlyAWholeMessageStandsForSeveral)
{
    for (const char *message :
         {"he said: message repeated 29 times: [ x]", "message repeated 29 times",
          "message repeated 29 times: [ x] or so", "message repeated 1000001 times: [ x]",
          "message repeated -5 times: [ x]"}) {
        const std::string line = std::string("Nov 21 10:00:01 vm app[1]: ") + message;
        EXPECT_EQ(line + "\n", TextOf(line));
    }
}

TEST_F(RenderingTest, ALineIsAsLongAsTheMonitorLooksAt)
{
    const std::string text = TextOf(std::string(10000, 'x'));
    EXPECT_EQ(3328U + 1U, text.size());
    EXPECT_EQ('\n', text.back());
    // Not within a character.
    std::string umlauts = "x";
    for (int i = 0; i < 5000; ++i)
        umlauts += "\xC3\xA4";
    EXPECT_EQ("\xA4\n", TextOf(umlauts).substr(TextOf(umlauts).size() - 2));
}

TEST_F(RenderingTest, AJournalEntryHasItsHostAndItsProgram)
{
    text_.clear();
    const JournalEntry entry{now_ - 1, "web07", "sshd", "77", "a\nb"};
    inputs::RenderEntry(entry, ReadingTime(clock_, now_), &clock_, &text_);
    EXPECT_EQ("Nov 21 11:59:59 web07 sshd[77]: a#012b\n", text_);
}

TEST_F(RenderingTest, AnOldJournalEntryKeepsItsTime)
{
    text_.clear();
    const JournalEntry entry{inputs::SecondsOf({2026, 1, 2, 3, 4, 5}), "web07", "sshd", "", "x"};
    EXPECT_EQ("2026-01-02T03:04:05Z",
              inputs::RenderEntry(entry, ReadingTime(clock_, now_), &clock_, &text_).own_stamp);
    EXPECT_EQ("Nov 21 12:00:00 web07 sshd: x\n", text_);
}

TEST_F(RenderingTest, TheClockOfTheCalendarAgreesWithTheCLibrary)
{
    for (int64_t t = -3000000000; t < 6000000000; t += 7654321) {
        const time_t moment = t;
        struct tm local {};
        localtime_r(&moment, &local);
        const inputs::CalendarTime expected{local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                            local.tm_hour,        local.tm_min,     local.tm_sec};
        ASSERT_EQ(expected, clock_.At(t)) << t;
        ASSERT_EQ(t, inputs::SecondsOf(inputs::CalendarOf(t)));
    }
}

// A search costs more than a step to the next byte: of a line of some hundred bytes there are a few.
TEST_F(RenderingTest, TheWordsOfALineAreFoundWithoutASearchForEachByte)
{
    constexpr int kLines = 100;
    const std::string message(200, 'x');
    for (const std::string &line :
         {"Nov 21 10:00:01 web07.example.com postfix/smtpd[77123]: " + message,
          "2026-11-21T10:00:01.123456+01:00 web07.example.com postfix/smtpd[77123]: " + message,
          "<34>1 2026-11-21T10:00:01Z web07.example.com postfix/smtpd 77123 ID47 - " + message,
          "2026-11-21 10:00:01,123 ERROR main: " + message, "1795255201.123 error: " + message}) {
        const size_t before = test::CountSearchesForBytes();
        for (int i = 0; i < kLines; ++i)
            Render(line);
        EXPECT_GE(size_t{4} * kLines, test::CountSearchesForBytes() - before) << line;
    }
}

TEST_F(RenderingTest, OfTheWordsThatAreBrokenUpTheRarestLetterIsLookedFor)
{
    std::string line = "Nov 21 10:00:01 web07 TARS: ";
    while (line.size() < 200)
        line += "all THE small TALL lilies fall ";
    constexpr int kLines = 100;
    const size_t before = test::CountSearchesForBytes();
    for (int i = 0; i < kLines; ++i)
        Render(line);
    EXPECT_GE(size_t{4} * kLines, test::CountSearchesForBytes() - before);
    EXPECT_LT(0U, test::CountSearchesForBytes()) << "counting is not blind";
}

// A line of nothing else would take as long as thousands of others.
TEST_F(RenderingTest, WordsBehindTheEndOfALineAreNotBrokenUp)
{
    std::string record;
    while (record.size() < size_t{64} * 1024)
        record += "TARSKvkvmain";
    const size_t before = test::CountSearchesForBytes();
    const std::string line = TextOf(record);
    EXPECT_GE(1000U, test::CountSearchesForBytes() - before);
    EXPECT_EQ(kLongestLine + 1, line.size());
    EXPECT_EQ(std::string::npos, line.find("TARSKvkvmain"));
}

TEST_F(RenderingTest, AWordAtTheEndOfALineIsBrokenUpLikeAnyOther)
{
    const std::string begin = "Nov 21 12:00:00 here app: ";
    for (size_t room = 0; room < 30; ++room) {
        const std::string message(kLongestLine - begin.size() - room, 'x');
        std::string line = begin + message + "TARSK\x1fvkvmain and more of the line";
        line.resize(kLongestLine);
        const std::string text = TextOf(message + "TARSKvkvmain and more of the line");
        EXPECT_EQ(line.size() + 1, text.size());
        EXPECT_EQ(line.substr(kLongestLine - 30) + "\n", text.substr(kLongestLine - 30));
    }
}

TEST_F(RenderingTest, AStampOfManyDigitsIsNotKeptWhole)
{
    const std::string digits(60000, '1');
    for (const std::string &old : {"2025-01-01T00:00:00." + digits + "Z",
                                   "Jan 01 00:00:00." + digits, "1234567890." + digits})
        EXPECT_EQ(old.substr(0, 64), Render(old + " x").own_stamp);
    EXPECT_EQ("Nov 21 10:00:01 here app: x\n", TextOf("2026-11-21 10:00:01," + digits + " x"));
}

TEST_F(RenderingTest, TheClockLooksUpAnHourOnce)
{
    inputs::LocalClock clock;
    for (int64_t second = 0; second < 3600; ++second)
        clock.At(1795255200 + second); // a full hour, in zones of whole hours
    EXPECT_EQ(2, clock.work().zone_lookups);
    EXPECT_EQ(1, clock.work().calendars);
}

TEST_F(RenderingTest, AnotherZoneHoldsAlsoWithinAnHourThatWasLookedUp)
{
    const int64_t moment = 1795255200;
    const int hour = clock_.At(moment).hour;
    setenv("TZ", "X-7", 1);
    clock_.LookUpZone();
    EXPECT_NE(hour, clock_.At(moment).hour);
}

// In Adelaide, two o'clock in the morning is half past four in UTC.
TEST_F(RenderingTest, ClocksCanBePutForwardInTheMiddleOfAnHour)
{
    setenv("TZ", "ACST-9:30ACDT,M10.1.0,M4.1.0/3", 1);
    clock_.LookUpZone();
    constexpr int64_t kChange = 1791045000;
    EXPECT_EQ(1, clock_.At(kChange - 1).hour);
    EXPECT_EQ(3, clock_.At(kChange).hour);
}

TEST(LineOrigin, IsTheHostAndTheProgramOfALine)
{
    const auto origin = inputs::OriginOfLine("Nov 21 10:00:01 web07 sshd[77]: Accepted");
    EXPECT_EQ("web07", origin.host);
    EXPECT_EQ("sshd", origin.program);
    EXPECT_EQ("Accepted", origin.message);
}

TEST(LineOrigin, OfALineWithoutAProgramIsTheHost)
{
    const auto origin = inputs::OriginOfLine("Nov 21 10:00:01 web07 it has begun");
    EXPECT_EQ("web07", origin.host);
    EXPECT_EQ("", origin.program);
    EXPECT_EQ("it has begun", origin.message);
    EXPECT_EQ("no stamp", inputs::OriginOfLine("no stamp").message);
    EXPECT_EQ("", inputs::OriginOfLine("no stamp").host);
}

} // namespace
