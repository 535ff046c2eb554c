// The monitoring table as it lies in memory.
#include <algorithm>
#include <cstddef>
#include <iterator>

#include <gtest/gtest.h>

#include "match/table_data.h"

namespace {

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
    // The host may fill the table itself, so the interface fixes where the fields stand.
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

} // namespace
