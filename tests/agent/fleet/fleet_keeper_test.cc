// What of a host's part in a fleet cannot be done, and what is done all the same.
#include "agent/fleet/fleet_keeper.h"

#include <chrono>
#include <thread>

#include "agent/fleet/fleet_rules.h"
#include "agent/fleet/group_files.h"
#include "agent/host/agent_values.h"
#include "tests/agent/support/host_test.h"

namespace {

using namespace std::chrono_literals;

class FleetKeeperTest : public test::HostTest {
  protected:
    // As of a host that has left its groups while no daemon ran.
    void LeaveGroupBehind()
    {
        const std::string value = fleet::FormatGroup(
            "web",
            {{{"a.yaml", "events: [{source: DISK, id: 1, keywords: [I/O error]}]\n"}}, "me", 1});
        fleet::TakeGroups(Layout(), test::Store(), test::Registry(), {{"web", 7, 1, false, value}},
                          [] { return false; });
    }
    static bool HasLeftGroups()
    {
        for (const auto end = std::chrono::steady_clock::now() + 60s;
             std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(10ms)) {
            if (fleet::ReadGroups(test::Store()).empty())
                return true;
        }
        return false;
    }
};

TEST_F(FleetKeeperTest, ACollectorThatCannotBeginIsToldOfAndKeepsNoGroupsThatTheHostHasLeft)
{
    LeaveGroupBehind();
    test::SetTreeText(std::string(host::kAgentKey) + "\\COLLECT", "pigeons", "2");
    testing::internal::CaptureStderr();
    {
        const fleet::FleetKeeper keeper(Layout(), [] {});
        EXPECT_TRUE(HasLeftGroups());
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, told.find("pigeons")) << told;
}

} // namespace
