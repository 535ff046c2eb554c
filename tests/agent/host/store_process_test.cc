// The store between processes: who waits, who wins, and what a killed process leaves.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sqlite3.h>

#include "agent/alerts/alert_store.h"
#include "agent/host/database.h"
#include "agent/host/error.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using host::kRootKey;
using test::BytesOf;
using test::Child;
using test::Helper;
using test::OpenKey;
using Clock = std::chrono::steady_clock;

class StoreProcess : public test::RootTest {
  protected:
    ~StoreProcess() override { test::StopHost(); }

    void StartHere() const { test::StartHost(Layout(), host::Role::kCommand); }
    // Starts so many helpers with the same words, lets them go at once, and gives their answers.
    [[nodiscard]] std::vector<std::string> AnswersOf(int count, const test::Words &words) const
    {
        std::vector<std::unique_ptr<Child>> children;
        for (int i = 0; i < count; ++i)
            children.push_back(std::make_unique<Child>(Helper(Root(), words)));
        for (const auto &child : children)
            child->Say("go");
        std::vector<std::string> answers;
        answers.reserve(children.size());
        for (const auto &child : children)
            answers.push_back(child->ReadLine());
        return answers;
    }
};

// ---- the lock that everybody has ----

// So that a test can make it fail once: SQLite asks with it which file it has opened.
int fstats_to_fail = 0;
int FailingFstat(int fd, struct stat *file)
{
    if (fstats_to_fail > 0) {
        --fstats_to_fail;
        errno = EIO;
        return -1;
    }
    return fstat(fd, file);
}

