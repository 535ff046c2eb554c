#include "vkevmon/pass_follower.h"

#include "match/match.h"
#include "platform/agent.h"

namespace {

FollowPassFn follower = nullptr; // of the pass under way; on the monitor thread

} // namespace

void AskWhoFollows()
{
    follower = PassFollower != nullptr ? PassFollower() : nullptr;
}

bool TellFollower(int slot, const PassLine *checked, int times, int64_t repeats)
{
    if (follower == nullptr)
        return true;
    PassPlace place{};
    place.slot = slot;
    place.lines = lines_read;
    place.repeats = repeats;
    if (checked != nullptr) {
        place.text = checked->text;
        place.pos = checked->pos;
        place.number = checked->number;
        place.times = times;
        place.outcome = line_outcome;
    }
    return follower(&place) == 0;
}
