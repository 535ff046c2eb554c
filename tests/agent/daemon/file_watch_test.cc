// When a file counts as changed: whatever happens to it, to the directories above it and to the
// links on the way.
#include "agent/daemon/file_watch.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/agent/support/host_test.h"
#include "tests/agent/support/inotify_queue.h"

namespace {

// What the next calls of the C library do: 0, or the error they fail with.
int fail_init = 0;
int fail_add = 0;

} // namespace

extern "C" {

int __real_inotify_init1(int flags);
int __real_inotify_add_watch(int fd, const char *path, uint32_t mask);

int __wrap_inotify_init1(int flags)
{
    errno = fail_init;
    return fail_init != 0 ? -1 : __real_inotify_init1(flags);
}

int __wrap_inotify_add_watch(int fd, const char *path, uint32_t mask)
{
    errno = fail_add;
    return fail_add != 0 ? -1 : __real_inotify_add_watch(fd, path, mask);
}

} // extern "C"

namespace {

namespace fs = std::filesystem;

using syslogmond::FileWatch;

class FileWatchTest : public testing::Test {
  protected:
    ~FileWatchTest() override
    {
        fail_init = 0;
        fail_add = 0;
    }
    [[nodiscard]] fs::path Place(const std::string &name) const { return folder_.path() / name; }
    static void Append(const fs::path &path, const std::string &text)
    {
        const host::Fd file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_EQ(static_cast<ssize_t>(text.size()), write(file.get(), text.data(), text.size()));
    }
    // Is there anything to take?
    [[nodiscard]] bool IsQuiet() const
    {
        pollfd waiting{watch.ChangesFd(), POLLIN, 0};
        return poll(&waiting, 1, 0) == 0;
    }

    FileWatch watch;

  private:
    test::TempFolder folder_;
};

TEST_F(FileWatchTest, AFileThatIsWrittenHasChanged)
{
    Append(Place("log"), "one\n");
    EXPECT_TRUE(watch.Follow({Place("log")}));
    EXPECT_FALSE(watch.Take());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
    EXPECT_FALSE(watch.Take());
}

TEST_F(FileWatchTest, ManyWritesAreOneChange)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    for (int i = 0; i < 1000; ++i)
        Append(Place("log"), "line\n");
    EXPECT_TRUE(watch.Take());
    EXPECT_TRUE(IsQuiet());
}

TEST_F(FileWatchTest, AFileThatIsCutHasChanged)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    ASSERT_EQ(0, truncate(Place("log").c_str(), 0));
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, WritesToOtherFilesOfTheDirectoryAreNotEvenNoticed)
{
    Append(Place("log"), "one\n");
    Append(Place("other"), "one\n");
    watch.Follow({Place("log")});
    Append(Place("other"), "two\n");
    EXPECT_TRUE(IsQuiet());
}

TEST_F(FileWatchTest, OtherFilesThatAppearAreNoChange)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    Append(Place("other"), "one\n");
    EXPECT_FALSE(IsQuiet());
    EXPECT_FALSE(watch.Take());
}

