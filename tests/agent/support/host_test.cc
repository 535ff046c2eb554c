#include "tests/agent/support/host_test.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace test {

namespace fs = std::filesystem;

fs::path PlaceForFolders()
{
    const fs::path memory = "/dev/shm";
    const bool usable = getenv("TMPDIR") == nullptr && access(memory.c_str(), W_OK) == 0;
    return usable ? memory : fs::temp_directory_path();
}

TempFolder::TempFolder(const fs::path &place)
{
    std::string name = (place / "host_test.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot create a temporary folder");
    path_ = fs::canonical(name);
}

TempFolder::~TempFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

RootTest::RootTest(const fs::path &place)
    : folder_(place), layout_(host::Layout::Below(folder_.path()))
{
}

fs::path RootTest::File(const std::string &name) const
{
    return Root() / name;
}

HostTest::HostTest()
{
    StartHost(Layout(), host::Role::kCommand);
}

HostTest::~HostTest()
{
    StopHost();
}

void HostTest::Restart(host::Role role)
{
    StartHost(Layout(), role);
}

std::string ReadFile(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> ReadLines(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

void WriteFile(const fs::path &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
}

HKEY CreateKey(const std::string &path, HKEY parent)
{
    HKEY key = nullptr;
    const LONG result =
        RegCreateKeyEx(parent, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    return result == ERROR_SUCCESS ? key : nullptr;
}

HKEY OpenKey(const std::string &path, HKEY parent)
{
    HKEY key = nullptr;
    const LONG result = RegOpenKeyEx(parent, path.c_str(), 0, KEY_READ, &key);
    return result == ERROR_SUCCESS ? key : nullptr;
}

LONG SetBytes(HKEY key, const std::string &name, DWORD type, const std::string &bytes)
{
    return RegSetValueEx(key, name.c_str(), 0, type, bytes.data(),
                         static_cast<DWORD>(bytes.size()));
}

LONG SetNumber(HKEY key, const std::string &name, uint32_t number)
{
    return SetBytes(key, name, REG_DWORD, NumberBytes(number));
}

std::string BytesOf(HKEY key, const std::string &name)
{
    DWORD size = 0;
    if (RegQueryValueEx(key, name.c_str(), nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return "(none)";
    std::string bytes(size, '\0');
    const LONG result = RegQueryValueEx(key, name.c_str(), nullptr, nullptr, bytes.data(), &size);
    return result == ERROR_SUCCESS ? bytes : "(none)";
}

std::vector<std::string> SubKeys(HKEY key)
{
    std::vector<std::string> names;
    char name[256] = {};
    for (DWORD index = 0;; ++index) {
        DWORD size = sizeof name;
        if (RegEnumKeyEx(key, index, name, &size, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS)
            return names;
        names.emplace_back(name);
    }
}

void SetTreeValue(const std::string &path, const std::string &name, uint32_t type,
                  const std::string &bytes)
{
    auto &registry = Registry();
    registry.Set(registry.Create(host::kRootKey, path), name, type, bytes);
}

void SetTreeText(const std::string &path, const std::string &name, const std::string &text)
{
    SetTreeValue(path, name, REG_SZ, text + '\0');
}

void SetTreeNumber(const std::string &path, const std::string &name, uint32_t number)
{
    SetTreeValue(path, name, REG_DWORD, NumberBytes(number));
}

std::optional<host::RegValue> TreeValue(const std::string &path, const std::string &name)
{
    auto &registry = Registry();
    const auto key = registry.Find(host::kRootKey, path);
    return key ? registry.Get(*key, name) : std::nullopt;
}

std::string NumberBytes(uint32_t number)
{
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

} // namespace test
