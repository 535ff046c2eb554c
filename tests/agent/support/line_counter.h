// A monitor in small: it reads lines from a log of its own, reports each, counts it in a table's hit
// counter, and notes how far it is, all through the host library and in passes of three lines. It
// treats failures as the module does: what cannot be read is not there, what cannot be written is
// traced by the host. So whatever happens to the store, each line must count once.
#ifndef TESTS_AGENT_SUPPORT_LINE_COUNTER_H
#define TESTS_AGENT_SUPPORT_LINE_COUNTER_H

#include <cstdint>
#include <functional>
#include <string>

#include "agent/host/layout.h"

namespace test {

// One life of a daemon that counts the lines up to `last`, from where the store says. Calls
// `pass_stored` after each pass. Returns "", or why it ended before.
std::string CountLines(const host::Layout &layout, uint32_t last,
                       const std::function<void()> &pass_stored = {});

// What the store says: the lines of the alerts in order, the resume point and the hit counter, such
// as "0 1 2 3; at 4; 4 hits". Starts and ends a host.
std::string CountedLines(const host::Layout &layout);

// What CountedLines gives when the lines before `at` have counted once.
std::string EachLineOnce(uint32_t at);

} // namespace test

#endif // TESTS_AGENT_SUPPORT_LINE_COUNTER_H
