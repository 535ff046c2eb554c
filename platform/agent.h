// Small services of the host agent.
#ifndef PLATFORM_AGENT_H
#define PLATFORM_AGENT_H

// Character sets that TarskCodeConvert knows.
constexpr int CODE_REGISTRY = 0; // the registry's: UTF-8
constexpr int CODE_LOG = 1;      // the log's, a setting of the host

extern "C" {

// Copies the install root, an absolute path without a trailing slash. The sibling libraries are
// below its "lib" folder.
int GetTarskRootPath(char *buffer, int size);

// Is this machine a fault-tolerant server? 1 or more: yes; 0: no; -1: it cannot be told.
int call_tarsk_is_ft(void);

// Converts text between the character sets. A source length of -1 means up to the zero byte. What
// cannot be converted keeps its bytes. The destination is always terminated inside its size, and
// never cut in the middle of a character.
int TarskCodeConvert(const char *source, int sourceLength, char *destination, int destinationSize,
                     int sourceCode, int destinationCode);

// Do the report functions of this host leave the monitoring table alone? Returns 1 or 0. A host need not have it: then
// the table is looked at after each report.
int ReportsKeepTable(void) __attribute__((weak));

} // extern "C"

#endif // PLATFORM_AGENT_H
