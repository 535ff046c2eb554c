// The loaded monitor module, and what of its exports the agent uses. The functions are described in the headers of
// the module; they keep the names of the interface.
//
// The module's state is one for the process, and belongs to one thread at a time: in the daemon to the monitor
// thread, in the command to its only one.
#ifndef AGENT_MONITOR_MODULE_H
#define AGENT_MONITOR_MODULE_H

#include <cstdint>
#include <ctime>

#include "agent/host/hit_counters.h"
#include "agent/host/layout.h"
#include "agent/host/library.h"
#include "platform/contract.h"
#include "platform/siblings.h"
#include "platform/types.h"

namespace monitor {

// A file's name below the folder of the logs, as the module lists backups.
using BackupName = char[kBackupNameSize];

class Module {
  public:
    // Loads the library and tells it so. Throws host::Error when it cannot be loaded, or lacks an export.
    explicit Module(const host::Layout &layout);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // ---- its life, and one line ----
    void (*StartThread)(void *thread_record) = nullptr;
    int (*CheckLine)(char *line, int times) = nullptr;

    // ---- a pass ----
    // Over the logs whose names and resume points are in the registry; behind ChangeCustFile.
    int (*WatchSyslogMain)() = nullptr;

    // ---- time ----
    BOOL (*GetSyslogTime)(const char *line, time_t *time) = nullptr;
    int (*OnTime)(time_t time, unsigned hours) = nullptr;

    // ---- the reader of a log ----
    int (*InitFile)(const char *path) = nullptr;
    void (*FinishFile)() = nullptr;
    int (*GetFirstLine)(char *line, int size) = nullptr;
    int (*GotoPos)(int64_t *pos, char *content, int size) = nullptr;
    int (*GetNextLine)(int64_t *pos, char *content, int size) = nullptr;
    int (*FEof)() = nullptr;

    // ---- where it stands in the files of a slot ----
    int (*ChangeCustFile)() =
        nullptr; // reads the customer file's name, on which its backups depend
    int (*ListBackupsOfSlot)(BackupName **names, int slot) = nullptr;
    int (*RegSetHeadLine)(const char *line, int slot) = nullptr;
    int (*RegSetOrientation)(int64_t pos, const char *content, int slot) = nullptr;
    int (*RegGetHeadLine)(char *line, int size, int slot) = nullptr;
    int (*RegGetOrientation)(int64_t *pos, char *content, int size, int slot) = nullptr;

    // ---- its state ----
    int32_t *report_ft = nullptr;
    int32_t *IsFTServer = nullptr;
    VKMonitorCallFn *pVKMonitorCall = nullptr; // takes the reports

    // The table of events. Read and written only while the module is at rest.
    [[nodiscard]] const host::ModuleTable &table() const { return table_; }

  private:
    // First, so that it is unloaded last.
    host::Library library_;
    // Called by this class alone: once after the lookup, once before the library goes.
    BOOL (*dll_main_)(HMODULE, DWORD) = nullptr;
    // Points into the library, so it is good for nothing once this object is gone.
    host::ModuleTable table_;
};

} // namespace monitor

#endif // AGENT_MONITOR_MODULE_H
