// The file monitor beside its slow twin, which looks at one byte after the other and tries every entry: its
// line splitter alone, then whole passes over files that grow, shrink and are replaced.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "match/report.h"
#include "platform/trace.h"
#include "tests/support/campaign.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"
#include "tests/support/twin/reader.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

constexpr char kWatched[] = "watched.log";
constexpr char kWatchedPath[] = "/var/log/watched.log";

class FileMonitorTwin : public FileMonitorTest {
  protected:
    FileMonitorTwin() { ZoneGuard::Use("UTC0"); }

    // Lines of any form, as the watched file is of any: lengths around 3328, and around a block.
    static std::string RandomBytes(Random &random)
    {
        LogShape shape;
        shape.least_bytes = random.Chance(40) ? 0 : random.Below(random.Chance(80) ? 20000 : 60000);
        std::string bytes = RandomLog(random, *Sys().now - 1000, shape);
        // Straddling the border of two blocks, where lines are counted twice.
        if (random.Chance(40)) {
            const size_t before = 16384 - random.Below(3400);
            const size_t length = random.Below(3500);
            bytes = std::string(before, 'a') + "\n" + std::string(length, 'b') + "\n" + bytes;
        }
        return bytes;
    }

    // Opens the file as a pass does, with `size` as its size when the pass began.
    void OpenWith(const std::string &bytes, int64_t size, int64_t offset) const
    {
        FinishFileMonObj();
        filedata = FileMonObj{};
        WriteLog(kWatched, bytes);
        SetWatchedPath(kWatchedPath);
        ASSERT_EQ(TRUE, InitFileMonObj());
        filedata.filestat.st_size = size;
        filedata.offset = offset;
    }

    static twin::Splitter TwinOf(const std::string &bytes, int64_t size, int64_t offset)
    {
        twin::Splitter splitter;
        splitter.bytes = bytes;
        splitter.size = size;
        splitter.offset = offset;
        return splitter;
    }

    static void NoteDelivered(long count, const char *line, int64_t offset)
    {
        NoteStep("count " + std::to_string(count) + " offset " + std::to_string(offset) + " \"" +
                 line + '"');
    }

    static void NoteBlock(int64_t start, int64_t length, int64_t linepos, bool is_end,
                          bool is_overlong, const char *data)
    {
        NoteStep("block " + std::to_string(start) + " " + std::to_string(length) + " " +
                 std::to_string(linepos) + (is_end ? " end" : "") +
                 (is_overlong ? " over-long " : " ") +
                 std::to_string(std::hash<std::string>()(std::string(data, kFileDataSize))));
    }

    // Every line up to the end, or so many steps.
    static Outcome SplitByTwin(twin::Splitter *splitter, int steps)
    {
        BeginOutcome();
        char line[kFileLineBufferSize] = {};
        for (long count = 1; count > 0 && steps > 0; --steps) {
            count = splitter->GetFileNextLine(line, kFileLineBufferSize);
            NoteDelivered(count, line, splitter->offset);
            if (splitter->data.empty())
                splitter->data.assign(kFileDataSize, '\0');
            NoteBlock(splitter->start, splitter->length, splitter->linepos, splitter->isend,
                      splitter->overlong, splitter->data.data());
        }
        return TakeOutcome();
    }

    static Outcome Split(int steps)
    {
        BeginOutcome();
        char line[kFileLineBufferSize] = {};
        for (long count = 1; count > 0 && steps > 0; --steps) {
            count = GetFileNextLine(line, kFileLineBufferSize);
            NoteDelivered(count, line, filedata.offset);
            NoteBlock(filedata.start, filedata.length, filedata.linepos, filedata.isend == 1,
                      filedata.overlong == 1, filedata.data);
        }
        return TakeOutcome();
    }

    // A whole pass over a file that has grown, in the obvious way.
    static Outcome PassByTwin(twin::Splitter *splitter)
    {
        BeginOutcome();
        char line[kFileLineBufferSize] = {};
        for (;;) {
            const long count = splitter->GetFileNextLine(line, kFileLineBufferSize);
            if (count <= 0)
                break;
            filedata.start = splitter->start; // shown in the reports
            filedata.linepos = splitter->linepos;
            twin::CheckFileLine(line);
        }
        TraceLog(TRACE_DETAIL, "filemonitor", "WatchFileMonObjMain", 0, "<Get end of file %s",
                 kWatchedPath);
        return TakeOutcome();
    }

