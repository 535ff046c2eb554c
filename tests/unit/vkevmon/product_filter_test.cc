// The sources of products that are registered but not set up.
#include "vkevmon/product_filter.h"

#include <climits>
#include <cstring>

#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/table.h"

namespace {

using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::SetProductSource;
using test::SourceRecord;
using test::Sys;
using test::TextsOf;

class ProductFilter : public test::ModuleTest {
  protected:
    ~ProductFilter() override { FreeSourceFilter(filter_); }

    // Builds the filter from the products added so far, in place of the one before.
    int Build()
    {
        FreeSourceFilter(filter_);
        filter_ = nullptr;
        return GetSrcOfUnOpenProduct(products_.head(), &filter_);
    }

    // The names of the products whose data is in the filter.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const SrcNode *node = filter_; node != nullptr; node = node->next) {
            EXPECT_EQ(node->nameLength, strlen(node->name));
            names.emplace_back(node->name);
        }
        return names;
    }

    // The data of a node as it was read; a zero byte has to follow.
    static std::string DataOf(const SrcNode *node)
    {
        if (node == nullptr)
            return "no node";
        EXPECT_EQ('\0', node->data[node->dataLength]);
        return {node->data, node->dataLength};
    }

    // A product that is not set up, with this source data.
    void AddUnopened(const std::string &name, const std::string &data)
    {
        products_.Add(name, 0);
        SetProductSource(name, data);
    }

    test::ProductList products_;
    SrcNode *filter_ = nullptr;
};

// ---- building ----

TEST_F(ProductFilter, WithoutAnAddressFails)
{
    products_.Add("A", 0);
    EXPECT_EQ(-1, GetSrcOfUnOpenProduct(products_.head(), nullptr));
    EXPECT_EQ(-1, GetSrcOfUnOpenProduct(nullptr, nullptr));
    ExpectTraced(1, "GetSrcOfUnOpenProduct", "param ppSyslogInnerProductSrc is NULL\n", 2);
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(ProductFilter, OfNoProductsIsEmpty)
{
    EXPECT_EQ(0, Build());
    EXPECT_EQ(nullptr, filter_);
    ExpectNothingToTell();
}

TEST_F(ProductFilter, OfProductsThatAreAllSetUpIsEmptyAndReadsNothing)
{
    products_.Add("A", 1);
    products_.Add("B", 1);
    EXPECT_EQ(0, Build());
    EXPECT_EQ(nullptr, filter_);
    ExpectTraced(0, "GetSrcOfUnOpenProduct", " A setup:1;0:unopened 1:opened");
    ExpectTraced(0, "GetSrcOfUnOpenProduct", " B setup:1;0:unopened 1:opened");
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(ProductFilter, PassesOverEveryStateButZero)
{
    for (const int32_t state : {1, 2, -1, 256, 65536, INT32_MIN, INT32_MAX}) {
        const std::string name = "P" + std::to_string(state);
        products_.Add(name, state);
        SetProductSource(name, SourceRecord("S"));
    }
    EXPECT_EQ(0, Build());
    EXPECT_EQ(nullptr, filter_);
    ExpectTraced(0, "GetSrcOfUnOpenProduct", " P-1 setup:-1;0:unopened 1:opened");
}

TEST_F(ProductFilter, HoldsNameAndDataOfAProductThatIsNotSetUp)
{
    const std::string data = SourceRecord("SYSLOG") + SourceRecord("OTHER", "");
    AddUnopened("Product", data);
    EXPECT_EQ(0, Build());
    ASSERT_NE(nullptr, filter_);
    EXPECT_EQ(nullptr, filter_->next);
    EXPECT_EQ(data, DataOf(filter_));
    EXPECT_STREQ("Product", filter_->name);
    EXPECT_EQ(7U, filter_->nameLength);
    ExpectTraced(0, "GetSrcOfUnOpenProduct", " Product setup:0;0:unopened 1:opened");
    ExpectNothingToTell();
    EXPECT_EQ(std::vector<std::string>{"VKACREGetSubkeyValue"}, Host().calls);
}

TEST_F(ProductFilter, KeepsTheOrderOfTheProducts)
{
    AddUnopened("C", SourceRecord("1"));
    products_.Add("B", 1);
    AddUnopened("A", SourceRecord("2"));
    AddUnopened("D", SourceRecord("3"));
    EXPECT_EQ(0, Build());
    EXPECT_EQ((std::vector<std::string>{"C", "A", "D"}), Names());
}

TEST_F(ProductFilter, HoldsTheSameProductTwiceWhenItIsListedTwice)
{
    AddUnopened("A", SourceRecord("1"));
    products_.Add("A", 0);
    EXPECT_EQ(0, Build());
    EXPECT_EQ((std::vector<std::string>{"A", "A"}), Names());
}

TEST_F(ProductFilter, DropsOnlyTheProductWithoutASource)
{
    AddUnopened("A", SourceRecord("1"));
    products_.Add("Nothing", 0);
    AddUnopened("B", SourceRecord("2"));
    EXPECT_EQ(0, Build());
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), Names());
    ExpectTraced(1, "GetSrcOfUnOpenProduct", "Product no SOURCE : Nothing");
    EXPECT_EQ(1U, Host().Texts(1).size());
}

