// The names that the agent shares with the module: registry keys and values, events, the mutex.
#ifndef AGENT_COMMON_NAMES_H
#define AGENT_COMMON_NAMES_H

namespace agent {

// Registry keys below HKEY_LOCAL_MACHINE.
inline constexpr char kMonitorKey[] = "SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG";
inline constexpr char kApplicationKey[] =
    "SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG\\APPLICATION";
inline constexpr char kFileMonitorKey[] =
    "SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG\\FILEMONITOR";
inline constexpr char kAlertReportKey[] = "SOFTWARE\\KORBIN\\TARSKVOSKAR\\AlertReport";

// Named events that wake the monitor, and the mutex around the table's registry tree.
inline constexpr char kTableEvent[] = "Eventlog_Mod_Event";
inline constexpr char kCycleEvent[] = "Eventlog_Cycle_Event";
inline constexpr char kScanEvent[] = "Driving_Syslog_Event";
inline constexpr char kCustomerFileEvent[] = "Eventlog_Custom_Event";
inline constexpr char kFileMonitorEvent[] = "Eventlog_File_Event";
inline constexpr char kTableMutex[] = "EVENTLOG_SEMA";

// The identifier of everything that the agent itself writes to syslog or the journal. The module
// skips lines that hold it: that is what keeps a report from being matched and reported again.
inline constexpr char kSyslogIdentifier[] = "TARSKvkvmain";

inline constexpr char kSystemLog[] = "/var/log/messages";

} // namespace agent

#endif // AGENT_COMMON_NAMES_H
