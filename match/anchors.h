// How each entry of the table is represented in the search of a block: by one keyword, its anchor.
//
// Two searches are possible, and the cheaper one for the log at hand is taken. In large steps (block_search.h), each anchor is
// entered under a window of grams, and grams that the log has often are avoided. By class, at every byte, one gram
// of each anchor is enough, and the fewer different ones the better (gram_cover.h).
//
// A few more texts are searched for like anchors, and stand for no entry.
#ifndef MATCH_ANCHORS_H
#define MATCH_ANCHORS_H

#include <cstddef>
#include <cstdint>

#include "match/block_search.h"

// Written by ChooseAnchors, on the monitor thread.
extern BlockSearch anchor_search;
extern Searched anchors[kMostSearched];
extern int anchor_count;
extern uint16_t first_text_anchor; // that of the first of the texts; those of the others follow
extern uint16_t first_of_anchor[kMostSearched]; // entry of the sieve's table, or kNoneSieved
extern uint16_t users_of_anchor[kMostSearched];

// Chooses the anchors for the sieve's table, in which each entry has a keyword of at least kShortestSieved bytes, and
// for some more texts, which stay as they are, and makes the search ready. At most kSampleSize bytes of the sample
// count; kGramPadding bytes behind it can be read. Returns how many looks of a search of the sample pass its first
// filter: what it costs besides reading.
constexpr size_t kMoreTexts = 2;
using MoreTexts = const char *[kMoreTexts];
uint64_t ChooseAnchors(const char *sample, size_t length, const MoreTexts &texts);

#endif // MATCH_ANCHORS_H
