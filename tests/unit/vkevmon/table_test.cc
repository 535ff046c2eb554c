// Loading the monitoring table from the registry.

#include <cstring>
#include <strings.h>

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/siblings.h"
#include "vkevmon/subkeys.h"
#include "vkevmon/table.h"

namespace {

using test::EventSpec;
using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::kAllHours;
using test::kApplicationKey;
using test::MixedTable;
using test::Rows;
using test::SettingsKey;
using test::SourceKey;
using test::Sys;
using test::TableRows;
using test::TextsOf;

constexpr char kFull[] = "The number of EventID is up to 2048, initial process break";

// Taken before any test has put the module back to its first state.
const int count_at_load = nCnt;
const bool slots_are_null_at_load =
    std::all_of(std::begin(lpVKVMon), std::end(lpVKVMon), [](VKVMon *e) { return e == nullptr; });

TEST(TableAtLoad, IsEmpty)
{
    EXPECT_EQ(0, count_at_load);
    EXPECT_TRUE(slots_are_null_at_load);
    EXPECT_EQ(2048, std::end(lpVKVMon) - std::begin(lpVKVMon));
}

TEST(TableEntry, HasRoomForThreeKeywordsAndASource)
{
    const VKVMon entry{};
    EXPECT_EQ(257U, sizeof entry.Keyword1);
    EXPECT_EQ(257U, sizeof entry.Keyword2);
    EXPECT_EQ(257U, sizeof entry.Keyword3);
    EXPECT_EQ(500U, sizeof entry.Source);
    // Hosts read the table, so the fields stand where they have always stood.
    EXPECT_EQ(0U, offsetof(VKVMon, Keyword1));
    EXPECT_EQ(257U, offsetof(VKVMon, Keyword2));
    EXPECT_EQ(514U, offsetof(VKVMon, Keyword3));
    EXPECT_EQ(772U, offsetof(VKVMon, EventID));
    EXPECT_EQ(776U, offsetof(VKVMon, Source));
    EXPECT_EQ(1276U, offsetof(VKVMon, WatchTime));
    EXPECT_EQ(1280U, offsetof(VKVMon, ReportCount));
    EXPECT_EQ(1284U, offsetof(VKVMon, CurrentCount));
    EXPECT_EQ(1288U, sizeof entry);
}

// ---- listing subkeys ----

class SubKeyListing : public test::ModuleTest {
  protected:
    static constexpr int kUntouched = -77;

    int List(const std::string &path)
    {
        num_ = kUntouched;
        // What a load passes: no byte more.
        const size_t room = strcasecmp(path.c_str(), kApplicationKey) == 0 ? 500 : 16;
        names_.assign(kMaxEntries, std::vector<char>(room, '#'));
        std::vector<char *> buffers;
        for (auto &name : names_)
            buffers.push_back(name.data());
        return SearchSubKey(path.c_str(), buffers.data(), &num_);
    }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names(static_cast<size_t>(num_));
        for (size_t i = 0; i < names.size(); ++i)
            names[i] = names_[i].data();
        return names;
    }
    static void MakeKeys(const std::string &path, const std::vector<std::string> &names)
    {
        for (const auto &name : names) {
            std::string key = path;
            key.append("\\").append(name);
            Host().registry.CreateKey(key);
        }
    }
    static void ExpectEveryKeyIsClosed() { EXPECT_EQ(0, Host().registry.OpenHandles()); }

    int num_ = kUntouched;
    std::vector<std::vector<char>> names_;
};

TEST_F(SubKeyListing, DeliversTheNamesInTheOrderOfTheRegistryAsTheyAreWritten)
{
    MakeKeys("Any\\Key", {"zeta", "Alpha", "MID dle", "a"});
    EXPECT_EQ(0, List("Any\\Key"));
    EXPECT_EQ((std::vector<std::string>{"zeta", "Alpha", "MID dle", "a"}), Names());
    EXPECT_EQ('#', names_[4][0]) << "buffers behind the last name are left alone";
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfAKeyWithoutSubkeysIsEmpty)
{
    Host().registry.CreateKey("Any");
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(0, num_);
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfAMissingKeyFails)
{
    EXPECT_EQ(-1, List("Missing"));
    ExpectTraced(1, "SearchSubKey", "<RegOpenKeyEx() failed. return -1.");
    EXPECT_EQ(kUntouched, num_);
}

