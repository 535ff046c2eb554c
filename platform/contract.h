// What the module and its host agree on beside the calls: names in the registry, events and the mutex, sizes. Each is
// written down here and nowhere else.
#ifndef PLATFORM_CONTRACT_H
#define PLATFORM_CONTRACT_H

#include <cstddef>
#include <cstdint>

#include "platform/monitor_entry.h"

// ---- registry keys, below HKEY_LOCAL_MACHINE ----

#define TARSK_REG_SYSLOG_SUB_KEY "SOFTWARE\\KORBIN\\TARSKVOSKAR\\REPORTTABLE\\EVENTLOG"

constexpr char kMonitorKey[] = TARSK_REG_SYSLOG_SUB_KEY; // settings and scan state
constexpr char kApplicationKey[] = TARSK_REG_SYSLOG_SUB_KEY "\\APPLICATION"; // the events
constexpr char kFileMonitorKey[] = TARSK_REG_SYSLOG_SUB_KEY "\\FILEMONITOR";
constexpr char kAlertReportKey[] =
    "SOFTWARE\\KORBIN\\TARSKVOSKAR\\AlertReport"; // a key per product

// ---- settings ----

constexpr char kCycleValue[] = "CYCLE"; // REG_DWORD, seconds from pass to pass
// Shorter would load the host for nothing, longer would let a daily rotation overtake the scan.
constexpr uint32_t kCycleMin = 10;
constexpr uint32_t kCycleMax = 3600;
constexpr int32_t kCycleDefault = 300;

// REG_SZ, a path: of the customer file below the monitor's key, of the target below the file monitor's.
constexpr char kFileNameValue[] = "FILENAME";
constexpr size_t kFileNameMax = 255; // bytes that are read of it

constexpr char kSystemLog[] = "/var/log/messages";
constexpr char kLogDir[] = "/var/log"; // where backups are looked for
constexpr int kBackupNameSize = 32;    // bytes of a backup's name below it, its zero byte included
constexpr char kVmkernelLog[] = "/var/log/vmkernel"; // the one customer file that has backups

// ---- scan state ----

// Slots of the syslog scan: 0 the system log, 1 the customer file.
constexpr int MAX_MON_FILES = 2;

// Where the scan of a slot stands.
struct SlotValues {
    const char *headline; // REG_SZ, first line of the file that is followed
    const char *pos_low;  // REG_DWORD, halves of the offset of the last line checked (split64.h)
    const char *pos_high;
    const char *content; // REG_SZ, text of that line
};
constexpr SlotValues kSlotValues[MAX_MON_FILES] = {
    {"HEADLINE", "POS", "H_POS", "CONTENT"},
    {"HEADLINE_C", "POS_C", "H_POS_C", "CONTENT_C"},
};
constexpr char kRecordTimeValue[] = "RECORDTIME"; // REG_DWORD, end of the last scan of a slot
constexpr size_t kStoredTextSize = 500;           // bytes of a stored text, its zero byte included

// Where the file monitor stands: halves (split64.h), REG_DWORD.
constexpr char kInodeLowValue[] = "INODE_L";
constexpr char kInodeHighValue[] = "INODE_H";
constexpr char kOffsetLowValue[] = "OFFSET_L";
constexpr char kOffsetHighValue[] = "OFFSET_H";
// Its place behind the slots, where files of both are counted.
constexpr int kTargetSlot = MAX_MON_FILES;

// ---- an event: APPLICATION\<source>\<ID>\WATCHSETTING ----

constexpr char kWatchSettingKey[] = "WATCHSETTING";
constexpr int kKeywordsOfEntry = 3;
constexpr const char *kKeywordValues[kKeywordsOfEntry] = {"KeyWord", "KeyWord2",
                                                          "KeyWord3"}; // REG_SZ
constexpr char kReportCountValue[] = "ReportCount"; // REG_DWORD, VKVMon::ReportCount
constexpr char kWatchTimeValue[] = "WatchTime";     // REG_DWORD, VKVMon::WatchTime
constexpr char kNewApplicationTypeValue[] =
    "NEWAPPLICATIONTYPE"; // of a source that is not the module's

// Reports of this source are withheld while report_ft is 0.
constexpr char kWithheldSource[] = "FTREPORT";

// ---- a product: AlertReport\<name> ----

constexpr char kProductSourceValue[] = "Source"; // REG_BINARY, the sources of its events
constexpr char kProductSetupValue[] = "Setup";   // REG_DWORD, 0: registered, not set up yet

// ---- named events that wake the monitor, and the mutex around the registry tree of the table ----

constexpr char kTableEvent[] = "Eventlog_Mod_Event";
constexpr char kCycleEvent[] = "Eventlog_Cycle_Event";
constexpr char kScanEvent[] = "Driving_Syslog_Event";
constexpr char kCustomerFileEvent[] = "Eventlog_Custom_Event";
constexpr char kFileMonitorEvent[] = "Eventlog_File_Event";
constexpr char kTableMutex[] = "EVENTLOG_SEMA";

// ---- lines ----

// The identifier of everything that the agent itself writes to syslog or the journal. Skipping the lines that hold it
// keeps a report from being matched, and reported, again.
constexpr char kSyslogIdentifier[] = "TARSKvkvmain";

constexpr int kLineMax = 3328;                // bytes that are handled of a line
constexpr int kLineBufferSize = kLineMax + 1; // with its zero byte: the buffers of the syslog scan
constexpr int kFileLineBufferSize =
    kLineMax + 2; // with a line feed, too: those of the file monitor
static_assert(kLineBufferSize == 3329 && kFileLineBufferSize == 3330);

static_assert(kMaxEntries == 2048 && kKeywordSize == 257, "the layout of the table is fixed");
static_assert(kStoredTextSize <= kLineBufferSize, "a stored text fits into the buffer of a line");

#endif // PLATFORM_CONTRACT_H
