// Opening of a log by its name, without surprises.
#ifndef FILEACC_OPEN_LOG_H
#define FILEACC_OPEN_LOG_H

#include <cstdio>
#include <sys/stat.h>

// Opens a log for reading, as a stream with 64-bit offsets.
//   status  in: what stat64 told of that name. out: of the file that was opened, when the name has
//           changed hands since; otherwise untouched, so that the size stays the one that was seen
//           first, however much the file has grown in between
// What could make the caller wait (a FIFO, a device) is refused without being touched, with errno
// EINVAL. A directory opens, and cannot be read. A symbolic link is followed: administrators move
// logs to other disks that way.
// Returns null and sets errno on failure.
FILE *OpenLog(const char *path, struct stat64 *status);

#endif // FILEACC_OPEN_LOG_H