TEST_F(SubKeyListing, FailsWhenTheNumberOfSubkeysCannotBeHad)
{
    MakeKeys("Any", {"a"});
    Host().FailCall("RegQueryInfoKey", 1);
    EXPECT_EQ(-1, List("Any"));
    ExpectTraced(1, "SearchSubKey", "<RegQueryInfoKey failed.return -1.");
    EXPECT_EQ(0, Host().Calls("RegEnumKeyEx"));
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, FailsWhenAnyNameCannotBeHad)
{
    MakeKeys("Any", {"a", "b", "c"});
    for (int n = 1; n <= 3; ++n) {
        Host().ForgetRecords();
        Host().FailCall("RegEnumKeyEx", n);
        EXPECT_EQ(-1, List("Any"));
        ExpectTraced(1, "SearchSubKey", "<RegEnumKeyEx failed.return -1.");
        EXPECT_EQ(1U, Host().Texts(1).size());
        EXPECT_EQ(n, Host().Calls("RegEnumKeyEx"));
        ExpectEveryKeyIsClosed();
    }
    Host().FailCall("RegEnumKeyEx", 4);
    EXPECT_EQ(0, List("Any"));
}

TEST_F(SubKeyListing, OfAnyKeyButThatOfTheSourcesDeliversNamesOf15CharactersAndPassesOverLongerOnes)
{
    const std::string longest(15, 'n');
    MakeKeys("Any", {"a", longest, longest + "n", std::string(255, 'n'), "b"});
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ((std::vector<std::string>{"a", longest, "b"}), Names());
    EXPECT_EQ(2U, Host().Texts(1).size());
}

TEST_F(SubKeyListing, OfSourcesDeliversNamesOf255CharactersAndFailsOnLongerOnes)
{
    const std::string longest(255, 'n');
    MakeKeys(kApplicationKey, {"a", longest, "b"});
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"a", longest, "b"}), Names());

    MakeKeys(kApplicationKey, {longest + "n"});
    EXPECT_EQ(-1, List(kApplicationKey));
    ExpectTraced(1, "SearchSubKey", "<RegEnumKeyEx failed.return -1.");
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfSourcesLeavesOutThoseWithATypeOfTheirOwnWhateverItIs)
{
    MakeKeys(kApplicationKey, {"A", "Zero", "B", "One", "Minus", "C"});
    Host().registry.SetNumber(SourceKey("Zero"), "NEWAPPLICATIONTYPE", 0);
    Host().registry.SetNumber(SourceKey("One"), "newApplicationType", 1);
    Host().registry.SetNumber(SourceKey("Minus"), "NEWAPPLICATIONTYPE", 0xFFFFFFFF);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"A", "B", "C"}), Names());
    ExpectTraced(0, "SearchSubKey", "The Type of Source: Zero is 0.");
    ExpectTraced(0, "SearchSubKey", "The Type of Source: One is 1.");
    ExpectTraced(0, "SearchSubKey", "The Type of Source: Minus is -1.");
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, KnowsTheApplicationKeyInAnyCase)
{
    MakeKeys(kApplicationKey, {"A", "Typed"});
    Host().registry.SetNumber(SourceKey("Typed"), "NEWAPPLICATIONTYPE", 1);
    std::string path = kApplicationKey;
    for (char &c : path)
        c = static_cast<char>(tolower(c));
    EXPECT_EQ(0, List(path));
    EXPECT_EQ(std::vector<std::string>{"A"}, Names());
}

