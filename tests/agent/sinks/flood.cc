// How many matching lines the monitor thread can report while receivers are slow, hang or are down:
// it must never wait for one of them.
//
//   sink_flood [SECONDS [PER_SECOND]]
//
// Stores alerts as the monitor does, a hundred passes a second of which each is one transaction on
// the disk of the working folder, first without sinks, then with a file, a web server that never
// answers, a program that hangs and a port where nobody listens. Prints what a pass took and how
// much memory was in use. Fails when an alert is missing, when the pace was not kept, or when memory
// grew.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>
#include <unistd.h>

#include "agent/host/host.h"
#include "agent/sinks/deliverer.h"
#include "platform/monitor_entry.h"
#include "tests/agent/sinks/http_receiver.h"
#include "tests/agent/support/host_test.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPassesPerSecond = 100;
constexpr double kMemoryMayGrowMiB = 16; // read-ahead of SQLite in each thread, and buffers
constexpr double kMayBeLate = 1.5;       // times the planned time

double ResidentMiB()
{
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576;
}

struct Figures {
    std::vector<double> pass_ms; // sorted
    double seconds = 0;
    double memory_early = 0; // MiB, after a fifth of the time
    double memory_end = 0;
};

void StorePass(int alerts)
{
    for (int i = 0; i < alerts; ++i) {
        alerts::Alert alert;
        alert.time_ms = 1795222801000;
        alert.host = "host";
        alert.log_name = "Application";
        alert.source = "FLOOD";
        alert.event_id = 1;
        alert.count = 1;
        alert.message = "Nov 21 10:00:00 host kernel: sd 0:0:0:0: [sda] tag#17 FAILED Result: "
                        "hostbyte=DID_OK driverbyte=DRIVER_OK";
        alerts::AddAlert(test::Store(), alert);
    }
    test::Store().CommitPass();
}

Figures Flood(int seconds, int per_second, sinks::Deliverer *deliverer)
{
    Figures figures;
    const int passes = seconds * kPassesPerSecond;
    const auto begin = Clock::now();
    for (int pass = 0; pass < passes; ++pass) {
        std::this_thread::sleep_until(begin +
                                      std::chrono::milliseconds(1000) * pass / kPassesPerSecond);
        const auto pass_begin = Clock::now();
        StorePass(per_second / kPassesPerSecond);
        if (deliverer != nullptr)
            deliverer->Wake();
        figures.pass_ms.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - pass_begin).count());
        if (pass == passes / 5)
            figures.memory_early = ResidentMiB();
    }
    figures.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    figures.memory_end = ResidentMiB();
    std::sort(figures.pass_ms.begin(), figures.pass_ms.end());
    return figures;
}

void Print(const char *what, const Figures &figures, int64_t stored)
{
    const auto &pass = figures.pass_ms;
    printf("%-14s %7ld alerts in %5.2f s; a pass took %.2f ms (median), %.2f (99 of 100), %.2f "
           "(longest); memory %.1f MiB after a fifth, %.1f at the end\n",
           what, static_cast<long>(stored), figures.seconds, pass[pass.size() / 2],
           pass[pass.size() * 99 / 100], pass.back(), figures.memory_early, figures.memory_end);
}

void AddSink(const std::string &kind, const std::map<std::string, std::string> &options)
{
    sinks::SinkConfig config;
    config.kind = &sinks::FindKind(kind);
    config.name = kind;
    config.options = options;
    sinks::SinkRegistry(test::Store(), test::Registry()).Add(config);
}

int64_t Stored()
{
    host::Statement count(test::Store().database(), "SELECT count(*) FROM alert");
    count.Start();
    count.Next();
    return count.Integer(0);
}

bool Check(bool holds, const char *what)
{
    if (!holds)
        printf("FAILED: %s\n", what);
    return holds;
}

int64_t LinesIn(const std::filesystem::path &path)
{
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
}

int Run(int seconds, int per_second)
{
    const test::TempFolder folder(std::filesystem::current_path());
    const host::Layout layout = host::Layout::Below(folder.path());
    const int64_t planned = int64_t{seconds} * per_second;
    {
        test::StartHost(host::Layout::Below(folder.path() / "alone"), host::Role::kDaemon);
        const Figures alone = Flood(std::max(1, seconds / 3), per_second, nullptr);
        Print("without sinks:", alone, Stored());
        test::StopHost();
    }
    test::HttpReceiver silent;
    silent.Answer([](const test::Request &) { return -1; });
    const auto program = folder.path() / "hangs";
    std::ofstream(program) << "#!/bin/sh\nsleep 600\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    const auto file = folder.path() / "alerts.json";
    test::StartHost(layout, host::Role::kCommand);
    AddSink("file", {{"path", file}});
    AddSink("webhook", {{"url", silent.Url()}});
    AddSink("program", {{"command", program}});
    AddSink("alertmanager", {{"peers", "http://127.0.0.1:1"}});
    test::StopHost();

    test::StartHost(layout, host::Role::kDaemon);
    bool good = true;
    {
        sinks::Deliverer deliverer({layout, {}});
        const Figures flooded = Flood(seconds, per_second, &deliverer);
        Print("with four:", flooded, Stored());
        good &= Check(Stored() == planned, "everything is in the store");
        good &= Check(flooded.seconds < seconds * kMayBeLate, "the pace was kept");
        good &= Check(flooded.memory_end < flooded.memory_early + kMemoryMayGrowMiB,
                      "memory stayed flat");
        for (int wait = 0; wait < 3000 && LinesIn(file) < planned; ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        good &= Check(LinesIn(file) == planned, "the sink that is well has every alert");
    }
    test::StopHost();
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    signal(SIGPIPE, SIG_IGN);
    const int seconds = argc > 1 ? atoi(argv[1]) : 10;
    const int per_second = argc > 2 ? atoi(argv[2]) : 10000;
    try {
        return Run(seconds, per_second);
    } catch (const std::exception &error) {
        fprintf(stderr, "sink_flood: %s\n", error.what());
        return 1;
    }
}
