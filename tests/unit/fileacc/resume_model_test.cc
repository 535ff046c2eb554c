// Resume positioning against a slow and obvious one.

#include "regacc/last_end_time.h"
#include "tests/unit/fileacc/reader_fixture.h"
#include "tests/unit/fileacc/resume_fixture.h"

namespace {

using test::Cut;
using test::GotoPos;
using test::Host;
using test::LogLine;
using test::ReferenceLines;
using test::Step;
using test::Sys;

// ---- the reference: slow, obvious, on whole texts ----

// The head of the line that holds byte `pos`.
int64_t ReferenceLineHead(const std::string &text, int64_t pos)
{
    while (pos > 0 && text[static_cast<size_t>(pos) - 1] != '\n')
        --pos;
    return pos;
}

bool BeginsWith(const std::string &text, const std::string &head)
{
    return Cut(text).compare(0, head.size(), head) == 0;
}

struct Placed {
    int64_t pos = 0;
    std::string text;
    ptrdiff_t line = 0; // on which the cursor stands; -1: before the first
};

ptrdiff_t LineAt(const std::vector<LogLine> &lines, int64_t pos)
{
    ptrdiff_t line = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].pos <= pos)
            line = static_cast<ptrdiff_t>(i);
    }
    return line;
}

Placed PlacedOn(const std::vector<LogLine> &lines, ptrdiff_t line)
{
    const auto &chosen = lines[static_cast<size_t>(line)];
    return {chosen.pos, Cut(chosen.text), line};
}

// Lines from `from` - 1 back to the first: the first that begins with the text and is met before
// `ends` says stop; -1 if there is none.
template <typename Ends>
ptrdiff_t FindBefore(const std::vector<LogLine> &lines, ptrdiff_t from, const std::string &text,
                     Ends ends)
{
    for (ptrdiff_t i = from - 1; i >= 0; --i) {
        const auto &line = lines[static_cast<size_t>(i)];
        if (BeginsWith(line.text, text))
            return i;
        if (line.time && ends(*line.time))
            break;
    }
    return -1;
}

Placed ReferenceSearchUp(const std::vector<LogLine> &lines, ptrdiff_t base, const std::string &text,
                         time_t when)
{
    const ptrdiff_t found = FindBefore(lines, base, text, [&](time_t t) { return t < when; });
    if (found >= 0)
        return {lines[static_cast<size_t>(found)].pos, text, found};
    for (ptrdiff_t i = base - 1; i >= 0; --i) {
        const auto &line = lines[static_cast<size_t>(i)];
        if (line.time && *line.time <= when)
            return PlacedOn(lines, i);
    }
    return {-1, "", 0};
}

Placed ReferenceSearchDown(const std::vector<LogLine> &lines, ptrdiff_t base,
                           const std::string &text, time_t when)
{
    const auto count = static_cast<ptrdiff_t>(lines.size());
    for (ptrdiff_t i = base + 1; i < count; ++i) {
        const auto &line = lines[static_cast<size_t>(i)];
        if (BeginsWith(line.text, text))
            return {line.pos, text, i};
        if (line.time && *line.time > when)
            return PlacedOn(lines, i - 1);
    }
    return PlacedOn(lines, count - 1);
}

// Where the cursor belongs, for a remembered line at `pos` with this text and this time.
Placed ReferencePlace(const std::vector<LogLine> &lines, int64_t pos, const std::string &text,
                      time_t when)
{
    if (pos < 0)
        return {pos, "", -1};
    const ptrdiff_t base = LineAt(lines, pos);
    const auto &line = lines[static_cast<size_t>(base)];
    if (BeginsWith(line.text, text))
        return {pos, text, base};
    const time_t base_time = line.time.value_or(when - 1);
    if (base_time > when)
        return ReferenceSearchUp(lines, base, text, when);
    if (base_time == when) {
        const ptrdiff_t found = FindBefore(lines, base, text, [&](time_t t) { return t != when; });
        if (found >= 0)
            return {lines[static_cast<size_t>(found)].pos, text, found};
    }
    return ReferenceSearchDown(lines, base, text, when);
}