TEST_F(SubKeyListing, OfOtherKeysAsksForNoType)
{
    for (const std::string &path : {SourceKey("A"), std::string("APPLICATION")}) {
        MakeKeys(path, {"1"});
        Host().registry.SetNumber(path + "\\1", "NEWAPPLICATIONTYPE", 1);
        EXPECT_EQ(0, List(path));
        EXPECT_EQ(std::vector<std::string>{"1"}, Names());
    }
    EXPECT_EQ(0, Host().Calls("VKACRERegReadEx"));
}

TEST_F(SubKeyListing, KeepsASourceWhoseTypeCannotBeRead)
{
    MakeKeys(kApplicationKey, {"A", "B"});
    Host().registry.SetBytes(SourceKey("A"), "NEWAPPLICATIONTYPE", REG_BINARY, "12345");
    Host().registry.SetNumber(SourceKey("B"), "NEWAPPLICATIONTYPE", 1);
    Host().FailCall("VKACRERegReadEx", 2);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), Names());
}

TEST_F(SubKeyListing, ReadsATypeOfFewerBytesOverZeros)
{
    MakeKeys(kApplicationKey, {"A"});
    Host().registry.SetBytes(SourceKey("A"), "NEWAPPLICATIONTYPE", REG_BINARY, "\x05");
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ(0, num_);
    ExpectTraced(0, "SearchSubKey", "The Type of Source: A is 5.");
}

std::vector<std::string> ManyNames(size_t count)
{
    std::vector<std::string> names(count);
    for (size_t i = 0; i < count; ++i)
        names[i] = test::Hex(static_cast<uint32_t>(i));
    return names;
}

TEST_F(SubKeyListing, StopsQuietlyAt2048Names)
{
    MakeKeys("Any", ManyNames(2048));
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(ManyNames(2048), Names());

    Host().ForgetRecords();
    MakeKeys("Any", {"One too many", "Two too many"});
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(ManyNames(2048), Names());
    EXPECT_EQ(2048, Host().Calls("RegEnumKeyEx"));
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, CountsOnlyTheSourcesThatItDelivers)
{
    MakeKeys(kApplicationKey, {"Typed"});
    MakeKeys(kApplicationKey, ManyNames(2049));
    Host().registry.SetNumber(SourceKey("Typed"), "NEWAPPLICATIONTYPE", 1);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ(ManyNames(2048), Names());
    EXPECT_EQ(2049, Host().Calls("VKACRERegReadEx"));
}

// ---- loading ----

class TableLoad : public test::ModuleTest {
  protected:
    TableLoad() { Host().registry.CreateKey(kApplicationKey); }

    static EventSpec Event(const std::string &source, const std::string &id,
                           const std::string &keyword = "word")
    {
        return {.source = source, .id = id, .keywords = {keyword, "", ""}};
    }

    // Loads; the table has to hold exactly these rows then.
    static void ExpectLoads(const Rows &rows)
    {
        EXPECT_EQ(0, VKVMonQueGet()) << test::TraceDump();
        EXPECT_EQ(rows, TableRows());
        EXPECT_EQ(static_cast<int>(rows.size()), nCnt);
        ExpectTraced(0, "VKVMonQueGet", "<return 0");
    }
    // Loads; that has to fail, and the table to be empty then.
    static void ExpectFails()
    {
        EXPECT_EQ(-1, VKVMonQueGet()) << test::TraceDump();
        EXPECT_EQ(0, nCnt);
        EXPECT_EQ(Rows{}, TableRows());
        ExpectTraced(0, "VKVMonQueGet", "<return -1");
    }
    static void ExpectKeysLeftOpen(int n) { EXPECT_EQ(n, Host().registry.OpenHandles()); }
};

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

// ---- products that are not set up ----

