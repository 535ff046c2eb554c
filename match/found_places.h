// Places of a text that were found some bytes at a time: a lane of the processor has a byte that is not zero for each.
// For functions that are compiled for a certain processor, whose part these become.
#ifndef MATCH_FOUND_PLACES_H
#define MATCH_FOUND_PLACES_H

#include <bit>
#include <cstddef>
#include <cstdint>

// Writes the places of the bytes of a word that are not zero to `places`, in order, and returns how many they are: eight
// at most. `at` is the place of the word's first byte.
[[gnu::always_inline]] inline int AppendPlaces(uint64_t word, size_t at, uint32_t *places)
{
    int count = 0;
    while (word != 0) {
        const auto byte = static_cast<size_t>(std::countr_zero(word)) / 8;
        places[count++] = static_cast<uint32_t>(at + byte);
        word &= ~(uint64_t{0xFF} << (8 * byte));
    }
    return count;
}

// How many of `count` places, which are in order, lie before `end`: the last lane can reach beyond it.
[[gnu::always_inline]] inline int CountUpTo(const uint32_t *places, int count, size_t end)
{
    while (count > 0 && places[count - 1] >= end)
        --count;
    return count;
}

#endif // MATCH_FOUND_PLACES_H
