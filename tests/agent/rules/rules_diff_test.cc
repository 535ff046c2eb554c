// What a rules file would change.
#include "agent/rules/rules_diff.h"

#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using events::EventRecord;
using events::StoredEvent;
using events::StoredSource;
using rules::CompareRules;
using rules::EventChange;
using rules::Rule;
using rules::RulesDifference;
using Kind = rules::EventChange::Kind;

EventRecord Event(const std::string &source, uint32_t id, const std::string &keyword = "x")
{
    return {{source, id}, {keyword, "", ""}, 1, events::kAllHours};
}

Rule RuleOf(const EventRecord &event)
{
    return {event, {3, 5}, {{{4, 1}, {5, 1}, {6, 1}}}};
}

std::vector<StoredSource> Registered(const std::vector<EventRecord> &events)
{
    std::vector<StoredSource> sources;
    for (const EventRecord &event : events) {
        if (sources.empty() || sources.back().name != event.key.source)
            sources.push_back({event.key.source, false, {}});
        sources.back().events.push_back({event, events::FormatEventId(event.key.id), ""});
    }
    return sources;
}

// The difference as it is shown, one line each.
std::string ShownDifference(const RulesDifference &difference)
{
    std::string text;
    for (const rules::DifferenceLine &line : FormatDifference(difference))
        text += std::string(1, line.mark) + line.text + "\n";
    return text;
}

TEST(CompareRules, WhatIsEqualIsUnchanged)
{
    const auto difference = CompareRules(Registered({Event("A", 1), Event("B", 2)}),
                                         {RuleOf(Event("B", 2)), RuleOf(Event("A", 1))}, true);
    EXPECT_TRUE(difference.changes.empty());
    EXPECT_EQ((std::vector<EventRecord>{Event("B", 2), Event("A", 1)}), difference.unchanged);
    EXPECT_EQ("", ShownDifference(difference));
}

TEST(CompareRules, WhatIsNewIsAdded)
{
    const auto difference = CompareRules(
        {}, {RuleOf({{"A", 0x1A}, {"x", "", "y"}, 3, 0xC0003F}), RuleOf(Event("B", 2))}, false);
    EXPECT_EQ("+A 1A\n"
              "+    keywords: [\"x\", \"\", \"y\"]\n"
              "+    report_count: 3\n"
              "+    hours: 22-6\n"
              "+B 2\n"
              "+    keywords: [\"x\"]\n"
              "+    report_count: 1\n"
              "+    hours: all\n",
              ShownDifference(difference));
}

TEST(CompareRules, WhatDiffersIsShownValueByValue)
{
    EventRecord changed = Event("A", 1);
    changed.report_count = 5;
    EXPECT_EQ(" A 1\n-    report_count: 1\n+    report_count: 5\n",
              ShownDifference(CompareRules(Registered({Event("A", 1)}), {RuleOf(changed)}, false)));
    changed.keywords[2] = "z";
    changed.hours = 0;
    EXPECT_EQ(" A 1\n"
              "-    keywords: [\"x\"]\n+    keywords: [\"x\", \"\", \"z\"]\n"
              "-    report_count: 1\n+    report_count: 5\n"
              "-    hours: all\n+    hours: none\n",
              ShownDifference(CompareRules(Registered({Event("A", 1)}), {RuleOf(changed)}, false)));
}

TEST(CompareRules, WhatIsNotInTheFileStaysUnlessItIsPruned)
{
    const auto registered = Registered({Event("A", 1), Event("A", 2), Event("B", 1)});
    const auto kept = CompareRules(registered, {RuleOf(Event("A", 2))}, false);
    EXPECT_TRUE(kept.changes.empty());
    EXPECT_EQ((std::vector<events::EventKey>{{"A", 1}, {"B", 1}}), kept.staying);

    const auto pruned = CompareRules(registered, {RuleOf(Event("A", 2))}, true);
    EXPECT_TRUE(pruned.staying.empty());
    EXPECT_EQ("-A 1\n-    keywords: [\"x\"]\n-    report_count: 1\n-    hours: all\n"
              "-B 1\n-    keywords: [\"x\"]\n-    report_count: 1\n-    hours: all\n",
              ShownDifference(pruned));
}

TEST(CompareRules, BitsOfHoursThatDoNotExistMakeNoDifference)
{
    EventRecord registered = Event("A", 1);
    registered.hours = 0xFFFFFFFF;
    EXPECT_TRUE(
        CompareRules(Registered({registered}), {RuleOf(Event("A", 1))}, true).changes.empty());
}

