// What counts of the values that servers show, of which some are behind the others.
#include "agent/fleet/offers.h"

#include <gtest/gtest.h>

#include "agent/fleet/group_files.h"

namespace {

using fleet::GroupState;
using fleet::KeyValue;
using fleet::Offers;

constexpr char kUuid[] = "00000000-0000-4000-8000-000000000001";
constexpr int64_t kBucket = 7;
constexpr int64_t kStored =
    1795000000000; // when the revision 0 would have been stored; each one a minute later

int64_t StoredMs(uint64_t revision)
{
    return kStored + static_cast<int64_t>(revision) * 60000;
}

std::string Files(uint64_t revision, uint64_t below = fleet::kAllNumbers)
{
    return fleet::FormatGroup(
        "web", {{{"a.yaml", "# " + std::to_string(revision)}}, "me", StoredMs(revision), below});
}

KeyValue All(uint64_t revision)
{
    return {"web.all", revision, false, StoredMs(revision), Files(revision)};
}

KeyValue Canary(uint64_t revision, bool is_deleted = false, uint64_t below = fleet::kAllNumbers)
{
    return {"web.canary", revision, is_deleted, StoredMs(revision),
            is_deleted ? "" : Files(revision, below)};
}

GroupState TakenState(uint64_t revision, bool is_canary = false)
{
    return {"web", kBucket, revision, is_canary, Files(revision)};
}

class OffersTest : public testing::Test {
  protected:
    void Begin(const std::vector<GroupState> &taken = {}) { offers_.TakeBucket(kBucket, taken); }
    // The revision that is wanted; 0: the bucket says nothing.
    uint64_t Wanted()
    {
        const auto wanted = offers_.Wanted("web");
        return wanted ? wanted->revision : 0;
    }
    Offers offers_{kUuid};
};

TEST_F(OffersTest, TheNewestValueCountsAndOneOfAServerThatIsBehindDoesNot)
{
    Begin();
    EXPECT_EQ(0U, Wanted());
    EXPECT_TRUE(offers_.Take(All(5)));
    EXPECT_TRUE(offers_.Take(All(9)));
    EXPECT_FALSE(offers_.Take(All(5)));
    EXPECT_FALSE(offers_.Take(All(9)));
    EXPECT_EQ(9U, Wanted());
}

TEST_F(OffersTest, AConnectionToAServerThatIsBehindTakesNothingBack)
{
    Begin();
    offers_.Take(All(9));
    Begin({TakenState(9)});
    EXPECT_FALSE(offers_.Take(All(5)));
    EXPECT_EQ(9U, Wanted());
}

TEST_F(OffersTest, NorDoesAStart)
{
    Begin({TakenState(9)});
    EXPECT_FALSE(offers_.Take(All(5)));
    EXPECT_EQ(9U, Wanted());
    EXPECT_TRUE(offers_.Take(All(10)));
    EXPECT_EQ(10U, Wanted());
}

TEST_F(OffersTest, WhatWasTriedIsTakenBackByWhatIsNewerAlone)
{
    Begin({TakenState(7, true)});
    offers_.Take(All(5));
    EXPECT_EQ(7U, Wanted());
    offers_.Take(Canary(6, true));
    EXPECT_EQ(7U, Wanted());
    offers_.Take(Canary(8, true));
    EXPECT_EQ(5U, Wanted());
}

TEST_F(OffersTest, WhatWasTakenBackDoesNotComeBackWithAStart)
{
    Begin();
    offers_.Take(All(10));
    offers_.Take(Canary(11));
    EXPECT_EQ(11U, Wanted());
    offers_.Take(Canary(12, true));
    const auto taken = offers_.Wanted("web");
    ASSERT_TRUE(taken);
    EXPECT_EQ(10U, taken->revision);
    offers_ = Offers(kUuid);
    Begin({*taken});
    EXPECT_FALSE(offers_.Take(Canary(11)));
    EXPECT_EQ(10U, Wanted());
    EXPECT_TRUE(offers_.Take(Canary(13)));
    EXPECT_EQ(13U, Wanted());
}

TEST_F(OffersTest, ACanaryEndsWithTheNextFilesOfAllAlsoWhereItIsStillShown)
{
    Begin({TakenState(9)});
    offers_.Take(Canary(7));
    EXPECT_EQ(9U, Wanted());
    offers_.Take(Canary(10));
    EXPECT_EQ(10U, Wanted());
    EXPECT_TRUE(offers_.Wanted("web")->is_canary);
    offers_.Take(All(11));
    EXPECT_EQ(11U, Wanted());
}

TEST_F(OffersTest, ACanaryIsForTheHostsOfItsShare)
{
    Begin();
    offers_.Take(All(5));
    offers_.Take(Canary(6, false, fleet::NumberOf("web", kUuid)));
    EXPECT_EQ(5U, Wanted());
    offers_.Take(Canary(7, false, fleet::NumberOf("web", kUuid) + 1));
    EXPECT_EQ(7U, Wanted());
}

TEST_F(OffersTest, ABucketThatWasMadeAnewBeginsItsNumbersAgain)
{
    Begin({TakenState(9)});
    offers_.TakeBucket(kBucket + 1, {TakenState(9)});
    EXPECT_EQ(0U, Wanted());
    offers_.Take(All(1));
    EXPECT_EQ(1U, Wanted());
}

// With their old disk, they give numbers that others had.
TEST_F(OffersTest, WhatServersWithAnOlderDiskAreGivenCountsAndWhatTheyHadDoesNot)
{
    Begin({TakenState(9)});
    EXPECT_FALSE(offers_.Take(All(5)));
    KeyValue next = All(6);
    next.stored_ms = StoredMs(10);
    EXPECT_TRUE(offers_.Take(next));
    EXPECT_EQ(6U, Wanted());
    // The servers' clocks differ a little; that is no proof.
    next.revision = 4;
    next.stored_ms += 10000;
    EXPECT_FALSE(offers_.Take(next));
}

TEST_F(OffersTest, AValueThatWasTakenAwaySaysNothing)
{
    Begin({TakenState(9)});
    EXPECT_TRUE(offers_.Take({"web.all", 10, true, StoredMs(10), ""}));
    EXPECT_EQ(0U, Wanted());
}

// A command that was killed has left it, and the servers have come back with a disk of before.
TEST_F(OffersTest, ACanaryIsOverWithFilesOfAllThatWereStoredLaterUnderASmallerNumber)
{
    Begin();
    offers_.Take(All(5));
    offers_.Take(Canary(7));
    EXPECT_EQ(7U, Wanted());
    KeyValue all = All(6);
    all.stored_ms = StoredMs(20);
    offers_.Take(all);
    EXPECT_EQ(6U, Wanted());
}

// The one who gave the files had a clock a day fast. The servers say when they were stored, then lose their disk.
TEST_F(OffersTest, WhenAValueWasStoredIsKnownByTheServersAndNotByWhoMadeIt)
{
    GroupState taken = TakenState(9);
    taken.value = fleet::FormatGroup(
        "web", {{{"a.yaml", "# 9"}}, "me", StoredMs(9) + 86400000, fleet::kAllNumbers});
    KeyValue all = All(9);
    all.value = taken.value;
    Begin({taken});
    EXPECT_FALSE(offers_.Take(all));
    KeyValue later = All(6);
    later.stored_ms = StoredMs(20);
    EXPECT_TRUE(offers_.Take(later));
    EXPECT_EQ(6U, Wanted());
}

// The one who gave the files had a clock a day slow: to a host that starts, an older value seems to be stored later.
TEST_F(OffersTest, NorDoesAStartTakeAnythingBackWhateverTheClockOfWhoMadeIt)
{
    KeyValue all = All(9);
    all.value = fleet::FormatGroup(
        "web", {{{"a.yaml", "# 9"}}, "me", StoredMs(9) - 86400000, fleet::kAllNumbers});
    Begin();
    offers_.Take(all);
    const auto taken = offers_.Wanted("web");
    ASSERT_TRUE(taken);
    EXPECT_EQ(StoredMs(9), taken->stored_ms);
    offers_ = Offers(kUuid);
    Begin({*taken});
    EXPECT_FALSE(offers_.Take(All(8)));
    EXPECT_EQ(9U, Wanted());
}

} // namespace
