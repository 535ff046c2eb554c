#include "agent/cli/matched_line.h"

#include <ctime>

#include "agent/host/here_and_now.h"
#include "agent/inputs/line_origin.h"

namespace cli {

policy::MatchedLine MatchedLineOf(const monitor::Module &module, const char *text, int64_t times)
{
    // Of this process, and the same for all lines.
    static const std::string this_host = host::HostName();
    const inputs::LineOrigin origin = inputs::OriginOfLine(text);
    policy::MatchedLine line;
    line.text = text;
    line.host = origin.host.empty() ? std::string_view(this_host) : origin.host;
    line.program = origin.program;
    line.times = times;
    time_t stamp = 0;
    line.time_s = module.GetSyslogTime(text, &stamp) == TRUE ? stamp : time(nullptr);
    return line;
}

} // namespace cli
