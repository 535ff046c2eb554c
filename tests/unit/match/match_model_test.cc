// CheckLine against the obvious loop over the table.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <regex.h>
#include <string>
#include <vector>

#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/support/module_test.h"
#include "tests/unit/match/match_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::EventSpec;
using test::Host;
using test::kAllHours;
using test::Match;
using test::Strings;

// What CheckLine should leave in the trace log and with the alert component for one line.
struct Outcome {
    Strings records;
    Strings reports;
    int hour_tests = 0;
};

bool ExpressionMatches(const std::string &pattern, const std::string &line)
{
    regex_t expression;
    if (regcomp(&expression, pattern.c_str(), REG_EXTENDED) != 0)
        return false;
    const bool found = regexec(&expression, line.c_str(), 0, nullptr, 0) == 0;
    regfree(&expression);
    return found;
}

bool KeywordIsFound(const std::string &keyword, const std::string &line, Outcome *outcome)
{
    if (keyword.empty() || line.find(keyword) != std::string::npos)
        return true;
    if (IsFTServer < 1)
        return false;
    const std::string pattern = "([[:space:]]*)" + keyword + "([[:space:]]*)";
    outcome->records.push_back("0 Regular Expression is:" + pattern);
    return ExpressionMatches(pattern, line);
}

// One entry after the other, one keyword after the other.
Outcome MatchObviously(const std::string &line, int times, std::vector<VKVMon> *table)
{
    Outcome outcome;
    outcome.records.push_back("0 line \"" + line + "\" is checked, it happend " +
                              std::to_string(times) + " times\n");
    for (VKVMon &entry : *table) {
        if (!KeywordIsFound(entry.Keyword1, line, &outcome) ||
            !KeywordIsFound(entry.Keyword2, line, &outcome) ||
            !KeywordIsFound(entry.Keyword3, line, &outcome))
            continue;
        ++outcome.hour_tests;
        if ((entry.WatchTime >> 12U & 1U) == 0 || entry.ReportCount < 1)
            continue;
        entry.CurrentCount += times;
        outcome.records.emplace_back("0 found a match!");
        outcome.records.push_back("0 curnum = " + std::to_string(entry.CurrentCount) +
                                  ", repnum = " + std::to_string(entry.ReportCount) + ".");
        if (entry.CurrentCount < entry.ReportCount)
            continue;
        entry.CurrentCount = 0;
        if (report_ft == 0 && strcmp(entry.Source, "FTREPORT") == 0)
            continue;
        outcome.records.push_back("3 Report " + line);
        char shown[600];
        snprintf(shown, sizeof shown, "3 REPORT: Source=%s, EventID=0x%X", entry.Source,
                 entry.EventID);
        outcome.records.emplace_back(shown);
        outcome.reports.emplace_back(entry.Source);
    }
    outcome.records.emplace_back("0 <return 0.");
    return outcome;
}

class MatchModel : public Match {
  protected:
    // Text over a few letters, so that keywords meet lines; with operators, now and then.
    static std::string RandomText(std::mt19937 &random, size_t longest, bool operators)
    {
        static constexpr char kLetters[] = "aab c";
        static constexpr char kOperators[] = ".*+?[]()|{}^$\\0123";
        std::string text;
        for (size_t left = random() % (longest + 1); left > 0; --left) {
            text += operators && random() % 3 == 0 ? kOperators[random() % (sizeof kOperators - 1)]
                                                   : kLetters[random() % (sizeof kLetters - 1)];
        }
        return text;
    }

    static void AddRandomEntry(std::mt19937 &random)
    {
        EventSpec event;
        event.source = random() % 4 == 0 ? "FTREPORT" : "S" + std::to_string(nCnt);
        event.id = std::to_string(random() % 1000);
        for (auto &keyword : event.keywords) {
            if (random() % 2 == 0)
                keyword = RandomText(random, 5, random() % 2 == 0);
        }
        VKVMon *entry = AddEntry(event);
        entry->WatchTime = random() % 5 == 0 ? ~(1U << 12U) : kAllHours;
        entry->ReportCount = static_cast<int32_t>(random() % 6) - 1;
        entry->CurrentCount = static_cast<int32_t>(random() % 4);
    }

    static std::vector<VKVMon> Table()
    {
        std::vector<VKVMon> table;
        table.reserve(static_cast<size_t>(nCnt));
        for (int i = 0; i < nCnt; ++i)
            table.push_back(*lpVKVMon[i]);
        return table;
    }

    static void ExpectAsObvious(const std::string &line, int times)
    {
        std::vector<VKVMon> table = Table();
        const Outcome expected = MatchObviously(line, times, &table);
        Host().ForgetRecords();
        ASSERT_EQ(0, Check(line, times));
        ASSERT_EQ(expected.records, OwnRecords());
        ASSERT_EQ(expected.reports, Sources());
        ASSERT_EQ(expected.hour_tests, HourTests());
        for (int i = 0; i < nCnt; ++i)
            ASSERT_EQ(table[static_cast<size_t>(i)].CurrentCount, lpVKVMon[i]->CurrentCount) << i;
    }
};

TEST_F(MatchModel, AgreesWithTheObviousLoopOnRandomTablesAndLines)
{
    for (uint32_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        EmptyTable();
        for (auto left = 1 + (random() % 12); left > 0; --left)
            AddRandomEntry(random);
        IsFTServer = static_cast<int32_t>(random() % 3) - 1;
        report_ft = random() % 2 == 0 ? 0 : 1;
        for (int lines = 0; lines < 6; ++lines) {
            // A table of the host's own making changes between the lines, too.
            if (nCnt > 0 && random() % 3 == 0)
                Set(lpVKVMon[random() % static_cast<uint32_t>(nCnt)]->Keyword1,
                    RandomText(random, 4, true));
            ExpectAsObvious(Line(RandomText(random, 24, random() % 4 == 0)),
                            static_cast<int>(random() % 5) - 1);
            if (HasFatalFailure())
                return;
        }
    }
}

// Most entries of a large table miss a line, whichever way they are passed over.
TEST_F(MatchModel, AgreesWithTheObviousLoopOnLargeTables)
{
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        EmptyTable();
        IsFTServer = seed % 3 == 0 ? 1 : 0;
        const int entries =
            static_cast<int>(IsFTServer == 1 ? random() % 200 : random() % kMaxEntries);
        while (nCnt < entries)
            AddRandomEntry(random);
        for (int lines = 0; lines < 5; ++lines) {
            ExpectAsObvious(Line(RandomText(random, 40, false)), 1);
            if (HasFatalFailure())
                return;
        }
    }
}

} // namespace
