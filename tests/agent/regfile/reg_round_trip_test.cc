// Registries to text and back, and what an import does.
#include "agent/regfile/reg_import.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"
#include "tests/agent/support/random_test.h"

namespace {

using namespace std::string_literals;

class RegRoundTrip : public test::HostTest {
  protected:
    test::RandomData random_;

    static std::vector<regfile::RegKeyContent> Contents()
    {
        return regfile::ReadRegKeys(test::Registry(), host::kRootKey, "");
    }
    // Without the layer of the text: paths, names, types and bytes, in the registry's order.
    static std::string Plain(const std::vector<regfile::RegKeyContent> &keys)
    {
        std::string text;
        for (const auto &key : keys) {
            text += "K" + std::to_string(key.path.size()) + ":" + key.path;
            for (const auto &value : key.values)
                text += "V" + std::to_string(value.name.size()) + ":" + value.name + "T" +
                        std::to_string(value.type) + "D" + std::to_string(value.data.size()) + ":" +
                        value.data;
        }
        return text;
    }
    std::string OddName(size_t max_size, const std::string &without)
    {
        std::string name;
        while (name.empty())
            name = random_.OneIn(5) ? random_.Bytes(max_size) : random_.OddText(max_size, without);
        for (char &c : name) {
            if (c == '\0' || without.find(c) != std::string::npos)
                c = '_';
        }
        return name;
    }
    void AddValues(host::KeyId key)
    {
        for (size_t count = random_.Below(5); count > 0; --count) {
            const std::string name = random_.OneIn(6) ? "" : OddName(60, "");
            const std::string text = random_.OddText(200, "");
            switch (random_.Below(5)) {
            case 0:
                test::Registry().Set(key, name, REG_SZ, text + '\0');
                break;
            case 1:
                test::Registry().Set(key, name, REG_DWORD, test::NumberBytes(random_.Number()));
                break;
            case 2:
                test::Registry().Set(key, name, REG_BINARY, random_.Bytes(300));
                break;
            case 3:
                test::Registry().Set(key, name, static_cast<uint32_t>(random_.Below(12)),
                                     random_.Bytes(20));
                break;
            default:
                test::Registry().Set(key, name, random_.Number(), text);
            }
        }
    }
    void Fill(host::KeyId key, int depth)
    {
        AddValues(key);
        if (depth == 0)
            return;
        for (size_t count = random_.Below(5); count > 0; --count)
            Fill(test::Registry().Create(key, OddName(40, "\\")), depth - 1);
    }
    void Empty()
    {
        auto &registry = test::Registry();
        for (const std::string &name : registry.SubKeys(host::kRootKey))
            registry.DeleteKey(*registry.Find(host::kRootKey, name));
        for (const auto &value : registry.Values(host::kRootKey))
            registry.DeleteValue(host::kRootKey, value.name);
    }
    static regfile::RegImport Import(const std::string &bytes)
    {
        const auto parsed = regfile::ParseRegText(bytes);
        EXPECT_EQ("", test::Text(parsed.issues));
        host::Transaction transaction(test::Store());
        const auto result = regfile::ImportRegSteps(parsed.steps, test::Registry());
        transaction.Commit();
        return result;
    }
    static regfile::RegImport ImportLines(const std::string &lines)
    {
        return Import("REGEDIT4\n" + lines);
    }
};

TEST_F(RegRoundTrip, EveryRegistryComesBackByteForByte)
{
    for (int round = 0; round < 25; ++round) {
        SCOPED_TRACE("SYSLOGMON_TEST_SEED=" + std::to_string(random_.seed()));
        {
            host::Transaction transaction(test::Store());
            Fill(host::kRootKey, 4);
            transaction.Commit();
        }
        const auto before = Contents();
        const std::string text = regfile::FormatRegText(before);
        for (const std::string &file : {text, regfile::ToUtf16File(text), "\xEF\xBB\xBF" + text}) {
            Empty();
            ASSERT_EQ(1U, Contents().size());
            Import(file);
            ASSERT_EQ(Plain(before), Plain(Contents()));
        }
        const auto again = Import(text);
        ASSERT_EQ(0U, again.keys_created + again.values_set + again.keys_deleted);
        Empty();
    }
}

TEST_F(RegRoundTrip, FilesWithChangedBytesAreTakenOrRefused)
{
    Fill(host::kRootKey, 3);
    const std::string text = regfile::FormatRegText(Contents());
    for (int round = 0; round < 3000; ++round) {
        std::string changed = text;
        for (size_t count = 1 + random_.Below(4); count > 0; --count)
            changed[random_.Below(changed.size())] = static_cast<char>(random_.Below(256));
        const auto parsed = regfile::ParseRegText(changed);
        for (const auto &step : parsed.steps) {
            ASSERT_GE(host::kMaxValueName, step.value.name.size());
            ASSERT_EQ(std::string::npos, step.path.find("\\\\"));
        }
    }
}

TEST_F(RegRoundTrip, EveryTruncationIsTakenOrRefused)
{
    Fill(host::kRootKey, 2);
    const std::string text = regfile::FormatRegText(Contents()).substr(0, 5000);
    const size_t all = regfile::ParseRegText(text).steps.size();
    for (size_t size = 0; size < text.size(); ++size)
        ASSERT_GE(all + 1,
                  regfile::ParseRegText(std::string_view(text).substr(0, size)).steps.size());
}

// ---- import ----

using RegImport = RegRoundTrip;

TEST_F(RegImport, CountsWhatItDoes)
{
    const auto first = ImportLines("[HKLM\\A\\B]\n\"x\"=\"1\"\n@=dword:1\n[HKLM\\C]\n");
    EXPECT_EQ(2U, first.keys_created);
    EXPECT_EQ(2U, first.values_set);
    EXPECT_EQ(0U, first.unchanged);
    const auto second =
        ImportLines("[HKLM\\a\\b]\n\"X\"=\"1\"\n@=\"1\"\n\"none\"=-\n[-HKLM\\none]\n"
                    "[-HKLM\\C]\n[HKLM\\A]\n\"y\"=hex:\n\"y\"=-\n");
    EXPECT_EQ(0U, second.keys_created);
    EXPECT_EQ(2U, second.values_set);
    EXPECT_EQ(1U, second.values_deleted);
    EXPECT_EQ(1U, second.keys_deleted);
    EXPECT_EQ(3U, second.unchanged);
}

TEST_F(RegImport, ADeletedKeyGoesWithAllBelowItAndMayComeBack)
{
    ImportLines("[HKLM\\A\\B\\C]\n\"x\"=\"1\"\n[HKLM\\A\\D]\n");
    ImportLines("[-HKLM\\a\\b]\n[HKLM\\A\\B]\n\"y\"=\"2\"\n");
    EXPECT_EQ("Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE]\n\n"
              "[HKEY_LOCAL_MACHINE\\A]\n\n[HKEY_LOCAL_MACHINE\\A\\D]\n\n"
              "[HKEY_LOCAL_MACHINE\\A\\B]\n\"y\"=\"2\"\n",
              regfile::FormatRegText(Contents()));
}

TEST_F(RegImport, KnowsWhetherTheEventsWereTouched)
{
    const std::string table = "HKLM\\"s + kApplicationKey;
    const std::string event = table + "\\DISK\\1\\WATCHSETTING";
    const auto touched = [](const std::string &lines) { return ImportLines(lines).touched_table; };
    EXPECT_FALSE(touched("[HKLM\\SOFTWARE\\Other]\n\"x\"=\"1\"\n"));
    EXPECT_FALSE(touched("[HKLM\\"s + kMonitorKey + "]\n\"CYCLE\"=dword:3c\n"));
    EXPECT_FALSE(touched("[HKLM\\"s + kMonitorKey + "\\APPLICATIONS]\n\"x\"=dword:3c\n"));
    EXPECT_TRUE(touched("[" + table + "]\n"));
    EXPECT_FALSE(touched("[" + table + "]\n"));
    EXPECT_TRUE(touched("[" + event + "]\n\"KeyWord\"=\"x\"\n"));
    EXPECT_FALSE(touched("[" + event + "]\n\"KeyWord\"=\"x\"\n\"none\"=-\n"));
    EXPECT_TRUE(
        touched("[hklm\\software\\korbin\\tarskvoskar\\reporttable\\eventlog\\application\\disk"
                "\\1\\watchsetting]\n\"KeyWord\"=\"y\"\n"));
    EXPECT_TRUE(touched("[" + event + "]\n\"KeyWord\"=-\n"));
    EXPECT_TRUE(touched("[-" + event + "]\n"));
    EXPECT_FALSE(touched("[-" + event + "]\n"));
    EXPECT_TRUE(touched("[-HKLM\\SOFTWARE\\KORBIN]\n"));
    EXPECT_FALSE(touched("[-HKLM\\SOFTWARE\\Other]\n"));
}

} // namespace
