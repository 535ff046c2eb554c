// No exception leaves a C function: it becomes the function's failure result and a trace record.
// The module above it is built apart and could not catch one; it would end the process.
#ifndef AGENT_HOST_C_BOUNDARY_H
#define AGENT_HOST_C_BOUNDARY_H

#include <exception>

#include "platform/trace.h"

namespace host {

// Runs `body` and returns what it returns, or `failed` when it throws. `function` is what the trace
// record names: __func__ of the C function.
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
