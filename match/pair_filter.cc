#include "match/pair_filter.h"

#include "match/found_places.h"
#include "match/processor.h"

namespace {

constexpr size_t kWord = sizeof(uint64_t);

using Lane = uint8_t __attribute__((vector_size(16)));
using WideLane = uint8_t __attribute__((vector_size(PairFilter::kWidest)));

// The same for every width of a lane; it is compiled for the processor of the function that it is a part of.
template <class Bytes>
[[gnu::always_inline]] inline int FindInLanes(const PairFilter &filter, const char *text,
                                              size_t begin, size_t end, uint32_t *places)
{
    int count = 0;
    for (size_t at = begin; at < end; at += sizeof(Bytes)) {
        Bytes first;
        Bytes second;
        memcpy(&first, text + at, sizeof first);
        memcpy(&second, text + at + 1, sizeof second);
        Bytes found{};
        for (int i = 0; i < filter.count; ++i)
            found |= (Bytes)(first == static_cast<uint8_t>(filter.pairs[i][0])) &
                     (Bytes)(second == static_cast<uint8_t>(filter.pairs[i][1]));
        uint64_t words[sizeof(Bytes) / kWord];
        memcpy(words, &found, sizeof words);
        for (size_t word = 0; word < sizeof(Bytes) / kWord; ++word)
            count += AppendPlaces(words[word], at + (word * kWord), places + count);
    }
    return CountUpTo(places, count, end);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) int FindInWideLanes(const PairFilter &filter, const char *text,
                                                    size_t begin, size_t end, uint32_t *places)
{
    return FindInLanes<WideLane>(filter, text, begin, end, places);
}
#endif

} // namespace

int FindPairs(const PairFilter &filter, const char *text, size_t begin, size_t end,
              uint32_t *places)
{
#if defined(__x86_64__)
    if (UsableLanes() == Lanes::kWide)
        return FindInWideLanes(filter, text, begin, end, places);
#endif
    return FindInLanes<Lane>(filter, text, begin, end, places);
}
