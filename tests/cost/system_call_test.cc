// How many system calls a pass without news makes, whatever the size of the files. They are counted by the
// kernel: the pass runs in a child process under ptrace, so none is missed. The registry is in memory, so its
// calls are not among them.
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "filemonitor/filemonitor.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"

namespace test {
namespace {

constexpr int kMostPerSlot = 31;

// In the child: the action between two stops that the parent sees.
[[noreturn]] void RunTraced(const std::function<void()> &action)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(2);
    raise(SIGSTOP);
    action();
    raise(SIGUSR1);
    _exit(0);
}

bool WaitForStop(pid_t child, int *signal)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
        return false;
    *signal = WSTOPSIG(status);
    return true;
}

// The system calls of an action, in a child. -1: they cannot be counted.
int SystemCallsOf(const std::function<void()> &action)
{
    const pid_t child = fork();
    if (child == 0)
        RunTraced(action);
    int signal = 0;
    if (!WaitForStop(child, &signal) || signal != SIGSTOP)
        return -1;
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int stops = 0; // two for each call
    for (;;) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        if (!WaitForStop(child, &signal))
            return -1;
        if (signal == SIGUSR1)
            break;
        ++stops;
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return stops / 2;
}

class CostOfAPass : public SyslogScanTest {
  protected:
    // The raising of the two signals, which the counting itself costs.
    static int Baseline()
    {
        return SystemCallsOf([] {});
    }

    void MakeLogs(size_t bytes) const
    {
        std::string log = Line("the first line") + "\n";
        while (log.size() < bytes)
            log += Line("another line " + std::to_string(log.size())) + "\n";
        WriteLog("messages", log);
        WriteLog("customer", log);
        WriteLog("watched", log);
        for (const char *name : {"messages", "customer", "watched"})
            SetModified(name, *Sys().now - 3600);
    }

    // A pass of both slots that finds nothing new.
    int CallsOfAPass(size_t bytes)
    {
        StartOver();
        MakeLogs(bytes);
        WatchCustomerFile("/var/log/customer");
        WatchSyslogMain(); // begins at the end
        WatchSyslogMain();
        Host().record_trace = false;
        const int calls = SystemCallsOf([] { WatchSyslogMain(); });
        EXPECT_LE(0, calls) << "ptrace is not permitted here";
        return calls - Baseline();
    }

    int CallsOfAFileMonitorPass(size_t bytes)
    {
        StartOver();
        MakeLogs(bytes);
        Host().registry.SetText(kFileMonitorKey, "FILENAME", "/var/log/watched");
        ChangeFileMonObj();
        WatchFileMonObjMain(); // reads all of it
        Host().record_trace = false;
        const int calls = SystemCallsOf([] { WatchFileMonObjMain(); });
        EXPECT_LE(0, calls) << "ptrace is not permitted here";
        return calls - Baseline();
    }
};

TEST_F(CostOfAPass, CountingIsNotBlind)
{
    const int calls = SystemCallsOf([] {
        for (int i = 0; i < 10; ++i)
            syscall(SYS_getppid);
    });
    EXPECT_EQ(10, calls - Baseline());
}

TEST_F(CostOfAPass, WithoutNewsIsAFewSystemCallsWhateverTheSize)
{
    const int small = CallsOfAPass(1000);
    const int large = CallsOfAPass(3000000);
    EXPECT_LT(small, 2 * kMostPerSlot);
    EXPECT_LT(large, 2 * kMostPerSlot);
    // A block is read in one call, and so is the head of a line.
    EXPECT_LE(large, small + 2);
    RecordProperty("small", small);
    RecordProperty("large", large);
    printf("system calls of a pass without news, both slots: %d, of large files %d\n", small,
           large);
}

TEST_F(CostOfAPass, OfTheFileMonitorWithoutNewsIsAFewSystemCallsWhateverTheSize)
{
    const int small = CallsOfAFileMonitorPass(1000);
    const int large = CallsOfAFileMonitorPass(3000000);
    EXPECT_LT(small, kMostPerSlot);
    EXPECT_EQ(small, large);
    printf("system calls of a file monitor pass without news: %d\n", small);
}

} // namespace
} // namespace test