TEST_F(FileWatchTest, AfterARotationTheNewFileIsWatched)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    fs::rename(Place("log"), Place("log.1"));
    EXPECT_TRUE(watch.Take());
    Append(Place("log.1"), "late\n"); // by a writer that has not heard of it
    EXPECT_FALSE(watch.Take());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, AFileThatIsReplacedAtOnceIsWatchedAnew)
{
    Append(Place("log"), "one\n");
    Append(Place("new"), "two\n");
    watch.Follow({Place("log")});
    fs::rename(Place("new"), Place("log"));
    EXPECT_TRUE(watch.Take());
    Append(Place("log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, AFileThatIsRemovedAndWrittenAgainIsWatchedAnew)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    fs::remove(Place("log"));
    EXPECT_TRUE(watch.Take());
    EXPECT_FALSE(watch.Take());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, DirectoriesThatAppearOneAfterTheOtherAreFollowedDownToTheFile)
{
    watch.Follow({Place("a/b/c/log")});
    for (const char *name : {"a", "a/b", "a/b/c"}) {
        fs::create_directory(Place(name));
        EXPECT_TRUE(watch.Take()) << name;
        EXPECT_TRUE(IsQuiet());
    }
    Append(Place("a/b/c/log"), "one\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("a/b/c/log"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, DirectoriesThatAppearAtOnceAreFollowedDownToTheFile)
{
    watch.Follow({Place("a/b/c/log")});
    fs::create_directories(Place("a/b/c"));
    Append(Place("a/b/c/log"), "one\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("a/b/c/log"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, ADirectoryFarAboveThatIsRenamedIsNoticedAndFoundAgain)
{
    fs::create_directories(Place("a/b/c"));
    Append(Place("a/b/c/log"), "one\n");
    watch.Follow({Place("a/b/c/log")});
    fs::rename(Place("a"), Place("z"));
    EXPECT_TRUE(watch.Take());
    Append(Place("z/b/c/log"), "two\n");
    EXPECT_FALSE(watch.Take());
    EXPECT_TRUE(IsQuiet());
    fs::rename(Place("z"), Place("a"));
    EXPECT_TRUE(watch.Take());
    Append(Place("a/b/c/log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, ADirectoryThatIsRemovedAndMadeAgainIsFoundAgain)
{
    fs::create_directory(Place("a"));
    Append(Place("a/log"), "one\n");
    watch.Follow({Place("a/log")});
    fs::remove_all(Place("a"));
    EXPECT_TRUE(watch.Take());
    EXPECT_FALSE(watch.Take());
    fs::create_directory(Place("a"));
    Append(Place("a/log"), "two\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("a/log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, AFileBehindALinkIsWatchedWhereItIs)
{
    fs::create_directory(Place("disk"));
    Append(Place("disk/real"), "one\n");
    fs::create_symlink("disk/real", Place("log"));
    watch.Follow({Place("log")});
    Append(Place("disk/real"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, ALinkOnTheWayThatIsExchangedIsFollowed)
{
    for (const char *name : {"disk1", "disk2"}) {
        fs::create_directory(Place(name));
        Append(Place(name) / "log", "one\n");
    }
    fs::create_symlink(Place("disk1"), Place("current"));
    watch.Follow({Place("current/log")});
    fs::create_symlink(Place("disk2"), Place("next"));
    fs::rename(Place("next"), Place("current"));
    EXPECT_TRUE(watch.Take());
    Append(Place("disk2/log"), "two\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("disk1/log"), "two\n");
    EXPECT_FALSE(watch.Take());
}

TEST_F(FileWatchTest, LinksThatPointAtEachOtherEnd)
{
    fs::create_symlink("b", Place("a"));
    fs::create_symlink("a", Place("b"));
    watch.Follow({Place("a/log")});
    EXPECT_FALSE(watch.Take());
    EXPECT_EQ("", watch.problem());
}

TEST_F(FileWatchTest, ANameThatIsNoFileIsWatchedUntilItIsOne)
{
    fs::create_directory(Place("log"));
    watch.Follow({Place("log"), Place("log/below")});
    Append(Place("log/below"), "one\n");
    EXPECT_TRUE(watch.Take());
    fs::remove_all(Place("log"));
    Append(Place("log"), "one\n");
    EXPECT_TRUE(watch.Take());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, SeveralFilesAreWatchedAndOtherOnesLater)
{
    for (const char *name : {"one", "two", "three"})
        Append(Place(name), "line\n");
    watch.Follow({Place("one"), Place("two")});
    for (const char *name : {"one", "two"}) {
        Append(Place(name), "line\n");
        EXPECT_TRUE(watch.Take()) << name;
    }
    EXPECT_TRUE(watch.Follow({Place("two"), Place("three")}));
    EXPECT_FALSE(watch.Follow({Place("two"), Place("three")}));
    Append(Place("one"), "line\n");
    EXPECT_FALSE(watch.Take());
    Append(Place("three"), "line\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, WithoutFilesNothingIsOpen)
{
    Append(Place("log"), "one\n");
    EXPECT_FALSE(watch.Follow({}));
    EXPECT_EQ(-1, watch.ChangesFd());
    watch.Follow({Place("log")});
    EXPECT_TRUE(watch.Follow({}));
    EXPECT_EQ(-1, watch.ChangesFd());
    EXPECT_EQ(-1, watch.MountsFd());
    EXPECT_FALSE(watch.Take());
}

TEST_F(FileWatchTest, LookingAgainFindsNothingNewWhereNothingIs)
{
    Append(Place("log"), "one\n");
    watch.Follow({Place("log")});
    EXPECT_FALSE(watch.LookAgain());
}

// ---- limits ----

// More than the kernel keeps: what comes behind that, it drops.
TEST_F(FileWatchTest, ARotationOfWhichTheNewsWereDroppedIsFollowedAllTheSame)
{
    Append(Place("log"), "one\n");
    Append(Place("other"), "one\n");
    watch.Follow({Place("log")});
    test::FillInotifyQueue(Place("other"));
    fs::rename(Place("log"), Place("log.1"));
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
    EXPECT_TRUE(IsQuiet());
    Append(Place("log"), "three\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, TheLimitOfWatchesIsToldAndTriedAgain)
{
    Append(Place("log"), "one\n");
    fail_add = ENOSPC;
    watch.Follow({Place("log")});
    EXPECT_NE(std::string::npos,
              watch.problem().find("for changes: the limit of inotify watches is reached; raise "
                                   "fs.inotify.max_user_watches with sysctl"))
        << watch.problem();
    EXPECT_FALSE(watch.LookAgain()) << "nothing is better than before";
    fail_add = 0;
    EXPECT_TRUE(watch.LookAgain());
    EXPECT_EQ("", watch.problem());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, TheLimitOfInstancesIsToldAndTriedAgain)
{
    Append(Place("log"), "one\n");
    fail_init = EMFILE;
    watch.Follow({Place("log")});
    EXPECT_EQ("cannot watch the monitored files for changes: the limit of inotify instances, or of "
              "open files, is reached; raise fs.inotify.max_user_instances with sysctl",
              watch.problem());
    EXPECT_EQ(-1, watch.ChangesFd());
    EXPECT_FALSE(watch.Take());
    fail_init = 0;
    EXPECT_TRUE(watch.LookAgain());
    EXPECT_EQ("", watch.problem());
    Append(Place("log"), "two\n");
    EXPECT_TRUE(watch.Take());
}

TEST_F(FileWatchTest, AFileThatMayNotBeReadIsNamed)
{
    Append(Place("log"), "one\n");
    fail_add = EACCES;
    watch.Follow({Place("log")});
    EXPECT_EQ("cannot watch " + Place("log").string() + " for changes: Permission denied",
              watch.problem());
}

} // namespace
