// The expressions among the keywords of the table, each compiled once: for as long as the index and the locale are
// the same. To compile one takes as long as to try it on a hundred lines.
//
// On the monitor thread. So many are kept; more are compiled each time, as by the plain rule.
#ifndef MATCH_COMPILED_H
#define MATCH_COMPILED_H

#include <cstdint>

#include "match/expression.h"

constexpr int kMostCompiled = 256;

// Frees all.
void ForgetCompiled();

// Does the line match the pattern, which is that of a keyword of an entry? Like MatchesPattern.
bool MatchesCompiled(const char *line, const Pattern &pattern, int entry, int keyword);

// How many were compiled so far, the uncounted ones of the plain rule left out, and how often one was tried on a line. For
// tests.
extern uint64_t expressions_compiled;
extern uint64_t expressions_tried;

#endif // MATCH_COMPILED_H
