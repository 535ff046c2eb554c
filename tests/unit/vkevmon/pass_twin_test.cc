// A pass over the system log beside the obvious one, which reads line after line through the reader's
// interface and hands each to the slow matcher: trace, hits, reports and resume point have to be the same.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/trace.h"
#include "regacc/regacc.h"
#include "tests/support/campaign.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"

namespace test {
namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kPass[] = "WatchSyslogMain";
constexpr char kPath[] = "/var/log/messages";

// The repeat number of a line, or -1.
bool IsRepeat(const char *line, int *number)
{
    const char *text = strstr(line, "last message repeated");
    return text != nullptr && sscanf(text, "last message repeated %d times", number) == 1;
}

int Add(int a, int b)
{
    return static_cast<int>(
        std::clamp<long long>(static_cast<long long>(a) + b, INT32_MIN, INT32_MAX));
}

// Reads and checks the open, positioned file, one step after the other.
void ReadObviously()
{
    char current[kLineBufferSize] = {};
    char ahead[kLineBufferSize] = {};
    char previous[kLineBufferSize] = {};
    int64_t current_pos = 0;
    int64_t ahead_pos = 0;
    int64_t previous_pos = 0;
    bool pending = false;
    bool is_ahead = false;
    bool check_previous = false;
    if (GetNextLine(&current_pos, current, kLineBufferSize) != 0) {
        TRACE_FOR(kPass, TRACE_ERROR, "Get Next Line failed.");
        return;
    }
    int times = 1;
    if (IsRepeat(current, &times)) {
        strcpy(ahead, current);
        ahead_pos = current_pos;
        SaveFileEnv();
        while (FBegin() == 0) {
            if (GetPreLine(&previous_pos, previous, kLineBufferSize) != 0)
                break;
            int ignored = 0;
            if (IsRepeat(previous, &ignored))
                continue;
            check_previous = true;
            break;
        }
        RecoverFileEnv();
    } else {
        times = 1;
        pending = true;
    }
    for (;;) {
        while (FEof() == 0) {
            memset(ahead, 0, sizeof ahead);
            if (GetNextLine(&ahead_pos, ahead, kLineBufferSize) != 0) {
                TRACE_FOR(kPass, TRACE_ERROR, "Get Next line failed.");
                break;
            }
            int number = 0;
            if (!IsRepeat(ahead, &number)) {
                is_ahead = true;
                break;
            }
            times = Add(times, number);
        }
        if (pending) {
            strcpy(content[0], current);
            curpos[0] = current_pos;
            if (twin::CheckLine(current, times) == -1)
                TRACE_FOR(kPass, TRACE_ERROR, "CheckLine: %s --failed", content[0]);
        } else if (check_previous) {
            check_previous = false;
            if (twin::CheckLine(previous, times) == -1)
                TRACE_FOR(kPass, TRACE_ERROR, "CheckLine: %s --failed", previous);
        }
        if (!is_ahead)
            break;
        strcpy(current, ahead);
        current_pos = ahead_pos;
        memset(ahead, 0, sizeof ahead);
        times = 1;
        pending = true;
        is_ahead = false;
    }
    if (ahead[0] != '\0' && ahead_pos >= 1) {
        strcpy(content[0], ahead);
        curpos[0] = ahead_pos;
    }
    RegSetOrientation(curpos[0], content[0], 0);
}

class ScanTwin : public SyslogScanTest {
  protected:
    // The lines of one pass: whole ones, keywords and near misses, repeats.
    static std::string RandomNews(Random &random, const RandomTable &table, bool long_lines)
    {
        std::string news;
        // Below and above the number of lines from which an index is worth its while.
        for (int lines = random.Between(1, random.Chance(40) ? 12 : 70); lines > 0; --lines) {
            const std::string head = RandomHead(random, *Sys().now);
            if (random.Chance(12))
                news += head + " last message repeated " + std::to_string(random.Between(-2, 9)) +
                        (random.Chance(90) ? " times" : " time");
            else if (long_lines && random.Chance(5))
                news += std::string(16384 - (news.size() % 16384), 'x'); // to the border of a block
            else
                news += table.Line(random, head, long_lines ? RandomLineLength(random) : 0);
            news += "\n";
        }
        if (random.Chance(20))
            news += head_of_half_a_line;
        return news;
    }

    // From the positioning on; how the file was found is no concern here.
    static Outcome Pass()
    {
        BeginOutcome();
        WatchSyslogMain();
        auto &trace = Host().trace;
        const auto begin = std::find_if(trace.begin(), trace.end(), [](const TraceRecord &record) {
            return record.function == "GotoPos";
        });
        const auto end = std::find_if(begin, trace.end(), [](const TraceRecord &record) {
            return record.function == "FinishFile";
        });
        trace.erase(end, trace.end());
        trace.erase(trace.begin(), begin);
        return TakeOutcome();
    }

    static Outcome ObviousPass()
    {
        InitFile(kPath);
        BeginOutcome();
        if (GotoPos(&curpos[0], content[0], kLineBufferSize) != 0) {
            TRACE_FOR(kPass, TRACE_ERROR, "Set syslog pos failed.");
        } else if (FEof() == 0) {
            ReadObviously();
        } else {
            RegSetOrientation(curpos[0], content[0], 0);
            TRACE_FOR(kPass, TRACE_DETAIL, "Get end of file after GotoPos");
        }
        Outcome outcome = TakeOutcome();
        FinishFile();
        return outcome;
    }

    static constexpr char head_of_half_a_line[] = "Mar 10 11:59:59 half a line";
};

TEST_F(ScanTwin, PassesAsTheObviousPassDoes)
{
    Campaign("passes", 500).Run([this](Random &random) {
        StartOver();
        TableShape shape = RandomShape(random);
        shape.entries = std::min<size_t>(shape.entries, 400);
        IsFTServer = random.Chance(25) ? 1 : random.Between(-1, 0);
        // Long lines and expressions together take the C library minutes.
        shape.expressions = shape.expressions && shape.entries < 30;
        const bool long_lines = IsFTServer != 1 || !shape.expressions;
        const RandomTable table(random, shape);
        report_ft = random.Between(0, 1);
        WriteLog("messages", "Mar 10 11:00:00 the first line\n");
        WatchSyslogMain(); // begins at the end
        for (int pass = 0; pass < 3; ++pass) {
            AppendLog("messages", RandomNews(random, table, long_lines));
            *Sys().now += random.Between(0, 4000);
            const std::vector<int32_t> counters = HitCounters();
            const std::string registry = Host().registry.Dump();
            const std::string text = content[0];
            const int64_t pos = curpos[0];

            const Outcome slow = ObviousPass();
            const ResumePoint expected = StoredResumePoint();
            const std::string expected_text = content[0];
            const int64_t expected_pos = curpos[0];

            SetHitCounters(counters);
            RegSetOrientation(pos, text.c_str(), 0);
            ASSERT_EQ(registry, Host().registry.Dump());
            strcpy(content[0], text.c_str());
            curpos[0] = pos;
            EXPECT_EQ("", Difference(slow, Pass()));
            EXPECT_EQ(expected, StoredResumePoint());
            EXPECT_EQ(expected_text, content[0]);
            EXPECT_EQ(expected_pos, curpos[0]);
        }
    });
}

} // namespace
} // namespace test
