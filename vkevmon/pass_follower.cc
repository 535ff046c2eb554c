#include "vkevmon/pass_follower.h"

#include "fileacc/fileacc.h"
#include "match/match.h"
#include "platform/agent.h"
#include "vkevmon/settings.h"

namespace {

FollowPassFn follower = nullptr; // of the pass under way; on the monitor thread

} // namespace

namespace {

void Tell(int slot, int is_afresh, int64_t first, int64_t last_read, int64_t last)
{
    if (LogPartIsRead == nullptr)
        return;
    const LogPart part{.slot = slot,
                       .is_afresh = is_afresh,
                       .device = openfile.device,
                       .inode = openfile.inode,
                       .first = first,
                       .last_read = last_read,
                       .last = last,
                       .log = syslogpath[slot]};
    LogPartIsRead(&part);
}

} // namespace

void TellPart(int slot, int64_t first, int64_t last_read, int64_t last)
{
    Tell(slot, 0, first, last_read, last);
}

void TellStartAfresh(int slot, int64_t last)
{
    Tell(slot, 1, -1, -1, last);
}

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
