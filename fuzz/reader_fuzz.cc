// The reader and the resuming, beside a plain split of the file and the slow twin. Input: resume point
// (offset, text), end of the last pass, then the bytes of the file.
#include <algorithm>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "fileacc/fileacc.h"
#include "fuzz/fuzz.h"
#include "regacc/last_end_time.h"
#include "tests/support/outcome.h"
#include "tests/support/scripted_host.h"
#include "tests/support/system.h"
#include "tests/support/twin/reader.h"

namespace {

constexpr time_t kClock = 1710072000; // 10 March 2024, 12:00 UTC

// A file in memory with these bytes. Returns its path.
std::string MakeFile(const std::string &bytes)
{
    static const int fd = memfd_create("log", 0);
    fuzz::Expect(ftruncate(fd, 0) == 0 && pwrite(fd, bytes.data(), bytes.size(), 0) ==
                                              static_cast<ssize_t>(bytes.size()),
                 "the file cannot be written");
    return "/proc/self/fd/" + std::to_string(fd);
}

// A file written this moment might be waited for; this one is old.
void BeLongAfterwards()
{
    test::Sys().now = kClock;
}

void Sound(const char *when)
{
    fuzz::Expect(BlockIsSound(curblock), std::string("an unsound block ") + when);
}

std::string Cut(const std::string &text)
{
    return text.substr(0, kLineBufferSize - 1);
}

using Step = int (*)(int64_t *, char *, int);

void ExpectStep(Step step, const test::twin::PlainLine &line)
{
    char text[kLineBufferSize];
    int64_t pos = -1;
    fuzz::Expect(step(&pos, text, sizeof text) == 0, "no line at " + std::to_string(line.pos));
    Sound("after a step");
    fuzz::Expect(pos == line.pos && Cut(line.text) == text,
                 "another line at " + std::to_string(pos));
}

// Forwards over the whole file, and back again when every line fits into a block.
void WalkPlainly(const std::string &bytes)
{
    const std::vector<test::twin::PlainLine> lines = test::twin::SplitPlainly(bytes);
    GetBlockAt(0, kBlockSize, &curblock);
    Sound("after a load");
    TrimBlockRight(&curblock);
    Sound("after a trim");
    for (const auto &line : lines) {
        fuzz::Expect(FEof() == 0, "the end before " + std::to_string(line.pos));
        ExpectStep(GetNextLine, line);
    }
    fuzz::Expect(FEof() == 1, "no end of the file");
    const bool all_fit = std::all_of(lines.begin(), lines.end(), [](const auto &line) {
        return static_cast<int64_t>(line.text.size()) < kBlockSize;
    });
    for (size_t i = lines.size() - 1; all_fit && i-- > 0;) {
        fuzz::Expect(FBegin() == 0, "the head behind " + std::to_string(lines[i].pos));
        ExpectStep(GetPreLine, lines[i]);
    }
    fuzz::Expect(!all_fit || FBegin() == 1, "no head of the file");
}

// Resumes, and reads on to the end.
template <typename Goto, typename Next, typename IsEnd>
test::Outcome Resume(int64_t pos, const std::string &text, Goto go, Next next, IsEnd is_end)
{
    test::BeginOutcome();
    char content[kLineBufferSize] = {};
    memcpy(content, text.c_str(), text.size() + 1);
    int result = go(&pos, content);
    test::NoteStep(std::to_string(result) + " " + std::to_string(pos) + " " + content);
    for (int lines = 0; result == 0 && lines < 50 && is_end() == 0; ++lines) {
        result = next(&pos, content);
        test::NoteStep(std::to_string(result) + " " + std::to_string(pos) + " " + content);
    }
    return test::TakeOutcome();
}

void ResumeLikeTheTwin(const std::string &bytes, int64_t pos, const std::string &text)
{
    test::twin::Reader twin;
    twin.bytes = bytes;
    twin.length = static_cast<int64_t>(bytes.size());
    const test::Outcome slow = Resume(
        pos, text,
        [&](int64_t *at, char *content) {
            return twin.GotoPos(at, content, kLineBufferSize, lastendtime);
        },
        [&](int64_t *at, char *content) { return twin.GetNextLine(at, content, kLineBufferSize); },
        [&] { return twin.FEof(); });
    const test::Outcome fast = Resume(
        pos, text,
        [](int64_t *at, char *content) {
            const int result = GotoPos(at, content, kLineBufferSize);
            Sound("after resuming");
            return result;
        },
        [](int64_t *at, char *content) {
            const int result = GetNextLine(at, content, kLineBufferSize);
            Sound("after a step from the resume point");
            return result;
        },
        [] { return FEof(); });
    const std::string difference = test::Difference(slow, fast);
    fuzz::Expect(difference.empty(), difference);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    fuzz::StartOver();
    setenv("TZ", "UTC0", 1);
    tzset();
    BeLongAfterwards();
    auto pos = static_cast<int64_t>(input.Number(3)) - 2;
    const std::string text = Cut(input.Text(kLineBufferSize - 1));
    lastendtime = kClock - static_cast<time_t>(input.Number(2));
    const uint8_t stretch = input.Byte();
    std::string bytes = input.Rest();
    if (bytes.empty())
        return 0;
    // Small inputs reach the borders of blocks when one of their lines is drawn out.
    if ((stretch & 1U) != 0)
        bytes.insert((stretch >> 1U) % bytes.size(), (kBlockSize / 2) * (stretch >> 5U), 'x');
    pos = pos % static_cast<int64_t>(bytes.size() + 3);

    test::Host().record_trace = false;
    fuzz::Expect(InitFile(MakeFile(bytes).c_str()) == 0, "the file cannot be opened");
    WalkPlainly(bytes);
    test::Host().record_trace = true;
    ResumeLikeTheTwin(bytes, pos, text);
    FinishFile();
    return 0;
}
