// Which store it is: one that was removed, replaced, copied or put back is not taken for the one before.
#include "agent/alerts/alert_store.h"
#include "agent/status/daemon_lock.h"
#include "agent/status/status_file.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using host::Role;
using host::Store;
using test::Child;
using test::ErrorOf;
using test::Helper;

namespace fs = std::filesystem;

class StoreIdentity : public test::RootTest {
  protected:
    StoreIdentity() { Layout().CreateFolders(); }
    ~StoreIdentity() override { test::StopHost(); }

    [[nodiscard]] fs::path Path() const { return Layout().Store(); }
    [[nodiscard]] fs::path Mark() const { return Layout().state / "has-store"; }
    [[nodiscard]] std::string Replaced() const
    {
        return "cannot use " + Path().string() +
               ": it was replaced by another file while it was in use; start the program again";
    }
    [[nodiscard]] std::string Removed() const
    {
        return "cannot use " + Path().string() +
               ": it was removed while it was in use; put it or a copy of it back and start the "
               "program again";
    }
    static std::string WriteTo(Store &store)
    {
        return ErrorOf([&] { alerts::AddAlert(store, {}); });
    }
    static std::vector<std::string> KeysOf(Store &store)
    {
        std::vector<std::string> keys;
        for (const auto &alert : alerts::ReadAlerts(store.database(), 0, 0, 100))
            keys.push_back(alert.key);
        return keys;
    }
    // As if each of these alerts had been the first one of a life.
    static void AddSeries(Store &store, int64_t first, int64_t last)
    {
        store.Write([&](host::Database &database) {
            host::Statement(database, "WITH RECURSIVE n (i) AS (SELECT ?1 UNION ALL"
                                      " SELECT i + 1 FROM n WHERE i < ?2)"
                                      " INSERT INTO key_series SELECT i, 'series ' || i FROM n")
                .Run(first, last);
        });
    }
    static int64_t CountSeries(Store &store)
    {
        host::Statement count(store.database(), "SELECT count(*) FROM key_series");
        count.Start();
        return count.Next() ? count.Integer(0) : -1;
    }
    // In a life of its own, as a daemon stores it.
    std::vector<std::string> AddInALife() const
    {
        Store store(Path());
        alerts::AddAlert(store, {});
        return KeysOf(store);
    }
};

// ---- under a program that has it open ----

TEST_F(StoreIdentity, NothingIsStoredInAFileThatWasReplaced)
{
    Store store(Path());
    fs::copy_file(Path(), File("copy"));
    fs::rename(File("copy"), Path());
    EXPECT_EQ(Replaced(), WriteTo(store));
    EXPECT_FALSE(store.IsInPlace());
    EXPECT_FALSE(store.database().InTransaction());
}

TEST_F(StoreIdentity, NothingIsStoredInAFileThatWasRemoved)
{
    Store store(Path());
    fs::remove(Path());
    EXPECT_EQ(Removed(), WriteTo(store));
    EXPECT_FALSE(store.IsInPlace());
}

TEST_F(StoreIdentity, AFileThatIsPutBackIsTheSameAgain)
{
    Store store(Path());
    fs::rename(Path(), File("moved"));
    EXPECT_EQ(Removed(), WriteTo(store));
    fs::rename(File("moved"), Path());
    EXPECT_EQ("no error", WriteTo(store));
    EXPECT_TRUE(store.IsInPlace());
}

TEST_F(StoreIdentity, APassNoticesItEvenWhenItHasNothingToStore)
{
    Store store(Path());
    store.StartPasses();
    EXPECT_EQ("no error", ErrorOf([&] { store.CommitPass(); }));
    fs::rename(Path(), File("moved"));
    EXPECT_EQ(Removed(), ErrorOf([&] { store.CommitPass(); }));
    alerts::AddAlert(store, {});
    EXPECT_EQ(Removed(), ErrorOf([&] { store.CommitPass(); }));
    fs::rename(File("moved"), Path());
    EXPECT_EQ("no error", ErrorOf([&] { store.CommitPass(); }));
    EXPECT_TRUE(KeysOf(store).empty());
}

TEST_F(StoreIdentity, ATransactionOfACommandNoticesIt)
{
    Store store(Path());
    host::Transaction transaction(store);
    alerts::AddAlert(store, {});
    fs::rename(Path(), File("moved"));
    EXPECT_EQ(Removed(), ErrorOf([&] { transaction.Commit(); }));
}