class TableFilter : public TableLoad {
  protected:
    TableFilter()
    {
        Register(Event("SYSLOG", "1"));
        Register(Event("Syslog2", "1"));
        Register(Event("SYSLOG3", "1"));
        products_.Add("Product", 0);
        test::SetProductSource("Product",
                               test::SourceRecord("syslog") + test::SourceRecord("Syslog2"));
        Host().products = products_.head();
        test::LoadProductFunctions();
    }
    static Rows Filtered()
    {
        return {"Syslog2|1|word|||1|FFFFFF|0", "SYSLOG3|1|word|||1|FFFFFF|0"};
    }
    static Rows All()
    {
        return {"SYSLOG|1|word|||1|FFFFFF|0", "Syslog2|1|word|||1|FFFFFF|0",
                "SYSLOG3|1|word|||1|FFFFFF|0"};
    }
    static void ExpectProductsGivenBack(void *list)
    {
        EXPECT_EQ(std::vector<void *>{list}, Host().cleared_products);
    }

    test::ProductList products_;
};

TEST_F(TableFilter, LeavesOutSourcesNamedInUpperCaseOnly)
{
    ExpectLoads(Filtered());
    ExpectTraced(0, "VKVMonQueGet", "source: SYSLOG unopened");
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: SYSLOG...", 0);
    ExpectTraced(0, "VKVMonQueGet", "lpstr: syslog -> lpszSN:SYSLOG");
    ExpectTraced(0, "VKVMonQueGet", "lpstr: SYSLOG -> lpszSN:Syslog2");
    ExpectNothingToTell();
    ExpectProductsGivenBack(products_.head());
    EXPECT_EQ("ReadProductsRegisteried", Host().calls.front());
    EXPECT_EQ("TARSKPPLX_PPInfoClear", Host().calls.back());
}

TEST_F(TableFilter, DoesNotReadAnythingOfASourceThatItLeavesOut)
{
    Host().registry.DeleteValue(SettingsKey("SYSLOG", "1"), "KeyWord");
    ExpectLoads(Filtered());
}

TEST_F(TableFilter, IsOffWithoutTheFunction)
{
    pReadProductsRegisteried = nullptr;
    ExpectLoads(All());
    ExpectProductsGivenBack(nullptr);
    ExpectNothingToTell();
}

TEST_F(TableFilter, IsOffWhenTheProductsCannotBeHad)
{
    for (const int result : {0, 2, -1}) {
        Host().ForgetRecords();
        Host().products_result = result;
        ExpectLoads(All());
        ExpectProductsGivenBack(products_.head());
        EXPECT_EQ(0, Host().Calls("VKACREGetSubkeyValue"));
    }
    Host().ForgetRecords();
    Host().products_result = 1;
    Host().FailCall("ReadProductsRegisteried", 1);
    ExpectLoads(All());
}

TEST_F(TableFilter, IsOffWithoutProducts)
{
    Host().products = nullptr;
    ExpectLoads(All());
    ExpectProductsGivenBack(nullptr);
}

TEST_F(TableFilter, IsOffWhenEveryProductIsSetUp)
{
    products_ = test::ProductList();
    products_.Add("Product", 1);
    Host().products = products_.head();
    ExpectLoads(All());
}

TEST_F(TableFilter, IsOffWhenTheSourceOfTheProductCannotBeRead)
{
    Host().FailCall("VKACREGetSubkeyValue", 1);
    ExpectLoads(All());
    ExpectTraced(1, "GetSrcOfUnOpenProduct", "Product no SOURCE : Product");
}

TEST_F(TableFilter, IsOffWhenItCannotBeAllocated)
{
    for (int n = 1; n <= 3; ++n) {
        Host().ForgetRecords();
        Sys().FailCall("calloc", 2 * kMaxEntries + n);
        ExpectLoads(All());
        EXPECT_EQ(1U, Host().Texts(2).size());
        ExpectProductsGivenBack(products_.head());
    }
}

TEST_F(TableFilter, WorksWithoutTheFunctionThatFreesTheProducts)
{
    pTARSKPPLX_PPInfoClear = nullptr;
    ExpectLoads(Filtered());
    EXPECT_TRUE(Host().cleared_products.empty());
}

