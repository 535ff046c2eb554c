// The store: passes and transactions, in one process.
#include <chrono>
#include <set>

#include "agent/alerts/alert_store.h"
#include "tests/agent/support/host_test.h"

namespace {

using host::Database;
using host::kRootKey;
using host::Store;
using test::ErrorOf;

class StoreTest : public test::RootTest {
  protected:
    StoreTest() { Layout().CreateFolders(); }

    [[nodiscard]] std::filesystem::path Path() const { return Layout().Store(); }

    // A registry value, as another connection sees it: what was committed.
    [[nodiscard]] std::string Committed(const char *name) const
    {
        Store other(Path());
        host::RegistryTree tree(other);
        const auto key = tree.Find(kRootKey, "Key");
        const auto value = key ? tree.Get(*key, name) : std::nullopt;
        return value ? value->data : "(none)";
    }
    static void SetValue(host::RegistryTree &tree, const char *name, const char *data)
    {
        tree.Set(tree.Create(kRootKey, "Key"), name, REG_SZ, data);
    }
    // Fails as a full disk would: the statement is refused.
    static void FailToWrite(Store &store)
    {
        store.Write([](Database &database) { database.Execute("INSERT INTO nothing VALUES (1)"); });
    }
};

// ---- statements ----

TEST_F(StoreTest, AlertsAreStoredWithoutCompilingAStatementForEach)
{
    Store store(Path());
    store.StartPasses();
    alerts::Alert alert;
    alert.source = "SOURCE";
    alert.message = "a line";
    alerts::AddAlert(store, alert);
    alerts::FoldInto(store, alerts::AddFurtherAlert(store, alert), alert);
    const int64_t before = store.database().CompiledStatements();
    for (int i = 0; i < 100; ++i) {
        const int64_t id = alerts::AddFurtherAlert(store, alert);
        alerts::FoldInto(store, id, alert);
    }
    store.CommitPass();
    alerts::AddAlert(store, alert);
    store.CommitPass();
    EXPECT_EQ(before, store.database().CompiledStatements());
}

TEST_F(StoreTest, AStatementThatIsKeptIsLentToOneAtATimeAndLeavesNothingBehind)
{
    Store store(Path());
    Database &database = store.database();
    constexpr char kSql[] = "SELECT id FROM reg_key WHERE id >= ?";
    {
        host::KeptStatement outer(database, kSql);
        outer->Start(0);
        ASSERT_TRUE(outer->Next());
        host::KeptStatement inner(database, kSql);
        inner->Start(1000000);
        EXPECT_FALSE(inner->Next());
        EXPECT_EQ(0, outer->Integer(0)) << "it is another statement, with another row";
    }
    // A row that was not read to its end would keep the journal from being emptied.
    database.EmptyJournal(0);
    const int64_t before = database.CompiledStatements();
    host::KeptStatement again(database, kSql);
    again->Start(0);
    EXPECT_TRUE(again->Next());
    EXPECT_EQ(before, database.CompiledStatements());
}

// ---- each write for itself ----

TEST_F(StoreTest, AWriteOutsideAPassIsStoredAtOnce)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "stored");
    EXPECT_FALSE(store.database().InTransaction());
    EXPECT_EQ("stored", Committed("value"));
}

TEST_F(StoreTest, AFailedWriteOutsideAPassLeavesTheNextOneAlone)
{
    Store store(Path());
    host::RegistryTree tree(store);
    EXPECT_NE("no error", ErrorOf([&] { FailToWrite(store); }));
    EXPECT_FALSE(store.database().InTransaction());
    SetValue(tree, "value", "stored");
    EXPECT_EQ("stored", Committed("value"));
}

TEST_F(StoreTest, AnActionThatThrowsRollsItsWritesBack)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "before");
    EXPECT_THROW(store.Write([](Database &database) {
        database.Execute("DELETE FROM reg_value");
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_EQ("before", Committed("value"));
}

TEST_F(StoreTest, ATransactionIsStoredWholeAtItsCommit)
{
    Store store(Path());
    host::RegistryTree tree(store);
    {
        host::Transaction transaction(store);
        SetValue(tree, "one", "1");
        SetValue(tree, "two", "2");
        EXPECT_EQ("(none)", Committed("one"));
        transaction.Commit();
    }
    EXPECT_EQ("1", Committed("one"));
    EXPECT_EQ("2", Committed("two"));
}

TEST_F(StoreTest, ATransactionWithoutACommitIsRolledBack)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "before");
    {
        const host::Transaction transaction(store);
        SetValue(tree, "value", "changed");
        tree.Create(kRootKey, "Other");
    }
    EXPECT_EQ("before", Committed("value"));
    EXPECT_EQ("before", tree.Get(*tree.Find(kRootKey, "Key"), "value")->data);
    EXPECT_FALSE(tree.Find(kRootKey, "Other"));
}

