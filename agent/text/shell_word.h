// Words of a command that is shown to be typed in a shell. What stands in it may be chosen by a stranger, as the name of a
// file is, and is to stay one word, and nothing that runs.
#ifndef AGENT_TEXT_SHELL_WORD_H
#define AGENT_TEXT_SHELL_WORD_H

#include <string>
#include <string_view>

namespace text {

// The text as one word of a POSIX shell: in single quotes, unless each of its characters stands for itself.
std::string ShellWord(std::string_view text);

} // namespace text

#endif // AGENT_TEXT_SHELL_WORD_H
