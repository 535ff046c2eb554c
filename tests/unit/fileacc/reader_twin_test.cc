// The reader beside its slow twin, which walks over the file byte by byte, and beside a plain split of the
// file: random files, random walks, files that grow and shrink under way.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "regacc/last_end_time.h"
#include "tests/support/campaign.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/reader.h"
#include "tests/unit/fileacc/reader_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

enum class Operation {
    kNext,
    kNextOfPass, // ReadNextLine
    kPrevious,
    kLoadAt,
    kLineHead,
    kFirst,
    kLast,
    kIsBegin,
    kIsEnd,
    kSave,
    kRecover,
    kGrow,
    kShrink,
};

struct Call {
    Operation operation = Operation::kNext;
    int64_t pos = 0;
    int size = kLineBufferSize;
    std::string text;
};

// A state of the cursor, for comparing.
void NoteBlock(const LogBuf &block)
{
    std::string data(block.data, static_cast<size_t>(block.length) + 1);
    std::replace(data.begin(), data.end(), '\0', '|');
    NoteStep("block " + std::to_string(block.start) + " " + std::to_string(block.length) + " " +
             std::to_string(block.linepos) + " " + std::to_string(block.isend) + " " +
             std::to_string(std::hash<std::string>()(data)));
}

void NoteLine(int64_t result, int64_t pos, const std::vector<char> &buffer)
{
    const auto zero = std::find(buffer.begin(), buffer.end(), '\0');
    const bool cleared = std::all_of(zero, buffer.end(), [](char c) { return c == '\0'; });
    NoteStep("line " + std::to_string(result) + " " + std::to_string(pos) + " \"" +
             std::string(buffer.begin(), zero) + (cleared ? "\"" : "\" and what was there before"));
}

class ReaderTwin : public ReaderTest {
  protected:
    using Random = test::Random;

    ReaderTwin() { ZoneGuard::Use("UTC0"); }

    // ---- random walks ----

    static Call RandomCall(Random &random, size_t file_size)
    {
        static constexpr std::array<Operation, 20> kOperations = {
            Operation::kNext,     Operation::kNext,     Operation::kNext,   Operation::kNextOfPass,
            Operation::kPrevious, Operation::kPrevious, Operation::kNext,   Operation::kNextOfPass,
            Operation::kPrevious, Operation::kPrevious, Operation::kLoadAt, Operation::kLineHead,
            Operation::kFirst,    Operation::kLast,     Operation::kIsEnd,  Operation::kIsBegin,
            Operation::kSave,     Operation::kRecover,  Operation::kGrow,   Operation::kShrink};
        Call call;
        call.operation = random.OneOf(kOperations);
        if ((call.operation == Operation::kGrow || call.operation == Operation::kShrink) &&
            !random.Chance(20))
            call.operation = Operation::kNext;
        call.pos = static_cast<int64_t>(random.Below(file_size + 3)) - 1;
        if (random.Chance(5))
            call.size = random.Between(1, 60);
        if (call.operation == Operation::kGrow)
            call.text = random.Text(random.Below(40), "ab\n");
        return call;
    }

    // Walks in one direction for a while, as the scan does, with other calls now and then.
    static std::vector<Call> RandomWalk(Random &random, size_t file_size)
    {
        std::vector<Call> calls;
        const size_t length = 5 + random.Below(40);
        while (calls.size() < length) {
            calls.push_back(RandomCall(random, file_size));
            for (size_t again = random.Chance(20) ? random.Below(30) : 0; again > 0; --again)
                calls.push_back(calls.back());
        }
        return calls;
    }

    // The reader's operations, once by the module and once by the twin.
    struct Module {
        const ReaderTwin *test;

