// syslogmon reg get, set, delete, list.
#include <nlohmann/json.hpp>

#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;
using RegCommand = test::CommandTest;

TEST_F(RegCommand, SetAndGetAText)
{
    ExpectDone({"reg", "set", "Software\\Test", "Name", "a text"});
    ExpectOutput({"reg", "get", "software\\test", "NAME"}, "a text\n");
    EXPECT_EQ((json{{"version", 1},
                    {"key", "Software\\Test"},
                    {"value", {{"name", "Name"}, {"type", "sz"}, {"data", "a text"}}}}),
              Json({"reg", "get", "Software\\Test", "Name"}));
    StartHere();
    EXPECT_EQ(std::string("a text\0", 7), test::TreeValue("Software\\Test", "Name")->data);
}

TEST_F(RegCommand, SetAndGetANumber)
{
    for (const auto &[typed, shown] :
         {std::pair{"0", "0"}, {"4294967295", "4294967295"}, {"0xFF", "255"}, {"007", "7"}}) {
        ExpectDone({"reg", "set", "Key", "n", typed, "--type", "dword"});
        ExpectOutput({"reg", "get", "Key", "n"}, std::string(shown) + "\n");
    }
    EXPECT_EQ((json{{"name", "n"}, {"type", "dword"}, {"data", 7}}),
              Json({"reg", "get", "Key", "n"})["value"]);
}

TEST_F(RegCommand, SetAndGetBytes)
{
    for (const auto &[typed, shown] :
         {std::pair{"01abFF", "01 ab ff"}, {"01 AB,ff", "01 ab ff"}, {"", ""}}) {
        ExpectDone({"reg", "set", "Key", "b", typed, "--type", "binary"});
        ExpectOutput({"reg", "get", "Key", "b"}, std::string(shown) + "\n");
    }
}

TEST_F(RegCommand, SetRefusesDataThatIsNotOfItsType)
{
    ExpectDone({"reg", "set", "Key", "n", "1", "--type", "dword"});
    for (const char *data : {"4294967296", "-1", "abc", "", "0x", "0x100000000", "1 "})
        ExpectFailed({"reg", "set", "Key", "n", data, "--type", "dword"},
                     std::string("cannot store \"") + data +
                         "\" as dword: it is not of that form; use a number from 0 to 4294967295, "
                         "or 0x and hexadecimal digits");
    for (const char *data : {"1", "0g", "01 2", "0x01"})
        ExpectFailed({"reg", "set", "Key", "b", data, "--type", "binary"},
                     std::string("cannot store \"") + data +
                         "\" as binary: it is not of that form; use pairs of hexadecimal digits, "
                         "such as \"01 ab ff\"");
    ExpectUsage({"reg", "set", "Key", "b", "x", "--type", "qword"}, "--type");
}

TEST_F(RegCommand, SetRefusesNamesThatAreTooLong)
{
    ExpectFailed({"reg", "set", "New\\" + std::string(256, 'k'), "n", "x"},
                 "cannot create the registry key " + std::string(40, 'k') +
                     "...: its name has more than 255 bytes; choose a shorter name");
    ExpectFailed({"reg", "set", "New", std::string(16384, 'n'), "x"},
                 "cannot store the registry value " + std::string(40, 'n') +
                     ": its name or its data is too long; a name has at most 16383 bytes, a value "
                     "at most 1 MiB");
}

TEST_F(RegCommand, TheRootMayStandBeforeAPath)
{
    ExpectDone({"reg", "set", "HKEY_LOCAL_MACHINE\\Software\\Test", "n", "x"});
    ExpectOutput({"reg", "get", "Software\\Test", "n"}, "x\n");
    ExpectOutput({"reg", "list", "HKEY_LOCAL_MACHINE"}, "Software\t\tkey\t\n");
    ExpectDone({"reg", "set", "HKEY_LOCAL_MACHINES", "n", "x"}); // another name
    ExpectOutput({"reg", "list"}, "Software\t\tkey\t\nHKEY_LOCAL_MACHINES\t\tkey\t\n");
}

