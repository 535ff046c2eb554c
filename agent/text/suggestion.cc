#include "agent/text/suggestion.h"

#include <algorithm>

namespace text {

namespace {

// Letters to change, add or take away until the texts are equal; two that changed places count as
// two. One row of the usual table is kept: `diagonal` is what stood left of the place above.
size_t Distance(const std::string &a, const std::string &b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

} // namespace

std::string Suggestion(const std::string &name, const std::vector<std::string> &known)
{
    constexpr size_t kLongest = 40; // of names that are looked at
    const std::string *best = nullptr;
    // The first of those that are equally near is taken, so the order of `known` decides.
    size_t distance = 2 + name.size() / 5; // one mistake, and one more for each five letters
    for (const std::string &candidate : known) {
        const size_t here = name.size() <= kLongest ? Distance(name, candidate) : std::string::npos;
        if (here < distance) {
            best = &candidate;
            distance = here;
        }
    }
    return best != nullptr ? "did you mean " + *best + "? " : "";
}

} // namespace text
