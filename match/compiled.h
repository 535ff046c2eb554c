// The expressions among the keywords of the table, kept compiled: for as long as the index and the locale are the same. To
// compile one takes as long as to try it on some lines.
//
// What the C library finds out about an expression while it is tried, it keeps in it: usually next to nothing, but of one
// like "login.*[0-9].{20}x" more than 2 KiB for each byte of the lines, without a bound, and the more there is, the longer
// each try takes. So each is compiled anew after so many bytes.
//
// On the monitor thread. So many are kept; more are compiled each time, as by the plain rule.
#ifndef MATCH_COMPILED_H
#define MATCH_COMPILED_H

#include <cstddef>
#include <cstdint>

#include "match/expression.h"

constexpr int kMostCompiled = 256;
constexpr size_t kBytesOfCompiled = 8192;

// Frees all.
void ForgetCompiled();

// Does the line match the pattern, which is that of a keyword of an entry? Like MatchesPattern.
bool MatchesCompiled(const char *line, const Pattern &pattern, int entry, int keyword);

// How many were compiled so far, the uncounted ones of the plain rule left out, and how often one was tried on a line. For
// tests.
extern uint64_t expressions_compiled;
extern uint64_t expressions_tried;

// How many are kept now. For tests.
int ExpressionsKept();

#endif // MATCH_COMPILED_H