// Random lines: most short, some longer than the line buffers or a read of the head search, none
// longer than a block; now and then a zero byte.
std::string RandomLog(std::mt19937 *random, bool with_zeros)
{
    std::string text;
    const size_t count = 1 + (*random)() % 300;
    for (size_t i = 0; i < count; ++i) {
        const auto kind = (*random)() % 100;
        const size_t limit = kind < 70 ? 120 : (kind < 97 ? 600 : 16384);
        std::string line((*random)() % limit, static_cast<char>('a' + i % 26));
        if (with_zeros && !line.empty() && kind % 10 == 0)
            line[(*random)() % line.size()] = '\0';
        text += line + "\n";
    }
    if ((*random)() % 2 == 0)
        text.pop_back();
    return text.empty() ? "x" : text;
}

class AgainstTheReference : public GotoPos {};

TEST_F(AgainstTheReference, TheHeadOfALineIsTheSameForEveryByte)
{
    std::mt19937 random = Random(430);
    Host().record_trace = false;
    for (int round = 0; round < 20; ++round) {
        const std::string text = RandomLog(&random, true);
        WriteOldLog(text);
        Open();
        for (int i = 0; i < 300; ++i) {
            const auto pos = static_cast<int64_t>(random() % text.size());
            ASSERT_EQ(ReferenceLineHead(text, pos), ::GetLineHead(pos)) << pos << " in " << round;
        }
    }
}

TEST_F(AgainstTheReference, TheHeadOfALineIsTheSameForEveryByteOfASmallLog)
{
    std::mt19937 random = Random(431);
    for (int round = 0; round < 300; ++round) {
        std::string text(1 + random() % 20, 'x');
        for (char &c : text)
            c = "x\n"[random() % 2];
        WriteOldLog(text);
        Open();
        for (int64_t pos = 0; pos < filelen; ++pos)
            ASSERT_EQ(ReferenceLineHead(text, pos), ::GetLineHead(pos)) << pos << " in " << round;
    }
}

TEST_F(AgainstTheReference, TheLinesAreTheSameInBothDirections)
{
    std::mt19937 random = Random(432);
    Host().record_trace = false;
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const std::string text = RandomLog(&random, true);
        const auto lines = ReferenceLines(text);
        OpenOldLog(text);
        for (const auto &line : lines) {
            ASSERT_EQ(0, ::FEof());
            ASSERT_EQ((Step{0, line.pos, Cut(line.text)}), Next());
        }
        EXPECT_EQ(1, ::FEof());
        for (size_t i = lines.size() - 1; i-- > 0;) {
            ASSERT_EQ(0, ::FBegin());
            ASSERT_EQ((Step{0, lines[i].pos, Cut(lines[i].text)}), Previous());
        }
        EXPECT_EQ(1, ::FBegin());
    }
}

TEST_F(AgainstTheReference, ARandomWalkMeetsTheSameLines)
{
    std::mt19937 random = Random(433);
    Host().record_trace = false;
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        const auto text = RandomLog(&random, true);
        const auto lines = ReferenceLines(text);
        OpenOldLog(text);
        Next();
        size_t at = 0;
        for (int step = 0; step < 1000; ++step) {
            const bool forwards =
                (random() >> 5U) % 16 < (static_cast<size_t>(step) / 100 % 2 == 0 ? 12 : 4);
            ASSERT_EQ(at + 1 == lines.size() ? 1 : 0, ::FEof());
            ASSERT_EQ(at == 0 ? 1 : 0, ::FBegin());
            if (forwards ? at + 1 == lines.size() : at == 0)
                continue;
            at = forwards ? at + 1 : at - 1;
            ASSERT_EQ((Step{0, lines[at].pos, Cut(lines[at].text)}),
                      forwards ? Next() : Previous());
        }
    }
}

