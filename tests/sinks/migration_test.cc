// A store of the version before sinks.
#include "agent/libtarsk/schema.h"
#include "tests/sinks/sink_test.h"

namespace {

class MigrationTest : public test::SinkTest {
  protected:
    // Makes the store what the first version left behind.
    void GoBack()
    {
        tarsk::HostStore().Write([](tarsk::Database &database) {
            database.Execute("DROP TABLE undelivered");
            database.Execute("DROP TABLE delivery");
            database.Execute("PRAGMA user_version = 1");
        });
        tarsk::StopHost();
    }
    int64_t Version()
    {
        tarsk::Statement version(tarsk::HostStore().database(), "PRAGMA user_version");
        version.Start();
        version.Next();
        return version.Integer(0);
    }
};

TEST_F(MigrationTest, AStoreOfTheFirstVersionKeepsItsAlertsAndItsIdentity)
{
    Store(5);
    test::SetTreeText("SOFTWARE\\X", "name", "value");
    const std::string uuid = tarsk::HostStore().uuid();
    GoBack();
    tarsk::StartHost(Layout(), tarsk::Role::kCommand);
    EXPECT_EQ(3, Version());
    EXPECT_EQ(uuid, tarsk::HostStore().uuid());
    EXPECT_EQ(5U, alerts::ReadAlerts(tarsk::HostStore().database(), 0, 0, 100).size());
    EXPECT_EQ(std::string("value\0", 6), test::TreeValue("SOFTWARE\\X", "name")->data);
}

TEST_F(MigrationTest, SinksWorkOnAStoreThatWasBroughtUpToDate)
{
    Store(5);
    GoBack();
    tarsk::StartHost(Layout(), tarsk::Role::kCommand);
    AddSink("file", "file", {{"path", File("alerts")}});
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(WaitDelivered("file", 2));
    EXPECT_EQ(2U, test::ReadLines(File("alerts")).size());
    EXPECT_EQ(7, Row("file").last_id);
}

} // namespace
