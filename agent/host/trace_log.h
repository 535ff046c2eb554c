// The trace log of the daemon: one rotating file.
//
// A record:  2026-11-21 02:50:31.123456 [SyslogMonitor] notable vkevmon WatchSyslog:120 text
//
// The level of a record is a kind, and the kinds are ordered by how much an administrator wants to
// see them: detail (0), error (1), system (2), notable (3). A record is written when its level is
// at least the one that is set.
//
// One for the process. All functions may be called from any thread, also while no log is open:
// records are then dropped, and the level is kept for the opening. A record that cannot be written
// is dropped, too: the trace log stops nothing.
#ifndef AGENT_HOST_TRACE_LOG_H
#define AGENT_HOST_TRACE_LOG_H

#include <cstdint>
#include <filesystem>
#include <string>

namespace host {

// Nothing is written: higher than every level.
constexpr int kTraceOff = 4;

// Opens the log, for this user alone, and goes on behind what is in it. Throws StoreError when the
// file cannot be written.
void OpenTraceLog(const std::filesystem::path &path);

// Tells what was held back, flushes and closes; records are dropped from then on.
void CloseTraceLog();

// May be called at any time, from any thread; takes effect with the next record.
void SetTraceLevel(int level);
int TraceLevel();

// "detail", "error", "system", "notable"; "off" for kTraceOff.
const char *TraceLevelName(int level);

// Writes what is buffered. The monitor is at rest when this is called.
void FlushTraceLog();

// Another number whenever the monitor has gone on: it traces detail with each line that it reads, at least with one in
// 64 KiB, and with each step of its other work. Equal numbers mean that it waits, or that one line, one system
// call or the store keeps it busy.
uint64_t SignsOfLife();

// The text of the last record of level error or system, for telling why the monitor ended; empty:
// there was none since ForgetTracedError, which is called when a monitor starts. It is kept at
// every level of the log.
std::string LastTracedError();
void ForgetTracedError();

} // namespace host

#endif // AGENT_HOST_TRACE_LOG_H
