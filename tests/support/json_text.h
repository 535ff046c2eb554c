// JSON that a test looks at, as text: the library behind it would cost each test's file seconds to
// compile.
#ifndef TESTS_SUPPORT_JSON_TEXT_H
#define TESTS_SUPPORT_JSON_TEXT_H

#include <string>

namespace test {

// The same JSON with its names in order and no blanks, so that equal values are equal texts.
// "(no JSON)" when it is none.
std::string PlainJson(const std::string &text);

// What is at a place ("/sinks/0/name"): of a string its text, of anything else its PlainJson.
// "(none)" when nothing is there.
std::string JsonAt(const std::string &text, const std::string &place);

} // namespace test

#endif // TESTS_SUPPORT_JSON_TEXT_H
