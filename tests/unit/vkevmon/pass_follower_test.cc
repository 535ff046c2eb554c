// Whoever follows a pass.
#include <string>

#include "platform/agent.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"
#include "vkevmon/pass_lines.h"

namespace {

using test::Checked;
using test::CheckedList;
using test::Host;
using test::Once;
using test::Pass;
using test::ResumePoint;
using test::Strings;

// What was told, and when to give the pass up.
struct Followed {
    CheckedList lines;
    int64_t read = 0;
    int64_t repeats = 0;
    size_t most = SIZE_MAX; // lines
};
Followed followed;

int Follow(const PassPlace *place)
{
    if (place->text != nullptr)
        followed.lines.push_back({place->text, place->times});
    followed.read = place->lines;
    followed.repeats = place->repeats;
    return followed.lines.size() >= followed.most ? 1 : 0;
}

class FollowedPass : public Pass {
  protected:
    FollowedPass()
    {
        followed = {};
        Host().pass_follower = ::Follow;
    }
};

TEST_F(FollowedPass, TellsOfEachLineBehindItsCheckAndOfWhatItStandsFor)
{
    Follow({head_, a_});
    Append({b_, Repeat(3), c_});
    EXPECT_EQ((CheckedList{{b_, 4}, {c_, 1}}), Run());
    EXPECT_EQ((CheckedList{{b_, 4}, {c_, 1}}), followed.lines);
    EXPECT_EQ(3, followed.read);
    EXPECT_EQ(1, followed.repeats);
}

TEST_F(FollowedPass, ThatIsGivenUpChecksNoFurtherLineAndStoresNoPlace)
{
    Follow({head_, a_});
    const ResumePoint before = StoredResumePoint();
    Append({b_, c_, d_});
    followed = {};
    followed.most = 2;
    EXPECT_EQ(Once({b_, c_}), Run());
    EXPECT_EQ(before, StoredResumePoint());
    ExpectNothingHeld();
}

TEST_F(FollowedPass, ReadsTheLinesOfOneThatWasGivenUpAgain)
{
    Follow({head_, a_});
    Append({b_, c_, d_});
    followed = {};
    followed.most = 2;
    Run();
    Host().pass_follower = nullptr;
    EXPECT_EQ(Once({b_, c_, d_}), Run());
    EXPECT_EQ(PointAt(d_, {head_, a_, b_, c_, d_}), StoredResumePoint());
}

} // namespace
