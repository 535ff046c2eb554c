// The line splitter of the watched file against one that goes byte by byte.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"
#include "tests/unit/filemonitor/scan_fixture.h"

namespace {

using test::Format;
using test::Host;
using test::kBlock;
using test::OpenWatch;
using test::Strings;
using test::TraceRecord;

// A file monitor that goes byte by byte, on a file in memory.
class ObviousSplitter {
  public:
    std::string file; // as it is now
    int64_t size = 0; // as it was when the pass began
    int64_t offset = 0;
    int64_t start = 0;
    int64_t length = 0;
    int64_t linepos = 0;
    uint32_t isend = 0;
    int32_t overlong = 0;
    std::string data = std::string(16392, '\0');
    std::string buffer = std::string(3330, '?'); // the caller's
    Strings records;

    long NextLine(const void *shown)
    {
        Record(0, Format(">pcontent=%p,size=%d", shown, 3330));
        if (length == 0) {
            const long got = Block(offset, kBlock);
            if (got < 0)
                return Fail("<GetFileBlock error.return -1.");
            if (got == 0)
                return End();
        }
        Record(0, Format("GetFileNextLine begin from offset %lld!",
                         static_cast<long long>(start + linepos)));
        buffer.assign(3330, '\0');
        long count = 0;
        for (;;) {
            for (int64_t i = linepos; i < length; ++i) {
                if (count == 3329) {
                    CopyString(3328);
                    overlong = 1;
                    Record(3, "The current line is too long, will be truncated");
                }
                ++count;
                if (data[static_cast<size_t>(i)] == '\n')
                    return Deliver(i, count);
            }
            if (isend != 0)
                return End();
            if (overlong != 0)
                linepos = length;
            const long got = Block(start + linepos, kBlock);
            if (got < 0)
                return Fail("<GetFileNextBlock() failed.return -1.");
            if (got == 0)
                return End();
        }
    }

  private:
    void Record(int level, const std::string &text)
    {
        records.push_back(std::to_string(level) + " " + text);
    }

    long Fail(const char *text)
    {
        Record(1, text);
        return -1;
    }

    long End()
    {
        Record(0, "<end of file, return 0.");
        return 0;
    }

    // Like strncpy from the pending line.
    void CopyString(size_t most)
    {
        const auto begin = static_cast<size_t>(linepos);
        bool ended = false;
        for (size_t i = 0; i < most; ++i) {
            ended = ended || data[begin + i] == '\0';
            buffer[i] = ended ? '\0' : data[begin + i];
        }
    }

    long Deliver(int64_t feed, long count)
    {
        data[static_cast<size_t>(feed)] = '\0';
        offset = start + feed + 1;
        if (overlong == 1) {
            linepos = feed + 1;
            overlong = 0;
            Record(3, "<over-lengthed line is over, GetFileNextLine success!");
            return 3329;
        }
        for (size_t i = 0;; ++i) {
            const char c = data[static_cast<size_t>(linepos) + i];
            buffer[i] = c;
            if (c == '\0')
                break;
        }
        linepos = feed + 1;
        Record(0, Format("<GetFileNextLine success, the linelength is %ld!", count));
        return count;
    }

    long Block(int64_t pos, long leng)
    {
        Record(0, Format(">pos=%lld,leng=%ld", static_cast<long long>(pos), leng));
        if (pos < 0 || pos > size) {
            return Fail(Format("<parameter error, pos is %lld, filedata.filestat.st_size is "
                               "%lld,return -1.",
                               static_cast<long long>(pos), static_cast<long long>(size))
                            .c_str());
        }
        if (pos == size) {
            Record(0, "<the end of the file, return 0.");
            return 0;
        }
        const int64_t want = std::min<int64_t>(leng, kBlock);
        isend = want < size - pos ? 0 : 1;
        const auto there = std::max<int64_t>(static_cast<int64_t>(file.size()) - pos, 0);
        length = std::min({want, size - pos, there});
        start = pos;
        linepos = 0;
        data.assign(16392, '\0');
        if (length > 0)
            data.replace(0, static_cast<size_t>(length), file, static_cast<size_t>(pos),
                         static_cast<size_t>(length));
        Record(0, Format("GetFileBlock success, from %lld to %lld.", static_cast<long long>(pos),
                         static_cast<long long>(pos + length)));
        return length;
    }
};

class FileLineModel : public OpenWatch {
  protected:
    static size_t RandomLength(std::mt19937 &random)
    {
        switch (random() % 10) {
        case 0:
            return 3326 + (random() % 7);
        case 1:
            return 16380 + (random() % 11);
        case 2:
            return random() % 4000;
        case 3:
            return 1660 + (random() % 10); // twice that is about the longest line
        case 4:
            return random() % 3 == 0 ? 16380 + (random() % 20000) : 0;
        default:
            return random() % 80;
        }
    }

