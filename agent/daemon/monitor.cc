#include "agent/daemon/monitor.h"

#include <cstring>
#include <ctime>
#include <pthread.h>

#include "agent/common/names.h"
#include "agent/libtarsk/error.h"
#include "agent/libtarsk/host.h"
#include "agent/libtarsk/sync.h"
#include "agent/libtarsk/trace_log.h"
#include "platform/sync.h"
#include "platform/thread_record.h"
#include "platform/trace.h"

namespace agent {

namespace {

constexpr char kUnit[] = "syslogmond";

PassKind KindOf(DWORD result, const std::string &name)
{
    if (result == WAIT_RESULT_TIMEOUT)
        return PassKind::kCycle;
    if (name == kScanEvent)
        return PassKind::kScan;
    if (name == kCustomerFileEvent)
        return PassKind::kCustomerFile;
    if (name == kFileMonitorEvent)
        return PassKind::kFileMonitor;
    return PassKind::kOther;
}

PassStatus BeginPass(int64_t number, PassKind kind)
{
    PassStatus pass;
    pass.number = number;
    pass.kind = kind;
    pass.began_ms = WallTimeMs();
    pass.began_boot_ns = BootTimeNs();
    return pass;
}

HANDLE NewEvent()
{
    HANDLE event = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr)
        throw tarsk::Error("cannot start the monitor", "no event could be created",
                           "raise the limit of open files");
    return event;
}

} // namespace

Monitor::Monitor(Module &module, MonitorEvents events)
    : module_(module), events_(std::move(events)), record_(kThreadRecordSize), stop_(NewEvent()),
      started_(NewEvent()), counters_(tarsk::HostStore())
{
    memcpy(record_.data() + kThreadStopHandleOffset, &stop_, sizeof stop_);
    memcpy(record_.data() + kThreadStartupEventOffset, &started_, sizeof started_);
    tarsk::SetModuleTable(module.table());
    tarsk::SetEventHook(started_, [this] { TableIsLoaded(); });
    tarsk::WaitHooks hooks;
    hooks.at_rest = [this] { return AtRest(); };
    hooks.woken = [this](DWORD result, const std::string &name) { Woken(result, name); };
    hooks.pulse = events_.pulse;
    hooks.pulse_ms = events_.pulse_ms;
    tarsk::SetWaitHooks(std::move(hooks));
    thread_ = std::thread([this] { Run(); });
}

Monitor::~Monitor()
{
    RequestStop();
    thread_.join();
    tarsk::SetWaitHooks({});
    tarsk::SetEventHook(nullptr, nullptr);
    CloseHandle(stop_);
    CloseHandle(started_);
}

void Monitor::RequestStop()
{
    stop_requested_ = true;
    SetEvent(stop_);
}

int64_t Monitor::ProcessorTimeNs()
{
    clockid_t clock{};
    timespec used{};
    if (pthread_getcpuclockid(thread_.native_handle(), &clock) != 0 ||
        clock_gettime(clock, &used) != 0)
        return 0;
    return (int64_t{used.tv_sec} * 1'000'000'000) + used.tv_nsec;
}

void Monitor::Run()
{
    tarsk::ForgetTracedError();
    pass_ = BeginPass(1, PassKind::kStart);
    module_.StartThread(record_.data());
    // Nothing is written after the last rest but by a life that failed: its pass does not count.
    tarsk::HostStore().AbandonPass();
    if (reason_.empty())
        reason_ = tarsk::LastTracedError();
    tarsk::FlushTraceLog();
    events_.ended();
}

// The module is at rest: the moment to give the entries their hits back. When that fails, no pass
// of this life may be stored, or the hits would be lost.
void Monitor::TableIsLoaded()
{
    try {
        counters_.Restore(module_.table());
        events_.started();
    } catch (const tarsk::Error &error) {
        Break(error);
    }
}

void Monitor::Break(const tarsk::Error &error)
{
    TRACE(TRACE_SYSTEM, "%s", error.what());
    reason_ = error.what();
}

void Monitor::StorePass()
{
    if (!reason_.empty())
        throw tarsk::Error(reason_);
    counters_.Save(module_.table());
    tarsk::HostStore().CommitPass();
}

bool Monitor::AtRest()
{
    try {
        StorePass();
    } catch (const tarsk::Error &error) {
        Break(error);
        tarsk::HostStore().AbandonPass();
        return false;
    }
    pass_.took_us = (BootTimeNs() - pass_.began_boot_ns) / 1000;
    events_.at_rest(pass_, module_.table().Size());
    tarsk::FlushTraceLog();
    return true;
}

void Monitor::Woken(DWORD result, const std::string &name)
{
    pass_ = BeginPass(pass_.number + 1, KindOf(result, name));
}

} // namespace agent
