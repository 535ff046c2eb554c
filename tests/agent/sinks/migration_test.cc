// Stores of older versions: the first, without sinks, and the third, in which each alert stood for one
// report and a copied store gave its keys again.
#include "agent/host/schema.h"
#include "tests/agent/sinks/sink_test.h"

namespace {

class MigrationTest : public test::SinkTest {
  protected:
    // Makes the store what the first version left behind.
    void GoBack()
    {
        GoBackToTheThird();
        host::Database(Layout().Store(), host::Database::Mode::kReadWrite)
            .Execute("DROP TABLE undelivered; DROP TABLE delivery; PRAGMA user_version = 1");
    }
    // And the third.
    void GoBackToTheThird()
    {
        test::Store().Write([](host::Database &database) {
            for (const char *table :
                 {"input_place", "spool", "spool_origin", "spool_stamp", "policy_value",
                  "policy_event", "alarm", "log_file", "series", "history", "delivery_held",
                  "silence_held", "own_total", "fleet_host", "fleet_place", "fleet_group",
                  "fleet_owned", "fleet_hole"})
                database.Execute((std::string("DROP TABLE ") + table).c_str());
            for (const char *column :
                 {"reports",      "last_time_ms", "last_message", "line_host",     "program",
                  "own_time",     "severity",     "labels",       "summary",       "runbook_url",
                  "value",        "held_reports", "held_hits",    "held_first_ms", "held_first",
                  "held_last_ms", "held_last",    "silence",      "origin",        "terms"})
                database.Execute((std::string("ALTER TABLE alert DROP COLUMN ") + column).c_str());
            for (const char *column : {"full_ms", "planned_id"})
                database.Execute(
                    (std::string("ALTER TABLE delivery DROP COLUMN ") + column).c_str());
            database.Execute("DROP TABLE key_series");
            database.Execute("PRAGMA user_version = 3");
        });
        test::StopHost();
        std::filesystem::remove(Layout().state / "has-store");
    }
    static std::vector<alerts::Alert> Alerts()
    {
        return alerts::ReadAlerts(test::Store().database(), 0, 0, 100);
    }
    int64_t Version()
    {
        host::Statement version(test::Store().database(), "PRAGMA user_version");
        version.Start();
        version.Next();
        return version.Integer(0);
    }
};

TEST_F(MigrationTest, AStoreOfTheFirstVersionKeepsItsAlertsAndItsIdentity)
{
    Store(5);
    test::SetTreeText("SOFTWARE\\X", "name", "value");
    const std::string uuid = test::Store().uuid();
    GoBack();
    test::StartHost(Layout(), host::Role::kCommand);
    EXPECT_EQ(19, Version());
    EXPECT_EQ(uuid, test::Store().uuid());
    EXPECT_EQ(5U, alerts::ReadAlerts(test::Store().database(), 0, 0, 100).size());
    EXPECT_EQ(std::string("value\0", 6), test::TreeValue("SOFTWARE\\X", "name")->data);
}

TEST_F(MigrationTest, AlertsOfTheThirdVersionKeepTheirKeysAndNewOnesGetOthers)
{
    Store(2);
    const std::string uuid = test::Store().uuid();
    GoBackToTheThird();
    test::StartHost(Layout(), host::Role::kCommand);
    EXPECT_EQ(19, Version());
    Store(1);
    const auto stored = Alerts();
    ASSERT_EQ(3U, stored.size());
    EXPECT_EQ(uuid + "/1", stored[0].key);
    EXPECT_EQ(uuid + "/2", stored[1].key);
    EXPECT_EQ(test::Store().series() + "/3", stored[2].key);
    EXPECT_NE(uuid, test::Store().series());
    for (const alerts::Alert &alert : stored) {
        EXPECT_EQ(3, alert.count);
        EXPECT_EQ(1, alert.reports);
        EXPECT_EQ("", alert.last_message);
    }
}

TEST_F(MigrationTest, AStoreOfAnOlderVersionIsMissedFromItsFirstOpeningOn)
{
    GoBackToTheThird();
    test::StartHost(Layout(), host::Role::kCommand);
    test::StopHost();
    std::filesystem::remove(Layout().Store());
    EXPECT_NE("no error", test::ErrorOf([&] { test::StartHost(Layout(), host::Role::kCommand); }));
}

TEST_F(MigrationTest, SinksWorkOnAStoreThatWasBroughtUpToDate)
{
    Store(5);
    GoBack();
    test::StartHost(Layout(), host::Role::kCommand);
    AddSink("file", "file", {{"path", File("alerts")}});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(WaitDelivered("file", 2));
    EXPECT_EQ(2U, test::ReadLines(File("alerts")).size());
    EXPECT_EQ(7, Row("file").last_id);
}

} // namespace