TEST_F(TableFilter, GivesTheProductsBackAlsoWhenTheLoadFails)
{
    Host().registry.DeleteKey(SettingsKey("SYSLOG3", "1"));
    ExpectFails();
    ExpectProductsGivenBack(products_.head());

    Host().ForgetRecords();
    Sys().FailCall("calloc", 1);
    ExpectFails();
    ExpectProductsGivenBack(nullptr); // they were not asked for
    EXPECT_EQ(0, Host().Calls("ReadProductsRegisteried"));
}

TEST_F(TableFilter, IsAskedForAfreshAtEachLoad)
{
    ExpectLoads(Filtered());
    Host().ForgetRecords();
    products_ = test::ProductList();
    products_.Add("Product", 1);
    Host().products = products_.head();
    ExpectLoads(All());
}

// ---- the limit ----

class TableLimit : public TableLoad {
  protected:
    static void RegisterMany(const std::string &source, int count)
    {
        for (int i = 0; i < count; ++i)
            Register(Event(source, test::Hex(static_cast<uint32_t>(i))));
    }
    static int Loading(const std::string &source)
    {
        return static_cast<int>(std::count_if(
            Host().trace.begin(), Host().trace.end(), [&](const test::TraceRecord &r) {
                return r.text.find("loading source: " + source + ",") == 0;
            }));
    }
    // A full table, whose entries are those of the first source up to `of_first`.
    static void ExpectFullOf(int of_first)
    {
        ASSERT_EQ(0, VKVMonQueGet());
        ASSERT_EQ(kMaxEntries, nCnt);
        for (int i = 0; i < of_first; ++i) {
            EXPECT_STREQ("First", lpVKVMon[i]->Source);
            EXPECT_EQ(static_cast<uint32_t>(i), lpVKVMon[i]->EventID);
        }
        for (int i = of_first; i < kMaxEntries; ++i)
            EXPECT_STREQ("Second", lpVKVMon[i]->Source);
    }
};

TEST_F(TableLimit, IsNotReachedBy2047Events)
{
    RegisterMany("First", 2047);
    ASSERT_EQ(0, VKVMonQueGet());
    EXPECT_EQ(2047, nCnt);
    EXPECT_EQ(nullptr, lpVKVMon[2047]);
    EXPECT_EQ(0, Host().Traced(kFull));
}

TEST_F(TableLimit, IsSaidAsSoonAs2048EventsAreStored)
{
    RegisterMany("First", 2048);
    ExpectFullOf(2048);
    ExpectTraced(3, "VKVMonQueGet", kFull);
}

TEST_F(TableLimit, LeavesOutEveryEventBeyondIt)
{
    RegisterMany("First", 2049);
    ExpectFullOf(2048);
    ExpectTraced(3, "VKVMonQueGet", kFull);
    EXPECT_EQ(2048, Loading("First"));
}

TEST_F(TableLimit, IsCountedAcrossSources)
{
    RegisterMany("First", 2000);
    RegisterMany("Second", 100);
    ExpectFullOf(2000);
    ExpectTraced(3, "VKVMonQueGet", kFull);
    EXPECT_EQ(48, Loading("Second"));
}

TEST_F(TableLimit, IsSaidAgainForEachFurtherSourceAndNothingIsStored)
{
    RegisterMany("First", 2048);
    RegisterMany("Third", 3);
    RegisterMany("Fourth", 3);
    ExpectFullOf(2048);
    ExpectTraced(3, "VKVMonQueGet", kFull, 3);
    EXPECT_EQ(1, Loading("Third")) << "its list is left at its first event";
    EXPECT_EQ(1, Loading("Fourth"));
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: Fourth...");
}

