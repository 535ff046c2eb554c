// Values over time in the store: totals, steps, bounds.
#include "agent/history/history_reader.h"
#include "agent/history/history_writer.h"
#include "tests/agent/support/host_test.h"

namespace {

using history::HistoryWriter;
using history::kDay;
using history::kHour;
using history::Kind;
using history::kMinute;
using history::News;
using history::SeriesKey;

// A midnight of UTC.
constexpr int64_t kMidnight = 20'000 * kDay;
const SeriesKey kDisk{Kind::kHits, "DISK", 1};
const SeriesKey kLines{Kind::kLines, "/var/log/messages", 0};
const SeriesKey kBehind{Kind::kBehind, "/var/log/messages", 0};

class HistoryTest : public test::HostTest {
  protected:
    HistoryTest() { writer_.emplace(test::Store()); }

    void Save(const SeriesKey &key, int64_t value, int64_t now)
    {
        News news;
        news.Add(key, value);
        writer_->Save(news, now);
    }
    // As another process or another life of the monitor finds it.
    void Reopen()
    {
        writer_.reset();
        writer_.emplace(test::Store());
    }
    static int64_t Total(const SeriesKey &key)
    {
        const auto totals = history::ReadTotals(test::Store().database());
        const auto found = totals.find(key);
        return found != totals.end() ? found->second : 0;
    }
    // The values of a series by the begin of their steps, in seconds behind kMidnight.
    static std::map<int64_t, int64_t> Course(int64_t length, const SeriesKey &key,
                                             int64_t from = kMidnight)
    {
        std::map<int64_t, int64_t> values;
        for (const auto &point :
             history::ReadCourse(test::Store().database(), length, from).points) {
            if (const auto found = point.values.find(key); found != point.values.end())
                values[point.begin - kMidnight] = found->second;
        }
        return values;
    }
    static int64_t Rows(int64_t length)
    {
        return static_cast<int64_t>(
            history::ReadSteps(test::Store().database(), length, 0, INT64_MAX).size());
    }

    std::optional<HistoryWriter> writer_;
};

TEST_F(HistoryTest, ValuesOfAMinuteAddUp)
{
    Save(kDisk, 2, kMidnight);
    Save(kDisk, 3, kMidnight + 59);
    Save(kDisk, 4, kMidnight + 60);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 5}, {60, 4}}), Course(kMinute, kDisk));
    EXPECT_EQ(9, Total(kDisk));
}

TEST_F(HistoryTest, OfSecondsBehindTheLargestIsKept)
{
    Save(kBehind, 7, kMidnight);
    Save(kBehind, 3, kMidnight + 1);
    Save(kBehind, 4, kMidnight + 60);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 7}, {60, 4}}), Course(kMinute, kBehind));
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 7}}), Course(kHour, kBehind));
    EXPECT_EQ(0U, history::ReadTotals(test::Store().database()).count(kBehind));
}

TEST_F(HistoryTest, HoursAndDaysAreMadeOfMinutesAlsoBeforeTheyAreOver)
{
    Save(kDisk, 1, kMidnight + 10);
    Save(kDisk, 2, kMidnight + kHour - 1);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 3}}), Course(kHour, kDisk));
    Save(kDisk, 4, kMidnight + kHour);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 3}, {kHour, 4}}), Course(kHour, kDisk));
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 7}}), Course(kDay, kDisk));
    Save(kDisk, 8, kMidnight + kDay + kHour);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 7}, {kDay, 8}}), Course(kDay, kDisk));
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 3}, {kHour, 4}, {kDay + kHour, 8}}),
              Course(kHour, kDisk));
    EXPECT_EQ(15, Total(kDisk));
}

TEST_F(HistoryTest, AnotherLifeGoesOnWhereTheOneBeforeWas)
{
    Save(kDisk, 2, kMidnight);
    Reopen();
    Save(kDisk, 3, kMidnight + 30);
    Reopen();
    Save(kDisk, 4, kMidnight + kHour);
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 5}, {kHour, 4}}), Course(kMinute, kDisk));
    EXPECT_EQ(9, Total(kDisk));
}

