#include "tests/support/module_test.h"
#include "vkevmon/version.h"

namespace {

using test::Host;

using HostCalls = test::ModuleTest;

TEST_F(HostCalls, DllMainIsTrueForEveryReasonAndTracesIt)
{
    for (const DWORD reason : {0U, 1U, 2U, 3U, 77U}) {
        EXPECT_EQ(TRUE, DllMain(nullptr, reason));
        EXPECT_EQ(1, Host().Traced(0, ">dwReason=" + std::to_string(reason)));
    }
    EXPECT_EQ(5, Host().Traced(0, "<return TRUE."));
}

TEST_F(HostCalls, PrintgDoesNothing)
{
    printg();
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(HostCalls, VersionInformationHasTheVersionAndOneRowPerSourceUnit)
{
    testing::internal::CaptureStdout();
    syslog_mon_verinfo();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(0U, printed.find("Syslog monitor Version:  1, 0, 0\nChangeList:\n"
                               " File         Date         By           Detail      \n"))
        << printed;
    for (const char *unit : {" vkevmon ", " fileacc ", " regacc ", " filemonitor "})
        EXPECT_NE(std::string::npos, printed.find(unit)) << unit;
    EXPECT_EQ(1, Host().Traced(0, ">"));
    EXPECT_EQ(1, Host().Traced(0, "<"));
}

} // namespace
