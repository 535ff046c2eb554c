// The name that was meant, when one was mistyped.
#ifndef AGENT_TEXT_SUGGESTION_H
#define AGENT_TEXT_SUGGESTION_H

#include <string>
#include <vector>

namespace text {

// "did you mean report_count? ", or nothing when no known name is near. With its blank behind it,
// so that it goes in front of the next step of an error message whether it is empty or not.
std::string Suggestion(const std::string &name, const std::vector<std::string> &known);

} // namespace text

#endif // AGENT_TEXT_SUGGESTION_H
