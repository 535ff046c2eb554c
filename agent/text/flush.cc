#include "agent/text/flush.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent/host/error.h"

namespace text {

void FlushOutput()
{
    // A write that failed earlier has left its mark on the stream, but no error number.
    errno = 0;
    const bool flushed = fflush(stdout) == 0;
    if (!flushed || ferror(stdout) != 0)
        throw host::Error("cannot write on standard output",
                          errno != 0 ? strerror(errno) : "a part of it was not taken",
                          "what was written is not complete: make room, and try again");
}

} // namespace text
