// Text of strangers, made harmless for a terminal. Whoever can write into a log chooses what its
// lines say; shown as they are, they could colour, hide or rewrite what stands around them.
#ifndef AGENT_TEXT_PRINTABLE_H
#define AGENT_TEXT_PRINTABLE_H

#include <string>

namespace text {

// The text with "?" for each control character, for what turns the direction of writing, and for
// each byte that is not UTF-8. A tab stays. The result is UTF-8.
std::string Printable(const std::string &text);

// JSON that says the same, with an escape for each of these characters that it would have as it is: DEL, the controls of two
// bytes, directions. It must be UTF-8; its line ends stay.
std::string PrintableJson(const std::string &json);

} // namespace text

#endif // AGENT_TEXT_PRINTABLE_H