// What some failures do: SQLite itself ends the transaction, in the middle of a change.
TEST_F(StoreTest, TheRestOfATransactionThatSqliteHasEndedIsNotStoredAlone)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "before");
    {
        host::Transaction transaction(store);
        SetValue(tree, "first", "part");
        store.database().Execute("ROLLBACK");
        EXPECT_EQ("cannot store a change in " + Path().string() +
                      ": an earlier part of it failed; see the messages before this one",
                  ErrorOf([&] { SetValue(tree, "second", "part"); }));
        EXPECT_NE("no error", ErrorOf([&] { transaction.Commit(); }));
    }
    EXPECT_EQ("(none)", Committed("first"));
    EXPECT_EQ("(none)", Committed("second"));
    SetValue(tree, "value", "behind");
    EXPECT_EQ("behind", Committed("value"));
}

// The module takes what could not be read for what is not there, and goes on.
TEST_F(StoreTest, APassInWhichMemoryRanOutIsNotStored)
{
    Store store(Path());
    host::RegistryTree tree(store);
    store.StartPasses();
    SetValue(tree, "first", "part");
    EXPECT_THROW(store.Read([](host::Database &) -> int { throw std::bad_alloc(); }),
                 std::bad_alloc);
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
    EXPECT_EQ("(none)", Committed("first"));

    SetValue(tree, "second", "part");
    store.FailPass(std::bad_alloc());
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
    EXPECT_EQ("(none)", Committed("second"));

    SetValue(tree, "third", "pass");
    store.CommitPass();
    EXPECT_EQ("pass", Committed("third"));
}

TEST_F(StoreTest, TheRestOfAPassThatSqliteHasEndedIsNotStoredAlone)
{
    Store store(Path());
    host::RegistryTree tree(store);
    store.StartPasses();
    SetValue(tree, "first", "part");
    store.database().Execute("ROLLBACK");
    EXPECT_NE("no error", ErrorOf([&] { SetValue(tree, "second", "part"); }));
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
    EXPECT_EQ("(none)", Committed("first"));
    EXPECT_EQ("(none)", Committed("second"));

    SetValue(tree, "next", "pass");
    store.database().Execute("ROLLBACK"); // and nothing is written behind it
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
    SetValue(tree, "next", "pass");
    store.CommitPass();
    EXPECT_EQ("pass", Committed("next"));
}

// ---- one state for several reads ----

TEST_F(StoreTest, ASnapshotSeesOneStateWhileOthersWrite)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "before");
    Store other(Path());
    host::RegistryTree other_tree(other);
    const auto value = [&] { return tree.Get(*tree.Find(kRootKey, "Key"), "value")->data; };
    {
        const host::Snapshot snapshot(store);
        EXPECT_EQ("before", value());
        SetValue(other_tree, "value", "changed");
        EXPECT_EQ("before", value());
    }
    EXPECT_EQ("changed", value());
    EXPECT_FALSE(store.database().InTransaction());
}

TEST_F(StoreTest, ASnapshotInATransactionOrAPassLeavesItOpen)
{
    Store store(Path());
    host::RegistryTree tree(store);
    {
        host::Transaction transaction(store);
        SetValue(tree, "one", "1");
        {
            const host::Snapshot snapshot(store);
            EXPECT_EQ("1", tree.Get(*tree.Find(kRootKey, "Key"), "one")->data);
        }
        SetValue(tree, "two", "2");
        transaction.Commit();
    }
    store.StartPasses();
    SetValue(tree, "three", "3");
    {
        const host::Snapshot snapshot(store);
    }
    store.CommitPass();
    for (const char *name : {"one", "two", "three"})
        EXPECT_NE("(none)", Committed(name)) << name;
}

// ---- passes ----

TEST_F(StoreTest, APassThatWritesNothingOpensNoTransaction)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "same");
    store.StartPasses();
    tree.Find(kRootKey, "Key");
    SetValue(tree, "value", "same");
    EXPECT_FALSE(store.database().InTransaction());
    store.CommitPass();
    store.AbandonPass();
    Store other(Path()); // would have to wait for the lock
    const host::Transaction transaction(other);
}

