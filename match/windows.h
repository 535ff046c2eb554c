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
    uint32_t
        cost; // how often the log has those of its grams that no window has yet, and how many windows have the others
};
Window CheapestWindow(const char *text, size_t length);

// The window is used: its grams are looked up from now on, and cost others little.
void TakeWindow(const char *text, Window window);

#endif // MATCH_WINDOWS_H