TEST_F(RegCommand, EveryVerbReadsAPathAlike)
{
    for (const char *root :
         {"HKLM\\", "hklm\\", "hkey_local_machine\\", "HKEY_LOCAL_MACHINE\\", ""}) {
        const std::string key = std::string(root) + "Software\\Test";
        ExpectDone({"reg", "set", key, "n", "x"});
        ExpectOutput({"reg", "list"}, "Software\t\tkey\t\n");
        ExpectOutput({"reg", "get", key, "n"}, "x\n");
        ExpectOutput({"reg", "list", key}, "Software\\Test\tn\tsz\tx\n");
        ExpectOutput({"reg", "export", key}, "Windows Registry Editor Version 5.00\n\n"
                                             "[HKEY_LOCAL_MACHINE\\Software\\Test]\n\"n\"=\"x\"\n");
        ExpectDone({"reg", "delete", key});
    }
    for (const char *root : {"HKLM", "hkey_local_machine"})
        ExpectOutput({"reg", "list", root}, "Software\t\tkey\t\n");
}

TEST_F(RegCommand, DeletingAKeyOfTheRootOrOneOfTheMonitorAsksToBeSure)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "error"});
    ExpectDone({"reg", "set", "Other\\Key", "n", "x"});
    const std::string monitor = "SOFTWARE\\KORBIN\\TARSKVOSKAR";
    for (const std::string key :
         {"SOFTWARE", "hklm\\software", "Other", monitor.c_str(), "software\\korbin"})
        ExpectFailed(
            {"reg", "delete", key},
            "cannot delete " + key +
                " without being sure: all below it would go with it: "
                "of the monitor, these are its events, settings or sinks; keep a copy with "
                "syslogmon reg export, and add --yes");
    ExpectDone({"reg", "delete", "Other\\Key"});
    ExpectDone({"reg", "delete", "Other", "--yes"});
    ExpectDone({"reg", "delete", "SOFTWARE", "--yes"});
    ExpectOutput({"event", "list"}, "");
}

TEST_F(RegCommand, KeysThatLieTooDeepAreNotMadeAndNotGoneThrough)
{
    std::string path = "k";
    for (int level = 2; level <= 512; ++level)
        path += "\\k";
    ExpectDone({"reg", "set", path, "n", "x"});
    EXPECT_EQ(0, Syslogmon({"reg", "export"}).status);
    const std::string start = path.substr(0, 40);
    ExpectFailed({"reg", "set", path + "\\k", "n", "x"},
                 "cannot create the registry key " + start +
                     "...: it lies in more than 512 keys; choose a shorter path");
    StartHere();
    std::string far = path;
    for (int level = 0; level < 20000; ++level)
        far += "\\k";
    {
        host::Transaction transaction(test::Store());
        test::Registry().Create(host::kRootKey, far);
        transaction.Commit();
    }
    test::StopHost();
    for (const test::Words &words :
         std::vector<test::Words>{{"reg", "export"}, {"reg", "list", "-r"}}) {
        const test::Finished finished = Syslogmon(words);
        EXPECT_EQ(1, finished.status);
        EXPECT_EQ(
            "syslogmon: cannot read the registry key " + path.substr(0, 60) +
                "...: it lies in more than 512 keys; take it away with syslogmon reg delete\n",
            finished.err);
    }
}

TEST_F(RegCommand, AValueCanStandInTheRoot)
{
    ExpectDone({"reg", "set", "HKEY_LOCAL_MACHINE", "n", "x"});
    ExpectOutput({"reg", "get", "HKEY_LOCAL_MACHINE", "n"}, "x\n");
}

TEST_F(RegCommand, GetOfWhatIsNotThereFails)
{
    ExpectFailed({"reg", "get", "None", "n"}, "cannot find the registry key None: there is none of "
                                              "that name; see syslogmon reg list");
    ExpectDone({"reg", "set", "Key", "n", "x"});
    ExpectFailed({"reg", "get", "Key", "m"}, "cannot find the registry value m: the key Key has "
                                             "none of that name; see syslogmon reg list");
    ExpectUsage({"reg", "get", "Key"}, "name is required");
}

