// A set of literal texts, and the search for all of them in one line at once.
//
// What the search promises: every literal that occurs in the line is found, and nothing else.
//
// How it works. The line is not compared with the literals; short pieces of it ("grams") are looked up, and
// only every few bytes. A literal is entered under so many neighbouring grams, from a place where it shares
// them with few others, that one of them is looked up wherever the literal stands:
//
//   shortest literal of 4 bytes and more    grams of each literal    looked up in the line
//   7 and more                              four, of 4 bytes         at every fourth byte
//   6                                       three, of 4 bytes        at every third byte
//   5                                       two, of 4 bytes          at every second byte
//   4                                       two, of 3 bytes          at every second byte
//
// Literals of 2 and 3 bytes (by their first two) and of one byte have walks of their own, at every byte.
//
// A bit map tells first whether any literal has the gram; most grams of most lines end there. Then a hash
// table gives the literals, and each is compared in full. A walk over the line is only made when the set
// holds a literal that needs it.
//
// All storage is fixed. The texts are not copied: they must stay where they are while the set is used.
#ifndef MATCH_LITERAL_SET_H
#define MATCH_LITERAL_SET_H

#include <cstddef>
#include <cstdint>

#include "platform/contract.h"

// Every keyword of a full table, the literal text inside every one, and the agent's identifier.
constexpr int kMaxLiterals = (2 * kKeywordsOfEntry * kMaxEntries) + 1;

using LiteralId = uint16_t;
static_assert(kMaxLiterals < UINT16_MAX);

// Literals of at least this length are searched for in the largest steps, shorter ones in smaller ones.
constexpr size_t kLongLiteral = 7;

// Bytes behind a line that the search may read (their values do not matter).
constexpr size_t kSearchPadding = 16;

// Makes the set empty.
void ClearLiterals();

// Adds a literal of 1 to 256 bytes and returns its number. A text that is in the set already keeps the
// number it has.
LiteralId AddLiteral(const char *text, size_t length);

// The same text at another place, which stays as it is while the set is used.
void MoveLiteral(LiteralId id, const char *text);

// Only wanted literals are searched for. A new literal is not wanted.
void WantLiteral(LiteralId id);

// Makes the wanted literals ready to be searched for. Called after the last AddLiteral and WantLiteral,
// before the first FindLiterals.
void PrepareLiterals();

// Which literals were found in a line. Zero is "none".
struct FoundLiterals {
    int count;
    LiteralId ids[kMaxLiterals];                // in no particular order, each once
    uint64_t is_found[(kMaxLiterals / 64) + 1]; // a bit per literal
};

inline bool IsFound(const FoundLiterals &found, LiteralId id)
{
    return (found.is_found[id / 64] >> (id % 64) & 1U) != 0;
}

// Empties it. Costs as much as there is in it.
void ForgetFound(FoundLiterals *found);

// Adds the wanted literals that occur in the first `length` bytes of a line. kSearchPadding bytes behind
// them can be read.
void FindLiterals(const char *line, size_t length, FoundLiterals *found);

// Windows that were compared with a place in a line since the start: the work of the search, for tests.
extern uint64_t windows_compared;

#endif // MATCH_LITERAL_SET_H
