// Carrying the hit counts from the old monitoring table to the new one.
#include "vkevmon/reload.h"

#include <cstring>

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/table.h"

namespace {

using test::EventSpec;
using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::Rows;
using test::TableRows;

const VKVMon *const saved_at_load = tmp_VKVMon;

class Reload : public test::ModuleTest {
  protected:
    // An entry of the table with so many hits.
    static VKVMon *Entry(const EventSpec &event, int32_t hits = 0)
    {
        VKVMon *entry = AddEntry(event);
        entry->CurrentCount = hits;
        return entry;
    }
    // What a load does to the old table.
    static void EmptyTable()
    {
        FreeTableEntries();
        nCnt = 0;
    }
    static int Hits(int slot) { return lpVKVMon[slot]->CurrentCount; }
};

TEST_F(Reload, IsNotUnderWayAtLoad)
{
    EXPECT_EQ(nullptr, saved_at_load);
}

// ---- the backup ----

TEST_F(Reload, SavesSourceIdReportCountAndHitsAndNothingElse)
{
    Entry({.source = "A", .id = "1F", .keywords = {"x", "y", "z"}, .report_count = 5}, 3);
    Entry({.source = std::string(499, 's'), .id = "FFFFFFFF", .report_count = 0xFFFFFFFF}, -7);
    EXPECT_EQ(0, VKVMonQueBackUp());
    ASSERT_EQ(2, tmp_Cnt);

    VKVMon want{};
    strcpy(want.Source, "A");
    want.EventID = 0x1F;
    want.ReportCount = 5;
    want.CurrentCount = 3;
    test::ExpectSameFields(want, tmp_VKVMon[0]);
    want = VKVMon{};
    memset(want.Source, 's', 499);
    want.EventID = 0xFFFFFFFF;
    want.ReportCount = -1;
    want.CurrentCount = -7;
    test::ExpectSameFields(want, tmp_VKVMon[1]);
    ExpectNothingToTell();
}

TEST_F(Reload, LeavesTheOldTableAsItIsWhenItSaves)
{
    Entry({.source = "A"}, 3);
    const Rows before = TableRows();
    EXPECT_EQ(0, VKVMonQueBackUp());
    EXPECT_EQ(before, TableRows());
}

TEST_F(Reload, SavesAnEmptyTable)
{
    tmp_Cnt = 9;
    EXPECT_EQ(0, VKVMonQueBackUp());
    EXPECT_EQ(0, tmp_Cnt);
    EXPECT_NE(nullptr, tmp_VKVMon);
}

TEST_F(Reload, FailsWhenTheCopyCannotBeAllocated)
{
    Entry({.source = "A"}, 3);
    test::FailBackup();
    EXPECT_EQ(-1, VKVMonQueBackUp());
    EXPECT_EQ(nullptr, tmp_VKVMon);
    ExpectTraced(1, "VKVMonQueBackUp", "<tmp_VKVMon malloc failed.return -1");
    EXPECT_EQ(1, nCnt);
    EXPECT_EQ(3, Hits(0));
}

TEST_F(Reload, FailsAlsoWhenTheCopyOfAnEmptyTableIsNull)
{
    test::FailBackup();
    EXPECT_EQ(-1, VKVMonQueBackUp());
    EXPECT_EQ(nullptr, tmp_VKVMon);
    ExpectTraced(1, "VKVMonQueBackUp", "<tmp_VKVMon malloc failed.return -1");
}

// ---- the copy ----

TEST_F(Reload, GivesEachNewEntryTheHitsOfTheOldOneThatItContinues)
{
    Entry({.source = "A", .id = "1", .report_count = 10}, 3);
    Entry({.source = "A", .id = "2", .report_count = 10}, 4);
    Entry({.source = "B", .id = "1", .report_count = 10}, 5);
    ASSERT_EQ(0, VKVMonQueBackUp());
    EmptyTable();
    Entry({.source = "B", .id = "1", .report_count = 10});
    Entry({.source = "new", .id = "1", .report_count = 10});
    Entry({.source = "A", .id = "2", .report_count = 10});
    Entry({.source = "A", .id = "1", .report_count = 10});
    VKVMonQueCpy();
    EXPECT_EQ((std::vector<int>{5, 0, 4, 3}),
              (std::vector<int>{Hits(0), Hits(1), Hits(2), Hits(3)}));
    EXPECT_EQ(nullptr, tmp_VKVMon);
    EXPECT_EQ(3, tmp_Cnt);
    ExpectNothingToTell();
}

TEST_F(Reload, ComparesSourceIdAndReportCountOnly)
{
    const EventSpec old = {.source = "Src",
                           .id = "1A",
                           .keywords = {"x", "y", "z"},
                           .report_count = 5,
                           .watch_time = 1};
    struct Change {
        EventSpec event;
        bool continues;
        const char *what;
    };
    const std::vector<Change> changes = {
        {old, true, "nothing"},
        {{.source = "Src", .id = "1A", .keywords = {"other", "", ""}, .report_count = 5},
         true,
         "keywords and hours"},
        {{.source = "src", .id = "1A", .keywords = {"x", "y", "z"}, .report_count = 5},
         false,
         "the case of the source"},
        {{.source = "Src2", .id = "1A", .report_count = 5}, false, "a longer source"},
        {{.source = "Sr", .id = "1A", .report_count = 5}, false, "a shorter source"},
        {{.source = "", .id = "1A", .report_count = 5}, false, "no source"},
        {{.source = "Src", .id = "1B", .report_count = 5}, false, "the ID"},
        {{.source = "Src", .id = "8000001A", .report_count = 5}, false, "a high bit of the ID"},
        {{.source = "Src", .id = "1A", .report_count = 6}, false, "a higher report count"},
        {{.source = "Src", .id = "1A", .report_count = 4}, false, "a lower report count"},
    };
    for (const auto &change : changes) {
        EmptyTable();
        Entry(old, 3);
        ASSERT_EQ(0, VKVMonQueBackUp());
        EmptyTable();
        Entry(change.event);
        VKVMonQueCpy();
        EXPECT_EQ(change.continues ? 3 : 0, Hits(0)) << change.what;
    }
}

TEST_F(Reload, TakesTheFirstOfSeveralOldEntriesOfOneIdentity)
{
    Entry({.source = "A", .id = "1"}, 7);
    Entry({.source = "A", .id = "1"}, 8);
    ASSERT_EQ(0, VKVMonQueBackUp());
    EmptyTable();
    Entry({.source = "A", .id = "1"});
    Entry({.source = "A", .id = "1"});
    Entry({.source = "A", .id = "1"});
    VKVMonQueCpy();
    EXPECT_EQ((std::vector<int>{7, 7, 7}), (std::vector<int>{Hits(0), Hits(1), Hits(2)}));
}

TEST_F(Reload, TakesTheFirstOldEntryAlsoWhenItHasNoHits)
{
    Entry({.source = "A", .id = "1"}, 0);
    Entry({.source = "A", .id = "1"}, 8);
    ASSERT_EQ(0, VKVMonQueBackUp());
    EmptyTable();
    Entry({.source = "A", .id = "1"});
    VKVMonQueCpy();
    EXPECT_EQ(0, Hits(0));
}

TEST_F(Reload, OfAnEmptyOldTableLetsEveryEntryStartAtZero)
{
    ASSERT_EQ(0, VKVMonQueBackUp());
    Entry({.source = "A"});
    Entry({.source = "B"});
    VKVMonQueCpy();
    EXPECT_EQ(0, Hits(0));
    EXPECT_EQ(0, Hits(1));
    EXPECT_EQ(nullptr, tmp_VKVMon);
}

TEST_F(Reload, IntoAnEmptyTableOnlyDropsTheSavedRecords)
{
    Entry({.source = "A"}, 3);
    ASSERT_EQ(0, VKVMonQueBackUp());
    EmptyTable();
    VKVMonQueCpy();
    EXPECT_EQ(0, nCnt);
    EXPECT_EQ(nullptr, tmp_VKVMon);
    EXPECT_EQ(1, tmp_Cnt);
}

TEST_F(Reload, OfAFullTableKeepsEveryCount)
{
    const auto fill = [](bool reversed, bool with_hits) {
        for (int i = 0; i < kMaxEntries; ++i) {
            const auto number = static_cast<uint32_t>(reversed ? kMaxEntries - 1 - i : i);
            Entry({.source = "S", .id = test::Hex(number)},
                  with_hits ? static_cast<int32_t>(number) + 1 : 0);
        }
    };
    fill(false, true);
    ASSERT_EQ(0, VKVMonQueBackUp());
    EmptyTable();
    fill(true, false);
    VKVMonQueCpy();
    for (int i = 0; i < kMaxEntries; ++i)
        ASSERT_EQ(kMaxEntries - i, Hits(i)) << "slot " << i;
}

// ---- with the load between them ----

class ReloadFromRegistry : public Reload {
  protected:
    static void Rebuild()
    {
        ASSERT_EQ(0, VKVMonQueBackUp());
        ASSERT_EQ(0, VKVMonQueGet());
        VKVMonQueCpy();
    }
};

TEST_F(ReloadFromRegistry, WithNothingChangedKeepsEveryCount)
{
    Register({.source = "A", .id = "1", .keywords = {"x", "", ""}, .report_count = 9});
    Register({.source = "A", .id = "2", .keywords = {"x", "", ""}, .report_count = 9});
    Register({.source = "B", .id = "1", .keywords = {"x", "", ""}, .report_count = 9});
    ASSERT_EQ(0, VKVMonQueGet());
    for (int i = 0; i < nCnt; ++i)
        lpVKVMon[i]->CurrentCount = 2 + i;
    const Rows before = TableRows();
    Rebuild();
    EXPECT_EQ(before, TableRows());
    EXPECT_EQ("B|1|x|||9|FFFFFF|4", before.back());
}

TEST_F(ReloadFromRegistry, OfAnEventThatWasRemovedAndAddedAgainKeepsItsCount)
{
    Register({.source = "A", .id = "1", .keywords = {"x", "", ""}, .report_count = 9});
    Register({.source = "A", .id = "2", .keywords = {"y", "", ""}, .report_count = 9});
    ASSERT_EQ(0, VKVMonQueGet());
    lpVKVMon[0]->CurrentCount = 5;
    lpVKVMon[1]->CurrentCount = 6;
    Host().registry.DeleteKey(test::SourceKey("A") + "\\1");
    Register({.source = "A", .id = "1", .keywords = {"new", "", ""}, .report_count = 9});
    Rebuild();
    EXPECT_EQ((Rows{"A|2|y|||9|FFFFFF|6", "A|1|new|||9|FFFFFF|5"}), TableRows());
}

TEST_F(ReloadFromRegistry, OfAnEventThatIsGoneLosesItsCount)
{
    Register({.source = "A", .id = "1", .keywords = {"x", "", ""}, .report_count = 9});
    ASSERT_EQ(0, VKVMonQueGet());
    lpVKVMon[0]->CurrentCount = 5;
    Host().registry.DeleteKey(test::SourceKey("A") + "\\1");
    Rebuild();
    EXPECT_EQ(Rows{}, TableRows());
    Register({.source = "A", .id = "1", .keywords = {"x", "", ""}, .report_count = 9});
    Rebuild();
    EXPECT_EQ(Rows{"A|1|x|||9|FFFFFF|0"}, TableRows());
}

} // namespace
