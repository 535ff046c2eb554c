#include "agent/inputs/line_origin.h"

#include "agent/inputs/byte_set.h"
#include "agent/inputs/stamp_formats.h"

namespace inputs {

namespace {

// Longer names of programs are none. rsyslog cuts them at 32 bytes, journald does not.
constexpr size_t kLongestProgram = 128;

constexpr ByteSet kEndOfProgram(":[ ");
constexpr ByteSet kEndOfPid("] ");
constexpr ByteSet kNotInHosts("[](){}<>=,;\"'|/\\");

std::string_view FirstWord(std::string_view text)
{
    return text.substr(0, FindByte(text, ' '));
}

std::string_view Behind(std::string_view text, size_t length)
{
    text.remove_prefix(length < text.size() ? length : text.size());
    return text;
}

// "sshd" of "sshd[77]: Accepted", with what stands behind the colon. False: no program is named.
bool SplitProgram(std::string_view text, LineOrigin *origin)
{
    const size_t end = kEndOfProgram.FindIn(text.substr(0, kLongestProgram));
    if (end == std::string_view::npos || end == 0 || text[end] == ' ')
        return false;
    size_t colon = end;
    if (text[end] == '[') {
        const size_t close = kEndOfPid.FindIn(text, end);
        if (close == std::string_view::npos || text[close] != ']')
            return false;
        colon = close + 1;
    }
    if (colon >= text.size() || text[colon] != ':')
        return false;
    origin->program = text.substr(0, end);
    const std::string_view rest = Behind(text, colon + 1);
    origin->message = rest.starts_with(' ') ? Behind(rest, 1) : rest;
    return true;
}

} // namespace

LineOrigin OriginOfBody(std::string_view body)
{
    LineOrigin origin;
    origin.host = FirstWord(body);
    const std::string_view rest = Behind(body, origin.host.size() + 1);
    if (!SplitProgram(rest, &origin))
        origin.message = rest;
    return origin;
}

LineOrigin OriginOfLine(std::string_view line)
{
    const FoundStamp stamp = FindStamp(line, StampFormat::kTraditional);
    if (stamp.format == StampFormat::kNone) {
        LineOrigin origin;
        origin.message = line;
        return origin;
    }
    return OriginOfBody(Behind(line, stamp.end));
}

bool IsOfSyslog(const LineOrigin &origin)
{
    return !origin.host.empty() && !origin.program.empty() && !origin.host.ends_with(':') &&
           kNotInHosts.FindIn(origin.host) == std::string_view::npos;
}

} // namespace inputs
