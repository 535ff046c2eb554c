#include "agent/daemon/input_feed.h"

#include <ctime>
#include <utility>

#include "agent/host/host.h"
#include "agent/host/report_source.h"
#include "agent/inputs/customer_file.h"
#include "agent/inputs/input_registry.h"
#include "agent/inputs/line_origin.h"
#include "agent/inputs/protected_words.h"
#include "agent/logs/log_files.h"
#include "platform/contract.h"

namespace syslogmond {

namespace {

constexpr char kSpoolName[] = "spool";

std::string FolderOfPrograms()
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
}

// Where a reported line of this log came from. On the monitor thread.
host::ReportSource SourceOf(inputs::SpoolKeeper *keeper, const std::string &log,
                            const std::string &line)
{
    host::ReportSource source;
    const bool is_spooled = keeper->IsInForce() && log == keeper->path();
    source.text = is_spooled ? inputs::WithWholeWords(line) : line;
    const inputs::LineOrigin origin = inputs::OriginOfLine(source.text);
    source.host = origin.host;
    source.program = origin.program;
    if (!is_spooled) {
        source.log = log;
    } else if (const auto spooled = keeper->OriginOf(line)) {
        source.log = spooled->log.empty() ? spooled->input : spooled->log;
        source.own_time = spooled->own_stamp;
    }
    return source;
}

} // namespace

InputFeed::InputFeed(host::Host &host, std::function<void()> look_now,
                     std::function<void()> status_changed)
    : host_(host), look_now_(std::move(look_now)), status_changed_(std::move(status_changed)),
      changed_(host::WakeEvent::Create(host.layout().run, inputs::kInputsEvent, false, false)),
      catch_up_(host::WakeEvent::Create(host.layout().run, inputs::kCatchUpEvent, false, false))
{
    if (const auto status = status::ReadStatus(host.layout().run))
        before_ = status->inputs;
    keeper_.emplace(host.store(), host.registry(), host.layout().state / kSpoolName);
    host_.SetReportSource(
        [this](const std::string &line) { return SourceOf(&*keeper_, host_.log_in_pass(), line); });
}

InputFeed::~InputFeed()
{
    StopThread();
    host_.SetReportSource(nullptr);
}

void InputFeed::StartThread()
{
    const std::lock_guard lock(mutex_);
    if (thread_) {
        thread_->Reload();
        return;
    }
    thread_ = std::make_unique<inputs::InputThread>(
        inputs::InputThreadOptions{host_.layout().Store(),
                                   std::exchange(before_, {}),
                                   FolderOfPrograms(),
                                   {host_.layout().state, host_.layout().run, host_.layout().log},
                                   look_now_,
                                   status_changed_});
    thread_->SetInterval(interval_);
    if (std::exchange(wants_catch_up_, false))
        thread_->CatchUp();
}

// What it has read and was not stored is the module's to read, or nobody's.
void InputFeed::StopThread()
{
    std::unique_ptr<inputs::InputThread> thread;
    {
        const std::lock_guard lock(mutex_);
        thread.swap(thread_);
        problem_.clear();
    }
    // It ends behind the lock, which it may wait for to tell its status.
}

bool InputFeed::TakeChanges()
{
    has_changes_ = changed_->TryTake() || has_changes_;
    if (!has_changes_)
        return false;
    host::Store store(host_.layout().Store());
    host::RegistryTree registry(store);
    const bool has_inputs = inputs::CustomerFile(store, registry).HasOthers();
    const std::string customer = logs::NameOfFile(registry, kMonitorKey);
    has_changes_ = false;
    {
        const std::lock_guard lock(mutex_);
        if (thread_)
            thread_->Reload();
    }
    if (!is_in_force_)
        return has_inputs;
    is_ending_ = !has_inputs;
    if (is_ending_)
        look_now_();
    return has_ended_.exchange(false) || customer != keeper_->path();
}

void InputFeed::TakeCatchUp()
{
    if (!catch_up_->TryTake())
        return;
    const std::lock_guard lock(mutex_);
    if (thread_)
        thread_->CatchUp();
    else
        wants_catch_up_ = true;
}

void InputFeed::SetInterval(std::chrono::milliseconds interval)
{
    const std::lock_guard lock(mutex_);
    interval_ = interval;
    if (thread_)
        thread_->SetInterval(interval);
}

void InputFeed::TellStatus(status::Status *status) const
{
    const std::lock_guard lock(mutex_);
    status->inputs = thread_ ? thread_->Status() : std::vector<status::InputStatus>{};
    status->inputs_wait = problem_;
    status->inputs_caught_up_ns = thread_ ? thread_->CaughtUpTo() : 0;
}

void InputFeed::Prepare()
{
    const bool has_inputs = inputs::CustomerFile(host_.store(), host_.registry()).HasOthers();
    keeper_->Prepare(has_inputs, time(nullptr));
    is_in_force_ = keeper_->IsInForce();
    is_ending_ = !has_inputs;
    if (is_in_force_)
        StartThread();
    else
        StopThread();
}

// No more inputs: the module reads the spool to its end, and starts again without it.
bool InputFeed::Ends()
{
    if (!is_ending_ || !keeper_->CanEnd())
        return false;
    if (keeper_->AllIsRead() && !has_ended_.exchange(true))
        changed_->Set();
    return true;
}

const inputs::Batch *InputFeed::ReadyBatch()
{
    const std::lock_guard lock(mutex_);
    return thread_ ? thread_->Ready() : nullptr;
}

bool InputFeed::HasReadAll(bool is_asked)
{
    if (!is_in_force_ || !is_asked) {
        asked_ns_ = 0;
        return is_asked;
    }
    const std::lock_guard lock(mutex_);
    if (!thread_ || thread_->Ready() != nullptr || !keeper_->AllIsRead())
        return false;
    if (asked_ns_ == 0) {
        asked_ns_ = status::BootTimeNs();
        thread_->CatchUp();
    }
    if (thread_->CaughtUpTo() < asked_ns_)
        return false;
    asked_ns_ = 0;
    return true;
}

void InputFeed::BeforeCommit()
{
    batch_is_stored_ = false;
    if (!is_in_force_)
        return;
    keeper_->LookAfterSpool();
    if (Ends())
        return;
    const inputs::Batch *batch = ReadyBatch();
    if (batch == nullptr)
        return;
    batch_is_stored_ = keeper_->Store(*batch);
    const std::lock_guard lock(mutex_);
    problem_ = keeper_->problem();
}

void InputFeed::Committed()
{
    keeper_->Committed();
    if (!batch_is_stored_)
        return;
    batch_is_stored_ = false;
    {
        const std::lock_guard lock(mutex_);
        thread_->Stored();
    }
    look_now_();
}

void InputFeed::Abandoned()
{
    batch_is_stored_ = false;
    keeper_->Abandoned();
}

bool InputFeed::MayTake(const std::string &event)
{
    if (event != kCustomerFileEvent || !is_in_force_)
        return true;
    changed_->Set();
    return false;
}

} // namespace syslogmond
