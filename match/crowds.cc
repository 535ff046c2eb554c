#include "match/crowds.h"

#include <algorithm>
#include <cstring>

#include "match/anchors.h"
#include "match/log_sample.h"
#include "match/sieve_table.h"

namespace {

// From so many entries under one anchor on, the line is searched for all their second keywords at once.
constexpr int kLeastOfCrowd = 4;

// The cost of a pair that is as common as most, against which a rarer one counts little.
constexpr uint32_t kOrdinaryPair = 16;

// Written by GatherCrowds, on the monitor thread.
Crowd crowds[kMaxEntries / kLeastOfCrowd];
int crowd_count = 0;
CrowdKeyword crowd_keywords[kMaxEntries];
int crowd_keyword_count = 0;
uint16_t crowd_of_anchor[kMostSearched]; // or kNoneSieved

// The entries of the crowd that is gathered, and where the pair of each stands.
struct Member {
    uint16_t entry;
    uint16_t keyword;
    uint16_t offset;
    int pair; // its number, or less than 0
};
Member members[kMaxEntries];
int member_count = 0;

// Of the entries that have no pair yet: in how many places pairs of bytes stand, by slot of the sample.
uint16_t places_of_pair[kSampleSlots];

// Calls `act` with the pair, the keyword and the offset of each place in the keywords of an entry, but for its anchor.
template <class Act>
void ForEachPair(uint16_t entry, uint16_t anchor, Act act)
{
    ForEachKeyword(sieve_entries[entry], kShortestSieved, [anchor, &act](uint16_t id) {
        const SieveKeyword &keyword = sieve_keywords[id];
        if (keyword.anchor == anchor)
            return;
        for (uint16_t offset = 0; offset + 1 < keyword.length; ++offset)
            act(keyword.text + offset, id, offset);
    });
}

void CollectMembers(uint16_t anchor)
{
    member_count = 0;
    for (uint16_t i = first_of_anchor[anchor]; i != kNoneSieved; i = sieve_entries[i].next)
        members[member_count++] = {i, kNoneSieved, 0, -1};
}

// The pair that serves most members that have none yet, for what it costs. nullptr when it serves none.
const char *BestPair(uint16_t anchor)
{
    const char *best = nullptr;
    uint64_t best_value = 0;
    const auto weigh = [&](const char *pair, uint16_t /*keyword*/, uint16_t /*offset*/) {
        constexpr uint64_t kScale = 1U << 20;
        const uint64_t value = ++places_of_pair[SampleSlot(pair, 2)] * kScale /
                               (kOrdinaryPair + SampledTimes(pair, 2));
        if (value <= best_value)
            return;
        best_value = value;
        best = pair;
    };
    const auto forget = [](const char *pair, uint16_t, uint16_t) {
        places_of_pair[SampleSlot(pair, 2)] = 0;
    };
    for (int i = 0; i < member_count; ++i) {
        if (members[i].pair < 0)
            ForEachPair(members[i].entry, anchor, weigh);
    }
    for (int i = 0; i < member_count; ++i)
        ForEachPair(members[i].entry, anchor, forget);
    return best;
}

// Gives a pair to the members that can take it. Returns how many.
int GivePair(uint16_t anchor, const char *pair, int number)
{
    int given = 0;
    for (int i = 0; i < member_count; ++i) {
        Member &member = members[i];
        if (member.pair >= 0)
            continue;
        ForEachPair(member.entry, anchor, [&](const char *at, uint16_t keyword, uint16_t offset) {
            if (memcmp(at, pair, 2) == 0)
                member = {member.entry, keyword, offset, number};
        });
        given += member.pair >= 0 ? 1 : 0;
    }
    return given;
}

// Gives all members a pair, as few different ones as it finds. False when they are too many.
bool GivePairs(uint16_t anchor, PairFilter *filter)
{
    for (int left = member_count; left > 0;) {
        const char *const pair = BestPair(anchor);
        const int number = pair == nullptr ? -1 : AddPair(filter, pair);
        if (number < 0)
            return false;
        left -= GivePair(anchor, pair, number);
    }
    return true;
}

CrowdKeyword MakeCrowdKeyword(const Member &member)
{
    const SieveKeyword &keyword = sieve_keywords[member.keyword];
    const size_t length = std::min<size_t>(keyword.length, sizeof(uint64_t));
    CrowdKeyword made = {0, UINT64_MAX >> (8 * (sizeof(uint64_t) - length)), member.offset,
                         member.keyword, member.entry};
    memcpy(&made.value, keyword.text, length);
    return made;
}

// Enters the members, those of each pair together.
void EnterMembers(Crowd *crowd)
{
    for (int pair = 0; pair < crowd->pairs.count; ++pair) {
        crowd->of_pair[pair] = crowd_keywords + crowd_keyword_count;
        for (int i = 0; i < member_count; ++i) {
            if (members[i].pair == pair)
                crowd_keywords[crowd_keyword_count++] = MakeCrowdKeyword(members[i]);
        }
    }
    crowd->of_pair[crowd->pairs.count] = crowd_keywords + crowd_keyword_count;
}

// The pair of each member, and the byte behind it where the keyword has one: fewer places have all three. Those of a
// pair share a class.
void ClassMembers(Crowd *crowd)
{
    for (int i = 0; i < member_count; ++i) {
        const SieveKeyword &keyword = sieve_keywords[members[i].keyword];
        const size_t offset = members[i].offset;
        AddToClass(&crowd->classes, members[i].pair % ClassFilter::kClasses, keyword.text + offset,
                   std::min(keyword.length - offset, ClassFilter::kGram));
    }
}

// Makes a crowd of the entries under an anchor, if few pairs of bytes are in all of them.
void GatherCrowd(uint16_t anchor)
{
    Crowd &crowd = crowds[crowd_count];
    crowd = {};
    CollectMembers(anchor);
    if (!GivePairs(anchor, &crowd.pairs))
        return;
    EnterMembers(&crowd);
    ClassMembers(&crowd);
    crowd_of_anchor[anchor] = static_cast<uint16_t>(crowd_count++);
}

} // namespace

void GatherCrowds()
{
    crowd_count = crowd_keyword_count = 0;
    for (int i = 0; i < anchor_count; ++i) {
        const auto anchor = static_cast<uint16_t>(i);
        crowd_of_anchor[anchor] = kNoneSieved;
        if (users_of_anchor[anchor] >= kLeastOfCrowd)
            GatherCrowd(anchor);
    }
}

const Crowd *CrowdOf(uint16_t anchor)
{
    const uint16_t crowd = crowd_of_anchor[anchor];
    return crowd == kNoneSieved ? nullptr : &crowds[crowd];
}

int FindOfCrowd(const Crowd &crowd, const char *text, size_t begin, size_t end, uint32_t *places)
{
    return ClassFilterWorks() ? PassClasses(crowd.classes, text, begin, end, places)
                              : FindPairs(crowd.pairs, text, begin, end, places);
}
