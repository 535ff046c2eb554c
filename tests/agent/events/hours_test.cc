// Hours of the day as text and as mask.
#include "agent/events/hours.h"

#include <algorithm>

#include "tests/agent/support/host_test.h"

namespace {

using events::FormatHours;
using events::ParseHours;
using test::ErrorOf;

uint32_t Mask(std::initializer_list<int> hours)
{
    uint32_t mask = 0;
    for (const int hour : hours)
        mask |= 1U << static_cast<unsigned>(hour);
    return mask;
}

TEST(Hours, AllAndNoneHaveNames)
{
    EXPECT_EQ(0xFFFFFFU, ParseHours("all"));
    EXPECT_EQ(0U, ParseHours("none"));
    EXPECT_EQ("all", FormatHours(0xFFFFFF));
    EXPECT_EQ("none", FormatHours(0));
}

TEST(Hours, ASpanEndsBeforeItsLastNumber)
{
    EXPECT_EQ(Mask({8, 9, 10}), ParseHours("8-11"));
    EXPECT_EQ(Mask({22, 23}), ParseHours("22-24"));
    EXPECT_EQ(0xFFFFFFU, ParseHours("0-24"));
    EXPECT_EQ(Mask({0}), ParseHours("0-1"));
}

TEST(Hours, ASpanGoesOverMidnight)
{
    EXPECT_EQ(Mask({22, 23, 0, 1, 2, 3, 4, 5}), ParseHours("22-6"));
    EXPECT_EQ(Mask({23}), ParseHours("23-0"));
    EXPECT_EQ(Mask({0, 1}), ParseHours("24-2"));
}

TEST(Hours, ASpanThatEndsWhereItBeginsIsRefused)
{
    for (const char *text : {"8-8", "0-0", "24-24", "1,08-8"}) {
        const std::string item = std::string(text).substr(std::string(text).find(',') + 1);
        EXPECT_EQ(std::string("cannot use the hours \"") + text + "\": the span " + item +
                      " ends where it begins; write all for the whole day, or one number for one "
                      "hour",
                  ErrorOf([&] { ParseHours(text); }));
    }
}

TEST(Hours, AListIsTheUnionOfItsItems)
{
    EXPECT_EQ(Mask({0, 12, 22, 23}), ParseHours("0,12,22-24"));
    EXPECT_EQ(Mask({1, 2, 3}), ParseHours("1-3,2-4"));
    EXPECT_EQ(Mask({7}), ParseHours("07"));
    EXPECT_EQ(Mask({7}), ParseHours("7,7,7"));
}

TEST(Hours, AnythingElseIsRefusedWithTheFormsThatAreKnown)
{
    for (const char *text : {"",       "24",    "25",  "0-25",  "100",  "-",   "1-",    "-1",
                             "1--2",   "1-2-3", "1,",  ",1",    "1,,2", "a",   "8-18 ", " 8",
                             "8 - 18", "0x1",   "ALL", "all,1", "+1",   "1.5", "8:00"})
        EXPECT_EQ(std::string("cannot use the hours \"") + text +
                      "\": they are not of a form that is known; write all, none, or hours and "
                      "spans from 0 to 24, such as 8-18 or 22-6,12",
                  ErrorOf([&] { ParseHours(text); }));
}

TEST(Hours, AreShownAsShortAsTheyCanBe)
{
    EXPECT_EQ("8-18", FormatHours(ParseHours("8-18")));
    EXPECT_EQ("22-6", FormatHours(ParseHours("0-6,22-24")));
    EXPECT_EQ("22-24", FormatHours(ParseHours("22,23")));
    EXPECT_EQ("0,12", FormatHours(Mask({0, 12})));
    EXPECT_EQ("23", FormatHours(Mask({23})));
    EXPECT_EQ("0-2", FormatHours(Mask({0, 1})));
    EXPECT_EQ("23-22", FormatHours(events::kAllHours & ~Mask({22})));
}

TEST(Hours, BitsThatAreNoHourHaveNoMeaning)
{
    EXPECT_EQ("none", FormatHours(0xFF000000));
    EXPECT_EQ("all", FormatHours(0xFFFFFFFF));
    EXPECT_EQ("5", FormatHours(0x80000000 | Mask({5})));
}

// ---- text and back ----

void ExpectRoundTrip(uint32_t mask)
{
    ASSERT_EQ(mask, ParseHours(FormatHours(mask))) << FormatHours(mask);
}

TEST(Hours, EverySpanComesBack)
{
    for (int from = 0; from < 24; ++from) {
        uint32_t mask = 0;
        for (int length = 1; length <= 24; ++length) {
            mask |= Mask({(from + length - 1) % 24});
            ExpectRoundTrip(mask);
        }
    }
}

TEST(Hours, EveryMaskOfTwelveNeighbouringHoursComesBack)
{
    for (uint32_t bits = 0; bits < 1U << 12U; ++bits) {
        for (unsigned shift = 0; shift < 24; shift += 6) {
            const uint32_t moved = bits << shift;
            ExpectRoundTrip((moved | moved >> 24U) & events::kAllHours); // over midnight, too
        }
    }
}

TEST(Hours, AMaskOfEveryKindComesBack)
{
    // Steps of a large prime: evenly spread over all 2^24 masks.
    for (uint64_t i = 0; i < 100000; ++i)
        ExpectRoundTrip(static_cast<uint32_t>(i * 7368787 % (1U << 24U)));
}

TEST(Hours, AreShownWithoutANeedlessItem)
{
    // As many items as there are runs of hours around the clock.
    for (uint64_t i = 0; i < 20000; ++i) {
        const auto mask = static_cast<uint32_t>(i * 7368787 % (1U << 24U));
        if (mask == 0 || mask == events::kAllHours)
            continue;
        const uint32_t rotated = ((mask << 1U) | (mask >> 23U)) & events::kAllHours;
        const std::string text = FormatHours(mask);
        EXPECT_EQ(__builtin_popcount(mask & ~rotated),
                  1 + std::count(text.begin(), text.end(), ','))
            << text;
    }
}

} // namespace