TEST_F(ProductFilter, DropsOnlyTheProductWhoseSourceCannotBeRead)
{
    const std::vector<std::string> all = {"A", "B", "C"};
    for (const auto &name : all)
        AddUnopened(name, SourceRecord("S"));
    for (int n = 1; n <= 3; ++n) {
        Host().ForgetRecords();
        Host().FailCall("VKACREGetSubkeyValue", n);
        EXPECT_EQ(0, Build());
        auto others = all;
        others.erase(others.begin() + n - 1);
        EXPECT_EQ(others, Names());
        ExpectTraced(1, "GetSrcOfUnOpenProduct",
                     "Product no SOURCE : " + all[static_cast<size_t>(n) - 1]);
    }
}

TEST_F(ProductFilter, ReadsSourceDataOf507BytesAndNoMore)
{
    const std::string data = std::string("\1\0\0\0t\0", 6) + std::string(501, 'n');
    ASSERT_EQ(507U, data.size());
    AddUnopened("Fits", data);
    AddUnopened("TooLong", data + 'n');
    EXPECT_EQ(0, Build());
    EXPECT_EQ(std::vector<std::string>{"Fits"}, Names());
    EXPECT_EQ(data, DataOf(filter_));
    ExpectTraced(1, "GetSrcOfUnOpenProduct", "Product no SOURCE : TooLong");
}

TEST_F(ProductFilter, TakesSourceDataOfNoBytes)
{
    AddUnopened("Empty", "");
    EXPECT_EQ(0, Build());
    EXPECT_EQ(std::vector<std::string>{"Empty"}, Names());
    EXPECT_EQ("", DataOf(filter_));
    EXPECT_FALSE(SourceIsFiltered(filter_, ""));
    EXPECT_FALSE(SourceIsFiltered(filter_, "SYSLOG"));
}

TEST_F(ProductFilter, TakesAProductWithoutAName)
{
    products_.Add("", 0);
    Host().registry.SetBytes(test::kAlertReportKey, "Source", REG_BINARY, SourceRecord("S"));
    EXPECT_EQ(0, Build());
    EXPECT_EQ(std::vector<std::string>{""}, Names());
}

TEST_F(ProductFilter, TakesANameOfAnyLength)
{
    const std::string name(2000, 'n');
    AddUnopened(name, SourceRecord("S"));
    EXPECT_EQ(0, Build());
    EXPECT_EQ(std::vector<std::string>{name}, Names());
}

