// No exception leaves a C function: it becomes the function's failure result and a trace record.
#ifndef AGENT_HOST_C_BOUNDARY_H
#define AGENT_HOST_C_BOUNDARY_H

#include <exception>

#include "platform/trace.h"

namespace host {

template <typename Result, typename Body>
Result AtBoundary(const char *function, Result failed, const Body &body) noexcept
{
    try {
        return body();
    } catch (const std::exception &error) {
        TraceLog(TRACE_SYSTEM, "libtarsk", function, __LINE__, "%s", error.what());
    } catch (...) {
        TraceLog(TRACE_SYSTEM, "libtarsk", function, __LINE__, "unknown failure");
    }
    return failed;
}

} // namespace host

#endif // AGENT_HOST_C_BOUNDARY_H