TEST(CompareRules, ADamagedEventIsWrittenWhole)
{
    auto registered = Registered({Event("A", 1)});
    registered[0].events[0].problem = "it has no KeyWord2";
    EXPECT_EQ(" A 1\n-    (it has no KeyWord2)\n"
              "+    keywords: [\"x\"]\n+    report_count: 1\n+    hours: all\n",
              ShownDifference(CompareRules(registered, {RuleOf(Event("A", 1))}, false)));
    EXPECT_EQ("-A 1\n-    (it has no KeyWord2)\n",
              ShownDifference(CompareRules(registered, {}, true)));
}

TEST(CompareRules, TheRegistryKeepsTheSpellingOfASource)
{
    const auto registered = Registered({Event("Disk", 1)});
    const auto difference =
        CompareRules(registered, {RuleOf(Event("DISK", 1)), RuleOf(Event("DISK", 2))}, true);
    ASSERT_EQ(1U, difference.changes.size());
    EXPECT_EQ(Event("Disk", 2), difference.changes[0].after);
    EXPECT_EQ(
        (std::vector<std::string>{"the source \"DISK\" is registered as \"Disk\", which is the "
                                  "same name, and keeps that spelling"}),
        difference.warnings);
}

TEST(CompareRules, ASourceOfAnotherComponentIsLeftAlone)
{
    auto registered = Registered({Event("A", 1), Event("B", 1)});
    registered[0].is_new_application_type = true;
    const auto pruned = CompareRules(registered, {RuleOf(Event("B", 1))}, true);
    EXPECT_TRUE(pruned.changes.empty());
    EXPECT_TRUE(pruned.staying.empty());
    EXPECT_EQ("3:5: cannot use the source \"a\": it is registered as one that another component "
              "watches (NEWAPPLICATIONTYPE); choose another name\n",
              test::Text(CompareRules(registered, {RuleOf(Event("a", 2))}, true).issues));
}

TEST(CompareRules, AnEventThatIsRegisteredTwiceIsComparedOnce)
{
    auto registered = Registered({Event("A", 0x1A), Event("A", 0x1A, "y")});
    registered[0].events[1].id_text = "01A";
    const auto difference = CompareRules(registered, {RuleOf(Event("A", 0x1A))}, true);
    EXPECT_TRUE(difference.changes.empty());
    EXPECT_EQ(
        (std::vector<std::string>{"event A 1A is registered twice, under the keys 1A and 01A; "
                                  "only the first one is compared"}),
        difference.warnings);
}

TEST(CompareRules, RefusesWhatTheTableHasNoRoomFor)
{
    std::vector<Rule> rules;
    for (uint32_t id = 0; id < 2048; ++id)
        rules.push_back(RuleOf(Event("A", id)));
    EXPECT_TRUE(CompareRules({}, rules, false).warnings.empty());
    rules.back().at = {77, 5};
    const auto refused = CompareRules(Registered({Event("B", 1)}), rules, false).issues;
    ASSERT_EQ(1U, refused.size());
    EXPECT_EQ((text::Position{77, 5}), refused[0].at);
    EXPECT_EQ("cannot add this event: there would be 2049 events, and the monitor's table has room "
              "for 2048; leave out what is not needed, or remove events that are not in the file "
              "with --prune",
              refused[0].what);
    EXPECT_TRUE(CompareRules(Registered({Event("B", 1)}), rules, true).issues.empty());
}

TEST(CompareRules, WarnsWhenTheTableIsTooSmallAlready)
{
    std::vector<EventRecord> events;
    for (uint32_t id = 0; id < 2049; ++id)
        events.push_back(Event("A", id));
    const auto difference = CompareRules(Registered(events), {RuleOf(Event("A", 1))}, false);
    EXPECT_TRUE(difference.issues.empty());
    EXPECT_EQ(
        (std::vector<std::string>{"there are 2049 events then, and the monitor's table has room "
                                  "for 2048; the others are not watched"}),
        difference.warnings);
}

// ---- the character set of the log ----

// A set in which every character above ASCII is one of four bytes, and \u00D6 does not exist.
std::string ToWide(const std::string &text)
{
    std::string wide;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 2, "\u00E4") == 0) {
            wide += "<ae>";
            ++i;
        } else if (text.compare(i, 2, "\u00D6") == 0) {
            wide += "?";
            ++i;
        } else {
            wide += text[i];
        }
    }
    return wide;
}
std::string FromWide(const std::string &wide)
{
    std::string text = wide;
    for (size_t i = 0; (i = text.find("<ae>", i)) != std::string::npos;)
        text.replace(i, 4, "\u00E4");
    return text;
}

RulesDifference CheckedAgainstWide(const std::vector<StoredSource> &registered, const Rule &rule)
{
    auto difference = CompareRules(registered, {rule}, false);
    CheckLogCharset({rule}, "WIDE", ToWide, FromWide, &difference);
    return difference;
}

