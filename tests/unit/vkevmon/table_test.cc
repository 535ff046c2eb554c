// Loading the events of the monitoring table.
#include <cstring>

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "tests/unit/vkevmon/table_fixture.h"
#include "vkevmon/table.h"

namespace {

using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::kAllHours;
using test::kApplicationKey;
using test::Rows;
using test::SettingsKey;
using test::SourceKey;
using test::TableLoad;
using test::TextsOf;

// ---- loading ----

TEST_F(TableLoad, OfNoSourcesIsEmpty)
{
    ExpectLoads({});
    ExpectNothingToTell();
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, WithoutTheApplicationKeyFails)
{
    Host().registry.DeleteKey(kApplicationKey);
    ExpectFails();
    EXPECT_EQ((std::vector<std::string>{"<RegOpenKeyEx() failed. return -1.",
                                        "SearchSubKey(SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\"
                                        "EVENTLOG\\APPLICATION) ERROR"}),
              Host().Texts(1));
    ExpectTraced(1, "VKVMonQueGet", std::string("SearchSubKey(") + kApplicationKey + ") ERROR");
}

TEST_F(TableLoad, TakesEveryFieldFromTheRegistry)
{
    Register({.source = "Source Name",
              .id = "1A2B",
              .keywords = {"first", "second word", "third"},
              .report_count = 7,
              .watch_time = 0x00810001});
    ExpectLoads({"Source Name|1A2B|first|second word|third|7|810001|0"});
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: Source Name...");
    ExpectTraced(0, "VKVMonQueGet", "loading source: Source Name, event: 1A2B");
    ExpectNothingToTell();
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, ZeroesTheEntryBehindItsTexts)
{
    Register(Event("S", "1", "kw"));
    ASSERT_EQ(0, VKVMonQueGet());
    ASSERT_EQ(1, nCnt);
    VKVMon want{};
    strcpy(want.Keyword1, "kw");
    strcpy(want.Source, "S");
    want.EventID = 1;
    want.ReportCount = 1;
    want.WatchTime = kAllHours;
    test::ExpectSameFields(want, *lpVKVMon[0]);
}

TEST_F(TableLoad, KeepsTheOrderOfTheRegistry)
{
    Register(Event("Zeta", "2"));
    Register(Event("Alpha", "9"));
    Register(Event("Zeta", "1"));
    Register(Event("Alpha", "10"));
    Register(Event("Mid", "F"));
    ExpectLoads({"Zeta|2|word|||1|FFFFFF|0", "Zeta|1|word|||1|FFFFFF|0",
                 "Alpha|9|word|||1|FFFFFF|0", "Alpha|10|word|||1|FFFFFF|0",
                 "Mid|F|word|||1|FFFFFF|0"});
}

TEST_F(TableLoad, TakesNumbersAsTheyAre)
{
    Register({.source = "S", .id = "1", .keywords = {"w"}, .report_count = 0, .watch_time = 0});
    Register({.source = "S",
              .id = "2",
              .keywords = {"w"},
              .report_count = 0xFFFFFFFF,
              .watch_time = 0xFFFFFFFF});
    Register({.source = "S", .id = "3", .keywords = {"w"}, .report_count = 0x7FFFFFFF});
    ExpectLoads({"S|1|w|||0|0|0", "S|2|w|||-1|FFFFFFFF|0", "S|3|w|||2147483647|FFFFFF|0"});
}

TEST_F(TableLoad, ReplacesTheTableAndItsCounts)
{
    AddEntry({.source = "Old"})->CurrentCount = 5;
    AddEntry({.source = "Older"});
    Register(Event("New", "1"));
    ExpectLoads({"New|1|word|||1|FFFFFF|0"});
    ASSERT_EQ(1, nCnt);
    lpVKVMon[0]->CurrentCount = 5;
    Host().ForgetRecords();
    ExpectLoads({"New|1|word|||1|FFFFFF|0"});
}

TEST_F(TableLoad, ThatFailsLeavesNothingOfTheOldTable)
{
    AddEntry({.source = "Old"});
    Host().registry.DeleteKey(kApplicationKey);
    ExpectFails();
}

TEST_F(TableLoad, OfASourceWithoutEventsGoesOn)
{
    Host().registry.CreateKey(SourceKey("Bare"));
    Register(Event("S", "1"));
    ExpectLoads({"S|1|word|||1|FFFFFF|0"});
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: Bare...");
}

TEST_F(TableLoad, LeavesOutASourceWithATypeOfItsOwnWhateverItsSubkeys)
{
    Register(Event("Typed", "1"));
    Host().registry.CreateKey(SourceKey("Typed") + "\\2"); // would fail the load
    Host().registry.SetNumber(SourceKey("Typed"), "NEWAPPLICATIONTYPE", 0);
    Register(Event("S", "1"));
    ExpectLoads({"S|1|word|||1|FFFFFF|0"});
    ExpectTraced(0, "SearchSubKey", "The Type of Source: Typed is 0.");
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: Typed...", 0);
}

TEST_F(TableLoad, TakesASourceNameOf255Characters)
{
    const std::string name(255, 'n');
    Register(Event(name, "FFFFFFFF"));
    ExpectLoads({name + "|FFFFFFFF|word|||1|FFFFFF|0"});
}

TEST_F(TableLoad, FailsOnASourceNameThatCannotBeListed)
{
    Register(Event("S", "1"));
    Register(Event(std::string(256, 'n'), "1"));
    ExpectFails();
    EXPECT_EQ(
        (std::vector<std::string>{"<RegEnumKeyEx failed.return -1.",
                                  std::string("SearchSubKey(") + kApplicationKey + ") ERROR"}),
        Host().Texts(1));
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, OpensTheKeysInOrderAndClosesEach)
{
    Register(Event("S", "1"));
    ASSERT_EQ(0, VKVMonQueGet());
    const std::vector<std::string> listing = {"RegOpenKeyEx", "RegQueryInfoKey", "RegEnumKeyEx"};
    std::vector<std::string> want = listing;
    want.insert(want.end(), {"VKACRERegReadEx", "RegCloseKey"});
    want.insert(want.end(), listing.begin(), listing.end());
    want.insert(want.end(), {"RegCloseKey", "RegOpenKeyEx"});
    for (int keyword = 0; keyword < 3; ++keyword)
        want.insert(want.end(), {"RegQueryValueEx", "TarskCodeConvert"});
    want.insert(want.end(), {"RegQueryValueEx", "RegQueryValueEx", "RegCloseKey"});
    EXPECT_EQ(want, Host().calls);
}

// ---- IDs ----

TEST_F(TableLoad, ReadsTheIdAsHexadecimalAsFarAsItGoes)
{
    struct Case {
        const char *name;
        uint32_t id;
    };
    const std::vector<Case> cases = {
        {"1A2B", 6699},
        {"1a2c", 6700},
        {"0", 0},
        {"XY", 0},
        {"0x10", 16},
        {"0X1f", 31},
        {"12XY", 0x12},
        {"G1", 0},
        {"80000000", 0x80000000},
        {"FFFFFFFF", 0xFFFFFFFF},
        {"00000000000001F", 0x1F},
        {" 7", 7},
        {"7 8", 7},
        {"-", 0},
        {"0x", 0},
        {"(1)", 0},
        {"e9", 0xE9},
    };
    Rows rows;
    for (const auto &c : cases) {
        Register(Event("S", c.name));
        rows.push_back("S|" + test::Hex(c.id) + "|word|||1|FFFFFF|0");
    }
    ExpectLoads(rows);
}

TEST_F(TableLoad, TakesTheLowBitsOfAnIdOfMoreThanEightDigits)
{
    Register(Event("S", "FFFFFFFFF"));
    Register(Event("S", "123456789ABCDEF"));
    ExpectLoads({"S|FFFFFFFF|word|||1|FFFFFF|0", "S|89ABCDEF|word|||1|FFFFFF|0"});
}

TEST_F(TableLoad, TakesAnIdNameOf15CharactersAndRefusesLongerOnes)
{
    const std::string fits = "1" + std::string(14, ' ');
    Register(Event("S", fits));
    for (const size_t length : {16U, 17U, 64U, 254U, 255U})
        Register(Event("S", std::string(length, 'a')));
    Register(Event("S", "2"));
    ExpectLoads({"S|1|word|||1|FFFFFF|0", "S|2|word|||1|FFFFFF|0"});
    EXPECT_EQ(5U, Host().Texts(1).size());
    ExpectTraced(1, "SearchSubKey",
                 "The name of subkey " + std::string(16, 'a') + " is too long, skip it.");
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, FailsOnAnIdThatCannotBeListed)
{
    Register(Event("S", "1"));
    Register(Event("S", std::string(256, 'a')));
    ExpectFails();
    ExpectTraced(1, "SearchSubKey", "<RegEnumKeyEx failed.return -1.");
    ExpectTraced(1, "VKVMonQueGet", "SearchSubKey(" + SourceKey("S") + ") ERROR");
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, TakesTheLongestPathsThatThereAre)
{
    const std::string source(255, 's');
    Register(Event(source, "123456789ABCDEF"));
    Host().registry.DeleteValue(SettingsKey(source, "123456789ABCDEF"), "WatchTime");
    ExpectFails();
    ExpectTraced(1, "VKVMonQueGet",
                 "reg WatchTime of key " + SettingsKey(source, "123456789ABCDEF") + " not found.");
}

// ---- keywords ----

// The value names of the keywords: the first has no digit.
const char *const keyword_values[] = {"KeyWord", "KeyWord2", "KeyWord3"};

class TableKeywords : public TableLoad {
  protected:
    TableKeywords() { Register({.source = "S", .id = "1", .keywords = {"one", "two", "three"}}); }

