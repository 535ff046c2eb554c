// What is said about a file, for comparing.
#ifndef TESTS_AGENT_SUPPORT_ISSUES_TEST_H
#define TESTS_AGENT_SUPPORT_ISSUES_TEST_H

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/text/text_file.h"

namespace test {

// "3:5: cannot ...", one line each.
inline std::string Text(const std::vector<text::Issue> &issues)
{
    std::string text;
    for (const text::Issue &issue : issues)
        text += std::to_string(issue.at.line) + ":" + std::to_string(issue.at.column) + ": " +
                issue.what + "\n";
    return text;
}

} // namespace test

#endif // TESTS_AGENT_SUPPORT_ISSUES_TEST_H