TEST_F(StoreTest, TheFirstWriteOfAPassOpensItsTransaction)
{
    Store store(Path());
    host::RegistryTree tree(store);
    store.StartPasses();
    SetValue(tree, "value", "stored");
    EXPECT_TRUE(store.database().InTransaction());
    EXPECT_EQ("(none)", Committed("value"));
    store.CommitPass();
    EXPECT_FALSE(store.database().InTransaction());
    EXPECT_EQ("stored", Committed("value"));
}

TEST_F(StoreTest, RegistryAndAlertsOfAPassAreStoredTogether)
{
    Store store(Path());
    host::RegistryTree tree(store);
    store.StartPasses();
    SetValue(tree, "resume", "here");
    alerts::Alert alert;
    alert.source = "SRC";
    alerts::AddAlert(store, alert);
    {
        Store other(Path());
        EXPECT_TRUE(alerts::ReadAlerts(other.database(), 0, 0, 10).empty());
    }
    store.CommitPass();
    Store other(Path());
    EXPECT_EQ(1U, alerts::ReadAlerts(other.database(), 0, 0, 10).size());
    EXPECT_EQ("here", Committed("resume"));
}

TEST_F(StoreTest, AnAbandonedPassLeavesTheStateBeforeIt)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "before");
    store.StartPasses();
    SetValue(tree, "value", "changed");
    tree.Create(kRootKey, "New");
    alerts::AddAlert(store, {});
    store.AbandonPass();
    EXPECT_EQ("before", Committed("value"));
    EXPECT_EQ("before", tree.Get(*tree.Find(kRootKey, "Key"), "value")->data);
    EXPECT_FALSE(tree.Find(kRootKey, "New"));
    EXPECT_TRUE(alerts::ReadAlerts(store.database(), 0, 0, 10).empty());
}

TEST_F(StoreTest, WhatAPassHasNotCommittedWhenTheStoreIsClosedIsRolledBack)
{
    {
        Store store(Path());
        host::RegistryTree tree(store);
        store.StartPasses();
        SetValue(tree, "value", "lost");
    }
    EXPECT_EQ("(none)", Committed("value"));
}

TEST_F(StoreTest, AFailedWriteBreaksThePassAndItsCauseIsToldToTheEnd)
{
    Store store(Path());
    host::RegistryTree tree(store);
    store.StartPasses();
    SetValue(tree, "before", "1");
    const std::string cause = ErrorOf([&] { FailToWrite(store); });
    EXPECT_NE("no error", cause);
    EXPECT_EQ(cause, ErrorOf([&] { SetValue(tree, "behind", "2"); }));
    EXPECT_EQ(cause, ErrorOf([&] { store.CommitPass(); }));
    EXPECT_EQ("(none)", Committed("before"));
    EXPECT_EQ("(none)", Committed("behind"));
}

TEST_F(StoreTest, AFirstWriteThatFailsBreaksThePass)
{
    Store store(Path());
    store.StartPasses();
    EXPECT_NE("no error", ErrorOf([&] { FailToWrite(store); }));
    EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
}

TEST_F(StoreTest, APassBehindABrokenOneIsStored)
{
    for (const bool abandon : {false, true}) {
        Store store(Path());
        host::RegistryTree tree(store);
        store.StartPasses();
        EXPECT_NE("no error", ErrorOf([&] { FailToWrite(store); }));
        if (abandon)
            store.AbandonPass();
        else
            EXPECT_NE("no error", ErrorOf([&] { store.CommitPass(); }));
        SetValue(tree, "value", abandon ? "1" : "2");
        store.CommitPass();
        EXPECT_EQ(abandon ? "1" : "2", Committed("value"));
    }
}

// ---- how safe ----

TEST_F(StoreTest, ACommitIsOnTheDiskWhenItReturns)
{
    for (int opening = 0; opening < 2; ++opening) { // created, and opened again
        Store store(Path());
        const auto pragma = [&](const char *sql) {
            host::Statement statement(store.database(), sql);
            statement.Start();
            return statement.Next() ? statement.Text(0) : "(none)";
        };
        EXPECT_EQ("wal", pragma("PRAGMA journal_mode"));
        EXPECT_EQ("2", pragma("PRAGMA synchronous")) << "not FULL";
        EXPECT_EQ("1", pragma("PRAGMA foreign_keys"));
    }
}

