// What the agent holds of libraries and handles is given back also when something fails half-way.
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>

#include "agent/events/events.h"
#include "agent/host/library.h"
#include "agent/host/owned_handle.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using test::Child;
using test::Helper;

class GivenBack : public test::HostTest {
  protected:
    static long OpenFiles()
    {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    }
};

TEST_F(GivenBack, ALibraryThatLacksAFunctionIsUnloaded)
{
    const std::filesystem::path path = std::filesystem::path(AGENT_LIBRARIES) / "vkirtupt.dll";
    int (*function)() = nullptr;
    EXPECT_EQ("cannot use the monitor module: it has no StartThread; install the module and the "
              "agent of one version",
              test::ErrorOf([&] {
                  const host::Library library(path);
                  EXPECT_NE(nullptr, dlopen(path.c_str(), RTLD_NOLOAD | RTLD_NOW));
                  dlclose(library.get());
                  library.Find("StartThread", &function);
              }));
    EXPECT_EQ(nullptr, dlopen(path.c_str(), RTLD_NOLOAD | RTLD_NOW));
}

TEST_F(GivenBack, AHandleIsClosedWhenWhatFollowsItFails)
{
    const long before = OpenFiles();
    EXPECT_THROW(
        {
            const host::OwnedHandle event(CreateEvent(nullptr, TRUE, FALSE, nullptr));
            EXPECT_EQ(before + 1, OpenFiles());
            throw std::runtime_error("what follows");
        },
        std::runtime_error);
    EXPECT_EQ(before, OpenFiles());
}

TEST_F(GivenBack, TheMutexOfTheTableIsWhenWhoeverWaitsForItGivesUp)
{
    Child holder(Helper(Root(), {"own-mutex", kTableMutex, "1"}));
    ASSERT_EQ("owned", holder.ReadLine());
    const long before = OpenFiles();
    EXPECT_THROW(events::ChangeEvents(
                     test::TheHost(), [] {}, [] { throw std::runtime_error("given up"); }),
                 std::runtime_error);
    EXPECT_EQ(before, OpenFiles());
}

} // namespace
