// What a program says on standard error, without ever waiting for whoever reads it: a page that nobody
// turns must stop nothing. What cannot be said is dropped; the trace log has it as well.
#ifndef AGENT_TEXT_SAY_H
#define AGENT_TEXT_SAY_H

#include <string_view>

namespace text {

// Writes one line, the name of the program and the text, as in "syslogmond: cannot go on". Cut to what a pipe takes in one piece. Allocates
// nothing, so it can tell that there is no memory left.
void Say(std::string_view text) noexcept;

// From now on the program has this name, which must live as long; "syslogmond" until then.
void SayAs(const char *program) noexcept;

} // namespace text

#endif // AGENT_TEXT_SAY_H
