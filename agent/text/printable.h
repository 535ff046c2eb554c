// Text of strangers, made harmless for a terminal.
#ifndef AGENT_TEXT_PRINTABLE_H
#define AGENT_TEXT_PRINTABLE_H

#include <string>

namespace text {

// The text with "?" for each control character, for what turns the direction of writing, and for
// each byte that is not UTF-8.
std::string Printable(const std::string &text);

} // namespace text

#endif // AGENT_TEXT_PRINTABLE_H
