// What `input test` shows of an input, and what is said of options with a mistake in them.
#include "agent/inputs/sample.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "agent/host/error.h"
#include "agent/inputs/line_origin.h"
#include "tests/agent/inputs/log_world.h"

namespace {

using inputs::InputConfig;
using test::LogLine;

using Words = std::vector<std::string>;

class SampleTest : public testing::Test, protected test::LogWorld {
  protected:
    [[nodiscard]] inputs::Sample Take(const std::string &pattern, size_t entries = 10) const
    {
        return inputs::TakeSample({1, "app", inputs::kFilesKind, {{"path", {Path(pattern)}}}},
                                  "UTF-8", entries);
    }
    // The messages without what stands before them.
    static Words Messages(const inputs::Sample &sample)
    {
        Words messages;
        for (const std::string &line : sample.lines)
            messages.emplace_back(inputs::OriginOfLine(line).message);
        return messages;
    }
    // So that the order of the writing does not depend on the clock of the file system.
    void WasWritten(const std::string &name, time_t seconds) const
    {
        const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, Path(name).c_str(), times, 0));
    }
};

// More than is held of it at a time.
std::string LongLog(int lines)
{
    std::string text;
    for (int i = 0; i < lines; ++i)
        text += LogLine("line " + std::to_string(i) + std::string(100, '.'));
    return text;
}

class SamplePackedTest : public SampleTest, public testing::WithParamInterface<const char *> {};

TEST_P(SamplePackedTest, ACompressedFileShowsItsLastEntries)
{
    Write("plain", LongLog(5000) + LogLine("last but one") + LogLine("last"));
    Pack("plain", "app.log.gz", GetParam());
    const inputs::Sample sample = Take("app.log.gz");
    ASSERT_EQ(10U, sample.lines.size());
    EXPECT_EQ("line 4992" + std::string(100, '.'), Messages(sample).front());
    EXPECT_EQ("last", Messages(sample).back());
    EXPECT_EQ(Words{}, sample.problems);
}
INSTANTIATE_TEST_SUITE_P(All, SamplePackedTest, testing::Values("gzip", "xz", "zstd", "bzip2"),
                         [](const auto &test) { return std::string(test.param); });

TEST_F(SampleTest, APlainFileShowsItsLastEntries)
{
    Write("app.log", LongLog(5000) + LogLine("last"));
    const inputs::Sample sample = Take("app.log");
    ASSERT_EQ(10U, sample.lines.size());
    EXPECT_EQ("last", Messages(sample).back());
}

TEST_F(SampleTest, OfSeveralFilesTheOneThatWasWrittenLastComesLast)
{
    Write("a.log", LogLine("new"));
    Write("b.log", LogLine("old 1") + LogLine("old 2"));
    WasWritten("a.log", 2000);
    WasWritten("b.log", 1000);
    EXPECT_EQ((Words{"old 1", "old 2", "new"}), Messages(Take("*.log")));
    EXPECT_EQ((Words{"old 2", "new"}), Messages(Take("*.log", 2)));
}

TEST_F(SampleTest, ABrokenArchiveShowsWhatCanBeReadAndIsNamed)
{
    Write("plain", LongLog(20000));
    Pack("plain", "whole", "gzip");
    const std::string whole = Content("whole");
    Write("app.log.gz", whole.substr(0, whole.size() / 2));
    const inputs::Sample sample = Take("app.log.gz");
    EXPECT_EQ(10U, sample.lines.size());
    ASSERT_EQ(1U, sample.problems.size());
    EXPECT_EQ(0U, sample.problems[0].find("cannot read " + Path("app.log.gz") + ": it is damaged"))
        << sample.problems[0];
}

TEST_F(SampleTest, AFileThatIsNotShownIsLookedAtAllTheSame)
{
    Write("a.log", LogLine("new"));
    Write("b.gz", "\x1f\x8b and no archive");
    WasWritten("b.gz", 1000);
    const inputs::Sample sample = Take("[ab].*", 1);
    EXPECT_EQ(Words{"new"}, Messages(sample));
    ASSERT_EQ(1U, sample.problems.size());
    EXPECT_EQ(0U, sample.problems[0].find("cannot read " + Path("b.gz"))) << sample.problems[0];
}

// ---- options ----

std::string Refusal(const InputConfig &config)
{
    try {
        inputs::CheckInput(config);
    } catch (const host::Error &error) {
        return error.what();
    }
    return "";
}

TEST(InputOptions, OfAMistypedNameTheOneThatWasMeantIsNamed)
{
    const std::string files = Refusal({0, "app", "files", {{"pth", {"/var/log/app.log"}}}});
    EXPECT_EQ(
        "cannot use the option \"pth\": an input of the kind files has none of that name; did "
        "you mean path? use one of path, exclude, format, encoding, join, begins-with, "
        "identifier, repeats, begin",
        files);
    const std::string journal = Refusal({0, "app", "journal", {{"priorty", {"warning"}}}});
    EXPECT_NE(std::string::npos, journal.find("did you mean priority? use one of match, priority"))
        << journal;
    const std::string kind = Refusal({0, "app", "jurnal", {}});
    EXPECT_NE(std::string::npos, kind.find("did you mean journal? use files or journal")) << kind;
}

TEST(InputOptions, OfANameThatIsNearNoneNothingIsMeant)
{
    const std::string text = Refusal({0, "app", "files", {{"wibble", {"1"}}}});
    EXPECT_NE(std::string::npos, text.find("none of that name; use one of path")) << text;
}

} // namespace
