// A store that cannot be used: damaged, empty, cut, read-only, of another version, on a full disk.
// It is never taken for an empty registry.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using host::kRootKey;
using host::Role;
using test::ErrorOf;
using test::Finished;
using test::Helper;
using test::RunToEnd;

constexpr size_t kPage = 4096;
constexpr int kKeys = 400;

std::string KeyName(int number)
{
    return "Key" + std::to_string(number) + std::string(60, 'k');
}

class Damage : public test::RootTest {
  protected:
    ~Damage() override { test::StopHost(); }

    [[nodiscard]] std::filesystem::path Path() const { return Layout().Store(); }
    std::string Start(Role role = Role::kCommand) const
    {
        return ErrorOf([&] { test::StartHost(Layout(), role); });
    }
    void MakeStore() const
    {
        test::StartHost(Layout(), Role::kCommand);
        {
            host::Transaction transaction(test::Store());
            for (int i = 0; i < kKeys; ++i)
                test::SetTreeText("Root\\" + KeyName(i), "value", std::string(100, 'v'));
            transaction.Commit();
        }
        test::StopHost();
        ASSERT_FALSE(std::filesystem::exists(Path().string() + "-wal"));
    }
    void ExecuteSql(const char *sql) const
    {
        host::Database(Path(), host::Database::Mode::kReadWrite).Execute(sql);
    }
    // Reads everything that MakeStore has written: "whole", or the error.
    [[nodiscard]] std::string ReadAll() const
    {
        const std::string error = ErrorOf([&] {
            test::StartHost(Layout(), Role::kCommand);
            auto &tree = test::Registry();
            const auto root = tree.Find(kRootKey, "Root");
            if (!root || tree.SubKeys(*root).size() != kKeys)
                throw host::Error("keys are missing");
            for (int i = 0; i < kKeys; ++i) {
                const auto key = tree.Find(*root, KeyName(i));
                if (!key || !tree.Get(*key, "value"))
                    throw host::Error("a value is missing");
            }
        });
        test::StopHost();
        return error == "no error" ? "whole" : error;
    }
};

// ---- what a file is not ----

TEST_F(Damage, AnEmptyFileIsNoEmptyRegistry)
{
    Layout().CreateFolders();
    test::WriteFile(Path(), "");
    const std::string expected =
        "cannot use " + Path().string() + ": the file is empty; " + host::kReplaceStore;
    EXPECT_EQ(expected, Start());
    EXPECT_EQ(expected, Start(Role::kDaemon));
    EXPECT_EQ("", test::ReadFile(Path()));
}

TEST_F(Damage, AFileOfAnotherKindIsRefused)
{
    Layout().CreateFolders();
    test::WriteFile(Path(), std::string(10000, 'x'));
    EXPECT_EQ("cannot use " + Path().string() + ": file is not a database; the file is damaged; " +
                  host::kReplaceStore,
              Start());
    EXPECT_EQ(std::string(10000, 'x'), test::ReadFile(Path()));
}

TEST_F(Damage, AFolderInItsPlaceIsRefused)
{
    std::filesystem::create_directories(Path());
    EXPECT_EQ(0U, Start().find("cannot open " + Path().string() + ": "));
}

TEST_F(Damage, AStoreOfANewerVersionIsRefused)
{
    MakeStore();
    ExecuteSql("PRAGMA user_version = 99");
    EXPECT_EQ("cannot use " + Path().string() +
                  ": it was written by a newer version of this program; install that version again",
              Start());
}

TEST_F(Damage, ADatabaseOfAnotherProgramIsRefused)
{
    Layout().CreateFolders();
    test::WriteFile(Path(), "");
    ExecuteSql("CREATE TABLE other (x)");
    EXPECT_EQ("cannot use " + Path().string() + ": it is not a store of the agent; " +
                  host::kReplaceStore,
              Start());
}

