// Texts as they are written into a rules file.
#ifndef AGENT_RULES_YAML_TEXT_H
#define AGENT_RULES_YAML_TEXT_H

#include <string>
#include <string_view>

namespace rules {

// A text in double quotes, or its bytes when it is not UTF-8.
std::string Quoted(std::string_view text);

// A comment of one line, with its end.
std::string Comment(std::string_view text);

} // namespace rules

#endif // AGENT_RULES_YAML_TEXT_H