TEST_F(TableLimit, IsNotSaidForAFurtherSourceWithoutAnEntry)
{
    RegisterMany("First", 2048);
    Host().registry.CreateKey(SourceKey("Bare"));
    Register({.source = "Blank", .id = "1"});
    Register({.source = "Blank", .id = "2"});
    ASSERT_EQ(0, VKVMonQueGet());
    EXPECT_EQ(2048, nCnt);
    ExpectTraced(3, "VKVMonQueGet", kFull);
    ExpectTraced(1, "VKVMonQueGet", "Three keywords are all empty .", 2);
}

TEST_F(TableLimit, DoesNotHideAnEventThatCannotBeRead)
{
    RegisterMany("First", 2048);
    Register(Event("Third", "1"));
    Host().registry.DeleteValue(SettingsKey("Third", "1"), "WatchTime");
    ExpectFails();
    ExpectKeysLeftOpen(0);
}

TEST_F(TableLimit, HidesWhatStandsBehindTheFirstEventOfAFurtherSource)
{
    RegisterMany("First", 2048);
    Register(Event("Third", "1"));
    Host().registry.CreateKey(SourceKey("Third") + "\\2"); // has no settings
    ExpectFullOf(2048);
}

TEST_F(TableLimit, HidesTheRestOfTheSourceThatReachedIt)
{
    RegisterMany("First", 2048);
    Host().registry.CreateKey(SourceKey("First") + "\\FFFF"); // has no settings
    ExpectFullOf(2048);
}

TEST_F(TableLimit, CountsStoredEntriesOnly)
{
    RegisterMany("First", 2047);
    Register({.source = "First", .id = "FFFF"}); // without keywords
    Register(Event("Second", "1"));
    ExpectFullOf(2047);
    ExpectTraced(3, "VKVMonQueGet", kFull);
}

TEST_F(TableLimit, Of2048NamesHidesAnEventBehindThem)
{
    // Only so many names of a key are listed, and the first of them has no keywords.
    Register({.source = "First", .id = "0"});
    RegisterMany("First", 2049);
    Host().registry.SetText(SettingsKey("First", "0"), "KeyWord", "");
    ASSERT_EQ(0, VKVMonQueGet());
    EXPECT_EQ(2047, nCnt);
    EXPECT_EQ(0, Host().Traced(kFull));
}

TEST_F(TableLimit, Of2048SourcesHidesTheSourcesBehindThem)
{
    Rows rows;
    for (uint32_t i = 0; i < 2050; ++i) {
        Register(Event("S" + test::Hex(i), "1"));
        if (i < 2048)
            rows.push_back("S" + test::Hex(i) + "|1|word|||1|FFFFFF|0");
    }
    ASSERT_EQ(0, VKVMonQueGet());
    EXPECT_EQ(rows, TableRows());
    ExpectTraced(3, "VKVMonQueGet", kFull);
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: S7FF...");
    ExpectTraced(0, "VKVMonQueGet", "loading monitoring target: S800...", 0);
}

TEST_F(TableLimit, IsReachedAgainByTheNextLoad)
{
    RegisterMany("First", 2049);
    ExpectFullOf(2048);
    Host().ForgetRecords();
    ExpectFullOf(2048);
    ExpectTraced(3, "VKVMonQueGet", kFull);
}

// ---- failures, by counting ----

TEST_F(TableLoad, FailsOnEachWorkingBufferThatCannotBeAllocated)
{
    Register(Event("S", "1"));
    std::vector<int> sample = {1, 2, 3, 4, 2047, 2048, 2049, 4093, 4094, 4095, 4096};
    for (int n = 17; n < 4096; n += 397)
        sample.push_back(n);
    for (const int n : sample) {
        Host().ForgetRecords();
        Sys().FailCall("calloc", n);
        ExpectFails();
        // The two arrays grow together: a source name, an ID name.
        const std::string array = n % 2 == 1 ? "lpszSN" : "lpszID";
        ExpectTraced(2, "VKVMonQueGet",
                     "malloc " + array + "[" + std::to_string((n - 1) / 2) + "] fail");
        EXPECT_TRUE(Host().calls.empty()) << "nothing is read then";
    }
}

