// Where the agent's files are.
#include "agent/libtarsk/layout.h"

#include <cstring>

#include "platform/agent.h"
#include "tests/host/host_test.h"

namespace {

using tarsk::Layout;

TEST(LayoutOfARoot, HasAllFoldersBelowIt)
{
    const Layout layout = Layout::Below("/opt/agent");
    EXPECT_EQ("/opt/agent", layout.root);
    EXPECT_EQ("/opt/agent/state/agent.db", layout.Store());
    EXPECT_EQ("/opt/agent/run", layout.run);
    EXPECT_EQ("/opt/agent/log/trace.log", layout.TraceLog());
    EXPECT_EQ("/opt/agent/lib/vkevmon.dll", layout.Library("vkevmon.dll"));
}

TEST(LayoutOfARoot, IsAbsoluteAndWithoutATrailingSlash)
{
    EXPECT_EQ(std::filesystem::current_path() / "there", Layout::Below("there").root);
    EXPECT_EQ("/opt/agent", Layout::Below("/opt/x/../agent").root);
    EXPECT_EQ("/opt/agent", Layout::Below("/opt/agent/").root.string());
    EXPECT_EQ("/opt/agent", Layout::Below("/opt//agent/.").root.string());
}

TEST(LayoutOfAProgram, OutsideAnInstallRootIsThePackagedOne)
{
    // The test program does not lie in a folder "bin" beside a folder "lib" with the module.
    EXPECT_EQ("agent.db", Layout::Find().Store().filename());
    EXPECT_NE(Layout::Find().root, Layout::Find().state.parent_path());
}

class RootPath : public test::HostTest {};

TEST_F(RootPath, IsCopiedWithItsZeroByte)
{
    char buffer[4096];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_NE(0, GetTarskRootPath(buffer, sizeof buffer));
    EXPECT_EQ(Root().string(), buffer);
}

TEST_F(RootPath, ThatDoesNotFitIsCutInsideTheBuffer)
{
    const auto length = static_cast<int>(Root().string().size());
    std::string buffer(4096, 'x');
    EXPECT_NE(0, GetTarskRootPath(buffer.data(), length + 1));
    for (int size = 1; size <= length; ++size) {
        buffer.assign(4096, 'x');
        EXPECT_EQ(0, GetTarskRootPath(buffer.data(), size));
        EXPECT_EQ('\0', buffer[static_cast<size_t>(size) - 1]);
        EXPECT_EQ('x', buffer[static_cast<size_t>(size)]);
    }
    EXPECT_EQ(0, GetTarskRootPath(buffer.data(), 0));
    EXPECT_EQ(0, GetTarskRootPath(nullptr, 100));
}

TEST_F(RootPath, IsNotKnownWithoutAHost)
{
    tarsk::StopHost();
    char buffer[100] = {};
    EXPECT_EQ(0, GetTarskRootPath(buffer, sizeof buffer));
}

} // namespace
