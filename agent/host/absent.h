// What a failed call says of a file: that it is not there, or only that nothing could be found out.
#ifndef AGENT_HOST_ABSENT_H
#define AGENT_HOST_ABSENT_H

#include <cerrno>

namespace host {

// Of the errno of a call that names a path.
inline bool IsAbsent(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

} // namespace host

#endif // AGENT_HOST_ABSENT_H