TEST_F(TableLoad, FailsOnEachEntryThatCannotBeAllocated)
{
    for (int i = 1; i <= 4; ++i)
        Register(Event(i < 3 ? "S" : "T", std::to_string(i)));
    for (int n = 1; n <= 4; ++n) {
        Host().ForgetRecords();
        Sys().FailCall("calloc", 2 * kMaxEntries + n);
        ExpectFails();
        ExpectTraced(2, "VKVMonQueGet", "lpVKVMon[] memory alloc failed.");
        EXPECT_EQ(1U, Host().Texts(2).size());
        ExpectKeysLeftOpen(0);
    }
    Host().ForgetRecords();
    Sys().FailCall("calloc", 2 * kMaxEntries + 5);
    EXPECT_EQ(0, VKVMonQueGet());
    EXPECT_EQ(4, nCnt);
}

TEST_F(TableLoad, FailsOnAnEntryBeyondTheLimitThatCannotBeAllocated)
{
    for (uint32_t i = 0; i < 2048; ++i)
        Register(Event("S", test::Hex(i)));
    Register(Event("T", "1"));
    Sys().FailCall("calloc", 3 * kMaxEntries + 1);
    ExpectFails();
    ExpectTraced(2, "VKVMonQueGet", "lpVKVMon[] memory alloc failed.");
}

TEST_F(TableLoad, FailsOnEachCallThatItCannotDoWithout)
{
    Register(Event("S", "1"));
    Register(Event("T", "2"));
    const std::string application = std::string("SearchSubKey(") + kApplicationKey + ") ERROR";
    const std::string of_s = "SearchSubKey(" + SourceKey("S") + ") ERROR";
    const std::string of_t = "SearchSubKey(" + SourceKey("T") + ") ERROR";
    const std::string key_s = SettingsKey("S", "1");
    const std::string key_t = SettingsKey("T", "2");
    const auto keyword = [](int k, const std::string &key) {
        return "keyword" + std::to_string(k) + " RegQueryValueEx " + key + " failed.\n";
    };
    const auto number = [](const std::string &name, const std::string &key) {
        return "reg " + name + " of key " + key + " not found.";
    };
    const char *const no_open = "<RegOpenKeyEx() failed. return -1.";
    const char *const no_info = "<RegQueryInfoKey failed.return -1.";
    const char *const no_enum = "<RegEnumKeyEx failed.return -1.";
    struct Case {
        const char *call;
        std::vector<std::vector<std::string>> errors; // of the n-th call
    };
    const std::vector<Case> cases = {
        {"RegOpenKeyEx",
         {{no_open, application},
          {no_open, of_s},
          {"RegOpenKeyEx " + key_s + " failed."},
          {no_open, of_t},
          {"RegOpenKeyEx " + key_t + " failed."}}},
        {"RegQueryInfoKey", {{no_info, application}, {no_info, of_s}, {no_info, of_t}}},
        {"RegEnumKeyEx",
         {{no_enum, application}, {no_enum, application}, {no_enum, of_s}, {no_enum, of_t}}},
        {"RegQueryValueEx",
         {{keyword(1, key_s)},
          {keyword(2, key_s), keyword(3, key_s), number("ReportCount", key_s)},
          {keyword(3, key_s), number("ReportCount", key_s)},
          {number("ReportCount", key_s)},
          {number("WatchTime", key_s)},
          {keyword(1, key_t)},
          {keyword(2, key_t), keyword(3, key_t), number("ReportCount", key_t)},
          {keyword(3, key_t), number("ReportCount", key_t)},
          {number("ReportCount", key_t)},
          {number("WatchTime", key_t)}}},
    };
    for (const auto &c : cases) {
        for (size_t n = 1; n <= c.errors.size(); ++n) {
            Host().ForgetRecords();
            Host().FailCall(c.call, static_cast<int>(n));
            ExpectFails();
            EXPECT_EQ(c.errors[n - 1], Host().Texts(1)) << c.call << " number " << n;
            ExpectKeysLeftOpen(0);
        }
        Host().ForgetRecords();
        Host().FailCall(c.call, static_cast<int>(c.errors.size()) + 1);
        EXPECT_EQ(0, VKVMonQueGet()) << "there is a further " << c.call;
        Host().FailCall(c.call, 0);
    }
}

