#include "agent/daemon/monitor.h"

#include <cstring>
#include <ctime>
#include <utility>

#include "agent/daemon/trace_unit.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/trace_log.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "platform/thread_record.h"

namespace syslogmond {

namespace {

// What made the monitor look, from what its wait reports. An event without a name, or of the table,
// is of no kind that reads files.
status::PassKind KindOf(DWORD result, const std::string &name)
{
    if (result == WAIT_RESULT_TIMEOUT)
        return status::PassKind::kCycle;
    if (name == kScanEvent)
        return status::PassKind::kScan;
    if (name == kCustomerFileEvent)
        return status::PassKind::kCustomerFile;
    if (name == kFileMonitorEvent)
        return status::PassKind::kFileMonitor;
    return status::PassKind::kOther;
}

status::PassStatus NewPass(int64_t number, status::PassKind kind)
{
    status::PassStatus pass;
    pass.number = number;
    pass.kind = kind;
    pass.began_ms = status::WallTimeMs();
    pass.began_boot_ns = status::BootTimeNs();
    return pass;
}

// Manual reset, not set: once set, it stays so.
HANDLE NewEvent()
{
    HANDLE event = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr)
        throw host::Error("cannot start the monitor", "no event could be created",
                          "raise the limit of open files");
    return event;
}

} // namespace

// The handles stand in the record before the thread that reads them begins. The table is that of
// the loaded module, which fills it in a moment.
Monitor::Monitor(host::Host &host, monitor::Module &module, InputFeed &feed, MonitorNews news)
    : host_(host), module_(module), feed_(feed), news_(std::move(news)), record_(kThreadRecordSize),
      stop_(NewEvent()), started_(NewEvent()), losses_(host.store(), host.registry()),
      moments_(host, *this, started_.get())
{
    for (const auto &[offset, handle] : {std::pair(kThreadStopHandleOffset, stop_.get()),
                                         std::pair(kThreadStartupEventOffset, started_.get())})
        memcpy(record_.data() + offset, &handle, sizeof handle);
    host_.SetTable(module.table());
    thread_ = std::thread([this] { Run(); });
}

Monitor::~Monitor()
{
    RequestStop();
    thread_.join();
    host_.SetTable({}); // the module may go now, and its table with it
}

void Monitor::RequestStop()
{
    // First: whoever sees the monitor end must see that it was asked to.
    stop_requested_ = true;
    SetEvent(stop_.get());
}

uint64_t Monitor::SignsOfLife() const
{
    // Each only grows, and so does the sum.
    return host::SignsOfLife() + pulses_;
}

void Monitor::Run()
{
    // An earlier life may have left one.
    host::ForgetTracedError();
    pass_ = NewPass(1, status::PassKind::kStart);
    if (Prepare())
        module_.StartThread(record_.data());
    // Nothing is written after the last rest but by a life that failed: its pass does not count.
    AbandonPass();
    // A failure here is the cause of what was traced behind it; without one, the module's last
    // error is the best there is.
    if (reason_.empty())
        reason_ = host::LastTracedError();
    host::FlushTraceLog();
    // The last thing that the thread does: whoever hears of it may join it.
    news_.ended();
}

// The monitor does not start without the key of its table. On a new host nothing is registered yet.
bool Monitor::Prepare()
{
    try {
        host_.registry().Create(host::kRootKey, kApplicationKey);
        // Now, so that the key is there whatever becomes of the first pass.
        host_.store().CommitPass();
        feed_.Prepare();
        losses_.Begin();
        counters_.emplace(host_.store());
        const auto find_time = [this](const std::string &line) { return TimeOf(line); };
        counter_.emplace(host_, find_time);
        desk_.emplace(host_, find_time,
                      [this](const ReportRequest &request, policy::Outcome::Kind outcome,
                             int64_t hits) { counter_->Reported(request, outcome, hits); });
        return true;
    } catch (const std::exception &error) {
        Break(error);
        return false;
    }
}

// The module is at rest: the moment to give the entries their hits back. When that fails, no pass
// of this life may be stored, or the hits would be lost.
void Monitor::TableLoaded()
{
    try {
        counters_->Restore(module_.table());
        counter_->BeginTable();
        desk_->Load();
        news_.started(module_.table().Size());
    } catch (const std::exception &error) {
        Break(error);
    }
}

// As the module reads it: its stamp has no year.
std::optional<int64_t> Monitor::TimeOf(const std::string &line) const
{
    time_t time = 0;
    if (module_.GetSyslogTime(line.c_str(), &time) != TRUE)
        return std::nullopt;
    return time;
}

void Monitor::Break(const std::exception &error)
{
    TRACE(TRACE_SYSTEM, "%s", error.what());
    reason_ = error.what();
}

void Monitor::TellOfAbsent(int64_t now_s)
{
    desk_->NoteTime(now_s);
    if (feed_.HasReadAll(desk_->HasOverdue(now_s)))
        desk_->TellOfAbsent(now_s);
}

void Monitor::StorePass()
{
    if (!reason_.empty())
        // Something failed earlier in this life, and what the pass counted may be wrong.
        throw host::Error(reason_);
    counters_->Save(module_.table());
    // Behind the table's load, and before the next line: both are of one moment, or the event that
    // tells of a later one is set already.
    if (status::ReadsAllFiles(pass_.kind))
        TellOfAbsent(time(nullptr));
    desk_->Save();
    if (table_is_reloaded_)
        desk_->Load();
    // Before the feed, which commits when it begins the spool anew: the module's place, and with it what is told of that.
    losses_.BeforeCommit();
    feed_.BeforeCommit();
    if (const inputs::Batch *batch = feed_.BatchOfPass())
        counter_->Stored(*batch);
    // Last of what writes: it has the news of all the others.
    counter_->Save(table_is_reloaded_);
    table_is_reloaded_ = false;
    host_.store().CommitPass();
    feed_.Committed();
}

void Monitor::AbandonPass()
{
    host_.store().AbandonPass();
    feed_.Abandoned();
    losses_.Abandoned();
}

bool Monitor::ModuleRests()
{
    try {
        StorePass();
    } catch (const std::exception &error) {
        Break(error);
        AbandonPass();
        return false;
    }
    pass_.took_us = (status::BootTimeNs() - pass_.began_boot_ns) / 1000;
    counter_->Committed(pass_.took_us);
    // Behind the commit: nobody hears of a pass that could still be lost.
    news_.at_rest(pass_, module_.table().Size());
    // The pass is over, so nothing waits for this write.
    host::FlushTraceLog();
    return true;
}

void Monitor::PassBegins(DWORD result, const std::string &name)
{
    pass_ = NewPass(pass_.number + 1, KindOf(result, name));
    table_is_reloaded_ = name == kTableEvent;
}

} // namespace syslogmond
