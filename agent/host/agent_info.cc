// The small services: install root, fault-tolerant server, what reports leave alone, who follows a pass.
#include <cstdio>

#include "agent/host/agent_values.h"
#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/agent.h"

using namespace host;

extern "C" {

int GetTarskRootPath(char *buffer, int size)
{
    return AtBoundary<int>(__func__, 0, [&] {
        if (buffer == nullptr || size <= 0)
            return 0;
        const std::string root = Current().layout().root.string();
        const int length = snprintf(buffer, static_cast<size_t>(size), "%s", root.c_str());
        // A path that does not fit is cut, and terminated all the same; the result says so.
        return length < size ? 1 : 0;
    });
}

// Asked of the registry each time: it can be switched while the daemon runs. -1 only when the store
// fails.
int call_tarsk_is_ft(void)
{
    return AtBoundary<int>(__func__, -1, [] {
        return static_cast<int>(AgentNumber(Current().registry(), "FaultTolerant").value_or(0) !=
                                0);
    });
}

// The alert component stores a report and returns: it looks at the table and changes nothing in it.
// So the module need not look for changes behind each report.
int ReportsKeepTable(void)
{
    return 1;
}

void LogIsRead(const char *path)
{
    AtBoundary<int>(__func__, 0, [&] {
        Current().SetLogInPass(path);
        return 0;
    });
}

void LogPartIsRead(const LogPart *part)
{
    AtBoundary<int>(__func__, 0, [&] {
        if (Moments *moments = Current().moments())
            moments->PartIsRead(*part);
        return 0;
    });
}

void TargetLinesAreRead(const char *path, int64_t lines, int64_t bytes)
{
    AtBoundary<int>(__func__, 0, [&] {
        if (Moments *moments = Current().moments())
            moments->TargetLinesAreRead(path, lines, bytes);
        return 0;
    });
}

FollowPassFn PassFollower(void)
{
    return AtBoundary<FollowPassFn>(__func__, nullptr, [] { return Current().pass_follower(); });
}

} // extern "C"
