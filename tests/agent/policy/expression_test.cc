// Expressions of policies, on lines that anybody may have written.
#include <string>

#include <gtest/gtest.h>

#include "agent/policy/expression.h"

namespace {

using policy::Expression;

Expression Of(const std::string &text)
{
    return {text, Expression::Kind::kExpression, false};
}

TEST(Expression, FindsWhatALineHoldsBesideBytesThatAreNoCharacters)
{
    const Expression failed = Of("Failed password for .* from (\\S+)$");
    EXPECT_TRUE(failed.Matches("sshd[7]: Failed password for root from 10.0.0.1"));
    EXPECT_TRUE(failed.Matches("sshd[7]: Failed password for \xFF from 10.0.0.1"));
    EXPECT_TRUE(failed.Matches("sshd[7]: Failed password for \xC3\x28\xED\xA0\x80 from 10.0.0.1"));
    EXPECT_TRUE(failed.Matches("sshd[7]: Failed password for root from \xE2\x82"));
    EXPECT_FALSE(failed.Matches("sshd[7]: Failed passwor\xFF for root from 10.0.0.1"));
}

TEST(Expression, GroupsHoldTheBytesOfTheLineAsTheyAre)
{
    const auto groups =
        Of("user=(\\S+) host=(\\S+)( twice)?").Groups("\xFFuser=a\xFE\xC3\xA4 host=h\x80");
    ASSERT_TRUE(groups);
    ASSERT_EQ(4U, groups->size());
    EXPECT_EQ("a\xFE\xC3\xA4", (*groups)[1]);
    EXPECT_EQ("h\x80", (*groups)[2]);
    EXPECT_EQ("", (*groups)[3]);
}

} // namespace
