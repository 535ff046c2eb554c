// The search for many literal texts in one block of a log, in order of their places.
//
// The block is not compared with the literals; short pieces of it ("grams") are looked up, and only every few bytes
// (the "step"). A literal is entered under so many neighbouring grams, a "window" of it, that exactly one of them is
// looked up wherever the literal stands:
//
//   shortest literal    bytes of a gram    step                            bytes of a window
//   5 and more          4                  length - 3, at most kMostStep   gram + step - 1
//   4                   3                  2
//   3                   2                  2
//   2                   2                  1
//
// A few literals may be up to two bytes shorter than the window. A gram that reaches a byte beyond such a literal, at
// either end, is then entered with each of the 256 bytes that can stand there.
//
// A bit map tells first whether any literal has the gram; most looks end there, without a branch. Then up to eight
// bytes of each literal, its key, are looked up as a whole. Literals that share a gram mostly have their keys at the
// same distance from it and of the same length, so a thousand literals that begin alike cost as much as one.
//
// What is promised: every place of every literal is found, each once, and nothing else. Speed alone depends on which
// window of a literal is entered; CheapestWindow (windows.h) chooses it for a log like a given sample.
//
// The texts are not copied: they must stay as they are while the search is used. All storage is fixed.
#ifndef MATCH_BLOCK_SEARCH_H
#define MATCH_BLOCK_SEARCH_H

#include <cstddef>
#include <cstdint>

#include "match/class_filter.h"

// Literals of one search: an anchor of every entry of a full table, and a few more texts.
constexpr int kMostSearched = 2048 + 4;

// Steps beyond this gain little: what is left then is reading and stepping.
constexpr size_t kMostStep = 12;

// Bytes behind a searched text that may be read (their values do not matter).
constexpr size_t kGramPadding = 48;

// How literals are entered and looked up.
struct GramKind {
    size_t size; // bytes of a gram, 2 to 4
    size_t step; // bytes between two looks, and grams entered for each literal

    [[nodiscard]] constexpr size_t window() const { return size + step - 1; }
};

// The kind in the largest steps that literals of this length, at least 2, allow.
GramKind KindFor(size_t shortest);

// Bytes by which all literals of a search together may be shorter than the window, and one literal alone: each takes
// as much room as twenty others.
constexpr int kMostCutShort = 32;
constexpr size_t kMostCut = 2;

// One literal of a search.
struct Searched {
    const char *text;
    uint16_t length;
    uint16_t window; // where its window begins
};

// A search, made ready by PrepareSearch. Indexes of groups are kept one higher: 0 is "none".
struct BlockSearch {
    static constexpr unsigned kMapBits =
        19; // as a power of two: 64 KiB, which stay in the second-level cache
    static constexpr uint32_t kMapSize = 1U << kMapBits;
    static constexpr unsigned kBucketBits = 14;
    static constexpr unsigned kKeyBits = 12;
    static constexpr size_t kMostGroups =
        (static_cast<size_t>(kMostSearched) * kMostStep) + (size_t{256} * kMostCutShort);

    // Literals that have this gram, and keys of this length at this distance before it.
    struct Group {
        uint32_t gram;
        uint16_t next; // of the bucket
        int8_t back;
        uint8_t length;
    };
    static_assert(kMostGroups < UINT16_MAX);

    // The key of a literal: bytes of it from `begin` on, in memory order.
    struct Key {
        uint64_t value;
        uint16_t begin;
        uint16_t literal;
        uint16_t next; // of the slot
        uint8_t length;
    };

    GramKind kind;
    uint32_t mask;     // of a gram's bytes
    uint32_t map_mask; // of the part of the map that is used
    const Searched *literals;
    int group_count;
    bool is_by_class; // with steps of one, sixteen places at a time
    ClassFilter classes;
    uint64_t map[kMapSize / 64];
    uint16_t buckets[size_t{1} << kBucketBits];
    uint16_t key_slots[size_t{1} << kKeyBits];
    Group groups[kMostGroups];
    Key keys[1 + kMostSearched]; // the first is none
};

// Enters `count` literals, each at least kind.window() bytes long from its window on, but for those that are cut short;
// their window is 0. They stay the caller's.
void PrepareSearch(BlockSearch *search, const Searched *literals, int count, GramKind kind);

// What a search costs in a text: looks that pass the first filter.
uint64_t CountPassed(const BlockSearch &search, const char *text, size_t length);

// How many literals were compared as a whole so far, and how many of them stood there. For tests.
extern uint64_t literals_compared;
extern uint64_t literals_found;

// A literal in a text: where it begins, and where the look was that found it.
struct Hit {
    size_t begin;
    size_t look;
    uint16_t literal;
};

// A walk over one text, of less than 4 GiB. Reads kGramPadding bytes behind it.
struct SearchWalk {
    static constexpr size_t kRound = 512; // looks
    static constexpr int kMostCandidates = 256;

    // A place where the key of a literal may stand, and the first of the keys that it may be.
    struct Candidate {
        uint64_t value; // the bytes there
        uint32_t at;
        uint32_t look;
        uint16_t key;
        uint8_t length; // of the key
    };

    const BlockSearch *search;
    const char *text;
    size_t length;
    size_t next_look;
    uint64_t passed; // looks that passed the map so far
    // Of the round: the looks at a gram of a literal, and which of them and of its groups comes next.
    int look_count, looks_taken;
    uint16_t group;
    uint32_t looks[kRound + ClassFilter::kWidest];
    uint16_t groups[kRound];
    // What they have come to so far, and which candidate and which of its keys comes next.
    int candidate_count, candidates_taken;
    uint16_t key;
    Candidate candidates[kMostCandidates];
};

void BeginWalk(SearchWalk *walk, const BlockSearch *search, const char *text, size_t length);

// The next hit, in the order of the looks: the hits of a line come before those of a later line, in any order among
// themselves. False behind the last one.
bool NextHit(SearchWalk *walk, Hit *hit);

#endif // MATCH_BLOCK_SEARCH_H
