// Loading the table: what is left out, and what fails.

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "tests/unit/vkevmon/table_fixture.h"
#include "vkevmon/siblings.h"
#include "vkevmon/table.h"

namespace {

using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::kApplicationKey;
using test::MixedTable;
using test::Rows;
using test::SettingsKey;
using test::SourceKey;
using test::Sys;
using test::TableLoad;
using test::TableRows;

constexpr char kFull[] = "The number of EventID is up to 2048, initial process break";

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
