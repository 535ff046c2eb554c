// How often the bytes of a keyword stand in a sample of the log.
#include "match/log_sample.h"
#include "tests/support/module_test.h"

namespace test {
namespace {

TEST(SampleOfALog, CountsEachGramOfTwoThreeAndFourBytes)
{
    const std::string sample = "abcabcabd___"; // of the last three bytes, none is counted from
    TakeSample(sample.data(), sample.size() - 3);
    EXPECT_EQ(3U, SampledTimes("ab", 2));
    EXPECT_EQ(2U, SampledTimes("abc", 3));
    EXPECT_EQ(1U, SampledTimes("abd", 3));
    EXPECT_EQ(1U, SampledTimes("bd_", 3));
    EXPECT_EQ(2U, SampledTimes("cab", 3));
    EXPECT_EQ(2U, SampledTimes("abca", 4));
    EXPECT_EQ(0U, SampledTimes("___", 3));
}

TEST(SampleOfALog, ForgetsTheOneBefore)
{
    TakeSample("abcabc___", 6);
    TakeSample("xyzxyz___", 6);
    EXPECT_EQ(0U, SampledTimes("abc", 3));
    EXPECT_EQ(2U, SampledTimes("xyz", 3));
}

} // namespace
} // namespace test
