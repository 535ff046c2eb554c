// The table as the sieve of loud lines knows it.
#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "match/index.h"
#include "match/sieve_table.h"
#include "match/table_data.h"
#include "tests/support/module_test.h"

namespace test {
namespace {

class SieveTable : public ModuleTest {
  protected:
    ~SieveTable() override { EmptyTable(); }

    // The text as the sieve knows it; nothing when it does not.
    static const char *Known(std::string_view text)
    {
        for (int id = 0; id < sieve_keyword_count; ++id) {
            const SieveKeyword &keyword = sieve_keywords[id];
            if (std::string_view(keyword.text, keyword.length) == text)
                return keyword.text;
        }
        return nullptr;
    }

    static bool IsInTable(const char *text)
    {
        return std::any_of(lpVKVMon, lpVKVMon + nCnt, [text](const VKVMon *entry) {
            const auto *begin = reinterpret_cast<const char *>(entry);
            return std::less_equal<>()(begin, text) && std::less<>()(text, begin + sizeof *entry);
        });
    }
};

// Looked at line after line, they are to stay in the processor's nearest memory.
TEST_F(SieveTable, HasItsTextsSideBySide)
{
    size_t length = 0;
    for (int i = 0; i < kMaxEntries; ++i) {
        const VKVMon *entry = AddEntry(
            {.keywords = {"first " + std::to_string(i), "second " + std::to_string(i), ""}});
        length += strlen(KeywordOf(*entry, 0)) + strlen(KeywordOf(*entry, 1));
    }
    CollectSieveTable();
    ASSERT_EQ(2 * kMaxEntries, sieve_keyword_count);
    const auto [least, most] = std::ranges::minmax_element(
        sieve_keywords, sieve_keywords + sieve_keyword_count, std::less<>(), &SieveKeyword::text);
    EXPECT_EQ(length, static_cast<size_t>(most->text - least->text) + most->length);
}

TEST_F(SieveTable, ReadsInTheMonitoringTableTheTextsForWhichItHasNoRoom)
{
    for (int i = 0; i < kMaxEntries; ++i)
        AddEntry({.keywords = {std::string(200, 'x') + std::to_string(i), "", ""}});
    CollectSieveTable();
    const char *const first = Known(KeywordOf(*lpVKVMon[0], 0));
    const char *const last = Known(KeywordOf(*lpVKVMon[kMaxEntries - 1], 0));
    ASSERT_NE(nullptr, first);
    ASSERT_NE(nullptr, last);
    EXPECT_FALSE(IsInTable(first));
    EXPECT_TRUE(IsInTable(last));
}

TEST_F(SieveTable, KnowsEqualTextsAsOne)
{
    AddEntry({.keywords = {"disk", "error", ""}});
    AddEntry({.keywords = {"error", "disk", ""}});
    CollectSieveTable();
    EXPECT_EQ(2, sieve_entry_count);
    EXPECT_EQ(2, sieve_keyword_count);
    EXPECT_EQ(2, sieve_keywords[sieve_entries[1].keywords[1]].users);
}

TEST_F(SieveTable, CollectedAgainKnowsOnlyTheTableAsItIs)
{
    AddEntry({.keywords = {"disk", "", ""}});
    CollectSieveTable();
    EmptyTable();
    AddEntry({.keywords = {"fan", "", ""}});
    CollectSieveTable();
    EXPECT_EQ(nullptr, Known("disk"));
    EXPECT_NE(nullptr, Known("fan"));
}

} // namespace
} // namespace test
