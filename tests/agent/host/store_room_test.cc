// The room of the store: what one pass may take, what it gives back, and the way out of a full disk.
#include "agent/host/room.h"

#include "agent/alerts/report_folder.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/process.h"

namespace {

using alerts::Alert;
using alerts::ReportFolder;
using host::RoomOfAPass;
using host::Store;
using test::Finished;
using test::Helper;

constexpr int64_t kMegabyte = 1024 * 1024;

class StoreRoom : public test::RootTest {
  protected:
    StoreRoom() { Layout().CreateFolders(); }

    [[nodiscard]] std::filesystem::path Path() const { return Layout().Store(); }
    // A verb of the helper, with the store on a disk of this size.
    [[nodiscard]] Finished OnADisk(const std::string &size, const test::Words &words) const
    {
        test::Words all = {"with-small-disk", Layout().state.string(), size, HOST_HELPER,
                           Root().string()};
        all.insert(all.end(), words.begin(), words.end());
        return test::RunToEnd(Helper(Root(), all));
    }
};

Alert Report(const std::string &source, uint32_t id, const std::string &line, int64_t hits = 1)
{
    Alert report;
    report.source = source;
    report.event_id = id;
    report.message = line;
    report.count = hits;
    report.time_ms = 1000 + hits;
    return report;
}

std::vector<Alert> Stored(Store &store)
{
    return alerts::ReadAlerts(store.database(), 0, 0, INT64_MAX);
}

// ---- how much ----

TEST(RoomOfAPass, IsAQuarterOfWhatIsFreeAndNoMoreThan32Megabytes)
{
    EXPECT_EQ(10, RoomOfAPass(40, 0, 0));
    EXPECT_EQ(32 * kMegabyte, RoomOfAPass(1000 * kMegabyte, 8 * kMegabyte, 0));
    EXPECT_EQ(0, RoomOfAPass(0, 0, 0));
}

TEST(RoomOfAPass, LeavesRoomToWriteTheJournalIntoTheStore)
{
    // Grown by 10, the journal of 60 needs 70: 60 that are left, and 10 of the reserve.
    EXPECT_EQ(10, RoomOfAPass(70, 10, 60));
    EXPECT_EQ(0, RoomOfAPass(50, 10, 60));
    EXPECT_EQ(0, RoomOfAPass(5, 0, 60));
}

TEST_F(StoreRoom, IsTakenUntilThePassHasNoneAndIsThereAgainForTheNext)
{
    Store store(Path());
    EXPECT_TRUE(store.TakeRoom(INT64_MAX)) << "what is no pass has no bound";
    store.StartPasses();
    const int64_t pass = store.PassNumber();
    EXPECT_TRUE(store.TakeRoom(kMegabyte));
    EXPECT_FALSE(store.TakeRoom(32 * kMegabyte));
    EXPECT_TRUE(store.TakeRoom(1000)) << "less may still fit";
    EXPECT_EQ(pass, store.PassNumber());
    store.CommitPass();
    EXPECT_NE(pass, store.PassNumber());
    EXPECT_TRUE(store.TakeRoom(kMegabyte));
    store.AbandonPass();
    EXPECT_TRUE(store.TakeRoom(kMegabyte));
}

// ---- folding ----

TEST_F(StoreRoom, ReportsBeyondItBecomeOneAlertForEachEvent)
{
    Store store(Path());
    store.StartPasses();
    ReportFolder folder;
    folder.Add(store, Report("A", 1, "with room", 2));
    store.TakeRoom(INT64_MAX);
    while (store.TakeRoom(1000))
        continue;
    for (int i = 1; i <= 3; ++i) {
        folder.Add(store, Report("A", 1, std::string(1000, 'a') + std::to_string(i), i));
        folder.Add(store, Report("A", 2, std::string(1000, 'b') + std::to_string(i), 10));
    }
    store.CommitPass();
    const auto stored = Stored(store);
    ASSERT_EQ(3U, stored.size());
    EXPECT_EQ(1, stored[0].reports);
    EXPECT_FALSE(stored[0].IsFolded());
    EXPECT_EQ(2, stored[0].count);

    EXPECT_EQ(3, stored[1].reports);
    EXPECT_TRUE(stored[1].IsFolded());
    EXPECT_EQ(1 + 2 + 3, stored[1].count);
    EXPECT_EQ(std::string(1000, 'a') + "1", stored[1].message);
    EXPECT_EQ(std::string(1000, 'a') + "3", stored[1].last_message);
    EXPECT_EQ(1001, stored[1].time_ms);
    EXPECT_EQ(1003, stored[1].last_time_ms);

    EXPECT_EQ(2U, stored[2].event_id);
    EXPECT_EQ(30, stored[2].count);
}

// A sink may want those of one host only.
TEST_F(StoreRoom, ReportsBeyondItAreFoldedByTheHostOfTheirLinesUnlessThoseAreMany)
{
    Store store(Path());
    store.StartPasses();
    while (store.TakeRoom(1000))
        continue;
    ReportFolder folder;
    constexpr size_t kHosts = ReportFolder::kMostByHost;
    for (int round = 0; round < 2; ++round) {
        for (size_t host = 0; host < kHosts + 5; ++host) {
            alerts::Alert report = Report("A", 1, std::string(1000, 'a'));
            report.line_host = "web" + std::to_string(host);
            folder.Add(store, report);
        }
    }
    store.CommitPass();
    const auto stored = Stored(store);
    ASSERT_EQ(kHosts + 1, stored.size());
    for (size_t host = 0; host < kHosts; ++host) {
        EXPECT_EQ("web" + std::to_string(host), stored[host].line_host);
        EXPECT_EQ(2, stored[host].reports);
    }
    EXPECT_EQ(10, stored[kHosts].reports);
}

TEST_F(StoreRoom, TheNextPassBeginsWithAlertsOfTheirOwn)
{
    Store store(Path());
    store.StartPasses();
    ReportFolder folder;
    for (int pass = 0; pass < 2; ++pass) {
        while (store.TakeRoom(1000))
            continue;
        folder.Add(store, Report("A", 1, std::string(1000, 'x')));
        folder.Add(store, Report("A", 1, std::string(1000, 'y')));
        if (pass == 0)
            store.AbandonPass(); // and what was folded with it
    }
    store.CommitPass();
    folder.Add(store, Report("A", 1, "of the next pass"));
    store.CommitPass();
    const auto stored = Stored(store);
    ASSERT_EQ(2U, stored.size());
    EXPECT_EQ(2, stored[0].reports);
    EXPECT_EQ(1, stored[1].reports);
}

// ---- on a disk that is small ----

TEST_F(StoreRoom, APassThatIsRolledBackGivesItsRoomBackAtOnce)
{
    const Finished finished = OnADisk("16m", {"take-room-and-abandon"});
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ("6 megabytes taken\nnothing taken\n", finished.out) << finished.err;
}

TEST_F(StoreRoom, AFullDiskIsLeftWithTheReserveAndTheReserveIsMadeAgain)
{
    const Finished finished = OnADisk("16m", {"leave-full-disk"});
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ("a reserve\n"
              "the disk is full: no reserve\n"
              "stored\n"
              "room again: a reserve\n",
              finished.out)
        << finished.err;
}

TEST_F(StoreRoom, ADiskWithoutRoomForAReserveHasNone)
{
    const Finished finished = OnADisk("900k", {"keep-reserve"});
    ASSERT_NE(test::kNotPermitted, finished.status) << finished.err;
    EXPECT_EQ("no reserve\n", finished.out) << finished.err;
}

} // namespace
