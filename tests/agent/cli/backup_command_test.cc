// syslogmon backup and restore, as processes.
#include <csignal>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "agent/host/database.h"
#include "agent/host/store.h"
#include "tests/agent/support/daemon_test.h"

namespace {

using test::Finished;

class BackupCommand : public test::DaemonTest {
  protected:
    [[nodiscard]] std::string Copy() const { return File("copy.db").string(); }
    [[nodiscard]] std::string Registry() const { return Syslogmon({"reg", "export"}).out; }
};

TEST_F(BackupCommand, WhatWasBackedUpComesBack)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    ExpectDone({"set", "cycle", "60"});
    const std::string before = Registry();
    ExpectDone({"backup", Copy()});
    struct stat info {};
    ASSERT_EQ(0, stat(Copy().c_str(), &info));
    EXPECT_EQ(0600U, info.st_mode & 0777U);
    ExpectDone({"event", "remove", "DISK", "1"});
    ExpectDone({"set", "cycle", "90"});
    ExpectDone({"restore", Copy()});
    EXPECT_EQ(before, Registry());
    ExpectDone({"event", "add", "DISK", "2", "-k", "x"}); // it is a store like any other
    ExpectDone({"restore", Copy()});                      // and the copy is as it was
    EXPECT_EQ(before, Registry());
}

TEST_F(BackupCommand, AHostWithoutAStoreGetsOne)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    const std::string before = Registry();
    ExpectDone({"backup", Copy()});
    std::filesystem::remove_all(Layout().state);
    ExpectDone({"restore", Copy()});
    EXPECT_EQ(before, Registry());
}

// The journal of the store that was there is none of the copy's.
TEST_F(BackupCommand, NothingOfTheStoreOfBeforeIsLeft)
{
    ExpectDone({"backup", Copy()});
    const std::string before = Registry();
    StartHere(); // holds the journal open
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    ASSERT_TRUE(std::filesystem::exists(Layout().Store().string() + "-wal"));
    ExpectDone({"restore", Copy()});
    EXPECT_EQ(before, Registry());
}

// What is in the journal alone must come into the store first, and somebody who reads keeps it where it is.
TEST_F(BackupCommand, WhoeverReadsTheStoreIsWaitedForAndKeepsItWhenHeTakesTooLong)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    ExpectDone({"backup", Copy()});
    const std::string copied = Registry();
    ExpectDone({"event", "add", "DISK", "2", "-k", "x"});
    test::Child reader(test::Helper(Root(), {"read-store"}));
    ASSERT_EQ("reads", reader.ReadLine());
    ExpectDone({"event", "add", "DISK", "3", "-k", "x"});
    const std::string before = Registry();

    EXPECT_EQ("cannot write to " + Layout().Store().string() +
                  ": database is locked; another program holds its lock; find it with fuser and "
                  "try again\n",
              test::RunToEnd(test::Helper(Root(), {"restore", Copy(), "20"})).out);
    EXPECT_EQ(before, Registry());
    const std::filesystem::path unfinished = Layout().Store().string() + ".new";
    EXPECT_FALSE(std::filesystem::exists(unfinished));

    // It waits, with everything made but the last step, until the reader is gone. Other commands wait for it.
    test::Child restore(test::Command(Root(), {"restore", Copy()}));
    for (int looks = 0; looks < 30000 && !std::filesystem::exists(unfinished); ++looks)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(std::filesystem::exists(unfinished));
    reader.Kill();
    EXPECT_EQ(0, restore.Wait());
    EXPECT_EQ(copied, Registry());
}

// Of one moment, while the monitor stores its passes: the place in the log and the alerts agree.
TEST_F(BackupCommand, IsOfOneMomentWhileTheMonitorWorks)
{
    ExpectDone({"event", "add", "A", "1", "-k", "alpha"});
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("alpha one");
    ExpectDone({"backup", Copy()});
    Log("alpha two");
    EXPECT_EQ(2U, Alerts().size());
    const Finished refused = Syslogmon({"restore", Copy()});
    EXPECT_EQ(1, refused.status);
    EXPECT_EQ("syslogmon: cannot restore " + Copy() + ": syslogmond is running, as process " +
                  std::to_string(daemon.pid()) + "; stop it, with systemctl stop syslogmond\n",
              refused.err);
    EXPECT_EQ(2U, Alerts().size());
    daemon.Signal(SIGTERM);
    ASSERT_EQ(0, daemon.Wait());
    ExpectDone({"restore", Copy()});
    EXPECT_EQ(1U, Alerts().size());
    // It goes on where the copy stood.
    test::Child again(Daemon());
    WaitUntilRunning(again);
    const auto alerts = Alerts();
    ASSERT_EQ(2U, alerts.size());
    EXPECT_NE(std::string::npos, alerts[1]["message"].get<std::string>().find("alpha two"));
}

TEST_F(BackupCommand, WritesOverNoFile)
{
    test::WriteFile(Copy(), "mine");
    ExpectFailed({"backup", Copy()}, "cannot create " + Copy() +
                                         ": File exists; name another file, or remove this one");
    EXPECT_EQ("mine", test::ReadFile(Copy()));
    ExpectFailed({"backup", File("none/copy").string()},
                 "cannot create " + File("none/copy").string() +
                     ": No such file or directory; name a file in a folder that you may write");
}

TEST_F(BackupCommand, OnlyASoundStoreIsRestored)
{
    ExpectFailed({"restore", File("none").string()},
                 "cannot restore " + File("none").string() +
                     ": there is no such file; name one that syslogmon backup has made");
    ExpectDone({"backup", Copy()});
    std::string bytes = test::ReadFile(Copy());
    for (size_t i = 4096; i < bytes.size(); ++i)
        bytes[i] = 'x';
    test::WriteFile(Copy(), bytes);
    const std::string before = Registry();
    EXPECT_EQ(1, Syslogmon({"restore", Copy()}).status);
    test::WriteFile(
        Copy(), "no database at all, but a text of some length, which is longer than a page head");
    ExpectFailed({"restore", Copy()}, "cannot use " + Copy() +
                                          ": it is not a store of the agent; use a file that "
                                          "syslogmon backup has made");
    // Of another program; and of a version to come.
    const std::string other = File("other.db").string();
    test::WriteFile(other, "");
    host::Database(other, host::Database::Mode::kReadWrite).Execute("CREATE TABLE t (a)");
    ExpectFailed({"restore", other}, "cannot use " + other +
                                         ": it is not a store of the agent; use a file that "
                                         "syslogmon backup has made");
    const std::string later = File("later.db").string();
    ExpectDone({"backup", later});
    host::Database(later, host::Database::Mode::kReadWrite).Execute("PRAGMA user_version = 999");
    ExpectFailed({"restore", later}, "cannot use " + later +
                                         ": it was written by a newer version of this program; "
                                         "install that version");
    EXPECT_EQ(before, Registry());
}

} // namespace
