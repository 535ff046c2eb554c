// What every reader of files owes to those who wrote them.
#ifndef FUZZ_ISSUES_H
#define FUZZ_ISSUES_H

#include <algorithm>
#include <string>
#include <vector>

#include "agent/text/text_file.h"
#include "fuzz/fuzz.h"

namespace fuzz {

// Each issue says something and stands in the file; the last may stand for those that are not listed.
inline void ExpectPlaced(const std::vector<text::Issue> &issues, const std::string &file)
{
    const auto lines = static_cast<size_t>(std::count(file.begin(), file.end(), '\n')) + 1;
    Expect(issues.size() <= text::IssueList::kMax + 1, "issues without end");
    for (const text::Issue &issue : issues) {
        Expect(!issue.what.empty() && issue.mistakes > 0, "an issue without words");
        Expect(issue.at.line >= 1 && issue.at.line <= lines && issue.at.column >= 1,
               "an issue outside of the file: " + issue.what);
    }
}

} // namespace fuzz

#endif // FUZZ_ISSUES_H
