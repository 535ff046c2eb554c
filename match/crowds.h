// The entries under one anchor, when they are many: a phrase, say, with a device or a code as the second keyword.
//
// To look for each second keyword in the line would cost as much as there are entries. So the line is searched for a
// few pairs of bytes, one of which is in each of the second keywords, and only what stands there is compared.
#ifndef MATCH_CROWDS_H
#define MATCH_CROWDS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "match/class_filter.h"
#include "match/pair_filter.h"

// A second keyword of an entry in a crowd: a pair of its bytes is looked for in the line, then its first bytes.
struct CrowdKeyword {
    uint64_t value;
    uint64_t mask;   // of the bytes that count
    uint16_t offset; // of the pair in the keyword
    uint16_t keyword;
    uint16_t entry;
};

struct Crowd {
    PairFilter pairs;
    ClassFilter
        classes; // the pairs with what follows them in the keywords; used where ClassFilterWorks
    const CrowdKeyword
        *of_pair[PairFilter::kMostPairs + 1]; // those of a pair end where the next begin
};

// Finds the crowds among the entries under the anchors (anchors.h), by the same sample.
void GatherCrowds();

// The entries under an anchor, or nullptr when they are no crowd: few, or too different to be searched for at once.
const Crowd *CrowdOf(uint16_t anchor);

// Writes the places from `begin` to `end` - 1 at which a pair of the crowd may stand to `places`, as FindPairs does
// (pair_filter.h): all of them, and by chance others. kGramPadding bytes behind the text can be read.
int FindOfCrowd(const Crowd &crowd, const char *text, size_t begin, size_t end, uint32_t *places);

// The members of the crowd whose pair stands at `text`.
inline std::span<const CrowdKeyword> SecondsAt(const Crowd &crowd, const char *text)
{
    const int pair = PairAt(crowd.pairs, text);
    if (pair < 0)
        return {};
    return {crowd.of_pair[pair], crowd.of_pair[pair + 1]};
}

#endif // MATCH_CROWDS_H