// ---- at a start ----

TEST_F(StoreIdentity, AMissingStoreIsAnErrorWhereThereWasOne)
{
    {
        const Store store(Path());
    }
    fs::remove(Path());
    const std::string expected =
        "cannot open " + Path().string() +
        ": it is gone, and there was one; put it or a copy of it back, mount what it lies on, or "
        "remove " +
        Mark().string() + " to start with nothing";
    for (const Role role : {Role::kCommand, Role::kReader, Role::kDaemon})
        EXPECT_EQ(expected, ErrorOf([&] { test::StartHost(Layout(), role); }));
    EXPECT_FALSE(fs::exists(Path()));

    fs::remove(Mark()); // what it says
    EXPECT_EQ("no error", ErrorOf([&] { test::StartHost(Layout(), Role::kCommand); }));
    EXPECT_TRUE(fs::exists(Mark()));
}

TEST_F(StoreIdentity, TheNamesOfTheStoresFilesDoNotStandForTheMark)
{
    {
        const Store store(Path());
    }
    for (const auto &file : fs::directory_iterator(Layout().state)) {
        if (file.path().filename().string().find("agent.db") == 0)
            fs::remove(file.path()); // as rm agent.db* does
    }
    EXPECT_NE("no error", ErrorOf([&] { const Store store(Path()); }));
}

TEST_F(StoreIdentity, AStoreWithoutAMarkGetsOne)
{
    {
        const Store store(Path());
    }
    fs::remove(Mark());
    {
        const Store store(Path());
    }
    EXPECT_TRUE(fs::exists(Mark()));
}

// ---- keys ----

TEST_F(StoreIdentity, EachLifeGivesKeysOfItsOwnAndKeepsThoseBefore)
{
    const auto first = AddInALife();
    const auto second = AddInALife();
    ASSERT_EQ(2U, second.size());
    EXPECT_EQ(first[0], second[0]);
    EXPECT_EQ(36U + 2, second[1].size()) << second[1];
    EXPECT_NE(second[0].substr(0, 36), second[1].substr(0, 36));
    EXPECT_EQ("/2", second[1].substr(36));
}

TEST_F(StoreIdentity, ACopyThatIsPutBackGivesNoKeyAgain)
{
    AddInALife();
    fs::copy_file(Path(), File("copy"));
    const auto before = AddInALife();
    fs::copy_file(File("copy"), Path(), fs::copy_options::overwrite_existing); // the same inode
    const auto after = AddInALife();
    ASSERT_EQ(2U, after.size());
    EXPECT_EQ(before[0], after[0]) << "that of an alert before the copy stays";
    EXPECT_NE(before[1], after[1]);
}

TEST_F(StoreIdentity, ACopiedStoreAndItsOriginalGiveOtherKeys)
{
    AddInALife();
    const host::Layout other = host::Layout::Below(File("clone"));
    fs::create_directories(other.state);
    fs::copy(Layout().state, other.state);
    const auto here = AddInALife();
    Store store(other.Store());
    alerts::AddAlert(store, {});
    const auto there = KeysOf(store);
    ASSERT_EQ(2U, there.size());
    EXPECT_EQ(here[0], there[0]);
    EXPECT_NE(here[1], there[1]);
}

TEST_F(StoreIdentity, ALifeWhoseFirstPassWasRolledBackHasItsKeysAllTheSame)
{
    AddInALife();
    Store store(Path());
    store.StartPasses();
    alerts::AddAlert(store, {});
    store.AbandonPass();
    alerts::AddAlert(store, {});
    store.CommitPass();
    EXPECT_EQ(store.series() + "/2", KeysOf(store).at(1));
}

// By it, what a receiver had last is told from an alert of a copy with the same number.
TEST_F(StoreIdentity, TheKeyOfAnAlertThatHasLeftTheStoreIsKnown)
{
    for (int life = 0; life < 5; ++life)
        AddInALife();
    Store store(Path());
    const auto all = KeysOf(store);
    alerts::RemoveAlerts(store, 4);
    EXPECT_EQ((std::vector<std::string>{all[4]}), KeysOf(store));
    for (int64_t id = 1; id <= 5; ++id)
        EXPECT_EQ(all.at(static_cast<size_t>(id - 1)), alerts::KeyOf(store.database(), id));
}

