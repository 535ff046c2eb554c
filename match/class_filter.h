// Places of a text at which one of many three-byte grams may stand, sixteen places at a time or thirty-two.
//
// Grams are put into eight classes. Of each byte of a gram, the upper and the lower half are kept, as the set of
// classes that have them there; the six sets of a place in common tell which classes may have a gram there. So what
// is let through is a little more than the grams, and none of them is held back. Grams that are alike share a class:
// each is put where it lets least of a sample through that is not meant.
//
// It takes a processor that looks sixteen bytes up in a table of sixteen at once: those of arm64 do, those of x86-64
// nearly all, and most of those do it with thirty-two.
#ifndef MATCH_CLASS_FILTER_H
#define MATCH_CLASS_FILTER_H

#include <cstddef>
#include <cstdint>

struct ClassFilter {
    static constexpr size_t kGram = 3;
    static constexpr int kClasses = 8;
    static constexpr size_t kLane = 16;
    static constexpr size_t kWidest = 32; // places looked at together, at most

    // By byte of the gram and by half, lower and upper: the classes that have it, a bit each.
    alignas(kLane) uint8_t classes[kGram][2][kLane];
};

// Can this processor do it?
bool ClassFilterWorks();

// Makes the filter empty, for a log like the sample.
void ClearClasses(ClassFilter *filter);
void WeighClasses(const char *sample, size_t length);

// Lets a gram through. `known` is 3, or 2 when the third byte may be any.
void AddToClasses(ClassFilter *filter, const char *gram, size_t known);

// The same, with the class for it: for grams of which it is known how they belong together. Below kClasses.
void AddToClass(ClassFilter *filter, int id, const char *gram, size_t known);

// Writes the places from `begin` to `end` - 1 at which a gram may stand to `places`, in order, and returns how many they
// are. There is room for all, and for ClassFilter::kWidest more. ClassFilter::kWidest + 2 bytes behind the text can be read.
int PassClasses(const ClassFilter &filter, const char *text, size_t begin, size_t end,
                uint32_t *places);

#endif // MATCH_CLASS_FILTER_H
