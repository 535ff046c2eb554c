// The fixture of the reader's tests: one log, loaded by blocks and stepped through by lines.
//
// The clock stands at noon of a day in 2020. A log written here was last changed an hour before
// that, so that no load waits for more of it, unless the test asks for a fresh one.
#ifndef TESTS_UNIT_FILEACC_READER_FIXTURE_H
#define TESTS_UNIT_FILEACC_READER_FIXTURE_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "fileacc/fileacc.h"
#include "tests/support/module_test.h"

namespace test {

constexpr char kLogName[] = "messages";
constexpr char kLog[] = "/var/log/messages";
constexpr auto kBlock = static_cast<size_t>(kBlockSize);

using Texts = std::vector<std::string>;

inline std::string Repeat(size_t count, char c)
{
    return std::string(count, c);
}

// What a step of the cursor gave.
struct Step {
    int result = 0;
    int64_t pos = 0;
    std::string text;
    bool operator==(const Step &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const Step &step)
{
    return out << "{" << step.result << ", " << step.pos << ", \"" << step.text << "\" of "
               << step.text.size() << " bytes}";
}

// Values that no call stores: what still holds them afterwards was not written.
constexpr int64_t kUntouchedPos = -77;
constexpr char kUntouchedByte = 'Z';
constexpr char kUntouchedText[] = "(untouched)";

// A step that failed after clearing the text, and one that failed before.
inline Step Failed()
{
    return {-1, kUntouchedPos, ""};
}

inline Step Refused()
{
    return {-1, kUntouchedPos, kUntouchedText};
}

// A line buffer with a byte behind it that nobody may write.
class LineBuffer {
  public:
    explicit LineBuffer(int size) : bytes_(static_cast<size_t>(size) + 1, kUntouchedByte) {}
    char *data() { return bytes_.data(); }

    // The text, after checking that it ends inside the buffer and that zeros follow it.
    [[nodiscard]] std::string Text() const
    {
        EXPECT_EQ(kUntouchedByte, bytes_.back()) << "written behind the buffer";
        const auto end = bytes_.end() - 1;
        if (std::all_of(bytes_.begin(), end, [](char c) { return c == kUntouchedByte; }))
            return kUntouchedText;
        const auto zero = std::find(bytes_.begin(), end, '\0');
        EXPECT_TRUE(zero != end) << "not terminated";
        EXPECT_TRUE(std::all_of(zero, end, [](char c) { return c == '\0'; })) << "not cleared";
        return {bytes_.begin(), zero};
    }

  private:
    std::vector<char> bytes_;
};

class ReaderTest : public ModuleTest {
  protected:
    ReaderTest() { SetClock(2020, 3, 5, 12, 0, 0); }

    // ---- the log ----

    void WriteOldLog(const std::string &text) const
    {
        WriteLog(kLogName, text);
        SetModified(kLogName, *Sys().now - 3600);
    }

    // A log that a daemon wrote in this second, and may be writing still.
    void WriteFreshLog(const std::string &text) const
    {
        WriteLog(kLogName, text);
        SetModified(kLogName, *Sys().now);
    }

    void Grow(const std::string &text) const { AppendLog(kLogName, text); }

    void ShrinkTo(size_t size) const { std::filesystem::resize_file(LogFile(kLogName), size); }

    // ---- a log that is being written ----
    //
    // Of a log that ends inside a line, a load asks fstat first whether it is fresh, and then, time
    // and again, whether it has grown: these are its looks, counted from 1.

    // Opens a fresh log. The looks are counted from here.
    void OpenFresh(const std::string &text) const
    {
        Sys().BeforeCall("fstat", 0, nullptr); // what an earlier log did not come to
        Sys().FailCall("fstat", 0);
        WriteFreshLog(text);
        Open();
        Sys().ForgetCalls();
    }

    static int Looks() { return Sys().Calls("fstat"); }

    // At look number n from now, the daemon writes on.
    void WriteOnAtLook(int n, const std::string &text) const
    {
        Sys().BeforeCall("fstat", n, [this, text] { Grow(text); });
    }

    // Repeats a story until the reader has looked so often: a machine may stop this process for
    // longer than the reader waits, and such a run shows nothing.
    template <typename Story>
    static void UntilLooked(int times, Story story)
    {
        for (int attempt = 0; attempt < 100; ++attempt) {
            story();
            if (Looks() >= times)
                return;
        }
        FAIL() << "never looked " << times << " times";
    }

