// Loading of libraries.
#include "platform/loader.h"

#include <gtest/gtest.h>

namespace {

TEST(Loader, ALibraryThatIsNotThereGivesNull)
{
    EXPECT_EQ(nullptr, LoadLibrary(AGENT_LIBRARIES "/none.dll"));
}

TEST(Loader, AFileThatIsNoLibraryGivesNull)
{
    EXPECT_EQ(nullptr, LoadLibrary("/dev/null"));
    EXPECT_EQ(nullptr, LoadLibrary("/"));
}

TEST(Loader, ALibraryOpensAndClosesMoreThanOnce)
{
    for (int i = 0; i < 3; ++i) {
        HMODULE library = LoadLibrary(AGENT_LIBRARIES "/vkmncall.dll");
        ASSERT_NE(nullptr, library);
        EXPECT_NE(nullptr, GetProcAddress(library, "VKMonitorCall"));
        EXPECT_NE(FALSE, FreeLibrary(library));
    }
}

TEST(Loader, AFunctionThatIsNotThereGivesNull)
{
    HMODULE library = LoadLibrary(AGENT_LIBRARIES "/vkmncall.dll");
    EXPECT_EQ(nullptr, GetProcAddress(library, "NoSuchFunction"));
    EXPECT_EQ(nullptr, GetProcAddress(library, ""));
    FreeLibrary(library);
}

TEST(Loader, WithoutALibraryNothingIsFoundOrFreed)
{
    EXPECT_EQ(nullptr, GetProcAddress(nullptr, "VKMonitorCall"));
    EXPECT_EQ(FALSE, FreeLibrary(nullptr));
}

TEST(Loader, TheModuleFindsAllThatItCallsInTheHostLibrary)
{
    HMODULE library = LoadLibrary(AGENT_LIBRARIES "/vkevmon.dll");
    ASSERT_NE(nullptr, library);
    for (const char *name : {"StartThread", "DllMain", "lpVKVMon", "nCnt"})
        EXPECT_NE(nullptr, GetProcAddress(library, name)) << name;
    EXPECT_NE(FALSE, FreeLibrary(library));
}

} // namespace
