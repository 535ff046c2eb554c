#include "agent/inputs/counted_twice.h"

#include <ctime>
#include <sys/stat.h>

#include "agent/host/agent_values.h"
#include "platform/contract.h"

namespace inputs {

namespace {

// A log that nobody has written for so long, in seconds, is one that was left behind.
constexpr time_t kLeftBehind = 24 * 3600;

bool SystemLogIsWritten()
{
    struct stat status {};
    return stat(kSystemLog, &status) == 0 && status.st_size > 0 &&
           time(nullptr) - status.st_mtime < kLeftBehind;
}

} // namespace

std::optional<CountedTwice> FindCountedTwice(const InputConfig &input)
{
    const std::string log = kSystemLog;
    if (input.kind == kFilesKind) {
        if (!FollowOptionsOf(input, host::kDefaultLogCharset).rules.Match(log))
            return std::nullopt;
        return CountedTwice{log + " is read without an input, so its lines count twice",
                            "leave it out: syslogmon input set " + input.name + " exclude=" + log};
    }
    const bool is_hosts = input.Value("namespace").empty() && input.Value("directory").empty();
    if (!is_hosts || !SystemLogIsWritten())
        return std::nullopt;
    return CountedTwice{log + " is written and read, too: where a syslog daemon writes the "
                              "journal's entries into it, they count twice",
                        "choose one of them: syslogmon input remove " + input.name +
                            " leaves the log; a syslog daemon that no longer writes that file, and "
                            "the file removed, leave the journal"};
}

} // namespace inputs