TEST_F(RegCommand, ListShowsValuesAndSubkeys)
{
    ExpectDone({"reg", "set", "A", "text", "x"});
    ExpectDone({"reg", "set", "A", "number", "7", "--type", "dword"});
    ExpectDone({"reg", "set", "A\\B", "bytes", "0102", "--type", "binary"});
    ExpectOutput({"reg", "list", "A"}, "A\tnumber\tdword\t7\nA\ttext\tsz\tx\nA\\B\t\tkey\t\n");
    ExpectOutput({"reg", "list", "A", "-r"},
                 "A\tnumber\tdword\t7\nA\ttext\tsz\tx\nA\\B\tbytes\tbinary\t01 02\n");
    EXPECT_EQ((json{{"version", 1},
                    {"keys", json::array({{{"key", "A"},
                                           {"values",
                                            {{{"name", "number"}, {"type", "dword"}, {"data", 7}},
                                             {{"name", "text"}, {"type", "sz"}, {"data", "x"}}}},
                                           {"subkeys", {"B"}}}})}}),
              Json({"reg", "list", "A"}));
    EXPECT_EQ(2U, Json({"reg", "list", "A", "-r"})["keys"].size());
}

TEST_F(RegCommand, ListOfAnEmptyKeyNamesIt)
{
    ExpectOutput({"reg", "list"}, "HKEY_LOCAL_MACHINE\t\t\t\n");
    ExpectDone({"reg", "set", "A", "n", "x"});
    ExpectDone({"reg", "delete", "A", "n"});
    ExpectOutput({"reg", "list", "A"}, "A\t\t\t\n");
    ExpectFailed({"reg", "list", "None"}, "cannot find the registry key None: there is none of "
                                          "that name; see syslogmon reg list");
}

TEST_F(RegCommand, DeleteTakesAValueOrAKeyWithEverythingBelow)
{
    ExpectDone({"reg", "set", "A\\B\\C", "n", "x"});
    ExpectDone({"reg", "set", "A\\B", "n", "x"});
    ExpectDone({"reg", "delete", "a\\b", "N"});
    ExpectFailed({"reg", "get", "A\\B", "n"}, "cannot find the registry value n: the key A\\B has "
                                              "none of that name; see syslogmon reg list");
    ExpectOutput({"reg", "get", "A\\B\\C", "n"}, "x\n");
    ExpectDone({"reg", "delete", "A\\B"});
    ExpectOutput({"reg", "list", "-r"}, "A\t\t\t\n");
}

TEST_F(RegCommand, DeleteTakesTheValueWithoutANameAndNotItsKey)
{
    ExpectDone({"reg", "set", "A", "", "x"});
    ExpectDone({"reg", "set", "A", "n", "x"});
    ExpectDone({"reg", "delete", "A", ""});
    ExpectOutput({"reg", "list", "A"}, "A\tn\tsz\tx\n");
}

TEST_F(RegCommand, DeleteOfWhatIsNotThereFails)
{
    ExpectFailed({"reg", "delete", "None"}, "cannot find the registry key None: there is none of "
                                            "that name; see syslogmon reg list");
    ExpectDone({"reg", "set", "A", "n", "x"});
    ExpectFailed({"reg", "delete", "A", "m"}, "cannot delete the registry value m: the key A has "
                                              "none of that name; see syslogmon reg list");
    for (const char *root : {"HKEY_LOCAL_MACHINE", "HKEY_LOCAL_MACHINE\\", ""})
        ExpectFailed({"reg", "delete", root},
                     "cannot delete HKEY_LOCAL_MACHINE: it is the root; name a key below it");
}

TEST_F(RegCommand, BytesThatAreNoTextAreShownHarmlessly)
{
    StartHere();
    test::SetTreeText("Key", "line", "a\tb\x1B[2J\xFF");
    test::SetTreeValue("Key", "other", 7, "ab");
    test::SetTreeValue("Key", "short", REG_DWORD, "a");
    test::StopHost();
    ExpectOutput({"reg", "list", "Key"},
                 "Key\tline\tsz\ta b?[2J?\nKey\tother\tother\t61 62\nKey\tshort\tdword\t61\n");
    const json values = Json({"reg", "list", "Key"})["keys"][0]["values"];
    EXPECT_EQ("a\tb\x1B[2J\uFFFD", values[0]["data"]);
    EXPECT_EQ("other", values[1]["type"]);
}

} // namespace
