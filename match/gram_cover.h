// Which three bytes of which keyword stand for each entry of the table?
//
// A search by classes (class_filter.h) looks at every byte of the log and lets through what begins like one of a few
// grams. How many grams those are, and how often the log has them, is what it costs; how many keywords share one matters
// little. So the grams are chosen for the table as a whole: few, rare in the log at hand, and one of them in
// each entry. That is a weighted set cover. It is solved the greedy way: first the grams that serve most entries
// for what they cost.
#ifndef MATCH_GRAM_COVER_H
#define MATCH_GRAM_COVER_H

#include <cstddef>
#include <cstdint>

// Where the gram of an entry stands: the number of the keyword, and the offset in it. Of a keyword of two bytes, it is both
// of them and any third.
struct GramPlace {
    uint16_t keyword;
    uint16_t offset;
};

// Chooses for every entry of the sieve's table, each of which has a keyword of at least kShortestSieved bytes, by the
// last sample (log_sample.h). `places` has room for all.
void CoverEntries(GramPlace *places);

#endif // MATCH_GRAM_COVER_H
