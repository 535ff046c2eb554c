#include "agent/host/host.h"

#include <cerrno>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/host/store_file.h"
#include "agent/host/trace_log.h"

namespace host {

namespace {

// The host that was made last and lives: set by its constructor, put back by its destructor. Both
// run while no other thread of the host does, and other threads only read it, so it needs no lock.
Host *current = nullptr;

// Makes the folders, or for a reader sees to it that there is a store, before it is opened.
const Layout &Prepared(const Layout &layout, Role role)
{
    if (role == Role::kReader)
        CheckStoreIsThere(layout.Store());
    else
        layout.CreateFolders();
    return layout;
}

// Whoever may write the store reads it as all others that write: that needs no journal to be there, and brings an
// older store up to date.
StoreUse UseOf(const Layout &layout, Role role)
{
    if (role == Role::kDaemon)
        return StoreUse::kDaemon;
    // On a disk that nobody may write, the store is refused, with that cause.
    const bool lacks_right = access(layout.Store().c_str(), W_OK) != 0 && errno == EACCES;
    return role == Role::kReader && lacks_right ? StoreUse::kReader : StoreUse::kShared;
}

} // namespace

// A member of its own, so that a constructor that fails behind the opening closes the log again.
Host::OwnTrace::~OwnTrace()
{
    if (is_open)
        CloseTraceLog();
}

Host::Host(const Layout &layout, Role role)
    : layout_(Prepared(layout, role)), store_(layout.Store(), UseOf(layout, role)),
      registry_(store_), outer_(current)
{
    if (role == Role::kDaemon) {
        // Before anything is read of it: a damaged store must not be taken for an empty registry.
        // The trace log is opened behind it, so a refused start leaves none behind.
        store_.CheckIntegrity();
        OpenTraceLog(layout.TraceLog());
        trace_.is_open = true;
        store_.StartPasses();
    }
    // As the last thing: one that could not be made leaves the C functions to the host before it.
    current = this;
}

Host::~Host()
{
    current = outer_;
}

void Host::TellMoments(Moments *moments, HANDLE table_loaded)
{
    moments_ = moments;
    table_loaded_ = table_loaded;
}

bool Host::IsTableLoaded(HANDLE event) const
{
    return event != nullptr && event == table_loaded_;
}

Host &Current()
{
    if (current == nullptr)
        throw Error("the host library cannot be used", "it was not started",
                    "this is a fault of the program; report it");
    return *current;
}

Host *CurrentIfAny()
{
    return current;
}

} // namespace host
