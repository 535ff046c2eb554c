// The fixtures of the host library's tests: an install root of the test's own, with a started host.
#ifndef TESTS_AGENT_SUPPORT_HOST_TEST_H
#define TESTS_AGENT_SUPPORT_HOST_TEST_H

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/host/error.h"
#include "platform/registry.h"
#include "tests/agent/support/the_host.h"

namespace test {

// Where the folders of the tests are made: in memory, if there is such a place. A new store is
// synchronised with its disk several times, which would be most of what a test waits for.
std::filesystem::path PlaceForFolders();

// A folder that is removed with its contents at the end.
class TempFolder {
  public:
    explicit TempFolder(const std::filesystem::path &place = PlaceForFolders());
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;
    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// A test with an install root, and no host in it.
class RootTest : public testing::Test {
  protected:
    explicit RootTest(const std::filesystem::path &place = PlaceForFolders());

    [[nodiscard]] std::filesystem::path Root() const { return folder_.path(); }
    [[nodiscard]] const host::Layout &Layout() const { return layout_; }
    // A file of the test, beside the agent's folders.
    [[nodiscard]] std::filesystem::path File(const std::string &name) const;

  private:
    TempFolder folder_;
    host::Layout layout_;
};

// A test in a started host: as a command's, so each write stands for itself.
class HostTest : public RootTest {
  protected:
    HostTest();
    ~HostTest() override;

    // Ends the host and starts another one on the same root.
    void Restart(host::Role role);
};

// The text of the host::Error that an action throws, or "no error".
template <typename Action>
std::string ErrorOf(const Action &action)
{
    try {
        action();
    } catch (const host::Error &error) {
        return error.what();
    }
    return "no error";
}

std::string ReadFile(const std::filesystem::path &path);
std::vector<std::string> ReadLines(const std::filesystem::path &path);
void WriteFile(const std::filesystem::path &path, const std::string &content);

// ---- the registry through its C interface ----

// Opens the key at a path below a key, creating what is missing. Null when that fails.
HKEY CreateKey(const std::string &path, HKEY parent = HKEY_LOCAL_MACHINE);
// Null when there is none.
HKEY OpenKey(const std::string &path, HKEY parent = HKEY_LOCAL_MACHINE);

LONG SetBytes(HKEY key, const std::string &name, DWORD type, const std::string &bytes);
LONG SetNumber(HKEY key, const std::string &name, uint32_t number);
// The value's bytes; "(none)" when it cannot be read.
std::string BytesOf(HKEY key, const std::string &name);

// The names of all subkeys, one RegEnumKeyEx after the other.
std::vector<std::string> SubKeys(HKEY key);

// ---- the registry as a tree ----

void SetTreeValue(const std::string &path, const std::string &name, uint32_t type,
                  const std::string &bytes);
void SetTreeText(const std::string &path, const std::string &name, const std::string &text);
void SetTreeNumber(const std::string &path, const std::string &name, uint32_t number);
std::optional<host::RegValue> TreeValue(const std::string &path, const std::string &name);

// The bytes of a number as a REG_DWORD holds it.
std::string NumberBytes(uint32_t number);

} // namespace test

#endif // TESTS_AGENT_SUPPORT_HOST_TEST_H
