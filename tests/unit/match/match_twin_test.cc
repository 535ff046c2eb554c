// The matchers beside their slow twins, on random tables and lines: results, hit counts, trace records,
// conversions and reports have to be the same, in the same order.
#include <clocale>
#include <cstring>
#include <ctime>

#include "filemonitor/filemonitor.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/match.h"
#include "match/report.h"
#include "tests/support/campaign.h"
#include "tests/support/module_test.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

constexpr size_t kLongestLine = 3328;

// A line on its way into a matcher, with a clock of its own.
struct Input {
    std::string line;
    int times = 1;
    time_t now = 0;
};
using Inputs = std::vector<Input>;

class MatchTwin : public ModuleTest {
  protected:
    MatchTwin() { ZoneGuard::Use("UTC0"); }
    ~MatchTwin() override { setlocale(LC_ALL, "C"); }

    static Inputs RandomInputs(Random &random, const RandomTable &table, size_t count)
    {
        Inputs inputs;
        while (inputs.size() < count) {
            Input input;
            input.now = kBegin + static_cast<time_t>(random.Below(86400UL * 300));
            input.times = random.Chance(80) ? 1 : random.Between(-3, 9);
            const std::string head = RandomHead(random, input.now);
            input.line = table.Line(random, head, LengthFor(random)).substr(0, kLongestLine);
            inputs.push_back(input);
        }
        return inputs;
    }

    // Hands every line to a matcher, in a buffer as a pass has it.
    template <typename Matcher>
    static Outcome Match(const Inputs &inputs, Matcher matcher)
    {
        BeginOutcome();
        char buffer[kLongestLine + 1 + kSearchPadding];
        for (const Input &input : inputs) {
            // What is behind a line in a pass is left from the line before.
            memcpy(buffer, input.line.c_str(), input.line.size() + 1);
            Sys().now = input.now;
            const int result = matcher(buffer, input.line.size(), input.times);
            NoteStep("result " + std::to_string(result));
        }
        return TakeOutcome();
    }

    // Compares what a matcher of the module does with what its slow twin did. The hits of the entries are
    // put back for the next one.
    template <typename Matcher>
    static void ExpectSame(const Outcome &slow, const Inputs &inputs, Matcher fast)
    {
        const std::vector<int32_t> before = HitCounters();
        const Outcome got = Match(inputs, fast);
        SetHitCounters(before);
        EXPECT_EQ("", Difference(slow, got));
    }

    template <typename Matcher>
    static Outcome MatchSlowly(const Inputs &inputs, Matcher slow)
    {
        const std::vector<int32_t> before = HitCounters();
        Outcome outcome = Match(inputs, slow);
        SetHitCounters(before);
        return outcome;
    }

    static void ExpectSameSyslogMatching(const Inputs &inputs)
    {
        const Outcome slow = MatchSlowly(inputs, [](char *line, size_t /*length*/, int times) {
            return twin::CheckLine(line, times);
        });
        {
            SCOPED_TRACE("CheckLine");
            ExpectSame(slow, inputs, [](char *line, size_t /*length*/, int times) {
                return CheckLine(line, times);
            });
        }
        {
            SCOPED_TRACE("CheckLineOfPass, with the index");
            BuildIndex();
            ExpectSameInPass(slow, inputs);
        }
        {
            SCOPED_TRACE("CheckLineOfPass, from the first line of a pass");
            DropIndex();
            ExpectSameInPass(slow, inputs);
        }
    }

    static void ExpectSameInPass(const Outcome &slow, const Inputs &inputs)
    {
        LocalMoment moment;
        FoundLiterals literals{};
        ExpectSame(slow, inputs, [&](char *line, size_t length, int times) {
            return CheckLineOfPass(&moment, &literals, line, length, times);
        });
    }

    static void ExpectSameFileMonitorMatching(const Inputs &inputs)
    {
        filedata.start = 1000;
        filedata.linepos = 234;
        const Outcome slow = MatchSlowly(inputs, [](char *line, size_t /*length*/, int /*times*/) {
            return twin::CheckFileLine(line);
        });
        ExpectSame(slow, inputs, [](char *line, size_t /*length*/, int /*times*/) {
            return CheckFileLine(line);
        });
    }

    static void RunRound(Random &random, const TableShape &shape)
    {
        EmptyTable();
        const RandomTable table(random, shape);
        IsFTServer = random.Chance(50) ? random.Between(1, 2) : random.Between(-1, 0);
        report_ft = random.Chance(70) ? 0 : 1;
        const size_t lines = shape.entries > 500 ? 4 : random.Chance(10) ? 20 : 6;
        const Inputs inputs = RandomInputs(random, table, lines);
        ExpectSameSyslogMatching(inputs);
        ExpectSameFileMonitorMatching(inputs);
    }

  private:
    // Long lines with expressions of back references take the C library seconds: few of them.
    static size_t LengthFor(Random &random)
    {
        const bool may_be_long = IsFTServer < 1 || random.Chance(10);
        return may_be_long ? RandomLineLength(random) : 0;
    }

    static constexpr time_t kBegin = 1700000000; // 14 November 2023
    ZoneGuard zone_;
};

TEST_F(MatchTwin, AgreesOnRandomTablesAndLines)
{
    Campaign("match", 1200).Run([](Random &random) { RunRound(random, RandomShape(random)); });
}

// Characters of several bytes change what an expression's compiler takes for one character.
TEST_F(MatchTwin, AgreesInAUtf8Locale)
{
    ASSERT_NE(nullptr, setlocale(LC_ALL, "C.UTF-8"))
        << "the C library's own UTF-8 locale is missing";
    Campaign("match in UTF-8", 300).Run([](Random &random) {
        TableShape shape = RandomShape(random);
        shape.expressions = true;
        RunRound(random, shape);
    });
}

TEST_F(MatchTwin, AgreesOnFullTables)
{
    Campaign("full tables", 4).Run([](Random &random) {
        TableShape shape = RandomShape(random);
        shape.entries = kMaxEntries;
        RunRound(random, shape);
    });
}

TEST_F(MatchTwin, AgreesWithoutAClock)
{
    Campaign("no clock", 50).Run([](Random &random) {
        EmptyTable();
        const RandomTable table(random, RandomShape(random));
        Inputs inputs = RandomInputs(random, table, 4);
        for (Input &input : inputs)
            input.now = -1;
        inputs.push_back({"Dec 31 23:59:58 x", 1, -1}); // the month of a clock that has failed
        ExpectSameSyslogMatching(inputs);
        ExpectSameFileMonitorMatching(inputs);
    });
}

} // namespace
} // namespace test