        void Do(const Call &call) const
        {
            std::vector<char> buffer(static_cast<size_t>(call.size), kUntouchedByte);
            int64_t pos = kUntouchedPos;
            switch (call.operation) {
            case Operation::kNext: {
                const int result = GetNextLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kNextOfPass: {
                size_t length = 0;
                const int result = ReadNextLine(&pos, buffer.data(), call.size, &length);
                if (filelen > 0) { // else an argument was bad, and nothing is written
                    EXPECT_EQ(strlen(buffer.data()), length);
                    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(length), buffer.end(),
                              '\0');
                }
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kPrevious: {
                const int result = GetPreLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kLoadAt:
                NoteStep("load " + std::to_string(GetBlockAt(call.pos, kBlockSize, &curblock)));
                TrimBlockRight(&curblock);
                break;
            case Operation::kLineHead:
                NoteStep("head " + std::to_string(::GetLineHead(call.pos)));
                break;
            case Operation::kFirst: {
                const int result = GetFirstLine(buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kLast: {
                const int result = GetLastLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kIsBegin:
                NoteStep("begin " + std::to_string(::FBegin()));
                break;
            case Operation::kIsEnd:
                NoteStep("end " + std::to_string(::FEof()));
                break;
            case Operation::kSave:
                bakblock = curblock;
                break;
            case Operation::kRecover:
                curblock = bakblock;
                break;
            case Operation::kGrow:
                test->Grow(call.text);
                break;
            case Operation::kShrink:
                test->ShrinkToAtMost(call.pos);
                break;
            }
            EXPECT_TRUE(BlockIsSound(curblock));
            NoteBlock(curblock);
        }
    };

    struct Twin {
        twin::Reader *reader;

        void Do(const Call &call) const
        {
            std::vector<char> buffer(static_cast<size_t>(call.size), kUntouchedByte);
            int64_t pos = kUntouchedPos;
            switch (call.operation) {
            case Operation::kNext:
            case Operation::kNextOfPass: {
                const int result = reader->GetNextLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kPrevious: {
                const int result = reader->GetPreLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kLoadAt:
                NoteStep("load " +
                         std::to_string(reader->GetBlockAt(call.pos, kBlockSize, &reader->block)));
                reader->TrimBlockRight();
                break;
            case Operation::kLineHead:
                NoteStep("head " + std::to_string(reader->GetLineHead(call.pos)));
                break;
            case Operation::kFirst: {
                const int result = reader->GetFirstLine(buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kLast: {
                const int result = reader->GetLastLine(&pos, buffer.data(), call.size);
                NoteLine(result, pos, buffer);
                break;
            }
            case Operation::kIsBegin:
                NoteStep("begin " + std::to_string(reader->FBegin()));
                break;
            case Operation::kIsEnd:
                NoteStep("end " + std::to_string(reader->FEof()));
                break;
            case Operation::kSave:
                reader->saved_block = reader->block;
                break;
            case Operation::kRecover:
                reader->block = reader->saved_block;
                break;
            case Operation::kGrow:
                reader->bytes += call.text;
                break;
            case Operation::kShrink:
                reader->bytes.resize(std::min(reader->bytes.size(),
                                              static_cast<size_t>(std::max<int64_t>(call.pos, 0))));
                break;
            }
            NoteBlock(reader->block);
        }
    };

    static constexpr off_t kFarBehind = off_t{1} << 40; // of the end of any log here

    void ShrinkToAtMost(int64_t pos) const
    {
        const auto size = static_cast<int64_t>(std::filesystem::file_size(LogFile(kLogName)));
        ShrinkTo(static_cast<size_t>(std::clamp<int64_t>(pos, 0, size)));
        // What the stream's buffer still holds of the old bytes is the C library's affair: a place far behind
        // the end empties it.
        fseeko(gfp, kFarBehind, SEEK_SET);
    }

    template <typename Reader>
    static Outcome Walk(const std::vector<Call> &calls, Reader reader)
    {
        BeginOutcome();
        for (const Call &call : calls)
            reader.Do(call);
        return TakeOutcome();
    }

    void OpenWith(const std::string &bytes) const
    {
        FinishFile();
        WriteLog(kLogName, bytes); // years after the module's clock: no load waits for more of it
        Open();
        curblock = LogBuf{};
        bakblock = LogBuf{};
    }

    static twin::Reader TwinOf(const std::string &bytes)
    {
        twin::Reader reader;
        reader.bytes = bytes;
        reader.length = static_cast<int64_t>(bytes.size());
        return reader;
    }

    static std::string RandomBytes(Random &random, const LogShape &shape)
    {
        LogShape sized = shape;
        sized.least_bytes = random.Chance(50) ? 0 : random.Below(random.Chance(80) ? 20000 : 70000);
        return RandomLog(random, *Sys().now - 3600, sized);
    }

  private:
    ZoneGuard zone_;
};

TEST_F(ReaderTwin, AgreesOnRandomWalks)
{
    Campaign("walks", 2500).Run([this](Random &random) {
        const std::string bytes = RandomBytes(random, {});
        const std::vector<Call> calls = RandomWalk(random, bytes.size());
        twin::Reader twin = TwinOf(bytes);
        const Outcome slow = Walk(calls, Twin{&twin});
        OpenWith(bytes);
        EXPECT_EQ("", Difference(slow, Walk(calls, Module{this})));
    });
}

// ---- beside a plain split ----

std::vector<twin::PlainLine> CutLines(std::vector<twin::PlainLine> lines)
{
    for (auto &line : lines)
        line.text.resize(std::min<size_t>(line.text.size(), kLineBufferSize - 1));
    return lines;
}

TEST_F(ReaderTwin, StepsForwardsOverTheLinesOfAPlainSplit)
{
    Campaign("forwards", 1500).Run([this](Random &random) {
        const std::string bytes = RandomBytes(random, {}) + "x";
        Host().record_trace = false;
        OpenWith(bytes);
        LoadAt(0);
        const auto lines = CutLines(twin::SplitPlainly(bytes));
        for (const auto &line : lines) {
            ASSERT_EQ(0, ::FEof());
            ASSERT_EQ((Step{0, line.pos, line.text}), Next());
        }
        EXPECT_EQ(1, ::FEof());
        EXPECT_EQ(Failed(), Next());
        Host().record_trace = true;
    });
}

// Of lines that fit into a block: longer ones come in other pieces from behind.
TEST_F(ReaderTwin, StepsBackwardsOverTheLinesOfAPlainSplit)
{
    Campaign("backwards", 1500).Run([this](Random &random) {
        LogShape shape;
        shape.long_lines = false;
        const std::string bytes = RandomBytes(random, shape) + "x";
        Host().record_trace = false;
        OpenWith(bytes);
        const auto lines = CutLines(twin::SplitPlainly(bytes));
        const size_t from = random.Below(lines.size());
        LoadAt(lines[from].pos);
        Next();
        for (size_t i = from; i-- > 0;) {
            ASSERT_EQ(0, ::FBegin());
            ASSERT_EQ((Step{0, lines[i].pos, lines[i].text}), Previous());
        }
        EXPECT_EQ(1, ::FBegin());
        EXPECT_EQ(Failed(), Previous());
        Host().record_trace = true;
    });
}

// The head is looked for in pieces of 4096 bytes: it may lie at every distance from their borders.
TEST_F(ReaderTwin, FindsTheHeadOfALineAtEveryDistance)
{
    for (const int64_t border : {0, 4096, 8192, 12288}) {
        for (int64_t distance = std::max<int64_t>(0, border - 3); distance < border + 4;
             ++distance) {
            const std::string bytes =
                "ab\n" + std::string(static_cast<size_t>(distance), 'x') + "y";
            OpenWith(bytes);
            twin::Reader twin = TwinOf(bytes);
            const auto last = static_cast<int64_t>(bytes.size()) - 1;
            EXPECT_EQ(3, ::GetLineHead(last)) << distance;
            for (int64_t pos = std::max<int64_t>(0, last - 2); pos <= last; ++pos)
                EXPECT_EQ(twin.GetLineHead(pos), ::GetLineHead(pos)) << distance << " " << pos;
        }
    }
}

// ---- resuming ----

// A resume point in a file: right, or beside the truth in one of the ways in which files change.
struct Remembered {
    int64_t pos = 0;
    std::string text;
};

Remembered RandomResumePoint(Random &random, const std::string &bytes)
{
    const auto lines = CutLines(twin::SplitPlainly(bytes));
    if (lines.empty())
        return {random.Between(-1, 5), "x"};
    const auto &line = random.OneOf(lines);
    Remembered remembered = {line.pos, line.text};
    if (random.Chance(30)) // the record of a resume point holds so much
        remembered.text.resize(std::min<size_t>(remembered.text.size(), 499));
    switch (random.Below(7)) {
    case 0: // another place
        remembered.pos = random.OneOf(lines).pos;
        break;
    case 1: // any byte, or behind the end
        remembered.pos = static_cast<int64_t>(random.Below(bytes.size() + 50));
        break;
    case 2: // another text, of another time
        remembered.text = Edited(random, remembered.text);
        break;
    case 3: // a text that is gone
        remembered.text = RandomHead(random, *Sys().now) + "gone";
        remembered.pos = random.OneOf(lines).pos;
        break;
    case 4:
        remembered.text = random.Chance(50) ? "" : "no stamp";
        break;
    case 5:
        remembered.pos = random.Between(-3, -1);
        break;
    default:
        break;
    }
    remembered.text.resize(std::min<size_t>(remembered.text.size(), kLineBufferSize - 1));
    return remembered;
}

template <typename Goto>
Outcome GotoBy(const Remembered &remembered, Goto go)
{
    BeginOutcome();
    std::vector<char> buffer(kLineBufferSize, '\0');
    memcpy(buffer.data(), remembered.text.c_str(), strlen(remembered.text.c_str()));
    int64_t pos = remembered.pos;
    const int result = go(&pos, buffer.data());
    NoteLine(result, pos, buffer);
    return TakeOutcome();
}

TEST_F(ReaderTwin, AgreesOnWhereToResume)
{
    Campaign("resume", 2500).Run([this](Random &random) {
        LogShape shape;
        shape.always_stamped = random.Chance(50);
        shape.long_lines = random.Chance(30);
        const std::string bytes = RandomBytes(random, shape) + (random.Chance(90) ? "x" : "");
        const Remembered remembered = RandomResumePoint(random, bytes);
        lastendtime = *Sys().now - random.Between(0, 4000);
        twin::Reader twin = TwinOf(bytes);
        const Outcome slow = GotoBy(remembered, [&](int64_t *pos, char *text) {
            const int result = twin.GotoPos(pos, text, kLineBufferSize, lastendtime);
            NoteBlock(twin.block);
            return result;
        });
        OpenWith(bytes);
        const Outcome fast = GotoBy(remembered, [&](int64_t *pos, char *text) {
            const int result = GotoPos(pos, text, kLineBufferSize);
            EXPECT_TRUE(BlockIsSound(curblock));
            NoteBlock(curblock);
            return result;
        });
        EXPECT_EQ("", Difference(slow, fast));
    });
}

} // namespace
} // namespace test
