// System calls that fail when a test wants them to. This program defines the calls that the store
// makes, itself, through SQLite and through the C++ library; so they pass through here, and the n-th
// of them can fail, for every n.
#ifndef TESTS_AGENT_HOST_FAULTS_H
#define TESTS_AGENT_HOST_FAULTS_H

#include <cstdint>
#include <string>

namespace test {

// What becomes of the call whose turn it is. Calls that only ask (stat, access, mmap) fail with EIO or
// ENOMEM whatever the fault; writing calls fail as it says.
enum class Fault {
    kError,       // EIO, once
    kStaysBroken, // EIO, from this call on; locks are still given
    kDiskIsFull,  // ENOSPC, from this call on, for those that need room; the others work
    kShortWrite,  // a write stores half of its bytes, once; anything else works
    kDeath,       // the process ends there, as SIGKILL ends it
};

// The calls of this thread are counted from 1, and the one with this number has the fault.
void BreakCall(int64_t number, Fault fault);
// Counts without a fault.
void CountCalls();
// Ends that, and tells how many there were.
int64_t StopBreaking();
// The name of the call that failed first, "" when none did.
std::string BrokenCall();

} // namespace test

#endif // TESTS_AGENT_HOST_FAULTS_H
