#include "agent/text/last_words.h"

#include <cstdio>
#include <new>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/text/say.h"

namespace text {

namespace {

// For a failure that nothing on its thread can deal with: memory has run out in the middle of a pass,
// for one. What the pass has written was not committed.
[[noreturn]] void EndWithAMessage()
{
    constexpr int kExitFailed = 1;
    if (const std::exception_ptr failure = std::current_exception())
        SayWhatFailed(failure);
    else
        Say("cannot go on; this is a fault of the program, report it");
    // No destructor: other threads run on, and use what they would take down.
    _exit(kExitFailed);
}

} // namespace

// Memory first: its text needs none that is not there.
void SayWhatFailed(const std::exception_ptr &failure) noexcept
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::bad_alloc &) {
        Say("cannot go on: there is no memory left; raise the limit of the process's memory, "
            "or end something else");
    } catch (const host::Error &error) {
        Say(error.what());
    } catch (const std::exception &error) {
        // No string: the failure can be the lack of threads or memory.
        char text[512];
        snprintf(text, sizeof text, "cannot go on: %s; raise the limits of the process",
                 error.what());
        Say(text);
    } catch (...) {
        Say("cannot go on: unknown failure; this is a fault of the program, report it");
    }
}

void SayWhyItEnds()
{
    std::set_terminate(EndWithAMessage);
}

} // namespace text