TEST_F(Damage, AFolderThatCannotBeMadeIsNamed)
{
    test::WriteFile(File("state"), "in the way");
    const std::string error = Start();
    EXPECT_EQ(0U, error.find("cannot create the folder " + File("state").string() + ": ")) << error;
    EXPECT_NE(std::string::npos,
              error.find("; run as root, or name a folder of your own with --root"));
}

TEST_F(Damage, AHostThatCouldNotStartIsNotStarted)
{
    Layout().CreateFolders();
    test::WriteFile(Path(), "");
    Start();
    EXPECT_FALSE(test::HasHost());
    EXPECT_EQ("the host library cannot be used: it was not started; this is a fault of the "
              "program; report it",
              ErrorOf([] { host::Current(); }));
    HKEY key = nullptr;
    EXPECT_NE(ERROR_SUCCESS, RegOpenKeyEx(HKEY_LOCAL_MACHINE, "", 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_INVALID_HANDLE, RegCloseKey(reinterpret_cast<HKEY>(0x10000000)));
}

// ---- damage inside ----

TEST_F(Damage, CutAtAnyPlaceItIsNeverAnEmptyRegistry)
{
    MakeStore();
    const std::string whole = test::ReadFile(Path());
    ASSERT_EQ("whole", ReadAll());
    ASSERT_GT(whole.size(), 10 * kPage);
    for (size_t page = 0; page < whole.size() / kPage; ++page) {
        for (const size_t more : {size_t{0}, size_t{1}, size_t{100}, size_t{512}, kPage / 2}) {
            const std::string cut = whole.substr(0, page * kPage + more);
            test::WriteFile(Path(), cut);
            const std::string daemon = Start(Role::kDaemon);
            test::StopHost();
            EXPECT_EQ(0U, daemon.find("cannot ")) << page << "+" << more << ": " << daemon;
            EXPECT_NE(std::string::npos, daemon.find(Path().string()));
            const std::string command = ReadAll();
            EXPECT_TRUE(command == "whole" || command.find("cannot ") == 0)
                << page << "+" << more << ": " << command;
        }
    }
}

TEST_F(Damage, AJournalCutAtAnyPlaceLeavesAStateThatWasStored)
{
    // The journal of a process that was killed: ten changes that are not in the file yet.
    MakeStore();
    test::StartHost(Layout(), Role::kCommand);
    for (int i = 1; i <= 10; ++i) {
        host::Transaction transaction(test::Store());
        test::SetTreeNumber("Root", "one", static_cast<uint32_t>(i));
        test::SetTreeNumber("Root\\" + KeyName(kKeys - 1), "two", static_cast<uint32_t>(i));
        transaction.Commit();
    }
    const std::string file = test::ReadFile(Path());
    const std::string journal = test::ReadFile(Path().string() + "-wal");
    test::StopHost();
    ASSERT_GT(journal.size(), 10 * kPage);

    std::string newest = "none";
    for (size_t page = 0; page <= journal.size() / kPage; ++page) {
        for (const size_t more : {size_t{0}, size_t{1}, size_t{24}, size_t{32}, kPage / 2}) {
            test::WriteFile(Path(), file);
            test::WriteFile(Path().string() + "-wal", journal.substr(0, page * kPage + more));
            ASSERT_EQ("no error", Start(Role::kDaemon)) << page << "+" << more;
            const auto one = test::TreeValue("Root", "one");
            const auto two = test::TreeValue("Root\\" + KeyName(kKeys - 1), "two");
            EXPECT_EQ(one ? one->data : "none", two ? two->data : "none") << page << "+" << more;
            newest = one ? one->data : newest;
            test::StopHost();
            EXPECT_EQ("whole", ReadAll());
        }
    }
    EXPECT_EQ(test::NumberBytes(10), newest);
}

TEST_F(Damage, APageOfZerosIsFoundByTheDaemon)
{
    MakeStore();
    const std::string whole = test::ReadFile(Path());
    for (size_t page = 0; page < whole.size() / kPage; ++page) {
        std::string damaged = whole;
        damaged.replace(page * kPage, kPage, kPage, '\0');
        test::WriteFile(Path(), damaged);
        const std::string error = Start(Role::kDaemon);
        test::StopHost();
        EXPECT_EQ(0U, error.find("cannot ")) << page << ": " << error;
        EXPECT_NE(std::string::npos, error.find(host::kReplaceStore)) << page << ": " << error;
    }
}

TEST_F(Damage, APageOfGarbageIsFoundByTheDaemon)
{
    MakeStore();
    const std::string whole = test::ReadFile(Path());
    for (size_t page = 0; page < whole.size() / kPage; ++page) {
        std::string damaged = whole;
        for (size_t i = 0; i < kPage; ++i)
            damaged[page * kPage + i] = static_cast<char>(i * 37 + page);
        test::WriteFile(Path(), damaged);
        EXPECT_EQ(0U, Start(Role::kDaemon).find("cannot ")) << page;
        test::StopHost();
    }
}

// ---- a disk that does not take it ----

TEST_F(Damage, AReadOnlyFolderIsRefused)
{
    MakeStore();
    for (const char *role : {"command", "daemon"}) {
        const Finished finished =
            RunToEnd(Helper(Root(), {"with-read-only", Layout().state.string(), HOST_HELPER,
                                     Root().string(), "start", role}));
        ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
        EXPECT_EQ(1, finished.status);
        EXPECT_EQ("host_helper: cannot open " + Path().string() +
                      ".lock: Read-only file system; make its folder writable, or run as root\n",
                  finished.err);
    }
}

TEST_F(Damage, AReadOnlyFileIsRefusedAtTheStart)
{
    constexpr uid_t kUser = 65534;
    MakeStore();
    std::filesystem::create_directories(Layout().log);
    if (geteuid() == 0) {
        for (const auto &folder : {Root(), Layout().state, Layout().run, Layout().log})
            ASSERT_EQ(0, chown(folder.c_str(), kUser, kUser));
        for (const char *suffix : {"", ".lock"})
            ASSERT_EQ(0, chown((Path().string() + suffix).c_str(), kUser, kUser));
    }
    ASSERT_EQ(0, chmod(Path().c_str(), 0400));
    for (const char *role : {"command", "daemon"}) {
        const Finished finished =
            RunToEnd(Helper(Root(), {"as-user", std::to_string(kUser), "start", role}));
        ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
        EXPECT_EQ(1, finished.status) << role << " started with a file that it cannot write";
        EXPECT_NE(std::string::npos,
                  finished.err.find("make the file and its folder writable, or run as root"))
            << finished.err;
    }
}

TEST_F(Damage, AFullDiskBreaksThePassAndKeepsTheOneBefore)
{
    Layout().CreateFolders();
    const Finished finished =
        RunToEnd(Helper(Root(), {"with-small-disk", Layout().state.string(), "1m", HOST_HELPER,
                                 Root().string(), "fill-store"}));
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ("cannot write to " + Path().string() +
                  ": database or disk is full; free some space on its disk\n"
                  "first is there\nbig0 is not there\nlast is not there\n",
              finished.out);
    EXPECT_NE(std::string::npos,
              test::ReadFile(Layout().TraceLog())
                  .find("cannot write to " + Path().string() +
                        ": database or disk is full; free some space on its disk"));
}

TEST_F(Damage, ADiskTooSmallForAStoreIsNamed)
{
    Layout().CreateFolders();
    const Finished finished =
        RunToEnd(Helper(Root(), {"with-small-disk", Layout().state.string(), "8k", HOST_HELPER,
                                 Root().string(), "start", "command"}));
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ(1, finished.status);
    EXPECT_NE(std::string::npos, finished.err.find("free some space on its disk")) << finished.err;
}

} // namespace