// With a bit of everything in the registry: whichever call fails, the load either fails with an
// empty table, or gives the whole table; only the look-ups of products and types may let in what
// they would have kept out.
class TableLoadByCounting : public TableLoad {
  protected:
    // What a load has to give when that call, the n-th of its name, fails.
    static Rows Wanted(const std::string &call, int n)
    {
        if (call == "ReadProductsRegisteried" || (call == "VKACREGetSubkeyValue" && n == 1))
            return MixedTable::WithProduct();
        if (call == "VKACRERegReadEx" && n == 2) // of the second source
            return MixedTable::WithTyped();
        for (const char *vital :
             {"RegOpenKeyEx", "RegQueryInfoKey", "RegEnumKeyEx", "RegQueryValueEx"}) {
            if (call == vital)
                return {};
        }
        return MixedTable::Complete();
    }

    // A closing that fails leaves its key open; so does each event without keywords.
    static int KeysLeftOpen(const std::string &failed_call)
    {
        return (failed_call == "RegCloseKey" ? 1 : 0) +
               Host().Traced("Three keywords are all empty .");
    }
};

TEST_F(TableLoadByCounting, IsCompleteOrEmptyWhicheverCallFails)
{
    const MixedTable mixed;
    test::LoadProductFunctions();
    ASSERT_EQ(0, VKVMonQueGet());
    ASSERT_EQ(MixedTable::Complete(), TableRows());
    int keys_open = Host().registry.OpenHandles();
    ASSERT_EQ(1, keys_open);

    int n = 0;
    for (;;) {
        Host().ForgetRecords();
        Host().FailAnyCall(++n);
        const int result = VKVMonQueGet();
        if (!Host().AnyFailureWasUsed())
            break;
        const std::string call = Host().calls[static_cast<size_t>(n) - 1];
        const auto end = Host().calls.begin() + n;
        const auto of_its_name = static_cast<int>(std::count(Host().calls.begin(), end, call));
        SCOPED_TRACE("call " + std::to_string(n) + ": " + call);

        const Rows wanted = Wanted(call, of_its_name);
        EXPECT_EQ(wanted, TableRows());
        EXPECT_EQ(wanted.empty() ? -1 : 0, result) << test::TraceDump();
        EXPECT_EQ(static_cast<int>(wanted.size()), nCnt);
        EXPECT_EQ(keys_open + KeysLeftOpen(call), Host().registry.OpenHandles());
        EXPECT_EQ(1, Host().Calls("TARSKPPLX_PPInfoClear"));
        keys_open = Host().registry.OpenHandles();
    }
    EXPECT_GT(n, 60) << "the load has become surprisingly short";
}

TEST_F(TableLoadByCounting, IsCompleteOrEmptyWhicheverAllocationBehindTheBuffersFails)
{
    const MixedTable mixed;
    test::LoadProductFunctions();
    int failures = 0;
    for (int n = 1;; ++n) {
        Host().ForgetRecords();
        Sys().FailCall("calloc", 2 * kMaxEntries + n);
        const int result = VKVMonQueGet();
        if (Host().Texts(2).empty())
            break;
        ++failures;
        const bool of_the_filter = n <= 3;
        EXPECT_EQ(of_the_filter ? 0 : -1, result) << n;
        EXPECT_EQ(of_the_filter ? MixedTable::WithProduct() : Rows{}, TableRows()) << n;
    }
    EXPECT_EQ(3 + 4, failures) << "one node of the filter, four entries";
    EXPECT_EQ(MixedTable::Complete(), TableRows());
}

} // namespace
