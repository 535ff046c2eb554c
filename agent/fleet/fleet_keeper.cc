#include "agent/fleet/fleet_keeper.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "agent/fleet/setup.h"
#include "agent/fleet/trace_unit.h"
#include "agent/host/error.h"
#include "agent/metrics/overview.h"
#include "agent/text/say.h"

namespace fleet {

namespace {

// What could not be read is read again.
constexpr int kTryAgainMs = 10000;

// What is wrong with it; empty: nothing is. Throws host::StoreError.
std::string FaultOf(const std::function<void()> &take)
{
    try {
        take();
        return "";
    } catch (const host::StoreError &) {
        throw;
    } catch (const std::exception &error) {
        return error.what();
    }
}

} // namespace

FleetKeeper::FleetKeeper(host::Layout layout, std::function<void()> stored)
    : layout_(std::move(layout)), stored_(std::move(stored)),
      changed_(host::WakeEvent::Create(layout_.run, kFleetEvent, false, false)),
      bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (bell_.get() < 0)
        throw host::Error("cannot take part in a fleet", strerror(errno),
                          "raise the limit of open files");
    thread_ = std::thread([this] { Run(); });
}

FleetKeeper::~FleetKeeper()
{
    stop_ = true;
    host::Ring(bell_);
    thread_.join();
}

void FleetKeeper::Run()
{
    TraceLogSetThrName("fleet");
    while (!stop_) {
        int sleep_ms = -1;
        try {
            TakeSetup();
            told_.clear();
        } catch (const std::exception &error) {
            sleep_ms = kTryAgainMs;
            if (told_ != error.what()) {
                TRACE(TRACE_SYSTEM, "%s", error.what());
                text::Say(error.what());
            }
            told_ = error.what();
        }
        pollfd waiting[] = {{bell_.get(), POLLIN, 0}, {changed_->PollFd(), POLLIN, 0}};
        poll(waiting, std::size(waiting), sleep_ms);
        changed_->TryTake();
    }
    collector_.reset();
    member_.reset();
}

// What is wrong with one part keeps the other one from nothing, and hides nothing of it.
void FleetKeeper::TakeSetup()
{
    host::Store store(layout_.Store());
    host::RegistryTree registry(store);
    const std::string collectors =
        FaultOf([&] { TakeCollector(ReadSetup(SetupPart::kCollect, store, registry)); });
    const std::string members = FaultOf([&] { TakeMembership(store, registry); });
    const char *between = collectors.empty() || members.empty() ? "" : "\n";
    if (!collectors.empty() || !members.empty())
        throw host::Error(collectors + between + members);
}

void FleetKeeper::TakeMembership(host::Store &store, host::RegistryTree &registry)
{
    auto member = ReadSetup(SetupPart::kMember, store, registry);
    if (member)
        member = WithServers(*member, store, registry);
    TakeMember(member);
    // What a member has taken goes with its membership.
    if (!member && !ReadGroups(store).empty())
        TakeGroups(layout_, store, registry, {}, [this] { return stop_.load(); });
}

void FleetKeeper::TakeCollector(const std::optional<sinks::SinkConfig> &wanted)
{
    if (wanted && collector_ && *wanted == collects_)
        return;
    collector_.reset();
    if (!wanted)
        return;
    CheckSetup(*wanted);
    collector_ = std::make_unique<Collector>(CollectorOptions{layout_, *wanted, stored_});
    collects_ = *wanted;
}

void FleetKeeper::TakeMember(const std::optional<sinks::SinkConfig> &wanted)
{
    if (wanted && member_ && *wanted == member_of_)
        return;
    if (!wanted && member_)
        member_->Leave();
    member_.reset();
    if (!wanted)
        return;
    CheckSetup(*wanted);
    member_ = std::make_unique<Member>(
        MemberOptions{layout_, *wanted, [this](HostStatus *status) { Look(status); }});
    member_of_ = *wanted;
}

// On the member's thread, with a connection to the store of its own for the moment that it takes.
void FleetKeeper::Look(HostStatus *status)
{
    host::Store store(layout_.Store());
    host::RegistryTree registry(store);
    const metrics::Overview seen = metrics::LookAtReading(registry, layout_, getpid());
    for (const metrics::LogView &log : seen.logs)
        status->behind_bytes += log.unread.value_or(0);
    status->monitor = seen.stands;
    if (!seen.status)
        return;
    const status::Status &daemon = *seen.status;
    status->version = daemon.version;
    status->last_pass_ms = daemon.last_full_pass.began_ms;
    for (const status::InputStatus &input : daemon.inputs)
        status->behind_bytes += std::max<int64_t>(input.behind_bytes, 0);
    if (daemon.state == status::MonitorState::kPausing)
        status->monitor = "it has ended: " + daemon.last_error;
}

} // namespace fleet
