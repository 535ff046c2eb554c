// An alert as a line for people.
#include "agent/alerts/alert_text.h"
#include "agent/alerts/own_alert.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

#include <cstdlib>
#include <ctime>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace {

class AlertText : public testing::Test {
  protected:
    AlertText()
    {
        setenv("TZ", "UTC-9", 1); // nine hours east
        tzset();
    }
    ~AlertText() override
    {
        unsetenv("TZ");
        tzset();
    }
};

TEST_F(AlertText, HasTimeSourceEventHitsAndMessage)
{
    alerts::Alert alert;
    alert.time_ms = 1795222801999;
    alert.source = "DISK";
    alert.event_id = 0x1A2B;
    alert.count = 3;
    alert.message = "Nov 21 10:00:00 host kernel: gone\n";
    EXPECT_EQ("2026-11-21 10:00:01  DISK 1A2B  x3  Nov 21 10:00:00 host kernel: gone?",
              alerts::AlertLine(alert));
}

TEST_F(AlertText, OfManyReportsEndsWithTheLast)
{
    alerts::Alert alert;
    alert.source = "DISK";
    alert.count = 26;
    alert.message = "first";
    alert.reports = 13;
    alert.last_time_ms = 1795222801999;
    alert.last_message = "last\x1B";
    EXPECT_EQ("1970-01-01 09:00:00  DISK 0  x26  first (and 12 more until 2026-11-21 10:00:01, the "
              "last: last?)",
              alerts::AlertLine(alert));
}

TEST_F(AlertText, WhyIsTheHitsAndTheTermsOfTheEvent)
{
    alerts::Alert alert;
    alert.count = 1;
    EXPECT_EQ("1 hit", alerts::WhyInWords(alert));
    alert.count = 5;
    alert.value = "web1";
    alert.terms = "5 hits within 10 minutes make a report, for each host apart";
    EXPECT_EQ("5 hits of web1: 5 hits within 10 minutes make a report, for each host apart",
              alerts::WhyInWords(alert));
}

TEST_F(AlertText, WhySaysWhatTheAlertStandsForAndWhoIsToldOfIt)
{
    alerts::Alert alert;
    alert.count = 40;
    alert.reports = 8;
    alert.held_back.reports = 1;
    alert.held_back.hits = 5;
    alert.silence = 7;
    EXPECT_EQ("40 hits; it stands for 8 reports of a flood; 1 report of 5 hits was held back "
              "before it; no "
              "receiver is told: silence 7 holds it back",
              alerts::WhyInWords(alert));
}

TEST_F(AlertText, WhyOfAnAbsenceHasNoHits)
{
    alerts::Alert alert;
    alert.terms = "a report when none comes for 1 day";
    EXPECT_EQ("no line came: a report when none comes for 1 day", alerts::WhyInWords(alert));
}

TEST_F(AlertText, WhyOfTheMonitorsOwnSaysSo)
{
    alerts::Alert alert;
    alert.source = alerts::kOwnSource;
    alert.count = 1;
    EXPECT_EQ("1 hit", alerts::WhyInWords(alert))
        << "an event of that name that somebody registered";
    alert.labels = {{"alarm", "loss"}};
    EXPECT_EQ("the monitor tells this of itself", alerts::WhyInWords(alert));
}

TEST_F(AlertText, WhyIsPrintable)
{
    alerts::Alert alert;
    alert.count = 1;
    alert.value = "web\x1B[31m";
    EXPECT_EQ("1 hit of web?[31m", alerts::WhyInWords(alert));
}

TEST_F(AlertText, TimeIsLocal)
{
    EXPECT_EQ("1970-01-01 09:00:00", text::LocalTime(0));
    EXPECT_EQ("1970-01-01 09:00:01", text::LocalTime(1999));
}

TEST_F(AlertText, KeepsTextOfAnyAlphabetAndTabs)
{
    EXPECT_EQ("äあ😀\t|", text::Printable("äあ😀\t|"));
}

TEST_F(AlertText, ShowsControlCharactersAsQuestionMarks)
{
    EXPECT_EQ("?[31m? ??", text::Printable("\x1B[31m\x07 \x7F\n"));
    EXPECT_EQ("a?b", text::Printable(std::string("a\0b", 3)));
}

TEST_F(AlertText, ShowsBytesThatAreNotUtf8AsQuestionMarks)
{
    // 0x9B is what ESC [ is for a terminal of eight bits.
    EXPECT_EQ("?31m ?? \u00E4", text::Printable("\x9B"
                                                "31m \xFF\xE9 \u00E4"));
}

TEST_F(AlertText, ShowsNothingThatTurnsTheDirectionOfWriting)
{
    EXPECT_EQ("a?b?c???", text::Printable("a\u202Eb\u2066c\u200F\u061C\u2029"));
}

TEST(PrintableJson, SaysTheSameWithEscapesForWhatATerminalWouldObey)
{
    const nlohmann::json said = {
        {"message", "\x1B[1m \x7F \u009B31m \u202E \u2028 \U0001FFFE ä😀\t\"\\"}};
    const std::string json = said.dump(2);
    const std::string shown = text::PrintableJson(json);
    EXPECT_EQ("{\n  \"message\": \"\\u001b[1m \\u007f \\u009b31m \\u202e \\u2028 \\ud83f\\udffe "
              "ä😀\\t\\\"\\\\\"\n}",
              shown);
    EXPECT_EQ(said, nlohmann::json::parse(shown));
}

TEST_F(AlertText, ShowsNoControlCharacterOfTwoBytes)
{
    // U+009B is what ESC [ is in one character; a terminal in UTF-8 acts on it.
    EXPECT_EQ(std::string::npos, text::Printable("\xC2\x9B"
                                                 "31m")
                                     .find("\xC2\x9B"));
}

} // namespace
