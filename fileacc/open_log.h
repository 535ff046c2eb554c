// Opening of a log by its name, without surprises.
#ifndef FILEACC_OPEN_LOG_H
#define FILEACC_OPEN_LOG_H

#include <cstdio>

// Opens a regular file for reading, as a stream with 64-bit offsets. Anything else under that name
// (a FIFO, a device, a directory) is refused without waiting for it or touching it, with errno
// EINVAL or EISDIR. A symbolic link is followed: administrators move logs to other disks that way.
// The stream has no buffer of its own: both readers of the module read whole blocks into theirs.
// Returns null and sets errno on failure.
FILE *OpenLog(const char *path);

#endif // FILEACC_OPEN_LOG_H