TEST(CheckLogCharset, AKeywordThatIsTooLongInTheLogIsRefused)
{
    std::string keyword;
    for (int i = 0; i < 64; ++i)
        keyword += "\u00E4";
    EXPECT_EQ("", test::Text(CheckedAgainstWide({}, RuleOf(Event("A", 1, keyword))).issues));
    const EventRecord longer = Event("A", 1, keyword + "x");
    EXPECT_EQ(
        "4:1: cannot use a keyword of event A 1: it has 257 bytes in the character set of the "
        "log (WIDE); a keyword has at most 256 bytes there, too\n",
        test::Text(CheckedAgainstWide({}, RuleOf(longer)).issues));
    // What is registered already stays usable: it is what the monitor has.
    const auto difference = CheckedAgainstWide(Registered({longer}), RuleOf(longer));
    EXPECT_EQ("", test::Text(difference.issues));
    EXPECT_EQ(1U, difference.warnings.size());
}

TEST(CheckLogCharset, ACharacterThatTheLogDoesNotHaveIsAWarning)
{
    const auto difference = CheckedAgainstWide({}, RuleOf(Event("A", 1, "\u00D6l")));
    EXPECT_EQ("", test::Text(difference.issues));
    EXPECT_EQ(
        (std::vector<std::string>{"the keyword \"\u00D6l\" of event A 1 has characters that the "
                                  "character set of the log (WIDE) does not have"}),
        difference.warnings);
    EXPECT_TRUE(CheckedAgainstWide({}, RuleOf(Event("A", 1, "\u00E4"))).warnings.empty());
    // Bytes that are not UTF-8 are meant for the log as they are.
    EXPECT_TRUE(CheckedAgainstWide({}, RuleOf(Event("A", 1, "\xD6"))).warnings.empty());
}

// ---- writing ----

class WriteDifference : public test::HostTest {
  protected:
    events::EventRegistry events_{test::Registry()};

    void Apply(const std::vector<EventRecord> &events, bool prune)
    {
        std::vector<Rule> rules;
        for (const EventRecord &event : events)
            rules.push_back(RuleOf(event));
        host::Transaction transaction(test::Store());
        rules::WriteDifference(CompareRules(events_.ReadAll(), rules, prune), &events_);
        transaction.Commit();
    }
    std::vector<EventRecord> Stored()
    {
        std::vector<EventRecord> stored;
        for (const StoredSource &source : events_.ReadAll()) {
            for (const StoredEvent &event : source.events)
                stored.push_back(event.event);
        }
        return stored;
    }
};

TEST_F(WriteDifference, MakesTheRegistryEqualToTheFile)
{
    Apply({Event("A", 1), Event("B", 2)}, false);
    EXPECT_EQ((std::vector<EventRecord>{Event("A", 1), Event("B", 2)}), Stored());
    Apply({Event("B", 2, "y"), Event("A", 3)}, false);
    EXPECT_EQ((std::vector<EventRecord>{Event("A", 1), Event("A", 3), Event("B", 2, "y")}),
              Stored());
    Apply({Event("A", 3)}, true);
    EXPECT_EQ((std::vector<EventRecord>{Event("A", 3)}), Stored());
    Apply({}, true);
    EXPECT_TRUE(Stored().empty());
}

TEST_F(WriteDifference, RemovesAnEventUnderAllItsKeys)
{
    events_.Write(Event("A", 0x1A));
    test::SetTreeText(
        std::string("SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG\\APPLICATION") +
            "\\A\\01A\\WATCHSETTING",
        "KeyWord", "y");
    ASSERT_EQ(2U, Stored().size());
    Apply({}, true);
    EXPECT_TRUE(Stored().empty());
}

// ---- what a file can hold ----

TEST(EventsForFile, LeavesOutWhatApplyWouldRefuse)
{
    auto registered = Registered({Event("A", 1), Event("A", 2), Event("A", 3, ""), Event("A", 1),
                                  Event("B", 1), Event("C", 1)});
    registered[0].events[1].problem = "it has no settings";
    registered[0].events[3].id_text = "01";
    registered[1].is_new_application_type = true;
    std::vector<std::string> left_out;
    EXPECT_EQ((std::vector<EventRecord>{Event("A", 1), Event("C", 1)}),
              rules::EventsForFile(registered, &left_out));
    EXPECT_EQ((std::vector<std::string>{
                  "A 2: it has no settings",
                  "cannot use event A 3: it has no keyword; give it one to three texts that a line "
                  "must contain",
                  "A 1: it is registered twice, here under the key 01"}),
              left_out);
}

} // namespace
