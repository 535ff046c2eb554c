// Where the agent's files are.
#include "agent/host/layout.h"

#include <cstring>
#include <sys/stat.h>

#include "platform/agent.h"
#include "tests/agent/support/host_test.h"

namespace {

using host::Layout;

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

class Folders : public test::RootTest {
  protected:
    ~Folders() override { umask(before_); }

    void Create() const { Layout().CreateFolders(); }
    static mode_t ModeOf(const std::filesystem::path &path)
    {
        struct stat status {};
        EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
        return status.st_mode & 07777;
    }

  private:
    mode_t before_ = umask(0);
};

TEST_F(Folders, AreForThisUserAloneWhateverTheUmask)
{
    Create();
    for (const auto &folder : {Layout().state, Layout().run, Layout().log})
        EXPECT_EQ(0700U, ModeOf(folder)) << folder;
}

TEST_F(Folders, ThatTheAgentMadeAndLeftOpenArePutRight)
{
    Create();
    test::WriteFile(Layout().Store(), "");
    chmod(Layout().state.c_str(), 0755);
    chmod(Layout().run.c_str(), 0770);
    Create();
    EXPECT_EQ(0700U, ModeOf(Layout().state));
    EXPECT_EQ(0700U, ModeOf(Layout().run));
}

// That mode says that their group may read what is in them.
TEST_F(Folders, OfModeSevenHundredFiftyStayReadableForTheirGroup)
{
    Create();
    chmod(Layout().state.c_str(), 0750);
    Create();
    EXPECT_EQ(0750U, ModeOf(Layout().state));
}

TEST_F(Folders, ThatHoldSomethingElseAreLeftAlone)
{
    Create();
    test::WriteFile(Layout().run / "another.pid", "");
    chmod(Layout().run.c_str(), 01777);
    Create();
    EXPECT_EQ(01777U, ModeOf(Layout().run));
}

TEST_F(Folders, ThatCannotBeMadeAreNamed)
{
    test::WriteFile(Layout().run, "");
    EXPECT_EQ("cannot create the folder " + Layout().run.string() +
                  ": File exists; run as root, or name a folder of your own with --root",
              test::ErrorOf([&] { Create(); }));
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
    test::StopHost();
    char buffer[100] = {};
    EXPECT_EQ(0, GetTarskRootPath(buffer, sizeof buffer));
}

} // namespace
