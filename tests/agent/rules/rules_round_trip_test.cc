// Events to a rules file and back.
#include "agent/regfile/reg_import.h"
#include "agent/rules/rules_diff.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"
#include "tests/agent/support/random_test.h"

namespace {

using events::EventRecord;
using events::EventRegistry;

// What the command line cannot hold, and what events may not have.
const std::string kNever("\0\n\r\x01\x1B", 5);

std::string OddWord(test::RandomData &random, size_t most)
{
    return random.OddText(most, kNever + "\t\x7F");
}

// Mostly none, as most events have none.
events::EventPolicy RandomPolicy(test::RandomData &random)
{
    events::EventPolicy policy;
    if (random.OneIn(2))
        return policy;
    if (random.OneIn(2))
        policy.severity = events::kSeverities[random.Below(events::kSeverities.size())];
    for (const char *name : {"yes", "NULL", "_1", "team"}) {
        const std::string value = OddWord(random, 256);
        if (random.OneIn(2) && !value.empty())
            policy.labels[name] = value;
    }
    if (random.OneIn(2))
        policy.within_s = static_cast<int64_t>(1 + random.Below(31 * 86400));
    if (random.OneIn(2))
        policy.cooldown_s = static_cast<int64_t>(1 + random.Below(31 * 86400));
    if (random.OneIn(2))
        policy.per = random.OneIn(2) ? "host" : "program";
    if (random.OneIn(2))
        policy.regex = random.OneIn(2) ? "a \"needed\" text: \\\\ [0-9]+ #" : "one: 'of' (\\w+)";
    for (size_t i = random.Below(12); i > 0; --i) {
        const std::string text = OddWord(random, 1024);
        if (!text.empty())
            policy.except.push_back({text, false});
        policy.except.push_back({"x{1,2}: #", true});
    }
    policy.ignore_case = random.OneIn(2) && !policy.except.empty();
    // Braces would make a template of it, and mostly a wrong one.
    policy.summary = random.OddText(1024, kNever + "\t\x7F{}");
    if (random.OneIn(2))
        policy.runbook_url = "https://wiki/" + random.OddText(1000, kNever + " \t\x7F");
    return policy;
}

// An event such as `event add` can make: any bytes that an argument can have and an event may.
EventRecord RandomEvent(test::RandomData &random)
{
    EventRecord event;
    while (event.key.source.empty())
        event.key.source = random.OddText(random.OneIn(4) ? 255 : 20, kNever + "\\");
    event.key.id = random.OneIn(2) ? random.Number() : random.Number() % 16;
    event.policy = RandomPolicy(random);
    do {
        for (std::string &keyword : event.keywords)
            keyword = random.OneIn(3) ? "" : random.OddText(256, kNever);
    } while (event.keywords == std::array<std::string, 3>{} && event.policy.regex.empty());
    event.report_count = random.OneIn(2) ? 1 : static_cast<int32_t>(random.Number() >> 1U) | 1;
    if (event.policy.within_s > 0)
        event.report_count = event.report_count % events::kMostWithin + 1;
    event.hours = random.OneIn(3) ? events::kAllHours : random.Number() & events::kAllHours;
    return event;
}

class RulesRoundTrip : public test::HostTest {
  protected:
    test::RandomData random_;
    EventRegistry events_{test::Registry()};

    // Everything in the registry, byte for byte.
    static std::string Registry()
    {
        return regfile::FormatRegText(regfile::ReadRegKeys(test::Registry(), host::kRootKey, ""));
    }
    std::string Export()
    {
        std::vector<std::string> left_out;
        const auto events = rules::EventsForFile(events_.ReadAll(), &left_out);
        EXPECT_TRUE(left_out.empty());
        return rules::FormatRules(events, {});
    }
    void Fill(size_t count)
    {
        host::Transaction transaction(test::Store());
        for (size_t i = 0; i < count; ++i)
            events_.Write(RandomEvent(random_));
        transaction.Commit();
    }
    // Applies a file; returns how many changes it made.
    size_t Apply(const std::string &file)
    {
        const auto parsed = rules::ParseRules(file);
        EXPECT_EQ("", test::Text(parsed.issues)) << file;
        const auto difference = rules::CompareRules(events_.ReadAll(), parsed.rules, true);
        host::Transaction transaction(test::Store());
        rules::WriteDifference(difference, &events_);
        transaction.Commit();
        return difference.changes.size();
    }
};

TEST_F(RulesRoundTrip, ExportAndApplyChangeNothing)
{
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE("SYSLOGMON_TEST_SEED=" + std::to_string(random_.seed()));
        Fill(1 + random_.Below(20));
        const std::string before = Registry();
        ASSERT_EQ(0U, Apply(Export()));
        ASSERT_EQ(before, Registry());
    }
}

TEST_F(RulesRoundTrip, AnEmptyRegistryBecomesTheSameOne)
{
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE("SYSLOGMON_TEST_SEED=" + std::to_string(random_.seed()));
        Fill(1 + random_.Below(20));
        const std::string before = Registry();
        const std::string file = Export();
        Apply("events: []");
        ASSERT_NE(before, Registry());
        Apply(file);
        ASSERT_EQ(before, Registry());
    }
}

TEST_F(RulesRoundTrip, AFileWithMarkAndLineEndsOfWindowsIsTheSame)
{
    Fill(20);
    std::string file = "\xEF\xBB\xBF";
    for (const char c : Export())
        file += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(0U, Apply(file)) << "SYSLOGMON_TEST_SEED=" << random_.seed();
}

TEST_F(RulesRoundTrip, AFullTableOfTheLongestEventsFitsIntoAFile)
{
    std::vector<EventRecord> events;
    const std::string longest(256, '\x7F'); // four characters each, escaped
    for (uint32_t id = 0; id < uint32_t{kMaxEntries}; ++id)
        events.push_back({{std::string(255, '\x7F'), 0xF0000000 + id},
                          {longest, longest, longest},
                          INT32_MAX,
                          0x555555});
    const std::string file = rules::FormatRules(events, {});
    EXPECT_GT(rules::kMaxRulesFile, file.size());
    const auto parsed = rules::ParseRules(file);
    EXPECT_EQ("", test::Text(parsed.issues));
    ASSERT_EQ(events.size(), parsed.rules.size());
    for (size_t i = 0; i < events.size(); ++i)
        ASSERT_EQ(events[i], parsed.rules[i].event);
}

// Every file that is cut off is taken or refused; nothing else happens.
TEST_F(RulesRoundTrip, EveryTruncationIsTakenOrRefused)
{
    Fill(3);
    const std::string file = Export();
    for (size_t size = 0; size < file.size(); ++size) {
        const auto parsed = rules::ParseRules(std::string_view(file).substr(0, size));
        ASSERT_TRUE(!parsed.issues.empty() || parsed.rules.size() <= 3);
    }
}

TEST_F(RulesRoundTrip, FilesWithChangedBytesAreTakenOrRefused)
{
    Fill(5);
    const std::string file = Export();
    for (int round = 0; round < 2000; ++round) {
        std::string changed = file;
        for (size_t count = 1 + random_.Below(4); count > 0; --count)
            changed[random_.Below(changed.size())] = static_cast<char>(random_.Below(256));
        const auto parsed = rules::ParseRules(changed);
        for (const rules::Rule &rule : parsed.rules)
            ASSERT_NO_THROW(events::CheckEvent(rule.event)) << random_.seed();
    }
}

} // namespace
