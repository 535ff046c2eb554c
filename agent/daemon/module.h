// The loaded monitor module, and what it exports.
#ifndef AGENT_DAEMON_MODULE_H
#define AGENT_DAEMON_MODULE_H

#include <filesystem>

#include "agent/host/hit_counters.h"
#include "agent/host/library.h"
#include "platform/types.h"

namespace syslogmond {

class Module {
  public:
    // Loads the library. Throws host::Error.
    explicit Module(const std::filesystem::path &path);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // Runs the whole life of the monitor on the calling thread.
    void StartThread(void *thread_record) { start_thread_(thread_record); }

    [[nodiscard]] const host::ModuleTable &table() const { return table_; }

  private:
    host::Library library_;
    void (*start_thread_)(void *) = nullptr;
    BOOL (*dll_main_)(HMODULE, DWORD) = nullptr;
    host::ModuleTable table_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_MODULE_H
