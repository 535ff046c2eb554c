// A text that every match of an expression holds, for the monitor's table, which searches for plain texts.
#ifndef AGENT_EVENTS_REQUIRED_TEXT_H
#define AGENT_EVENTS_REQUIRED_TEXT_H

#include <string>

namespace events {

// The longest such text that the expression shows, in the syntax of RE2; empty when it shows none. It is
// of ASCII, so the log's character set does not change it, and has at most 256 bytes.
//
// What is not understood is passed over or ends the search, so a text that is found is always needed, and
// one that is needed is not always found: nothing of an alternation, of what may be missing, or of letters
// when case is ignored.
//   expression  one that RE2 takes
std::string RequiredText(const std::string &expression, bool ignore_case);

// Is the text rare enough in a log to be searched for? Three characters, and not all of them blanks.
bool IsUsefulKeyword(const std::string &text);

} // namespace events

#endif // AGENT_EVENTS_REQUIRED_TEXT_H