// ---- who is who ----

TEST_F(StoreTest, AStoreKeepsItsIdentity)
{
    std::string uuid;
    {
        Store store(Path());
        uuid = store.uuid();
    }
    EXPECT_EQ(36U, uuid.size());
    EXPECT_EQ('4', uuid[14]);
    EXPECT_EQ(uuid, Store(Path()).uuid());
    EXPECT_NE(uuid, Store(Layout().log / "other.db").uuid());
}

TEST_F(StoreTest, TheFileIsTheOwnersAlone)
{
    Store store(Path());
    host::RegistryTree tree(store);
    SetValue(tree, "value", "x");
    for (const char *name :
         {"agent.db", "agent.db-wal", "agent.db-shm", "agent.db.lock", "has-store"}) {
        const std::filesystem::path file = Layout().state / name;
        EXPECT_EQ(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write,
                  std::filesystem::status(file).permissions())
            << file;
    }
}

TEST_F(StoreTest, AnAlertsNumberIsNeverUsedAgain)
{
    Store store(Path());
    EXPECT_EQ(0, alerts::NewestAlertId(store.database()));
    const int64_t first = alerts::AddAlert(store, {});
    EXPECT_EQ(first, alerts::NewestAlertId(store.database()));
    store.Write([](Database &database) { database.Execute("DELETE FROM alert"); });
    EXPECT_EQ(first, alerts::NewestAlertId(store.database()));
    EXPECT_EQ(first + 1, alerts::AddAlert(store, {}));
}

TEST_F(StoreTest, AlertsAreReadInOrderFromAnIdATimeAndUpToALimit)
{
    Store store(Path());
    for (const int64_t time : {100, 300, 200}) {
        alerts::Alert alert;
        alert.time_ms = time;
        alerts::AddAlert(store, alert);
    }
    const auto ids = [&](int64_t after, int64_t since, int64_t limit) {
        std::vector<int64_t> found;
        for (const auto &alert : alerts::ReadAlerts(store.database(), after, since, limit))
            found.push_back(alert.id);
        return found;
    };
    EXPECT_EQ((std::vector<int64_t>{1, 2, 3}), ids(0, 0, 10));
    EXPECT_EQ((std::vector<int64_t>{1, 2}), ids(0, 0, 2));
    EXPECT_EQ((std::vector<int64_t>{2, 3}), ids(1, 0, 10));
    EXPECT_EQ((std::vector<int64_t>{2, 3}), ids(0, 200, 10));
    EXPECT_TRUE(ids(3, 0, 10).empty());
}

// ---- how changes are noticed ----

TEST_F(StoreTest, TheChangeCountMovesWithEveryChange)
{
    Store store(Path());
    host::RegistryTree tree(store);
    Store other(Path());
    host::RegistryTree other_tree(other);
    std::set<int64_t> counts = {store.ChangeCount()};
    EXPECT_EQ(*counts.begin(), store.ChangeCount());
    SetValue(tree, "value", "mine");
    EXPECT_TRUE(counts.insert(store.ChangeCount()).second);
    SetValue(other_tree, "value", "theirs");
    EXPECT_TRUE(counts.insert(store.ChangeCount()).second);
    store.StartPasses();
    SetValue(tree, "value", "in a pass");
    EXPECT_TRUE(counts.insert(store.ChangeCount()).second);
    store.AbandonPass();
    EXPECT_TRUE(counts.insert(store.ChangeCount()).second);
}

// ---- waiting for a lock ----

TEST_F(StoreTest, AStatementGivesUpAfterItsPatience)
{
    Store store(Path());
    const host::Transaction transaction(store);
    Database other(Path(), Database::Mode::kReadWrite);
    other.SetPatience(60, nullptr);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ("cannot use " + Path().string() +
                  ": database is locked; another program holds its lock; find it with fuser and "
                  "try again",
              ErrorOf([&] { other.Execute("BEGIN IMMEDIATE"); }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
}

TEST_F(StoreTest, ADatabaseOpenedForReadingCannotBeWritten)
{
    const Store store(Path());
    Database reader(Path(), Database::Mode::kReadOnly);
    EXPECT_EQ("cannot use " + Path().string() +
                  ": attempt to write a readonly database; make the file and its folder writable, "
                  "or run as root",
              ErrorOf([&] { reader.Execute("DELETE FROM alert"); }));
}

} // namespace