    // ---- operations, each followed by a check of the block's rules ----

    static void Open() { ASSERT_EQ(0, InitFile(kLog)); }

    static void LoadAt(int64_t pos)
    {
        ASSERT_LE(0, GetBlockAt(pos, kBlockSize, &curblock));
        EXPECT_TRUE(BlockIsSound(curblock));
        TrimBlockRight(&curblock);
        EXPECT_TRUE(BlockIsSound(curblock));
    }

    static void OpenAtHead()
    {
        Open();
        LoadAt(0);
    }

    // Opens a log with this content, its first block loaded.
    void OpenOldLog(const std::string &text) const
    {
        WriteOldLog(text);
        OpenAtHead();
    }

    static Step Next(int size = kLineBufferSize) { return Take(GetNextLine, size); }
    static Step Previous(int size = kLineBufferSize) { return Take(GetPreLine, size); }
    static Step Last(int size = kLineBufferSize) { return Take(GetLastLine, size); }

    static Step First(int size = kLineBufferSize)
    {
        LineBuffer buffer(size);
        const int result = GetFirstLine(buffer.data(), size);
        return {result, kUntouchedPos, buffer.Text()};
    }

    static void ExpectNext(int64_t pos, const std::string &text)
    {
        EXPECT_EQ((Step{0, pos, text}), Next());
    }

    static void ExpectPrevious(int64_t pos, const std::string &text)
    {
        EXPECT_EQ((Step{0, pos, text}), Previous());
    }

    // ---- blocks, with '|' for every zero byte ----

    static std::string Shown(const LogBuf &block)
    {
        std::string text(block.data, static_cast<size_t>(block.length));
        std::replace(text.begin(), text.end(), '\0', '|');
        return text;
    }

    static LogBuf Block(std::string shown, int64_t start = 0, int32_t isend = kBlockInside)
    {
        std::replace(shown.begin(), shown.end(), '|', '\0');
        LogBuf block{};
        block.start = start;
        block.length = static_cast<int64_t>(shown.size());
        block.linepos = -1;
        block.isend = isend;
        memcpy(block.data, shown.data(), shown.size());
        return block;
    }

    // A block in which every byte is set, to see what a call writes.
    static LogBuf Junk()
    {
        LogBuf block;
        memset(static_cast<void *>(&block), kUntouchedByte, sizeof block);
        return block;
    }

    static bool Same(const LogBuf &a, const LogBuf &b)
    {
        return a.start == b.start && a.length == b.length && a.linepos == b.linepos &&
               a.isend == b.isend && memcmp(a.data, b.data, sizeof a.data) == 0;
    }

    static bool IsCleared(const LogBuf &block) { return Same(block, LogBuf{}); }

    // ---- the trace ----

    // What the reader reported as an error (1) or a system failure (2): "1 GetNextLine: text".
    static Texts Complaints()
    {
        Texts texts;
        for (const auto &record : Host().trace) {
            if (record.unit == "fileacc" && record.level != 0)
                texts.push_back(std::to_string(record.level) + " " + record.function + ": " +
                                record.text);
        }
        return texts;
    }

    // What a function of the reader traced, but for its entry mark, each with its level: "0 <".
    static Texts Said(const std::string &function)
    {
        Texts texts;
        for (const auto &record : Host().trace) {
            if (record.function == function && record.text.substr(0, 1) != ">") {
                EXPECT_EQ("fileacc", record.unit);
                texts.push_back(std::to_string(record.level) + " " + record.text);
            }
        }
        return texts;
    }

    static void ForgetTrace() { Host().trace.clear(); }

    // Numbers that are the same in every run, so that a failure can be seen again.
    static std::mt19937 Random(uint32_t seed) { return std::mt19937(seed); }

    // ---- the system ----

    static int64_t OpenDescriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    }

  private:
    static Step Take(int (*step)(int64_t *, char *, int), int size)
    {
        LineBuffer buffer(size);
        int64_t pos = kUntouchedPos;
        const int result = step(&pos, buffer.data(), size);
        EXPECT_TRUE(BlockIsSound(curblock));
        return {result, pos, buffer.Text()};
    }
};

} // namespace test

#endif // TESTS_UNIT_FILEACC_READER_FIXTURE_H
