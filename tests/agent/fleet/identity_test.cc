// A copy of a machine that is given a name of its own.
#include "agent/fleet/identity.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "tests/agent/support/host_test.h"

namespace {

class IdentityTest : public test::HostTest {};

TEST_F(IdentityTest, ACopyHasAnotherNameAndSendsNothingOfWhatItHasSentAgain)
{
    sinks::SinkRegistry registry(test::Store(), test::Registry());
    sinks::SinkConfig config;
    config.name = "fleet";
    config.kind = &sinks::FindKind("nats");
    config.options = {{"servers", "nats://127.0.0.1"}};
    registry.Add(config);
    const int64_t key = registry.Find("fleet").config.key;
    sinks::Delivery row;
    row.last_id = 7;
    row.delivered = 5;
    sinks::WriteDeliveries(test::Store(), key, {{"", row}});

    const std::string before = test::Store().uuid();
    const std::string uuid = fleet::GiveNewIdentity(test::Store(), test::Registry());
    EXPECT_NE(before, uuid);
    row = sinks::ReadDeliveries(test::Store().database(), key)[""];
    EXPECT_EQ(7, row.last_id);
    EXPECT_EQ(0, row.delivered);
    Restart(host::Role::kCommand);
    EXPECT_EQ(uuid, test::Store().uuid());
}

} // namespace