    // The pass from the first line on: how the file is opened and compared is no concern of the twin's.
    static Outcome Pass()
    {
        BeginOutcome();
        EXPECT_EQ(TRUE, WatchFileMonObjMain());
        auto &trace = Host().trace;
        const auto is_first = [](const TraceRecord &record) {
            return record.function == "GetFileNextLine";
        };
        trace.erase(trace.begin(), std::find_if(trace.begin(), trace.end(), is_first));
        std::erase_if(
            trace, [](const TraceRecord &record) { return record.function == "FinishFileMonObj"; });
        return TakeOutcome();
    }

  private:
    ZoneGuard zone_;
};

TEST_F(FileMonitorTwin, SplitsAsTheByteLoopDoes)
{
    Campaign("splitter", 2500).Run([this](Random &random) {
        const std::string bytes = RandomBytes(random) + (random.Chance(30) ? "" : "end\n");
        const auto length = static_cast<int64_t>(bytes.size());
        // The file may have grown or shrunk since its size was taken.
        int64_t size = std::max<int64_t>(1, length);
        if (random.Chance(20))
            size = 1 + static_cast<int64_t>(random.Below(bytes.size() + 50));
        const int64_t offset =
            random.Chance(70) ? 0 : static_cast<int64_t>(random.Below(static_cast<size_t>(size)));
        const int steps = random.Chance(80) ? 1000000 : random.Between(1, 20);
        twin::Splitter splitter = TwinOf(bytes, size, offset);
        const Outcome slow = SplitByTwin(&splitter, steps);
        const std::string stored = Host().registry.Dump();
        OpenWith(bytes, size, offset);
        EXPECT_EQ("", Difference(slow, Split(steps)));
        EXPECT_EQ(stored, Host().registry.Dump());
        EXPECT_EQ(splitter.offset, filedata.offset);
    });
}

// Lines that end at every distance from a block's border, of lengths around the limit.
TEST_F(FileMonitorTwin, SplitsAsTheByteLoopDoesAroundTheBordersOfBlocks)
{
    Campaign("splitter at borders", 1500).Run([this](Random &random) {
        std::string bytes;
        for (int lines = random.Between(1, 5); lines > 0; --lines) {
            static constexpr std::array<size_t, 10> kLengths = {1664, 1665, 3326, 3327,  3328,
                                                                3329, 3330, 6657, 16384, 0};
            const size_t left = 16384 - (bytes.size() % 16384);
            bytes += std::string(left - random.Below(std::min<size_t>(left, 3335)), 'a') + "\n";
            bytes += std::string(random.OneOf(kLengths) + random.Below(3), 'b') + "\n";
        }
        const auto size = static_cast<int64_t>(bytes.size());
        twin::Splitter splitter = TwinOf(bytes, size, 0);
        const Outcome slow = SplitByTwin(&splitter, 1000000);
        OpenWith(bytes, size, 0);
        EXPECT_EQ("", Difference(slow, Split(1000000)));
    });
}

// Lines that hold keywords of the table, in a file that grows from pass to pass.
TEST_F(FileMonitorTwin, PassesAsTheObviousPassDoes)
{
    Campaign("file monitor passes", 500).Run([this](Random &random) {
        StartOver();
        TableShape shape = RandomShape(random);
        shape.entries = std::min<size_t>(shape.entries, 400);
        const RandomTable table(random, shape);
        IsFTServer = random.Between(-1, 1);
        report_ft = random.Between(0, 1);
        SetPath(kWatchedPath);
        ChangeFileMonObj();
        std::string bytes;
        size_t written = 0;
        twin::Splitter splitter;
        for (int pass = 0; pass < 3; ++pass) {
            // Below and above the number of lines from which an index is worth its while.
            for (int lines = random.Between(1, random.Chance(50) ? 12 : 60); lines > 0; --lines)
                bytes += table.Line(random, "", RandomLineLength(random)) +
                         (random.Chance(97) ? "\n" : "\r\n");
            if (random.Chance(30))
                bytes += "unfinished";
            splitter = TwinOf(bytes, static_cast<int64_t>(bytes.size()), splitter.offset);
            const std::vector<int32_t> before = HitCounters();
            const Outcome slow = PassByTwin(&splitter);
            SetHitCounters(before);
            AppendLog(kWatched, bytes.substr(written));
            written = bytes.size();
            EXPECT_EQ("", Difference(slow, Pass()));
            EXPECT_EQ(splitter.offset, filedata.offset);
            EXPECT_EQ(splitter.offset, StoredOffset());
        }
    });
}

} // namespace
} // namespace test