    static void Store(int keyword, const std::string &bytes, DWORD type = REG_SZ)
    {
        Host().registry.SetBytes(SettingsKey("S", "1"), keyword_values[keyword - 1], type, bytes);
    }
    static void Delete(int keyword)
    {
        Host().registry.DeleteValue(SettingsKey("S", "1"), keyword_values[keyword - 1]);
    }
    static void Store3(const std::string &bytes)
    {
        for (const int keyword : {1, 2, 3})
            Store(keyword, bytes);
    }
    static std::string Failed(int keyword)
    {
        return "keyword" + std::to_string(keyword) + " RegQueryValueEx " + SettingsKey("S", "1") +
               " failed.\n";
    }
    static void ExpectKeywords(const std::string &one, const std::string &two,
                               const std::string &three)
    {
        ExpectLoads({"S|1|" + one + "|" + two + "|" + three + "|1|FFFFFF|0"});
    }
};

TEST_F(TableKeywords, OfAnySizeUpTo256CharactersAreTakenWhole)
{
    for (const size_t size : {1U, 2U, 100U, 255U, 256U}) {
        Host().ForgetRecords();
        const std::string word(size, 'w');
        Store3(word + '\0');
        ExpectKeywords(word, word, word);
    }
}

TEST_F(TableKeywords, OfMoreThan256CharactersAreCutTo256)
{
    const std::string cut = std::string(255, 'w') + "e";
    for (const size_t size : {257U, 258U, 300U, 5000U}) {
        Host().ForgetRecords();
        Store3(cut + std::string(size - 256, 'x') + '\0');
        ExpectKeywords(cut, cut, cut);
        ExpectKeysLeftOpen(0);
    }
}

TEST_F(TableKeywords, ThatAreLongAreConvertedBeforeTheyAreCut)
{
    Host().convert = [](const std::string &text, int, int) { return text.substr(100); };
    Store3(std::string(100, 'x') + std::string(256, 'w') + "x" + '\0');
    const std::string cut(256, 'w');
    ExpectKeywords(cut, cut, cut);
}

TEST_F(TableKeywords, ThatAreLongAndCannotBeReadFail)
{
    Store(1, std::string(300, 'w') + '\0');
    Host().FailCall("RegQueryValueEx", 2);
    ExpectFails();
    ExpectTraced(1, "VKVMonQueGet", Failed(1));
    ExpectKeysLeftOpen(0);
}

TEST_F(TableKeywords, ThatAreLongAndForWhichThereIsNoMemoryFail)
{
    Store(1, std::string(300, 'w') + '\0');
    test::Sys().FailCall("calloc", 2 * kMaxEntries + 1); // the first behind the arrays
    ExpectFails();
    ExpectTraced(1, "VKVMonQueGet", Failed(1));
    ExpectKeysLeftOpen(0);
}

TEST_F(TableKeywords, Of257BytesWithoutAZeroByteAreCutTo256)
{
    Store3(std::string(257, 'w'));
    const std::string cut(256, 'w');
    ExpectKeywords(cut, cut, cut);
}

TEST_F(TableKeywords, WithoutAZeroByteEndWithTheValue)
{
    Store(1, "abc");
    Store(2, std::string(256, 'x'));
    Store(3, "z");
    ExpectKeywords("abc", std::string(256, 'x'), "z");
}

TEST_F(TableKeywords, DoNotKeepBytesOfTheKeywordBefore)
{
    Store(1, std::string(256, 'x') + '\0');
    Store(2, "ab");
    Store(3, "");
    ExpectKeywords(std::string(256, 'x'), "ab", "");
}

TEST_F(TableKeywords, EndAtAZeroByteInsideTheValue)
{
    Store(1, std::string("ab\0cd\0", 6));
    ExpectKeywords("ab", "two", "three");
}

TEST_F(TableKeywords, OfAnotherTypeAreTheBytesTheyHave)
{
    Store(1, "binary", REG_BINARY);
    Host().registry.SetNumber(SettingsKey("S", "1"), "KeyWord2", 0x64636261);
    Host().registry.SetNumber(SettingsKey("S", "1"), "KeyWord3", 0);
    ExpectKeywords("binary", "abcd", "");
}

TEST_F(TableKeywords, AreConvertedToTheCharacterSetOfTheLog)
{
    Host().convert = [](const std::string &text, int from, int to) {
        EXPECT_EQ(0, from);
        EXPECT_EQ(1, to);
        return "<" + text + ">";
    };
    ExpectKeywords("<one>", "<two>", "<three>");
}

TEST_F(TableKeywords, ThatGrowInTheConversionAreCutTo256)
{
    Host().convert = [](const std::string &text, int, int) { return text + text; };
    Store(1, std::string(200, 'w') + '\0');
    ExpectKeywords(std::string(256, 'w'), "twotwo", "threethree");
}

TEST_F(TableKeywords, WithSomethingInAnyOneOfThemMakeAnEntry)
{
    Store3(std::string(1, '\0'));
    Store(1, "w");
    ExpectKeywords("w", "", "");
    Host().ForgetRecords();
    Store3(std::string(1, '\0'));
    Store(2, "w");
    ExpectKeywords("", "w", "");
    Host().ForgetRecords();
    Store3("");
    Store(3, "w");
    ExpectKeywords("", "", "w");
    ExpectNothingToTell();
    ExpectKeysLeftOpen(0);
}

// The settings key of such an event stays open.
TEST_F(TableKeywords, ThatAreAllEmptyMakeNoEntry)
{
    Store3(std::string(1, '\0'));
    Register(Event("S", "2"));
    Register(Event("T", "3"));
    ExpectLoads({"S|2|word|||1|FFFFFF|0", "T|3|word|||1|FFFFFF|0"});
    ExpectTraced(1, "VKVMonQueGet", "Three keywords are all empty .");
    ExpectTraced(0, "VKVMonQueGet", "loading source: S, event: 1", 0);
    ExpectKeysLeftOpen(1);
}

TEST_F(TableKeywords, ThatAreAllEmptyNeedNeitherReportCountNorHours)
{
    Store3("");
    Host().registry.DeleteValue(SettingsKey("S", "1"), "ReportCount");
    Host().registry.DeleteValue(SettingsKey("S", "1"), "WatchTime");
    ExpectLoads({});
    ExpectKeysLeftOpen(1);
}

TEST_F(TableKeywords, AreEmptyWhenTheConversionLeavesNothing)
{
    Host().convert = [](const std::string &, int, int) { return std::string(); };
    ExpectLoads({});
    ExpectTraced(1, "VKVMonQueGet", "Three keywords are all empty .");
}

TEST_F(TableKeywords, WithoutTheFirstFailTheLoadAtOnce)
{
    Delete(1);
    Register(Event("T", "1"));
    ExpectFails();
    EXPECT_EQ(std::vector<std::string>{Failed(1)}, Host().Texts(1));
    EXPECT_TRUE(Host().Texts(3).empty());
    EXPECT_EQ(1, Host().Calls("RegQueryValueEx"));
    ExpectKeysLeftOpen(0);
}

// The settings key is closed when a keyword cannot be read, and the reads that follow go to the
// closed key: the load fails at the report count.
TEST_F(TableKeywords, WithoutTheSecondAreReadFromAClosedKeyUntilTheLoadFails)
{
    Delete(2);
    ExpectFails();
    const std::string key = SettingsKey("S", "1");
    EXPECT_EQ(
        (std::vector<std::string>{"loading monitoring target: S...", Failed(2), "pass keyword2",
                                  Failed(3), "pass keyword3", "loading source: S, event: 1",
                                  "reg ReportCount of key " + key + " not found.", "<return -1"}),
        TextsOf("VKVMonQueGet"));
    ExpectTraced(1, "VKVMonQueGet", Failed(2));
    ExpectTraced(1, "VKVMonQueGet", Failed(3));
    ExpectTraced(3, "VKVMonQueGet", "pass keyword2");
    ExpectTraced(3, "VKVMonQueGet", "pass keyword3");
    ExpectTraced(1, "VKVMonQueGet", "reg ReportCount of key " + key + " not found.");
    ExpectKeysLeftOpen(0);
    EXPECT_EQ(4, Host().Calls("RegQueryValueEx"));
    EXPECT_EQ(1, Host().Calls("TarskCodeConvert")) << "only what was read is converted";
}

TEST_F(TableKeywords, WithoutTheThirdAreReadFromAClosedKeyUntilTheLoadFails)
{
    Delete(3);
    ExpectFails();
    ExpectTraced(1, "VKVMonQueGet", Failed(3));
    ExpectTraced(3, "VKVMonQueGet", "pass keyword3");
    EXPECT_EQ(0, Host().Traced("pass keyword2"));
    ExpectTraced(1, "VKVMonQueGet",
                 "reg ReportCount of key " + SettingsKey("S", "1") + " not found.");
    ExpectKeysLeftOpen(0);
}

TEST_F(TableKeywords, ThatCouldNotBeReadDoNotCountAsEmpty)
{
    Store3("");
    Delete(3);
    ExpectFails();
    EXPECT_EQ(0, Host().Traced("Three keywords are all empty ."));
    ExpectTraced(0, "VKVMonQueGet", "loading source: S, event: 1");
}

// ---- report count and hours ----

TEST_F(TableLoad, FailsWithoutAReportCount)
{
    Register(Event("S", "1"));
    Register(Event("S", "2"));
    Host().registry.DeleteValue(SettingsKey("S", "2"), "ReportCount");
    ExpectFails();
    EXPECT_EQ(
        std::vector<std::string>{"reg ReportCount of key " + SettingsKey("S", "2") + " not found."},
        Host().Texts(1));
    ExpectTraced(1, "VKVMonQueGet", Host().Texts(1).front());
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, FailsWithoutHours)
{
    Register(Event("S", "1"));
    Register(Event("S", "2"));
    Host().registry.DeleteValue(SettingsKey("S", "1"), "WatchTime");
    ExpectFails();
    EXPECT_EQ(
        std::vector<std::string>{"reg WatchTime of key " + SettingsKey("S", "1") + " not found."},
        Host().Texts(1));
    ExpectTraced(1, "VKVMonQueGet", Host().Texts(1).front());
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLoad, FailsOnNumbersOfMoreThanFourBytes)
{
    for (const char *name : {"ReportCount", "WatchTime"}) {
        Host().ForgetRecords();
        Register(Event("S", "1"));
        Host().registry.SetBytes(SettingsKey("S", "1"), name, REG_BINARY, "12345");
        ExpectFails();
        ExpectTraced(1, "VKVMonQueGet",
                     std::string("reg ") + name + " of key " + SettingsKey("S", "1") +
                         " not found.");
        ExpectKeysLeftOpen(0);
    }
}

TEST_F(TableLoad, FillsNumbersOfFewerThanFourBytesUpWithZeros)
{
    Register(Event("S", "1"));
    Host().registry.SetBytes(SettingsKey("S", "1"), "ReportCount", REG_SZ, "\x03");
    Host().registry.SetBytes(SettingsKey("S", "1"), "WatchTime", REG_BINARY, "");
    ExpectLoads({"S|1|word|||3|0|0"});
}

TEST_F(TableLoad, FailsOnAnEventWithoutSettings)
{
    Register(Event("S", "1"));
    Host().registry.CreateKey(SourceKey("S") + "\\2");
    ExpectFails();
    EXPECT_EQ(std::vector<std::string>{"RegOpenKeyEx " + SettingsKey("S", "2") + " failed."},
              Host().Texts(1));
    ExpectTraced(1, "VKVMonQueGet", Host().Texts(1).front());
    ExpectKeysLeftOpen(0);
}

} // namespace
