// Counts what is taken from the heap, by anyone in the process, the C library included.
#ifndef TESTS_COST_ALLOCATIONS_H
#define TESTS_COST_ALLOCATIONS_H

namespace test {

// Calls of malloc, calloc, realloc and their kin since the process began.
long Allocations();

} // namespace test

#endif // TESTS_COST_ALLOCATIONS_H
