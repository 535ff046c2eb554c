#include "agent/daemon/page_keeper.h"

#include <utility>

#include "agent/daemon/trace_unit.h"
#include "agent/host/error.h"
#include "agent/text/say.h"

namespace syslogmond {

namespace {

// An address that is not there yet when the host starts.
constexpr std::chrono::seconds kTryAgain{10};

} // namespace

void PageKeeper::Follow(const std::string &address)
{
    if (address == address_)
        return;
    address_ = address;
    told_.clear();
    // The one before goes first: it may be the same port.
    Replace(nullptr);
    Serve();
}

void PageKeeper::Work()
{
    if (try_again_at_ && Clock::now() >= *try_again_at_)
        Serve();
}

void PageKeeper::Serve()
{
    try_again_at_.reset();
    const auto address = settings::ParseWebAddress(address_);
    if (!address)
        return;
    try {
        Replace(std::make_unique<web::PageServer>(layout_, *address, SYSLOGMON_VERSION));
    } catch (const host::Error &error) {
        try_again_at_ = Clock::now() + kTryAgain;
        if (std::exchange(told_, error.what()) == error.what())
            return;
        TRACE(TRACE_SYSTEM, "%s", error.what());
        text::Say(error.what());
    }
}

// One that goes waits for its thread: not under the lock that the monitor's thread takes.
void PageKeeper::Replace(std::unique_ptr<web::PageServer> server)
{
    {
        const std::lock_guard lock(mutex_);
        server_.swap(server);
    }
}

void PageKeeper::Wake(bool events_changed)
{
    const std::lock_guard lock(mutex_);
    if (server_)
        server_->Wake(events_changed);
}

} // namespace syslogmond
