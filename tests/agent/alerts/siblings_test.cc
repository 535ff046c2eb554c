// The sibling libraries, loaded as the module loads them.
#include <climits>
#include <cstring>
#include <unistd.h>

#include "agent/alerts/alert_store.h"
#include "agent/status/status_file.h"
#include "platform/agent.h"
#include "platform/contract.h"
#include "platform/loader.h"
#include "platform/monitor_entry.h"
#include "platform/siblings.h"
#include "tests/agent/support/report_test.h"

namespace {

using alerts::Alert;

// ---- vkmncall.dll ----

class ReportLibrary : public test::ReportTest {};

TEST_F(ReportLibrary, StoresTheRequestWithTimeAndHost)
{
    const int64_t before = status::WallTimeMs();
    EXPECT_EQ(1, Report("DISK", 0x1A2B, "Nov 21 10:00:00 host kernel: a \x01 line \xFF"));
    const int64_t behind = status::WallTimeMs();
    const auto stored = Stored();
    ASSERT_EQ(1U, stored.size());
    const Alert &alert = stored[0];
    char host[HOST_NAME_MAX + 1] = {};
    gethostname(host, HOST_NAME_MAX);
    EXPECT_EQ(host, alert.host);
    EXPECT_LE(before, alert.time_ms);
    EXPECT_GE(behind, alert.time_ms);
    EXPECT_EQ("Application", alert.log_name);
    EXPECT_EQ("DISK", alert.source);
    EXPECT_EQ(0x1A2BU, alert.event_id);
    EXPECT_EQ("Nov 21 10:00:00 host kernel: a \x01 line \xFF", alert.message);
}

TEST_F(ReportLibrary, CopiesTheRequest)
{
    char source[] = "SOURCE";
    char line[] = "line";
    EXPECT_EQ(1, Report(source, 1, line));
    memset(source, 'x', sizeof source - 1);
    memset(line, 'x', sizeof line - 1);
    EXPECT_EQ("SOURCE", Stored()[0].source);
    EXPECT_EQ("line", Stored()[0].message);
}

TEST_F(ReportLibrary, KeepsTheOrderOfTheReports)
{
    for (uint32_t id = 1; id <= 5; ++id)
        EXPECT_EQ(1, Report("SRC", id, "line"));
    const auto stored = Stored();
    ASSERT_EQ(5U, stored.size());
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(i + 1, stored[i].event_id);
        EXPECT_EQ(i + 1, stored[i].id);
    }
}

TEST_F(ReportLibrary, StoresTheReportCountOfTheEntryWithThatSourceAndId)
{
    VKVMon one{};
    VKVMon two{};
    one.ReportCount = 3;
    two.ReportCount = 7;
    one.EventID = 1;
    two.EventID = 2;
    strcpy(one.Source, "SAME");
    strcpy(two.Source, "SAME");
    VKVMon *slots[] = {&one, &two};
    int count = 2;
    test::TheHost().SetTable({slots, &count});
    EXPECT_EQ(1, Report("SAME", 2, "of the second, from a copy of its source"));
    EXPECT_EQ(1, Report(one.Source, 1, "of the first"));
    EXPECT_EQ(1, Report("SAME", 3, "of no entry"));
    const auto stored = Stored();
    ASSERT_EQ(3U, stored.size());
    EXPECT_EQ(7, stored[0].count);
    EXPECT_EQ(3, stored[1].count);
    EXPECT_EQ(1, stored[2].count);
}

// As the module does it: the line is converted, the counter set back, the report handed over.
TEST_F(ReportLibrary, StoresTheHitsThatTheCounterHadWhenTheLineWasConverted)
{
    VKVMon reached{};
    VKVMon other{};
    reached.ReportCount = 3;
    reached.CurrentCount = 50;
    reached.EventID = 1;
    other.ReportCount = 7;
    other.CurrentCount = 6;
    other.EventID = 2;
    strcpy(reached.Source, "SAME");
    strcpy(other.Source, "SAME");
    VKVMon *slots[] = {&other, &reached};
    int count = 2;
    test::TheHost().SetTable({slots, &count});
    char message[100];
    TarskCodeConvert("a line", -1, message, sizeof message, CODE_LOG, CODE_REGISTRY);
    reached.CurrentCount = 0;
    EXPECT_EQ(1, Report(reached.Source, 1, message));
    EXPECT_EQ(1, Report(reached.Source, 1, "without a conversion of its own"));

    TarskCodeConvert("withheld", -1, message, sizeof message, CODE_LOG, CODE_REGISTRY);
    other.CurrentCount = 8;
    TarskCodeConvert("a line", -1, message, sizeof message, CODE_LOG, CODE_REGISTRY);
    other.CurrentCount = 0;
    EXPECT_EQ(1, Report(other.Source, 2, message));
    const auto stored = Stored();
    ASSERT_EQ(3U, stored.size());
    EXPECT_EQ(50, stored[0].count);
    EXPECT_EQ(3, stored[1].count);
    EXPECT_EQ(8, stored[2].count);
}