TEST_F(HistoryTest, APassThatIsRolledBackLeavesNothing)
{
    test::Store().StartPasses();
    Save(kDisk, 2, kMidnight);
    test::Store().CommitPass();
    Save(kDisk, 100, kMidnight + kHour);
    test::Store().AbandonPass();
    Reopen();
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 2}}), Course(kMinute, kDisk));
    EXPECT_EQ(2, Total(kDisk));
    test::Store().CommitPass();
}

TEST_F(HistoryTest, NoNewsAreNoWrite)
{
    test::Store().StartPasses();
    writer_->Save({}, kMidnight);
    EXPECT_EQ(0, test::Store().CurrentTransaction());
    Save(kDisk, 1, kMidnight);
    EXPECT_NE(0, test::Store().CurrentTransaction());
    test::Store().CommitPass();
}

TEST_F(HistoryTest, IsKeptAsLongAsItIsToBeKept)
{
    // Three days more than two years; in one pass, since only the end of a pass costs.
    constexpr int64_t kEnd = kMidnight + 734 * kDay;
    test::Store().StartPasses();
    for (int64_t now = kMidnight; now < kEnd; now += now < kEnd - 34 * kDay ? 6 * kHour : kHour / 4)
        Save(kDisk, 1, now);
    test::Store().CommitPass();
    EXPECT_EQ(24 * 4 + 1, Rows(kMinute)); // the one under way is there, too
    EXPECT_EQ(31 * 24, Rows(kHour));
    EXPECT_EQ(731, Rows(kDay));
    EXPECT_EQ(700 * 4 + 34 * 96, Total(kDisk));
    const auto days = Course(kDay, kDisk);
    EXPECT_EQ(4, days.begin()->second);
    EXPECT_EQ(96, days.rbegin()->second);
}

TEST_F(HistoryTest, TheSmallestOfManyEventsAreOneValueAndTheirTotalsStayExact)
{
    News news;
    for (uint32_t i = 0; i < 300; ++i)
        news.Add({Kind::kHits, "EVENT", i}, 1000 + i);
    news.Add(kLines, 5);
    writer_->Save(news, kMidnight);
    Save(kLines, 1, kMidnight + kHour);
    const auto hour = history::ReadCourse(test::Store().database(), kHour, kMidnight).points.at(0);
    EXPECT_EQ(history::kMostEvents + 1, hour.values.size());
    int64_t sum = 0;
    for (const auto &[key, value] : hour.values)
        sum += key.kind == Kind::kHits ? value : 0;
    EXPECT_EQ(300 * 1000 + 299 * 300 / 2, sum);
    EXPECT_EQ(5, hour.values.at(kLines));
    EXPECT_EQ(1, hour.values.count({Kind::kHits, "EVENT", 299}));
    EXPECT_EQ(0, hour.values.count({Kind::kHits, "EVENT", 0}));
    for (uint32_t i = 0; i < 300; ++i)
        EXPECT_EQ(1000 + i, Total({Kind::kHits, "EVENT", i}));
}

TEST_F(HistoryTest, ThereAreSoManySeriesAndTheOneThatWasNotUsedForLongestGoes)
{
    Save(kDisk, 1, kMidnight);
    News news;
    for (uint32_t i = 0; i < history::kMostSeries - 1; ++i)
        news.Add({Kind::kAlerts, "EVENT", i}, 1);
    writer_->Save(news, kMidnight + 60);
    EXPECT_EQ(1, Total(kDisk));
    Save(kLines, 1, kMidnight + 120);
    const auto totals = history::ReadTotals(test::Store().database());
    EXPECT_GE(history::kMostSeries, totals.size());
    EXPECT_EQ(0U, totals.count(kDisk));
    EXPECT_EQ(1U, totals.count(kLines));
    // The number of the series that went is nobody's, not even another one's.
    Save(kDisk, 1, kMidnight + 180);
    EXPECT_EQ((std::map<int64_t, int64_t>{{180, 1}}), Course(kMinute, kDisk));
}

