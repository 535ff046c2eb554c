#include "agent/status/sign_of_life.h"

#include <algorithm>
#include <fstream>

namespace status {

namespace {

// Milliseconds. The daemon tells every ten seconds that it is there. One that is busy may be late,
// on a loaded host by more than one turn: six of them are no accident.
constexpr int64_t kSilentMs = int64_t{60} * 1000;
// Milliseconds. Reading a line takes microseconds; at rest it counts as going on every ten seconds,
// so three looks in a row have then seen nothing.
constexpr int64_t kStillMs = int64_t{30} * 1000;

// Seconds that a pass may take beyond the cycle before it counts as late.
constexpr int64_t kPassMayTake = 30;

// The letter of the kernel for what a process does, behind its name in brackets; blank: not known.
char ProcessState(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    // From the right: a process may have brackets in its name, and nothing behind the name has one.
    const size_t name_end = line.rfind(") ");
    return name_end != std::string::npos && name_end + 2 < line.size() ? line[name_end + 2] : ' ';
}

std::string Seconds(int64_t milliseconds)
{
    return std::to_string(milliseconds / 1000) + " s";
}

} // namespace

std::string WhyItStands(pid_t daemon, const std::optional<Status> &status)
{
    // First, since a process that is stopped tells nothing: what it told before it was stopped
    // looks well for another minute.
    const char state = ProcessState(daemon);
    if (state == 'T' || state == 't')
        return "its process is stopped, by SIGSTOP or a debugger";
    if (!status || status->pid != daemon || status->alive_ns == 0)
        return {}; // it has told nothing yet
    // By the clock that stands while the host is suspended: a daemon that slept with its host is
    // not silent.
    const int64_t silent_ms = (UpTimeNs() - status->alive_ns) / 1'000'000;
    if (silent_ms >= kSilentMs)
        return "it has given no sign of life for " + Seconds(silent_ms);
    if (status->still_ms >= kStillMs)
        // What it told, and the time since then: it was still all the while, or it would have told
        // something else by now.
        return "its pass has read nothing for " + Seconds(status->still_ms + silent_ms);
    return {};
}

std::optional<int64_t> SecondsSinceLook(const Status &status)
{
    const PassStatus &pass = status.last_full_pass;
    if (pass.number == 0)
        return std::nullopt;
    return (BootTimeNs() - pass.began_boot_ns) / 1'000'000'000;
}

int64_t SecondsSinceLook(int64_t look_ms, int64_t now_ms)
{
    return std::max<int64_t>(now_ms - look_ms, 0) / 1000;
}

bool IsLate(const Status &status, int64_t cycle_s)
{
    return SecondsSinceLook(status).value_or(0) > cycle_s + kPassMayTake;
}

} // namespace status