TEST_F(AgainstTheReference, TheFirstAndTheLastLineAreTheSame)
{
    std::mt19937 random = Random(434);
    for (int round = 0; round < 100; ++round) {
        const std::string text = RandomLog(&random, false);
        const auto lines = ReferenceLines(text);
        WriteOldLog(text);
        Open();
        EXPECT_EQ((Step{0, test::kUntouchedPos, Cut(lines.front().text)}), First());
        EXPECT_EQ((Step{0, lines.back().pos, Cut(lines.back().text)}), Last());
    }
}

// Logs of stamped lines, a few without a stamp, of times that mostly rise.
class PositioningAgainstTheReference : public GotoPos {
  protected:
    // A stamped log in text_, its lines in lines_.
    void MakeStampedLog(std::mt19937 *random)
    {
        text_.clear();
        lines_.clear();
        const size_t count = 1 + (*random)() % ((*random)() % 4 == 0 ? 700 : 25);
        int second = -300;
        for (size_t i = 0; i < count; ++i) {
            second += static_cast<int>((*random)() % 10 == 0 ? (*random)() % 7 : (*random)() % 2);
            if ((*random)() % 50 == 0)
                second -= 3; // a clock that was set back
            const bool stamped = (*random)() % 10 != 0;
            const std::string body =
                "line " + std::to_string((*random)() % 1000) + std::string((*random)() % 90, '.');
            LogLine line;
            line.pos = static_cast<int64_t>(text_.size());
            line.text = stamped ? Line(body, second) : body;
            if (stamped)
                line.time = *Sys().now + second;
            text_ += line.text + "\n";
            lines_.push_back(line);
        }
    }

    // Something to look for: a line of the log or part of one, or a line that is gone.
    std::string Remember(std::mt19937 *random, time_t *when)
    {
        const LogLine &line = lines_[(*random)() % lines_.size()];
        *when = line.time.value_or(lastendtime);
        switch ((*random)() % 5) {
        case 0:
        case 1:
            return line.text;
        case 2:
            return line.text.substr(0, std::min<size_t>(line.text.size(), 24));
        case 3:
            *when = lastendtime;
            return "gone, and without a stamp";
        default:
            const int second = -310 + static_cast<int>((*random)() % 330);
            *when = *Sys().now + second;
            return Line("gone", second);
        }
    }

    int64_t SomePosition(std::mt19937 *random)
    {
        switch ((*random)() % 6) {
        case 0:
            return -1;
        case 1:
            return static_cast<int64_t>(text_.size() + (*random)() % 100);
        case 2:
            return static_cast<int64_t>((*random)() % text_.size());
        default:
            return lines_[(*random)() % lines_.size()].pos;
        }
    }

    void ExpectCursorOn(ptrdiff_t line)
    {
        const auto next = static_cast<size_t>(line + 1);
        EXPECT_EQ(next == lines_.size() ? 1 : 0, ::FEof());
        if (next < lines_.size())
            ExpectNext(lines_[next].pos, lines_[next].text);
    }

    std::vector<LogLine> lines_;
};

TEST_F(PositioningAgainstTheReference, EndsOnTheSameLine)
{
    std::mt19937 random = Random(435);
    Host().record_trace = false;
    for (int log = 0; log < 150 && !HasFailure(); ++log) {
        MakeStampedLog(&random);
        WriteOldLog(text_);
        Open();
        for (int i = 0; i < 20 && !HasFailure(); ++i) {
            lastendtime = *Sys().now - 310 + static_cast<int>(random() % 330);
            time_t when = 0;
            const std::string remembered = Remember(&random, &when);
            const int64_t pos = SomePosition(&random);
            SCOPED_TRACE("log " + std::to_string(log) + ", case " + std::to_string(i) + ", pos " +
                         std::to_string(pos) + ", remembered \"" + remembered + "\"");
            const Placed expected = ReferencePlace(lines_, pos, remembered, when);
            EXPECT_EQ((Step{0, expected.pos, expected.text}), Goto(pos, remembered));
            ExpectCursorOn(expected.line);
        }
    }
}

} // namespace