TEST_F(HistoryTest, AClockThatIsPutBackALittleStaysInItsMinute)
{
    Save(kDisk, 1, kMidnight + 600);
    Save(kDisk, 2, kMidnight + 540);
    EXPECT_EQ((std::map<int64_t, int64_t>{{600, 3}}), Course(kMinute, kDisk));
}

TEST_F(HistoryTest, AClockThatIsPutBackFarTakesTheFutureAwayAndNoTotal)
{
    Save(kDisk, 1, kMidnight);
    Save(kDisk, 2, kMidnight + 1000 * kDay);
    Save(kDisk, 4, kMidnight + kHour);
    EXPECT_EQ((std::map<int64_t, int64_t>{{kHour, 4}}), Course(kHour, kDisk));
    EXPECT_EQ(7, Total(kDisk));
    Save(kDisk, 8, kMidnight + kDay);
    EXPECT_EQ((std::map<int64_t, int64_t>{{kHour, 4}, {kDay, 8}}), Course(kHour, kDisk));
    EXPECT_EQ(15, Total(kDisk));
}

TEST_F(HistoryTest, OneThatWasDamagedByHandIsReadAsFarAsItGoes)
{
    Save(kDisk, 1, kMidnight);
    test::Store().Write([](host::Database &database) {
        database.Execute("UPDATE history SET \"values\" = '1=5 oops'");
    });
    EXPECT_EQ((std::map<int64_t, int64_t>{{0, 5}}), Course(kMinute, kDisk));
}

TEST(HistoryLength, IsTheShortestThatIsKeptAndNotTooMany)
{
    EXPECT_EQ(kMinute, history::LengthFor(kHour, 2000));
    EXPECT_EQ(kMinute, history::LengthFor(kDay, 2000));
    EXPECT_EQ(kHour, history::LengthFor(kDay, 500));
    EXPECT_EQ(kHour, history::LengthFor(7 * kDay, 2000));
    EXPECT_EQ(kDay, history::LengthFor(90 * kDay, 2000));
}

// Minutes that end, a clock that is put back into one that has been, new series: after each, what was kept is what is stored.
TEST_F(HistoryTest, TotalsThatAreReadAgainAndAgainAreThoseOfTheStore)
{
    history::TotalsReader reader(test::Store().database());
    history::Totals kept;
    const int64_t moments[] = {0,    30,   59,          60,    61,    3 * kHour, 3 * kHour + 5,
                               61,   62,   2 * kMinute, kHour, kDay,  kDay + 1,  30,
                               kDay, kDay, 0,           0,     kHour, 1};
    int64_t value = 1;
    for (const int64_t moment : moments) {
        News news;
        news.Add(kDisk, ++value);
        news.Add(kBehind, value);
        if (value % 2 == 0)
            news.Add(kLines, 10 * value);
        if (value % 3 == 0)
            news.Add({Kind::kAlerts, "NEW", static_cast<uint32_t>(value)}, 1);
        writer_->Save(news, kMidnight + moment);
        reader.Update(&kept);
        EXPECT_EQ(history::ReadTotals(test::Store().database()), kept) << "at " << moment;
    }
    EXPECT_GT(std::size(moments), static_cast<size_t>(reader.FullReads()));
}

// Between two looks the clock goes a day ahead and back, into the same minute.
TEST_F(HistoryTest, AMinuteThatWasBegunTwiceCountsWholeInTotalsThatAreReadAgain)
{
    history::TotalsReader reader(test::Store().database());
    history::Totals kept;
    Save(kDisk, 5, kMidnight);
    reader.Update(&kept);
    Save(kDisk, 7, kMidnight + kDay);
    Save(kDisk, 1, kMidnight);
    reader.Update(&kept);
    EXPECT_EQ(13, kept[kDisk]);
    EXPECT_EQ(13, Total(kDisk));
}

} // namespace
