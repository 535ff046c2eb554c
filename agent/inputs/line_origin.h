// Who wrote a line: the words behind its time stamp, as every syslog daemon writes them.
#ifndef AGENT_INPUTS_LINE_ORIGIN_H
#define AGENT_INPUTS_LINE_ORIGIN_H

#include <string_view>

namespace inputs {

// All are parts of the text that was looked at.
struct LineOrigin {
    std::string_view host;    // empty: there is no such word
    std::string_view program; // empty: none is named
    std::string_view
        message; // what the program said; without a program, what stands behind the host
};

// Of "HOST PROGRAM[PID]: MESSAGE", which is what stands behind the stamp.
LineOrigin OriginOfBody(std::string_view body);

// Of a whole line that begins with a traditional stamp. Without one, all is message.
LineOrigin OriginOfLine(std::string_view line);

// Did the text look like that form for certain, so that it is not taken for one by accident? Then its second word is
// a program's name with a colon behind it.
bool IsOfSyslog(const LineOrigin &origin);

} // namespace inputs

#endif // AGENT_INPUTS_LINE_ORIGIN_H
