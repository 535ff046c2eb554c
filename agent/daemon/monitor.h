// One life of the monitor: the module's StartThread on a thread of its own, and what the host does
// when the module is at rest.
//
// At each rest, on the monitor thread: the hit counters are saved, the pass is committed, the
// status is published. When the pass cannot be stored, it is rolled back and the wait reports the
// stop handle: the module ends, and the next life reads everything of the broken pass again.
#ifndef AGENT_DAEMON_MONITOR_H
#define AGENT_DAEMON_MONITOR_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "agent/common/status_file.h"
#include "agent/daemon/module.h"
#include "agent/libtarsk/error.h"
#include "platform/types.h"

namespace agent {

// What the daemon wants to hear from the monitor. All are called on the monitor thread.
struct MonitorEvents {
    std::function<void()> started; // the table is loaded, the loop begins
    std::function<void(const PassStatus &, int table_size)> at_rest; // a pass was committed
    std::function<void()> pulse;                                     // now and then during a wait
    DWORD pulse_ms = 0;
    std::function<void()> ended; // the thread is about to end
};

class Monitor {
  public:
    Monitor(Module &module, MonitorEvents events);
    ~Monitor(); // stops it, and waits until it has ended
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    // Asks it to stop. It does so within the pass that is under way.
    void RequestStop();
    [[nodiscard]] bool StopWasRequested() const { return stop_requested_; }

    // Processor time that its thread has used, in nanoseconds. It grows while a pass makes
    // progress.
    [[nodiscard]] int64_t ProcessorTimeNs();

    // Why it ended, when nobody asked: empty while nothing is known.
    [[nodiscard]] const std::string &reason() const { return reason_; } // after `ended`

  private:
    void Run();
    bool AtRest();
    void Woken(DWORD result, const std::string &name);
    void TableIsLoaded();
    void StorePass();
    void Break(const tarsk::Error &error);

    Module &module_;
    MonitorEvents events_;
    std::vector<char> record_;
    HANDLE stop_ = nullptr;
    HANDLE started_ = nullptr;
    tarsk::HitCounters counters_;
    PassStatus pass_;
    std::string reason_;
    std::atomic<bool> stop_requested_ = false;
    std::thread thread_;
};

} // namespace agent

#endif // AGENT_DAEMON_MONITOR_H
