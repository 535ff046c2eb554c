// A file that is written whole, and what else people name where one is written.
#include "agent/text/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "tests/agent/support/host_test.h"

namespace {

namespace fs = std::filesystem;

class WholeFile : public test::RootTest {
  protected:
    // Files of a folder of its own.
    WholeFile() { fs::create_directory(folder_); }
    [[nodiscard]] size_t Files() const
    {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
    }
    [[nodiscard]] std::string ErrorOfWriting(const fs::path &path) const
    {
        return test::ErrorOf([&] { text::WriteWhole(path, "new"); });
    }

    fs::path folder_ = File("out");
    fs::path file_ = folder_ / "page.html";
    fs::path link_ = folder_ / "link";
};

TEST_F(WholeFile, TakesThePlaceOfTheOneBefore)
{
    for (const char *content : {"first", "second"}) {
        text::WriteWhole(file_, content);
        EXPECT_EQ(content, test::ReadFile(file_));
        EXPECT_EQ(fs::perms(0644), fs::status(file_).permissions());
        EXPECT_EQ(1U, Files());
    }
}

TEST_F(WholeFile, ThatCannotBeWrittenLeavesWhatWasThere)
{
    EXPECT_EQ("cannot write " + folder_.string() +
                  ": Is a directory; make its folder writable, make room, or name another file",
              ErrorOfWriting(folder_));
    EXPECT_EQ(0U, Files());
    EXPECT_TRUE(ErrorOfWriting(folder_ / "none" / "x").ends_with("name another file"));
}

TEST_F(WholeFile, ADeviceIsWrittenIntoAndStaysOne)
{
    fs::create_symlink("/dev/null", link_);
    text::WriteWhole(link_, "new");
    EXPECT_TRUE(fs::is_symlink(link_));
    EXPECT_TRUE(fs::is_character_file(link_));
    EXPECT_EQ(1U, Files());
}

TEST_F(WholeFile, ADeviceThatTakesNothingIsTold)
{
    fs::create_symlink("/dev/full", link_);
    EXPECT_EQ(
        "cannot write " + link_.string() +
            ": No space left on device; make its folder writable, make room, or name another file",
        ErrorOfWriting(link_));
    EXPECT_TRUE(fs::is_character_file(link_));
}

TEST_F(WholeFile, APipeIsWrittenIntoAndStaysOne)
{
    ASSERT_EQ(0, mkfifo(file_.c_str(), 0600));
    const host::Fd reader(open(file_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    text::WriteWhole(file_, "new");
    char got[8] = "";
    EXPECT_EQ(3, read(reader.get(), got, sizeof got));
    EXPECT_STREQ("new", got);
    EXPECT_TRUE(fs::is_fifo(file_));
}

TEST_F(WholeFile, ALinkToAFileIsLeftAloneWithTheFile)
{
    test::WriteFile(file_, "old");
    fs::create_symlink(file_, link_);
    EXPECT_EQ("cannot write " + link_.string() + ": it is a link, or no file; name the file itself",
              ErrorOfWriting(link_));
    EXPECT_TRUE(fs::is_symlink(link_));
    EXPECT_EQ("old", test::ReadFile(file_));
    fs::remove(file_);
    EXPECT_NE("no error", ErrorOfWriting(link_)) << "nor is one made where it leads";
    EXPECT_FALSE(fs::exists(file_));
}

} // namespace