TEST_F(ReportLibrary, StoresInThePassThatReports)
{
    Restart(host::Role::kDaemon);
    EXPECT_EQ(1, Report("SRC", 1, "lost"));
    test::Store().AbandonPass();
    EXPECT_TRUE(Stored().empty());
    EXPECT_EQ(1, Report("SRC", 2, "kept"));
    test::Store().CommitPass();
    test::Store().AbandonPass();
    ASSERT_EQ(1U, Stored().size());
    EXPECT_EQ("kept", Stored()[0].message);
}

TEST_F(ReportLibrary, FailsWithoutAHost)
{
    test::StopHost();
    EXPECT_EQ(0, Report("SRC", 1, "line"));
}

TEST_F(ReportLibrary, FailsAndBreaksThePassWhenTheStoreDoes)
{
    Restart(host::Role::kDaemon);
    test::Store().Write([](host::Database &database) {
        database.Execute("CREATE TRIGGER full BEFORE INSERT ON alert BEGIN"
                         " SELECT RAISE(ABORT, 'no'); END");
    });
    EXPECT_EQ(0, Report("SRC", 1, "line"));
    EXPECT_NE("no error", test::ErrorOf([] { test::Store().CommitPass(); }));
}

// ---- vkirtupt.dll ----

class ProductLibrary : public test::HostTest {
  protected:
    ~ProductLibrary() override { FreeLibrary(library_); }

    void SetUp() override
    {
        ASSERT_NE(nullptr, read_);
        ASSERT_NE(nullptr, clear_);
    }
    static void AddProduct(const std::string &name)
    {
        auto &tree = test::Registry();
        tree.Create(host::kRootKey, std::string(kAlertReportKey) + "\\" + name);
    }
    static void AddProduct(const std::string &name, uint32_t type, const std::string &setup)
    {
        test::SetTreeValue(std::string(kAlertReportKey) + "\\" + name, "Setup", type, setup);
    }
    // "name:state" of each product, read at the fixed offsets.
    std::vector<std::string> Products()
    {
        int untouched = 0;
        void *list = &untouched;
        EXPECT_EQ(1, read_(kReadProductsList, &list));
        std::vector<std::string> products;
        for (const char *product = static_cast<char *>(list); product != nullptr;) {
            int32_t state = -1;
            memcpy(&state, product + kProductStateOffset, sizeof state);
            products.push_back(std::string(product + kProductNameOffset) + ":" +
                               std::to_string(state));
            memcpy(&product, product + kProductNextOffset, sizeof product);
        }
        EXPECT_EQ(1, clear_(list));
        return products;
    }

    HMODULE library_ = LoadLibrary(AGENT_LIBRARIES "/vkirtupt.dll");
    ReadProductsRegisteriedFn read_ =
        test::FindIn<ReadProductsRegisteriedFn>(library_, "ReadProductsRegisteried");
    TARSKPPLX_PPInfoClearFn clear_ =
        test::FindIn<TARSKPPLX_PPInfoClearFn>(library_, "TARSKPPLX_PPInfoClear");
};

using Strings = std::vector<std::string>;

TEST_F(ProductLibrary, WithoutProductsGivesAnEmptyList)
{
    EXPECT_TRUE(Products().empty());
    test::SetTreeText(kAlertReportKey, "value", "x");
    EXPECT_TRUE(Products().empty());
}

TEST_F(ProductLibrary, ListsTheProductsInTheOrderOfTheirCreation)
{
    for (const char *name : {"Zebra", "ant", "Mouse"})
        AddProduct(name);
    EXPECT_EQ((Strings{"Zebra:1", "ant:1", "Mouse:1"}), Products());
}

TEST_F(ProductLibrary, AProductIsUnopenedWhenItsSetupIsZero)
{
    AddProduct("Zero", REG_DWORD, test::NumberBytes(0));
    AddProduct("One", REG_DWORD, test::NumberBytes(1));
    AddProduct("Many", REG_DWORD, test::NumberBytes(0xFFFFFFFF));
    AddProduct("Missing");
    AddProduct("Text", REG_SZ, std::string("0\0", 2));
    AddProduct("Long", REG_BINARY, std::string(5, '\0'));
    EXPECT_EQ((Strings{"Zero:0", "One:1", "Many:1", "Missing:1", "Text:1", "Long:1"}), Products());
}

TEST_F(ProductLibrary, ANameOfGreatestLengthIsWhole)
{
    AddProduct(std::string(255, 'p'));
    EXPECT_EQ(Strings{std::string(255, 'p') + ":1"}, Products());
}

TEST_F(ProductLibrary, KnowsOneRequestCode)
{
    AddProduct("Product");
    int untouched = 0;
    for (const int code : {0, 1, 3, -1}) {
        void *list = &untouched;
        EXPECT_EQ(0, read_(code, &list)) << code;
        EXPECT_EQ(&untouched, list);
    }
    EXPECT_EQ(0, read_(kReadProductsList, nullptr));
}

TEST_F(ProductLibrary, FreesTheEmptyList)
{
    EXPECT_EQ(1, clear_(nullptr));
}

TEST_F(ProductLibrary, FailsWithoutAHostAndLeavesTheListAlone)
{
    test::StopHost();
    int untouched = 0;
    void *list = &untouched;
    EXPECT_EQ(0, read_(kReadProductsList, &list));
    EXPECT_EQ(&untouched, list);
}

} // namespace
