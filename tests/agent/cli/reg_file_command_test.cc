// syslogmon reg export and reg import, as processes.
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;
using test::Finished;
using namespace std::string_literals;

class RegFileCommand : public test::CommandTest {
  protected:
    [[nodiscard]] std::string RegFile(const std::string &lines) const
    {
        test::WriteFile(File("file.reg"), "REGEDIT4\n" + lines);
        return File("file.reg").string();
    }
    [[nodiscard]] std::string Registry() const { return Syslogmon({"reg", "export"}).out; }
    [[nodiscard]] Finished Import(const std::string &lines) const
    {
        return Syslogmon({"reg", "import", RegFile(lines)});
    }
};

const std::string kHead = "Windows Registry Editor Version 5.00\n";

TEST_F(RegFileCommand, ExportPrintsAKeyAndAllBelowIt)
{
    ExpectOutput({"reg", "export"}, kHead + "\n[HKEY_LOCAL_MACHINE]\n");
    ExpectDone({"reg", "set", "A\\B", "n", "1", "--type", "dword"});
    ExpectDone({"reg", "set", "A", "s", "x"});
    ExpectDone({"reg", "set", "C", "s", "x"});
    const std::string text =
        kHead + "\n[HKEY_LOCAL_MACHINE\\A]\n\"s\"=\"x\"\n\n[HKEY_LOCAL_MACHINE\\A\\B]\n"
                "\"n\"=dword:00000001\n";
    for (const char *key : {"A", "HKLM\\A", "HKEY_LOCAL_MACHINE\\A"})
        ExpectOutput({"reg", "export", key}, text);
    ExpectFailed(
        {"reg", "export", "None"},
        "cannot find the registry key None: there is none of that name; see syslogmon reg list");
}

TEST_F(RegFileCommand, ExportWritesUtf16OnRequest)
{
    ExpectDone({"reg", "set", "A", "s", "\u00E4\U0001F600"});
    const Finished finished = Syslogmon({"reg", "export", "--utf16"});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(0U, finished.out.find("\xFF\xFEW\0i\0n\0"s));
    const std::string before = Registry();
    test::WriteFile(File("file.reg"), finished.out);
    ExpectDone({"reg", "delete", "A", "--yes"});
    EXPECT_EQ(0, Syslogmon({"reg", "import", File("file.reg").string()}).status);
    EXPECT_EQ(before, Registry());
}

TEST_F(RegFileCommand, ExportInJsonHasTypesAndBytes)
{
    ExpectDone({"reg", "set", "A", "s", "x"});
    EXPECT_EQ(
        (json{{"version", 1},
              {"keys",
               json::array(
                   {{{"key", "A"},
                     {"values", json::array({{{"name", "s"}, {"type", 1}, {"hex", "7800"}}})}}})}}),
        Json({"reg", "export", "A"}));
}

TEST_F(RegFileCommand, ImportSaysWhatItDid)
{
    EXPECT_EQ("1 keys created, 0 keys deleted, 2 values set, 0 values deleted, 0 unchanged.\n",
              Import("[HKLM\\A]\n\"a\"=\"x\"\n@=dword:1\n").out);
    const std::string file = RegFile("[HKLM\\A]\n\"a\"=\"x\"\n@=-\n[-HKLM\\B]\n");
    EXPECT_EQ((json{{"version", 1},
                    {"file", file},
                    {"keys_created", 0},
                    {"keys_deleted", 0},
                    {"values_set", 0},
                    {"values_deleted", 1},
                    {"unchanged", 2},
                    {"touched_events", false},
                    {"changed_settings", json::array()}}),
              Json({"reg", "import", file}));
    ExpectOutput({"reg", "list", "A"}, "A\ta\tsz\tx\n");
}

