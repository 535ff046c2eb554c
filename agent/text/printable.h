// Text of strangers, made harmless for a terminal. Whoever can write into a log chooses what its
// lines say; shown as they are, they could colour, hide or rewrite what stands around them.
#ifndef AGENT_TEXT_PRINTABLE_H
#define AGENT_TEXT_PRINTABLE_H

#include <string>

namespace text {

// The text with "?" for each control character, for what turns the direction of writing, and for
// each byte that is not UTF-8. A tab stays. The result is UTF-8.
std::string Printable(const std::string &text);

} // namespace text

#endif // AGENT_TEXT_PRINTABLE_H