    static std::string RandomFile(std::mt19937 &random)
    {
        std::string text;
        if (random() % 2 == 0) // something that brings the lines to the edge of a block
            text = std::string(kBlock - 1 - (random() % 7000), '.') + "\n";
        for (auto lines = random() % 12; lines > 0; --lines) {
            std::string line(RandomLength(random), ' ');
            for (size_t i = 0; i < line.size(); ++i)
                line[i] = static_cast<char>('a' + ((i * 7 + lines) % 26));
            if (!line.empty() && random() % 8 == 0)
                line[random() % line.size()] = '\0';
            if (random() % 16 == 0)
                line += '\r';
            text += line + "\n";
        }
        if (random() % 3 == 0) // an unfinished line
            text += std::string(RandomLength(random), 'u');
        return text;
    }

    static Strings SplitterRecords()
    {
        Strings list;
        for (const TraceRecord &record : Host().trace) {
            if (record.function == "GetFileNextLine" || record.function == "GetFileBlock")
                list.push_back(std::to_string(record.level) + " " + record.text);
        }
        return list;
    }

    // One step of both. False at the end of the file or after a failure.
    static bool StepBoth(ObviousSplitter *obvious, char *line)
    {
        Host().ForgetRecords();
        obvious->records.clear();
        const long expected = obvious->NextLine(line);
        const long count = GetFileNextLine(line, kFileLineBufferSize);
        EXPECT_EQ(expected, count);
        EXPECT_EQ(obvious->buffer, std::string(line, kFileLineBufferSize));
        EXPECT_EQ(obvious->records, SplitterRecords());
        EXPECT_EQ(obvious->offset, filedata.offset);
        EXPECT_EQ(obvious->start, filedata.start);
        EXPECT_EQ(obvious->length, filedata.length);
        EXPECT_EQ(obvious->linepos, filedata.linepos);
        EXPECT_EQ(obvious->isend, filedata.isend);
        EXPECT_EQ(obvious->overlong, filedata.overlong);
        EXPECT_TRUE(obvious->data == std::string(filedata.data, sizeof filedata.data));
        if (expected == 0) {
            EXPECT_EQ(obvious->offset, StoredOffset());
        }
        return expected > 0 && !HasFailure();
    }

    // Splits one file, which may have another length by now than when it was opened.
    void ExpectAsObvious(std::mt19937 &random)
    {
        ObviousSplitter obvious;
        const std::string text = RandomFile(random);
        Open(text);
        obvious.size = static_cast<int64_t>(text.size());
        obvious.file = text;
        if (random() % 10 == 0)
            obvious.file = text.substr(0, random() % (text.size() + 1)); // it shrank
        else if (random() % 10 == 0)
            obvious.file += "grown\n" + RandomFile(random);
        if (obvious.file != text)
            WriteLog("app.log", obvious.file);
        if (random() % 4 == 0)
            obvious.offset = static_cast<int64_t>(random() % (text.size() + 3)) - 1;
        filedata.offset = obvious.offset;
        if (text.empty())
            return;
        std::vector<char> line(kFileLineBufferSize, '?');
        while (StepBoth(&obvious, line.data())) {
        }
        StepBoth(&obvious, line.data()); // once more, at the end
    }
};

TEST_F(FileLineModel, AgreesWithTheObviousSplitterOnRandomFiles)
{
    for (uint32_t seed = 1; seed <= 2500; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        StartOver();
        ExpectAsObvious(random);
        ASSERT_FALSE(HasFailure());
    }
}

// Where a line of that length can begin before the edge of a block: every place at which its head
// or its end lies near the edge, every place at which the count does at the limit, and some
// between.
std::vector<int64_t> PlacesAround(int64_t length)
{
    std::vector<int64_t> places;
    for (int64_t before = -3; before <= length + 4; ++before) {
        const int64_t sum = before + length + 1;
        if (before < 8 || before > length - 8 || (sum > 3320 && sum < 3340) || before % 97 == 0)
            places.push_back(before);
    }
    return places;
}

// For lines around the lengths that matter.
TEST_F(FileLineModel, AgreesWithTheObviousSplitterAroundTheEdgeOfABlock)
{
    for (const int64_t length : {0, 1, 5, 1663, 1664, 1665, 3326, 3327, 3328, 3329, 3330, 3331}) {
        for (const int64_t before : PlacesAround(length)) {
            SCOPED_TRACE(std::to_string(length) + " " + std::to_string(before));
            StartOver();
            // The line begins `before` bytes before the edge.
            const std::string text = std::string(static_cast<size_t>(kBlock - before - 1), '.') +
                                     "\n" + std::string(static_cast<size_t>(length), 'x') +
                                     "\nsecond\n" + std::string(3400, 'y') + "\nlast\nunfinished";
            ObviousSplitter obvious;
            Open(text);
            obvious.file = text;
            obvious.size = static_cast<int64_t>(text.size());
            std::vector<char> line(kFileLineBufferSize, '?');
            while (StepBoth(&obvious, line.data())) {
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

} // namespace