TEST_F(StoreIdentity, OfSeriesOfWhichNoAlertIsLeftTheNewestAreKept)
{
    AddInALife();
    Store store(Path());
    AddSeries(store, 2, 10100);
    alerts::RemoveAlerts(store, 49);
    EXPECT_EQ(10100 - 49, CountSeries(store)) << "none in which an alert may be left";
    alerts::RemoveAlerts(store, 10100);
    EXPECT_EQ(10000, CountSeries(store));
    EXPECT_EQ("series 10100/10100", alerts::KeyOf(store.database(), 10100));
}

// It tells of all alerts up to one, and is tried again under the key of that one, which may have left the store.
TEST_F(StoreIdentity, TheKeyOfAMessageThatIsUnderWayStays)
{
    for (int life = 0; life < 5; ++life)
        AddInALife();
    Store store(Path());
    const std::string key = alerts::KeyOf(store.database(), 2);
    AddSeries(store, 6, 11000); // so many that not all are kept
    store.Write([](host::Database &database) {
        host::Statement(database, "INSERT INTO reg_key (parent, name) VALUES (0, 'sink')").Run();
        host::Statement(database, "INSERT INTO delivery (sink, peer, last_id, delivered, dropped,"
                                  " delivered_ms, last_error, error_ms, planned_id)"
                                  " SELECT max(id), '', 0, 0, 0, 0, '', 0, 2 FROM reg_key")
            .Run();
    });
    alerts::RemoveAlerts(store, 4);
    EXPECT_EQ(key, alerts::KeyOf(store.database(), 2));
}

// ---- one daemon ----

TEST_F(StoreIdentity, ADaemonHoldsTheStoreItself)
{
    Child daemon(Helper(Root(), {"break-pass"}));
    ASSERT_EQ("written", daemon.ReadLine());
    fs::remove_all(Layout().run);
    EXPECT_EQ("cannot start the daemon with " + Path().string() +
                  ": another one works with it, process " + std::to_string(daemon.pid()) +
                  "; stop that one first, or name another install root with --root",
              ErrorOf([&] { test::StartHost(Layout(), Role::kDaemon); }));
    EXPECT_EQ(daemon.pid(), status::DaemonLock::Holder(Layout()));
    EXPECT_EQ("no error", ErrorOf([&] { test::StartHost(Layout(), Role::kCommand); }));
    test::StopHost();
    daemon.Kill();
    EXPECT_FALSE(status::DaemonLock::Holder(Layout()));
    EXPECT_EQ("no error", ErrorOf([&] { test::StartHost(Layout(), Role::kDaemon); }));
}

// To ask opens the file, and closing it would take SQLite's locks away, by which the last program to
// close a store knows that it is the last.
TEST_F(StoreIdentity, AskingForTheDaemonTakesNoLockOfTheStoreAway)
{
    test::StartHost(Layout(), Role::kCommand);
    alerts::AddAlert(test::Store(), {});
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(status::DaemonLock::Holder(Layout()));
    EXPECT_EQ(0, test::RunToEnd(Helper(Root(), {"start", "command"})).status);
    EXPECT_TRUE(fs::exists(Path().string() + "-wal")) << "another program took itself for the last";
    EXPECT_EQ("no error", WriteTo(test::Store()));
    EXPECT_EQ(2U, KeysOf(test::Store()).size());
}

// ---- command and daemon ----

TEST_F(StoreIdentity, ACommandRefusesAnotherFileThanTheDaemons)
{
    Child daemon(Helper(Root(), {"answer-scans"}));
    ASSERT_EQ("running", daemon.ReadLine());
    test::StartHost(Layout(), Role::kCommand);
    EXPECT_EQ("no error", ErrorOf([&] { status::DaemonLock::CheckStore(test::TheHost()); }));
    test::StopHost();
    fs::copy_file(Path(), File("copy"));
    fs::rename(File("copy"), Path());
    test::StartHost(Layout(), Role::kCommand);
    const std::string expected =
        "cannot work with " + Path().string() + ": the daemon, process " +
        std::to_string(daemon.pid()) +
        ", works with another file: this one was put in its place while it ran; restart the daemon";
    EXPECT_EQ(expected, ErrorOf([&] { status::DaemonLock::CheckStore(test::TheHost()); }));
    const auto finished =
        test::RunToEnd({SYSLOGMON, "--root", Root(), "event", "add", "A", "1", "--keyword", "x"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("syslogmon: " + expected + "\n", finished.err);
}

} // namespace
