// Which window of a literal costs least to search for in large steps (block_search.h)?
#ifndef MATCH_WINDOWS_H
#define MATCH_WINDOWS_H

#include <cstddef>
#include <cstdint>

#include "match/block_search.h"

// Begins to choose windows for a kind of search, by the last sample of the log (log_sample.h).
void BeginWindows(GramKind kind);

// The window of a text of at least kind.window() bytes that costs least.
struct Window {
    uint16_t begin;
    uint32_t cost; // how often its grams occur, and how many windows share them
};
Window CheapestWindow(const char *text, size_t length);

// The window is used: others had better not share its grams.
void TakeWindow(const char *text, Window window);

#endif // MATCH_WINDOWS_H
