#include "agent/daemon/store_wait.h"

#include <csignal>
#include <string>

#include "agent/daemon/trace_unit.h"
#include "agent/status/status_file.h"
#include "agent/text/say.h"

namespace syslogmond {

namespace {

// Milliseconds. A command holds the lock for less; what takes longer is worth a word.
constexpr int kTellAfterMs = 5000;

void Tell(const std::string &text)
{
    TRACE(TRACE_NOTABLE, "%s.", text.c_str());
    text::Say(text);
}

} // namespace

host::Patience StoreWait::Patience()
{
    host::Patience patience;
    patience.tell_after_ms = kTellAfterMs;
    patience.began = [this] { Began(); };
    patience.over = [this] { Over(); };
    patience.leave = [this] { return IsToEnd(); };
    return patience;
}

void StoreWait::Began()
{
    // It is told of late; what is shown is when it began.
    since_ms_ = status::WallTimeMs() - kTellAfterMs;
    Tell("another process holds the lock of " + store_.string() +
         ", nothing can be stored until it is given back; find it with fuser");
    show_(since_ms_);
}

void StoreWait::Over()
{
    const int64_t seconds = (status::WallTimeMs() - since_ms_) / 1000;
    since_ms_ = 0;
    Tell("the wait for the lock of " + store_.string() + " is over after " +
         std::to_string(seconds) + " s");
    show_(0);
}

// A signal counts while nobody has read it yet: the thread that would may be waiting behind this one.
bool StoreWait::IsToEnd() const
{
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return stop_requested_ || sigismember(&pending, SIGTERM) == 1 ||
           sigismember(&pending, SIGINT) == 1;
}

} // namespace syslogmond
