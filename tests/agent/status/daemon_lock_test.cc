// One daemon per store.
#include "agent/status/daemon_lock.h"

#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using status::DaemonLock;
using test::Child;
using test::ErrorOf;
using test::Helper;

class DaemonLockTest : public test::RootTest {
  protected:
    DaemonLockTest() { Layout().CreateFolders(); }
};

TEST_F(DaemonLockTest, HasNoHolderBeforeAnyDaemonRan)
{
    EXPECT_FALSE(DaemonLock::Holder(Layout().run));
    EXPECT_FALSE(DaemonLock::Holder(File("none")));
}

TEST_F(DaemonLockTest, TellsTheProcessThatHoldsIt)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    EXPECT_EQ(daemon.pid(), DaemonLock::Holder(Layout().run));
    EXPECT_EQ(daemon.pid(), DaemonLock::Holder(Layout().run)) << "asking must not take it away";
}

TEST_F(DaemonLockTest, IsRefusedToASecondDaemon)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    const std::string expected = "cannot start the daemon: it is already running as process " +
                                 std::to_string(daemon.pid()) +
                                 "; stop that one first, or name another install root with --root";
    EXPECT_EQ(expected, ErrorOf([&] { const DaemonLock second(Layout().run); }));
    EXPECT_EQ("host_helper: " + expected + "\n",
              test::RunToEnd(Helper(Root(), {"hold-daemon-lock"})).err);
    EXPECT_EQ(daemon.pid(), DaemonLock::Holder(Layout().run));
}

TEST_F(DaemonLockTest, IsFreeOnceItsHolderWasKilled)
{
    Child daemon(Helper(Root(), {"hold-daemon-lock"}));
    ASSERT_EQ("held", daemon.ReadLine());
    daemon.Kill();
    EXPECT_FALSE(DaemonLock::Holder(Layout().run));
    EXPECT_EQ("no error", ErrorOf([&] { const DaemonLock next(Layout().run); }));
}

TEST_F(DaemonLockTest, OfAFolderThatIsNotThereIsAnError)
{
    EXPECT_EQ("cannot open " + File("none/syslogmond.lock").string() +
                  ": No such file or directory; make its folder writable, or run as root",
              ErrorOf([&] { const DaemonLock lock(File("none")); }));
}

} // namespace
