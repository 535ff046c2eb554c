// syslogmon silence.
#include "tests/agent/support/command_test.h"
#include "tests/support/json_text.h"

namespace {

using test::JsonAt;

class SilenceCommand : public test::CommandTest {
  protected:
    std::string Listed(const std::string &place, const test::Words &more = {})
    {
        test::Words words = {"--json", "silence", "list"};
        words.insert(words.end(), more.begin(), more.end());
        return JsonAt(Syslogmon(words).out, "/silences" + place);
    }
};

TEST_F(SilenceCommand, AddsListsAndEnds)
{
    ExpectOutput({"silence", "add", "--source", "DISK", "--host", "web*", "--event", "1A", "--for",
                  "2h", "--comment", "disks are changed", "--summary"},
                 "1\n");
    ExpectOutput({"silence", "add", "--every", "mon-sun"}, "2\n");
    EXPECT_EQ("DISK", Listed("/0/source"));
    EXPECT_EQ("web*", Listed("/0/host"));
    EXPECT_EQ("1A", Listed("/0/event_id"));
    EXPECT_EQ("holds", Listed("/0/state"));
    EXPECT_EQ("disks are changed", Listed("/0/comment"));
    EXPECT_EQ("true", Listed("/0/summary"));
    EXPECT_EQ(7200000, std::stoll(Listed("/0/end_ms")) - std::stoll(Listed("/0/begin_ms")));
    EXPECT_EQ("null", Listed("/1/end_ms"));
    EXPECT_EQ("00:00-24:00", Listed("/1/every"));
    EXPECT_EQ("{}", Listed("/1/labels"));
    ExpectOutput({"silence", "add", "--label", "tier=web*,team=db", "--for", "1h"}, "3\n");
    EXPECT_EQ("db", Listed("/2/labels/team"));
    EXPECT_NE(std::string::npos, Syslogmon({"silence", "list"}).out.find("team=db,tier=web*"));
    ExpectDone({"silence", "end", "1"});
    EXPECT_EQ("2", Listed("/0/silence"));
    EXPECT_EQ("over", Listed("/0/state", {"--all"}));
    ExpectFailed({"silence", "end", "1"},
                 "cannot end the silence 1: there is none of that number that is not over; use one "
                 "of 2, 3");
}

TEST_F(SilenceCommand, OneWhoseZoneThisHostHasLostIsListedSo)
{
    ExpectOutput({"silence", "add", "--every", "mon-sun Europe/Berlin"}, "1\n");
    EXPECT_EQ("holds", Listed("/0/state"));
    ExpectDone({"reg", "set", R"(SOFTWARE\KORBIN\TARSKVOSKAR\AGENT\SILENCES\1)", "Window",
                "mon-sun Europe/Berlinn"});
    EXPECT_EQ("no zone", Listed("/0/state"));
    EXPECT_EQ("00:00-24:00 Europe/Berlinn", Listed("/0/every"));
}

TEST_F(SilenceCommand, WrongWordsChangeNothing)
{
    EXPECT_EQ(2, Syslogmon({"silence", "add", "--source", "DISK"}).status) << "no time";
    ExpectFailed({"silence", "add", "--for", "soon"},
                 "cannot use the time \"soon\": its form is not known; write 30m, 2h, 1h30m or 7d");
    ExpectFailed({"silence", "add", "--for", "36500d"},
                 "cannot use the time \"36500d\": no silence goes beyond 7 February 2106; give a "
                 "shorter one");
    ExpectFailed({"silence", "add", "--for", "1h", "--every", "monday"},
                 "cannot use the hours \"monday\": their form is not known; write days and hours, "
                 "such as \"mon-fri 22:00-06:00\", \"sat,sun\" or \"22:00-06:00 Europe/Berlin\"");
    ExpectFailed(
        {"silence", "add", "--every", "22:00-06:00 Europe/Berlinn"},
        "cannot use the time zone \"Europe/Berlinn\": this host has none of that name; did "
        "you mean Europe/Berlin? use a name such as Europe/Berlin or UTC; timedatectl "
        "list-timezones lists them");
    EXPECT_EQ(1, Syslogmon({"silence", "add", "--for", "1h", "--source", ""}).status);
    for (const char *labels : {"team", "=db", "team=a,team=b", "team=a,"})
        EXPECT_EQ(1, Syslogmon({"silence", "add", "--for", "1h", "--label", labels}).status)
            << labels;
    EXPECT_EQ(1, Syslogmon({"silence", "add", "--for", "1h", "--event", "x"}).status);
    ExpectOutput({"get", "cycle"}, "300\n"); // there is a store
    EXPECT_EQ("[]", Listed(""));
}

} // namespace