// Each product takes three pieces of memory: its node, its data with a zero byte, its name.
TEST_F(ProductFilter, IsEmptyWhenAnyAllocationFails)
{
    AddUnopened("Product1", SourceRecord("A")); // 4 + 5 + 2 bytes of data
    AddUnopened("P2", SourceRecord("BB"));
    AddUnopened("Prod3", SourceRecord("CCC"));
    const std::vector<size_t> sizes = {sizeof(SrcNode), 12, 9, sizeof(SrcNode), 13, 3,
                                       sizeof(SrcNode), 14, 6};
    for (int n = 1; n <= 9; ++n) {
        Host().ForgetRecords();
        Sys().FailCall("calloc", n);
        EXPECT_EQ(-1, Build()) << "allocation " << n;
        EXPECT_EQ(nullptr, filter_) << "allocation " << n;
        ExpectTraced(2, "GetSrcOfUnOpenProduct",
                     "malloc error size: " + std::to_string(sizes[static_cast<size_t>(n) - 1]));
        EXPECT_EQ(1U, Host().Texts(2).size());
        EXPECT_EQ((n + 2) / 3, Host().Calls("VKACREGetSubkeyValue")) << "nothing is read after it";
    }
    Sys().FailCall("calloc", 10);
    EXPECT_EQ(0, Build());
    EXPECT_EQ(3U, Names().size());
}

// ---- comparing ----

TEST_F(ProductFilter, FiltersASourceNamedInUpperCaseWhateverTheCaseInTheData)
{
    for (const char *name : {"syslog", "SysLog", "SYSLOG", "sYSLOG"}) {
        AddUnopened("P", SourceRecord(name));
        ASSERT_EQ(0, Build());
        EXPECT_TRUE(SourceIsFiltered(filter_, "SYSLOG")) << name;
        EXPECT_FALSE(SourceIsFiltered(filter_, "Syslog")) << name;
        EXPECT_FALSE(SourceIsFiltered(filter_, "syslog")) << name;
        EXPECT_FALSE(SourceIsFiltered(filter_, "sYSLOG")) << name;
    }
}

TEST_F(ProductFilter, ComparesWholeNames)
{
    AddUnopened("P", SourceRecord("SYSLOG"));
    ASSERT_EQ(0, Build());
    for (const char *other :
         {"SYSLO", "SYSLOGD", "YSLOG", " SYSLOG", "SYSLOG ", "", "text", "TEXT"})
        EXPECT_FALSE(SourceIsFiltered(filter_, other)) << other;
}

TEST_F(ProductFilter, UpperCaseIsThatOfPlainLetters)
{
    AddUnopened("P", SourceRecord("a-1_\xC3\xA4z[`{~"));
    ASSERT_EQ(0, Build());
    EXPECT_TRUE(SourceIsFiltered(filter_, "A-1_\xC3\xA4Z[`{~"));
    EXPECT_FALSE(SourceIsFiltered(filter_, "A-1_\xC3\x84Z[`{~"));
}

TEST_F(ProductFilter, TurnsTheNamesIntoUpperCaseInPlaceAndTracesEachAsItIsMet)
{
    AddUnopened("P", SourceRecord("one", "Text") + SourceRecord("two"));
    AddUnopened("Q", SourceRecord("three"));
    ASSERT_EQ(0, Build());
    EXPECT_FALSE(SourceIsFiltered(filter_, "X"));
    EXPECT_EQ(SourceRecord("ONE", "Text") + SourceRecord("TWO"), DataOf(filter_));
    EXPECT_EQ(SourceRecord("THREE"), DataOf(filter_->next));
    EXPECT_FALSE(SourceIsFiltered(filter_, "Y"));
    EXPECT_EQ((std::vector<std::string>{"lpstr: one -> lpszSN:X", "lpstr: two -> lpszSN:X",
                                        "lpstr: three -> lpszSN:X", "lpstr: ONE -> lpszSN:Y",
                                        "lpstr: TWO -> lpszSN:Y", "lpstr: THREE -> lpszSN:Y"}),
              TextsOf("VKVMonQueGet"));
    ExpectNothingToTell();
}

TEST_F(ProductFilter, LooksNoFurtherThanTheFirstEqualName)
{
    AddUnopened("P", SourceRecord("one") + SourceRecord("two"));
    AddUnopened("Q", SourceRecord("two"));
    ASSERT_EQ(0, Build());
    EXPECT_TRUE(SourceIsFiltered(filter_, "TWO"));
    EXPECT_EQ((std::vector<std::string>{"lpstr: one -> lpszSN:TWO", "lpstr: two -> lpszSN:TWO"}),
              TextsOf("VKVMonQueGet"));
    EXPECT_EQ(SourceRecord("two"), DataOf(filter_->next));
}