// As another process sees it: the lock that keeps a command that ends from taking the journal away.
bool OthersSeeAReader(const std::filesystem::path &store)
{
    const pid_t child = fork();
    if (child == 0) {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = 0x40000002;
        lock.l_len = 510;
        const int fd = open(store.c_str(), O_RDWR | O_CLOEXEC);
        _exit(fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(StoreProcess, AConnectionThatCannotBeOpenedTakesNoLockFromTheOthers)
{
    StartHere();
    const auto store = Layout().Store();
    host::Database reader(store, host::Database::Mode::kReadOnly);
    reader.Execute("SELECT count(*) FROM sqlite_master");
    ASSERT_TRUE(OthersSeeAReader(store));
    sqlite3_vfs *files = sqlite3_vfs_find(nullptr);
    files->xSetSystemCall(files, "fstat", reinterpret_cast<sqlite3_syscall_ptr>(FailingFstat));
    for (int i = 0; i < 3; ++i) {
        fstats_to_fail = 1;
        EXPECT_THROW(host::Database(store, host::Database::Mode::kReadOnly), host::StoreError);
        EXPECT_EQ(0, fstats_to_fail);
        EXPECT_TRUE(OthersSeeAReader(store));
    }
    files->xSetSystemCall(files, "fstat", nullptr);
}

// ---- creating ----

TEST_F(StoreProcess, ProcessesThatCreateTheStoreAtOnceShareOne)
{
    const auto uuids = AnswersOf(6, {"open-store"});
    EXPECT_EQ(1U, std::set<std::string>(uuids.begin(), uuids.end()).size());
    EXPECT_EQ(36U, uuids[0].size()) << uuids[0];
    StartHere();
    EXPECT_EQ(uuids[0], test::Store().uuid());
}

TEST_F(StoreProcess, WhatADyingProcessLeftOfAStoreItWasCreatingIsNoStore)
{
    Layout().CreateFolders();
    test::WriteFile(Layout().state / "agent.db.new", "half a store");
    test::WriteFile(Layout().state / "agent.db.new-wal", "half a journal");
    StartHere();
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2));
    EXPECT_FALSE(std::filesystem::exists(Layout().state / "agent.db.new"));
    EXPECT_FALSE(std::filesystem::exists(Layout().state / "agent.db.new-wal"));
}

TEST_F(StoreProcess, AStoreThatWasMovedAwayLeavesNothingOfItsJournalToTheNextOne)
{
    Child killed(
        Helper(Root(), {"own-mutex", "Mutex", "1"})); // has the store open, so its journal stays
    ASSERT_EQ("owned", killed.ReadLine());
    StartHere();
    RegWrite(HKEY_LOCAL_MACHINE, "Old", "value", REG_SZ, "old", 4);
    test::StopHost();
    killed.Kill();
    ASSERT_TRUE(std::filesystem::exists(Layout().Store().string() + "-wal"));
    std::filesystem::remove(Layout().Store());
    std::filesystem::remove(Layout().state / "has-store"); // on purpose

    StartHere();
    EXPECT_EQ(nullptr, OpenKey("Old"));
    test::Store().CheckIntegrity();
}

TEST_F(StoreProcess, ProcessesThatCreateTheSameKeysAtOnceAllSucceed)
{
    StartHere();
    EXPECT_EQ(std::vector<std::string>(4, "0"), AnswersOf(4, {"create-keys", "40"}));
    auto &tree = test::Registry();
    EXPECT_EQ(40U, tree.SubKeys(*tree.Find(kRootKey, "Shared")).size());
}

TEST_F(StoreProcess, ProcessesThatWriteAtOnceLoseNothing)
{
    StartHere();
    Child one(Helper(Root(), {"write-values", "One", "60"}));
    Child two(Helper(Root(), {"write-values", "Two", "60"}));
    EXPECT_EQ("0", one.ReadLine());
    EXPECT_EQ("0", two.ReadLine());
    auto &tree = test::Registry();
    for (const char *key : {"One", "Two"})
        EXPECT_EQ(60U, tree.Values(*tree.Find(kRootKey, key)).size()) << key;
}

// ---- dying ----

TEST_F(StoreProcess, KilledInTheMiddleOfAPassLeavesTheStateBeforeIt)
{
    StartHere();
    RegWrite(HKEY_LOCAL_MACHINE, "Pass", "value", REG_SZ, "before", 7);
    for (int i = 0; i < 3; ++i) {
        Child daemon(Helper(Root(), {"break-pass"}));
        ASSERT_EQ("written", daemon.ReadLine());
        daemon.Kill();
        EXPECT_EQ(std::string("before\0", 7), BytesOf(OpenKey("Pass"), "value"));
        EXPECT_TRUE(alerts::ReadAlerts(test::Store().database(), 0, 0, 10).empty());
    }
    test::Store().CheckIntegrity();
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Pass", "value", REG_SZ, "behind", 7))
        << "a killed process must hold no lock";
}

TEST_F(StoreProcess, KilledInTheMiddleOfATransactionHoldsNoLock)
{
    StartHere();
    Child holder(Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", holder.ReadLine());
    holder.Kill();
    const auto begin = Clock::now();
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

// ---- waiting ----

TEST_F(StoreProcess, AWriteWaitsForTheLockAndSaysSoOnceAfterASecond)
{
    StartHere();
    Child holder(Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", holder.ReadLine());
    int told = 0;
    const auto begin = Clock::now();
    auto told_after = Clock::duration::zero();
    test::Store().OnLongWait([&] {
        ++told;
        told_after = Clock::now() - begin;
        holder.Say("release it");
    });
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2));
    EXPECT_EQ(1, told);
    EXPECT_GE(told_after, std::chrono::milliseconds(999)); // it counts whole milliseconds
    EXPECT_EQ(std::string("x\0", 2), BytesOf(OpenKey("Key"), "value"));
}

TEST_F(StoreProcess, AShortWaitIsNotTold)
{
    StartHere();
    Child holder(Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", holder.ReadLine());
    int told = 0;
    test::Store().OnLongWait([&] { ++told; });
    holder.Say("release it");
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2));
    EXPECT_EQ(0, told);
}

TEST_F(StoreProcess, ReadingNeedsNoLock)
{
    StartHere();
    RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2);
    Child holder(Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", holder.ReadLine());
    // Whoever needed the lock would wait for ever: nobody gives it back.
    EXPECT_EQ(std::string("x\0", 2), BytesOf(OpenKey("Key"), "value"));
    test::StopHost();
    StartHere();
    EXPECT_EQ(std::string("x\0", 2), BytesOf(OpenKey("Key"), "value"));
}

TEST_F(StoreProcess, AWriteThatChangesNothingNeedsNoLock)
{
    StartHere();
    RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2);
    Child holder(Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", holder.ReadLine());
    int waits = 0;
    test::Store().OnLongWait([&] {
        ++waits;
        holder.Say("release it");
    });
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Key", "value", REG_SZ, "x", 2));
    EXPECT_EQ(0, waits);
}

} // namespace
