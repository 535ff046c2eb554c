// What the sieve of loud lines (loud_lines.h) has found in a line.
#ifndef MATCH_LINE_MATCHES_H
#define MATCH_LINE_MATCHES_H

#include <algorithm>
#include <cstdint>

struct LineMatches {
    static constexpr int kMost = 16;

    bool is_known = false;  // the sieve has looked, and all that matches is noted
    bool is_repeat = false; // holds the text of repeats
    bool is_own = false;    // holds the agent's own identifier
    int count = 0;
    // Of the table: the entries whose keywords are all in the line, in table order.
    uint16_t entries[kMost] = {};
};

// Notes an entry, once.
inline void NoteMatch(LineMatches *matches, uint16_t entry)
{
    uint16_t *const end = matches->entries + matches->count;
    uint16_t *const place = std::lower_bound(matches->entries, end, entry);
    if (place != end && *place == entry)
        return;
    if (matches->count == LineMatches::kMost) {
        matches->is_known = false;
        return;
    }
    std::copy_backward(place, end, end + 1);
    *place = entry;
    ++matches->count;
}

#endif // MATCH_LINE_MATCHES_H