TEST_F(ProductFilter, FindsANameInAnyRecordOfAnyProduct)
{
    AddUnopened("P", SourceRecord("A", "") + SourceRecord("B", std::string(100, 't')));
    AddUnopened("Q", SourceRecord("C") + SourceRecord("") + SourceRecord("D"));
    ASSERT_EQ(0, Build());
    for (const char *name : {"A", "B", "C", "D"})
        EXPECT_TRUE(SourceIsFiltered(filter_, name)) << name;
    EXPECT_FALSE(SourceIsFiltered(filter_, "E"));
}

TEST_F(ProductFilter, IsOffWhenItIsEmpty)
{
    EXPECT_FALSE(SourceIsFiltered(nullptr, "SYSLOG"));
    EXPECT_FALSE(SourceIsFiltered(nullptr, ""));
    EXPECT_TRUE(Host().trace.empty());
}

TEST_F(ProductFilter, TakesTheFieldOfARecordForDataWhateverItsBytes)
{
    AddUnopened("P", std::string("\0\0\0\0t\0A\0", 8) + std::string("\xFF\xFF\xFF\xFF\0B\0", 7) +
                         std::string("abcdt\0C\0", 8));
    ASSERT_EQ(0, Build());
    for (const char *name : {"A", "B", "C"})
        EXPECT_TRUE(SourceIsFiltered(filter_, name)) << name;
}

// Of data that ends after any of its bytes, what is there counts: names that are whole, and the
// part of a name that the zero byte behind the data ends.
TEST_F(ProductFilter, WalksDataThatEndsAnywhere)
{
    const std::string data = SourceRecord("AB") + SourceRecord("CDE", "") + SourceRecord("F");
    const size_t ab = 4 + 5; // where the names begin
    const size_t cde = ab + 3 + 4 + 1;
    const size_t f = cde + 4 + 4 + 5;
    ASSERT_EQ(data.size(), f + 2);
    for (size_t size = 0; size <= data.size(); ++size) {
        AddUnopened("P", data.substr(0, size));
        products_ = test::ProductList();
        products_.Add("P", 0);
        ASSERT_EQ(0, Build());
        const auto filters = [&](const char *name) { return SourceIsFiltered(filter_, name); };
        EXPECT_EQ(size == ab + 1, filters("A")) << size;
        EXPECT_EQ(size >= ab + 2, filters("AB")) << size;
        EXPECT_EQ(size == cde + 1, filters("C")) << size;
        EXPECT_EQ(size == cde + 2, filters("CD")) << size;
        EXPECT_EQ(size >= cde + 3, filters("CDE")) << size;
        EXPECT_EQ(size >= f + 1, filters("F")) << size;
        EXPECT_FALSE(filters("TEXT")) << size;
    }
}

// The zero byte behind the data is the name of a record that ends with its text.
TEST_F(ProductFilter, ComparesNoNameAtAllWhereTheDataEndsBehindAText)
{
    AddUnopened("P", SourceRecord("one") + std::string("\0\0\0\0text\0", 9));
    ASSERT_EQ(0, Build());
    EXPECT_FALSE(SourceIsFiltered(filter_, "X"));
    EXPECT_EQ((std::vector<std::string>{"lpstr: one -> lpszSN:X", "lpstr:  -> lpszSN:X"}),
              TextsOf("VKVMonQueGet"));
}

TEST_F(ProductFilter, WalksDataWithoutAnyZeroByte)
{
    for (size_t size = 1; size <= 507; ++size) {
        AddUnopened("P", std::string(size, 'x'));
        products_ = test::ProductList();
        products_.Add("P", 0);
        ASSERT_EQ(0, Build());
        EXPECT_FALSE(SourceIsFiltered(filter_, "X"));
    }
}

TEST_F(ProductFilter, WalksDataOfNothingButZeroBytes)
{
    for (size_t size = 1; size <= 507; ++size) {
        AddUnopened("P", std::string(size, '\0'));
        products_ = test::ProductList();
        products_.Add("P", 0);
        ASSERT_EQ(0, Build());
        EXPECT_FALSE(SourceIsFiltered(filter_, "X"));
    }
}

} // namespace