TEST_F(RegFileCommand, ImportNamesEveryBadLineAndChangesNothing)
{
    const std::string file = RegFile("[HKLM\\A]\n\"a\"=\"x\"\n\"b\"=hex:0\n\nfoo\n");
    const std::string before = Registry();
    const Finished finished = Syslogmon({"reg", "import", file});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_EQ(
        file +
            ":4:9: cannot read the bytes: two hexadecimal digits must stand here; write bytes as "
            "01,ab,ff; a line that goes on ends in a comma and a backslash\n" +
            file +
            ":6:1: cannot read the line: it is neither a key nor a value nor a comment; begin a "
            "key with "
            "[, a "
            "value with \" or @, a comment with ;\n"
            "syslogmon: cannot import " +
            file + ": it has 2 mistakes; correct what is said above; nothing was done\n",
        finished.err);
    EXPECT_EQ(before, Registry());
    const json errors = Json({"reg", "import", file}, 1)["errors"];
    ASSERT_EQ(2U, errors.size());
    EXPECT_EQ(4, errors[0]["line"]);
    EXPECT_EQ(9, errors[0]["column"]);
}

TEST_F(RegFileCommand, ImportNamesAFileThatItCannotRead)
{
    ExpectFailed(
        {"reg", "import", File("none").string()},
        "cannot read " + File("none").string() +
            ": No such file or directory; name a file that you may read, or - for standard "
            "input");
    ExpectUsage({"reg", "import"}, "file is required");
}

TEST_F(RegFileCommand, ImportWakesTheMonitorWhenEventsWereTouched)
{
    StartHere();
    HANDLE changed = CreateEvent(nullptr, FALSE, FALSE, kTableEvent);
    EXPECT_EQ(0, Import("[HKLM\\Other]\n\"a\"=\"x\"\n").status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    const std::string event =
        "[HKLM\\"s + kApplicationKey + "\\DISK\\1\\WATCHSETTING]\n\"KeyWord\"=\"x\"\n";
    EXPECT_EQ("1 keys created, 0 keys deleted, 1 values set, 0 values deleted, 0 unchanged.\n"
              "The registered events were touched.\n",
              Import(event).out);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(changed, 0));
    EXPECT_EQ(0, Import(event).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    CloseHandle(changed);
}

TEST_F(RegFileCommand, ImportTellsTheMonitorOfSettings)
{
    StartHere();
    HANDLE cycle = CreateEvent(nullptr, FALSE, FALSE, kCycleEvent);
    HANDLE file = CreateEvent(nullptr, FALSE, FALSE, kFileMonitorEvent);
    const std::string lines = "[HKLM\\"s + kMonitorKey + "]\n\"CYCLE\"=dword:3c\n";
    EXPECT_EQ("1 keys created, 0 keys deleted, 1 values set, 0 values deleted, 0 unchanged.\n"
              "The setting cycle was changed.\n",
              Import(lines).out);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(cycle, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(file, 0));
    EXPECT_EQ(0, Import(lines).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(cycle, 0));
    CloseHandle(cycle);
    CloseHandle(file);
}

TEST_F(RegFileCommand, ImportWaitsForTheMutexOfTheTable)
{
    StartHere();
    HANDLE mutex = CreateMutex(nullptr, TRUE, kTableMutex);
    test::Child child(test::Command(Root(), {"reg", "import", RegFile("[HKLM\\New]\n")}));
    usleep(300 * 1000);
    EXPECT_EQ(std::string::npos, Registry().find("New"));
    ReleaseMutex(mutex);
    EXPECT_EQ(0, child.Wait());
    EXPECT_NE(std::string::npos, Registry().find("New"));
    CloseHandle(mutex);
}

TEST_F(RegFileCommand, EventsTravelFromOneHostToAnother)
{
    ExpectDone({"event", "add", "DISK", "1A", "-k", "I/O \"error\" \\ \xE4", "-n", "3", "--hours",
                "22-6"});
    ExpectDone({"set", "cycle", "60"});
    const std::string before = Registry();
    test::WriteFile(File("all.reg"), before);
    const std::filesystem::path other = Root() / "other";
    std::filesystem::create_directory(other);
    std::filesystem::create_directory_symlink(AGENT_LIBRARIES, other / "lib");
    const auto on_other = [&](const test::Words &words) {
        return test::RunToEnd(test::Command(other, words));
    };
    EXPECT_EQ(0, on_other({"reg", "import", File("all.reg").string()}).status);
    EXPECT_EQ(before, on_other({"reg", "export"}).out);
    EXPECT_EQ(Syslogmon({"event", "list"}).out, on_other({"event", "list"}).out);
}

} // namespace
