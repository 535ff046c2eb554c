// Hit counters that outlive the process.
#include "agent/host/hit_counters.h"

#include <array>
#include <cstring>
#include <deque>

#include "tests/agent/support/host_test.h"

namespace {

using host::HitCounter;
using host::HitCounters;

// A monitoring table as a module holds it.
class ModuleTable {
  public:
    VKVMon &Add(const char *source, uint32_t id, int32_t report_count, int32_t current_count = 0)
    {
        VKVMon &entry = entries_.emplace_back();
        strncpy(entry.Source, source, sizeof entry.Source - 1);
        entry.EventID = id;
        entry.ReportCount = report_count;
        entry.CurrentCount = current_count;
        slots_[static_cast<size_t>(count_++)] = &entry;
        return entry;
    }
    void Clear()
    {
        slots_.fill(nullptr);
        count_ = 0;
    }
    // As the module leaves it when it ends: the slots are null, the count is what it was.
    void FreeEntries() { slots_.fill(nullptr); }

    [[nodiscard]] host::ModuleTable Get() { return {slots_.data(), &count_}; }

  private:
    std::array<VKVMon *, kMaxEntries> slots_{};
    std::deque<VKVMon> entries_;
    int count_ = 0;
};

class HitCountersTest : public test::HostTest {
  protected:
    static std::vector<HitCounter> Stored() { return HitCounters::Load(test::Store()); }
    // Saves the table as another life of the daemon did.
    void SaveAsBefore()
    {
        HitCounters(test::Store()).Save(table_.Get());
        table_.Clear();
    }
    void Restore() { HitCounters(test::Store()).Restore(table_.Get()); }

    ModuleTable table_;
};

TEST_F(HitCountersTest, TheSizeOfATableEndsAtItsFirstNullSlot)
{
    EXPECT_EQ(0, host::ModuleTable{}.Size());
    EXPECT_EQ(0, table_.Get().Size());
    table_.Add("A", 1, 3);
    table_.Add("B", 1, 3);
    EXPECT_EQ(2, table_.Get().Size());
    table_.FreeEntries();
    EXPECT_EQ(0, table_.Get().Size());
}

TEST_F(HitCountersTest, AreStoredInTableOrder)
{
    table_.Add("B", 0xFFFFFFFF, 2147483647, 2147483646);
    table_.Add("A", 1, 3, 2);
    table_.Add("A", 2, 0, 0);
    HitCounters(test::Store()).Save(table_.Get());
    EXPECT_EQ((std::vector<HitCounter>{
                  {"B", 0xFFFFFFFF, 2147483647, 2147483646}, {"A", 1, 3, 2}, {"A", 2, 0, 0}}),
              Stored());
}

TEST_F(HitCountersTest, ComeBackToEntriesOfTheSameSourceIdAndReportCount)
{
    table_.Add("A", 1, 3, 2);
    table_.Add("B", 1, 5, 4);
    SaveAsBefore();
    const VKVMon &second = table_.Add("B", 1, 5);
    const VKVMon &first = table_.Add("A", 1, 3);
    Restore();
    EXPECT_EQ(2, first.CurrentCount);
    EXPECT_EQ(4, second.CurrentCount);
}

TEST_F(HitCountersTest, DoNotComeBackToAnEntryThatIsAnotherEvent)
{
    table_.Add("A", 1, 3, 2);
    SaveAsBefore();
    const VKVMon &other_source = table_.Add("B", 1, 3);
    const VKVMon &other_case = table_.Add("a", 1, 3);
    const VKVMon &other_id = table_.Add("A", 2, 3);
    const VKVMon &other_count = table_.Add("A", 1, 4);
    Restore();
    for (const VKVMon *entry : {&other_source, &other_case, &other_id, &other_count})
        EXPECT_EQ(0, entry->CurrentCount);
}

TEST_F(HitCountersTest, OfTwoEqualEntriesAreThoseOfTheFirst)
{
    table_.Add("A", 1, 3, 2);
    table_.Add("A", 1, 3, 1);
    SaveAsBefore();
    const VKVMon &first = table_.Add("A", 1, 3);
    const VKVMon &second = table_.Add("A", 1, 3);
    Restore();
    EXPECT_EQ(2, first.CurrentCount);
    EXPECT_EQ(2, second.CurrentCount);
}

TEST_F(HitCountersTest, ThatWereNeverSavedLeaveTheTableAsItIs)
{
    const VKVMon &entry = table_.Add("A", 1, 3, 7);
    Restore();
    EXPECT_EQ(7, entry.CurrentCount);
}

TEST_F(HitCountersTest, SurviveARestartOfTheHost)
{
    table_.Add("A", 1, 3, 2);
    SaveAsBefore();
    Restart(host::Role::kDaemon);
    const VKVMon &entry = table_.Add("A", 1, 3);
    Restore();
    EXPECT_EQ(2, entry.CurrentCount);
}

TEST_F(HitCountersTest, ThatDidNotChangeCostNoWrite)
{
    table_.Add("A", 1, 3, 2);
    HitCounters counters(test::Store());
    counters.Save(table_.Get());
    test::Store().StartPasses();
    counters.Save(table_.Get());
    EXPECT_FALSE(test::Store().database().InTransaction());
    table_.Get().entries[0]->CurrentCount = 1;
    counters.Save(table_.Get());
    EXPECT_TRUE(test::Store().database().InTransaction());
}

TEST_F(HitCountersTest, FollowEveryChangeOfTheTable)
{
    HitCounters counters(test::Store());
    VKVMon &first = table_.Add("A", 1, 3, 1);
    counters.Save(table_.Get());
    table_.Add("B", 1, 3, 2); // a new entry
    counters.Save(table_.Get());
    EXPECT_EQ((std::vector<HitCounter>{{"A", 1, 3, 1}, {"B", 1, 3, 2}}), Stored());
    first.CurrentCount = 2; // a hit
    counters.Save(table_.Get());
    EXPECT_EQ((std::vector<HitCounter>{{"A", 1, 3, 2}, {"B", 1, 3, 2}}), Stored());
    first.ReportCount = 9; // another report count
    counters.Save(table_.Get());
    EXPECT_EQ((std::vector<HitCounter>{{"A", 1, 9, 2}, {"B", 1, 3, 2}}), Stored());
    table_.Clear(); // everything removed
    counters.Save(table_.Get());
    EXPECT_TRUE(Stored().empty());
}

TEST_F(HitCountersTest, GoWithTheirPass)
{
    table_.Add("A", 1, 3, 1);
    SaveAsBefore();
    Restart(host::Role::kDaemon);
    table_.Add("A", 1, 3, 2);
    HitCounters(test::Store()).Save(table_.Get());
    test::Store().AbandonPass();
    EXPECT_EQ((std::vector<HitCounter>{{"A", 1, 3, 1}}), Stored());
    HitCounters(test::Store()).Save(table_.Get());
    test::Store().CommitPass();
    EXPECT_EQ((std::vector<HitCounter>{{"A", 1, 3, 2}}), Stored());
}

TEST_F(HitCountersTest, OfAFullTableAreStored)
{
    for (uint32_t i = 0; i < kMaxEntries; ++i)
        table_.Add("SRC", i, 3, static_cast<int32_t>(i % 3));
    SaveAsBefore();
    const auto stored = Stored();
    ASSERT_EQ(static_cast<size_t>(kMaxEntries), stored.size());
    EXPECT_EQ((HitCounter{"SRC", 2047, 3, 2047 % 3}), stored.back());
}

} // namespace
