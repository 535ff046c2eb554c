#include "agent/daemon/input_feed.h"

#include <ctime>

#include "agent/host/host.h"
#include "agent/host/report_source.h"
#include "agent/inputs/input_registry.h"
#include "agent/inputs/line_origin.h"
#include "agent/inputs/protected_words.h"
#include "platform/contract.h"

namespace syslogmond {

namespace {

constexpr char kSpoolName[] = "spool";

std::string FolderOfPrograms()
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
}

// Where a reported line came from. On the monitor thread.
host::ReportSource SourceOf(inputs::SpoolKeeper *keeper, const std::string &line)
{
    host::ReportSource source;
    source.text = inputs::WithWholeWords(line);
    const inputs::LineOrigin origin = inputs::OriginOfLine(source.text);
    source.host = origin.host;
    source.program = origin.program;
    if (const auto spooled = keeper->OriginOf(line)) {
        source.log = spooled->log.empty() ? spooled->input : spooled->log;
        source.own_time = spooled->own_stamp;
    }
    return source;
}

} // namespace

InputFeed::InputFeed(host::Host &host, std::function<void()> look_now)
    : host_(host), look_now_(std::move(look_now)),
      changed_(host::WakeEvent::Create(host.layout().run, inputs::kInputsEvent, false, false))
{
    keeper_.emplace(host.store(), host.registry(), host.layout().state / kSpoolName);
}

InputFeed::~InputFeed()
{
    host_.SetReportSource(nullptr);
}

void InputFeed::StartThread()
{
    const std::lock_guard lock(mutex_);
    if (thread_) {
        thread_->Reload();
        return;
    }
    thread_.emplace(
        inputs::InputThreadOptions{host_.layout().Store(), FolderOfPrograms(), look_now_});
    thread_->SetInterval(interval_);
}

bool InputFeed::HasInputs() const
{
    host::Store store(host_.layout().Store());
    host::RegistryTree registry(store);
    return !inputs::InputRegistry(store, registry).ReadAll().empty();
}

bool InputFeed::TakeChanges()
{
    if (!changed_->TryTake())
        return false;
    const bool has_inputs = HasInputs();
    const std::lock_guard lock(mutex_);
    if (thread_)
        thread_->Reload();
    return has_inputs != is_in_force_;
}

void InputFeed::SetInterval(std::chrono::milliseconds interval)
{
    const std::lock_guard lock(mutex_);
    interval_ = interval;
    if (thread_)
        thread_->SetInterval(interval);
}

std::vector<inputs::InputStatus> InputFeed::Status() const
{
    const std::lock_guard lock(mutex_);
    return thread_ ? thread_->Status() : std::vector<inputs::InputStatus>{};
}

std::string InputFeed::Problem() const
{
    const std::lock_guard lock(mutex_);
    return problem_;
}

void InputFeed::Prepare()
{
    const bool has_inputs =
        !inputs::InputRegistry(host_.store(), host_.registry()).ReadAll().empty();
    keeper_->Prepare(has_inputs, time(nullptr));
    is_in_force_ = has_inputs;
    host_.SetReportSource(
        has_inputs ? [this](const std::string &line) { return SourceOf(&*keeper_, line); }
                   : host::FindReportSource());
    if (has_inputs)
        StartThread();
}

void InputFeed::BeforeCommit()
{
    batch_is_stored_ = false;
    if (!is_in_force_)
        return;
    const inputs::Batch *batch = nullptr;
    {
        const std::lock_guard lock(mutex_);
        batch = thread_ ? thread_->Ready() : nullptr;
    }
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
    look_now_();
    return false;
}

} // namespace syslogmond
