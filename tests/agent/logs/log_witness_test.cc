// What the witness of a log tells when the calls fail with which it looks at the files.
#include "agent/logs/log_witness.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/agent/support/host_test.h"

namespace {

// Which of the next calls fails, from 1, and with what; 0: none.
int number_of_failing = 0;
int error_of_failing = 0;
int calls = 0;

bool Fails()
{
    if (++calls != number_of_failing)
        return false;
    errno = error_of_failing;
    return true;
}

} // namespace

extern "C" {

int __real_open(const char *path, int flags, ...);
int __real_stat(const char *path, struct stat *status);
int __real_lstat(const char *path, struct stat *status);
int __real_fstat(int fd, struct stat *status);
ssize_t __real_pread(int fd, void *buffer, size_t size, off_t offset);

int __wrap_open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return Fails() ? -1 : __real_open(path, flags, mode);
}

int __wrap_stat(const char *path, struct stat *status)
{
    return Fails() ? -1 : __real_stat(path, status);
}

int __wrap_lstat(const char *path, struct stat *status)
{
    return Fails() ? -1 : __real_lstat(path, status);
}

int __wrap_fstat(int fd, struct stat *status)
{
    return Fails() ? -1 : __real_fstat(fd, status);
}

ssize_t __wrap_pread(int fd, void *buffer, size_t size, off_t offset)
{
    return Fails() ? -1 : __real_pread(fd, buffer, size, offset);
}

} // extern "C"

namespace {

namespace fs = std::filesystem;

using logs::LogLoss;
using logs::LogWitness;

// All lines of the story have this size, with their newline: more than that of the heads and tails by which files are
// known. So each line begins and ends with its number.
constexpr int64_t kLine = 300;

// A log, and what the monitor reads of it, in which nothing is lost: it goes on, is rotated, copied and truncated, and cut
// off; the daemon is started anew.
class Story {
  public:
    Story() { witness_.emplace(log_, std::vector<logs::FileRecord>{}); }

    // What is told of it.
    std::vector<std::string> Tell()
    {
        Append(3);
        Read({Part(log_, -1, 2, true)});
        Append(3);
        Read({Part(log_, 3, 5)});
        Append(1);
        fs::rename(log_, first_);
        Append(2);
        Read({Part(first_, 6, 6), Part(log_, 0, 1)});
        Restart();
        Append(1);
        Read({Part(log_, 2, 2)});
        Append(1);
        fs::copy_file(log_, copy_);
        fs::resize_file(log_, 0);
        Append(1);
        Read({Part(copy_, 3, 3), Part(log_, 0, 0)});
        Append(3);
        Read({Part(log_, 1, 3)});
        fs::resize_file(log_, 2 * kLine);
        Append(1);
        Read({Part(log_, 2, 2)});
        fs::rename(log_, second_);
        Append(1);
        Restart();
        Read({Part(second_, -1, 2), Part(log_, 0, 0)});
        return told_;
    }

    // Behind it, two lines are passed over.
    std::vector<std::string> TellOfLoss()
    {
        told_.clear();
        Append(1);
        Read({Part(log_, 1, 1)});
        Append(3);
        Read({Part(log_, 4, 4)});
        return told_;
    }

    [[nodiscard]] bool CouldReadAll() const { return could_read_all_; }

  private:
    void Append(int lines)
    {
        std::ofstream file(log_, std::ios::app);
        for (; lines > 0; --lines, ++number_)
            file << number_ << std::string(kLine - 9, '.') << number_ << '\n';
    }
    // Of lines that are counted from 0; the first one -1: none was read, the place is behind the last one.
    static LogPart Part(const fs::path &file, int64_t first, int64_t last, bool is_afresh = false)
    {
        struct stat status {};
        EXPECT_EQ(0, __real_stat(file.c_str(), &status));
        const int64_t begin = first < 0 ? -1 : first * kLine;
        return {0,     is_afresh ? 1 : 0, status.st_dev, status.st_ino,
                begin, last * kLine,      last * kLine};
    }
    void Read(const std::vector<LogPart> &parts)
    {
        for (const LogLoss &loss : witness_->Take(parts))
            told_.push_back(TextOf(loss));
        could_read_all_ = could_read_all_ && witness_->CouldRead();
    }
    void Restart() { witness_.emplace(log_, witness_->Records()); }

    test::TempFolder folder_;
    fs::path log_ = folder_.path() / "log";
    fs::path first_ = folder_.path() / "log.1";
    fs::path copy_ = folder_.path() / "log.2";
    fs::path second_ = folder_.path() / "log.3";
    std::optional<LogWitness> witness_;
    std::vector<std::string> told_;
    int number_ = 1000;
    bool could_read_all_ = true;
};

class LogWitnessTest : public testing::TestWithParam<int> {
  protected:
    ~LogWitnessTest() override { FailAt(0); }
    // Counts from here.
    static void FailAt(int number)
    {
        calls = 0;
        number_of_failing = number;
        error_of_failing = GetParam();
    }
};

TEST_P(LogWitnessTest, WhereACallFailsNothingIsToldThatDidNotHappen)
{
    FailAt(0);
    {
        Story story;
        EXPECT_EQ(std::vector<std::string>{}, story.Tell());
        EXPECT_TRUE(story.CouldReadAll());
    }
    const int all = calls;
    EXPECT_LT(100, all);
    int not_read = 0;
    for (int number = 1; number <= all; ++number) {
        Story story;
        FailAt(number);
        EXPECT_EQ(std::vector<std::string>{}, story.Tell()) << "call " << number;
        not_read += story.CouldReadAll() ? 0 : 1;
        FailAt(0);
        EXPECT_EQ(1U, story.TellOfLoss().size()) << "call " << number;
    }
    EXPECT_LT(20, not_read);
}

// Files that the monitor has not seen are looked for among those that are newer than the last one that it knew.
TEST(LogWitnessAfterARestart, TakesNoFileForAnotherOneBecauseTheClockWasSetBack)
{
    const test::TempFolder folder;
    const fs::path log = folder.path() / "log";
    const fs::path backup = folder.path() / "log.1";
    const auto write = [&](const char *text, fs::file_time_type when) {
        std::ofstream(log) << text;
        fs::last_write_time(log, when);
    };
    const auto part = [](const fs::path &file, int64_t first, bool is_afresh) {
        struct stat status {};
        EXPECT_EQ(0, __real_stat(file.c_str(), &status));
        return LogPart{0, is_afresh ? 1 : 0, status.st_dev, status.st_ino, first, first, 0};
    };
    const auto now = fs::file_time_type::clock::now();
    write("read before\n", now);
    LogWitness before(log, {});
    before.Take({part(log, -1, true)});
    fs::rename(log, backup);
    write("read by an earlier clock\n", now - std::chrono::hours(24));
    EXPECT_TRUE(before.Take({part(backup, -1, false), part(log, 0, false)}).empty());
    fs::remove(log);
    LogWitness witness(log, before.Records());
    write("passed over\n", now);
    const std::vector<LogLoss> told = witness.Take({part(log, -1, true)});
    ASSERT_EQ(1U, told.size());
    EXPECT_EQ(log, told.front().file);
}

INSTANTIATE_TEST_SUITE_P(With, LogWitnessTest, testing::Values(EIO, EMFILE, ENOMEM));

} // namespace
